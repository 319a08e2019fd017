# SPDX-License-Identifier: MIT
# What holds for each of the shared libraries.
foreach(library hostadm hostadm_framework hostadm_tables hostadm_platform)
  if(TARGET ${library})
    target_link_options(${library} PRIVATE -Wl,--version-script=${CMAKE_CURRENT_LIST_DIR}/exports.map)
    set_target_properties(${library} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                                                LINK_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/exports.map)
  endif()
endforeach()
