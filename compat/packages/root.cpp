// SPDX-License-Identifier: MIT
#include "compat/packages/root.hpp"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <linux/openat2.h>
#include <map>
#include <string_view>
#include <sys/file.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace compat {
namespace {

const std::map<std::string_view, unsigned> usual_users = {{"root", 0}, {"daemon", 1},    {"bin", 2},
                                                          {"sys", 3},  {"adm", 4},       {"uucp", 5},
                                                          {"lp", 71},  {"nobody", 60001}};
const std::map<std::string_view, unsigned> usual_groups = {
    {"root", 0}, {"other", 1}, {"bin", 2}, {"sys", 3},    {"adm", 4},     {"uucp", 5},
    {"mail", 6}, {"tty", 7},   {"lp", 8},  {"staff", 10}, {"daemon", 12}, {"nobody", 60001}};

unsigned look_up(const std::string &table, const std::string &name, const char *kind,
                 const std::map<std::string_view, unsigned> &usual) {
    if (name.empty() || name == "?")
        return 0;
    unsigned number = 0;
    for (const std::string &line : split(table, '\n')) {
        const std::vector<std::string> fields = split(line, ':');
        if (fields.size() >= 3 && fields[0] == name &&
            std::from_chars(fields[2].data(), fields[2].data() + fields[2].size(), number).ec == std::errc())
            return number;
    }
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    if (error == std::errc() && end == name.data() + name.size())
        return number;
    if (const auto found = usual.find(name); found != usual.end())
        return found->second;
    throw Failure(std::string("the ") + kind + " " + name + " is in no table of the root");
}

} // namespace

std::string directory_part(const std::string &path) {
    const size_t slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string last_part(const std::string &path) {
    return path.substr(path.rfind('/') + 1);
}

Root::Root(const std::string &path)
    : path_(path), opened_(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (!opened_)
        fail_with_errno("the root " + path);
}

void Root::lock(const std::function<void()> &waiting) const {
    // The directory itself is locked: no lock file is left in a client's tree.
    for (int tries = 0; flock(opened_.get(), LOCK_EX | LOCK_NB) != 0; ++tries) {
        if (errno != EWOULDBLOCK && errno != EINTR)
            fail_with_errno("cannot lock " + path_);
        if (tries >= 30000)
            throw Failure("another installation into " + path_ + " has run for five minutes");
        waiting();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

Descriptor Root::open(const std::string &path, int flags) const {
    open_how how = {};
    how.flags = static_cast<uint64_t>(flags | O_CLOEXEC);
    how.resolve = RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS;
    for (;;) {
        const long number = syscall(SYS_openat2, opened_.get(), path.c_str(), &how, sizeof how);
        // The kernel gives up a look-up with ".." that something else was renamed under.
        if (number >= 0 || (errno != EAGAIN && errno != EINTR))
            return Descriptor(static_cast<int>(number));
    }
}

Descriptor Root::directory(const std::string &path) const {
    return open(path, O_PATH | O_DIRECTORY);
}

Descriptor Root::parent_of(const std::string &path) const {
    Descriptor parent = directory(directory_part(path));
    if (!parent)
        fail_with_errno(directory_part(path));
    return parent;
}

std::optional<struct stat> Root::status(const std::string &path) const {
    const Descriptor parent = directory(directory_part(path));
    struct stat info = {};
    if (!parent ||
        fstatat(parent.get(), path == "/" ? "." : last_part(path).c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
        return std::nullopt;
    return info;
}

std::optional<std::string> Root::read(const std::string &path) const {
    const Descriptor file = open(path, O_RDONLY);
    if (!file) {
        if (errno == ENOENT)
            return std::nullopt;
        fail_with_errno(path);
    }
    return read_all(file.get(), path);
}

Accounts::Accounts(const Root &root)
    : passwd_(root.read("/etc/passwd").value_or("")), group_(root.read("/etc/group").value_or("")) {}

uid_t Accounts::user(const std::string &name) const {
    return look_up(passwd_, name, "user", usual_users);
}
gid_t Accounts::group(const std::string &name) const {
    return look_up(group_, name, "group", usual_groups);
}

} // namespace compat
