// SPDX-License-Identifier: MIT
#include "server/daemons.hpp"

#include <algorithm>
#include <array>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "base/files.hpp"
#include "base/processes.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "server/dhcp_server.hpp"
#include "server/rpl_area.hpp"

namespace hostadm::server {

namespace {

constexpr const char *rpl_daemon = "/usr/sbin/rpld";

const std::vector<std::string_view> nfs_daemons = {"ganesha.nfsd", "nfsd"},
                                    mount_daemons = {"rpc.mountd", "mountd", "ganesha.nfsd"};

// The name that a process goes by in its command line, which adapters may have changed.
std::string program_of(const base::Process &process) {
    const std::string path = process.arguments.empty() ? "" : process.arguments.front();
    return path.substr(path.rfind('/') + 1);
}

const base::Process *find(const std::vector<base::Process> &processes,
                          const std::vector<std::string_view> &programs) {
    for (const std::string_view program : programs)
        for (const base::Process &process : processes)
            if (program_of(process) == program || process.short_name == program)
                return &process;
    return nullptr;
}

// A short option, alone or among others in one word.
bool has_option(const base::Process &process, char option) {
    return std::any_of(process.arguments.begin(), process.arguments.end(), [&](const std::string &word) {
        return word.size() > 1 && word[0] == '-' && word[1] != '-' && word.find(option) != word.npos;
    });
}

bool inetd_serves(const std::string &table, std::string_view service) {
    bool served = false;
    base::for_each_line(base::file_contents(table), [&](std::string_view line) {
        const auto words = base::words_of(line.substr(0, line.find('#')));
        served = served || (!words.empty() && words.front() == service);
    });
    return served;
}

BootDaemon daemon_for(const std::string &service, const base::Process *process, const std::string &usual_name,
                      const std::string &advice) {
    if (process == nullptr)
        return {service, usual_name, false, 0, "", advice};
    return {service, process->short_name, true, process->pid};
}

std::string last_component(const std::string &path) {
    return path.substr(path.rfind('/') + 1);
}

bool is_interpreter(const std::string &program) {
    constexpr std::array known = {"sh", "bash", "dash", "ksh", "perl", "python3"};
    return std::find(known.begin(), known.end(), last_component(program)) != known.end();
}

// As the program itself, or as a script: the first word behind an interpreter and its options.
bool is_started_as(const base::Process &process, const std::string &name) {
    auto word = process.arguments.begin();
    const auto end = process.arguments.end();
    if (word != end && is_interpreter(*word))
        word = std::find_if(word + 1, end, [](const std::string &next) { return !next.starts_with('-'); });
    return word != end && last_component(*word) == name;
}

// A longer name than the kernel keeps is told apart by the command line alone.
bool bears_name(const base::Process &process, const std::string &name) {
    constexpr std::size_t longest = 15;
    return name.size() <= longest && process.short_name == name;
}

} // namespace

std::vector<BootDaemon> boot_daemons(const std::string &proc, const std::string &inetd_table) {
    const std::vector<base::Process> processes = base::live_processes(proc);

    BootDaemon rarp = daemon_for("reverse ARP", find(processes, {"in.rarpd", "rarpd"}), "in.rarpd",
                                 "hostadm run host/start_daemon path=/usr/sbin/in.rarpd");

    BootDaemon tftp =
        daemon_for("TFTP", find(processes, {"in.tftpd", "tftpd", "atftpd"}), "in.tftpd",
                   base::tr("{1} (package {2})", "in.tftpd --listen --ipv4 --secure /tftpboot", "tftpd-hpa"));
    const base::Process *inetd = find(processes, {"inetd", "inetutils-inetd", "xinetd"});
    if (!tftp.running && inetd != nullptr && inetd_serves(inetd_table, "tftp"))
        tftp = {"TFTP", inetd->short_name, true, inetd->pid, base::tr("on demand")};

    const base::Process *mapper = find(processes, {"rpcbind", "portmap"});
    BootDaemon rpc = daemon_for("RPC port mapper", mapper, "rpcbind",
                                base::tr("{1} (package {2})", "rpcbind -r", "rpcbind"));
    if (mapper != nullptr && mapper->short_name == "rpcbind" && !has_option(*mapper, 'r')) {
        rpc.note =
            base::tr("without remote calls: a client that asks for its name by broadcast gets no answer");
        rpc.advice = base::tr("start it with -r (OPTIONS=\"-w -r\" in /etc/default/rpcbind)");
    }

    BootDaemon bootparams =
        daemon_for("boot parameters", find(processes, {"rpc.bootparamd", "bootparamd"}), "rpc.bootparamd",
                   base::tr("{1}, after rpcbind (package {2})", "rpc.bootparamd -r ROUTER", "bootparamd"));

    const base::Process *nfsd = find(processes, nfs_daemons);
    BootDaemon nfs = daemon_for("NFS", nfsd, "nfsd",
                                base::tr("{1} (packages {2} and {3})",
                                         "hostadm run host/start_daemon path=/usr/lib/nfs/nfsd",
                                         "nfs-ganesha", "nfs-ganesha-vfs"));
    if (nfsd != nullptr && nfsd->arguments.empty())
        nfs.note = base::tr("in the kernel");
    BootDaemon mount = daemon_for(
        "NFS mounts", find(processes, mount_daemons), "mountd",
        base::tr("{1} (the same packages)", "hostadm run host/start_daemon path=/usr/lib/nfs/mountd"));

    std::vector<BootDaemon> daemons = {rarp, tftp, rpc, bootparams, nfs, mount};
    if (const auto dhcp = running_dhcp_server(proc); dhcp || base::read_file(dhcp_settings_path))
        daemons.push_back({"DHCP", "dnsmasq", dhcp.has_value(), dhcp.value_or(0), "",
                           dhcp ? "" : "hostadm run netboot/setup_pc"});
    const base::Process *rpl = find(processes, {"rpld"});
    if (rpl != nullptr || has_rpl_clients())
        daemons.push_back(
            daemon_for("RPL", rpl, "rpld",
                       base::tr("{1}, once a remote-program-load daemon is installed there",
                                std::string("hostadm run host/start_daemon path=") + rpl_daemon)));
    return daemons;
}

namespace {

std::string started(const std::string &daemon, bool (*serves)()) {
    if (serves() || access(daemon.c_str(), X_OK) != 0)
        return "";
    start_daemon(daemon.c_str(), nullptr);
    constexpr int tries = 50; // of 10 ms; it needs a few
    for (int i = 0; i < tries && !serves(); ++i)
        usleep(10'000);
    return serves() ? daemon + " -a" : "";
}

} // namespace

std::string ensure_reverse_arp() {
    return started("/usr/sbin/in.rarpd", [] {
        return check_rarpd(nullptr) == HOSTADM_DAEMON_RUNNING || boot_daemons().front().running;
    });
}

std::string ensure_rpl() {
    return started(rpl_daemon, [] { return find(base::live_processes(), {"rpld"}) != nullptr; });
}

std::optional<int> running_program(const std::string &name) {
    for (const base::Process &process : base::live_processes())
        if (is_started_as(process, name) || bears_name(process, name))
            return process.pid;
    return std::nullopt;
}

std::optional<ServingProcess> serving_process(const std::string &daemon) {
    const std::vector<base::Process> processes = base::live_processes();
    const base::Process *process = daemon == "mountd" ? find(processes, mount_daemons)
                                   : daemon == "nfsd" ? find(processes, nfs_daemons)
                                                      : nullptr;
    if (process != nullptr)
        return ServingProcess{process->short_name, process->pid};
    if (const auto pid = running_program(daemon))
        return ServingProcess{daemon, *pid};
    return std::nullopt;
}

} // namespace hostadm::server
