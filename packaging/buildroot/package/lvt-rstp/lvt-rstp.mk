################################################################################
#
# lvt-rstp
#
################################################################################

# This source tree itself. Put a version and a site here when there is a release to fetch.
LVT_RSTP_VERSION := $(shell cat $(BR2_EXTERNAL_LVT_RSTP_PATH)/../../VERSION)
LVT_RSTP_SITE = $(BR2_EXTERNAL_LVT_RSTP_PATH)/../..
LVT_RSTP_SITE_METHOD = local
LVT_RSTP_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude=/build

LVT_RSTP_CONF_OPTS = -DLVT_TOOLS=OFF -DLVT_BOARD=OFF -DLVT_LTO=ON

# Only what an image needs, without the man page.
define LVT_RSTP_INSTALL_TARGET_CMDS
	DESTDIR=$(TARGET_DIR) $(BR2_CMAKE) --install $(LVT_RSTP_BUILDDIR) --component daemon --prefix /usr
endef

define LVT_RSTP_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 0755 $(LVT_RSTP_PKGDIR)/S90lvt_rstpd \
		$(TARGET_DIR)/etc/init.d/S90lvt_rstpd
endef

$(eval $(cmake-package))
