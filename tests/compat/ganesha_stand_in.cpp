// SPDX-License-Identifier: MIT
// Takes the place of a daemon, whatever its arguments. Like the real NFS server it dies of a hangup signal
// until it has blocked it, waits for it in a thread, and then reads its exports again at each. Every reading
// is appended to /tmp/readings.
#include <chrono>
#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

namespace {

void read_exports() {
    std::ostringstream text;
    text << std::ifstream("/etc/ganesha/share-exports.conf").rdbuf();
    std::ofstream("/tmp/readings", std::ios::app) << "== read\n" << text.str() << std::flush;
}

} // namespace

int main() {
    std::this_thread::sleep_for(std::chrono::milliseconds(30)); // slow to start
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGHUP);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    read_exports();
    std::thread([&set] {
        for (;;) {
            int number = 0;
            sigwait(&set, &number);
            read_exports();
        }
    }).join();
}
