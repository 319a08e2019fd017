// SPDX-License-Identifier: MIT
// Finding a daemon among 5,000 real processes, beside pgrep -f and beside the floor: opening each entry of
// the process table and reading what has to be read of it, once. The daemon is absent, so that every process
// is looked at.
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "hostadm.h"

namespace {

constexpr int process_count = 5000;
constexpr char absent[] = "no-such-daemon-here";

// Processes that wait; ended and reaped when the object goes, or when this process dies.
class Crowd {
public:
    explicit Crowd(int size) {
        const pid_t parent = getpid();
        for (int i = 0; i < size; ++i) {
            const pid_t child = fork();
            if (child < 0) {
                end();
                throw std::runtime_error("cannot make so many processes");
            }
            if (child == 0) {
                prctl(PR_SET_PDEATHSIG, SIGKILL);
                while (getppid() == parent)
                    pause();
                _exit(0);
            }
            children_.push_back(child);
        }
    }
    ~Crowd() { end(); }
    Crowd(const Crowd &) = delete;
    Crowd &operator=(const Crowd &) = delete;

private:
    void end() {
        for (const pid_t child : children_)
            kill(child, SIGKILL);
        for (const pid_t child : children_)
            waitpid(child, nullptr, 0);
        children_.clear();
    }
    std::vector<pid_t> children_;
};

void hostadm(benchmark::State &state) {
    for (auto _ : state)
        if (check_daemon(absent, nullptr) != HOSTADM_DAEMON_NOT_RUNNING)
            state.SkipWithError("the daemon that is not there was found");
}

void pgrep(benchmark::State &state) {
    for (auto _ : state) {
        const pid_t child = vfork();
        if (child == 0) {
            execlp("pgrep", "pgrep", "-f", "/no-such-daemon-here", nullptr);
            _exit(127);
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 1) // 1: no process matched
            state.SkipWithError("pgrep did not run as it should");
    }
}

std::size_t read_once(const std::string &path) {
    char buffer[128];
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const ssize_t size = file < 0 ? 0 : read(file, buffer, sizeof buffer);
    close(file);
    return size < 0 ? 0 : static_cast<std::size_t>(size);
}

void floor(benchmark::State &state) {
    for (auto _ : state) {
        DIR *table = opendir("/proc");
        std::size_t bytes = 0;
        while (const dirent *entry = readdir(table)) {
            if (*entry->d_name < '1' || *entry->d_name > '9')
                continue;
            const std::string path = std::string("/proc/") + entry->d_name;
            bytes += read_once(path + "/cmdline") + read_once(path + "/stat");
        }
        closedir(table);
        benchmark::DoNotOptimize(bytes);
    }
}

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return EXIT_FAILURE;
    try {
        const Crowd crowd(process_count);
        const std::pair<const char *, void (*)(benchmark::State &)> contestants[] = {
            {"hostadm", hostadm}, {"pgrep -f", pgrep}, {"floor", floor}};
        for (const auto &[variant, work] : contestants)
            benchmark::RegisterBenchmark(
                ("find a daemon/" + std::string(variant) + "/" + std::to_string(process_count)).c_str(), work)
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
        benchmark::RunSpecifiedBenchmarks();
        benchmark::Shutdown();
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "daemons: %s\n", failure.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
