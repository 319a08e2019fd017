// SPDX-License-Identifier: MIT
#include "server/cached_mounts.hpp"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/stat.h>
#include <utility>

#include "base/translation.hpp"
#include "hostadm.h"
#include "server/confined.hpp"
#include "server/failure.hpp"
#include "server/roots.hpp"
#include "server/silenced_errors.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;
using base::Beneath;

namespace {

constexpr std::string_view option = "disconnectable";
constexpr std::string_view further_option = ",disconnectable";
const std::string profiles = HOSTADM_DATAADMIN "/etc/autoinstall";

constexpr const char *table = "etc/vfstab";
constexpr const char *cache_directory = "etc/fs/cachefs";
constexpr const char *profile_folder = ".autoinstall";

std::string table_of(const std::string &root) {
    return root + "/" + table;
}

// The root as the client sees it, with links that lead about in it.
Beneath files_of(const std::string &root) {
    return Beneath(root, base::Links::inside);
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

void check_lines(const std::string &root, const std::string &text, bool (*is_good)(const std::string &)) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (!line.starts_with('#') && !is_good(line))
            throw Failure(Code::table,
                          base::tr("nothing was changed: {1} has the line \"{2}\", whose seventh and last "
                                   "column is not its mount options; mend it first",
                                   table_of(root), line));
}

// What the library's edit makes of the table; the client's own is not touched. Nothing: it did not come to be.
std::string edited(const std::string &root, const std::string &before, int (*edit)(const char *)) {
    const Stage stage(root);
    stage.files().make_directories("etc/fs");
    stage.files().write(table, before);
    if (stage.run([&] { return edit(root.c_str()); }) != 0)
        throw Recorded();
    return stage.files().is_file(table) ? stage.files().read(table) : "";
}

[[noreturn]] void fail_unmoved(const std::string &root) {
    throw Failure(Code::system, base::tr("the new table could not be moved over {1}", table_of(root)));
}

[[noreturn]] void fail_changed(const std::string &root) {
    throw Failure(Code::no_effect,
                  base::tr("{1} is not as it should be after the edit; somebody else may be changing it",
                           table_of(root)));
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
    if (const std::string defect = defect_of_root(root); !defect.empty())
        throw Failure(Code::unusable, defect);
    for (const char *below : {"/etc/vfstab", "/etc/fs/cachefs", "/.autoinstall"})
        if (const std::string way_out = way_out_of_root(root, below); !way_out.empty())
            throw Failure(Code::unusable, way_out);
    const auto found = files_of(root).status(table);
    if (!found || !S_ISREG(found->st_mode))
        throw Failure(
            Code::unusable,
            found ? base::tr("{1} is no file, so {2} is no client's root yet", table_of(root), root)
                  : base::tr("{1} does not exist, so {2} is no client's root yet", table_of(root), root));
}

std::string read_client_table(const std::string &root) {
    return files_of(root).read(table);
}

bool has_cache_directory(const std::string &root) {
    return files_of(root).is_directory(cache_directory);
}

bool enable_cached_mounts(const std::string &root) {
    const std::string before = read_client_table(root);
    const std::vector<CachedMount> mounts = cached_mounts(before);
    if (mounts.empty())
        throw Failure(Code::unusable,
                      base::tr("{1} has no line for /, /usr or /usr/openwin: there is nothing to cache",
                               table_of(root)));
    if (is_switched_on(mounts) && has_cache_directory(root))
        return false;
    check_lines(root, before, may_be_extended);
    const std::string after = edited(root, before, enable_chart);
    if (const auto made = cached_mounts(after); made.size() != mounts.size() || !is_switched_on(made))
        fail_unmoved(root);

    const Beneath files = files_of(root);
    files.make_directories(fs::path(cache_directory).parent_path().native(), {.mode = 02755});
    files.make_directory(cache_directory, {.mode = 0755});
    if (after != before)
        files.rewrite(table, after);
    files.flush();
    if (read_client_table(root) != after || !has_cache_directory(root))
        fail_changed(root);
    return true;
}

bool disable_cached_mounts(const std::string &root) {
    const std::string before = read_client_table(root);
    const bool had_directory = has_cache_directory(root);
    if (is_switched_off(cached_mounts(before)) && !had_directory)
        return false;
    check_lines(root, before, may_be_cut);
    const std::string after = edited(root, before, disable_chart);
    for (const CachedMount &mount : cached_mounts(after))
        if (mount.options.find(further_option) != std::string::npos)
            fail_unmoved(root);
    if (after.empty() != before.empty())
        fail_unmoved(root);

    const Beneath files = files_of(root);
    if (after != before)
        files.rewrite(table, after);
    if (had_directory && files.names(cache_directory).empty())
        files.remove(cache_directory);
    files.flush();
    if (read_client_table(root) != after)
        fail_changed(root);
    return after != before || had_directory != has_cache_directory(root);
}

void check_install_profile(const std::string &set, const std::string &profile) {
    std::error_code error;
    if (set == "." || set == "..")
        throw Refusal(base::tr("profile_set: {1} is no name of a set of profiles", set));
    if (profile == "." || profile == ".." || profile == "profile")
        throw Refusal(
            profile == "profile"
                ? base::tr("profile: {1} is no name of a profile; the link to it is called so", profile)
                : base::tr("profile: {1} is no name of a profile", profile));
    if (!fs::is_directory(profiles + "/" + set, error))
        throw Failure(Code::not_found, base::tr("there is no set of profiles {1}/{2}; there are: {3}",
                                                profiles, set, names_in(profiles)));
    if (!fs::is_regular_file(profiles + "/" + set + "/" + profile, error))
        throw Failure(Code::not_found, base::tr("there is no profile {1} in {2}/{3}; there are: {4}", profile,
                                                profiles, set, names_in(profiles + "/" + set)));
}

bool set_install_profile(const std::string &method, const std::string &root, const std::string &set,
                         const std::string &profile) {
    check_install_profile(set, profile);
    const std::string text = content(profiles + "/" + set + "/" + profile);
    const std::string copy = std::string(profile_folder) + "/" + profile;
    const std::string link = std::string(profile_folder) + "/profile";
    const auto is_in_place = [&](const Beneath &files) {
        const auto file = files.status(copy), pointer = files.status(link);
        return file && S_ISREG(file->st_mode) && pointer && S_ISLNK(pointer->st_mode) &&
               files.read(copy) == text && files.link_target(link) == profile;
    };
    const Beneath files = files_of(root);
    if (is_in_place(files))
        return false;
    if (const auto there = files.status(copy); there && !S_ISREG(there->st_mode))
        throw Failure(
            Code::unusable,
            S_ISLNK(there->st_mode)
                ? base::tr("{1}/{2} is a link, where the profile is to be; remove it", root, copy)
                : base::tr("{1}/{2} is no file, where the profile is to be; remove it", root, copy));

    const Stage stage(root);
    {
        const SilencedErrors silence; // an existing directory is no obstacle
        if (stage.run([&] {
                return set_cachelet_disk_config(method.c_str(), root.c_str(), set.c_str(), profile.c_str());
            }) != 0)
            throw Recorded();
    }
    if (!is_in_place(stage.files()))
        throw Failure(Code::no_effect, base::tr("the profile {1} could not be copied", profile));
    files.make_directory(profile_folder, {.mode = 0755});
    files.write(copy, stage.files().read(copy));
    files.make_link(profile, link);
    files.flush();
    if (!is_in_place(files))
        throw Failure(
            Code::no_effect,
            base::tr("the profile was copied, but {1}/{2} does not lead to it; remove what is in its way",
                     root, link));
    return true;
}

} // namespace hostadm::server
