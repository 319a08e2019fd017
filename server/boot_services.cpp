// SPDX-License-Identifier: MIT
#include "server/boot_services.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

#include "base/files.hpp"
#include "base/program.hpp"
#include "base/text.hpp"

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
};

[[noreturn]] void fail(const std::string &what, int error) {
    throw std::runtime_error("cannot " + what + ": " + std::strerror(error));
}

bool exists(const std::string &path) {
    std::error_code error;
    return fs::symlink_status(path, error).type() != fs::file_type::not_found;
}

std::vector<Item> wanted_items(const std::string &router) {
    std::vector<Item> items;
    for (const std::string service : services)
        items.push_back({settings + "multi-user.target.wants/" + service + ".service",
                         units + service + ".service", true});
    for (const std::string service : others)
        if (exists(units + service + ".service") || exists("/lib/systemd/system/" + service + ".service") ||
            exists("/etc/init.d/" + service))
            items.push_back({settings + service + ".service", "/dev/null", true});
    // Without -r rpcbind hands no broadcasts on.
    items.push_back({settings + "rpcbind.service.d/hostadm.conf",
                     "[Service]\nExecStart=\nExecStart=/usr/sbin/rpcbind -f -w -r $OPTIONS\n"});
    if (!router.empty())
        items.push_back({settings + "hostadm-bootparamd.service.d/router.conf",
                         "[Service]\nEnvironment=\"ROUTER_WORDS=-r " + router + "\"\n"});
    return items;
}

bool is_in_place(const Item &item) {
    std::error_code error;
    if (item.is_link)
        return fs::read_symlink(item.path, error) == item.content && !error;
    const base::FileText present = base::read_file(item.path);
    return present && !fs::is_symlink(item.path, error) && present.text == item.content;
}

// What was made: "d PATH" of a directory, "l PATH TARGET" of a link, "f PATH TEXT" of a file, in the order of making.
std::vector<std::string> read_record() {
    const base::FileText text = base::read_file(record_path);
    if (!text && !text.is_missing())
        fail("read " + record_path, text.error);
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
        fail("write " + record_path, error);
}

void make_directory(const std::string &path) {
    std::error_code error;
    fs::create_directory(path, error);
    if (error)
        fail("make " + path, error.value());
}

void put(const Item &item) {
    for (const std::string &directory : missing_directories(item.path))
        make_directory(directory);
    if (!item.is_link) {
        if (const int error = base::write_file(item.path, item.content); error != 0)
            fail("write " + item.path, error);
    } else if (symlink(item.content.c_str(), item.path.c_str()) != 0) {
        fail("make the link " + item.path, errno);
    }
}

void require_units() {
    for (const std::string service : services)
        if (!exists(units + service + ".service"))
            throw std::runtime_error(
                "there is no " + units + service +
                ".service; install the adapters: cmake --install build --component compat");
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
                fail("remove " + path, errno);
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
            throw std::runtime_error(item.path + " is there already and is not what this needs (" +
                                     (item.is_link ? "a link to " + item.content : "settings of its own") +
                                     "); move it away first");
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
        fail("remove " + record_path, errno);
    take_back(own);
    return change;
}

void reload_services() {
    if (!exists("/run/systemd/system"))
        return;
    const base::Ending ending =
        base::run({.words = {"/usr/bin/systemctl", "daemon-reload"}, .time_limit = 60});
    if (!ending.well())
        throw std::runtime_error("systemctl daemon-reload " + base::in_words(ending) +
                                 "; the services are changed, and count from the next start of this server");
}

} // namespace hostadm::server
