// SPDX-License-Identifier: MIT
#include "cli/own_programs.hpp"

#include <filesystem>

namespace hostadm::cli {

std::string own_program(const std::string &name) {
    const auto prefix = std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path();
    return prefix / "libexec" / "hostadm" / name;
}

} // namespace hostadm::cli
