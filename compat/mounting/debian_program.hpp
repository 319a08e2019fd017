// SPDX-License-Identifier: MIT
// Debian's mount and umount, behind programs of the same names that also understand the calls of System V.
#ifndef COMPAT_MOUNTING_DEBIAN_PROGRAM_HPP
#define COMPAT_MOUNTING_DEBIAN_PROGRAM_HPP

#include <string>
#include <vector>

namespace compat {

// Exit statuses as Debian's programs have them.
constexpr int status_wrong_call = 1;
constexpr int status_system_error = 2;

// Whether the arguments begin with "-F TYPE". To Debian's mount, -F is a flag that goes with -a; so a word that is
// an option, a path or a tag (UUID=...) is no type.
bool is_system_v_call(int argc, char **argv);

class DebianProgram {
public:
    explicit DebianProgram(const std::string &name) : path_("/usr/bin/" + name) {}

    // Turns this process into the program; the arguments stay as they are.
    [[noreturn]] void take_over(char **argv) const;
    // Runs it with these words behind its name and gives its exit status. System V's programs say nothing when they
    // succeed, and callers take anything else for a failure: so what it says is printed, behind the hint, only when
    // it fails, and then something always is.
    int run_silently(const std::vector<std::string> &words, const std::string &hint = "") const;

private:
    [[noreturn]] void fail_to_run() const;
    void require_other_than_this() const;

    std::string path_;
};

} // namespace compat

#endif
