// SPDX-License-Identifier: MIT
// Whole files, read and written in one go.
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace tests {

// What of it could be read: nothing of a missing file, and of a process that ends meanwhile what came so
// far, where an iterator over the stream would throw.
inline std::string content(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// Makes the directories above it.
inline void write(const std::filesystem::path &path, const std::string &text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

} // namespace tests
