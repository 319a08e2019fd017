// SPDX-License-Identifier: MIT
#include "server/packages.hpp"

#include <algorithm>
#include <array>
#include <climits>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <regex>
#include <system_error>
#include <unistd.h>

#include "base/beneath.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/platform.h"
#include "server/failure.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

bool is_directory(const std::string &path) {
    std::error_code error;
    return fs::is_directory(path, error);
}

bool is_file(const std::string &path) {
    std::error_code error;
    return fs::is_regular_file(path, error);
}

std::string first_file(const std::vector<std::string> &candidates, const std::string &what) {
    std::string tried;
    for (const std::string &candidate : candidates) {
        if (is_file(candidate))
            return candidate;
        tried += (tried.empty() ? "" : ", ") + candidate;
    }
    fail(Code::not_found, base::tr("no boot program for {1}; looked for {2}", what, tried));
}

const fs::path templates = "/export/root/templates";

std::string sysinfo(int item) {
    std::array<char, 1024> answer{};
    return sysv_sysinfo(item, answer.data(), answer.size()) < 0 ? "" : answer.data();
}

// The part of a release by which it is told from others: "4" of 2.4 and of 5.4.
std::string minor_of(const std::string &release) {
    return release.size() > 2 ? release.substr(2) : "";
}

std::vector<std::string> lines_of(const fs::path &path) {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

std::vector<fs::path> entries_of(const fs::path &directory) {
    std::vector<fs::path> entries;
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error))
        entries.push_back(entry->path());
    return entries;
}

// As the shell takes them off where the library hands it the version.
std::string without_quotes(const std::string &text) {
    const bool quoted =
        text.size() >= 2 && (text.front() == '"' || text.front() == '\'') && text.front() == text.back();
    return quoted ? text.substr(1, text.size() - 2) : text;
}

constexpr std::string_view version_key = "VERSION=";

std::string version_of(const fs::path &package) {
    for (const std::string &line : lines_of(package / "pkginfo"))
        if (line.starts_with(version_key))
            return without_quotes(line.substr(version_key.size()));
    return "";
}

// Of a last line without an ending the library takes off the version's last character.
bool version_is_cut(const fs::path &package) {
    std::ifstream file(package / "pkginfo");
    for (std::string line; std::getline(file, line);)
        if (line.starts_with(version_key))
            return file.eof();
    return false;
}

} // namespace

bool holds_packages(const std::string &directory) {
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error))
        if (is_file(entry->path() / "pkginfo"))
            return true;
    return false;
}

bool is_tree(const std::string &directory) {
    return is_directory(directory + "/etc") || is_directory(directory + "/usr");
}

namespace {

// Where a tree may hold its boot program.
std::vector<std::string> places_in_tree(const Identity &identity) {
    const std::string boot_part = "/lib/fs/nfs/inetboot", &impl_arch = identity.implementation_arch;
    const std::string boot_name = make_boot_name(identity.os_version.c_str(), identity.os_name.c_str(),
                                                 identity.instruction_set.c_str(), impl_arch.c_str());
    return {"/boot/" + boot_name, "/usr/platform/" + impl_arch + boot_part,
            "/platform/" + impl_arch + boot_part, "/usr" + boot_part, boot_part};
}

} // namespace

base::Descriptor boot_program_in(const std::string &root, const Identity &identity) {
    const base::Beneath files(root, base::Links::inside);
    for (const std::string &place : places_in_tree(identity))
        if (files.is_file(place))
            return files.open_file(place);
    return {};
}

OsPaths find_os(const std::string &hierarchy, const Identity &identity) {
    const auto &[inst_set, impl_arch, os_name, os_version] = identity;
    const std::string above = hierarchy == "/" ? "" : hierarchy;
    if (!is_directory(hierarchy))
        fail(Code::not_found, base::tr("{1} is not a directory", hierarchy));

    const std::string system = os_name + "_" + os_version;
    const std::string boot_part = "/lib/fs/nfs/inetboot";
    const std::string exec = above + "/export/exec/" + inst_set + "." + system;
    if (is_directory(exec)) {
        const std::string roots = above + "/export/root/templates/" + system;
        return {is_directory(roots) ? roots : exec,
                first_file({exec + "/platform/" + impl_arch + boot_part, exec + boot_part},
                           base::tr("{1} in the export area {2}", impl_arch, hierarchy))};
    }
    if (is_tree(hierarchy)) {
        std::vector<std::string> places;
        for (const std::string &place : places_in_tree(identity))
            places.push_back(above + place);
        return {hierarchy, first_file(places, base::tr("{1} in the tree {2}", impl_arch, hierarchy))};
    }
    fail(Code::unusable,
         base::tr("{1} is no install hierarchy: it holds neither {2} nor a root file system (etc or usr)",
                  hierarchy, exec));
}

std::string server_architecture() {
    return sysinfo(SYSV_SI_ARCHITECTURE);
}
std::string server_release() {
    return sysinfo(SYSV_SI_RELEASE);
}

std::string service_record_folder() {
    const std::string release = server_release();
    return release.size() > 2 && release[2] > '4' ? "/var/sadm/system/admin/services" : "/var/sadm/softinfo";
}

