// SPDX-License-Identifier: MIT
// `hostadm check` of a server with 10 to 10,000 clients, beside `hostadm status` of the same and beside what has to be
// read for either. Every client has a root and a swap file of its own; no daemon runs, so that none is waited for.
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "server.hpp"

namespace {

void make_roots(std::int64_t clients) {
    static std::int64_t made = -1;
    if (made == clients)
        return;
    bench::make_server(clients);
    bench::fs::remove_all("/export");
    for (std::int64_t i = 0; i < clients; ++i) {
        const std::string name = "client" + std::to_string(i), root = "/export/root/" + name;
        bench::write(root + "/sbin/init", "#!/bin/sh\n", bench::fs::perms(0755));
        bench::write(root + "/bin/sh",
                     "\x7f"
                     "ELF",
                     bench::fs::perms(0755));
        bench::write(root + "/etc/vfstab", "server1:" + root + " - / nfs - no rw\n");
        bench::write("/export/swap/" + name + "/swap", std::string(4096, '\0'), bench::fs::perms(0600));
    }
    made = clients;
}

void run(benchmark::State &state, const std::string &command) {
    make_roots(state.range(0));
    for (auto _ : state)
        if (const int status = std::system(command.c_str()); status != 0 && status != 256)
            state.SkipWithError("the command failed");
}

// It is of no use to be quick about nothing: all clients are looked at.
void check_clients(std::int64_t clients) {
    make_roots(clients);
    std::string text;
    std::FILE *stream = popen((std::string(HOSTADM) + " check --json").c_str(), "r");
    if (stream == nullptr)
        throw std::runtime_error("check cannot be started");
    for (int c = 0; (c = std::fgetc(stream)) != EOF;)
        text += static_cast<char>(c);
    pclose(stream);
    const auto json = nlohmann::json::parse(text, nullptr, false);
    if (json.is_discarded() || json.value("clients", 0) != clients)
        throw std::runtime_error("check does not look at every client: " + text.substr(0, 200));
}

int measure(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    check_clients(1000);
    const auto add = [](const std::string &variant, const std::string &command) {
        benchmark::RegisterBenchmark(("check of clients/" + variant).c_str(),
                                     [command](benchmark::State &state) { run(state, command); })
            ->Arg(10)
            ->Arg(100)
            ->Arg(1000)
            ->Arg(10000)
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
    };
    add("hostadm", std::string(HOSTADM) + " check >/dev/null");
    add("hostadm status", std::string(HOSTADM) + " status >/dev/null");
    add("floor", "cat /etc/hosts /etc/ethers /etc/bootparams /etc/dfs/sharetab >/dev/null && "
                 "find /export /tftpboot -ls >/dev/null");
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return bench::in_throwaway_root(argc, argv, [&] { return measure(argc, argv); });
}
