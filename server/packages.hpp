// SPDX-License-Identifier: MIT
// Packages: the install hierarchies in which operating systems for clients lie, and what this server's software
// records say of packages and of the templates of clients' roots.
//
// Two kinds of hierarchies are known. An export area holds one folder for each instruction set and release, and the packages
// that clients' roots are made of:
//
//     export/exec/INST_SET.OS_NAME_OS_VERSION/                   what tells that it is one
//         platform/IMPL_ARCH/lib/fs/nfs/inetboot                 the boot program, or
//         lib/fs/nfs/inetboot                                    that of all architectures
//     export/root/templates/OS_NAME_OS_VERSION/PACKAGE/pkginfo   the packages of a root; where there is no such
//                                                                folder, those of the first one
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

#include <string>
#include <vector>

#include "base/descriptor.hpp"

namespace hostadm::server {

struct Identity {
    std::string instruction_set, implementation_arch, os_name, os_version;
};

struct OsPaths {
    std::string root_path; // a directory of packages, or a tree
    std::string boot_prog;
};

// Throws Failure that says what is missing where.
OsPaths find_os(const std::string &hierarchy, const Identity &identity);

// The boot program of a root file system that may be a client's, whose links lead nowhere else; closed: there is none.
base::Descriptor boot_program_in(const std::string &root, const Identity &identity);

// Whether a directory holds packages: folders with a pkginfo file in them.
bool holds_packages(const std::string &directory);
// Whether it looks like a root file system.
bool is_tree(const std::string &directory);

std::string server_architecture();
std::string server_release();

// Where this server keeps the records of its OS services.
std::string service_record_folder();

// A package that lies ready to be installed, and what its pkginfo says of it; empty: nothing.
struct SpooledPackage {
    std::string name; // of its folder
    std::string version = {}, architecture = {}, base = {};
};
// In the order of their names.
std::vector<SpooledPackage> packages_in(const std::string &directory);

// Is a package whose name begins so recorded for the architecture:
// on this server, or in the tree of a service of another release?
bool is_package_recorded(const std::string &arch, const std::string &release, const std::string &package);

// One package among the templates of a service.
class TemplateRecord {
public:
    TemplateRecord(std::string package_dir, std::string package, std::string arch,
                   const std::string &release);

    const std::string &file() const { return file_; }       // the record file of the service
    const std::string &path() const { return template_; }   // where the template belongs
    const std::string &version() const { return version_; } // empty: the package tells none
    bool is_recorded() const;                               // by both of its lines
    bool exists() const;

    // Why it must not be added, in words, or nothing: a version that the shell would take apart, that makes
    // no name or that the library would cut, or lines and templates of other packages that would go with an
    // older version, because their names hold this one's.
    std::string obstacle() const;

    // Makes the folder of the record file. The library appends to the file without looking whether it can.
    void prepare() const;
    // The library looks for older versions in what comes from standard input:
    // gives it the record file, or nothing when there is none.
    void become_standard_input() const;
    void remove_template() const;

private:
    std::vector<std::string> also_replaced() const;
    bool mentions(const std::string &text) const;

    std::string package_, arch_, os_directory_, file_, version_, template_;
    bool version_is_cut_;
};

} // namespace hostadm::server
