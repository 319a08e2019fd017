// SPDX-License-Identifier: MIT
// The running system's processes as a confined command sees them: their numbers, names and states, by which it tells
// whether a daemon runs, and nothing else.
#pragma once

#include <string>

#include "base/descriptor.hpp"

namespace hostadm::sandbox {

using base::Descriptor;

// A /proc of the calling process's name space in which nobody looks into the folder of a process that he may not trace.
// To be made before name spaces are. Not open where the kernel has none such.
Descriptor closed_processes();

// Lays what may be seen of each process over its folder of a closed /proc: its state, its name, the name that it was
// started by, and of root's daemons all their words. The folder is for keeping that; it is made, and stays.
void show_names_of_processes(const std::string &proc, const std::string &folder);

} // namespace hostadm::sandbox
