// SPDX-License-Identifier: MIT
// `hostadm status` of a server with 100, 1,000 and 10,000 clients, beside what a user would do without it
// (cat the tables and list the boot directory). All of it happens in a throwaway root, since the tables lie
// at fixed paths.
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "server.hpp"

namespace {

void run(benchmark::State &state, const std::string &command) {
    bench::make_server(state.range(0));
    for (auto _ : state)
        if (std::system(command.c_str()) != 0)
            state.SkipWithError("the command failed");
}

void check_rows(std::int64_t clients) {
    bench::make_server(clients);
    const std::string count = std::string(HOSTADM) + " status | grep -c ' kel4m .* yes  *yes  *no$'";
    std::FILE *stream = popen(count.c_str(), "r");
    long long found = -1;
    if (stream == nullptr || std::fscanf(stream, "%lld", &found) != 1 || pclose(stream) != 0 ||
        found != clients)
        throw std::runtime_error("status does not show every client in order");
}

int measure(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    check_rows(1000);
    const auto add = [](const std::string &variant, const std::string &command) {
        benchmark::RegisterBenchmark(("status of clients/" + variant).c_str(),
                                     [command](benchmark::State &state) { run(state, command); })
            ->Arg(100)
            ->Arg(1000)
            ->Arg(10000)
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
    };
    add("hostadm", std::string(HOSTADM) + " status >/dev/null");
    add("cat and ls", "cat /etc/hosts /etc/ethers /etc/bootparams /etc/dfs/sharetab >/dev/null && ls -l "
                      "/tftpboot >/dev/null");
    add("floor", "cat /etc/hosts /etc/ethers /etc/bootparams /etc/dfs/sharetab >/dev/null");
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return bench::in_throwaway_root(argc, argv, [&] { return measure(argc, argv); });
}
