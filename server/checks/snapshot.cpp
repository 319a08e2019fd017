// SPDX-License-Identifier: MIT
#include "server/checks/snapshot.hpp"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <system_error>
#include <unistd.h>

#include "base/files.hpp"
#include "base/text.hpp"
#include "base/this_host.hpp"
#include "base/translation.hpp"
#include "server/boot_area.hpp"
#include "server/dhcp_server.hpp"
#include "server/pc_area.hpp"
#include "server/shares.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

constexpr std::uint16_t tftp_port = 69;

bool begins_with_digits(std::string_view name) {
    return name.size() >= 8 && name.substr(0, 8).find_first_not_of("0123456789abcdefABCDEF") == name.npos &&
           (name.size() == 8 || name[8] == '.');
}

CheckedClient make_client(const Snapshot &server, std::size_t place) {
    const BootLine &entry = server.bootparams.lines[place];
    CheckedClient client;
    client.name = entry.name;
    client.entry = place;
    std::set<std::string> names{base::lower_case(entry.name)};
    for (const KeyLine *line : server.hosts.with_name(entry.name)) {
        if (!line->is_ipv4())
            continue;
        if (client.address.empty()) {
            client.address = ipv4_text(ipv4_number(line->value));
            client.number = ipv4_number(line->value);
        }
        for (const std::string &name : line->names)
            names.insert(base::lower_case(name));
    }
    for (const std::string &name : names)
        if (client.ethernet.empty())
            for (const KeyLine *line : server.ethers.with_name(name))
                if (client.ethernet.empty())
                    client.ethernet = line->key;
    // The table may hold the address in the place of the name.
    if (client.ethernet.empty() && !client.address.empty())
        if (const auto lines = server.ethers.with_name(client.address); !lines.empty())
            client.ethernet = lines.front()->key;
    client.digits = address_digits(client.address);
    std::string items;
    for (const BootItem &item : entry.items)
        items += item.text + " ";
    client.kind = kind_of(items);
    client.caller = {client.number, {names.begin(), names.end()}};
    return client;
}

} // namespace

void read_clients(Snapshot &server) {
    for (std::size_t place = 0; place < server.bootparams.lines.size(); ++place) {
        const std::string name = base::lower_case(server.bootparams.lines[place].name);
        // The first entry of a name counts; what is no name at all is told by a check.
        if (name.find_first_of("=:*") != name.npos || server.client_places.contains(name))
            continue;
        server.client_places.emplace(name, server.clients.size());
        server.clients.push_back(make_client(server, place));
    }
    for (CheckedClient &client : server.clients) {
        const BootItem *root = server.entry_of(client).item("root");
        if (root == nullptr || !root->path.starts_with('/'))
            continue;
        // A name without an address is told elsewhere; what lies here is meant to be here.
        std::error_code error;
        if (server.is_this_server(root->server) || fs::exists(root->path, error))
            client.root = root->path;
    }
}

