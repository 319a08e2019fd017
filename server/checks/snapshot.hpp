// SPDX-License-Identifier: MIT
// What this server looks like at one moment: read once, for all checks to look at.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unordered_map>
#include <vector>

#include "server/broken_runs.hpp"
#include "server/checks/access.hpp"
#include "server/checks/daemon_table.hpp"
#include "server/checks/file_systems.hpp"
#include "server/checks/network.hpp"
#include "server/checks/packet_filter.hpp"
#include "server/checks/questions.hpp"
#include "server/checks/system_tables.hpp"
#include "server/client_kind.hpp"

namespace hostadm::server {

// A client by its entry in bootparams, with what the other tables say of it.
struct CheckedClient {
    std::string name;         // as bootparams writes it
    std::size_t entry = 0;    // its place among the lines of bootparams
    std::string address;      // of its first IPv4 line in the hosts table; empty: none
    std::uint32_t number = 0; // the same in host order
    std::string ethernet;     // as its first line in the ethers table writes it; empty: none
    std::string digits;       // of the address, as the client asks TFTP for them
    std::string root;         // path of its root, if that is on this server
    Caller caller;            // the client, for access lists
    ClientKind kind = ClientKind::unknown;
};

// A name in the boot area.
struct BootName {
    std::string target; // of a link
    bool is_link = false;
    std::optional<struct stat> file; // what it leads to
};

// The directory that the TFTP daemon serves, as its clients see it.
struct BootArea {
    std::string path = "/tftpboot";
    int error = 0;
    std::map<std::string, BootName> names;       // the links, and whatever begins with a client's digits
    std::map<std::string, struct stat> programs; // the other files
};
BootArea read_boot_area(const std::string &path, bool confined);

// How the TFTP daemon was told to serve.
struct TftpService {
    const Daemon *daemon = nullptr; // the daemon, or the one that starts it on demand
    bool on_demand = false;
    std::size_t line = 0; // in the table of what is started on demand, and what it says
    std::string program, user;
    bool waits = true;
    std::vector<std::string> arguments;
    std::string directory; // the first one; empty: none given
    bool confined = false; // --secure: names are taken below the directory
};

// A share as it is to be made when this server boots.
struct BootShare {
    std::size_t line = 0;
    std::string path, options;
    bool failed = false; // "#share"
    std::string defect;  // a line that will not be understood
};

enum class NfsServer { none, ganesha, kernel };

// The DHCP server that answers PCs, as far as it is ours.
struct PcService {
    std::string settings_path, settings; // and what they say
    std::optional<int> process;
    bool knows_settings = true, knows_tables = true; // as they are now
};

// The name of a client's boot program, asked of the TFTP daemon.
struct TftpQuestion {
    std::string client, name;
    std::uint32_t address = 0; // of this server, where it was asked
    TftpAnswer answer;
};

struct Snapshot {
    bool privileged = true; // everything can be looked at
    std::string host_name;
    KeyTable hosts, ethers;
    BootTable bootparams;
    TableText name_switch;
    std::vector<SwitchLine> sources;
    std::string allowed_hosts, denied_hosts; // what /etc/hosts.allow and /etc/hosts.deny say
    std::vector<CheckedClient> clients;
    std::unordered_map<std::string, std::size_t> client_places; // by name in lower case

    BootArea boot_area;
    std::string rpl_area = "/rplboot";
    PcService pc;
    TftpService tftp;
    std::optional<TftpQuestion> tftp_question; // nothing: there was nothing to ask for, or nobody to ask
    Network network;
    DaemonTable daemons;
    RpcAnswers rpc;
    PacketFilter filter, filter_at_boot;
    std::vector<Mount> mounts;
    std::vector<BrokenRun> broken_runs;

    bool has_share_command = false;
    std::unordered_map<std::string, std::string> shares; // options by path, now
    std::vector<BootShare> boot_shares;
    std::unordered_map<std::string, std::size_t> boot_share_places; // the last line of a path that is made
    NfsServer nfs = NfsServer::none;                                // that runs, or else that is installed
    NfsSettings exports;                                            // of that one

    // What is asked while the checks look: it may be answered otherwise where there is no such server.
    struct Live {
        Answer (*null_procedure)(std::uint32_t program, std::uint32_t version, bool tcp,
                                 std::uint16_t port) = ask_null_procedure;
        Way (*way_to)(std::uint32_t address) = server::way_to;
        Room (*room_at)(const std::string &path) = server::room_at;
    } live = {};

    const BootLine &entry_of(const CheckedClient &client) const { return bootparams.lines[client.entry]; }
    std::string place_of(const CheckedClient &client) const {
        return bootparams.place(entry_of(client).line);
    }
    const CheckedClient *client(std::string_view name) const;
    // PCs ask neither by reverse ARP nor for boot parameters.
    bool has_clients_but_pcs() const;

    // The IPv4 address that a name has here, by the hosts table and else by the name services; nothing: none.
    std::optional<std::uint32_t> address_of(const std::string &name) const;
    bool is_this_server(const std::string &name) const;

private:
    mutable std::unordered_map<std::string, std::optional<std::uint32_t>> known_addresses_;
};

// The clients, of the tables that were read.
void read_clients(Snapshot &server);
// Reads it all, and asks the daemons. What cannot be read is told by a check and not here.
Snapshot read_snapshot();

} // namespace hostadm::server
