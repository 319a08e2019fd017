// SPDX-License-Identifier: MIT
// A program of Debian's in /usr/bin, behind one of the same name that also understands the calls of System V.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace compat {

class DebianProgram {
public:
    DebianProgram(const std::string &name, std::string package)
        : path_("/usr/bin/" + name), package_(std::move(package)) {}

    // Turns this process into the program; the arguments stay as they are.
    [[noreturn]] void take_over(char **argv) const;
    // Runs it with these words behind its name and gives its exit status. System V's programs say nothing
    // when they succeed, and callers take anything else for a failure: so what it says is printed, behind
    // the hint, only when it fails, and then something always is.
    int run_silently(const std::vector<std::string> &words, const std::string &hint = "") const;

private:
    [[noreturn]] void fail_to_run(int error) const;
    void require_other_than_this() const;

    std::string path_;
    std::string package_;
};

} // namespace compat
