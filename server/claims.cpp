// SPDX-License-Identifier: MIT
#include "server/claims.hpp"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <netinet/ether.h>
#include <optional>
#include <random>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>

#include "base/private_folder.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/failure.hpp"
#include "server/roots.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

// One file for each run, locked by it: METHOD<tab>PID<tab>SUBJECT, then a line KIND<tab>VALUE for each claim. Its
// lock tells whether the run is still there. Files are made, read and removed under the lock of the folder.
// The critical section is short: who waits this long waits for a process that was stopped in it.
base::Descriptor locked(const std::string &path) {
    base::Descriptor folder;
    for (const std::string &place : {fs::path(path).parent_path().string(), path}) {
        folder = base::private_folder(place);
        if (!folder.is_open())
            fail(Code::system, errno == EPERM
                                   ? base::tr("cannot keep locks in {1}: {2}; it must be root's own", place,
                                              std::strerror(errno))
                                   : base::tr("cannot keep locks in {1}: {2}", place, std::strerror(errno)));
    }
    constexpr auto patience = std::chrono::seconds(30);
    const auto end = std::chrono::steady_clock::now() + patience;
    while (flock(folder.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR)
            fail_errno(base::tr("cannot lock {1}", path));
        if (std::chrono::steady_clock::now() > end)
            fail(Code::busy, base::tr("{1} has been locked for half a minute; try again later", path));
        usleep(2'000);
    }
    return folder;
}

const char *name_of(Claim::Kind kind) {
    switch (kind) {
    case Claim::Kind::name:
        return "name";
    case Claim::Kind::address:
        return "address";
    case Claim::Kind::ethernet:
        return "ethernet";
    default:
        return "path";
    }
}

// The spelling in which claims can be compared.
std::string canonical(const Claim &claim) {
    in_addr address{};
    ether_addr ethernet{};
    switch (claim.kind) {
    case Claim::Kind::name:
        return base::lower_case(claim.value);
    case Claim::Kind::address:
        return inet_pton(AF_INET, claim.value.c_str(), &address) == 1 ? inet_ntoa(address) : claim.value;
    case Claim::Kind::ethernet:
        return ether_aton_r(claim.value.c_str(), &ethernet) != nullptr ? ether_ntoa(&ethernet) : claim.value;
    default:
        return claim.value;
    }
}

struct Held {
    std::string run, process, subject;
    std::vector<std::pair<std::string, std::string>> claims; // kind, value
};

Held parse(const std::string &text) {
    Held held;
    bool first = true;
    base::for_each_line(text, [&](std::string_view line) {
        const std::size_t tab = line.find('\t');
        const std::string head(line.substr(0, tab)), rest(tab == line.npos ? "" : line.substr(tab + 1));
        if (first) {
            const std::size_t next = rest.find('\t');
            held.run = head;
            held.process = rest.substr(0, next);
            held.subject = next == rest.npos ? "" : rest.substr(next + 1);
        } else {
            held.claims.emplace_back(head, rest);
        }
        first = false;
    });
    return held;
}

bool collide(const Claim &wanted, const std::string &kind, const std::string &value) {
    if (kind != name_of(wanted.kind))
        return false;
    const std::string ours = canonical(wanted);
    return wanted.kind == Claim::Kind::path ? is_at_or_below(ours, value) || is_at_or_below(value, ours)
                                            : ours == value;
}

[[noreturn]] void fail_claimed(const Claim &wanted, const std::string &value, const Held &holder) {
    if (wanted.kind == Claim::Kind::name)
        fail(
            Code::busy,
            base::tr(
                "somebody else is working on {1} at the moment ({2}, process {3}); try again when it is done",
                holder.subject, holder.run, holder.process));
    fail(Code::busy, base::tr("somebody else is working on {1} at the moment ({2}, process {3}) and has {4}; "
                              "try again when it is done",
                              holder.subject, holder.run, holder.process, value));
}

// What the run behind a file holds; nothing: it is over, and its file goes.
std::optional<Held> live_claims(const std::string &path) {
    const base::Descriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!file.is_open())
        return std::nullopt;
    if (flock(file.get(), LOCK_EX | LOCK_NB) == 0) {
        unlink(path.c_str());
        return std::nullopt;
    }
    return parse(base::read_whole(file.get()).value_or(""));
}

void check_others(const std::string &folder, const std::vector<Claim> &wanted, const std::string &own) {
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        if (entry->path() == own)
            continue;
        const std::optional<Held> held = live_claims(entry->path());
        if (!held)
            continue;
        for (const Claim &claim : wanted)
            for (const auto &[kind, value] : held->claims)
                if (collide(claim, kind, value))
                    fail_claimed(claim, value, *held);
    }
    if (error)
        fail(Code::system, base::tr("cannot look through {1}: {2}", folder, error.message()));
}

} // namespace

std::string Claims::default_folder() {
    return std::string(base::run_folder) + "/claims";
}

Claims::Claims(const std::string &run, const std::string &subject, const std::vector<Claim> &wanted,
               const std::string &folder)
    : folder_(folder) {
    if (geteuid() != 0)
        return;
    const base::Descriptor lock = locked(folder_);
    check_others(folder_, wanted, "");
    // Process numbers are used again, and are not the same everywhere.
    const std::string number = std::to_string(getpid());
    path_ = folder_ + "/" + number + "." + std::to_string(std::random_device()());
    file_ = base::Descriptor(open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file_.is_open() || flock(file_.get(), LOCK_EX | LOCK_NB) != 0)
        fail_errno(base::tr("cannot make {1}", path_));
    write(run + "\t" + number + "\t" + subject + "\n", wanted);
}

void Claims::add(const std::vector<Claim> &wanted) {
    if (!file_.is_open())
        return;
    const base::Descriptor lock = locked(folder_);
    check_others(folder_, wanted, path_);
    write("", wanted);
}

void Claims::write(std::string text, const std::vector<Claim> &wanted) {
    for (const Claim &claim : wanted)
        text += std::string(name_of(claim.kind)) + "\t" + canonical(claim) + "\n";
    if (!base::write_all(file_.get(), text))
        fail_errno(base::tr("cannot write {1}", path_));
}

Claims::~Claims() {
    if (file_.is_open())
        unlink(path_.c_str());
}

} // namespace hostadm::server