namespace {

std::vector<BootShare> read_boot_shares(const std::string &table) {
    std::vector<BootShare> shares;
    std::size_t number = 0;
    base::for_each_line(base::file_contents(table), [&](std::string_view line) {
        ++number;
        auto words = base::words_of(line);
        if (words.empty() || (words[0].starts_with('#') && words[0] != "#share"))
            return;
        BootShare share{number, {}, {}, words[0] == "#share", {}};
        if (words[0] != "share" && words[0] != "/usr/sbin/share" && !share.failed)
            share.defect = base::tr("it does not begin with \"share\"");
        for (std::size_t i = 1; i < words.size(); ++i) {
            if ((words[i] == "-o" || words[i] == "-d" || words[i] == "-F") && i + 1 < words.size()) {
                if (words[i] == "-o")
                    share.options = words[i + 1];
                const bool quoted = words[i + 1].starts_with('"') || words[i + 1].starts_with('\'');
                const char quote = quoted ? words[i + 1][0] : ' ';
                if (words[++i].size() > 1 && words[i].ends_with(quote))
                    continue;
                while (quoted && i + 1 < words.size() && !words[++i].ends_with(quote)) {
                }
            } else if (words[i].starts_with('/')) {
                share.path = words[i];
            } else if (words[i].starts_with('#')) {
                break;
            }
        }
        while (share.path.size() > 1 && share.path.ends_with('/'))
            share.path.pop_back();
        if (share.path.empty() && share.defect.empty())
            share.defect = base::tr("it names no directory");
        shares.push_back(std::move(share));
    });
    return shares;
}

void read_shares(Snapshot &server) {
    server.has_share_command = access("/usr/sbin/share", X_OK) == 0;
    server.shares = current_shares();
    server.boot_shares = read_boot_shares("/etc/dfs/dfstab");
    for (std::size_t place = 0; place < server.boot_shares.size(); ++place)
        if (const BootShare &share = server.boot_shares[place]; !share.failed && share.defect.empty())
            server.boot_share_places[share.path] = place;
}

void read_exports(Snapshot &server) {
    const auto ganesha = server.daemons.named({"ganesha.nfsd"});
    const bool threads = server.daemons.kernel_serves_nfs();
    if (!ganesha.empty()) {
        server.nfs = NfsServer::ganesha;
        server.exports = read_ganesha(ganesha.front()->value_of('f').value_or("/etc/ganesha/ganesha.conf"));
    } else if (threads) {
        server.nfs = NfsServer::kernel;
        server.exports = read_exports_now();
    } else if (access("/usr/bin/ganesha.nfsd", X_OK) == 0) {
        server.nfs = NfsServer::ganesha;
        const char *const settings = "/etc/ganesha/share.conf";
        server.exports = read_ganesha(access(settings, R_OK) == 0 ? settings : "/etc/ganesha/ganesha.conf");
    } else if (access("/usr/sbin/exportfs", X_OK) == 0) {
        server.nfs = NfsServer::kernel;
        server.exports = read_exports_at_boot();
    }
}

// "NAME TYPE PROTOCOL WAIT USER PROGRAM ARGUMENT..."; the first argument is the program's name.
bool read_inetd_line(TftpService &tftp) {
    std::size_t number = 0;
    bool found = false;
    base::for_each_line(base::file_contents("/etc/inetd.conf"), [&](std::string_view line) {
        ++number;
        const auto words = base::words_of(line.substr(0, line.find('#')));
        constexpr std::size_t program = 5;
        if (found || words.size() <= program || (words[0] != "tftp" && words[0] != "69"))
            return;
        found = true;
        tftp.line = number;
        tftp.program = words[program];
        tftp.user = words[4].substr(0, words[4].find_first_of(".:"));
        tftp.waits = words[3].starts_with("wait");
        // Through a wrapper the program is the first argument.
        tftp.arguments.assign(words.begin() + program + (words.size() > program + 1 ? 1 : 0), words.end());
    });
    return found;
}

TftpService read_tftp(const DaemonTable &daemons) {
    TftpService tftp;
    if (const auto found = daemons.named({"in.tftpd", "tftpd", "atftpd"}); !found.empty()) {
        // One that is bound to an address is asked there before one that listens everywhere.
        const auto bound = std::find_if(found.begin(), found.end(), [](const Daemon *one) {
            return std::any_of(one->sockets.begin(), one->sockets.end(), [](const Socket &socket) {
                return socket.kind == Socket::Kind::udp && socket.port == tftp_port && socket.address != 0 &&
                       socket.address >> 24 != 127;
            });
        });
        const auto listening = std::find_if(found.begin(), found.end(), [](const Daemon *one) {
            return std::any_of(one->sockets.begin(), one->sockets.end(),
                               [](const Socket &socket) { return socket.port == tftp_port; });
        });
        tftp.daemon = bound != found.end() ? *bound : listening != found.end() ? *listening : found.front();
        tftp.arguments = tftp.daemon->process.arguments;
    }
    const auto inetd = daemons.named({"inetd", "inetutils-inetd"});
    const bool started_by_inetd =
        tftp.daemon == nullptr || (!Daemon(*tftp.daemon).has_flag('l') && !tftp.daemon->has_flag('L') &&
                                   !tftp.daemon->has_long("listen") && !tftp.daemon->has_long("foreground") &&
                                   tftp.daemon->program != "atftpd");
    if (started_by_inetd && !inetd.empty() && read_inetd_line(tftp)) {
        tftp.daemon = inetd.front();
        tftp.on_demand = true;
    }
    // Options that take a value, which is no directory.
    static const std::set<std::string> with_value = {"-a",
                                                     "--address",
                                                     "-u",
                                                     "--user",
                                                     "-t",
                                                     "--timeout",
                                                     "-m",
                                                     "--map-file",
                                                     "-r",
                                                     "--refuse",
                                                     "-R",
                                                     "--port-range",
                                                     "-B",
                                                     "--blocksize",
                                                     "-P",
                                                     "--pidfile",
                                                     "-U",
                                                     "--umask",
                                                     "-T",
                                                     "--retransmit",
                                                     "--verbosity",
                                                     "--port",
                                                     "--bind-address"};
    for (std::size_t i = 1; i < tftp.arguments.size(); ++i) {
        const std::string &word = tftp.arguments[i];
        if (with_value.contains(word))
            ++i;
        else if (word == "--secure" ||
                 (word.size() > 1 && word[0] == '-' && word[1] != '-' && word.find('s') != word.npos))
            tftp.confined = true;
        else if (!word.starts_with('-') && tftp.directory.empty())
            tftp.directory = word;
    }
    return tftp;
}

// Asks for the program of the first client that is to get one.
std::optional<TftpQuestion> question_tftp(const Snapshot &server) {
    // Without a daemon that is known, whoever holds the port is asked.
    if (server.tftp.daemon != nullptr ? server.tftp.daemon->stopped() || server.tftp.daemon->defunct()
                                      : !server.daemons.is_open(Socket::Kind::udp, tftp_port, 0))
        return std::nullopt;
    for (const CheckedClient &client : server.clients) {
        const Interface *interface = server.network.in_network_of(client.number);
        const auto link = server.boot_area.names.find(client.digits);
        if (interface == nullptr || link == server.boot_area.names.end() || !link->second.file ||
            !S_ISREG(link->second.file->st_mode))
            continue;
        for (const Subnet &net : interface->addresses)
            if (net.holds(client.number))
                return TftpQuestion{client.name, client.digits, net.address,
                                    ask_tftp(net.address, client.digits)};
    }
    return std::nullopt;
}

// The directory that is served; but where the clients' programs are, if that is another.
BootArea served_area(const Snapshot &server) {
    const bool confined = server.tftp.confined || server.tftp.daemon == nullptr;
    if (!server.tftp.confined || server.tftp.directory.empty())
        return read_boot_area(tftpboot, confined);
    BootArea served = read_boot_area(server.tftp.directory, true);
    const auto has_programs = [&](const BootArea &area) {
        return std::any_of(server.clients.begin(), server.clients.end(), [&](const CheckedClient &client) {
            return !client.digits.empty() && area.names.contains(client.digits);
        });
    };
    if (has_programs(served))
        return served;
    BootArea usual = read_boot_area(tftpboot, true);
    return has_programs(usual) ? usual : served;
}

} // namespace

