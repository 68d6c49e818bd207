# SPDX-License-Identifier: MIT
# find_package(vexadm CONFIG) gives the target vexadm::vexadm. It brings no other: SQLite is the
# library's own need, and nothing of it shows in the headers.
include(${CMAKE_CURRENT_LIST_DIR}/vexadm-targets.cmake)
if(vexadm_FIND_COMPONENTS)
  set(vexadm_FOUND FALSE)
  set(vexadm_NOT_FOUND_MESSAGE "vexadm has no components, but these were asked for: ${vexadm_FIND_COMPONENTS}")
endif()
