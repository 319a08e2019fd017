// SPDX-License-Identifier: MIT
#include "server/broken_runs.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "base/private_folder.hpp"
#include "base/translation.hpp"
#include "server/failure.hpp"
#include "server/transaction.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;
using base::tr;

namespace {

constexpr std::pair<Claim::Kind, const char *> kinds[] = {{Claim::Kind::name, "name"},
                                                          {Claim::Kind::address, "address"},
                                                          {Claim::Kind::ethernet, "ethernet"},
                                                          {Claim::Kind::path, "path"}};

// A preview shows no folder that was made only for the time of a run.
void remove_if_empty(const std::string &folder) {
    if (rmdir(folder.c_str()) == 0)
        rmdir(fs::path(folder).parent_path().c_str());
}

// Who looks for broken runs holds it for a moment.
bool is_locked(const base::Descriptor &file) {
    int status = 0;
    while ((status = flock(file.get(), LOCK_EX)) != 0 && errno == EINTR)
        continue;
    return status == 0;
}

bool is_there(const base::Descriptor &file) {
    struct stat held {};
    return fstat(file.get(), &held) == 0 && held.st_nlink > 0;
}

base::Descriptor make_file(const std::string &folder, std::string &path) {
    for (int round = 0;; ++round) {
        const base::Descriptor place = base::private_folder(folder);
        path = folder + "/XXXXXX";
        base::Descriptor file(place.is_open() ? mkostemp(path.data(), O_CLOEXEC) : -1);
        // Another run that has just ended may have taken the empty folder away.
        if (!file.is_open() && errno == ENOENT && round < 100)
            continue;
        if (!file.is_open())
            fail_errno(tr("cannot note in {1} what is done", folder));
        if (!is_locked(file) || fsync(place.get()) != 0)
            fail_errno(tr("cannot note in {1} what is done", folder));
        // Who looks for broken runs may have had the lock first, and removed it for a run that had not begun.
        if (is_there(file))
            return file;
        if (round >= 100)
            fail(Code::busy, tr("cannot note in {1} what is done", folder));
    }
}

// Its file, locked; not open when a process of it lives, or the file is nobody's that could have been root's.
base::Descriptor lock_broken_run(const std::string &path) {
    base::Descriptor file(open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat held {
    }, there{};
    if (!file.is_open() || flock(file.get(), LOCK_EX | LOCK_NB) != 0 || fstat(file.get(), &held) != 0 ||
        !S_ISREG(held.st_mode) || stat(path.c_str(), &there) != 0 || there.st_ino != held.st_ino)
        return {};
    return file;
}

std::optional<BrokenRun> read_broken_run(const std::string &path, const base::Descriptor &file) {
    BrokenRun run{.path = path, .method = {}, .subject = {}, .entries = read_entries(file)};
    // A step was begun only when its entry was on the disk whole.
    if (!run.entries.empty() && !read_any_entry(run.entries.back()))
        run.entries.pop_back();
    if (run.entries.empty())
        return run;
    const auto first = read_entry<BegunRun>(run.entries.front());
    if (!first)
        return std::nullopt;
    run.method = first->method;
    run.subject = first->subject;
    run.entries.erase(run.entries.begin());
    return run;
}

std::vector<std::string> files_in(const std::string &folder) {
    std::vector<std::string> files;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
        files.push_back(entry->path());
    if (error && error != std::errc::no_such_file_or_directory)
        fail(Code::system, tr("cannot look through {1}: {2}", folder, error.message()));
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<Claim> claims_of(const BrokenRun &run) {
    std::vector<Claim> claims = {{Claim::Kind::name, run.subject}};
    for (const Written &words : run.entries)
        if (const auto claimed = read_entry<Claimed>(words))
            for (const auto &[kind, name] : kinds)
                if (claimed->what == name)
                    claims.push_back({kind, claimed->value});
    return claims;
}

void remove_for_good(const std::string &folder, const std::string &path) {
    const base::Descriptor place(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if ((unlink(path.c_str()) != 0 && errno != ENOENT) || (place.is_open() && fsync(place.get()) != 0))
        fail_errno(tr("cannot remove {1}", path));
    remove_if_empty(folder);
}

void take_back_run(method::Call &call, const BrokenRun &run) {
    const std::string cut_off = tr("{1}: {2} of {3} was cut off", call.method(), run.method, run.subject);
    if (take_back_entries(call, run.entries, {run.method.substr(run.method.rfind('/') + 1)}))
        std::fputs((cut_off + "; " + tr("all that it had done has been taken back") + "\n").c_str(), stderr);
    else
        std::fputs((cut_off + "; " + tr("part of what it had done could not be taken back") + "\n").c_str(),
                   stderr);
}

} // namespace

std::string take_back(const BegunRun &, const UndoContext &) {
    return "";
}

std::string take_back(const Claimed &, const UndoContext &) {
    return "";
}

void note_claims(Journal &journal, const std::vector<Claim> &claims) {
    for (const Claim &claim : claims)
        for (const auto &[kind, name] : kinds)
            if (claim.kind == kind)
                journal.note(Claimed{name, claim.value});
}

KeptFile::KeptFile(const std::string &method, const std::string &subject, const std::string &folder)
    : folder_(folder), file_(make_file(folder, path_)) {
    Journal(descriptor(), Journal::Lasts::beyond_the_machine).note(BegunRun{method, subject});
}

base::Descriptor KeptFile::descriptor() const {
    base::Descriptor copy(fcntl(file_.get(), F_DUPFD_CLOEXEC, 0));
    if (!copy.is_open())
        fail_errno(tr("cannot note in {1} what is done", path_));
    return copy;
}

void KeptFile::forget() {
    remove_for_good(folder_, path_);
}

std::vector<BrokenRun> broken_runs(const std::string &folder) {
    std::vector<BrokenRun> runs;
    for (const std::string &path : files_in(folder))
        if (const base::Descriptor file = lock_broken_run(path); file.is_open())
            if (const auto run = read_broken_run(path, file); run && !run->entries.empty())
                runs.push_back(*run);
    return runs;
}

void take_back_broken_runs(method::Call &call, const std::string &folder, const std::string &claims_folder) {
    for (const std::string &path : files_in(folder)) {
        const base::Descriptor file = lock_broken_run(path);
        if (!file.is_open())
            continue;
        const std::optional<BrokenRun> run = read_broken_run(path, file);
        if (!run)
            continue;
        std::optional<Claims> claims;
        try {
            if (!run->entries.empty())
                claims.emplace(run->method, run->subject, claims_of(*run), claims_folder);
        } catch (const Failure &taken) {
            if (taken.code() != Code::busy)
                throw;
            continue;
        }
        if (!run->entries.empty())
            take_back_run(call, *run);
        remove_for_good(folder, path);
    }
}

} // namespace hostadm::server
