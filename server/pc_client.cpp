// SPDX-License-Identifier: MIT
#include "server/pc_client.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "base/descriptor.hpp"
#include "base/files.hpp"
#include "base/text.hpp"
#include "base/this_host.hpp"
#include "base/translation.hpp"
#include "server/failure.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

std::string below_tftpboot(const std::string &path) {
    return path.substr(std::strlen(tftpboot) + 1);
}

std::string file_of_system(const std::string &system, const char *file) {
    return std::string(pc_systems) + "/" + system + "/" + file;
}

bool is_whole_file(const std::string &path) {
    struct stat file {};
    return stat(path.c_str(), &file) == 0 && S_ISREG(file.st_mode) && file.st_size > 0;
}

// By its descriptor: where other processes are hidden, as in a preview, no path leads to what is open here.
bool copy_whole(const base::Descriptor &from, const std::string &place) {
    const std::string fresh = parent_of(place) + "/." + fs::path(place).filename().string() + ".new";
    unlink(fresh.c_str()); // of a run that was cut off
    base::Descriptor file(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    constexpr std::size_t at_once = 1 << 20;
    ssize_t copied = file.is_open() ? 1 : -1;
    while (copied > 0)
        copied = sendfile(file.get(), from.get(), nullptr, at_once);
    if (copied == 0 && fsync(file.get()) == 0 && file.close() == 0 &&
        rename(fresh.c_str(), place.c_str()) == 0)
        return true;
    const int reason = errno;
    unlink(fresh.c_str());
    errno = reason;
    return false;
}

void make_file(const std::string &place, const base::Beneath &root, const std::string &source,
               Journal &journal) {
    const base::Descriptor file = root.open_file(source);
    const Uninterrupted uninterrupted;
    if (!copy_whole(file, place))
        fail_errno(base::tr("cannot copy {1} to {2}", root.path_of(source), place));
    journal.note_made(MadePcFile{place, identity_of(place).value_or(FileIdentity{})});
}

std::string text_of_menu(const std::string &path) {
    const base::FileText text = base::read_file(path);
    if (!text && !text.is_missing())
        fail(Code::system, base::tr("cannot read {1}: {2}", path, std::strerror(text.error)));
    return text.text;
}

// 0 or an errno value.
int put_menu(const std::string &path, const std::string &text) {
    if (!text.empty())
        return base::write_file(path, text);
    return unlink(path.c_str()) == 0 || errno == ENOENT ? 0 : errno;
}

bool change_menu(const std::string &path, const std::string &text, Journal &journal) {
    const std::string before = text_of_menu(path);
    if (before == text)
        return false;
    make_directories(parent_of(path), journal);
    journal.note(ChangedPcMenu{path, before, text});
    if (const int error = put_menu(path, text); error != 0)
        fail(Code::system, base::tr("cannot write {1}: {2}", path, std::strerror(error)));
    flush_file_systems({path});
    return true;
}

} // namespace

std::optional<PcMenu> pc_menu_of(const std::string &address) {
    const base::FileText text = base::read_file(pc_menu_path(address));
    if (address.empty() || !text)
        return std::nullopt;
    return read_pc_menu(text.text);
}

BootLinks pc_links_of(const std::string &address) {
    const auto menu = pc_menu_of(address);
    if (!menu)
        return {};
    const std::string kernel = file_of_system(menu->system, "vmlinuz");
    const bool whole = !menu->system.empty() && is_whole_file(kernel) &&
                       is_whole_file(file_of_system(menu->system, "initrd.img"));
    return {
        {below_tftpboot(pc_menu_path(address)), menu->system.empty() ? "" : below_tftpboot(kernel), whole}};
}

std::string pc_links_state(const BootLinks &links) {
    if (links.empty())
        return "no";
    const BootLink &menu = links.front();
    if (menu.target.empty())
        return base::tr("{1} names no kernel", menu.name);
    return menu.whole ? "yes" : base::tr("no kernel or initramfs in {1}", parent_of(menu.target));
}

PcNetwork pc_network_of(const std::string &address) {
    const in_addr_t number = inet_addr(address.c_str());
    for (const PcNetwork &network : pc_networks({}, ""))
        if ((number & inet_addr(network.netmask.c_str())) == inet_addr(network.network.c_str()))
            return network;
    fail(Code::unusable,
         base::tr("no interface of this server is in the network of {1}, so that a PC could not be told "
                  "where it is; give it another address, or the interface one of that network",
                  address));
}

std::string pc_router(const std::string &interface) {
    const std::string option = "dhcp-option=tag:" + interface + ",option:router,";
    std::string router;
    base::for_each_line(base::file_contents(dhcp_settings_path), [&](std::string_view line) {
        if (line.starts_with(option))
            router = line.substr(option.size());
    });
    return router;
}

