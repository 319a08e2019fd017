// SPDX-License-Identifier: MIT
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/daemons.hpp"
#include "server/nfs_server.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm;
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
    .outputs =
        {{"state",
          "started, or running already; not registered, when it runs and no client finds it; or that it was "
          "not seen running, as when it ended at once"},
         {"pid", "the process id of what does its work, when that is seen running"},
         {"served_by", "the program that does its work, where that has another name"},
         {"advice", "what to do where no client finds it"},
         changed_output},
    .starts = {"path="},
};

using std::chrono::milliseconds;

template <typename Condition> bool comes_true(milliseconds patience, Condition condition) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(milliseconds(50));
    }
    return true;
}

// A daemon needs a moment to come up, and to leave the shell that started it; one that cannot work ends a
// moment after it was first seen. One that serves by RPC has come up when clients can find it.
std::optional<ServingProcess> wait_for(const std::string &name) {
    constexpr milliseconds coming(1000), settling(300), registering(10'000);
    if (!comes_true(coming, [&] { return serving_process(name).has_value(); }))
        return std::nullopt;
    std::this_thread::sleep_for(settling);
    comes_true(registering, [&] { return is_registered(name) != Registered::no || !serving_process(name); });
    return serving_process(name);
}

// What runs and is found by nobody does not serve.
void tell(Call &call, const std::string &state, const std::string &name, const ServingProcess &process) {
    call.set("state", state);
    call.set("pid", std::to_string(process.pid));
    if (process.name != name)
        call.set("served_by", process.name);
    const Registered registered = is_registered(name);
    if (registered == Registered::no) {
        call.set("state", "not registered");
        call.set(
            "advice",
            base::tr(
                "rpcbind does not know of it, so that no client finds it, as when rpcbind was started after "
                "it; stop it, and start it again"));
    } else if (registered == Registered::no_mapper) {
        call.set(
            "advice",
            base::tr("rpcbind does not answer, so that no client finds it; start rpcbind, then stop this "
                     "daemon, and start it again"));
    }
}

bool is_program(const std::string &path) {
    std::error_code error;
    return std::filesystem::is_regular_file(path, error) && access(path.c_str(), X_OK) == 0;
}

int work(Call &call) {
    const std::string path = call.get("path");
    const std::string name = path.substr(path.rfind('/') + 1);
    if (!is_program(path))
        fail(Code::missing_program,
             base::tr("there is no program {1} to start; is its package installed?", path));
    if (const auto process = serving_process(name)) {
        tell(call, "running already", name, *process);
        tell_changed(call, false);
        return 0;
    }
    if (start_daemon(path.c_str(), call.given("args") ? call.get("args").c_str() : nullptr) != 0)
        fail(Code::system,
             base::tr("cannot start {1}: no process can be made; the system is out of memory or of processes",
                      path));
    const auto process = wait_for(name);
    if (process)
        tell(call, "started", name, *process);
    else
        call.set("state", "started, but not seen running");
    tell_changed(call, process.has_value());
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
