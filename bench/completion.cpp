// SPDX-License-Identifier: MIT
// What a user waits for behind the tab key: `hostadm complete` on a server with 100, 1,000 and 10,000 clients,
// for a command, for the arguments of a method and for the names of the clients. All of it happens in a
// throwaway root, since the tables lie at fixed paths.
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

void check_offers(std::int64_t clients) {
    bench::make_server(clients);
    std::FILE *stream =
        popen(HOSTADM " complete zsh hostadm run client/remove hostname= | grep -c '^hostname=client'", "r");
    long long found = -1;
    if (stream == nullptr || std::fscanf(stream, "%lld", &found) != 1 || pclose(stream) != 0 ||
        found != clients)
        throw std::runtime_error("not every client is offered");
}

int measure(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    check_offers(1000);
    const auto add = [](const std::string &work, const std::string &variant, const std::string &command) {
        benchmark::RegisterBenchmark((work + "/" + variant).c_str(),
                                     [command](benchmark::State &state) { run(state, command); })
            ->Arg(100)
            ->Arg(1000)
            ->Arg(10000)
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
    };
    const std::string complete = HOSTADM " complete zsh hostadm ";
    const std::string names = "cut -f2 /etc/hosts >/dev/null";
    add("complete a command", "hostadm", complete + "pre >/dev/null");
    add("complete a command", "floor", "true");
    add("complete an argument", "hostadm", complete + "run client/remove host >/dev/null");
    add("complete a client", "hostadm", complete + "run client/remove hostname= >/dev/null");
    add("complete a client", "floor", names);
    add("complete a share", "hostadm", complete + "run filesystem/unshare pathname= >/dev/null");
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return bench::in_throwaway_root(argc, argv, [&] { return measure(argc, argv); });
}
