// SPDX-License-Identifier: MIT
#include "support/boot_daemons.hpp"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <system_error>

#include "support/host_tables.hpp"

namespace hostadm::support {

namespace fs = std::filesystem;

namespace {

struct Process {
    int pid = 0;
    std::string program;                // as it calls itself, which adapters may have changed
    std::string short_name;             // as the kernel knows it
    std::vector<std::string> arguments; // none: a thread of the kernel
};

std::string contents(const fs::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string last_component(const std::string &path) {
    return path.substr(path.rfind('/') + 1);
}

// "PID (NAME) STATE ...", where the name may hold anything.
bool is_defunct(const std::string &stat) {
    const std::size_t end = stat.rfind(')');
    return end == stat.npos || end + 2 >= stat.size() || stat[end + 2] == 'Z' || stat[end + 2] == 'X';
}

std::vector<std::string> zero_separated(const std::string &text) {
    std::vector<std::string> words;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\0', begin), text.size());
        words.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return words;
}

// Processes that end meanwhile are passed over.
std::vector<Process> live_processes(const std::string &proc) {
    std::vector<Process> processes;
    std::error_code error;
    for (fs::directory_iterator entry(proc, error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename();
        Process process;
        if (std::from_chars(name.data(), name.data() + name.size(), process.pid).ptr !=
            name.data() + name.size())
            continue;
        const std::string stat = contents(entry->path() / "stat");
        if (stat.empty() || is_defunct(stat))
            continue;
        process.arguments = zero_separated(contents(entry->path() / "cmdline"));
        const std::size_t open = stat.find('('), close = stat.rfind(')');
        process.short_name = stat.substr(open + 1, close - open - 1);
        if (!process.arguments.empty())
            process.program = last_component(process.arguments.front());
        processes.push_back(std::move(process));
    }
    return processes;
}

const Process *find(const std::vector<Process> &processes, std::initializer_list<std::string_view> programs) {
    for (const std::string_view program : programs)
        for (const Process &process : processes)
            if (process.program == program || process.short_name == program)
                return &process;
    return nullptr;
}

// A short option, alone or among others in one word.
bool has_option(const Process &process, char option) {
    return std::any_of(process.arguments.begin(), process.arguments.end(), [&](const std::string &word) {
        return word.size() > 1 && word[0] == '-' && word[1] != '-' && word.find(option) != word.npos;
    });
}

bool inetd_serves(const std::string &table, std::string_view service) {
    bool served = false;
    for_each_line(contents(table), [&](std::string_view line) {
        const auto words = words_of(line.substr(0, line.find('#')));
        served = served || (!words.empty() && words.front() == service);
    });
    return served;
}

BootDaemon daemon_for(const std::string &service, const Process *process, const std::string &usual_name,
                      const std::string &advice) {
    if (process == nullptr)
        return {service, usual_name, false, 0, "", advice};
    return {service, process->short_name, true, process->pid};
}

} // namespace

std::vector<BootDaemon> boot_daemons(const std::string &proc, const std::string &inetd_table) {
    const std::vector<Process> processes = live_processes(proc);

    BootDaemon rarp = daemon_for("reverse ARP", find(processes, {"in.rarpd", "rarpd"}), "in.rarpd",
                                 "hostadm run host/start_daemon path=/usr/sbin/in.rarpd");

    BootDaemon tftp = daemon_for("TFTP", find(processes, {"in.tftpd", "tftpd", "atftpd"}), "in.tftpd",
                                 "in.tftpd --listen --ipv4 --secure /tftpboot (package tftpd-hpa)");
    const Process *inetd = find(processes, {"inetd", "inetutils-inetd", "xinetd"});
    if (!tftp.running && inetd != nullptr && inetd_serves(inetd_table, "tftp"))
        tftp = {"TFTP", inetd->short_name, true, inetd->pid, "on demand"};

    const Process *mapper = find(processes, {"rpcbind", "portmap"});
    BootDaemon rpc = daemon_for("RPC port mapper", mapper, "rpcbind", "rpcbind -r (package rpcbind)");
    if (mapper != nullptr && mapper->short_name == "rpcbind" && !has_option(*mapper, 'r')) {
        rpc.note = "without remote calls: a client that asks for its name by broadcast gets no answer";
        rpc.advice = "start it with -r (OPTIONS=\"-w -r\" in /etc/default/rpcbind)";
    }

    BootDaemon bootparams =
        daemon_for("boot parameters", find(processes, {"rpc.bootparamd", "bootparamd"}), "rpc.bootparamd",
                   "rpc.bootparamd -r ROUTER, after rpcbind (package bootparamd)");

    const Process *nfsd = find(processes, {"ganesha.nfsd", "nfsd"});
    BootDaemon nfs = daemon_for("NFS", nfsd, "nfsd", "hostadm run host/start_daemon path=/usr/lib/nfs/nfsd");
    if (nfsd != nullptr && nfsd->arguments.empty())
        nfs.note = "in the kernel";
    BootDaemon mount = daemon_for("NFS mounts", find(processes, {"rpc.mountd", "mountd", "ganesha.nfsd"}),
                                  "mountd", "hostadm run host/start_daemon path=/usr/lib/nfs/mountd");

    return {rarp, tftp, rpc, bootparams, nfs, mount};
}

} // namespace hostadm::support
