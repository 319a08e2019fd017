// SPDX-License-Identifier: MIT
// The file systems that clients write to: room, inodes, read-only ones.
#include <map>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

#include "base/translation.hpp"
#include "server/checks/client_needs.hpp"
#include "server/checks/subjects.hpp"

namespace hostadm::server {

namespace {

constexpr std::uint64_t little = 64 << 10;

struct Use {
    std::string path, client, key;
    std::uint64_t unwritten = 0; // of swap files: room that is promised and not taken yet
};

} // namespace

Findings disk_space_of_server(const Snapshot &server) {
    Findings found;
    std::map<std::string, Use> uses; // by mount point, the first of each
    for (const CheckedClient &client : server.clients)
        for (const Need &need : needs_of(server, client)) {
            const Mount *mount = need.exists ? mount_of(server.mounts, need.path) : nullptr;
            if (mount == nullptr)
                continue;
            Use &use = uses.try_emplace(mount->point, Use{need.path, client.name, need.key, 0}).first->second;
            struct stat file {};
            if (need.is_file && lstat(need.path.c_str(), &file) == 0 && S_ISREG(file.st_mode)) {
                const auto taken = static_cast<std::uint64_t>(file.st_blocks) * 512;
                if (const auto size = static_cast<std::uint64_t>(file.st_size); size > taken)
                    use.unwritten += size - taken;
            }
        }
    for (const auto &[point, use] : uses) {
        const Mount *mount = mount_of(server.mounts, use.path);
        const Stage stage = use.key == "root" ? Stage::start : Stage::swap;
        const auto add = [&, &point = point](Severity severity, const std::string &what,
                                             const std::string &why, const std::string &repair) {
            found.push_back({.severity = severity,
                             .stage = stage,
                             .where = point,
                             .what = what,
                             .why = why,
                             .repair = repair});
        };
        if (mount->read_only) {
            add(Severity::error, base::tr("the file system is mounted read-only"),
                base::tr("no client can write there, among them {1}", use.client),
                "mount -o remount,rw " + point);
            continue;
        }
        const Room room = server.live.room_at(use.path);
        if (!room.known)
            continue;
        if (room.free_bytes < little)
            add(Severity::error, base::tr("the file system is full"),
                base::tr("no client can write there, among them {1}", use.client),
                "du -xh --max-depth=2 " + point + " | sort -h | tail");
        else if (!room.has_inodes)
            add(Severity::error, base::tr("the file system has no inodes left"),
                base::tr("no client can make a file there, among them {1}", use.client),
                "du -x --inodes --max-depth=2 " + point + " | sort -n | tail");
        else if (use.unwritten > room.free_bytes)
            add(Severity::warning,
                base::tr("the swap and dump files there may grow by {1} MB, and {2} MB are free",
                         use.unwritten >> 20, room.free_bytes >> 20),
                base::tr("a client that swaps stops when the file system is full"), "df -h " + point);
    }
    return found;
}

} // namespace hostadm::server
