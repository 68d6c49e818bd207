# SPDX-License-Identifier: MIT
# vexa_native_program(NAME SOURCE...): a program that works beside the library and not with it. It is
# built for the machine that builds, also when the library is not: an emulated program cannot enter a
# namespace, and the peers of a test need no emulator.
function(vexa_native_program name)
  if(NOT CMAKE_CROSSCOMPILING)
    add_executable(${name} ${ARGN})
    target_include_directories(${name} PRIVATE tests)
    target_link_libraries(${name} PRIVATE vexadm_warnings)
    return()
  endif()
  find_program(VEXADM_NATIVE_CXX NAMES g++ c++ clang++ REQUIRED NO_CMAKE_FIND_ROOT_PATH
    DOC "Compiler for the programs that run on this machine")
  set(program ${PROJECT_BINARY_DIR}/${name})
  list(TRANSFORM ARGN PREPEND ${PROJECT_SOURCE_DIR}/ OUTPUT_VARIABLE sources)
  add_custom_command(OUTPUT ${program}
    COMMAND ${VEXADM_NATIVE_CXX} -std=c++20 -O1 -g -Wall -Wextra -I${PROJECT_SOURCE_DIR}/tests
      -o ${program} ${sources}
    DEPENDS ${sources} ${PROJECT_SOURCE_DIR}/tests/support/own_network.h
    COMMENT "Building ${name} for this machine" VERBATIM)
  add_custom_target(${name}_native SOURCES ${program})
  add_executable(${name} IMPORTED GLOBAL)
  set_target_properties(${name} PROPERTIES IMPORTED_LOCATION ${program})
  add_dependencies(${name} ${name}_native)
endfunction()
