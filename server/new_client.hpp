// SPDX-License-Identifier: MIT
// A client that is asked for, with all that was left to defaults, and what stands in its way.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "hostadm/method.hpp"
#include "server/boot_area.hpp"
#include "server/bootparams.hpp"
#include "server/claims.hpp"
#include "server/client_kind.hpp"
#include "server/clients.hpp"
#include "server/filling.hpp"
#include "server/packages.hpp"
#include "server/pc_area.hpp"
#include "server/rpl_area.hpp"
#include "server/services.hpp"

namespace hostadm::server {

struct NewClient {
    std::string name, address, ethernet;
    ClientKind kind = ClientKind::diskless;
    std::string server; // this server's name, as the client is told
    Identity identity;
    std::string root, swap, dump; // the latter two: empty for none
    std::uint64_t swap_size = 0;
    RootSource source;
    std::string hierarchy;          // holds the boot program
    std::string boot_program;       // the file, if it was named
    std::string boot_name;          // its name in /tftpboot, or /rplboot
    std::optional<Service> service; // that it is made of
    bool nfs4 = false;              // of a PC: the version of NFS, and further words for its kernel
    std::string kernel_words = {};
    bool prepare = false; // its root gets the tables that it needs
    bool adopted = false; // its root is there already, and stays whatever becomes of the run
    // Of a client that is made like another: what names that one in its root, what it is told beside the usual, and
    // the options of its shares.
    std::vector<std::pair<std::string, std::string>> words = {};
    std::vector<BootparamsItem> more_items = {};
    std::string options = {};

    // The directories that it mounts: its root, and those of its swap and dump files.
    std::vector<std::string> shared_directories() const;
    std::string share_options() const { return options.empty() ? share_options_of(name) : options; }
    std::vector<BootparamsItem> items() const;
    BootProgramSource boot_program_source() const;
    // The same for a client that boots by RPL.
    std::vector<RplFile> rpl_sources() const;
    std::vector<Claim> claims() const;
    // What a PC boots by. Throws Failure when none of this server's networks is its own.
    PcMenu pc_menu() const;
    // Of its operating system: the area, the packages of a root, whether clients get their /usr from there.
    std::string area() const { return "/export/" + identity.os_name + "_" + identity.os_version; }
    std::vector<std::string> names_of_packages() const;
    bool mounts_usr() const; // once its root is filled
};

inline constexpr const char *default_swap_size = "32m";
// The bytes that a text such as 32m means. Throws Refusal.
std::uint64_t bytes_in(const std::string &size);
// Throws Failure when a swap file is too small to be one, or larger than what is free where it is to lie. It takes no room
// until it is used; then it has to find it.
void check_swap_size(const std::string &path, std::uint64_t size);
void check_swap_size(const NewClient &client); // unless the file is there

// From the arguments of a method. Throws Failure when one is missing.
Identity read_identity(method::Call &call);
// From the arguments of a method. Throws Failure when the request makes no sense.
NewClient read_new_client(method::Call &call);

// Throws Failure when they are no client's, or another's.
void check_name_and_addresses(const method::Call &call, const NewClient &client);
// Everything that can be known before the first step. Whether the client is known with this data already.
bool check_new_client(const method::Call &call, const NewClient &client);
// These two files may also come with the root.
void check_swap(const NewClient &client);
void check_dump(const NewClient &client);

// What will keep it from booting although all is set up: what about, and what to do.
struct Warning {
    std::string about, text;
};
std::vector<Warning> warnings_about(const NewClient &client);

} // namespace hostadm::server
