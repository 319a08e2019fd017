// SPDX-License-Identifier: MIT
// The stages over NFS: mount, read, write, swap.
#include <algorithm>
#include <cerrno>
#include <sys/stat.h>

#include "base/text.hpp"
#include "base/this_host.hpp"
#include "base/translation.hpp"
#include "rehearsal/nfs.hpp"
#include "rehearsal/stages.hpp"
#include "server/roots.hpp"

namespace hostadm::rehearsal {

namespace {

using server::Severity;
using server::Stage;

// Of those that systems look for, in that order.
constexpr const char *first_processes[] = {"/sbin/init", "/etc/init", "/usr/sbin/init",
                                           "/bin/init",  "/init",     "/lib/systemd/systemd"};
constexpr const char *mount_tables[] = {"/etc/vfstab", "/etc/fstab"};
constexpr const char *console = "/dev/console";

std::string said_by(const Started &daemon) {
    std::string text;
    if (!daemon.failure.empty())
        text = "; " + daemon.start.name + " " + daemon.failure;
    return daemon.said.empty() ? text : base::tr("{1}; it says: {2}", text, daemon.said);
}

std::string in_words(const NfsFailure &failure) {
    switch (failure.error) {
    case EACCES:
    case EPERM:
        return base::tr("access denied ({1})", failure.what());
    case ETIMEDOUT:
        return base::tr("no answer");
    default:
        return failure.what();
    }
}

std::string parent_of(const std::string &path) {
    const std::size_t slash = path.rfind('/');
    return slash == 0 || slash == path.npos ? "/" : path.substr(0, slash);
}

std::string name_of_file(const std::string &path) {
    return path.substr(path.rfind('/') + 1);
}

std::string share_command(const std::string &path, const std::string &client) {
    return "hostadm run filesystem/share path=" + path + " options=rw=" + client + ",root=" + client;
}

// Where the table of mounts names an NFS file system: what, and its mount point.
struct TableMount {
    std::string server, path, mount_point;
};

std::vector<TableMount> nfs_mounts_in(const std::string &table) {
    std::vector<TableMount> mounts;
    base::for_each_line(table, [&](std::string_view line) {
        const auto words = base::words_of(line);
        if (words.size() < 3 || words[0].front() == '#')
            return;
        const std::size_t colon = words[0].find(':');
        if (colon == words[0].npos || colon == 0 || words[0].find('/') < colon ||
            colon + 1 >= words[0].size() || words[0][colon + 1] != '/')
            return;
        // RESOURCE FSCK-DEVICE MOUNT-POINT TYPE in the one, RESOURCE MOUNT-POINT TYPE in the other.
        const bool has_fsck_column = words[1] == "-" || (words.size() > 3 && words[3].starts_with("nfs"));
        mounts.push_back({std::string(words[0].substr(0, colon)), std::string(words[0].substr(colon + 1)),
                          std::string(has_fsck_column ? words[2] : words[1])});
    });
    return mounts;
}

void try_mount_of_table(Journey &journey, const TableMount &mount, const std::string &table) {
    const std::string resource = mount.server + ":" + mount.path;
    const std::string address = base::address_of_host(mount.server);
    const Started &daemon = journey.daemon(Service::nfs);
    // A file that it swaps on, or dumps to, is tried as that.
    struct stat here {};
    if (is_own_address(journey.network, address) && stat(mount.path.c_str(), &here) == 0 &&
        S_ISREG(here.st_mode))
        return;
    if (address.empty() || !is_own_address(journey.network, address)) {
        journey.walked.not_tried.push_back(
            base::tr("{1}, which {2} of the client mounts on {3}: it is not on this server", resource, table,
                     mount.mount_point));
        return;
    }
    try {
        const NfsDirectory directory(journey.files.at("root").address, mount.path);
        journey.note(daemon.start.name, base::tr("mount {1} on {2}", mount.path, mount.mount_point),
                     base::tr("mounted"), true);
    } catch (const NfsFailure &failure) {
        journey.note(daemon.start.name, base::tr("mount {1} on {2}", mount.path, mount.mount_point),
                     in_words(failure), failure.error != ETIMEDOUT);
        journey.find(Severity::error, Stage::start, journey.files.at("root").path + table,
                     base::tr("{1}, which is to be mounted on {2}, cannot be mounted: {3}", resource,
                              mount.mount_point, in_words(failure)),
                     base::tr("{1} stops, or goes on without {2}", journey.client.name, mount.mount_point),
                     "hostadm check " + journey.client.name);
    }
}

// What a client that installs itself is told beside its root: each is a directory that it mounts. What cannot be
// mounted, or nothing.
std::string try_other_directories(Journey &journey) {
    const Started &daemon = journey.daemon(Service::nfs);
    for (const auto &[key, file] : journey.files) {
        struct stat here {};
        const bool is_directory = stat(file.path.c_str(), &here) == 0 && S_ISDIR(here.st_mode);
        if (key == "root" || key == "swap" || key == "dump" || (!is_directory && key != "install"))
            continue;
        try {
            const NfsDirectory directory(file.address, file.path);
            journey.note(daemon.start.name, base::tr("mount its {1} {2}", key, file.path),
                         base::tr("mounted"), true);
        } catch (const NfsFailure &failure) {
            journey.note(daemon.start.name, base::tr("mount its {1} {2}", key, file.path), in_words(failure),
                         failure.error != ETIMEDOUT);
            journey.find(Severity::error, Stage::start, file.path,
                         base::tr("the {1} of {2} cannot be mounted: {3}", key, journey.client.name,
                                  in_words(failure)),
                         base::tr("{1} starts and finds nothing to install", journey.client.name),
                         "hostadm run filesystem/share path=" + file.path + " options=ro,anon=0");
            return file.path + ": " + in_words(failure);
        }
    }
    return {};
}

// A program that the client can start: what is wrong with it, or nothing.
std::string defect_of_program(NfsDirectory &root, const std::string &path) {
    const NfsFile file = root.look(path);
    if (!S_ISREG(file.mode))
        return base::tr("is no file");
    if ((file.mode & 0111) == 0)
        return base::tr("may be executed by nobody");
    if (file.size == 0)
        return base::tr("is empty");
    const std::string head = root.read(path, 256);
    if (!head.starts_with("#!"))
        return {};
    const std::string interpreter(base::first_word(base::trimmed(
        std::string_view(head).substr(2, head.find('\n') == head.npos ? head.npos : head.find('\n') - 2))));
    const auto resolved = root.resolved(interpreter);
    if (!resolved)
        return base::tr("needs {1}, which is not there", interpreter);
    return (root.look(*resolved).mode & 0111) == 0
               ? base::tr("needs {1}, which may be executed by nobody", interpreter)
               : "";
}

} // namespace

namespace {

const char *no_root_here() {
    return base::tr("its root is on its own disk");
}

} // namespace

StageEnd mount_root(Journey &journey) {
    if (!journey.files.contains("root"))
        return skipped(no_root_here());
    if (journey.client.kind == server::ClientKind::cache_only)
        journey.walked.not_tried.push_back(base::tr("the cache on its own disk"));
    const FileOfClient &root = journey.files.at("root");
    const Started &daemon = journey.daemon(Service::nfs);
    const std::string question = base::tr("mount {1}", root.path);
    if (daemon.start.in_kernel) {
        journey.walked.not_tried.push_back(
            base::tr("everything by NFS: the server is in the kernel and cannot be started a second time; "
                     "its list of exports is compared instead"));
        return skipped(base::tr("the NFS server is in the kernel"));
    }
    try {
        const NfsDirectory directory(root.address, root.path);
        journey.note(daemon.start.name, question, base::tr("mounted"), true);
        return passed(root.address + ":" + root.path);
    } catch (const NfsFailure &failure) {
        journey.note(daemon.start.name, question, in_words(failure), failure.error != ETIMEDOUT);
        const bool is_silent = failure.error == ETIMEDOUT && daemon.failure.empty();
        journey.find(
            Severity::error, Stage::root, is_silent ? where_of(daemon) : root.path,
            is_silent
                ? base::tr("{1} cannot be mounted by {2} ({3}): {4}; {5}", root.path, journey.client.name,
                           journey.own_address, in_words(failure), what_lies_between(journey))
                : base::tr("{1} cannot be mounted by {2} ({3}): {4}{5}", root.path, journey.client.name,
                           journey.own_address, in_words(failure), said_by(daemon)),
            base::tr("{1} has no root and stops", journey.client.name),
            daemon.start.program.empty() ? "apt-get install nfs-ganesha nfs-ganesha-vfs"
            : is_silent                  ? "hostadm check " + journey.client.name
                                         : share_command(root.path, journey.client.name));
        return failed(root.path + ": " + in_words(failure));
    }
}

StageEnd read_what_starts(Journey &journey) {
    if (!journey.files.contains("root"))
        return skipped(no_root_here());
    const BootingClient &client = journey.client;
    const FileOfClient &file = journey.files.at("root");
    const Started &daemon = journey.daemon(Service::nfs);
    if (daemon.start.in_kernel)
        return skipped(base::tr("the NFS server is in the kernel"));
    NfsDirectory root(file.address, file.path);
    std::string at = "/", first;
    const auto stop = [&](const std::string &where, const std::string &what) {
        journey.note(daemon.start.name, base::tr("read {1}", where), what, true);
        journey.find(Severity::error, Stage::start, file.path + where, what,
                     base::tr("{1} mounts its root and cannot start from it", client.name),
                     "hostadm check " + client.name);
        return failed(where + ": " + what);
    };
    try {
        for (const char *candidate : first_processes) {
            at = candidate;
            const auto resolved = root.resolved(candidate);
            if (!resolved)
                continue;
            if (const std::string defect = defect_of_program(root, *resolved); !defect.empty())
                return stop(*resolved, base::tr("the first process {1}", defect));
            root.read(*resolved, std::size_t{1} << 20);
            first = candidate;
            break;
        }
        if (first.empty())
            return stop("/sbin/init", base::tr("there is no first process: neither this nor /etc/init"));
        at = console;
        if (const auto resolved = root.resolved(console))
            if (!S_ISCHR(root.look(*resolved).mode))
                return stop(*resolved, base::tr("the console is no character device"));
        for (const char *table : mount_tables) {
            at = table;
            if (const auto resolved = root.resolved(table))
                for (const TableMount &mount : nfs_mounts_in(root.read(*resolved, std::size_t{1} << 20)))
                    try_mount_of_table(journey, mount, table);
        }
        if (const std::string missing = try_other_directories(journey); !missing.empty())
            return failed(missing);
    } catch (const NfsFailure &failure) {
        return stop(
            at, base::tr("it cannot be read by the root user of {1}: {2}", client.name, in_words(failure)));
    }
    journey.note(daemon.start.name, base::tr("read {1}, mount table", first), "read", true);
    return passed(base::tr("{1} and the mount table can be read", first));
}

StageEnd write_to_root(Journey &journey) {
    if (!journey.files.contains("root"))
        return skipped(no_root_here());
    const BootingClient &client = journey.client;
    const FileOfClient &file = journey.files.at("root");
    const Started &daemon = journey.daemon(Service::nfs);
    if (daemon.start.in_kernel)
        return skipped(base::tr("the NFS server is in the kernel"));
    if (client.installs())
        return skipped(base::tr("a client that installs itself does not write to it"));
    constexpr const char *name = "/.hostadm-rehearsal";
    try {
        NfsDirectory root(file.address, file.path);
        const NfsFile written = root.try_writing(name, "written by a client\n");
        journey.note(daemon.start.name, base::tr("write a file"), base::tr("written"), true);
        if (written.owner == 0)
            return passed(base::tr("a file of root's, made, read and removed"));
        journey.find(
            Severity::error, Stage::start, file.path,
            base::tr("what the root user of {1} writes belongs to user {2}: root={1} is missing in the share",
                     client.name, written.owner),
            base::tr("{1} cannot read its own files again", client.name),
            share_command(file.path, client.name));
        return failed(base::tr("files of root belong to user {1}", written.owner));
    } catch (const NfsFailure &failure) {
        journey.note(daemon.start.name, base::tr("write a file"), in_words(failure),
                     failure.error != ETIMEDOUT);
        journey.find(Severity::error, Stage::start, file.path,
                     base::tr("the root user of {1} cannot write there: {2}", client.name, in_words(failure)),
                     base::tr("{1} starts and cannot work", client.name),
                     share_command(file.path, client.name));
        return failed(file.path + ": " + in_words(failure));
    }
}

StageEnd use_swap(Journey &journey) {
    const BootingClient &client = journey.client;
    const Started &daemon = journey.daemon(Service::nfs);
    if (daemon.start.in_kernel)
        return skipped(base::tr("the NFS server is in the kernel"));
    if (!journey.files.contains("swap"))
        return skipped(base::tr("it has none"));
    std::string detail;
    for (const char *key : {"swap", "dump"}) {
        if (!journey.files.contains(key))
            continue;
        const FileOfClient &file = journey.files.at(key);
        const std::string question = base::tr("write to its {1} {2}", key, file.path);
        // Many servers hand on directories only; then the file is reached through the one that holds it.
        struct stat here {};
        const bool is_directory = stat(file.path.c_str(), &here) == 0 && S_ISDIR(here.st_mode);
        try {
            NfsDirectory directory(file.address, is_directory ? file.path : parent_of(file.path));
            if (is_directory) {
                directory.try_writing("/.hostadm-rehearsal", "a page");
                detail += (detail.empty() ? "" : ", ") + file.path;
            } else {
                const std::string path = '/' + name_of_file(file.path);
                const NfsFile found = directory.look(path);
                if (!S_ISREG(found.mode))
                    throw NfsFailure(EINVAL, base::tr("it is no file"));
                if (found.size == 0)
                    throw NfsFailure(ENOSPC, base::tr("it is empty"));
                directory.read(path, 8192);
                // A large file would be copied whole into the throwaway root by the first write.
                constexpr blkcnt_t most_blocks = (64 << 20) / 512;
                if (here.st_blocks <= most_blocks)
                    directory.write_into(path, directory.read(path, 512));
                else if (!directory.may_write(path))
                    throw NfsFailure(EACCES, base::tr("it may not be written"));
                detail += (detail.empty() ? "" : ", ") + file.path + " (" + std::to_string(found.size >> 20) +
                          " MB)";
            }
            journey.note(daemon.start.name, question, "written", true);
        } catch (const NfsFailure &failure) {
            journey.note(daemon.start.name, question, in_words(failure), failure.error != ETIMEDOUT);
            journey.find(Severity::error, Stage::swap, file.path,
                         base::tr("the {1} of {2} cannot be used: {3}", key, client.name, in_words(failure)),
                         base::tr("{1} has no {2}", client.name, key),
                         failure.error == ENOENT
                             ? "hostadm check " + client.name
                             : share_command(server::share_path_of(file.path, client.name), client.name));
            return failed(file.path + ": " + in_words(failure));
        }
    }
    return passed(detail);
}

} // namespace hostadm::rehearsal
