// SPDX-License-Identifier: MIT
// The boot area of clients that boot by remote program load: three programs in /rplboot that all share, and the three
// links by which each client finds them.
//
//     /rplboot/inetboot.ARCH.SYSTEM, gluecode.com, smc.com     shared
//     /rplboot/KEY.hw.com -> ./smc.com                         a client's; KEY is its Ethernet address as twelve
//     /rplboot/KEY.glue.com -> ./gluecode.com                  upper-case hexadecimal digits
//     /rplboot/KEY.inetboot -> inetboot.ARCH.SYSTEM
#pragma once

#include <string>
#include <tuple>
#include <vector>

#include "hostadm/table_edit.hpp"
#include "server/boot_area.hpp"
#include "server/files.hpp"
#include "server/journal.hpp"
#include "server/packages.hpp"
#include "server/undo_context.hpp"

namespace hostadm::server {

inline constexpr const char *rplboot = "/rplboot";

// Empty: the text is no Ethernet address.
std::string rpl_key(const std::string &ethernet);

// A client's links; those of the three that are there, that of the boot program first.
BootLinks rpl_links_of(const std::string &key);
// "yes", "no", or what is wrong with them.
std::string rpl_links_state(const std::string &key, const BootLinks &links);
// Whether any client boots so.
bool has_rpl_clients();
// Other names in the area that begin with the key: the library would remove them with the client's.
std::vector<std::string> others_with_key(const std::string &key);

// Every edit of the area is made under it. Makes the directory if it is missing. Throws Failure when somebody else
// holds it for half a minute.
class RplAreaLock {
public:
    RplAreaLock();

private:
    tables::FolderLock lock_;
};

// A file that all clients share, and where its image may hold it.
struct RplFile {
    std::string copy, name;
    std::vector<std::string> candidates;

    std::string source() const; // the first that is there; empty: none
};
// `images` are searched in their order, each first for the architecture.
std::vector<RplFile> rpl_files(const std::vector<std::string> &images, const std::string &implementation_arch,
                               const std::string &boot_name);
std::string missing_source(const RplFile &file); // in words
[[noreturn]] void fail_without_source(const RplFile &file);
// An image below a directory that holds an export area.
std::string rpl_image(const std::string &root_dir, const Identity &identity);

struct MadeRplFile {
    static constexpr std::string_view kind = "made RPL file";
    std::string path;
    FileIdentity identity;
    static auto fields(auto &self) {
        return std::tie(self.path, self.identity.device, self.identity.inode, self.identity.born);
    }
};
// It stays if a client boots from it by now.
std::string take_back(const MadeRplFile &made, const UndoContext &context);

struct MadeRplLink {
    static constexpr std::string_view kind = "made RPL link";
    std::string name, target;
    static auto fields(auto &self) { return std::tie(self.name, self.target); }
};
std::string take_back(const MadeRplLink &made, const UndoContext &context);

struct ReplacedRplLink {
    static constexpr std::string_view kind = "replaced RPL link";
    std::string name, target;
    static auto fields(auto &self) { return std::tie(self.name, self.target); }
};
std::string take_back(const ReplacedRplLink &replaced, const UndoContext &context);

// Each returns false when it was so already, and throws Failure.
//
// Puts what is missing of the shared files in place, each as a whole and flushed, or not at all.
bool ensure_rpl_files(const RplAreaLock &, const std::vector<RplFile> &files, Journal &journal);
// Lets a client boot from them, and looks whether it is so.
bool ensure_rpl_links(const RplAreaLock &, const std::string &method, const std::string &key,
                      const std::string &boot_name, Journal &journal);
// Removes a client's links, and looks whether they are gone. Returns those that there were.
BootLinks remove_rpl_links(const RplAreaLock &, const std::string &method, const std::string &key);

} // namespace hostadm::server
