// SPDX-License-Identifier: MIT
#include "server/rpl_area.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <netinet/ether.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "base/descriptor.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "server/failure.hpp"
#include "server/silenced_errors.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

constexpr std::array suffixes = {".inetboot", ".glue.com", ".hw.com"};

std::string path_of(const std::string &name) {
    return std::string(rplboot) + "/" + name;
}

std::vector<std::string> names_in_area() {
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator entry(rplboot, error), end; !error && entry != end; entry.increment(error))
        names.push_back(entry->path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

bool is_empty_file(const std::string &path) {
    struct stat file {};
    return lstat(path.c_str(), &file) == 0 && S_ISREG(file.st_mode) && file.st_size == 0;
}

// After a power cut a link must not lead nowhere.
void flush_area() {
    const base::Descriptor folder(open(rplboot, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder.is_open() || fsync(folder.get()) != 0)
        fail_errno(base::tr("cannot write {1}", rplboot));
}

std::string complaint(const std::string &what) {
    return what + " (" + std::strerror(errno) + ")";
}

bool lead_to(const BootLinks &links, const std::string &boot_name) {
    const std::array targets = {boot_name, std::string("./gluecode.com"), std::string("./smc.com")};
    return links.size() == targets.size() &&
           std::equal(links.begin(), links.end(), targets.begin(),
                      [](const BootLink &link, const std::string &target) { return link.target == target; });
}

void copy_missing(const RplFile &file, Journal &journal) {
    const std::string source = file.source();
    if (source.empty())
        fail_without_source(file);
    const Uninterrupted uninterrupted;
    if (!copy_whole(source, file.copy))
        fail(Code::system, base::tr("cannot copy {1} to {2}", source, file.copy));
    try {
        journal.note(MadeRplFile{file.copy, identity_of(file.copy).value_or(FileIdentity{})});
    } catch (...) {
        unlink(file.copy.c_str());
        throw;
    }
}

const std::string &made_area() {
    static const std::string area = rplboot;
    std::string argument = area;
    const SilencedErrors silence;
    mkdir_path(argument.data()); // the lock says what is wrong
    return area;
}

} // namespace

std::string rpl_key(const std::string &ethernet) {
    const ether_addr *address = ether_aton(ethernet.c_str());
    if (address == nullptr)
        return {};
    std::string key;
    for (const unsigned byte : address->ether_addr_octet) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", byte);
        key += digits;
    }
    return key;
}

BootLinks rpl_links_of(const std::string &key) {
    BootLinks links;
    if (key.empty())
        return links;
    for (const char *suffix : suffixes) {
        const std::string name = key + suffix;
        std::error_code error;
        if (fs::exists(fs::symlink_status(path_of(name), error)))
            links.push_back({name, fs::read_symlink(path_of(name), error).string(),
                             fs::is_regular_file(path_of(name), error)});
    }
    return links;
}

std::string rpl_links_state(const std::string &key, const BootLinks &links) {
    if (links.empty())
        return "no";
    for (const char *suffix : suffixes) {
        const auto link = std::find_if(links.begin(), links.end(),
                                       [&](const BootLink &one) { return one.name == key + suffix; });
        if (link == links.end())
            return base::tr("no {1}", key + suffix);
        if (!link->whole)
            return base::tr("{1} leads nowhere", link->name);
    }
    return "yes";
}

bool has_rpl_clients() {
    const auto names = names_in_area();
    return std::any_of(names.begin(), names.end(),
                       [](const std::string &name) { return name.ends_with(".hw.com"); });
}

std::vector<std::string> others_with_key(const std::string &key) {
    std::vector<std::string> others;
    for (const std::string &name : names_in_area())
        if (name.starts_with(key) && std::none_of(suffixes.begin(), suffixes.end(),
                                                  [&](const char *suffix) { return name == key + suffix; }))
            others.push_back(name);
    return others;
}

RplAreaLock::RplAreaLock() : lock_(made_area()) {
    const std::string place = rplboot;
    if (lock_.status() == tables::table_locked)
        fail(Code::busy,
             base::tr("somebody else has been at work in {1} for half a minute; try again later", place));
    if (lock_.status() != 0)
        fail(Code::system, base::tr("cannot lock {1}: {2}", place, std::strerror(-lock_.status())));
}

std::string RplFile::source() const {
    for (const std::string &candidate : candidates)
        if (exists(candidate))
            return candidate;
    return {};
}

std::string missing_source(const RplFile &file) {
    std::string places;
    for (const std::string &candidate : file.candidates)
        places += (places.empty() ? "" : ", ") + candidate;
    return base::tr("there is no {1} to make {2} of; looked for {3}", file.name, file.copy, places);
}

