# SPDX-License-Identifier: MIT
# Debian's cross compiler for 32-bit ARM, hard float. ./dev armhf fetches the libraries to link and
# to run with into build/armhf-sysroot; what the compiler itself needs is its own.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# Else GCC notes at every second template that GCC 6 passed some C++ records in another way.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
get_filename_component(VEXADM_ARMHF_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH ${VEXADM_ARMHF_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# What a test program opens below /lib and /usr/lib comes from the sysroot as far as it is there, all
# else from this machine. The processor is one that routers have: it lacks what newer ones can do.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -cpu cortex-a7 -L ${VEXADM_ARMHF_SYSROOT})
# The linker looks for the library's own libraries too; the library, as it ships, names no folder. Quoted: the
# folder may have blanks.
set(CMAKE_EXE_LINKER_FLAGS_INIT "\"-Wl,-rpath-link,${VEXADM_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf\"")
