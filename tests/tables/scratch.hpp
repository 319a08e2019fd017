// SPDX-License-Identifier: MIT
// Files of a test's own, and the world that some promises need around them.
#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "support/text_files.hpp"

namespace scratch {

void write(const std::string &path, const std::string &text);
struct stat status(const std::string &path);

// A test in a temporary folder of its own.
class Test : public testing::Test {
protected:
    Test();
    ~Test() override;

    std::string path(const std::string &name = "table") const { return folder_ + "/" + name; }
    // A table with this text; its path.
    std::string table(const std::string &text, const std::string &name = "table") const;
    const std::string &folder() const { return folder_; }
    // The names in the folder, sorted.
    std::vector<std::string> names() const;

private:
    std::string folder_;
};

// Runs `body` in a child process with a mount namespace of its own; its word is the failure, "" when all went
// well. Skips the test (with the reason) when the kernel does not allow it.
void in_private_mounts(const std::function<std::string()> &body);

// Runs `body` in a child process as an ordinary user (root only; skipped otherwise); its word is the failure.
void as_ordinary_user(const std::function<std::string()> &body);

} // namespace scratch