BootArea read_boot_area(const std::string &path, bool confined) {
    BootArea area;
    area.path = path;
    // The directory itself may be reached by a link, which the daemon follows before it confines itself.
    std::error_code error;
    const fs::path real = fs::canonical(path, error);
    const RootView view(error ? path : real.string());
    area.error = view.error();
    for (fs::directory_iterator entry(path, error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename();
        struct stat own {
        }, file{};
        if (lstat(entry->path().c_str(), &own) != 0)
            continue;
        BootName known;
        known.is_link = S_ISLNK(own.st_mode);
        std::error_code unread;
        if (known.is_link)
            known.target = fs::read_symlink(entry->path(), unread).string();
        if (confined)
            known.file = view.look(name);
        else if (stat(entry->path().c_str(), &file) == 0)
            known.file = file;
        if (begins_with_digits(name))
            area.names.emplace(name, std::move(known));
        else if (known.file && S_ISREG(known.file->st_mode))
            area.programs.emplace(name, *known.file);
    }
    return area;
}

const CheckedClient *Snapshot::client(std::string_view name) const {
    const auto found = client_places.find(base::lower_case(name));
    return found == client_places.end() ? nullptr : &clients[found->second];
}

bool Snapshot::has_clients_but_pcs() const {
    return std::any_of(clients.begin(), clients.end(),
                       [](const CheckedClient &one) { return one.kind != ClientKind::pc; });
}

std::optional<std::uint32_t> Snapshot::address_of(const std::string &name) const {
    if (const std::string value = ipv4_value(name); !value.empty())
        return ipv4_number(value);
    for (const KeyLine *line : hosts.with_name(name))
        if (line->is_ipv4())
            return ipv4_number(line->value);
    const auto [known, fresh] = known_addresses_.try_emplace(base::lower_case(name));
    constexpr std::size_t most_questions = 20; // a name server that is silent costs a second each
    if (fresh && !name.empty() && known_addresses_.size() <= most_questions)
        if (const std::string value = ipv4_value(base::address_of_host(name)); !value.empty())
            known->second = ipv4_number(value);
    return known->second;
}

bool Snapshot::is_this_server(const std::string &name) const {
    if (base::lower_case(name) == base::lower_case(host_name))
        return true;
    const auto address = address_of(name);
    return address && (*address >> 24 == 127 || network.is_own(*address));
}

namespace {

PcService read_pc_service() {
    PcService service{.settings_path = dhcp_settings_path,
                      .settings = base::file_contents(dhcp_settings_path),
                      .process = running_dhcp_server()};
    if (service.process) {
        service.knows_settings = has_read(*service.process, service.settings_path);
        service.knows_tables = knows_tables(*service.process);
    }
    return service;
}

} // namespace

Snapshot read_snapshot() {
    setenv("RES_OPTIONS", "timeout:1 attempts:1", 0);
    Snapshot server;
    server.privileged = geteuid() == 0;
    server.host_name = base::own_host_name();
    server.hosts = parse_hosts(read_table("/etc/hosts"));
    server.ethers = parse_ethers(read_table("/etc/ethers"));
    server.bootparams = parse_bootparams(read_table("/etc/bootparams"));
    server.name_switch = read_table("/etc/nsswitch.conf");
    server.sources = parse_switch(server.name_switch.text);
    server.allowed_hosts = base::file_contents("/etc/hosts.allow");
    server.denied_hosts = base::file_contents("/etc/hosts.deny");
    server.network = read_network();
    server.daemons = read_daemons();
    server.mounts = read_mounts();
    if (server.privileged)
        server.broken_runs = broken_runs();
    server.filter = read_packet_filter();
    server.filter_at_boot = read_packet_filter_at_boot();
    server.pc = read_pc_service();
    read_clients(server);
    read_shares(server);
    read_exports(server);
    server.tftp = read_tftp(server.daemons);
    server.boot_area = served_area(server);
    const auto mapper = server.daemons.named({"rpcbind", "portmap"});
    if (mapper.empty() || !mapper.front()->stopped())
        server.rpc = ask_port_mapper();
    else
        server.rpc.mapper = RpcAnswers::Mapper::silent;
    server.tftp_question = question_tftp(server);
    return server;
}

} // namespace hostadm::server
