# Stands in for OpenWrt, as far as this package uses it. PKG_BUILD_DIR and CMAKE_BINARY_DIR are given.
INCLUDE_DIR := $(TOPDIR)/include
CP := cp -fpR
INSTALL_DIR := install -d -m0755
INSTALL_BIN := install -m0755
INSTALL_CONF := install -m0600
