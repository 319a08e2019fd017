// SPDX-License-Identifier: MIT
// in.rarpd: Debian's rarpd under the name by which the host administration library starts and recognises it.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "base/translation.hpp"
#include "compat/support/failure.hpp"
#include "compat/support/processes.hpp"

namespace {

// Running the daemon through a link gives the process the link's name.
constexpr const char *link_to_daemon = HOSTADM_COMPAT_LIBEXEC "/in.rarpd";

constexpr const char *help = hostadm::base::translatable(R"(usage: in.rarpd -a
       in.rarpd [-vode] [-b DIRECTORY] INTERFACE
Answers clients that ask for their own address by reverse ARP, on all interfaces (-a) or on one. Runs Debian's
rarpd, to which all options are handed (see rarpd(8)), in the background unless -d is given. A second daemon for
all interfaces is not started.

  -h, --help   this text
Exit status: 0 the daemon runs, 1 it could not be started. See in.rarpd(8).
)");

bool has_flag(int argc, char **argv, char letter) {
    for (int index = 1; index < argc; ++index)
        if (argv[index][0] == '-' && argv[index][1] != '-' && std::strchr(argv[index], letter) != nullptr)
            return true;
    return false;
}

// A daemon that serves all interfaces already.
bool already_running() {
    const auto serves_all = [](const hostadm::base::Process &process) {
        return process.pid != getpid() && // we have the name too
               std::any_of(process.arguments.begin(), process.arguments.end(),
                           [](const std::string &word) { return word.starts_with("-a"); });
    };
    const auto running = compat::daemons_named("in.rarpd");
    return std::any_of(running.begin(), running.end(), serves_all);
}

} // namespace

int main(int argc, char **argv) {
    hostadm::base::speak_the_users_language();
    if (argc > 1 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0))
        return std::fputs(hostadm::base::tr(help), stdout) < 0;
    return compat::guarded_main("in.rarpd", 1, [&] {
        if (has_flag(argc, argv, 'a') && already_running())
            return 0;
        for (const hostadm::base::Process &process : compat::daemons_named("rarpd"))
            compat::print_complaint(
                "in.rarpd", hostadm::base::tr("rarpd runs already, process {1}, and answers as well; to keep "
                                              "one only: systemctl disable --now rarpd",
                                              process.pid));
        execv(link_to_daemon, argv);
        if (errno == ENOENT)
            throw compat::Failure(hostadm::base::tr("rarpd is not installed; install the package rarpd"));
        compat::fail_with_errno(hostadm::base::tr("cannot run rarpd"));
    });
}
