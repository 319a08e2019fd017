# SPDX-License-Identifier: MIT
target_link_libraries(${target} PRIVATE hostadm_server)
