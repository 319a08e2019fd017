// SPDX-License-Identifier: MIT
// Install hierarchies: where operating systems for clients lie.
//
// Two kinds are known. An export area holds one folder for each instruction set and release, and the packages
// that clients' roots are made of:
//
//     export/exec/INST_SET.OS_NAME_OS_VERSION/                   what tells that it is one
//         platform/IMPL_ARCH/lib/fs/nfs/inetboot                 the boot program, or
//         lib/fs/nfs/inetboot                                    that of all architectures
//     export/root/templates/OS_NAME_OS_VERSION/PACKAGE/pkginfo   the packages of a root; where there is no
//                                                                such folder, those of the first one
//
// A tree is a root file system ready to be copied, with its boot program in it:
//
//     etc or usr                                      what tells that it is one
//     boot/BOOT_NAME                                  the boot program, or the first of
//     usr/platform/IMPL_ARCH/lib/fs/nfs/inetboot
//     platform/IMPL_ARCH/lib/fs/nfs/inetboot
//     usr/lib/fs/nfs/inetboot
//     lib/fs/nfs/inetboot
//
// BOOT_NAME is the boot program's name in /tftpboot, such as inetboot.kel4m.Quorvel_2.5.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace hostadm::server {

struct Identity {
    std::string instruction_set, implementation_arch, os_name, os_version;
};

struct OsPaths {
    std::string root_path; // a directory of packages, or a tree
    std::string boot_prog;
};

// Throws std::runtime_error that says what is missing where.
OsPaths find_os(const std::string &hierarchy, const Identity &identity);

// Whether a directory holds packages: folders with a pkginfo file in them.
bool holds_packages(const std::string &directory);
// Whether it looks like a root file system.
bool is_tree(const std::string &directory);

} // namespace hostadm::server
