ifeq ($(and $(PKG_NAME),$(PKG_VERSION),$(PKG_RELEASE)),)
$(error PKG_NAME, PKG_VERSION and PKG_RELEASE must be set before package.mk)
endif

# What OpenWrt reads of a package, as far as this one uses it.
needed = Package/$(1) $(addprefix Package/$(1)/,description conffiles install) Build/Prepare
known = $(needed) Package/$(1)/extra_provides

define BuildPackage
$(foreach part,$(needed),$(if $(value $(part)),,$(error $(part) is not defined)))
$(foreach part,$(filter-out $(known),$(filter Package/% Build/%,$(.VARIABLES))),\
  $(error OpenWrt does not know $(part)))
$(eval $(value Package/$(1)))
$(foreach field,SECTION CATEGORY TITLE DEPENDS,$(if $(value $(field)),,$(error $(field) is not set)))

show:
	@echo 'name=$(1)'
	@echo 'version=$$(PKG_VERSION)'
	@echo 'options=$$(CMAKE_OPTIONS)'
	@( $(if $(value Package/$(1)/extra_provides),$$(Package/$(1)/extra_provides),:) ) | sed 's/^/provides=/'

prepare:
	$$(Build/Prepare)

install:
	$$(call Package/$(1)/install,$$(DESTINATION))
endef
