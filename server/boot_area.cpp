// SPDX-License-Identifier: MIT
#include "server/boot_area.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "base/descriptor.hpp"
#include "base/owners.hpp"
#include "base/this_host.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "server/failure.hpp"
#include "server/silenced_errors.hpp"
#include "server/transaction.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t digits_length = 8;

bool is_digits(std::string_view text) {
    return text.size() == digits_length && text.find_first_not_of("0123456789ABCDEF") == text.npos;
}

bool begins_with_digits(std::string_view name) {
    return name.size() >= digits_length && is_digits(name.substr(0, digits_length)) &&
           (name.size() == digits_length || name[digits_length] == '.');
}

BootLink read_link(const std::string &name) {
    const fs::path path = fs::path(tftpboot) / name;
    std::error_code error;
    BootLink link{name, fs::read_symlink(path, error).string()};
    struct stat file {};
    link.whole = stat(path.c_str(), &file) == 0 && S_ISREG(file.st_mode);
    return link;
}

// Every name in the boot directory that begins with some client's digits.
template <typename Use> void for_each_link(Use use) {
    std::error_code error;
    for (fs::directory_iterator entry(tftpboot, error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename();
        if (begins_with_digits(name))
            use(name);
    }
}

void sort(BootLinks &links) {
    std::sort(links.begin(), links.end(),
              [](const BootLink &one, const BootLink &other) { return one.name < other.name; });
}

std::string path_of(const std::string &name) {
    return std::string(tftpboot) + "/" + name;
}

std::string upper_case(std::string text) {
    for (char &c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

std::string complaint(const std::string &what) {
    return what + " (" + std::strerror(errno) + ")";
}

std::string find_boot_program(const std::string &method, const Identity &identity,
                              const BootProgramSource &source) {
    if (!source.file.empty())
        return source.file;
    const auto &[inst_set, impl_arch, os_name, os_version] = identity;
    const base::Allocated<char> found(
        install_bootprog_location(method.c_str(), base::own_host_name().c_str(), source.hierarchy.c_str(),
                                  inst_set.c_str(), impl_arch.c_str(), os_name.c_str(), os_version.c_str()));
    return found == nullptr ? "" : found.get();
}

// A run was cut off while it made the program.
bool is_empty_file(const std::string &path) {
    struct stat file {};
    return lstat(path.c_str(), &file) == 0 && S_ISREG(file.st_mode) && file.st_size == 0;
}

// After a power cut the name must not stand for an empty file.
void flush(const std::string &path) {
    const base::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.is_open() || fsync(file.get()) != 0)
        fail_errno(base::tr("cannot write {1}", path));
}

} // namespace

std::string address_digits(const std::string &address) {
    in_addr parsed{};
    if (inet_pton(AF_INET, address.c_str(), &parsed) != 1)
        return {};
    char digits[digits_length + 1];
    std::snprintf(digits, sizeof digits, "%08X", static_cast<unsigned int>(ntohl(parsed.s_addr)));
    return digits;
}

std::string names_of(const BootLinks &links) {
    std::string names;
    for (const BootLink &link : links)
        names += (names.empty() ? "" : ", ") + link.name;
    return names;
}

std::unordered_map<std::string, BootLinks> all_boot_links() {
    std::unordered_map<std::string, BootLinks> links;
    for_each_link(
        [&](const std::string &name) { links[name.substr(0, digits_length)].push_back(read_link(name)); });
    for (auto &[digits, of_one] : links)
        sort(of_one);
    return links;
}

BootLinks boot_links_of(const std::string &address) {
    const std::string digits = address_digits(address);
    BootLinks links;
    for_each_link([&](const std::string &name) {
        if (name.starts_with(digits))
            links.push_back(read_link(name));
    });
    sort(links);
    return links;
}

std::string architecture_of(std::string_view boot_program) {
    for (const std::string_view prefix : {"inetboot.", "boot."}) {
        if (boot_program.starts_with(prefix)) {
            const std::string_view rest = boot_program.substr(prefix.size());
            return std::string(rest.substr(0, rest.find('.')));
        }
    }
    return {};
}

std::string boot_links_state(const std::string &digits, const BootLinks &links) {
    if (links.empty())
        return "no";
    if (links.front().name != digits)
        return base::tr("no {1}", digits);
    if (links.size() == 1)
        return base::tr("no {1}.ARCH", digits);
    for (const BootLink &link : links)
        if (!link.whole)
            return base::tr("{1} leads nowhere", link.name);
    return "yes";
}

bool lead_to(const BootLinks &links, const std::string &digits, const std::string &architecture,
             const std::string &boot_program) {
    return links.size() == 2 && links[0].name == digits && links[1].name == digits + "." + architecture &&
           links[0].target == boot_program && links[1].target == boot_program;
}

BootAreaLock::BootAreaLock() : lock_(tftpboot) {
    const std::string place = tftpboot;
    if (lock_.status() == tables::table_locked)
        fail(Code::busy,
             base::tr("somebody else has been at work in {1} for half a minute; try again later", place));
    if (lock_.status() != 0)
        fail(Code::system, base::tr("cannot lock {1}: {2}", place, std::strerror(-lock_.status())));
}

bool same_content(const std::string &one, const std::string &other) {
    std::ifstream first(one, std::ios::binary), second(other, std::ios::binary);
    std::istreambuf_iterator<char> byte(first), end;
    return std::equal(byte, end, std::istreambuf_iterator<char>(second), end);
}

bool copy_whole(const std::string &source, const std::string &destination) {
    const std::filesystem::path place = destination;
    const std::string fresh = place.parent_path() / ("." + place.filename().string() + ".new");
    unlink(fresh.c_str()); // of a run that was cut off
    const bool whole = copyfile(fresh.c_str(), source.c_str()) == 0 && chmod(fresh.c_str(), 0644) == 0 &&
                       same_content(fresh, source);
    if (whole)
        flush(fresh);
    if (whole && rename(fresh.c_str(), destination.c_str()) == 0)
        return true;
    unlink(fresh.c_str());
    return false;
}

bool ensure_boot_program(const BootAreaLock &, const std::string &method, const Identity &identity,
                         const std::string &boot_name, const BootProgramSource &source, Journal &journal) {
    const std::string program = path_of(boot_name);
    if (exists(program) && !is_empty_file(program))
        return false;
    const std::string file = find_boot_program(method, identity, source);
    const std::string fresh = path_of("." + boot_name + ".new");
    unlink(fresh.c_str()); // of a run that was cut off; nobody else is here, by the lock
    const auto cannot_copy = [&] {
        unlink(fresh.c_str());
        fail(Code::system, base::tr("cannot copy the boot program {1} to {2}", file, tftpboot));
    };
    {
        const Uninterrupted uninterrupted;
        const base::Descriptor made(
            open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
        if (!made.is_open())
            fail_errno(base::tr("cannot make {1}", fresh));
        journal.note_made(MadeFile{fresh, identity_of(fresh).value_or(FileIdentity{})});
    }
    if (copyfile(fresh.c_str(), file.c_str()) != 0 || chmod(fresh.c_str(), 0644) != 0)
        cannot_copy();
    struct stat copied {};
    if (stat(fresh.c_str(), &copied) != 0 || copied.st_size == 0 || !same_content(fresh, file))
        cannot_copy();
    flush(fresh);
    journal.note(MadeBootProgram{program, identity_of(fresh).value_or(FileIdentity{})});
    if (rename(fresh.c_str(), program.c_str()) != 0)
        fail_errno(base::tr("cannot put {1} in place", program));
    flush(tftpboot);
    return true;
}

InitialisedBootArea initialise_boot_area(const BootAreaLock &, const std::string &method,
                                         const Identity &identity, const std::string &host,
                                         const std::string &hierarchy) {
    const auto &[inst_set, impl_arch, os_name, os_version] = identity;
    std::string architecture = impl_arch;
    const std::string boot_name =
        make_boot_name(os_version.c_str(), os_name.c_str(), inst_set.c_str(), impl_arch.c_str());
    const std::string program = path_of(boot_name);
    if (is_empty_file(program))
        unlink(program.c_str());
    const bool was_there = exists(program);
    const std::string where = host.empty() ? base::own_host_name() : host;
    // The library ends its process when it cannot copy the program, and leaves what there is of the copy, which would
    // be booted from ever after.
    const Ending ending = run_apart([&] {
        init_tftpboot_dir(method.c_str(), where.c_str(), nullptr, architecture.data(), hierarchy.c_str(),
                          identity.instruction_set.c_str(), identity.os_name.c_str(),
                          identity.os_version.c_str());
        return 0;
    });
    if (!ending.done) {
        struct stat part {};
        if (!was_there && lstat(program.c_str(), &part) == 0 && S_ISREG(part.st_mode))
            unlink(program.c_str());
        if (!ending.reason.empty())
            fail(Code::interrupted, ending.reason);
        throw Recorded();
    }
    if (!was_there)
        flush(program);
    return {boot_name, !was_there};
}

bool ensure_boot_links(const BootAreaLock &, const std::string &method, const std::string &address,
                       const std::string &implementation_arch, const std::string &boot_name,
                       Journal &journal) {
    std::string architecture = implementation_arch; // becomes upper case
    const std::string digits = address_digits(address), suffix = upper_case(implementation_arch);
    const auto in_place = [&] { return lead_to(boot_links_of(address), digits, suffix, boot_name); };
    if (in_place())
        return false;
    for (const BootLink &old : boot_links_of(address)) {
        if (old.target.empty())
            fail(Code::unusable, base::tr("{1} is no link; remove it first", path_of(old.name)));
        journal.note(ReplacedBootLink{old.name, old.target});
    }
    for (const std::string &name : {digits, digits + "." + suffix})
        journal.note(MadeBootLink{name, boot_name});
    {
        const SilencedErrors silence;
        add_tftpboot_dir_client(method.c_str(), boot_name.c_str(), address.c_str(), architecture.data());
    }
    // An old link that could not be removed stays, and counts as made.
    if (!in_place())
        fail(Code::no_effect, base::tr("cannot make the links of {1} in {2} to {3}; is it read-only or not "
                                       "yours to write, or something else in their place?",
                                       address, tftpboot, boot_name));
    flush(tftpboot);
    return true;
}

BootLinks remove_boot_links(const BootAreaLock &, const std::string &method, const std::string &address) {
    BootLinks there = boot_links_of(address);
    if (there.empty()) // rm would complain of it
        return there;
    {
        const SilencedErrors silence;
        cleanup_tftpboot_dir(method.c_str(), address.c_str());
    }
    if (!boot_links_of(address).empty())
        fail(Code::no_effect, base::tr("cannot remove the links of {1} from {2}", address, tftpboot));
    flush(tftpboot);
    return there;
}

std::string take_back(const MadeBootLink &made, const UndoContext &) {
    const BootAreaLock lock;
    const std::string path = path_of(made.name);
    std::error_code error;
    if (fs::read_symlink(path, error).string() != made.target)
        return "";
    return unlink(path.c_str()) == 0 || errno == ENOENT ? "" : complaint(path);
}

std::string take_back(const ReplacedBootLink &replaced, const UndoContext &) {
    const BootAreaLock lock;
    const std::string path = path_of(replaced.name);
    return symlink(replaced.target.c_str(), path.c_str()) == 0 || errno == EEXIST
               ? ""
               : complaint(base::tr("without its link {1}", path));
}

std::string take_back(const MadeBootProgram &made, const UndoContext &) {
    const BootAreaLock lock;
    const std::string name = fs::path(made.path).filename();
    for (const auto &[digits, links] : all_boot_links())
        for (const BootLink &link : links)
            if (link.target == name)
                return ""; // another client boots from it by now
    return remove_if_same(made.path, made.identity);
}

} // namespace hostadm::server
