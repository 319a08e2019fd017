// SPDX-License-Identifier: MIT
// Running a silent command, and collecting a command's output, beside popen and read in a loop that keeps the
// text, and beside the same loop that forgets it.
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <malloc.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hostadm.h"

namespace {

std::size_t recorded = 0;

} // namespace

// What is measured is collecting, so the record is only counted. (It takes the place of the framework's.)
extern "C" __attribute__((visibility("default"))) int adm_err_setf(adm_error *, int, const char *, ...) {
    ++recorded;
    return 0;
}

namespace {

// Lines of 79 characters. dd hands the text over in large blocks, so that the reader is what is measured.
std::string lines_of(const std::string &file) {
    return "dd bs=64k status=none if=" + file;
}

class TextFile {
public:
    explicit TextFile(long size) {
        std::FILE *file = std::fopen(path_.c_str(), "w");
        const std::string line = std::string(78, 'x') + "\n";
        for (long written = 0; written < size; written += static_cast<long>(line.size()))
            std::fputs(line.c_str(), file);
        std::fclose(file);
    }
    ~TextFile() { unlink(path_.c_str()); }
    TextFile(const TextFile &) = delete;
    TextFile &operator=(const TextFile &) = delete;
    const std::string &path() const { return path_; }

private:
    std::string path_ = "/dev/shm/hostadm-bench-" + std::to_string(getpid());
};

int run_hostadm(const std::string &command) {
    return do_systemcmd(command.c_str(), "bench");
}

template <bool keep> int run_loop(const std::string &command) {
    std::FILE *stream = popen(("(set -f ; " + command + ") 2>&1").c_str(), "r");
    char buffer[65536];
    std::string text;
    for (ssize_t size; (size = read(fileno(stream), buffer, sizeof buffer)) > 0;)
        if constexpr (keep)
            text.append(buffer, static_cast<std::size_t>(size));
    benchmark::DoNotOptimize(text);
    return pclose(stream);
}

// The most memory that the work held beyond what the process had, in a child of its own.
template <typename Work> double memory_of(const Work &work) {
    malloc_trim(0);
    int ends[2];
    if (pipe(ends) != 0)
        return -1;
    const pid_t child = fork();
    if (child == 0) {
        const auto peak = [] {
            std::ifstream status("/proc/self/status");
            for (std::string line; std::getline(status, line);)
                if (line.starts_with("VmHWM:"))
                    return std::stod(line.substr(6)) * 1024;
            return -1.0;
        };
        const double before = peak();
        work();
        const double used = peak() - before;
        _exit(write(ends[1], &used, sizeof used) == sizeof used ? 0 : 1);
    }
    double used = -1;
    if (read(ends[0], &used, sizeof used) != sizeof used)
        used = -1;
    close(ends[0]);
    close(ends[1]);
    waitpid(child, nullptr, 0);
    return used;
}

template <int (*run)(const std::string &)> void silent(benchmark::State &state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(run("true"));
}

template <int (*run)(const std::string &)> void collect(benchmark::State &state) {
    const TextFile file(state.range(0));
    const std::string command = lines_of(file.path());
    for (auto _ : state)
        benchmark::DoNotOptimize(run(command));
    state.counters["rss_bytes"] = memory_of([&] { run(command); });
}

} // namespace

BENCHMARK(silent<run_hostadm>)->Name("run a silent command/hostadm")->UseRealTime();
BENCHMARK(silent<run_loop<true>>)->Name("run a silent command/popen and read")->UseRealTime();
BENCHMARK(silent<run_loop<false>>)->Name("run a silent command/floor")->UseRealTime();

#define SIZES Arg(1'000'000)->Arg(10'000'000)->Arg(100'000'000)->UseRealTime()->Unit(benchmark::kMillisecond)
BENCHMARK(collect<run_hostadm>)->Name("collect output/hostadm")->SIZES;
BENCHMARK(collect<run_loop<true>>)->Name("collect output/popen and read")->SIZES;
BENCHMARK(collect<run_loop<false>>)->Name("collect output/floor")->SIZES;

BENCHMARK_MAIN();
