// SPDX-License-Identifier: MIT
//
// A throwaway root: runs a command on a private copy of the running system and tells what it changed there.
//
//     using namespace hostadm::sandbox;
//
//     Options options;
//     options.command = {"/bin/sh", "-c", "echo '127.0.1.1 box' >>/etc/hosts"};
//     options.keep_changes = true;
//     const Outcome outcome = run(options);
//     for (const Change &change : outcome.changes.list())
//         std::cout << change.path << '\n';
//
// What the command sees and what becomes of it:
//
// - Every file system of the running system, at its place, whatever it holds at the moment. What the
//   command writes, removes or renames there stays private: it goes to memory, and the running system never
//   sees it. A file system that cannot be layered is there read-only. A single file that is mounted over
//   another is there as a writable copy.
// - Device files cannot be opened, but for the harmless ones (null, zero, full, random, urandom, tty,
//   terminals).
// - /run is empty but for /run/lock, so that no daemon of the running system can be talked to.
// - Its own processes, network (loopback only), host name, System V and POSIX message queues. /proc shows its
//   own processes, or the running system's, read-only (live_processes).
// - HOSTADM_SANDBOX=1 stands in its environment. Its working directory is the caller's.
//
// When the command ends, everything that it started ends with it. So it does when
// the time limit has passed, when the caller gets INT, TERM, HUP or QUIT, and when
// the caller itself is killed. Nothing stays behind: no mount, no process, no file.
//
// Root is needed (CAP_SYS_ADMIN): the kernel lets nobody else layer over "/". By itself the private copy
// keeps a well-meaning command from changing the host; it is no prison for a hostile one, which is root after
// all.
//
// A confined command is root in a user name space of its own: its rights are those over files and over its
// own processes and mounts. It holds against one that
// - goes to the running system through /proc/ID/root, ID/cwd, ID/fd or ID/mem of its processes, enters one of
//   their name spaces, traces one or signals one;
// - opens files by their number, makes a device node or a mount of its own to open a disk, or makes a mount
//   writable that it found read-only;
// - sets the clock, reads or clears the kernel's log, loads a module, changes the kernel's settings, restarts
//   the machine or turns swap space on or off;
// - looks what the running system's processes do: it sees their numbers, owners, names and states, by which it
//   tells whether a daemon runs, and of root's daemons the words that they were started with (Linux 5.8);
// - types into the terminal that it was started from;
// - talks to anybody over the network, or changes the network.
// It does not hold against one that uses a fault of the kernel, that fills the memory or takes the time of
// the processors, or that reads what only root may read and shows it.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <system_error>
#include <vector>

namespace hostadm::sandbox {

// A file to stand in the private root before the command starts; it does not count as a change.
struct PlacedFile {
    std::string path; // absolute; missing directories above it are made
    std::string content;
    mode_t mode = 0755;
};

struct Options {
    // What to run: a program and its arguments, looked up in PATH ...
    std::vector<std::string> command = {};
    // ... or, when no command is given, a function, whose result is the exit status.
    std::function<int()> work = {};

    // Directories of the running system that are shared with it, writable.
    std::vector<std::string> binds = {};
    // Directories whose contents are copied over the private root first.
    std::vector<std::string> seeds = {};
    // Files put there first, after the seeds.
    std::vector<PlacedFile> files = {};

    std::chrono::milliseconds time_limit{0}; // 0: none
    std::string host_name;                   // empty: as the running system's
    bool live_processes = false;             // /proc shows the running system's processes
    bool live_network = false; // its interfaces, addresses and routes, on cables that lead nowhere
    bool confined = false;     // without the rights that lead out of the root; see above
    bool keep_changes = false; // collect what changed
    bool exportable = false;   // an NFS server can hand on the layered file systems, where the kernel lets it
};

// What could not be done. what() names the step and the system's reason.
class Error : public std::system_error {
public:
    enum class Kind {
        unavailable, // this user or this kernel may not make a private root
        setup,       // a step of making it failed
        command      // the command could not be started
    };
    Error(Kind kind, int error, const std::string &step)
        : std::system_error(error, std::generic_category(), step), kind_(kind) {}
    Kind kind() const { return kind_; }

private:
    Kind kind_;
};

enum class FileType { none, regular, directory, link, other };

// One side of a change; `none` where there is no such file.
struct FileState {
    FileType type = FileType::none;
    mode_t mode = 0; // permission bits and set-id bits
    uid_t uid = 0;
    gid_t gid = 0;
    std::uint64_t size = 0;
    dev_t device = 0;   // of a device file
    std::string target; // of a symbolic link
};

// One file that differs from what the command found. A directory that went is told in one change for all that
// was in it; one that came is told with each of its files.
struct Change {
    std::string path;
    FileState before;
    FileState after;
    bool content_differs = false; // of a regular file on both sides
    std::size_t area = 0;         // which file system it lies on: an index of Changes' own

    bool added() const { return before.type == FileType::none; }
    bool removed() const { return after.type == FileType::none; }
};

// What a run changed, in the order of paths, with the contents of both sides for as long as the object lives.
class Changes {
public:
    Changes();
    ~Changes();
    Changes(Changes &&) noexcept;
    Changes &operator=(Changes &&) noexcept;

    const std::vector<Change> &list() const { return list_; }

    // A descriptor of the regular file as the command found or left it,
    // for the caller to close; -1 with errno on failure.
    int open_before(const Change &change) const;
    int open_after(const Change &change) const;
    // How many files (directories not counted) a directory held before, with all below it.
    std::size_t files_before(const Change &change) const;
    // Content of any file as it was left, changed or not; absent when it cannot be read.
    std::optional<std::string> read_after(const std::string &path) const;

    struct Areas; // the file systems' layers
    explicit Changes(std::unique_ptr<Areas> areas);
    void collect();

private:
    std::unique_ptr<Areas> areas_;
    std::vector<Change> list_;
};

struct Outcome {
    int exit_status = 0;    // the command's; 128 + signal when a signal ended it; 124 when the time ran out
    bool timed_out = false; // ended at the time limit
    int interrupted_by = 0; // the signal to the caller that ended it, else 0
    std::vector<std::string> read_only; // mount points that could not be layered and were there read-only
    Changes changes;                    // empty unless keep_changes was set
};

// Runs the command (or the work) to its end in a new private root. While it runs, INT, TERM, HUP and QUIT
// sent to the caller end it and are reported in the outcome, not acted upon otherwise. Throws Error.
Outcome run(const Options &options);

} // namespace hostadm::sandbox
