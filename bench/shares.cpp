// SPDX-License-Identifier: MIT
// Listing 1,000, 10,000 and 100,000 shares, and looking for one that is not among them, beside awk over the
// same output. Both start a shell with a command that prints the list; the command's path is fixed, so the
// program puts its own popen() in its place, which runs cat on a file instead.
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

#include "hostadm.h"

namespace {

std::string list_path;

std::string line_of(long number) {
    return "-               /export/root/client" + std::to_string(number) + "   rw=client" +
           std::to_string(number) + ",root=client" + std::to_string(number) + "   \"client root\"\n";
}

void make_list(long shares) {
    std::ofstream list(list_path);
    for (long number = 0; number < shares; ++number)
        list << line_of(number);
}

FILE *real_popen(const char *command) {
    static const auto open =
        reinterpret_cast<FILE *(*)(const char *, const char *)>(dlsym(RTLD_NEXT, "popen"));
    return open(command, "r");
}

// Reads a command's output to its end and returns its last line.
std::string last_line(const std::string &command) {
    std::string last;
    char buffer[4096];
    FILE *stream = real_popen(command.c_str());
    while (std::fgets(buffer, sizeof buffer, stream) != nullptr)
        last = buffer;
    pclose(stream);
    return last;
}

void list_hostadm(benchmark::State &state) {
    make_list(state.range(0));
    for (auto _ : state) {
        get_sharefs_ents();
        long count = 0;
        for (const sharefs_entry *entry = sfs_top; entry != nullptr; entry = entry->next)
            ++count;
        if (count != state.range(0))
            state.SkipWithError("shares are missing");
        free_sharefs_ents();
    }
    state.SetComplexityN(state.range(0));
}

void list_awk(benchmark::State &state) {
    make_list(state.range(0));
    for (auto _ : state)
        if (last_line("cat " + list_path + " | awk '{ print $2, $3 }'").empty())
            state.SkipWithError("awk printed nothing");
}

void list_floor(benchmark::State &state) {
    make_list(state.range(0));
    for (auto _ : state)
        if (last_line("cat " + list_path).empty())
            state.SkipWithError("cat printed nothing");
}

void match_hostadm(benchmark::State &state) {
    make_list(state.range(0));
    for (auto _ : state)
        if (match_sharefs_ent("/export/root/nobody", "rw") != 0)
            state.SkipWithError("a share was found that is not there");
    state.SetComplexityN(state.range(0));
}

void match_awk(benchmark::State &state) {
    make_list(state.range(0));
    for (auto _ : state)
        if (last_line(
                "cat " + list_path +
                " | awk '$2 == \"/export/root/nobody\" && $3 == \"rw\" { f = 1 } END { print f + 0 }'") !=
            "0\n")
            state.SkipWithError("awk did not say no");
}

template <typename Work> void sizes(const char *name, Work work) {
    benchmark::RegisterBenchmark(name, work)
        ->Arg(1000)
        ->Arg(10000)
        ->Arg(100000)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
}

} // namespace

// The library's command for the list.
extern "C" __attribute__((visibility("default"))) FILE *popen(const char *, const char *) {
    return real_popen(("cat " + list_path).c_str());
}

int main(int argc, char **argv) {
    char directory[] = "/tmp/hostadm-shares.XXXXXX";
    if (mkdtemp(directory) == nullptr) {
        std::perror("shares");
        return EXIT_FAILURE;
    }
    list_path = std::string(directory) + "/list";
    benchmark::Initialize(&argc, argv);
    sizes("list shares/hostadm", list_hostadm);
    sizes("list shares/awk", list_awk);
    sizes("list shares/floor", list_floor);
    sizes("find no share/hostadm", match_hostadm);
    sizes("find no share/awk", match_awk);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::filesystem::remove_all(directory);
    return EXIT_SUCCESS;
}
