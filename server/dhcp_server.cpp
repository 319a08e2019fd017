// SPDX-License-Identifier: MIT
#include "server/dhcp_server.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string_view>
#include <sys/stat.h>
#include <sys/types.h>
#include <system_error>
#include <unistd.h>
#include <vector>

#include "base/files.hpp"
#include "base/processes.hpp"
#include "base/program.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/failure.hpp"
#include "server/files.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

// The process that was told of the tables last, and when.
const std::string told_path = "/var/lib/hostadm/dhcp_told"; // a preview sees no /run
constexpr const char *tables[] = {"/etc/hosts", "/etc/ethers"};

// As Debian's service gives it.
constexpr const char *settings_folder = "--conf-dir=/etc/dnsmasq.d,.dpkg-dist,.dpkg-old,.dpkg-new";

bool is_program(const std::string &path) {
    return access(path.c_str(), X_OK) == 0;
}

// One that was given a file of settings of its own, such as that of a network of virtual machines, has not read ours.
bool reads_our_settings(const base::Process &process) {
    bool other_file = false, our_folder = false;
    for (const std::string &word : process.arguments) {
        other_file = other_file || word.starts_with("--conf-file") || word.starts_with("-C");
        our_folder = our_folder || word.find("/etc/dnsmasq.d") != word.npos;
    }
    return our_folder || !other_file;
}

OtherDhcpSettings settings_in(const std::string &path) {
    OtherDhcpSettings found;
    base::for_each_line(base::file_contents(path), [&](std::string_view line) {
        line = base::trimmed(line);
        if (line.empty() || line.front() == '#' || line.starts_with("conf-dir"))
            return;
        found.any = true;
        found.name_interfaces = found.name_interfaces || line.starts_with("interface") ||
                                line.starts_with("except-interface") || line.starts_with("listen-address");
    });
    return found;
}

base::Answer run(std::vector<std::string> words) {
    constexpr int longest = 60; // seconds
    return base::run_and_listen({.words = std::move(words), .time_limit = longest},
                                base::Errors::with_output);
}

} // namespace

std::optional<int> running_dhcp_server(const std::string &proc) {
    // Ordinary users may call a process of theirs what they like; it gives up root's rights for a system user's.
    constexpr uid_t first_ordinary = 1000, nobody = 65534;
    for (const base::Process &process : base::live_processes(proc))
        if (process.short_name == "dnsmasq" && reads_our_settings(process) &&
            (process.owner < first_ordinary || process.owner == nobody))
            return process.pid;
    return std::nullopt;
}

namespace {

using std::chrono::system_clock;

// When a file got its present text; the beginning of time: there is none.
system_clock::time_point changed_at(const std::string &path) {
    struct stat file {};
    if (stat(path.c_str(), &file) != 0)
        return {};
    return system_clock::from_time_t(file.st_mtim.tv_sec) +
           std::chrono::duration_cast<system_clock::duration>(std::chrono::nanoseconds(file.st_mtim.tv_nsec));
}

} // namespace

bool has_read(int pid, const std::string &path) {
    constexpr std::chrono::milliseconds tick(10); // of a process's start
    const auto started = base::start_of(pid);
    return started && *started + tick >= changed_at(path);
}

bool knows_tables(int pid) {
    const bool told = base::trimmed(base::file_contents(told_path)) == std::to_string(pid);
    const auto when = told ? changed_at(told_path) : system_clock::time_point();
    return std::all_of(std::begin(tables), std::end(tables),
                       [&](const char *table) { return has_read(pid, table) || changed_at(table) <= when; });
}

OtherDhcpSettings other_dhcp_settings(const std::string &file, const std::string &folder) {
    OtherDhcpSettings others = settings_in(file);
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename();
        if (name == fs::path(dhcp_settings_path).filename() || name.front() == '.' || name == "README" ||
            name.find(".dpkg-") != name.npos || name.ends_with("~"))
            continue;
        const OtherDhcpSettings more = settings_in(entry->path());
        others = {others.any || more.any, others.name_interfaces || more.name_interfaces};
    }
    return others;
}

std::string defect_of_dhcp_settings() {
    const base::Answer answer = run({dhcp_program, "--test", settings_folder});
    return answer.ending.well()
               ? ""
               : std::string(base::last_line(answer.output)) + " (" + base::in_words(answer.ending) + ")";
}

namespace {

// The service that starts it; empty: none.
std::string service_name() {
    if (exists("/etc/systemd/system/multi-user.target.wants/hostadm-dnsmasq.service"))
        return "hostadm-dnsmasq"; // by host/enable_boot_services
    return is_program(dhcp_service) ? "dnsmasq" : "";
}

} // namespace

std::string restart_dhcp_server(bool runs) {
    const std::string service = service_name();
    const bool has_service = !service.empty();
    if (!has_service && runs)
        fail(Code::unusable,
             base::tr("dnsmasq runs without a service that could start it anew; end it and run this again"));
    const base::Answer answer =
        has_service ? run({"/usr/sbin/service", service, "restart"}) : run({dhcp_program, settings_folder});
    if (!answer.ending.well())
        fail(Code::system,
             has_service ? base::tr("dnsmasq does not start ({1}): {2}; see `journalctl -u {3}`",
                                    base::in_words(answer.ending), base::last_line(answer.output), service)
                         : base::tr("dnsmasq does not start ({1}): {2}", base::in_words(answer.ending),
                                    base::last_line(answer.output)));
    return runs ? base::tr("dnsmasq was started anew") : base::tr("dnsmasq was started");
}

void tell_dhcp_server(Report &report) {
    const auto runs = running_dhcp_server();
    if (!runs) {
        report.warn("DHCP", base::tr("dnsmasq does not run, so no PC is answered; run netboot/setup_pc"));
        return;
    }
    if (knows_tables(*runs))
        return;
    // Noted first: a table that is changed meanwhile is newer than that.
    std::error_code error;
    if (fs::create_directories(parent_of(told_path), error); !error)
        base::write_file(told_path, std::to_string(*runs), 0600);
    // By the command, which a preview notes down instead.
    const base::Answer answer = run({"/usr/bin/kill", "-HUP", std::to_string(*runs)});
    if (!answer.ending.well())
        fail(Code::system, base::tr("dnsmasq cannot be told of the tables: kill -HUP {1} {2} {3}", *runs,
                                    base::in_words(answer.ending), base::last_line(answer.output)));
    report.step("DHCP", true, base::tr("dnsmasq reads the tables of hosts and of Ethernet addresses anew"));
}

std::string take_back(const ChangedDhcpSettings &changed, const UndoContext &) {
    const base::FileText now = base::read_file(dhcp_settings_path);
    if (now.text == changed.before && !now.is_missing() == !changed.before.empty())
        return "";
    const int error = !changed.before.empty() ? base::write_file(dhcp_settings_path, changed.before)
                      : unlink(dhcp_settings_path) == 0 || errno == ENOENT ? 0
                                                                           : errno;
    if (error != 0)
        return std::string(dhcp_settings_path) + " (" + std::strerror(error) + ")";
    if (changed.ran == 0)
        return "";
    try {
        restart_dhcp_server(true);
    } catch (const Failure &failure) {
        return base::tr("the DHCP server as it ran before: {1}", failure.what());
    }
    return "";
}

} // namespace hostadm::server
