// SPDX-License-Identifier: MIT
#include "compat/packages/root.hpp"

#include <cerrno>
#include <charconv>
#include <map>
#include <string_view>
#include <sys/file.h>
#include <thread>

#include "base/folder_lock.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "compat/support/failure.hpp"

namespace compat {

using hostadm::base::Beneath;
using hostadm::base::Links;

namespace {

const std::map<std::string_view, unsigned> usual_users = {{"root", 0}, {"daemon", 1},    {"bin", 2},
                                                          {"sys", 3},  {"adm", 4},       {"uucp", 5},
                                                          {"lp", 71},  {"nobody", 60001}};
const std::map<std::string_view, unsigned> usual_groups = {
    {"root", 0}, {"other", 1}, {"bin", 2}, {"sys", 3},    {"adm", 4},     {"uucp", 5},
    {"mail", 6}, {"tty", 7},   {"lp", 8},  {"staff", 10}, {"daemon", 12}, {"nobody", 60001}};

// Of a table in the root. What belongs to a client may be of any size.
constexpr std::size_t largest_text = 64U << 20U;

unsigned look_up(const std::string &table, const std::string &name, const char *kind,
                 const std::map<std::string_view, unsigned> &usual) {
    if (name.empty() || name == "?")
        return 0;
    unsigned number = 0;
    for (const std::string_view line : hostadm::base::split(table, '\n')) {
        const std::vector<std::string_view> fields = hostadm::base::split(line, ':');
        if (fields.size() >= 3 && fields[0] == name &&
            std::from_chars(fields[2].data(), fields[2].data() + fields[2].size(), number).ec == std::errc())
            return number;
    }
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    if (error == std::errc() && end == name.data() + name.size())
        return number;
    if (const auto found = usual.find(name); found != usual.end())
        return found->second;
    throw Failure(hostadm::base::tr("the {1} {2} is in no table of the root", kind, name));
}

} // namespace

std::string directory_part(const std::string &path) {
    const size_t slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string last_part(const std::string &path) {
    return path.substr(path.rfind('/') + 1);
}

Root::Root(const std::string &path) : files_(path, Links::inside) {}

hostadm::base::Descriptor Root::lock(const std::function<void()> &waiting) const {
    // No lock file is left in a client's tree.
    hostadm::base::Descriptor lock = hostadm::base::lock_file_of(files_.descriptor(), "packages");
    for (int tries = 0; flock(lock.get(), LOCK_EX | LOCK_NB) != 0; ++tries) {
        if (errno != EWOULDBLOCK && errno != EINTR)
            fail_with_errno(hostadm::base::tr("cannot lock {1}", files_.path()));
        if (tries >= 30000)
            throw Failure(
                hostadm::base::tr("another installation into {1} has run for five minutes", files_.path()));
        waiting();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return lock;
}

// The dot at the end makes a link at the end one on the way, which is followed.
bool Root::has_directory(const std::string &path) const {
    return files_.is_directory(path + "/.");
}

Beneath Root::directory(const std::string &path) const {
    return files_.directory(path + "/.");
}

Beneath Root::parent_of(const std::string &path) const {
    return directory(directory_part(path));
}

std::optional<std::string> Root::read(const std::string &path) const {
    if (!status(path))
        return std::nullopt;
    return files_.read(path, largest_text);
}

std::vector<std::string> Root::names(const std::string &path) const {
    return has_directory(path) ? files_.names(path + "/.") : std::vector<std::string>();
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
