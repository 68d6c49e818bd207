# SPDX-License-Identifier: MIT
# libvexadm.so.0: C++ inside, plain C outside.
# A mutation run builds a changed copy of the sources; everything else of the tree stays its own.
set(VEXADM_SOURCE_ROOT ${PROJECT_SOURCE_DIR} CACHE PATH "Where the library's sources are")
file(GLOB_RECURSE VEXADM_SOURCES CONFIGURE_DEPENDS
  ${VEXADM_SOURCE_ROOT}/vexa-app-utils/*.cpp
  ${VEXADM_SOURCE_ROOT}/vexa-app-os-al/*.cpp
  ${VEXADM_SOURCE_ROOT}/vexa-app-common/src/*.cpp)

find_library(VEXADM_SQLITE3 NAMES sqlite3 REQUIRED)
find_path(VEXADM_SQLITE3_INCLUDE sqlite3.h REQUIRED)

add_library(vexadm SHARED ${VEXADM_SOURCES})
add_library(vexadm::vexadm ALIAS vexadm)  # the name that find_package gives it, for those who take the sources in
# A caller's preprocessor flags count as well; CMake itself reads the compilers' and the linker's only.
set(VEXADM_CPPFLAGS "$ENV{CPPFLAGS}" CACHE STRING "Preprocessor flags of the environment")
separate_arguments(VEXADM_CPPFLAG_LIST UNIX_COMMAND "${VEXADM_CPPFLAGS}")
target_compile_options(vexadm PRIVATE ${VEXADM_CPPFLAG_LIST})

set_target_properties(vexadm PROPERTIES VERSION 0.${PROJECT_VERSION_MINOR}.${PROJECT_VERSION_PATCH} SOVERSION 0)
target_include_directories(vexadm
  PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
  PRIVATE ${VEXADM_SOURCE_ROOT}/vexa-app-utils ${VEXADM_SOURCE_ROOT}/vexa-app-os-al
    ${VEXADM_SOURCE_ROOT}/vexa-app-common/src)
target_include_directories(vexadm SYSTEM PRIVATE ${VEXADM_SQLITE3_INCLUDE})
target_link_libraries(vexadm PRIVATE $<BUILD_INTERFACE:vexadm_warnings> ${VEXADM_SQLITE3})
# 64-bit inode numbers and times also where long has 32 bits: stat() must not fail for either.
target_compile_definitions(vexadm PRIVATE _GNU_SOURCE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
target_compile_options(vexadm PRIVATE
  -fno-exceptions -fno-rtti -fno-threadsafe-statics
  -fvisibility=hidden -fvisibility-inlines-hidden -ffunction-sections -fdata-sections)

# Sources whose time a host can feel: lookups and checksums of each read, and what goes over whole
# texts. The others mostly wait for storage, sockets and processes: small is as fast there.
set(VEXADM_HOT_OPTIONS "" CACHE STRING "Compiler options of the few sources that compute, such as -O2")
separate_arguments(VEXADM_HOT_OPTION_LIST UNIX_COMMAND "${VEXADM_HOT_OPTIONS}")
foreach(file
    vexa-app-common/src/utf8_to_utf16 vexa-app-common/src/utf16_to_utf8 vexa-app-common/src/gsm_text
    vexa-app-utils/data_manager/cache vexa-app-utils/data_manager/crc32 vexa-app-utils/queue/queue)
  set_property(SOURCE ${VEXADM_SOURCE_ROOT}/${file}.cpp APPEND PROPERTY COMPILE_OPTIONS ${VEXADM_HOT_OPTION_LIST})
endforeach()

# A host that hands the queue a null element is stopped by a real fault at that access; the
# compiler must neither reason such accesses away nor a sanitizer stop them earlier.
set(VEXADM_QUEUE_OPTIONS -fno-delete-null-pointer-checks)
if(VEXADM_SANITIZE)
  list(APPEND VEXADM_QUEUE_OPTIONS -fno-sanitize=null)
endif()
set_property(SOURCE ${VEXADM_SOURCE_ROOT}/vexa-app-utils/queue/queue.cpp
  APPEND PROPERTY COMPILE_OPTIONS ${VEXADM_QUEUE_OPTIONS})

if(NOT VEXADM_INSTRUMENTED)
  # The run-time libraries of the instrumentation need what these take away.
  set(VEXADM_EXPORTS ${PROJECT_BINARY_DIR}/vexadm.map)
  file(STRINGS ${PROJECT_SOURCE_DIR}/tests/exported_names.txt VEXADM_NAMES REGEX "^[A-Za-z]")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/exported_names.txt)
  list(JOIN VEXADM_NAMES "; " VEXADM_NAMES)
  file(CONFIGURE OUTPUT ${VEXADM_EXPORTS} CONTENT "{ global: @VEXADM_NAMES@; local: *; };\n" @ONLY)

  # Linked by the C compiler: a use of the C++ run-time library is then a link error instead of
  # one more library that every process of the router has to load.
  set_target_properties(vexadm PROPERTIES LINKER_LANGUAGE C LINK_DEPENDS ${VEXADM_EXPORTS})
  target_link_options(vexadm PRIVATE
    -static-libgcc LINKER:-z,defs LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack LINKER:-z,text
    LINKER:--gc-sections LINKER:--as-needed LINKER:-Bsymbolic-functions
    LINKER:--version-script=${VEXADM_EXPORTS})
  include(${CMAKE_CURRENT_LIST_DIR}/release.cmake)
  vexa_release_options(vexadm)
  # The path to a SQLite outside the system's folders serves tests in the build tree alone.
  if(NOT VEXADM_TESTS)
    set_target_properties(vexadm PROPERTIES BUILD_WITH_INSTALL_RPATH ON)
  endif()
endif()
