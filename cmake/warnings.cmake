# SPDX-License-Identifier: MIT
# The warnings of everything in this tree, as a target to link.
add_library(vexadm_warnings INTERFACE)
target_compile_options(vexadm_warnings INTERFACE
  -Wall -Wextra -Wpedantic
  -Wcast-align -Wcast-qual -Wconversion -Wformat=2 -Wimplicit-fallthrough -Wmissing-declarations
  -Wpointer-arith -Wshadow -Wsign-conversion -Wundef -Wvla
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast -Wextra-semi>
  $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<CXX_COMPILER_ID:GNU>>:-Wduplicated-cond -Wlogical-op>
  $<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes>
  $<$<BOOL:${VEXADM_WERROR}>:-Werror>)
