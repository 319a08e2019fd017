// SPDX-License-Identifier: MIT
#include "compat/packages/install.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <set>
#include <sys/statvfs.h>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "compat/packages/placement.hpp"

namespace compat {

using hostadm::base::Descriptor;

namespace {

constexpr const char *records = "/var/sadm/pkg";
constexpr const char *contents_path = "/var/sadm/install/contents";

std::string octal(mode_t mode) {
    char text[16];
    std::snprintf(text, sizeof text, "%04o", mode);
    return text;
}

std::string or_unknown(const std::string &word) {
    return word.empty() ? "?" : word;
}

// Directories and links come first, the shorter path before the longer: files may lie behind them. Hard links
// come last: they need their target.
int rank(const Entry &entry) {
    return entry.is_directory() || entry.type == 's' ? 0 : entry.type == 'l' ? 2 : 1;
}

std::string contents_line(const Entry &entry) {
    if (entry.type == 's' || entry.type == 'l')
        return entry.path + "=" + entry.target + " " + entry.type + " " + entry.class_name;
    std::string line = entry.path + " " + entry.type + " " + entry.class_name;
    if (entry.type == 'b' || entry.type == 'c')
        line += " " + std::to_string(entry.major) + " " + std::to_string(entry.minor);
    line += " " + (entry.mode ? octal(*entry.mode) : "?") + " " + or_unknown(entry.owner) + " " +
            or_unknown(entry.group);
    if (entry.is_file())
        line += " " + std::to_string(entry.size) + " " + std::to_string(entry.sum) + " " +
                (entry.modified ? std::to_string(*entry.modified) : "?");
    return line;
}

// A line of the contents list: what is before the names of the packages, and those names.
struct ContentsLine {
    std::string path;
    std::string object;
    std::vector<std::string> owners;
};

ContentsLine parse_contents_line(std::string_view line) {
    const std::vector<std::string_view> words = hostadm::base::split(line, ' ');
    if (words.size() < 3 || words[1].size() != 1)
        throw Failure(hostadm::base::tr("{1} has a line that is none: {2}", contents_path, line));
    const char type = words[1][0];
    size_t fixed = 3;
    if (std::strchr("dxp", type) != nullptr)
        fixed = 6;
    else if (std::strchr("bc", type) != nullptr)
        fixed = 8;
    else if (std::strchr("fev", type) != nullptr)
        fixed = 9;
    if (words.size() < fixed)
        throw Failure(hostadm::base::tr("{1} has a line that is too short: {2}", contents_path, line));
    ContentsLine result;
    result.path = type == 's' || type == 'l' ? words[0].substr(0, words[0].find('=')) : words[0];
    for (size_t index = 0; index < words.size(); ++index) {
        if (index >= fixed)
            result.owners.emplace_back(words[index]);
        else
            result.object.append(index == 0 ? "" : " ").append(words[index]);
    }
    return result;
}

} // namespace

Admin Admin::parse(const std::string &text) {
    Admin admin;
    admin.space = true;
    const std::set<std::string> known = {"mail",     "instance", "partial", "runlevel",
                                         "idepend",  "rdepend",  "space",   "setuid",
                                         "conflict", "action",   "basedir", "networktimeout"};
    for (const std::string_view line : hostadm::base::split(text, '\n'))
        if (line.find('=') == line.npos && !line.starts_with('#') && !hostadm::base::trimmed(line).empty())
            throw Failure(hostadm::base::tr("the admin file has a line that is no key=value: \"{1}\"", line));
    for (const auto &[key, value] : parse_settings(text)) {
        if (!known.contains(key))
            throw Failure(hostadm::base::tr("the admin file has an unknown setting {1}", key));
        if (value == "ask")
            throw Refusal(pkgadd_asks,
                          key == "basedir"
                              ? hostadm::base::tr("the admin file wants to be asked about {1}; give a "
                                                  "directory or default, this program asks nothing",
                                                  key)
                              : hostadm::base::tr("the admin file wants to be asked about {1}; give "
                                                  "nocheck or quit, this program asks nothing",
                                                  key));
        const bool quit = value == "quit";
        if (key == "basedir")
            admin.base = value == "default" ? "" : value;
        else if (key == "instance" && (value == "unique" || value == "overwrite" || quit))
            admin.instance = value;
        else if (key == "mail" || key == "networktimeout")
            continue; // nobody is told
        else if (!quit && value != "nocheck" && !(key == "conflict" && value == "nochange"))
            throw Failure(hostadm::base::tr("the admin file has an unknown value {1}={2}", key, value));
        else if (key == "space")
            admin.space = quit;
        else if (key == "setuid")
            admin.set_user = quit;
        else if (key == "conflict")
            admin.conflict = value != "nocheck";
        else if (key == "idepend")
            admin.prerequisites = quit;
    }
    return admin;
}

void Installer::check_interrupt() const {
    if (interrupted_ != 0)
        throw Refusal(pkgadd_interrupted, "interrupted");
}

std::vector<Installer::Installed> Installer::installed(const std::string &name) const {
    std::vector<Installed> found;
    for (const std::string &instance : root_.names(records)) {
        if (instance != name && !instance.starts_with(name + "."))
            continue;
        if (const auto info = root_.read(std::string(records) + "/" + instance + "/pkginfo"))
            found.push_back({instance, parse_settings(*info)});
    }
    return found;
}

void Installer::choose_instance(Plan &plan) const {
    const Package &package = *plan.package;
    const std::vector<Installed> present = installed(package.name());
    plan.instance = package.name();
    if (present.empty())
        return;
    if (admin_.instance == "quit")
        throw Refusal(pkgadd_refused,
                      hostadm::base::tr("{1}: is installed already, and the admin file says instance=quit",
                                        package.name()));
    for (const Installed &each : present) {
        const auto is = [&](const char *key) {
            const auto value = each.info.find(key);
            return value != each.info.end() && value->second == package.setting(key);
        };
        if (is("ARCH") && is("VERSION")) {
            plan.instance = each.instance;
            plan.again = true;
            return;
        }
    }
    if (admin_.instance == "overwrite") {
        if (present.size() > 1)
            throw Refusal(
                pkgadd_refused,
                hostadm::base::tr("{1}: several instances are installed; which one is to be overwritten?",
                                  package.name()));
        plan.instance = present.front().instance;
        return;
    }
    const unsigned long most = std::strtoul(package.setting("MAXINST", "1").c_str(), nullptr, 10);
    if (present.size() >= most) {
        std::map<std::string, std::string> info = present.front().info;
        const bool other_version = info["VERSION"] != package.setting("VERSION");
        throw Refusal(pkgadd_refused,
                      other_version
                          ? hostadm::base::tr("{1}: another version is installed ({2}, version {3}), and "
                                              "the package allows no second one beside it",
                                              package.name(), present.front().instance, info["VERSION"])
                          : hostadm::base::tr("{1}: another architecture is installed ({2}, for {3}), and "
                                              "the package allows no second one beside it",
                                              package.name(), present.front().instance, info["ARCH"]));
    }
    for (unsigned long number = 2;; ++number) {
        plan.instance = package.name() + "." + std::to_string(number);
        if (std::none_of(present.begin(), present.end(),
                         [&](const Installed &each) { return each.instance == plan.instance; }))
            return;
    }
}

// Differs from what this package once put there.
bool Installer::is_edited(const Entry &entry, const std::string &old_map) const {
    for (const std::string_view line : hostadm::base::split(old_map, '\n')) {
        const std::vector<std::string_view> words = hostadm::base::words_of(line);
        // part type class path mode owner group size sum time
        if (words.size() != 10 || words[3] != entry.written)
            continue;
        const auto present = root_.status(entry.path);
        if (!present)
            return false;
        if (!S_ISREG(present->st_mode) || words[7] != std::to_string(present->st_size))
            return true;
        const Measure now =
            measure(root_.open_file(entry.path), entry.path, static_cast<uint64_t>(present->st_size));
        return words[7] != std::to_string(now.size) || words[8] != std::to_string(now.sum);
    }
    return false;
}

// The file is there already, in every respect as the package has it.
bool Installer::is_in_place(const Entry &entry) const {
    const auto present = root_.status(entry.path);
    if (!present || !S_ISREG(present->st_mode) || !entry.mode || !entry.modified)
        return false;
    const Descriptor file = root_.open_file(entry.path);
    struct stat info = {};
    if (fstat(file.get(), &info) != 0)
        fail_with_errno(entry.path);
    if (static_cast<uint64_t>(info.st_size) != entry.size || (info.st_mode & 07777U) != *entry.mode ||
        info.st_mtime != *entry.modified || info.st_uid != accounts_.user(entry.owner) ||
        info.st_gid != accounts_.group(entry.group))
        return false;
    const Measure now = measure(file, entry.path, entry.size);
    return now.size == entry.size && now.sum == entry.sum;
}

Installer::Plan Installer::plan(const Package &package) const {
    Plan plan;
    plan.package = &package;
    choose_instance(plan);
    const std::string old_map =
        root_.read(std::string(records) + "/" + plan.instance + "/pkgmap").value_or("");
    for (const Entry &entry : package.entries()) {
        check_interrupt();
        if (entry.is_editable() && is_edited(entry, old_map))
            plan.kept.push_back(entry.path);
        else if (!entry.is_file() || !is_in_place(entry))
            plan.place.push_back(&entry);
    }
    std::sort(plan.place.begin(), plan.place.end(), [](const Entry *one, const Entry *other) {
        return std::pair(rank(*one), one->path) < std::pair(rank(*other), other->path);
    });
    return plan;
}

// The checks that the admin file asks for, and what must hold in any case.
void Installer::check(const Plan &plan) const {
    const Package &package = *plan.package;
    const auto refuse = [&](const std::string &text) {
        throw Refusal(pkgadd_refused, package.name() + ": " + text);
    };
    for (const Entry &entry : package.entries()) {
        if (!entry.owner.empty()) {
            accounts_.user(entry.owner);
            accounts_.group(entry.group);
        }
        if (admin_.set_user && entry.is_file() && entry.mode && (*entry.mode & 06000U) != 0)
            refuse(hostadm::base::tr("{1} runs with its owner's rights, and the admin file says setuid=quit",
                                     entry.path));
    }
    if (admin_.prerequisites)
        for (const std::string &needed : package.prerequisites())
            if (installed(needed).empty())
                refuse(hostadm::base::tr("it needs the package {1}, which is not installed", needed));
    if (!admin_.conflict)
        return;
    const std::string contents = root_.read(contents_path).value_or("");
    for (const std::string_view line : hostadm::base::split(contents, '\n')) {
        if (line.empty() || line[0] == '#')
            continue;
        const ContentsLine present = parse_contents_line(line);
        for (const Entry &entry : package.entries())
            if (entry.path == present.path && !entry.is_directory() &&
                std::find(present.owners.begin(), present.owners.end(), plan.instance) ==
                    present.owners.end())
                refuse(hostadm::base::tr("{1} belongs to {2}, and the admin file forbids conflicts",
                                         entry.path, present.owners.front()));
    }
}

void Installer::check_space(const std::vector<Plan> &plans) const {
    struct Need {
        struct statvfs free = {};
        std::string path;
        uint64_t blocks = 0;
        uint64_t objects = 0;
    };
    std::map<dev_t, Need> needs;
    for (const Plan &plan : plans) {
        for (const Entry *const entry : plan.place) {
            // The file system of the nearest directory that is there.
            std::string path = directory_part(entry->path);
            while (path != "/" && !root_.has_directory(path))
                path = directory_part(path);
            const hostadm::base::Beneath directory = root_.directory(path);
            struct stat info = {};
            if (fstat(directory.descriptor(), &info) != 0)
                fail_with_errno(path);
            Need &need = needs[info.st_dev];
            if (need.path.empty()) {
                need.path = path;
                if (fstatvfs(directory.descriptor(), &need.free) != 0)
                    fail_with_errno(path);
            }
            const uint64_t block = std::max<uint64_t>(need.free.f_frsize, 1);
            const bool present = root_.status(entry->path).has_value();
            if (entry->is_file())
                need.blocks += (entry->size + block - 1) / block;
            else if (entry->is_directory() && !present)
                need.blocks += 1;
            need.objects += entry->is_directory() && present ? 0 : 1;
        }
    }
    for (const auto &[device, need] : needs) {
        const uint64_t kilobytes = need.blocks * need.free.f_frsize / 1024;
        const uint64_t free_kilobytes = need.free.f_bavail * need.free.f_frsize / 1024;
        if (need.blocks > need.free.f_bavail)
            throw Refusal(pkgadd_refused,
                          hostadm::base::tr("not enough space below {1}: {2} KB are needed, {3} KB are free",
                                            need.path, kilobytes, free_kilobytes));
        if (need.free.f_files != 0 && need.objects > need.free.f_favail)
            throw Refusal(pkgadd_refused,
                          hostadm::base::tr("not enough file entries below {1}: {2} are needed, {3} are free",
                                            need.path, need.objects, need.free.f_favail));
    }
}

// The package's own pkginfo and how it was installed. Installing the same again leaves the record alone.
std::string Installer::record_info(const Plan &plan) const {
    const std::string path = std::string(records) + "/" + plan.instance + "/pkginfo";
    std::string date;
    if (plan.again)
        date = parse_settings(root_.read(path).value_or(""))["INSTDATE"];
    if (date.empty()) {
        const time_t now = std::time(nullptr);
        tm local = {};
        char text[64];
        std::strftime(text, sizeof text, "%b %d %Y %H:%M", localtime_r(&now, &local));
        date = text;
    }
    std::string text;
    for (const std::string_view line : hostadm::base::split(plan.package->info_text(), '\n'))
        if (!line.empty() && !line.starts_with("PKGINST=") && !line.starts_with("INSTDATE=") &&
            !line.starts_with("BASEDIR="))
            text.append(line).append("\n");
    return text + "BASEDIR=" + plan.package->base() + "\nPKGINST=" + plan.instance + "\nINSTDATE=" + date +
           "\n";
}

// The list of every installed object with the packages that own it, sorted by path.
std::string Installer::new_contents(const Plan &plan) const {
    std::string comments;
    std::map<std::string, ContentsLine> lines;
    const std::string contents = root_.read(contents_path).value_or("");
    for (const std::string_view line : hostadm::base::split(contents, '\n')) {
        if (line.empty())
            continue;
        if (line[0] == '#') {
            comments.append(line).append("\n");
            continue;
        }
        ContentsLine present = parse_contents_line(line);
        std::erase(present.owners, plan.instance);
        if (!present.owners.empty())
            lines[present.path] = std::move(present);
    }
    for (const Entry &entry : plan.package->entries()) {
        ContentsLine &line = lines[entry.path];
        line.object = contents_line(entry);
        line.owners.push_back(plan.instance);
    }
    std::string text = comments;
    for (const auto &[path, line] : lines) {
        text += line.object;
        for (const std::string &owner : line.owners)
            text += " " + owner;
        text += "\n";
    }
    return text;
}

void Installer::carry_out(const Plan &plan) const {
    Placement placement(root_, accounts_, [this] { check_interrupt(); });
    placement.clear_remains(*plan.package);
    for (const Entry *const entry : plan.place)
        placement.stage(*plan.package, *entry);
    const std::string record = std::string(records) + "/" + plan.instance;
    placement.stage_record(record + "/pkginfo", record_info(plan));
    placement.stage_record(record + "/pkgmap", plan.package->map_text());
    for (const Entry &entry : plan.package->information())
        if (entry.written != "pkginfo")
            placement.stage_record(record + "/install/" + entry.written,
                                   plan.package->information_text(entry));
    placement.stage_record(contents_path, new_contents(plan));
    placement.commit();
}

void Installer::install(const std::vector<Package> &packages, bool quiet) {
    const auto stop_if_interrupted = [this] { check_interrupt(); };
    const hostadm::base::Descriptor lock = root_.lock(stop_if_interrupted);
    for (const Package &package : packages)
        package.verify(stop_if_interrupted);
    std::vector<Plan> plans;
    std::set<std::string> names;
    for (const Package &package : packages) {
        if (!names.insert(package.name()).second)
            throw Failure(hostadm::base::tr("{1}: two of the packages have this name", package.name()));
        plans.push_back(plan(package));
        check(plans.back());
    }
    if (admin_.space)
        check_space(plans);
    for (const Plan &each : plans) {
        try {
            carry_out(each);
        } catch (const Refusal &) {
            throw;
        } catch (const std::exception &error) {
            throw Failure(hostadm::base::tr("{1}: {2}; nothing of it was installed", each.package->name(),
                                            error.what()));
        }
        if (quiet)
            continue;
        for (const std::string &path : each.kept)
            std::printf("%s\n", hostadm::base::tr("{1} has been edited and was left as it is", path).c_str());
        std::printf("Installation of <%s> was successful.\n", each.instance.c_str());
    }
}

} // namespace compat
