// SPDX-License-Identifier: MIT
// Swap and dump files.
#include <sys/stat.h>

#include "server/checks/client_needs.hpp"
#include "server/checks/subjects.hpp"

namespace hostadm::server {

namespace {

constexpr off_t smallest_swap = 4096; // a page

std::string make_file(const std::string &path, const std::string &size) {
    return "mkdir -p \"$(dirname " + path + ")\" && rm -f " + path + " && install -m 600 /dev/null " + path +
           " && truncate -s " + size + " " + path;
}

} // namespace

Findings swap_files_of_client(const Snapshot &server, const CheckedClient &client) {
    Findings found;
    for (const Need &need : needs_of(server, client)) {
        if (need.key == "root")
            continue;
        const std::string &path = need.path;
        const bool swap = need.key == "swap";
        const std::string again = make_file(path, swap ? "32M" : "0");
        const auto add = [&](Severity severity, const std::string &what, const std::string &repair) {
            found.push_back(
                {.severity = severity,
                 .stage = Stage::swap,
                 .client = client.name,
                 .where = path,
                 .what = what,
                 .why = swap ? client.name + " has no room to swap, and stops when its memory is full"
                             : client.name + " cannot keep a dump of a crash",
                 .repair = repair});
        };
        struct stat file {};
        if (lstat(path.c_str(), &file) != 0) {
            add(Severity::error, "the " + need.key + " file of " + client.name + " is missing", again);
            continue;
        }
        if (S_ISLNK(file.st_mode)) {
            add(Severity::error,
                "the " + need.key + " file of " + client.name +
                    " is a link, which the client follows on its own side",
                again);
            continue;
        }
        if (S_ISDIR(file.st_mode)) {
            // A directory in which the client keeps the file itself.
            continue;
        }
        if (!S_ISREG(file.st_mode)) {
            add(Severity::error, "the " + need.key + " file of " + client.name + " is no plain file", again);
            continue;
        }
        if (swap && file.st_size < smallest_swap)
            add(Severity::error,
                file.st_size == 0 ? "it is empty"
                                  : "it has " + std::to_string(file.st_size) + " bytes, less than a page",
                "truncate -s 32M " + path);
        if ((file.st_mode & 0600) != 0600)
            add(Severity::warning, "its owner may not read and write it", "chmod 600 " + path);
        else if ((file.st_mode & 0007) != 0)
            add(Severity::warning,
                "everybody may read or write it, and the memory of " + client.name + " is in it",
                "chmod 600 " + path);
        if (file.st_uid != 0)
            add(Severity::warning, "it belongs to user " + std::to_string(file.st_uid) + ", not to root",
                "chown root " + path);
    }
    return found;
}

} // namespace hostadm::server
