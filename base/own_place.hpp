// SPDX-License-Identifier: MIT
// Where this code itself lies: what is installed beside it is found from there, wherever all was put.
#pragma once

#include <string>

namespace hostadm::base {

// The folder above the last slash of a path; empty when there is none.
std::string folder_of(const std::string &path);
// Does the path lead to a folder?
bool is_folder(const std::string &path);
// The folder of the file that holds this code: a library, or the program that it is linked into. Empty when
// that cannot be told.
std::string own_folder();

} // namespace hostadm::base
