// SPDX-License-Identifier: MIT
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/daemons.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "host/start_daemon",
    .purpose = "start a daemon in the background, unless it runs",
    .arguments = {{.name = "path",
                   .kind = Kind::path,
                   .purpose = "the daemon's program, such as /usr/lib/nfs/nfsd",
                   .required = true},
                  {.name = "args",
                   .kind = Kind::words,
                   .purpose = "its arguments; in.rarpd and rpld always get -a instead"}},
    .outputs = {{"state",
                 "started, or running already; or that it was not seen running, as when it ended at once"},
                {"pid", "its process id, when it is seen running"},
                changed_output},
    .starts = {"path="},
};

// A daemon needs a moment to come up, and to leave the shell that started it; one that cannot work ends a
// moment after it was first seen.
std::optional<int> wait_for(const std::string &name) {
    using std::chrono::milliseconds;
    constexpr int tries = 20;
    constexpr milliseconds pause(50), settling(300);
    for (int i = 0; i < tries; ++i) {
        if (running_program(name)) {
            std::this_thread::sleep_for(settling);
            if (const auto pid = running_program(name))
                return pid;
        }
        std::this_thread::sleep_for(pause);
    }
    return std::nullopt;
}

bool is_program(const std::string &path) {
    std::error_code error;
    return std::filesystem::is_regular_file(path, error) && access(path.c_str(), X_OK) == 0;
}

int work(Call &call) {
    const std::string path = call.get("path");
    const std::string name = path.substr(path.rfind('/') + 1);
    if (!is_program(path))
        fail(Code::missing_program, "there is no program " + path + " to start; is its package installed?");
    if (const auto pid = running_program(name)) {
        call.set("state", "running already");
        call.set("pid", std::to_string(*pid));
        tell_changed(call, false);
        return 0;
    }
    if (start_daemon(path.c_str(), call.given("args") ? call.get("args").c_str() : nullptr) != 0)
        fail(Code::system, "cannot start " + path +
                               ": no process can be made; the system is out of memory or of "
                               "processes");
    const auto pid = wait_for(name);
    call.set("state", pid ? "started" : "started, but not seen running");
    if (pid)
        call.set("pid", std::to_string(*pid));
    tell_changed(call, pid.has_value());
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
