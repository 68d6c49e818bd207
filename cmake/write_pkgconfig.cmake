# SPDX-License-Identifier: MIT
# Writes vexadm.pc; run when the library is installed, because only then is the prefix known:
# cmake --install --prefix may name another than the configuration did.
# usage: cmake -D PREFIX=... -D LIBDIR=... -D INCLUDEDIR=... -D VERSION=... -D OUTPUT=... -P write_pkgconfig.cmake
#
# The prefix is written out, and everything else hangs on it: the build systems of images set it
# themselves (--define-variable=prefix=) or put their sysroot before it (PKG_CONFIG_SYSROOT_DIR),
# and the latter counts twice where a prefix is derived from the place of the file.
set(prefix ${PREFIX})
foreach(directory LIBDIR INCLUDEDIR)
  string(TOLOWER ${directory} name)
  set(${name} ${${directory}})
  if(NOT IS_ABSOLUTE "${${directory}}")
    set(${name} "\${prefix}/${${directory}}")
  endif()
endforeach()
configure_file(${CMAKE_CURRENT_LIST_DIR}/vexadm.pc.in ${OUTPUT} @ONLY)
