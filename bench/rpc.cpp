// SPDX-License-Identifier: MIT
// Probing a live RPC service, beside rpcinfo and beside one round trip on the loopback network. The service
// and its rpcbind run in a throwaway root, which has a network of its own; rpcbind and rpcinfo are this
// machine's, or those that scripts/daemon-seed has laid ready.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <rpc/rpc.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

// After <rpc/rpc.h>, which it needs.
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <rpc/pmap_clnt.h>
#include <string>
#include <string_view>

#include "hostadm.h"
#include "throwaway_root.hpp"

namespace {

namespace fs = std::filesystem;

constexpr unsigned long program = 0x20000001;
constexpr unsigned long version = 1;

bool_t nothing(XDR *, ...) {
    return xdr_void();
}

void answer_null(svc_req *, SVCXPRT *transport) {
    svc_sendreply(transport, nothing, nullptr);
}

template <typename Work> void start(Work work) {
    if (fork() != 0)
        return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    work();
    _exit(1);
}

// A UDP socket on the loopback network, and its address.
int loopback_socket(sockaddr_in &address) {
    const int descriptor = socket(AF_INET, SOCK_DGRAM, 0);
    address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(descriptor, reinterpret_cast<sockaddr *>(&address), size) != 0)
        return -1;
    getsockname(descriptor, reinterpret_cast<sockaddr *>(&address), &size);
    return descriptor;
}

bool answers_soon(unsigned long number, unsigned long its_version) {
    for (int i = 0; i < 100; ++i) {
        if (rpc_ping("127.0.0.1", number, its_version, 2) == 0)
            return true;
        usleep(50'000);
    }
    return false;
}

bool start_service() {
    std::ofstream("/etc/passwd", std::ios::app) << "_rpc:x:9111:65534::/run/rpcbind:/usr/sbin/nologin\n";
    mkdir("/run/rpcbind", 0755);
    start([] { execlp("rpcbind", "rpcbind", "-f", nullptr); });
    if (!answers_soon(PMAPPROG, PMAPVERS))
        return false;
    start([] {
        SVCXPRT *transport = svcudp_create(RPC_ANYSOCK);
        pmap_unset(program, version);
        if (transport != nullptr && svc_register(transport, program, version, answer_null, IPPROTO_UDP) != 0)
            svc_run();
    });
    return answers_soon(program, version);
}

void probe_hostadm(benchmark::State &state) {
    for (auto _ : state)
        if (rpc_ping("127.0.0.1", program, version, 5) != 0)
            state.SkipWithError("the service did not answer");
}

void probe_rpcinfo(benchmark::State &state) {
    const std::string command = "exec rpcinfo -T udp 127.0.0.1 " + std::to_string(program) + " " +
                                std::to_string(version) + " >/dev/null";
    for (auto _ : state)
        if (std::system(command.c_str()) != 0)
            state.SkipWithError("rpcinfo failed");
}

void round_trip(benchmark::State &state) {
    static sockaddr_in echo;
    static const int sender = [] {
        const int server = loopback_socket(echo);
        start([server] {
            sockaddr_in from = {};
            socklen_t size = sizeof from;
            char text[64];
            for (ssize_t length; (length = recvfrom(server, text, sizeof text, 0,
                                                    reinterpret_cast<sockaddr *>(&from), &size)) > 0;)
                sendto(server, text, static_cast<std::size_t>(length), 0, reinterpret_cast<sockaddr *>(&from),
                       size);
        });
        sockaddr_in own;
        return loopback_socket(own);
    }();
    char text[40] = {};
    for (auto _ : state)
        if (sendto(sender, text, sizeof text, 0, reinterpret_cast<sockaddr *>(&echo), sizeof echo) !=
                sizeof text ||
            recv(sender, text, sizeof text, 0) != sizeof text)
            state.SkipWithError("no echo");
}

int measure(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (!start_service()) {
        std::cerr << "rpc: no rpcbind, or it does not run; scripts/daemon-seed lays one ready\n";
        return 1;
    }
    const auto add = [](const char *name, void (*function)(benchmark::State &)) {
        benchmark::RegisterBenchmark(name, function)->UseRealTime()->Unit(benchmark::kMicrosecond);
    };
    add("probe of a live RPC service/hostadm", probe_hostadm);
    add("probe of a live RPC service/rpcinfo", probe_rpcinfo);
    add("probe of a live RPC service/floor", round_trip);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    hostadm::sandbox::Options options;
    if (std::error_code ignored; fs::is_directory(DAEMON_SEED "/root", ignored))
        options.seeds.push_back(DAEMON_SEED "/root");
    return bench::in_throwaway_root(
        argc, argv, [&] { return measure(argc, argv); }, options);
}
