# SPDX-License-Identifier: MIT
# What is installed: component runtime is what a device needs, development what a program is built with.
include(CMakePackageConfigHelpers)
include(cmake/version.cmake)

set(VEXADM_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vexadm)
install(TARGETS vexadm EXPORT vexadm-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(EXPORT vexadm-targets NAMESPACE vexadm:: DESTINATION ${VEXADM_CMAKE_DIR} COMPONENT development)

# Until 1.0 a new minor version may change interfaces; a patch version may not.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vexadm-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES cmake/vexadm-config.cmake ${PROJECT_BINARY_DIR}/vexadm-config-version.cmake
  DESTINATION ${VEXADM_CMAKE_DIR} COMPONENT development)

install(DIRECTORY include/vexadm DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
  FILES_MATCHING PATTERN "*.h")

# pkg-config's file is written at install time and put beside the rest by an ordinary rule, which
# honours DESTDIR and appears in the install manifest.
install(CODE "
  execute_process(COMMAND \"\${CMAKE_COMMAND}\" -D \"PREFIX=\${CMAKE_INSTALL_PREFIX}\"
    -D \"LIBDIR=${CMAKE_INSTALL_LIBDIR}\" -D \"INCLUDEDIR=${CMAKE_INSTALL_INCLUDEDIR}\" -D VERSION=${PROJECT_VERSION}
    -D \"OUTPUT=${PROJECT_BINARY_DIR}/vexadm.pc\" -P \"${PROJECT_SOURCE_DIR}/cmake/write_pkgconfig.cmake\"
    COMMAND_ERROR_IS_FATAL ANY)" COMPONENT development)
install(FILES ${PROJECT_BINARY_DIR}/vexadm.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# CMake's list of what it installed is root's after an installation by sudo, and the next one by the
# build's own user would end in an error: CMake can remove that file, but not write it.
install(CODE "
  if(CMAKE_INSTALL_COMPONENT)
    file(REMOVE \"${PROJECT_BINARY_DIR}/install_manifest_\${CMAKE_INSTALL_COMPONENT}.txt\")
  else()
    file(REMOVE \"${PROJECT_BINARY_DIR}/install_manifest.txt\")
  endif()" ALL_COMPONENTS)

# What ./dev docs made; nothing where it did not run.
set(VEXADM_MAN ${PROJECT_SOURCE_DIR}/build/docs/man)

if(VEXADM_DEBIAN)
  include(cmake/package.cmake)
else()
  install(DIRECTORY ${VEXADM_MAN}/ DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT development OPTIONAL
    FILES_MATCHING PATTERN "*.3")
  install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
endif()
