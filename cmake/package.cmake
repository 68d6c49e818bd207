# SPDX-License-Identifier: MIT
# Debian packages by CPack, one for each component: libvexadm0, libvexadm-dev, libvexadm0-dbgsym,
# vexadm-tools. A further one needs a component of its own in its install rules, its name in
# CPACK_COMPONENTS_ALL, and the block of CPACK_DEBIAN_<COMPONENT>_ variables.
# Only with VEXADM_DEBIAN, which lays the files out as Debian does; presets deb and deb-armhf.
set(DEBIAN_FILES ${PROJECT_SOURCE_DIR}/packaging/debian)
file(STRINGS ${DEBIAN_FILES}/changelog DEBIAN_VERSION REGEX "^libvexadm \\(" LIMIT_COUNT 1)
string(REGEX REPLACE "^[^(]*\\(([^)]*)\\).*" "\\1" DEBIAN_VERSION "${DEBIAN_VERSION}")
expect_version(packaging/debian/changelog "^libvexadm \\(([0-9.]+)-" ${PROJECT_VERSION})
string(REGEX REPLACE "^.*-" "" CPACK_DEBIAN_PACKAGE_RELEASE "${DEBIAN_VERSION}")

# Without a name and a time in them (-n), two packages of one source are the same to the byte.
foreach(pair "CHANGELOG.md changelog.gz" "packaging/debian/changelog changelog.Debian.gz")
  separate_arguments(pair)
  list(GET pair 0 text)
  list(GET pair 1 compressed)
  execute_process(COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/${text}
    OUTPUT_FILE ${PROJECT_BINARY_DIR}/${compressed} COMMAND_ERROR_IS_FATAL ANY)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${text})
endforeach()
foreach(pair "runtime libvexadm0" "development libvexadm-dev" "tools vexadm-tools")
  separate_arguments(pair)
  list(GET pair 0 component)
  list(GET pair 1 package)
  install(FILES ${DEBIAN_FILES}/copyright ${PROJECT_BINARY_DIR}/changelog.gz ${PROJECT_BINARY_DIR}/changelog.Debian.gz
    DESTINATION share/doc/${package} COMPONENT ${component})
  install(FILES ${DEBIAN_FILES}/${package}.lintian-overrides DESTINATION share/lintian/overrides
    RENAME ${package} COMPONENT ${component})
