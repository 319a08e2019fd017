// SPDX-License-Identifier: MIT
// The operating systems that this server keeps for its clients, its OS services. What is kept of one lies in
//
//     /export/NAME_VERSION/                                what all its instruction sets have in common:
//         var/sadm/system/admin/                             the catalogue files of clients' roots
//         usr_INST_SET.all/                                  executables
//     /export/exec/INST_SET.NAME_VERSION/                  boot programs, and a link usr to the executables
//     /export/root/templates/NAME_VERSION/                 what clients' roots are made of: a folder for each package,
//         PACKAGE_VERSION_INST_SET.all/                    or one for a tree
//
// and is told by the record file NAME_VERSION of this server, line by line:
//
//     OS_SERVICE=NAME VERSION INST_SET [IMPL_ARCH]         its parameters, a line for each implementation architecture
//     SPOOLED_ROOT=INST_SET.all:TEMPLATE                   also those that service/add_template_package adds
//     ROOT=INST_SET.all:PACKAGE,VERSION
//     KEY=INST_SET.all:VALUE                               SOURCE, EXECUTABLES, BOOT_PROGRAM, PATCH, and MADE_...:
//                                                          what goes with the service
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "base/descriptor.hpp"
#include "server/filling.hpp"
#include "server/packages.hpp"

namespace hostadm::server {

// Something that was made for a service and goes with it.
struct MadeForService {
    enum class Kind { tree, directory, file };
    Kind kind;
    std::string path;
};

struct Service {
    std::string os_name, os_version, instruction_set;
    std::vector<std::string> architectures = {}; // implementations that were named
    std::string source = {};                     // what it was made of
    std::vector<std::string> templates = {};     // in the order in which they make up a root
    std::vector<std::string> packages = {};      // NAME,VERSION
    std::string executables = {};                // empty: none
    std::vector<std::pair<std::string, std::string>> boot_programs = {}; // implementation, or "all"; file
    std::vector<std::string> patches = {};
    std::vector<MadeForService> made = {}; // in the order in which it was made

    std::string directory_name() const { return os_name + "_" + os_version; }
    std::string title() const { return os_name + " " + os_version + " for " + instruction_set; }
    std::string area() const;              // /export/NAME_VERSION
    std::string exec_directory() const;    // /export/exec/INST_SET.NAME_VERSION
    std::string executables_base() const;  // /usr_INST_SET.all, as in its area
    std::string executables_place() const; // with the area
    std::string template_place(const std::string &name, const std::string &version) const;
    std::string record_file() const;
    static std::string patch_place(const std::string &patch);
    std::string package_of(const std::string &template_path) const; // NAME,VERSION; empty: not recorded

    bool holds(const std::string &path) const;       // whether it is part of this service
    bool made_itself(const std::string &path) const; // a template may have come in another way

    RootSource root_source() const;
    // Of an implementation, or that of all; empty: none.
    std::string boot_program_of(const std::string &architecture) const;
    // Roots made of packages have no /usr of their own where its packages are executables of the service.
    bool lends_usr() const { return !executables.empty() && root_source().tree.empty(); }
};

// With which the executables are shared with all clients.
inline constexpr const char *executables_share_options = "ro";

// Throws Failure when the records cannot be read.
std::vector<Service> all_services();
std::optional<Service> find_service(const std::string &os_name, const std::string &os_version,
                                    const std::string &instruction_set);
// What the record file of a service says of all instruction sets.
std::vector<Service> services_in(std::string_view record);

// The lines of its record file.
std::vector<std::string> record_lines(const Service &service);
std::string record_line_of(const MadeForService &made, const Service &service);
// The text of a record file without a service. Templates that came in another way stay recorded.
std::string without_service(std::string_view record, const Service &service);

// The clients that boot from a service, or whose entry names something of it. Throws Failure.
std::vector<std::string> clients_of(const Service &service);

// Throws Refusal when a name cannot be part of paths and records.
void check_service_names(const std::string &os_name, const std::string &instruction_set,
                         const std::string &implementation_arch);

// Keeps a service in place while a client is made of it, or keeps clients away while it is laid out or goes. Throws
// Failure when the other is under way.
class ServiceLock {
public:
    enum class For { client, change };
    ServiceLock(const Service &service, For use);

private:
    base::Descriptor file_;
};

// Packages were installed in the area of a service, with this base.
struct InstalledPackages {
    static constexpr std::string_view kind = "installed packages";
    std::string area, base;
    static auto fields(auto &self) { return std::tie(self.area, self.base); }
};
std::string take_back(const InstalledPackages &installed, const UndoContext &context);
// Takes them out of the area's package records. Their files are somebody else's matter. Throws base::BeneathError.
void forget_installed(const std::string &area, const std::string &base);

} // namespace hostadm::server
