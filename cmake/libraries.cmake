# SPDX-License-Identifier: MIT
# What holds for each of the shared libraries. It gives away the names that exports/NAME.map lists, each with a version,
# and nothing else: templates of the C++ library that were instantiated inside stay inside.
foreach(library hostadm hostadm_framework hostadm_tables hostadm_platform)
  set(exports ${CMAKE_CURRENT_LIST_DIR}/exports/${library}.map)
  target_link_options(${library} PRIVATE LINKER:--version-script=${exports} LINKER:--no-undefined-version)
  set_target_properties(${library} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                                              LINK_DEPENDS ${exports})
endforeach()
