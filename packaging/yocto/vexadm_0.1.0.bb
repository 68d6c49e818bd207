# SPDX-License-Identifier: MIT
SUMMARY = "Settings store and toolbox of a router"
DESCRIPTION = "Keeps the settings of a fixed-wireless-access router in SQLite \
files, with a backup, a journal and a checksum on each value, so that they are \
there again after a power cut; and what the processes of such a router share."
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=7511b312a8d7d184f89972c2b51a1c46"

DEPENDS = "sqlite3"

# ./dev dist makes it; it lies in the folder files/ beside this recipe.
SRC_URI = "file://vexadm-${PV}.tar.xz"

inherit cmake

EXTRA_OECMAKE = "-DVEXADM_TESTS=OFF -DVEXADM_EXAMPLES=OFF -DVEXADM_HOT_OPTIONS=-O2"

# The program apart, for images that have no use for it.
PACKAGES =+ "${PN}-tools"
SUMMARY:${PN}-tools = "Looks into the settings store of a router"
FILES:${PN}-tools = "${bindir}/vexadm ${datadir}/bash-completion/completions/vexadm"

BBCLASSEXTEND = "native nativesdk"
