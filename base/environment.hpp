// SPDX-License-Identifier: MIT
// The environment that programs are given and that this one goes by: nothing in it leads them astray.
#pragma once

#include <string>
#include <vector>

namespace hostadm::base {

// Where programs of the system lie.
inline constexpr const char *system_path = "/usr/sbin:/usr/bin:/sbin:/bin";

// NAME=VALUE: the system's path, and of this process's own variables those that say how to speak to its user
// (language, terminal, time zone), where their values are names and lead to no file.
std::vector<std::string> clean_environment();

// Takes everything out of this process's environment by which the C library would load a file that somebody
// else names. For a program that may run with more rights than who wrote its environment; before its first
// text is looked up.
void drop_ways_to_foreign_texts();

} // namespace hostadm::base
