// SPDX-License-Identifier: MIT
// The boot area: boot programs in /tftpboot, and the links by which each client finds its own.
#pragma once

#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "hostadm/table_edit.hpp"
#include "server/files.hpp"
#include "server/journal.hpp"
#include "server/packages.hpp"
#include "server/undo_context.hpp"

namespace hostadm::server {

inline constexpr const char *tftpboot = "/tftpboot";

struct BootLink {
    std::string name;
    std::string target; // empty: no link
    bool whole = false; // it leads to a file
};

using BootLinks = std::vector<BootLink>;      // in the order of their names
std::string names_of(const BootLinks &links); // with commas between them

// The eight upper-case hexadecimal digits under which the client of an address asks; empty when it is none.
std::string address_digits(const std::string &address);

// All links, by the digits that their names begin with. One pass over the directory, which may be missing.
std::unordered_map<std::string, BootLinks> all_boot_links();
BootLinks boot_links_of(const std::string &address);

// The implementation architecture in the name of a boot program, such as inetboot.kel4m.Quorvel_2.5; empty
// when the name is of another kind.
std::string architecture_of(std::string_view boot_program);

// "yes" when the link of the digits and that of the architecture are there and lead to a file, "no" when
// there is none at all, else what is wrong.
std::string boot_links_state(const std::string &digits, const BootLinks &links);

// Whether the links are those of the digits and of the architecture and nothing else, both to that program.
bool lead_to(const BootLinks &links, const std::string &digits, const std::string &architecture,
             const std::string &boot_program);

// Keeps others out as long as a boot program and its links belong together only half: every edit of the boot area
// is made under it. Throws Failure when somebody else holds it for half a minute.
class BootAreaLock {
public:
    BootAreaLock();

private:
    tables::FolderLock lock_;
};

struct MadeBootLink {
    static constexpr std::string_view kind = "made boot link";
    std::string name, target;
    static auto fields(auto &self) { return std::tie(self.name, self.target); }
};
std::string take_back(const MadeBootLink &made, const UndoContext &context);

struct ReplacedBootLink {
    static constexpr std::string_view kind = "replaced boot link";
    std::string name, target;
    static auto fields(auto &self) { return std::tie(self.name, self.target); }
};
std::string take_back(const ReplacedBootLink &replaced, const UndoContext &context);

struct MadeBootProgram {
    static constexpr std::string_view kind = "made boot program";
    std::string path;
    FileIdentity identity;
    static auto fields(auto &self) {
        return std::tie(self.path, self.identity.device, self.identity.inode, self.identity.born);
    }
};
// It stays if another client boots from it by now.
std::string take_back(const MadeBootProgram &made, const UndoContext &context);

// Where a boot program comes from: the file itself, or a hierarchy that holds it.
struct BootProgramSource {
    std::string file;
    std::string hierarchy;
};

// Edits of the boot area, made while its lock is held. Each returns false when it was so already.
//
// Puts the boot program of an identity in place, as a whole and flushed, or not at all.
bool ensure_boot_program(const BootAreaLock &, const std::string &method, const Identity &identity,
                         const std::string &boot_name, const BootProgramSource &source, Journal &journal);
// The same by the library's own way, which asks another host for the program if one is named. The program's name,
// and whether it was copied now. Ends the process, after recording why, when it cannot be had.
struct InitialisedBootArea {
    std::string boot_name;
    bool copied;
};
InitialisedBootArea initialise_boot_area(const BootAreaLock &, const std::string &method,
                                         const Identity &identity, const std::string &host,
                                         const std::string &hierarchy);
// Lets the client of an address boot from it, and looks whether it is so.
bool ensure_boot_links(const BootAreaLock &, const std::string &method, const std::string &address,
                       const std::string &implementation_arch, const std::string &boot_name,
                       Journal &journal);
// Removes a client's links, and looks whether they are gone. Returns those that there were.
BootLinks remove_boot_links(const BootAreaLock &, const std::string &method, const std::string &address);

// Copies a file as a whole and flushed, or not at all.
bool copy_whole(const std::string &source, const std::string &destination);
bool same_content(const std::string &one, const std::string &other);

} // namespace hostadm::server
