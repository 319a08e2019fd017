// SPDX-License-Identifier: MIT
#include "server/cached_mounts.hpp"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "hostadm.h"
#include "hostadm/table_edit.hpp"
#include "server/failure.hpp"
#include "server/roots.hpp"
#include "server/silenced_errors.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view option = "disconnectable";
constexpr std::string_view further_option = ",disconnectable";
const std::string profiles = HOSTADM_DATAADMIN "/etc/autoinstall";

std::string table_of(const std::string &root) {
    return root + "/etc/vfstab";
}
std::string cache_directory_of(const std::string &root) {
    return root + "/etc/fs/cachefs";
}

std::string content(const fs::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool is_cacheable(std::string_view mountpt) {
    return mountpt == "/" || mountpt == "/usr" || mountpt == "/usr/openwin";
}

bool is_switched_on(const std::vector<CachedMount> &mounts) {
    return std::all_of(mounts.begin(), mounts.end(), [](const CachedMount &mount) { return mount.cached; });
}
bool is_switched_off(const std::vector<CachedMount> &mounts) {
    return std::none_of(mounts.begin(), mounts.end(), [](const CachedMount &mount) { return mount.cached; });
}

std::string new_table() {
    return "/tmp/vfstab." + std::to_string(getpid());
}

std::vector<std::string> fields_of(const std::string &line) {
    std::istringstream words(line);
    return {std::istream_iterator<std::string>(words), {}};
}

bool ends_in_blank(const std::string &line) {
    return !line.empty() && std::isspace(static_cast<unsigned char>(line.back()));
}

// The library puts the option at the very end of a line, and cuts a line before the option: a table stays one
// only where that is the end of the last column.
constexpr std::size_t columns = 7;

bool may_be_extended(const std::string &line) {
    const std::vector<std::string> fields = fields_of(line);
    return fields.size() < 3 || !is_cacheable(fields[2]) || line.find(option) != line.npos ||
           (fields.size() == columns && !ends_in_blank(line));
}

bool may_be_cut(const std::string &line) {
    const std::size_t at = line.find(further_option);
    if (at == line.npos)
        return true;
    const std::string rest = line.substr(0, at);
    return fields_of(rest).size() == columns && !ends_in_blank(rest);
}

void check_lines(const std::string &root, bool (*is_good)(const std::string &)) {
    std::istringstream lines{read_client_table(root)};
    for (std::string line; std::getline(lines, line);)
        if (!line.starts_with('#') && !is_good(line))
            throw Failure("nothing was changed: " + table_of(root) + " has the line \"" + line +
                          "\", whose seventh and last column is not its mount options; mend it first");
}

// The new table is there as a whole: it was not moved into place.
bool is_made(std::size_t mounts) {
    const std::vector<CachedMount> made = cached_mounts(content(new_table()));
    return made.size() == mounts && is_switched_on(made);
}

// The library leaves the new table behind when it could not make it whole or move it into place.
struct NewTableRemoved {
    ~NewTableRemoved() { unlink(new_table().c_str()); }
};

// The library trusts the last step of its edit, moving the new table into place; this looks.
[[noreturn]] void fail_unchanged(const std::string &root) {
    if (std::error_code ignored; fs::exists(new_table(), ignored))
        throw Failure("the new table could not be moved over " + table_of(root));
    throw Failure(table_of(root) +
                  " is not as it should be after the edit; somebody else may be changing it");
}

// What is in a directory, for an error that says what there would have been.
std::string names_in(const fs::path &directory) {
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error))
        names.push_back(entry->path().filename());
    std::sort(names.begin(), names.end());
    std::string list;
    for (const std::string &name : names)
        list += (list.empty() ? "" : ", ") + name;
    return list.empty() ? "nothing" : list;
}

} // namespace

std::vector<CachedMount> cached_mounts(std::string_view table) {
    std::vector<CachedMount> mounts;
    std::istringstream lines{std::string(table)};
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with('#'))
            continue;
        const std::vector<std::string> fields = fields_of(line);
        const std::string mountpt = fields.size() > 2 ? fields[2] : "";
        const bool cached = line.find(option) != line.npos;
        if (is_cacheable(mountpt) || line.find(further_option) != line.npos)
            mounts.push_back({mountpt, fields.back(), cached});
    }
    return mounts;
}

