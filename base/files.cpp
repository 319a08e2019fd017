// SPDX-License-Identifier: MIT
#include "base/files.hpp"

#include <fstream>
#include <sstream>
#include <utility>

namespace hostadm::base {

std::string file_contents(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf(); // where an iterator over the stream would throw, this stops
    return std::move(text).str();
}

} // namespace hostadm::base
