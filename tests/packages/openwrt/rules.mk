# SPDX-License-Identifier: MIT
# What a package's Makefile takes from OpenWrt's own rules.mk, as far as the recipe check needs it.
INCLUDE_DIR:=$(TOPDIR)/include
INSTALL_DIR:=install -d -m0755
INSTALL_DATA:=install -m0644
INSTALL_BIN:=install -m0755
CP:=cp -fpR
PKG_INSTALL_DIR:=$(WORK)/ipkg-install
