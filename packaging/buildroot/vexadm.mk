################################################################################
#
# vexadm
#
################################################################################

VEXADM_VERSION = 0.1.0
# ./dev dist makes it; it lies beside this file.
VEXADM_SOURCE = vexadm-$(VEXADM_VERSION).tar.xz
VEXADM_SITE = $(abspath $(VEXADM_PKGDIR))
VEXADM_SITE_METHOD = file
VEXADM_LICENSE = MIT
VEXADM_LICENSE_FILES = LICENSE
VEXADM_INSTALL_STAGING = YES
VEXADM_DEPENDENCIES = sqlite
VEXADM_CONF_OPTS = \
	-DVEXADM_TESTS=OFF \
	-DVEXADM_EXAMPLES=OFF \
	-DVEXADM_HOT_OPTIONS=-O2

ifeq ($(BR2_PACKAGE_VEXADM_TOOL),y)
VEXADM_CONF_OPTS += -DVEXADM_TOOL=ON
else
VEXADM_CONF_OPTS += -DVEXADM_TOOL=OFF
endif

# Made from whatever is committed: no hash can be known beforehand.
BR_NO_CHECK_HASH_FOR += $(VEXADM_SOURCE)

$(eval $(cmake-package))
