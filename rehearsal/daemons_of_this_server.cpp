// SPDX-License-Identifier: MIT
#include "rehearsal/daemons_of_this_server.hpp"

#include <algorithm>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#include "base/files.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "rehearsal/unit_file.hpp"

namespace hostadm::rehearsal {

namespace fs = std::filesystem;

namespace {

struct Known {
    Service service;
    const char *name, *package;
    std::vector<std::string_view> processes; // names under which it runs
    std::vector<const char *> services;      // units and start scripts that start it
};

// In the order in which they are started: the others register with the port mapper.
const Known known_daemons[] = {
    {Service::port_mapper, "rpcbind", "rpcbind", {"rpcbind", "portmap"}, {"rpcbind", "portmap"}},
    {Service::boot_parameters,
     "rpc.bootparamd",
     "bootparamd",
     {"rpc.bootparamd", "bootparamd"},
     {"bootparamd"}},
    {Service::reverse_arp, "in.rarpd", "rarpd", {"in.rarpd", "rarpd"}, {"in.rarpd", "rarpd"}},
    {Service::dhcp, "dnsmasq", "dnsmasq", {"dnsmasq"}, {"dnsmasq"}},
    {Service::tftp,
     "in.tftpd",
     "tftpd-hpa",
     {"in.tftpd", "tftpd", "atftpd", "dnsmasq"},
     {"tftpd-hpa", "atftpd", "dnsmasq"}},
    {Service::nfs, "ganesha.nfsd", "nfs-ganesha", {"ganesha.nfsd", "nfsd"}, {"nfs-ganesha", "nfs-server"}},
};

std::string last_part(const std::string &path) {
    return path.substr(path.rfind('/') + 1);
}

bool is_called(const base::Process &process, std::string_view name) {
    return process.short_name == name ||
           (!process.arguments.empty() && last_part(process.arguments.front()) == name);
}

// Of names, the first that any process has: a process that watches over the NFS server is called by another. Of a
// daemon that has children, the first started.
const base::Process *find(const std::vector<base::Process> &processes,
                          const std::vector<std::string_view> &names) {
    for (const std::string_view name : names) {
        const base::Process *found = nullptr;
        for (const base::Process &process : processes)
            if (is_called(process, name) && (found == nullptr || process.pid < found->pid))
                found = &process;
        if (found != nullptr)
            return found;
    }
    return nullptr;
}

std::string executable_of(const base::Process &process) {
    std::error_code error;
    const std::string path = fs::read_symlink("/proc/" + std::to_string(process.pid) + "/exe", error);
    // The program may have been replaced by a newer one of its package meanwhile.
    const std::string_view gone = " (deleted)";
    return path.ends_with(gone) ? path.substr(0, path.size() - gone.size()) : path;
}

std::string tftp_line_of_inetd() {
    std::string found;
    base::for_each_line(base::file_contents("/etc/inetd.conf"), [&](std::string_view line) {
        const auto words = base::words_of(line);
        if (words.size() > 6 && words[0] == "tftp")
            found = line;
    });
    return found;
}

const std::vector<std::string_view> inetd_names = {"inetd", "inetutils-inetd"};

std::string inetd_program() {
    for (const char *path : {"/usr/sbin/inetd", "/usr/sbin/inetutils-inetd"})
        if (access(path, X_OK) == 0)
            return path;
    return {};
}

bool take_running(DaemonStart &start, const base::Process *process) {
    if (process == nullptr)
        return false;
    start.name = process->short_name;
    start.runs = true;
    if (process->arguments.empty()) {
        start.in_kernel = true;
        return true;
    }
    start.pid = process->pid;
    start.program = executable_of(*process);
    start.words = process->arguments;
    start.origin = base::tr("{1}, process {2}", start.name, process->pid);
    return true;
}

bool take_inetd(DaemonStart &start, const std::string &program, const std::string &line) {
    if (line.empty() || program.empty())
        return false;
    start.program = program;
    start.words = {program, "-i"};
    start.origin = "/etc/inetd.conf";
    start.inetd_line = line;
    return true;
}

bool take_service(DaemonStart &start, const std::vector<const char *> &services) {
    for (const char *service : services) {
        if (auto unit = unit_command(service)) {
            start.words = std::move(unit->words);
            start.program = start.words.front();
            start.origin = unit->file;
            return true;
        }
        const std::string script = std::string("/etc/init.d/") + service;
        if (access(script.c_str(), X_OK) == 0) {
            start.words = {script, "start"};
            start.program = script;
            start.origin = script;
            return true;
        }
    }
    return false;
}

DaemonStart start_of(const Known &known, const std::vector<base::Process> &processes, Settings settings) {
    DaemonStart start{.service = known.service,
                      .name = known.name,
                      .package = known.package,
                      .program = {},
                      .words = {},
                      .origin = {}};
    const base::Process *process = find(processes, known.processes);
    if (settings == Settings::of_processes && take_running(start, process))
        return start;
    if (known.service == Service::tftp) {
        const base::Process *inetd = find(processes, inetd_names);
        const std::string line = tftp_line_of_inetd();
        if (inetd != nullptr && take_inetd(start, executable_of(*inetd), line)) {
            start.pid = inetd->pid;
            start.runs = true;
            return start;
        }
        if (take_inetd(start, inetd_program(), line))
            return start;
    }
    if (process != nullptr) {
        start.pid = process->pid;
        start.runs = true;
        start.in_kernel = process->arguments.empty();
    }
    take_service(start, known.services);
    return start;
}

} // namespace

std::string DaemonStart::command() const {
    std::string text;
    for (const std::string &word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

std::vector<base::Process> processes_of_this_server() {
    struct stat own {};
    stat("/proc/self/ns/net", &own);
    std::vector<base::Process> processes = base::live_processes();
    std::erase_if(processes, [&](const base::Process &process) {
        struct stat its {};
        return !process.arguments.empty() &&
               stat(("/proc/" + std::to_string(process.pid) + "/ns/net").c_str(), &its) == 0 &&
               (its.st_ino != own.st_ino || its.st_dev != own.st_dev);
    });
    return processes;
}

std::vector<DaemonStart> daemons_of_this_server(Settings settings, std::optional<server::ClientKind> kind) {
    const bool is_pc = kind == server::ClientKind::pc;
    const auto asks = [&](Service service) {
        if (!kind)
            return true;
        if (service == Service::dhcp)
            return is_pc;
        return !is_pc || (service != Service::reverse_arp && service != Service::boot_parameters);
    };
    const std::vector<base::Process> processes = processes_of_this_server();
    std::vector<DaemonStart> starts;
    for (const Known &known : known_daemons)
        if (asks(known.service))
            starts.push_back(start_of(known, processes, settings));
    return starts;
}

} // namespace hostadm::rehearsal
