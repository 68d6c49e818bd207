# SPDX-License-Identifier: MIT
# What works beside the library and not with it is built for the machine that builds, also when the
# library is not: an emulated program cannot enter a namespace, the peers of a test need no emulator,
# and the shell of an emulated test is the machine's own.
if(CMAKE_CROSSCOMPILING)
  find_program(VEXADM_NATIVE_CXX NAMES g++ c++ clang++ REQUIRED NO_CMAKE_FIND_ROOT_PATH
    DOC "Compiler for the programs that run on this machine")
  execute_process(COMMAND ${VEXADM_NATIVE_CXX} -print-multiarch OUTPUT_VARIABLE VEXADM_NATIVE_ARCHITECTURE
    OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()

function(vexa_native_file target file)
  cmake_parse_arguments(PARSE_ARGV 2 native "" "" "OPTIONS;SOURCES")
  list(TRANSFORM native_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/)
  file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/support/own_network.h
    ${PROJECT_SOURCE_DIR}/tests/faults/file_recorder*.h)
  cmake_path(GET file PARENT_PATH directory)
  add_custom_command(OUTPUT ${file}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${directory}
    COMMAND ${VEXADM_NATIVE_CXX} -std=c++20 -O1 -g -Wall -Wextra -I${PROJECT_SOURCE_DIR}/tests
      ${native_OPTIONS} -o ${file} ${native_SOURCES}
    DEPENDS ${native_SOURCES} ${headers}
    COMMENT "Building ${target} for this machine" VERBATIM)
  add_custom_target(${target} SOURCES ${file})
endfunction()

# vexa_native_program(NAME SOURCE...)
function(vexa_native_program name)
  if(NOT CMAKE_CROSSCOMPILING)
    add_executable(${name} ${ARGN})
    target_include_directories(${name} PRIVATE tests)
    target_link_libraries(${name} PRIVATE vexadm_warnings)
    return()
  endif()
  vexa_native_file(${name}_native ${PROJECT_BINARY_DIR}/${name} SOURCES ${ARGN})
  add_executable(${name} IMPORTED GLOBAL)
  set_target_properties(${name} PROPERTIES IMPORTED_LOCATION ${PROJECT_BINARY_DIR}/${name})
  add_dependencies(${name} ${name}_native)
endfunction()

# vexa_native_module(TARGET FILE SOURCE...): something to preload into this machine's programs.
function(vexa_native_module target file)
  vexa_native_file(${target} ${file} OPTIONS -D_GNU_SOURCE -shared -fPIC SOURCES ${ARGN})
endfunction()