endforeach()
# Compressed as Debian has manual pages, and without the time, as above.
install(CODE "
  file(GLOB pages \"${VEXADM_MAN}/man3/*.3\")
  set(folder \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/share/man/man3\")
  file(MAKE_DIRECTORY \${folder})
  foreach(page IN LISTS pages)
    get_filename_component(name \${page} NAME)
    execute_process(COMMAND gzip -9nc \${page} OUTPUT_FILE \${folder}/\${name}.gz COMMAND_ERROR_IS_FATAL ANY)
  endforeach()" COMPONENT development)
# A package of debug symbols may hold nothing else.
install(CODE "
  file(MAKE_DIRECTORY \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/share/doc)
  file(CREATE_LINK libvexadm0 \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/share/doc/libvexadm0-dbgsym SYMBOLIC)"
  COMPONENT debug)
file(GLOB EXAMPLES CONFIGURE_DEPENDS examples/*.c)
install(FILES ${EXAMPLES} DESTINATION share/doc/libvexadm-dev/examples COMPONENT development)
install(FILES docs/caveats.md docs/storage.md DESTINATION share/doc/libvexadm-dev COMPONENT development)
install(FILES docs/storage.md docs/tool.md DESTINATION share/doc/vexadm-tools COMPONENT tools)

# Stripped as Debian strips; who debugs a core file from the field needs what was taken away.
foreach(pair "runtime strip" "debug keep")
  separate_arguments(pair)
  list(GET pair 0 component)
  list(GET pair 1 action)
  install(CODE "
    execute_process(COMMAND \"\${CMAKE_COMMAND}\" -D ACTION=${action} -D \"PREFIX=\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\"
      -D \"BUILT=$<TARGET_FILE:vexadm>\" -D LIBDIR=${CMAKE_INSTALL_LIBDIR} -D STRIP=${CMAKE_STRIP}
      -D OBJCOPY=${CMAKE_OBJCOPY} -D READELF=${CMAKE_READELF} -P \"${PROJECT_SOURCE_DIR}/cmake/debug_symbols.cmake\"
      COMMAND_ERROR_IS_FATAL ANY)" COMPONENT ${component})
endforeach()

install(CODE "
  execute_process(COMMAND ${CMAKE_STRIP} --remove-section=.comment --remove-section=.note
    \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/vexadm COMMAND_ERROR_IS_FATAL ANY)" COMPONENT tools)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME libvexadm)
set(CPACK_PACKAGE_CONTACT "The libvexadm authors")
set(CPACK_PACKAGE_VENDOR "The libvexadm authors")
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL runtime development debug tools)
set(CPACK_COMPONENTS_GROUPING IGNORE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# CPack asks the machine for its own architecture, which a cross build is not for.
if(CMAKE_LIBRARY_ARCHITECTURE STREQUAL arm-linux-gnueabihf)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
endif()
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

# This CPack knows no Multi-Arch field; it writes the section's line as it stands.
set(MULTIARCH "\nMulti-Arch: same")

# CPack indents the lines as the field needs it.
set(ABOUT "settings store and toolbox of a router")
set(EXTENDED "libvexadm keeps the settings of a fixed-wireless-access router in SQLite
files, with a backup, a journal and a checksum on each value, so that they
are there again after a power cut. Around that store it has what the
processes of such a router share: logging, queues, lists and semaphores,
commands with time-outs, routing netlink, AT commands, text conversion.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libvexadm0)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SOURCE libvexadm)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION "libs${MULTIARCH}")
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${ABOUT}\n${EXTENDED}\n.\nThis package has the shared library.")
# What is built with this library needs at least its version.
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/shlibs @ONLY
  CONTENT "libvexadm 0 libvexadm0 (>= ${PROJECT_VERSION})\n")
# CPack's own way to both would add scripts that run ldconfig, where a trigger is enough.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${DEBIAN_FILES}/triggers ${PROJECT_BINARY_DIR}/shlibs)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvexadm-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SOURCE libvexadm)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION "libdevel${MULTIARCH}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libvexadm0 (= ${DEBIAN_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${ABOUT} (development files)
${EXTENDED}\n.\nThis package has the headers, the files for CMake and pkg-config,\nmanual pages and examples.")

set(CPACK_DEBIAN_DEBUG_PACKAGE_NAME libvexadm0-dbgsym)
set(CPACK_DEBIAN_DEBUG_PACKAGE_SOURCE libvexadm)
set(CPACK_DEBIAN_DEBUG_PACKAGE_SECTION "debug${MULTIARCH}\nAuto-Built-Package: debug-symbols")
set(CPACK_DEBIAN_DEBUG_PACKAGE_DEPENDS "libvexadm0 (= ${DEBIAN_VERSION})")
set(CPACK_DEBIAN_DEBUG_DESCRIPTION "debug symbols for libvexadm0
What a debugger needs to name functions, lines and variables of the library\nin a running process or a core file.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vexadm-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SOURCE libvexadm)
# One for each unit or desk: whatever architecture it is for, it serves what asks for it by name.
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION "admin\nMulti-Arch: foreign")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "look into the settings store of a router
vexadm lists, reads and sets the settings that libvexadm keeps, says what is
wrong with a store and what can be done, mends it, and writes it as text
and back; on the unit, or at a desk with files copied from one.")

# The dependencies of the library and the program are read from the built ones, when they are packaged.
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/package_depends.cmake)
set(CPACK_VEXADM_LIBRARY ${PROJECT_BINARY_DIR}/libvexadm.so)
set(CPACK_VEXADM_PROGRAM ${PROJECT_BINARY_DIR}/cli/vexadm)
# It uses functions that only this very version is tested with.
set(CPACK_VEXADM_PROGRAM_DEPENDS "libvexadm0 (= ${DEBIAN_VERSION})")
set(CPACK_VEXADM_READELF ${CMAKE_READELF})
set(CPACK_VEXADM_DEPENDS ${PROJECT_SOURCE_DIR}/tools/deb-depends)
include(CPack)
