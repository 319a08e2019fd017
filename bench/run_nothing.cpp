// SPDX-License-Identifier: MIT
// `hostadm run` of a method that does nothing, beside starting the same two programs and waiting for them:
// the command with nothing but its version to say, and the method with no request to answer.
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

const std::string command = BENCH_ROOT "/bin/hostadm";
const std::string method = BENCH_ROOT "/libexec/hostadm/methods/bench/nothing";

// Starts a program with its standard descriptors on /dev/null; its exit status.
int start_and_wait(std::vector<std::string> words) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&actions, descriptor, "/dev/null", O_RDWR, 0);
    std::vector<char *> list;
    for (std::string &word : words)
        list.push_back(word.data());
    list.push_back(nullptr);
    pid_t child = -1;
    const int error = posix_spawn(&child, list[0], &actions, nullptr, list.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = -1;
    if (error != 0 || waitpid(child, &status, 0) != child)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void hostadm(benchmark::State &state) {
    for (auto _ : state)
        if (start_and_wait({command, "run", "bench/nothing"}) != 0)
            state.SkipWithError("the method did not run");
}

void both_programs(benchmark::State &state) {
    for (auto _ : state)
        if (start_and_wait({command, "--version"}) != 0 || start_and_wait({method}) != 2)
            state.SkipWithError("the programs did not run");
}

} // namespace

BENCHMARK(hostadm)
    ->Name("run a method that does nothing/hostadm")
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(both_programs)
    ->Name("run a method that does nothing/floor")
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
