# SPDX-License-Identifier: MIT
# What `cmake --install` puts in place, besides the methods, the manual pages and the catalogues, which their folders
# install. Everything finds its libraries relative to itself, so the installed tree may be moved.
include(CMakePackageConfigHelpers)

set(shared_libraries hostadm hostadm_method hostadm_framework hostadm_tables hostadm_platform)
set(static_libraries hostadm_base hostadm_table_edit hostadm_sandbox)

# ---- where programs and libraries find the libraries ----

# FOLDER is an installed one; the build tree has it at the same depth, with the libraries in lib. One search path serves
# both: one that is changed on installing is filled up with empty entries, and those stand for the current folder.
function(hostadm_find_libraries_from folder)
  file(RELATIVE_PATH installed ${folder} ${CMAKE_INSTALL_FULL_LIBDIR})
  file(RELATIVE_PATH built ${folder} ${CMAKE_INSTALL_PREFIX}/lib)
  set(ways $ORIGIN/${installed} $ORIGIN/${built})
  list(REMOVE_DUPLICATES ways)
  set_target_properties(${ARGN} PROPERTIES INSTALL_RPATH "${ways}" BUILD_WITH_INSTALL_RPATH ON)
endfunction()

set_target_properties(${shared_libraries} PROPERTIES INSTALL_RPATH $ORIGIN BUILD_WITH_INSTALL_RPATH ON)
get_property(method_targets DIRECTORY ${PROJECT_SOURCE_DIR}/methods PROPERTY BUILDSYSTEM_TARGETS)
foreach(target ${method_targets})
  get_target_property(type ${target} TYPE)
  if(type STREQUAL EXECUTABLE)
    hostadm_find_libraries_from(${CMAKE_INSTALL_FULL_LIBEXECDIR}/hostadm/methods/class ${target})
  endif()
endforeach()

hostadm_find_libraries_from(${CMAKE_INSTALL_FULL_LIBEXECDIR}/hostadm hostadm_rehearse hostadm_watch)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR})

# ---- headers, libraries, package files ----

install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h"
        PATTERN "*.hpp")

# hostadm_NAME is hostadm::NAME to others; hostadm itself is hostadm::hostadm.
foreach(library ${shared_libraries} ${static_libraries} hostadm_build)
  string(REGEX REPLACE "^hostadm_" "" name ${library})
  set_target_properties(${library} PROPERTIES EXPORT_NAME ${name})
endforeach()
set_target_properties(hostadm_build PROPERTIES EXPORT_NAME headers)

# Who links one library needs the headers; with hostadm come the libraries that it stands on, as with pkg-config.
foreach(library ${shared_libraries})
  target_link_libraries(${library} INTERFACE $<INSTALL_INTERFACE:hostadm::headers>)
endforeach()
target_link_libraries(hostadm INTERFACE $<INSTALL_INTERFACE:hostadm::framework> $<INSTALL_INTERFACE:hostadm::tables>
                                        $<INSTALL_INTERFACE:hostadm::platform>)

install(TARGETS ${shared_libraries} ${static_libraries} hostadm_build EXPORT hostadmTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/hostadm)
install(EXPORT hostadmTargets NAMESPACE hostadm:: DESTINATION ${package_folder})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/hostadmConfig.cmake.in ${PROJECT_BINARY_DIR}/hostadmConfig.cmake
                              INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/hostadmConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/hostadmConfig.cmake ${PROJECT_BINARY_DIR}/hostadmConfigVersion.cmake
        DESTINATION ${package_folder})

set(pkgconfig_folder ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH way_to_prefix ${pkgconfig_folder} ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH way_to_libraries ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH way_to_headers ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
foreach(package hostadm hostadm-method)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${package}.pc.in ${PROJECT_BINARY_DIR}/${package}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${package}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

# ---- taking it away again ----

add_custom_target(uninstall COMMAND ${CMAKE_COMMAND} -DBUILD=${PROJECT_BINARY_DIR} -P ${CMAKE_CURRENT_LIST_DIR}/uninstall.cmake
                  COMMENT "Taking away what was installed from here" VERBATIM)
