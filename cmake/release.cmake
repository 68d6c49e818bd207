# SPDX-License-Identifier: MIT
# What is shipped is compiled with beyond what it cannot do without. A distribution brings its
# own hardening and optimisation; where it has spoken, nothing is said here.
string(TOUPPER "${CMAKE_BUILD_TYPE}" VEXADM_CONFIG)
set(VEXADM_CALLER_FLAGS " ${VEXADM_CPPFLAGS} ${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_${VEXADM_CONFIG}} ")

# vexa_release_options(TARGET)
function(vexa_release_options target)
  if(NOT VEXADM_CALLER_FLAGS MATCHES " -f(no-)?stack-protector")
    target_compile_options(${target} PRIVATE -fstack-protector-strong)
  endif()

  # Needs optimisation. Undefined first: some compilers come with a level of their own. Level 2: 3 checks
  # no buffer more here, since the library's own are arrays, and a host's have the length it says.
  if(NOT VEXADM_CALLER_FLAGS MATCHES "_FORTIFY_SOURCE"
      AND VEXADM_CONFIG MATCHES "^(RELEASE|MINSIZEREL|RELWITHDEBINFO)$"
      AND NOT VEXADM_CALLER_FLAGS MATCHES " -O0 ")
    target_compile_options(${target} PRIVATE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  endif()

  # The same bytes from any folder. Not for daily work, where a debugger shall find the sources. Of two
  # maps that fit the later counts, so these would win over those of an image's builder, whose debug
  # symbols shall name the folder in which he keeps the sources.
  if(NOT VEXADM_CONFIG STREQUAL "DEBUG" AND NOT VEXADM_CALLER_FLAGS MATCHES " -f(file|debug|macro)-prefix-map=")
    target_compile_options(${target} PRIVATE
      -ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -ffile-prefix-map=${PROJECT_BINARY_DIR}=./build)
  endif()
endfunction()