std::string pc_server_address(const std::string &server, const PcNetwork &network) {
    const std::string told = base::address_of_host(server);
    return !told.empty() && !told.starts_with("127.") && base::is_own_address(told) ? told : network.address;
}

PcKernel newest_kernel_in(const base::Beneath &root) {
    constexpr std::string_view prefix = "vmlinuz-";
    if (!root.is_directory("boot"))
        return {};
    std::string release;
    for (const std::string &name : root.names("boot"))
        // As versions are compared: 6.1.0-10 is newer than 6.1.0-9.
        if (name.starts_with(prefix) && root.is_file("boot/" + name))
            if (const std::string other = name.substr(prefix.size());
                release.empty() || strverscmp(other.c_str(), release.c_str()) > 0)
                release = other;
    PcKernel newest;
    if (!release.empty())
        newest = {"boot/vmlinuz-" + release, "boot/initrd.img-" + release};
    else if (root.is_file("boot/vmlinuz"))
        newest = {"boot/vmlinuz", "boot/initrd.img"};
    if (!newest.initramfs.empty() && !root.is_file(newest.initramfs))
        newest.initramfs.clear();
    return newest;
}

PcKernel require_kernel(const base::Beneath &root) {
    const PcKernel newest = newest_kernel_in(root);
    if (newest.kernel.empty())
        fail(Code::not_found, base::tr("there is no kernel {1} for a PC; install one there: chroot {2} "
                                       "apt-get install linux-image-amd64",
                                       root.path_of("boot/vmlinuz-RELEASE"), root.path()));
    if (newest.initramfs.empty())
        fail(Code::not_found,
             base::tr("{1} has no initramfs beside it; make it: chroot {2} update-initramfs -c -k all",
                      root.path_of(newest.kernel), root.path()));
    return newest;
}

std::string kernel_release(const base::Descriptor &file) {
    // The kernel's own boot protocol: a signature, and where the text of its version lies.
    constexpr off_t signature_place = 0x202, version_place = 0x20e, base_of_version = 0x200;
    char signature[4] = {}, version[64] = {};
    std::uint16_t place = 0;
    if (pread(file.get(), signature, sizeof signature, signature_place) != sizeof signature ||
        std::memcmp(signature, "HdrS", sizeof signature) != 0 ||
        pread(file.get(), &place, sizeof place, version_place) != sizeof place || place == 0 ||
        pread(file.get(), version, sizeof version - 1, base_of_version + place) <= 0)
        return {};
    return std::string(base::first_word(version));
}

std::string kernel_release(const std::string &path) {
    const base::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    return file.is_open() ? kernel_release(file) : "";
}

std::string pc_initramfs_in_place(const std::string &system) {
    const std::string initramfs = file_of_system(system, "initrd.img");
    return is_whole_file(file_of_system(system, "vmlinuz")) && is_whole_file(initramfs) ? initramfs : "";
}

bool ensure_pc_system(const BootAreaLock &, const std::string &system, const base::Beneath &root,
                      Journal &journal) {
    const std::string kernel = file_of_system(system, "vmlinuz"),
                      initramfs = file_of_system(system, "initrd.img");
    // One without the other is what a run has left that was cut off: they belong together.
    if (!pc_initramfs_in_place(system).empty())
        return false;
    const PcKernel newest = require_kernel(root);
    make_directories(parent_of(kernel), journal);
    make_file(initramfs, root, newest.initramfs, journal);
    make_file(kernel, root, newest.kernel, journal);
    flush_file_systems({pc_systems});
    return true;
}

bool ensure_pc_menu(const BootAreaLock &, const PcMenu &menu, Journal &journal) {
    return change_menu(pc_menu_path(menu.address), pc_menu_text(menu), journal);
}

bool remove_pc_menu(const BootAreaLock &, const std::string &address, Journal &journal) {
    return change_menu(pc_menu_path(address), "", journal);
}

std::string take_back(const MadePcFile &made, const UndoContext &) {
    const BootAreaLock lock;
    const std::string system = fs::path(made.path).parent_path().filename();
    for (const std::string &name : pc_menus())
        if (read_pc_menu(base::file_contents(std::string(pc_boot_tree) + "/" + name)).system == system)
            return ""; // another client boots from it by now
    return remove_if_same(made.path, made.identity);
}

std::string take_back(const ChangedPcMenu &changed, const UndoContext &) {
    const BootAreaLock lock;
    const base::FileText now = base::read_file(changed.path);
    if (now.text != changed.after)
        return "";
    const int error = put_menu(changed.path, changed.before);
    return error == 0 ? "" : changed.path + " (" + std::strerror(error) + ")";
}

} // namespace hostadm::server
