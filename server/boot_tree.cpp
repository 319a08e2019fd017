// SPDX-License-Identifier: MIT
#include "server/boot_tree.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <system_error>
#include <unistd.h>

#include "base/program.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/failure.hpp"
#include "server/files.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

constexpr const char *tree_maker = "/usr/bin/grub-mknetdir";
const fs::path installed = "/usr/lib/grub", tree = pc_boot_tree;
const std::string place_aside =
    "/tftpboot/.grub.new"; // beside the tree, so that it is put in place by renaming
// What GRUB puts beside the folders of its platforms.
constexpr const char *common_folders[] = {"fonts", "locale"};

bool is_whole_file(const fs::path &path) {
    std::error_code error;
    return fs::is_regular_file(path, error) && fs::file_size(path, error) > 0 && !error;
}

// Every version of GRUB has its number in this module.
fs::path version_module(const fs::path &where, const Firmware &firmware) {
    return where / firmware.platform / "normal.mod";
}

void remove_place_aside() {
    std::error_code error;
    fs::remove_all(place_aside, error);
    if (error)
        fail(Code::system, base::tr("cannot remove {1}: {2}", place_aside, error.message()));
}

void require_tree_maker() {
    const auto &all = all_firmware();
    if (access(tree_maker, X_OK) != 0 || std::none_of(all.begin(), all.end(), is_installed))
        fail(Code::missing_program, base::tr("GRUB's network files are not installed; install them: apt-get "
                                             "install grub-common grub-pc-bin grub-efi-amd64-bin"));
}

void make_aside() {
    const base::Answer answer = base::run_and_listen(
        {.words = {tree_maker, "--net-directory=" + place_aside, "--subdir=grub"}, .time_limit = 300},
        base::Errors::with_output);
    const auto is_made = [](const Firmware &firmware) {
        return !is_installed(firmware) ||
               is_whole_file(fs::path(place_aside) / "grub" / firmware.platform / firmware.core);
    };
    const auto &all = all_firmware();
    if (answer.ending.well() && std::all_of(all.begin(), all.end(), is_made))
        return;
    fail(Code::system, base::tr("GRUB's network tree cannot be made (grub-mknetdir {1}): {2}",
                                base::in_words(answer.ending), base::last_line(answer.output)));
}

// A client that boots meanwhile finds the old tree or the new one.
void put_in_place(const fs::path &fresh, const fs::path &place) {
    if (renameat2(AT_FDCWD, fresh.c_str(), AT_FDCWD, place.c_str(), RENAME_NOREPLACE) == 0)
        return;
    if (errno != EEXIST || renameat2(AT_FDCWD, fresh.c_str(), AT_FDCWD, place.c_str(), RENAME_EXCHANGE) != 0)
        fail_errno(base::tr("cannot put {1} in place", place.string()));
}

} // namespace

const std::vector<Firmware> &all_firmware() {
    static const std::vector<Firmware> all = {{"BIOS", "i386-pc", "core.0", "grub-pc-bin"},
                                              {"UEFI", "x86_64-efi", "core.efi", "grub-efi-amd64-bin"}};
    return all;
}

bool is_installed(const Firmware &firmware) {
    return is_whole_file(version_module(installed, firmware));
}

bool is_served(const Firmware &firmware, const std::string &where) {
    return is_whole_file(fs::path(where) / firmware.platform / firmware.core) &&
           is_whole_file(version_module(where, firmware));
}

bool is_outdated(const Firmware &firmware) {
    return is_installed(firmware) && is_served(firmware) &&
           !same_content(version_module(installed, firmware), version_module(tree, firmware));
}

bool ensure_boot_tree(const BootAreaLock &, Journal &journal) {
    require_tree_maker();
    const auto &all = all_firmware();
    if (std::all_of(all.begin(), all.end(), [](const Firmware &firmware) {
            return !is_installed(firmware) || (is_served(firmware) && !is_outdated(firmware));
        }))
        return false;
    journal.note(MadeBootTree{
        std::none_of(all.begin(), all.end(), [](const Firmware &one) { return is_served(one); })});
    remove_place_aside(); // of a run that was cut off
    make_aside();
    flush_file_systems({place_aside});
    fs::create_directories(tree);
    for (const fs::directory_entry &folder : fs::directory_iterator(place_aside + "/grub"))
        put_in_place(folder.path(), tree / folder.path().filename());
    remove_place_aside();
    flush_file_systems({tree});
    return true;
}

bool remove_boot_tree(const BootAreaLock &) {
    bool removed = false;
    const auto remove = [&](const fs::path &folder) {
        std::error_code error;
        removed = fs::remove_all(folder, error) > 0 || removed;
        if (error)
            fail(Code::system, base::tr("cannot remove {1}: {2}", folder.string(), error.message()));
    };
    for (const Firmware &firmware : all_firmware())
        remove(tree / firmware.platform);
    for (const char *folder : common_folders)
        remove(tree / folder);
    remove(place_aside);
    rmdir(tree.c_str()); // unless somebody has put something there
    return removed;
}

std::string take_back(const MadeBootTree &made, const UndoContext &) {
    try {
        const BootAreaLock lock;
        if (made.fresh != 0)
            remove_boot_tree(lock);
        else
            remove_place_aside();
    } catch (const Failure &failure) {
        return std::string(pc_boot_tree) + " (" + failure.what() + ")";
    }
    return "";
}

} // namespace hostadm::server