void fail_without_source(const RplFile &file) {
    fail(Code::not_found, missing_source(file));
}

std::string rpl_image(const std::string &root_dir, const Identity &identity) {
    return (root_dir == "/" ? "" : root_dir) + "/export/exec/" + identity.instruction_set + "." +
           identity.os_name + "_" + identity.os_version;
}

std::vector<RplFile> rpl_files(const std::vector<std::string> &images, const std::string &implementation_arch,
                               const std::string &boot_name) {
    std::vector<RplFile> files;
    for (const auto &[copy, name, folder] :
         {std::array{boot_name, std::string("inetboot"), std::string()},
          std::array{std::string("gluecode.com"), std::string("gluecode.com"), std::string("drv.i86pc/")},
          std::array{std::string("smc.com"), std::string("smc.com"), std::string("drv.i86pc/")}}) {
        RplFile file{path_of(copy), name, {}};
        for (const std::string &image : images)
            for (const std::string &place :
                 {"/platform/" + implementation_arch + "/lib/fs/nfs/" + name, "/lib/fs/nfs/" + folder + name})
                file.candidates.push_back(image + place);
        files.push_back(std::move(file));
    }
    return files;
}

bool ensure_rpl_files(const RplAreaLock &, const std::vector<RplFile> &files, Journal &journal) {
    bool changed = false;
    for (const RplFile &file : files) {
        // What a run that was cut off has left would never be refreshed.
        if (is_empty_file(file.copy))
            unlink(file.copy.c_str());
        if (exists(file.copy))
            continue;
        copy_missing(file, journal);
        changed = true;
    }
    if (changed)
        flush_area();
    return changed;
}

bool ensure_rpl_links(const RplAreaLock &, const std::string &method, const std::string &key,
                      const std::string &boot_name, Journal &journal) {
    const auto in_place = [&] {
        const BootLinks links = rpl_links_of(key);
        return lead_to(links, boot_name) && rpl_links_state(key, links) == "yes";
    };
    if (in_place())
        return false;
    for (const BootLink &old : rpl_links_of(key)) {
        if (old.target.empty())
            fail(Code::unusable, base::tr("{1} is no link; remove it first", path_of(old.name)));
        journal.note(ReplacedRplLink{old.name, old.target});
    }
    for (const auto &[suffix, target] : {std::pair<std::string, std::string>(".hw.com", "./smc.com"),
                                         {".glue.com", "./gluecode.com"},
                                         {".inetboot", boot_name}})
        journal.note(MadeRplLink{key + suffix, target});
    {
        const SilencedErrors silence;
        add_rplboot_dir_client(method.c_str(), boot_name.c_str(), key.c_str());
    }
    if (!in_place())
        fail(Code::no_effect, base::tr("cannot make the links of {1} in {2}; is it read-only or not yours to "
                                       "write, or something else in their place?",
                                       key, rplboot));
    flush_area();
    return true;
}

BootLinks remove_rpl_links(const RplAreaLock &, const std::string &method, const std::string &key) {
    BootLinks there = rpl_links_of(key);
    if (there.empty()) // rm would complain of it
        return there;
    if (const auto others = others_with_key(key); !others.empty())
        fail(Code::unusable,
             base::tr("{1} begins like the links of {2} and would be removed with them; give it another name",
                      path_of(others.front()), key));
    {
        const SilencedErrors silence;
        cleanup_rplboot_dir(method.c_str(), key.c_str());
    }
    if (!rpl_links_of(key).empty())
        fail(Code::no_effect, base::tr("cannot remove the links of {1} from {2}", key, rplboot));
    flush_area();
    return there;
}

std::string take_back(const MadeRplLink &made, const UndoContext &) {
    const RplAreaLock lock;
    const std::string path = path_of(made.name);
    std::error_code error;
    if (fs::read_symlink(path, error).string() != made.target)
        return "";
    return unlink(path.c_str()) == 0 || errno == ENOENT ? "" : complaint(path);
}

std::string take_back(const ReplacedRplLink &replaced, const UndoContext &) {
    const RplAreaLock lock;
    const std::string path = path_of(replaced.name);
    return symlink(replaced.target.c_str(), path.c_str()) == 0 || errno == EEXIST
               ? ""
               : complaint(base::tr("without its link {1}", path));
}

std::string take_back(const MadeRplFile &made, const UndoContext &) {
    const RplAreaLock lock;
    const std::string name = fs::path(made.path).filename();
    for (const std::string &other : names_in_area()) {
        std::error_code error;
        if (fs::read_symlink(path_of(other), error).filename() == name)
            return ""; // another client boots from it by now
    }
    return remove_if_same(made.path, made.identity);
}

} // namespace hostadm::server
