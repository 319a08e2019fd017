// SPDX-License-Identifier: MIT
// `hostadm status` of a server with 100, 1,000 and 10,000 clients, beside what a user would do without it
// (cat the tables and list the boot directory). All of it happens in a throwaway root, since the tables lie
// at fixed paths.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "hostadm/sandbox.hpp"

namespace {

namespace fs = std::filesystem;

void write(const std::string &path, const std::string &text, fs::perms mode = fs::perms(0644)) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path) << text;
    fs::permissions(path, mode);
}

// A server that everything is in order on.
void make_server(std::int64_t clients) {
    static std::int64_t made = -1;
    if (made == clients)
        return;
    std::string hosts = "127.0.0.1\tlocalhost server1\n", ethers, bootparams, shares;
    fs::remove_all("/tftpboot");
    write("/tftpboot/inetboot.kel4m.Quorvel_2.5", "boot program");
    for (std::int64_t i = 0; i < clients; ++i) {
        char address[20], digits[16], ethernet[20];
        const int high = static_cast<int>(i / 250), low = static_cast<int>(i % 250 + 1);
        std::snprintf(address, sizeof address, "10.1.%d.%d", high & 255, low & 255);
        std::snprintf(digits, sizeof digits, "0A01%02X%02X", high & 255, low & 255);
        std::snprintf(ethernet, sizeof ethernet, "08:00:20:01:%02x:%02x", high & 255, low & 255);
        std::string name("client");
        name += std::to_string(i);
        hosts += std::string(address) + "\t" + name + "\n";
        ethers += std::string(ethernet) + "\t" + name + "\n";
        bootparams +=
            name + " root=server1:/export/root/" + name + " swap=server1:/export/swap/" + name + "/swap\n";
        shares += "-  /export/root/" + name + "  rw=" + name + ",root=" + name + "  \"\"\n";
        fs::create_symlink("inetboot.kel4m.Quorvel_2.5", std::string("/tftpboot/") + digits);
        fs::create_symlink("inetboot.kel4m.Quorvel_2.5", std::string("/tftpboot/") + digits + ".KEL4M");
    }
    write("/etc/hosts", hosts);
    write("/etc/ethers", ethers);
    write("/etc/bootparams", bootparams);
    write("/etc/dfs/sharetab", shares);
    write("/usr/sbin/share", "#!/bin/sh\nexec cat /etc/dfs/sharetab\n", fs::perms(0755));
    made = clients;
}

void run(benchmark::State &state, const std::string &command) {
    make_server(state.range(0));
    for (auto _ : state)
        if (std::system(command.c_str()) != 0)
            state.SkipWithError("the command failed");
}

void check_rows(std::int64_t clients) {
    make_server(clients);
    const std::string count = std::string(HOSTADM) + " status | grep -c ' kel4m .* yes  *yes$'";
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
    using namespace hostadm::sandbox;
    Options options;
    options.work = [&] { return measure(argc, argv); };
    // The results are to outlive the throwaway root.
    constexpr std::string_view out = "--benchmark_out=";
    for (int i = 1; i < argc; ++i)
        if (const std::string_view word = argv[i]; word.starts_with(out))
            options.binds.push_back(fs::absolute(word.substr(out.size())).parent_path());
    try {
        return hostadm::sandbox::run(options).exit_status;
    } catch (const std::exception &error) {
        std::cerr << "status: " << error.what() << "\n";
        return 1;
    }
}
