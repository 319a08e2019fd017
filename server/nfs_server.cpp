// SPDX-License-Identifier: MIT
#include "server/nfs_server.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <string_view>
#include <thread>
#include <unistd.h>

#include "hostadm.h"
#include "server/checks/questions.hpp"

namespace hostadm::server {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

struct RpcDaemon {
    std::string_view name;
    std::uint32_t program, version;
};
constexpr std::array daemons{RpcDaemon{"mountd", 100005, 3}, RpcDaemon{"rpc.mountd", 100005, 3},
                             RpcDaemon{"nfsd", 100003, 3}, RpcDaemon{"ganesha.nfsd", 100003, 3},
                             RpcDaemon{"rpc.bootparamd", 100026, 1}};

constexpr const char *mountd_program = "/usr/lib/nfs/mountd";
constexpr const char *nfsd_program = "/usr/lib/nfs/nfsd";

bool is_seen(const char *name) {
    return check_daemon(name, nullptr) == HOSTADM_DAEMON_RUNNING;
}

// Registered is not enough: the port mapper remembers those that were killed.
bool answers(const RpcAnswers &mapper, std::string_view name) {
    const auto daemon =
        std::find_if(daemons.begin(), daemons.end(), [&](const RpcDaemon &one) { return one.name == name; });
    return std::any_of(
        mapper.registrations.begin(), mapper.registrations.end(), [&](const Registration &one) {
            return one.program == daemon->program && one.version == daemon->version &&
                   ask_null_procedure(one.program, one.version, one.tcp, one.port) == Answer::answered;
        });
}

} // namespace

Registered is_registered(const std::string &name) {
    const auto daemon =
        std::find_if(daemons.begin(), daemons.end(), [&](const RpcDaemon &one) { return one.name == name; });
    if (daemon == daemons.end())
        return Registered::by_no_rpc;
    const RpcAnswers mapper = ask_port_mapper();
    if (mapper.mapper != RpcAnswers::Mapper::answered)
        return Registered::no_mapper;
    return mapper.has(daemon->program) ? Registered::yes : Registered::no;
}

void ensure_nfs_server() {
    const bool has_mountd = check_daemon("mountd", nullptr) != HOSTADM_DAEMON_NOT_RUNNING,
               has_nfsd = check_daemon("nfsd", nullptr) != HOSTADM_DAEMON_NOT_RUNNING;
    // Programs that were set aside are the library's to put back.
    if ((has_mountd && has_nfsd) || access(mountd_program, X_OK) != 0 || access(nfsd_program, X_OK) != 0)
        return;
    if (!has_mountd)
        start_daemon(mountd_program, nullptr);
    if (!has_nfsd)
        start_daemon(nfsd_program, "-a 16");
    const auto begin = Clock::now();
    for (auto now = begin; now - begin < 3s; now = Clock::now()) {
        const bool all = is_seen("mountd") && is_seen("nfsd");
        const RpcAnswers mapper = ask_port_mapper();
        if (all && answers(mapper, "mountd") && answers(mapper, "nfsd"))
            return;
        // A process needs a moment until it is seen under the name of its program. Without a port mapper it never
        // answers.
        const bool none = !is_seen("mountd") && !is_seen("nfsd");
        if ((none || (all && mapper.mapper == RpcAnswers::Mapper::refused)) && now - begin > 300ms)
            return;
        std::this_thread::sleep_for(10ms);
    }
}

} // namespace hostadm::server
