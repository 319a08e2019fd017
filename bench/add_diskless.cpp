// SPDX-License-Identifier: MIT
// `client/add_diskless` from a ready tree of three files, as the 1st, 1,001st and 10,001st client of a
// server, in a throwaway root with stand-ins for share and the daemons. Taking the client off again is not
// timed.
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <string>

#include "server.hpp"

namespace {

void start_daemons() {
    for (const char *daemon : {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd", "/usr/sbin/in.rarpd"}) {
        bench::write(daemon, "#!/bin/sh\nexec <&- >&- 2>&-\nsleep 3600\n", std::filesystem::perms(0755));
        if (std::system((std::string(daemon) + " -a </dev/null >/dev/null 2>&1 &").c_str()) != 0)
            std::abort();
    }
}

void make_tree_and_unshare() {
    bench::write("/usr/sbin/unshare", "#!/bin/sh\n", std::filesystem::perms(0755));
    bench::write("/var/tree/etc/motd", "welcome\n");
    bench::write("/var/tree/usr/bin/tool", "a tool\n", std::filesystem::perms(0755));
    bench::write("/var/tree/platform/kel4m/lib/fs/nfs/inetboot", "a boot program\n");
}

void add_client(benchmark::State &state) {
    bench::make_server(state.range(0));
    const std::string add = std::string(HOSTADM) +
                            " run client/add_diskless hostname=new address=10.9.0.1 ethernet=8:0:20:9:0:1"
                            " instruction_set=kel4 implementation_arch=kel4m os_name=Quorvel os_version=2.5"
                            " tree=/var/tree server=server1 >/tmp/add.log 2>&1";
    const std::string remove =
        std::string(HOSTADM) + " run client/remove hostname=new purge=yes >/tmp/remove.log 2>&1";
    for (auto _ : state) {
        const bool added = std::system(add.c_str()) == 0;
        state.PauseTiming();
        const bool removed = std::system(remove.c_str()) == 0;
        state.ResumeTiming();
        if (!added || !removed) {
            state.SkipWithError(added ? "the client could not be taken off"
                                      : "the client could not be added");
            break;
        }
    }
    if (state.error_occurred())
        std::cerr << std::ifstream("/tmp/add.log").rdbuf() << std::ifstream("/tmp/remove.log").rdbuf();
}

int measure(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    make_tree_and_unshare();
    start_daemons();
    benchmark::RegisterBenchmark("add a diskless client/hostadm", add_client)
        ->Arg(1)
        ->Arg(1000)
        ->Arg(10000)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return bench::in_throwaway_root(argc, argv, [&] { return measure(argc, argv); });
}
