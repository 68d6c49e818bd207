# SPDX-License-Identifier: MIT
# Read by cpack before it packages.
foreach(pair "RUNTIME LIBRARY" "TOOLS PROGRAM")
  separate_arguments(pair)
  list(GET pair 0 component)
  list(GET pair 1 file)
  execute_process(COMMAND ${CPACK_VEXADM_DEPENDS} ${CPACK_VEXADM_READELF} ${CPACK_VEXADM_${file}}
    OUTPUT_VARIABLE depends OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  set(CPACK_DEBIAN_${component}_PACKAGE_DEPENDS ${depends})
endforeach()
string(APPEND CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS ", ${CPACK_VEXADM_PROGRAM_DEPENDS}")
