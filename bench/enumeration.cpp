// SPDX-License-Identifier: MIT
// Listing the clients that boot from this host, from /etc/bootparams through the framework's method, beside
// awk over the same file. Each run is a process of its own, since the list lives as long as its process; all
// of it happens in a throwaway root, since the file lies at a fixed path. "adding to the list" is the part
// inside one process.
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "hostadm.h"
#include "throwaway_root.hpp"

namespace {

std::string this_host() {
    char name[256] = {};
    gethostname(name, sizeof name - 1);
    return name;
}

void make_bootparams(std::int64_t clients) {
    static std::int64_t made = -1;
    if (made == clients)
        return;
    const std::string host = this_host();
    std::ofstream file("/etc/bootparams");
    for (std::int64_t i = 0; i < clients; ++i) {
        const std::string name = "client" + std::to_string(i);
        file << name << " root=" << host << ":/export/root/" << name << " swap=" << host << ":/export/swap/"
             << name << " boottype=:in\n";
    }
    std::ofstream("/etc/nsswitch.conf", std::ios::app) << "\nbootparams: files\n";
    made = clients;
}

// The length of the list that a fresh process gets; -1 when it failed.
long listed_in_a_process() {
    int answer[2];
    if (pipe(answer) != 0)
        return -1;
    const pid_t child = fork();
    if (child == 0) {
        long count = 0;
        for (const client_node *node = do_bootparams(); node != nullptr; node = node->next)
            ++count;
        _exit(write(answer[1], &count, sizeof count) == sizeof count ? 0 : 1);
    }
    close(answer[1]);
    long count = -1;
    if (read(answer[0], &count, sizeof count) != sizeof count)
        count = -1;
    close(answer[0]);
    waitpid(child, nullptr, 0);
    return count;
}

void enumerate_hostadm(benchmark::State &state) {
    make_bootparams(state.range(0));
    for (auto _ : state)
        if (listed_in_a_process() != state.range(0))
            state.SkipWithError("not every client was listed");
}

// The same clients with their boot type and root path, each name once.
void enumerate_awk(benchmark::State &state) {
    make_bootparams(state.range(0));
    const std::string command =
        "awk '{ root = \"\"; type = \"\"; for (i = 2; i <= NF; i++) { if ($i ~ /^root=" + this_host() +
        ":/) { root = $i; sub(/^[^:]*:/, \"\", root) } else if ($i ~ /^boottype=/) { type = $i; "
        "sub(/^[^:]*:/, \"\", "
        "type) } } if (root != \"\" && !seen[$1]++) print $1, type, root }' /etc/bootparams >/dev/null";
    for (auto _ : state)
        if (std::system(command.c_str()) != 0)
            state.SkipWithError("awk failed");
}

// Names that no earlier run of the process has used.
void add_hostadm(benchmark::State &state) {
    static long run = 0;
    std::vector<std::string> names;
    for (auto _ : state) {
        state.PauseTiming();
        names.clear();
        ++run;
        for (std::int64_t i = 0; i < state.range(0); ++i)
            names.push_back("run" + std::to_string(run) + "client" + std::to_string(i));
        state.ResumeTiming();
        for (const std::string &name : names)
            add_to_list(name.c_str(), "in", "/export/root/client");
    }
}

int measure(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    const auto add = [](const char *name, void (*function)(benchmark::State &)) {
        return benchmark::RegisterBenchmark(name, function)
            ->Arg(1000)
            ->Arg(10000)
            ->Arg(100000)
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
    };
    add("enumerate clients/hostadm", enumerate_hostadm);
    add("enumerate clients/awk", enumerate_awk);
    add("adding to the list of clients/hostadm", add_hostadm)->Iterations(5);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return bench::in_throwaway_root(argc, argv, [&] { return measure(argc, argv); });
}