std::vector<SpooledPackage> packages_in(const std::string &directory) {
    std::vector<SpooledPackage> all;
    for (const fs::path &entry : entries_of(directory)) {
        if (!is_file(entry / "pkginfo"))
            continue;
        SpooledPackage package{.name = entry.filename()};
        for (const auto &[key, value] :
             {std::pair<std::string_view, std::string *>{version_key, &package.version},
              {"ARCH=", &package.architecture},
              {"BASEDIR=", &package.base}})
            for (const std::string &line : lines_of(entry / "pkginfo"))
                if (line.starts_with(key))
                    *value = without_quotes(line.substr(key.size()));
        all.push_back(std::move(package));
    }
    std::sort(all.begin(), all.end(),
              [](const SpooledPackage &one, const SpooledPackage &other) { return one.name < other.name; });
    return all;
}

namespace {

bool is_recorded_in(const fs::path &root, const std::string &arch, const std::string &package) {
    for (const fs::path &entry : entries_of(root / "var/sadm/pkg"))
        if (entry.filename().string().starts_with(package))
            for (const std::string &line : lines_of(entry / "pkginfo"))
                if (line.find("ARCH=" + arch) != line.npos)
                    return true;
    return false;
}

} // namespace

bool is_package_recorded(const std::string &arch, const std::string &release, const std::string &package) {
    const std::string minor = minor_of(release), area = "/export/Quorvel_2." + minor;
    if (minor != minor_of(server_release()))
        return is_recorded_in(area, arch, package);
    // The library looks on this server itself for a package of its own release, but installs that of another
    // architecture in the service's area, each time.
    return is_recorded_in("/", arch, package) ||
           (arch != server_architecture() && is_recorded_in(area, arch, package));
}

TemplateRecord::TemplateRecord(std::string package_dir, std::string package, std::string arch,
                               const std::string &release)
    : package_(std::move(package)), arch_(std::move(arch)), os_directory_("Quorvel_2." + minor_of(release)) {
    file_ = service_record_folder() + "/" + os_directory_;
    const fs::path source = fs::path(package_dir) / package_;
    version_ = version_of(source);
    version_is_cut_ = version_is_cut(source);
    template_ = templates / os_directory_ / (package_ + "_" + version_ + "_" + arch_ + ".all");
}

bool TemplateRecord::is_recorded() const {
    const std::string spooled = "SPOOLED_ROOT=" + arch_ + ".all:" + template_;
    const std::string root = "ROOT=" + arch_ + ".all:" + package_ + "," + version_;
    bool has_spooled = false, has_root = false;
    for (const std::string &line : lines_of(file_)) {
        has_spooled = has_spooled || line == spooled;
        has_root = has_root || line == root;
    }
    return has_spooled && has_root;
}

bool TemplateRecord::exists() const {
    std::error_code ignored;
    return fs::exists(template_, ignored);
}

// As the library finds an older version: the names are patterns to it, in which only a dot is none of itself.
bool TemplateRecord::mentions(const std::string &text) const {
    return std::regex_search(text, std::regex(arch_ + ".*" + package_, std::regex::basic));
}

std::vector<std::string> TemplateRecord::also_replaced() const {
    const fs::path folder = templates / os_directory_;
    const std::string root = "ROOT=" + arch_ + ".all:" + package_ + ",";
    std::vector<std::string> others;
    bool replaces = false;
    for (const std::string &line : lines_of(file_)) {
        if (!mentions(line))
            continue;
        replaces = true;
        const bool is_of_old_template = line.find(":" + (folder / (package_ + "_")).string()) != line.npos;
        if (!is_of_old_template && !line.starts_with(root))
            others.push_back(base::tr("the line \"{1}\" of {2}", line, file_));
    }
    if (!replaces)
        return {};
    for (const fs::path &entry : entries_of(folder)) {
        const std::string name = entry.filename();
        if (name.starts_with(package_) && name.find(arch_, package_.size()) != name.npos &&
            !(name.starts_with(package_ + "_") && name.ends_with("_" + arch_ + ".all")))
            others.push_back(base::tr("the template {1}", entry.string()));
    }
    return others;
}

std::string TemplateRecord::obstacle() const {
    constexpr const char *plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+-_.:,@%=";
    if (version_is_cut_)
        return base::tr(
            "the line VERSION in the pkginfo of {1} does not end with a newline; add one behind it",
            package_);
    if (version_.find_first_not_of(plain) != version_.npos ||
        fs::path(template_).filename().native().size() > NAME_MAX)
        return base::tr("the version {1} in the pkginfo of {2} cannot be part of a directory's name",
                        version_, package_);
    if (is_recorded())
        return "";
    if (const auto others = also_replaced(); !others.empty())
        return base::tr("to replace the older version of {1} would remove {2} as well, which belongs to "
                        "another package; rename one of the two",
                        package_, others.front());
    return "";
}

void TemplateRecord::prepare() const {
    std::string folder = fs::path(file_).parent_path();
    mkdir_path(folder.data());
}

void TemplateRecord::become_standard_input() const {
    int input = open(file_.c_str(), O_RDONLY | O_CLOEXEC);
    if (input < 0)
        input = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (input < 0)
        return;
    dup2(input, STDIN_FILENO);
    close(input);
}

void TemplateRecord::remove_template() const {
    std::error_code ignored;
    fs::remove_all(template_, ignored);
}

} // namespace hostadm::server
