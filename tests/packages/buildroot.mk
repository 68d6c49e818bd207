# SPDX-License-Identifier: MIT
# Builds, stages and installs as Buildroot's cmake-package does: the same options, inside the
# source, Makefiles, install/fast by DESTDIR.
VEXADM_PKGDIR = $(PACKAGE)/

define CONFIGURE
	tar -C $(WORK) -xf $(VEXADM_SITE)/$(VEXADM_SOURCE)
	cd $(WORK)/vexadm-$(VEXADM_VERSION) && cmake . -DCMAKE_TOOLCHAIN_FILE=$(TOOLCHAIN) \
		-DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="/usr" -DCMAKE_COLOR_MAKEFILE=OFF \
		-DBUILD_DOC=OFF -DBUILD_DOCS=OFF -DBUILD_EXAMPLE=OFF -DBUILD_EXAMPLES=OFF -DBUILD_TEST=OFF \
		-DBUILD_TESTS=OFF -DBUILD_TESTING=OFF -DBUILD_SHARED_LIBS=ON \
		-DCMAKE_C_FLAGS="$(TARGET_FLAGS)" -DCMAKE_CXX_FLAGS="$(TARGET_FLAGS)" $(VEXADM_CONF_OPTS)
endef

define cmake-package
$(foreach name,VERSION SOURCE SITE LICENSE LICENSE_FILES DEPENDENCIES,
  $(if $(VEXADM_$(name)),,$(error VEXADM_$(name) is missing)))
$(if $(filter %/,$(VEXADM_SITE)),$(error VEXADM_SITE ends with a slash))
all:
	$$(CONFIGURE)
	$$(MAKE) -C $(WORK)/vexadm-$(VEXADM_VERSION) -j$(JOBS)
	$$(MAKE) -C $(WORK)/vexadm-$(VEXADM_VERSION) DESTDIR=$(WORK)/staging install/fast
	$$(MAKE) -C $(WORK)/vexadm-$(VEXADM_VERSION) DESTDIR=$(WORK)/target install/fast
endef

include $(PACKAGE)/vexadm.mk