void check_client_root(const std::string &root) {
    if (std::string defect = defect_of_root(root); !defect.empty())
        throw Failure(std::move(defect));
    std::error_code error;
    if (const fs::file_status table = fs::status(table_of(root), error); !fs::status_known(table))
        throw Failure("cannot look at " + table_of(root) + ": " + error.message());
    else if (!fs::is_regular_file(table))
        throw Failure(table_of(root) + (fs::exists(table) ? " is no file" : " does not exist") + ", so " +
                      root + " is no client's root yet");
    for (const char *below : {"/etc/vfstab", "/etc/fs/cachefs", "/.autoinstall"})
        if (std::string way_out = way_out_of_root(root, below); !way_out.empty())
            throw Failure(std::move(way_out));
}

std::string read_client_table(const std::string &root) {
    std::string text;
    if (const int status = tables::read_file(table_of(root), text); status != 0)
        throw Failure("cannot read " + table_of(root) + ": " + std::strerror(-status));
    return text;
}

std::vector<std::string> temporary_files_of_edit() {
    return {"/tmp/awk." + std::to_string(getpid()), new_table()};
}

bool has_cache_directory(const std::string &root) {
    std::error_code ignored;
    return fs::is_directory(cache_directory_of(root), ignored);
}

bool enable_cached_mounts(const std::string &root) {
    const std::vector<CachedMount> mounts = cached_mounts(read_client_table(root));
    if (mounts.empty())
        throw Failure(table_of(root) + " has no line for /, /usr or /usr/openwin: there is nothing to cache");
    if (is_switched_on(mounts) && has_cache_directory(root))
        return false;
    check_lines(root, may_be_extended);
    std::string parent = root + "/etc/fs";
    mkdir_path(parent.data());
    const NewTableRemoved removed;
    if (enable_chart(root.c_str()) != 0) {
        if (is_switched_on(cached_mounts(read_client_table(root))))
            throw Failure("cannot make the directory " + cache_directory_of(root) +
                          "; the table itself is switched to cached mounts");
        if (is_made(mounts.size())) // what failed are the last two steps, and the library tells of neither
            fail_unchanged(root);
        throw Recorded();
    }
    if (!is_switched_on(cached_mounts(read_client_table(root))))
        fail_unchanged(root);
    return true;
}

bool disable_cached_mounts(const std::string &root) {
    if (is_switched_off(cached_mounts(read_client_table(root))) && !has_cache_directory(root))
        return false;
    check_lines(root, may_be_cut);
    const bool had_directory = has_cache_directory(root);
    const std::string before = read_client_table(root);
    const NewTableRemoved removed;
    if (disable_chart(root.c_str()) != 0)
        throw Recorded();
    const std::string after = read_client_table(root);
    for (const CachedMount &mount : cached_mounts(after))
        if (mount.options.find(further_option) != std::string::npos)
            fail_unchanged(root);
    return after != before || had_directory != has_cache_directory(root);
}

void check_install_profile(const std::string &set, const std::string &profile) {
    std::error_code error;
    if (set == "." || set == "..")
        throw Refusal("profile_set: " + set + " is no name of a set of profiles");
    if (profile == "." || profile == ".." || profile == "profile")
        throw Refusal("profile: " + profile + " is no name of a profile" +
                      (profile == "profile" ? "; the link to it is called so" : ""));
    if (!fs::is_directory(profiles + "/" + set, error))
        throw Failure("there is no set of profiles " + profiles + "/" + set +
                      "; there are: " + names_in(profiles));
    if (!fs::is_regular_file(profiles + "/" + set + "/" + profile, error))
        throw Failure("there is no profile " + profile + " in " + profiles + "/" + set +
                      "; there are: " + names_in(profiles + "/" + set));
}

bool set_install_profile(const std::string &method, const std::string &root, const std::string &set,
                         const std::string &profile) {
    check_install_profile(set, profile);
    const fs::path source = profiles + "/" + set + "/" + profile;
    const fs::path copy = root + "/.autoinstall/" + profile;
    const fs::path link = root + "/.autoinstall/profile";
    std::error_code error;
    const auto is_in_place = [&] {
        return fs::is_regular_file(fs::symlink_status(copy, error)) && content(copy) == content(source) &&
               fs::read_symlink(link, error) == profile;
    };
    if (is_in_place())
        return false;
    if (fs::is_symlink(fs::symlink_status(copy, error)))
        throw Failure(copy.string() +
                      " is a link, and the profile would be written to where it leads; remove it");
    {
        const SilencedErrors silence; // an existing directory is no obstacle
        if (set_cachelet_disk_config(method.c_str(), root.c_str(), set.c_str(), profile.c_str()) != 0)
            throw Recorded();
    }
    if (!is_in_place())
        throw Failure("the profile was copied, but " + link.string() +
                      " does not lead to it; remove what is in its way");
    return true;
}

} // namespace hostadm::server
