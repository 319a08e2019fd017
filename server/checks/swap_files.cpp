// SPDX-License-Identifier: MIT
// Swap and dump files.
#include <sys/stat.h>

#include "base/translation.hpp"
#include "server/checks/client_needs.hpp"
#include "server/checks/subjects.hpp"

namespace hostadm::server {

namespace {

constexpr off_t smallest_swap = 4096; // a page

// A PC swaps only to a file without holes that says what it is.
std::string give_size(const std::string &path, const std::string &size, bool for_a_pc) {
    return for_a_pc ? "fallocate -l " + size + " " + path + " && mkswap " + path
                    : "truncate -s " + size + " " + path;
}

std::string make_file(const std::string &path) {
    return "mkdir -p \"$(dirname " + path + ")\" && rm -f " + path + " && install -m 600 /dev/null " + path;
}

} // namespace

Findings swap_files_of_client(const Snapshot &server, const CheckedClient &client) {
    Findings found;
    for (const Need &need : needs_of(server, client)) {
        if (need.key == "root")
            continue;
        const std::string &path = need.path;
        const bool swap = need.key == "swap";
        const std::string filled = give_size(path, "32M", client.kind == ClientKind::pc);
        const std::string again = make_file(path) + (swap ? " && " + filled : "");
        const auto add = [&](Severity severity, const std::string &what, const std::string &repair) {
            found.push_back(
                {.severity = severity,
                 .stage = Stage::swap,
                 .client = client.name,
                 .where = path,
                 .what = what,
                 .why = swap ? base::tr("{1} has no room to swap, and stops when its memory is full",
                                        client.name)
                             : base::tr("{1} cannot keep a dump of a crash", client.name),
                 .repair = repair});
        };
        struct stat file {};
        if (lstat(path.c_str(), &file) != 0) {
            add(Severity::error, base::tr("the {1} file of {2} is missing", need.key, client.name), again);
            continue;
        }
        if (S_ISLNK(file.st_mode)) {
            add(Severity::error,
                base::tr("the {1} file of {2} is a link, which the client follows on its own side", need.key,
                         client.name),
                again);
            continue;
        }
        if (S_ISDIR(file.st_mode)) {
            // A directory in which the client keeps the file itself.
            continue;
        }
        if (!S_ISREG(file.st_mode)) {
            add(Severity::error, base::tr("the {1} file of {2} is no plain file", need.key, client.name),
                again);
            continue;
        }
        if (swap && file.st_size < smallest_swap)
            add(Severity::error,
                file.st_size == 0 ? base::tr("it is empty")
                                  : base::tr("it has {1} bytes, less than a page", file.st_size),
                filled);
        if ((file.st_mode & 0600) != 0600)
            add(Severity::warning, base::tr("its owner may not read and write it"), "chmod 600 " + path);
        else if ((file.st_mode & 0007) != 0)
            add(Severity::warning,
                base::tr("everybody may read or write it, and the memory of {1} is in it", client.name),
                "chmod 600 " + path);
        if (file.st_uid != 0)
            add(Severity::warning, base::tr("it belongs to user {1}, not to root", file.st_uid),
                "chown root " + path);
    }
    return found;
}

} // namespace hostadm::server
