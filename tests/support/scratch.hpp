// SPDX-License-Identifier: MIT
// A directory of a test's own, gone with the test.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "text_files.hpp"

namespace tests {

class Scratch {
public:
    Scratch() {
        std::string name = (std::filesystem::temp_directory_path() / "hostadm-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            throw std::system_error(errno, std::generic_category(), name);
        root_ = name;
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;

    std::string path(const std::string &name = "") const {
        return name.empty() ? root_.string() : (root_ / name).string();
    }
    std::string write(const std::string &name, const std::string &text) const {
        tests::write(root_ / name, text);
        return path(name);
    }

private:
    std::filesystem::path root_;
};

} // namespace tests
