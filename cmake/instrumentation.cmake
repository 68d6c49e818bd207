# SPDX-License-Identifier: MIT
# Sanitizers and coverage, for every target of the tree.
if(VEXADM_SANITIZE)
  add_compile_options(-fsanitize=${VEXADM_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VEXADM_SANITIZE})
endif()
if(VEXADM_COVERAGE)
  # Atomic counters: tests with threads would lose counts, and a negative count stops gcovr.
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()
if(VEXADM_SANITIZE OR VEXADM_COVERAGE)
  set(VEXADM_INSTRUMENTED ON)
else()
  set(VEXADM_INSTRUMENTED OFF)
endif()
