// SPDX-License-Identifier: MIT
// in-sandbox [--time-limit SECONDS] [--bind DIR]... [--seed DIR]... [--hostname NAME] [--live-proc] [--]
// COMMAND [ARG]...
//
// Runs a command, a test most of all, in a throwaway root over the running system (see
// hostadm/sandbox.hpp). Exit status: the command's; 124 when the time ran out; 125 when
// the root could not be made; 126 or 127 when the command could not be started; 77,
// which ctest counts as skipped, when this user or this kernel may not make such a root.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <getopt.h>
#include <sys/stat.h>

#include "hostadm/sandbox.hpp"

namespace {

constexpr int status_skipped = 77;
constexpr int status_no_root = 125;
constexpr int status_not_runnable = 126;
constexpr int status_not_found = 127;

[[noreturn]] void usage() {
    std::fputs("usage: in-sandbox [--time-limit SECONDS] [--bind DIR]... [--seed DIR]... [--hostname NAME] "
               "[--live-proc] [--] COMMAND [ARG]...\n",
               stderr);
    std::exit(2);
}

std::chrono::milliseconds seconds(const char *text) {
    char *end = nullptr;
    const double value = std::strtod(text, &end);
    if (end == text || *end != '\0' || !(value >= 0 && value <= 1e6))
        usage();
    return std::chrono::milliseconds(static_cast<long>(value * 1000));
}

hostadm::sandbox::Options parse(int argc, char **argv) {
    static const option names[] = {
        {"time-limit", required_argument, nullptr, 't'}, {"bind", required_argument, nullptr, 'b'},
        {"seed", required_argument, nullptr, 's'},       {"hostname", required_argument, nullptr, 'n'},
        {"live-proc", no_argument, nullptr, 'p'},        {nullptr, 0, nullptr, 0}};
    hostadm::sandbox::Options options;
    for (int name; (name = getopt_long(argc, argv, "+", names, nullptr)) != -1;) {
        switch (name) {
        case 't':
            options.time_limit = seconds(optarg);
            break;
        case 'b':
            options.binds.emplace_back(optarg);
            break;
        case 's':
            options.seeds.emplace_back(optarg);
            break;
        case 'n':
            options.host_name = optarg;
            break;
        case 'p':
            options.live_processes = true;
            break;
        default:
            usage();
        }
    }
    options.command.assign(argv + optind, argv + argc);
    if (options.command.empty())
        usage();
    return options;
}

int exit_status_for(const hostadm::sandbox::Error &error) {
    switch (error.kind()) {
    case hostadm::sandbox::Error::Kind::unavailable:
        return status_skipped;
    case hostadm::sandbox::Error::Kind::command:
        return error.code().value() == ENOENT ? status_not_found : status_not_runnable;
    default:
        return status_no_root;
    }
}

} // namespace

int main(int argc, char **argv) {
    const hostadm::sandbox::Options options = parse(argc, argv);
    umask(022); // modes that a test expects are those of an ordinary start
    try {
        const hostadm::sandbox::Outcome outcome = hostadm::sandbox::run(options);
        if (outcome.timed_out)
            std::fprintf(stderr, "in-sandbox: the time limit has passed\n");
        return outcome.exit_status;
    } catch (const hostadm::sandbox::Error &error) {
        std::fprintf(stderr, "in-sandbox: %s\n", error.what());
        return exit_status_for(error);
    }
}
