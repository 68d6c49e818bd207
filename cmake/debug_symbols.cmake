# SPDX-License-Identifier: MIT
# Divides the library and its debug symbols between two packages, when they are installed.
# usage: cmake -D ACTION=strip|keep -D PREFIX=... -D BUILT=... -D LIBDIR=... -D STRIP=... -D OBJCOPY=... -D READELF=...
#   -P debug_symbols.cmake
if(ACTION STREQUAL strip)
  get_filename_component(name ${BUILT} NAME)
  execute_process(COMMAND ${STRIP} --strip-unneeded --remove-section=.comment --remove-section=.note
    ${PREFIX}/${LIBDIR}/${name} COMMAND_ERROR_IS_FATAL ANY)
else()
  execute_process(COMMAND ${READELF} -nW ${BUILT} OUTPUT_VARIABLE notes COMMAND_ERROR_IS_FATAL ANY)
  if(NOT notes MATCHES "Build ID: ([0-9a-f][0-9a-f])([0-9a-f]+)")
    message(FATAL_ERROR "${BUILT} has no build id, by which a debugger would find its symbols")
  endif()
  set(folder ${PREFIX}/lib/debug/.build-id/${CMAKE_MATCH_1})
  set(file ${folder}/${CMAKE_MATCH_2}.debug)
  file(MAKE_DIRECTORY ${folder})
  execute_process(COMMAND ${OBJCOPY} --only-keep-debug --compress-debug-sections ${BUILT} ${file}
    COMMAND_ERROR_IS_FATAL ANY)
  file(CHMOD ${file} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endif()
