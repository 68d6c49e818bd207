# SPDX-License-Identifier: MIT
# The version stands in places that are read without CMake as well; they cannot drift apart.

# expect_version(FILE REGEX VERSION): what the parentheses of REGEX take from FILE is VERSION.
function(expect_version file regex version)
  file(STRINGS ${PROJECT_SOURCE_DIR}/${file} lines REGEX "${regex}" LIMIT_COUNT 1)
  string(REGEX REPLACE "${regex}.*" "\\1" found "${lines}")
  if(NOT found STREQUAL version)
    message(FATAL_ERROR "${file} says ${found} where the project's version, in CMakeLists.txt, needs ${version}")
  endif()
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${file})
endfunction()

set(VERSION_HEADER include/vexadm/version.h)
expect_version(${VERSION_HEADER} "^#define VEXADM_VERSION_MAJOR ([0-9]+)" ${PROJECT_VERSION_MAJOR})
expect_version(${VERSION_HEADER} "^#define VEXADM_VERSION_MINOR ([0-9]+)" ${PROJECT_VERSION_MINOR})
expect_version(${VERSION_HEADER} "^#define VEXADM_VERSION_PATCH ([0-9]+)" ${PROJECT_VERSION_PATCH})
expect_version(${VERSION_HEADER} "^#define VEXADM_VERSION \"([^\"]*)\"" ${PROJECT_VERSION})
expect_version(CHANGELOG.md "^## ([0-9.]+)" ${PROJECT_VERSION})
