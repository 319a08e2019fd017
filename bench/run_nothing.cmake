# SPDX-License-Identifier: MIT
# A small installation with the one method and the command, as built.
set(bench_root ${PROJECT_BINARY_DIR}/bench/root)
add_executable(bench_method_nothing methods/nothing.cpp)
target_link_libraries(bench_method_nothing PRIVATE hostadm_method hostadm_build)
set_target_properties(bench_method_nothing PROPERTIES OUTPUT_NAME nothing RUNTIME_OUTPUT_DIRECTORY
                                                      ${bench_root}/libexec/hostadm/methods/bench)
add_custom_target(
  bench_command
  COMMAND ${CMAKE_COMMAND} -E make_directory ${bench_root}/bin
  COMMAND ${CMAKE_COMMAND} -E copy_if_different $<TARGET_FILE:hostadm_command> ${bench_root}/bin/hostadm
  DEPENDS hostadm_command)
add_dependencies(bench_${name} bench_command bench_method_nothing)
target_compile_definitions(bench_${name} PRIVATE BENCH_ROOT="${bench_root}")
