// SPDX-License-Identifier: MIT
#include "server/boot_services.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "base/files.hpp"
#include "base/program.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/adapters.hpp"
#include "server/boot_area.hpp"
#include "server/client_kind.hpp"
#include "server/clients.hpp"
#include "server/files.hpp"
#include "server/pc_area.hpp"

namespace hostadm::server {

namespace {

namespace fs = std::filesystem;

const std::string settings = "/etc/systemd/system/";
const std::string units = "/usr/lib/systemd/system/";
const std::string record_path = "/var/lib/hostadm/boot_services";

constexpr const char *services[] = {"hostadm-shareall", "hostadm-nfsd", "hostadm-rarpd", "hostadm-bootparamd",
                                    "hostadm-tftpd"};
// Debian's own ones, which would take the same ports; those with an init script too.
constexpr const char *others[] = {"nfs-ganesha", "nfs-server", "rarpd", "bootparamd", "tftpd-hpa"};

struct Item {
    std::string path;
    std::string content; // the target of a link, or the text of a file
    bool is_link = false;
    bool is_folder = false;
};

[[noreturn]] void fail(const std::string &what, int error) {
    throw std::runtime_error(what + ": " + std::strerror(error));
}

bool is_installed(const std::string &unit) {
    return exists(units + unit) || exists("/lib/systemd/system/" + unit);
}

bool is_masked(const std::string &unit) {
    std::error_code error;
    return fs::read_symlink(settings + unit, error) == "/dev/null" && !error;
}

// Its own service of the DHCP server, of which some packages have none, or one that is not to be used.
std::string dhcp_service() {
    return is_installed("dnsmasq.service") && !is_masked("dnsmasq.service") ? "dnsmasq" : "hostadm-dnsmasq";
}

// Those that have no boot program here, which the reverse-address daemon else asks for.
bool has_clients_without_boot_links() {
    const std::vector<Client> clients = all_clients();
    return std::any_of(clients.begin(), clients.end(), [](const Client &client) {
        return client.kind() == ClientKind::dataless || client.kind() == ClientKind::rpl;
    });
}

std::vector<std::string> wanted_services() {
    std::vector<std::string> wanted(std::begin(services), std::end(services));
    if (exists(dhcp_settings_path))
        wanted.push_back(dhcp_service());
    return wanted;
}

std::vector<std::string> services_in_the_way() {
    std::vector<std::string> found;
    for (const std::string service : others)
        if (is_installed(service + ".service") || exists("/etc/init.d/" + service))
            found.push_back(service);
    return found;
}

std::vector<Item> wanted_items(const std::string &router) {
    std::vector<Item> items{{tftpboot, "", false, true}};
    for (const std::string &service : wanted_services())
        items.push_back({settings + "multi-user.target.wants/" + service + ".service",
                         units + service + ".service", true});
    for (const std::string &service : services_in_the_way())
        items.push_back({settings + service + ".service", "/dev/null", true});
    // Without -r rpcbind hands no broadcasts on.
    items.push_back({settings + "rpcbind.service.d/hostadm.conf",
                     "[Service]\nExecStart=\nExecStart=/usr/sbin/rpcbind -f -w -r $OPTIONS\n"});
    if (has_clients_without_boot_links())
        items.push_back({settings + "hostadm-rarpd.service.d/hostadm.conf",
                         "[Service]\nExecStart=\nExecStart=/usr/sbin/in.rarpd -ae\n"});
    if (!router.empty())
        items.push_back({settings + "hostadm-bootparamd.service.d/router.conf",
                         "[Service]\nEnvironment=\"ROUTER_WORDS=-r " + router + "\"\n"});
    return items;
}

// Whose links name the unit by another of its paths serve as well, such as those that systemctl makes.
bool leads_to_same_unit(const Item &item, const std::string &target) {
    return target == item.content || (item.content != "/dev/null" && target.ends_with(".service") &&
                                      fs::path(target).filename() == fs::path(item.content).filename());
}

bool is_in_place(const Item &item) {
    std::error_code error;
    if (item.is_folder)
        return fs::is_directory(item.path, error);
    if (item.is_link) {
        const std::string target = fs::read_symlink(item.path, error);
        return !error && leads_to_same_unit(item, target);
    }
    const base::FileText present = base::read_file(item.path);
    return present && !fs::is_symlink(item.path, error) && present.text == item.content;
}

// What was made: "d PATH" of a directory, "l PATH TARGET" of a link, "f PATH TEXT" of a file, in the order of making.
std::vector<std::string> read_record() {
    const base::FileText text = base::read_file(record_path);
    if (!text && !text.is_missing())
        fail(base::tr("cannot read {1}", record_path), text.error);
    std::vector<std::string> lines;
    base::for_each_line(text.text, [&](std::string_view line) { lines.emplace_back(line); });
    return lines;
}

std::string path_in(const std::string &line) {
    return line.substr(2, line.find(' ', 2) - 2);
}

std::string content_in(const std::string &line) {
    return line.substr(std::min(line.size(), path_in(line).size() + 3));
}

// A text as one line of the record holds it; no text of ours has a backslash.
std::string in_one_line(const std::string &text) {
    std::string line;
    for (const char c : text)
        line += c == '\n' ? std::string("\\n") : std::string(1, c);
    return line;
}

std::string line_of(const Item &item) {
    if (item.is_folder)
        return "d " + item.path;
    return (item.is_link ? "l " : "f ") + item.path + " " + in_one_line(item.content);
}

// Whether there stands at the path what a line of the record tells, and nothing that somebody has made of it.
bool is_as_recorded(const std::string &line) {
    const std::string path = path_in(line);
    std::error_code error;
    if (line.starts_with("l "))
        return fs::read_symlink(path, error) == content_in(line) && !error;
    const base::FileText present = base::read_file(path);
    return present && !fs::is_symlink(path, error) && in_one_line(present.text) == content_in(line);
}

// Missing directories of a path, the upper ones first.
std::vector<std::string> missing_directories(const std::string &path) {
    std::vector<std::string> missing;
    for (fs::path at = fs::path(path).parent_path(); !exists(at); at = at.parent_path())
        missing.insert(missing.begin(), at);
    return missing;
}

void write_record(const std::vector<std::string> &lines) {
    std::string text;
    for (const std::string &line : lines)
        text += line + "\n";
    if (const int error = base::write_file(record_path, text); error != 0)
        fail(base::tr("cannot write {1}", record_path), error);
}

void make_directory(const std::string &path) {
    std::error_code error;
    fs::create_directory(path, error);
    if (error)
        fail(base::tr("cannot make {1}", path), error.value());
}

void put(const Item &item) {
    for (const std::string &directory : missing_directories(item.path))
        make_directory(directory);
    if (item.is_folder) {
        make_directory(item.path);
    } else if (!item.is_link) {
        if (const int error = base::write_file(item.path, item.content); error != 0)
            fail(base::tr("cannot write {1}", item.path), error);
    } else if (symlink(item.content.c_str(), item.path.c_str()) != 0) {
        fail(base::tr("cannot make the link {1}", item.path), errno);
    }
}

void require_units() {
    for (const std::string &service : wanted_services()) {
        if (is_masked(service + ".service"))
            throw std::runtime_error(base::tr(
                "{1}.service is masked, so that it never starts; take that back first: systemctl unmask {1}",
                service));
        if (!is_installed(service + ".service"))
            throw std::runtime_error(base::tr("there is no {1}{2}.service; install the adapters: {3}", units,
                                              service, how_to_install_adapters()));
    }
}

std::vector<std::string>::iterator find_path(std::vector<std::string> &record, const std::string &path) {
    return std::find_if(record.begin(), record.end(),
                        [&](const std::string &line) { return path_in(line) == path; });
}

// Takes back what the record tells, from its end; what is somebody else's by now stays.
BootServicesChange take_back(const std::vector<std::string> &record) {
    BootServicesChange change;
    for (auto line = record.rbegin(); line != record.rend(); ++line) {
        const std::string path = path_in(*line);
        if (line->starts_with("d ")) {
            rmdir(path.c_str()); // not if somebody has put something there
        } else if (exists(path)) {
            if (!is_as_recorded(*line))
                change.left.push_back(path);
            else if (unlink(path.c_str()) != 0)
                fail(base::tr("cannot remove {1}", path), errno);
            else
                change.paths.push_back(path);
        }
    }
    return change;
}

} // namespace

BootServicesChange enable_boot_services(const std::string &router) {
    require_units();
    const std::vector<std::string> before = read_record();
    std::vector<std::string> record = before;
    std::vector<Item> missing;
    std::vector<std::string> lines;
    const auto note = [&](const std::string &line) {
        const auto recorded = find_path(record, path_in(line));
        if (recorded != record.end()) {
            *recorded = line; // another router than before
            return;
        }
        record.push_back(line);
        lines.push_back(line);
    };
    for (const std::string &directory : missing_directories(record_path))
        note("d " + directory);
    for (Item &item : wanted_items(router)) {
        if (is_in_place(item))
            continue;
        const auto recorded = find_path(record, item.path);
        const bool is_ours = recorded != record.end() && is_as_recorded(*recorded);
        if (exists(item.path) && !is_ours)
            throw std::runtime_error(
                item.is_link ? base::tr("{1} is there already and is not what this needs (a link to {2}); "
                                        "move it away first",
                                        item.path, item.content)
                : item.is_folder
                    ? base::tr(
                          "{1} is there already and is not what this needs (a folder); move it away first",
                          item.path)
                    : base::tr("{1} is there already and is not what this needs (settings of its own); move "
                               "it away first",
                               item.path));
        for (const std::string &directory : missing_directories(item.path))
            note("d " + directory);
        note(line_of(item));
        missing.push_back(std::move(item));
    }
    BootServicesChange change;
    if (missing.empty())
        return change;
    for (const std::string &directory : missing_directories(record_path))
        make_directory(directory);
    write_record(record); // first: what is interrupted can be taken back
    try {
        for (const Item &item : missing) {
            put(item);
            change.paths.push_back(item.path);
        }
    } catch (...) {
        take_back(lines);
        if (before.empty())
            unlink(record_path.c_str());
        else
            write_record(before);
        throw;
    }
    return change;
}

BootServicesChange disable_boot_services() {
    const std::vector<std::string> record = read_record();
    if (record.empty())
        return {};
    // Its own directory goes only when the record has gone, and that only when all else has.
    std::vector<std::string> own;
    std::vector<std::string> rest;
    for (const std::string &line : record)
        (line.starts_with("d ") && record_path.starts_with(path_in(line) + "/") ? own : rest).push_back(line);
    BootServicesChange change = take_back(rest);
    if (unlink(record_path.c_str()) != 0)
        fail(base::tr("cannot remove {1}", record_path), errno);
    take_back(own);
    return change;
}

namespace {

void systemctl(std::vector<std::string> words) {
    words.insert(words.begin(), "/usr/bin/systemctl");
    const std::string command = base::joined(words, " ");
    const base::Ending ending = base::run({.words = std::move(words), .time_limit = 120});
    if (!ending.well())
        throw std::runtime_error(
            base::tr("{1} {2}; the services are switched on, and count from the next start of this "
                     "server; systemctl status tells what is wrong",
                     command, base::in_words(ending)));
}

} // namespace

bool has_service_manager() {
    return exists("/run/systemd/system");
}

void reload_services() {
    if (has_service_manager())
        systemctl({"daemon-reload"});
}

std::vector<std::string> start_services(const BootServicesChange &change) {
    for (const std::string &service : services_in_the_way())
        systemctl({"stop", service + ".service"});
    std::vector<std::string> wanted = wanted_services(), restarted{"restart"}, started{"start"};
    wanted.insert(wanted.begin(), "rpcbind");
    for (const std::string &service : wanted) {
        const std::string own_settings = settings + service + ".service.d/";
        const bool has_new =
            std::any_of(change.paths.begin(), change.paths.end(),
                        [&](const std::string &path) { return path.starts_with(own_settings); });
        (has_new ? restarted : started).push_back(service + ".service");
    }
    for (const auto &words : {restarted, started})
        if (words.size() > 1)
            systemctl(words);
    for (std::string &service : wanted)
        service += ".service";
    return wanted;
}

} // namespace hostadm::server
