# Stands in for Buildroot: reads the external tree as Buildroot does, tells what the package sets,
# and does its install steps.
#
#     make -f buildroot.mk BR2_EXTERNAL_LVT_RSTP_PATH=... show
#     make -f buildroot.mk BR2_EXTERNAL_LVT_RSTP_PATH=... TARGET_DIR=... LVT_RSTP_BUILDDIR=... install

TARGET_DIR ?=
LVT_RSTP_BUILDDIR ?=
BR2_CMAKE = cmake
INSTALL = install
LVT_RSTP_PKGDIR = $(BR2_EXTERNAL_LVT_RSTP_PATH)/package/lvt-rstp

packages :=
cmake-package = packages += $(notdir $(patsubst %/,%,$(dir $(lastword $(MAKEFILE_LIST)))))

include $(BR2_EXTERNAL_LVT_RSTP_PATH)/external.mk

ifneq ($(strip $(packages)),lvt-rstp)
$(error the external tree has the CMake packages '$(packages)' instead of lvt-rstp)
endif

# What Buildroot reads of a package, as far as this one uses it.
known := VERSION SITE SITE_METHOD OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS CONF_OPTS INSTALL_TARGET_CMDS \
	INSTALL_INIT_SYSV BUILDDIR PKGDIR
unknown := $(filter-out $(addprefix LVT_RSTP_,$(known)),$(filter LVT_RSTP_%,$(.VARIABLES)))
ifneq ($(unknown),)
$(error Buildroot does not know $(unknown))
endif

show:
	@echo 'version=$(LVT_RSTP_VERSION)'
	@echo 'site=$(LVT_RSTP_SITE)'
	@echo 'method=$(LVT_RSTP_SITE_METHOD)'
	@echo 'options=$(LVT_RSTP_CONF_OPTS)'

install:
	$(LVT_RSTP_INSTALL_TARGET_CMDS)
	$(LVT_RSTP_INSTALL_INIT_SYSV)
