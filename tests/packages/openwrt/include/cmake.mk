# SPDX-License-Identifier: MIT
# Builds, stages and packs as OpenWrt's cmake.mk and package.mk do: the same options, the same
# order, Ninja and an install by DESTDIR.
define Configure
	tar -C $(WORK) -xf $(patsubst file://%,%,$(PKG_SOURCE_URL))/$(PKG_SOURCE)
	cd $(PKG_BUILD_DIR) && CFLAGS="$(TARGET_FLAGS)" CXXFLAGS="$(TARGET_FLAGS)" LDFLAGS="$(TARGET_LDFLAGS)" cmake \
		-G Ninja --no-warn-unused-cli -DCMAKE_SYSTEM_NAME=Linux -DCMAKE_SYSTEM_VERSION=1 \
		-DCMAKE_SYSTEM_PROCESSOR=arm -DCMAKE_BUILD_TYPE=Release \
		-DCMAKE_C_FLAGS_RELEASE="-DNDEBUG" -DCMAKE_CXX_FLAGS_RELEASE="-DNDEBUG" \
		-DCMAKE_C_COMPILER=$(CROSS)gcc -DCMAKE_CXX_COMPILER=$(CROSS)g++ \
		-DCMAKE_EXE_LINKER_FLAGS:STRING="$(TARGET_LDFLAGS)" \
		-DCMAKE_MODULE_LINKER_FLAGS:STRING="$(TARGET_LDFLAGS) -Wl,-Bsymbolic-functions" \
		-DCMAKE_SHARED_LINKER_FLAGS:STRING="$(TARGET_LDFLAGS) -Wl,-Bsymbolic-functions" \
		-DCMAKE_AR=$(CROSS)ar -DCMAKE_NM=$(CROSS)nm -DCMAKE_RANLIB=$(CROSS)ranlib \
		-DCMAKE_FIND_ROOT_PATH="$(SYSROOT)" -DCMAKE_FIND_ROOT_PATH_MODE_PROGRAM=NEVER \
		-DCMAKE_FIND_ROOT_PATH_MODE_LIBRARY=ONLY -DCMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY \
		-DCMAKE_LIBRARY_ARCHITECTURE=$(TRIPLET) -DCMAKE_STRIP=: -DCMAKE_INSTALL_PREFIX=/usr \
		-DCMAKE_PREFIX_PATH=$(SYSROOT) -DCMAKE_SKIP_RPATH=TRUE $(CMAKE_OPTIONS) .
endef

all:
.PHONY: all built
built:
	$(call Configure)
	ninja -C $(PKG_BUILD_DIR)
	DESTDIR="$(PKG_INSTALL_DIR)" ninja -C $(PKG_BUILD_DIR) install
	$(call Build/InstallDev,$(WORK)/staging)

# The real one asks for these fields, too. Each package goes into a folder of its own.
define BuildPackage
$(eval $(call Package/$(1)))
$(foreach field,PKG_NAME PKG_VERSION PKG_RELEASE PKG_LICENSE PKG_HASH SECTION CATEGORY TITLE DEPENDS,
  $(if $(value $(field)),,$(error $(1) lacks $(field))))
all: pack-$(1)
pack-$(1): built
	$$(call Package/$(1)/install,$(WORK)/target/$(1))
endef
