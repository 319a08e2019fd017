// SPDX-License-Identifier: MIT
// in.rarpd: Debian's rarpd under the name by which the host administration library starts and recognises it.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "compat/support/file.hpp"

namespace {

// Running the daemon through a link gives the process the link's name.
constexpr const char *link_to_daemon = HOSTADM_COMPAT_LIBEXEC "/in.rarpd";

constexpr const char *help = R"(usage: in.rarpd -a
       in.rarpd [-vode] [-b DIRECTORY] INTERFACE
Answers clients that ask for their own address by reverse ARP, on all interfaces (-a) or on one. Runs Debian's
rarpd, to which all options are handed (see rarpd(8)), in the background unless -d is given. A second daemon for
all interfaces is not started.

  -h, --help   this text
Exit status: 0 the daemon runs, 1 it could not be started. See in.rarpd(8).
)";

bool has_flag(int argc, char **argv, char letter) {
    for (int index = 1; index < argc; ++index)
        if (argv[index][0] == '-' && argv[index][1] != '-' && std::strchr(argv[index], letter) != nullptr)
            return true;
    return false;
}

// A daemon that serves all interfaces already.
bool already_running() {
    for (const pid_t process : compat::processes_named("in.rarpd")) {
        if (process == getpid())
            continue; // we have the name too
        const std::string arguments =
            compat::read_file("/proc/" + std::to_string(process) + "/cmdline").value_or("");
        if (arguments.find(std::string("\0-a", 3)) != std::string::npos)
            return true;
    }
    return false;
}

} // namespace

int main(int argc, char **argv) {
    if (argc > 1 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0))
        return std::fputs(help, stdout) < 0;
    return compat::guarded_main("in.rarpd", 1, [&] {
        if (has_flag(argc, argv, 'a') && already_running())
            return 0;
        for (const pid_t process : compat::processes_named("rarpd"))
            compat::print_complaint("in.rarpd", "rarpd runs already, process " + std::to_string(process) +
                                                    ", and answers as well; to keep one only: systemctl "
                                                    "disable --now rarpd");
        execv(link_to_daemon, argv);
        if (errno == ENOENT)
            throw compat::Failure("rarpd is not installed; install the package rarpd");
        compat::fail_with_errno("cannot run rarpd");
    });
}
