# SPDX-License-Identifier: MIT
# Stands for the file of OpenWrt that every package includes.
PKG_BUILD_DIR:=$(WORK)/$(PKG_NAME)-$(PKG_VERSION)
