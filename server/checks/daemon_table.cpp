// SPDX-License-Identifier: MIT
#include "server/checks/daemon_table.hpp"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <set>
#include <system_error>

#include "base/files.hpp"
#include "base/text.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

const std::set<std::string_view> programs{"in.rarpd",   "rarpd",        "in.tftpd", "tftpd",
                                          "atftpd",     "dnsmasq",      "inetd",    "inetutils-inetd",
                                          "xinetd",     "rpcbind",      "portmap",  "rpc.bootparamd",
                                          "bootparamd", "ganesha.nfsd", "nfsd",     "rpc.mountd",
                                          "mountd",     "systemd",      "rpld"};

using SocketsByInode = std::unordered_map<std::string, Socket>;

std::uint32_t hexadecimal(std::string_view text) {
    std::uint32_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number, 16);
    return number;
}

// The kernel prints an address as the number that its bytes make on this machine.
std::uint32_t host_order(std::uint32_t printed) {
    return __builtin_bswap32(printed);
}

// "N: ADDRESS:PORT PEER STATE ... INODE": the address is the second word, the inode the tenth.
void read_ports(const std::string &path, Socket::Kind kind, bool six, SocketsByInode &sockets,
                std::vector<Socket> &all) {
    base::for_each_line(base::file_contents(path), [&](std::string_view line) {
        const auto words = base::words_of(line);
        constexpr std::size_t inode = 9;
        if (words.size() <= inode || words[0] == "sl")
            return;
        constexpr std::string_view listening = "0A";
        if (kind == Socket::Kind::tcp && words[3] != listening)
            return;
        const std::size_t colon = words[1].find(':');
        Socket socket{kind, 0, static_cast<std::uint16_t>(hexadecimal(words[1].substr(colon + 1))), six, 0};
        // Of IPv6 only an address that stands for one of IPv4, or for any, can be a client's.
        const std::string_view address = words[1].substr(0, colon);
        const std::string_view last = address.substr(address.size() - 8);
        const bool any = address.find_first_not_of('0') == address.npos;
        constexpr std::string_view mapped = "0000000000000000FFFF0000";
        socket.address = any ? 0 : host_order(hexadecimal(last));
        if (six && !any && !address.starts_with(mapped))
            socket.address = 0xffffffff;
        sockets.emplace(words[inode], socket);
        all.push_back(socket);
    });
}

// "SOCKET REFERENCES TYPE PROTOCOL INTERFACE R RMEM USER INODE"
void read_packet_sockets(const std::string &path, SocketsByInode &sockets, std::vector<Socket> &all) {
    base::for_each_line(base::file_contents(path), [&](std::string_view line) {
        const auto words = base::words_of(line);
        if (words.size() != 9 || words[0] == "sk")
            return;
        Socket socket{Socket::Kind::packet, 0, static_cast<std::uint16_t>(hexadecimal(words[3])), false, 0};
        std::from_chars(words[4].data(), words[4].data() + words[4].size(), socket.interface);
        sockets.emplace(words[8], socket);
        all.push_back(socket);
    });
}

std::vector<Socket> sockets_of(const std::string &process, const SocketsByInode &sockets) {
    std::vector<Socket> own;
    std::error_code error;
    for (fs::directory_iterator entry(process + "/fd", error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code unread;
        const std::string target = fs::read_symlink(entry->path(), unread);
        constexpr std::string_view start = "socket:[";
        if (!target.starts_with(start))
            continue;
        const auto found = sockets.find(target.substr(start.size(), target.size() - start.size() - 1));
        if (found != sockets.end())
            own.push_back(found->second);
    }
    return own;
}

std::string last_part(const std::string &path) {
    return path.substr(path.rfind('/') + 1);
}

} // namespace

bool Daemon::has_flag(char flag) const {
    return std::any_of(process.arguments.begin() + (process.arguments.empty() ? 0 : 1),
                       process.arguments.end(), [&](const std::string &word) {
                           return word.size() > 1 && word[0] == '-' && word[1] != '-' &&
                                  word.find(flag) != word.npos;
                       });
}

bool Daemon::has_long(std::string_view name) const {
    return std::any_of(process.arguments.begin(), process.arguments.end(), [&](const std::string &word) {
        return word == "--" + std::string(name) || word.starts_with("--" + std::string(name) + "=");
    });
}

std::optional<std::string> Daemon::value_of(char flag, std::string_view long_name) const {
    std::optional<std::string> value;
    const std::string word_of_long = "--" + std::string(long_name);
    for (std::size_t i = 1; i < process.arguments.size(); ++i) {
        const std::string &word = process.arguments[i];
        const bool more = i + 1 < process.arguments.size();
        if (!long_name.empty() && word.starts_with(word_of_long + "="))
            value = word.substr(word_of_long.size() + 1);
        else if (!long_name.empty() && word == word_of_long && more)
            value = process.arguments[++i];
        else if (word.size() > 1 && word[0] == '-' && word[1] == flag && word.size() > 2)
            value = word.substr(2);
        else if (word.size() > 1 && word[0] == '-' && word[1] != '-' && word.back() == flag && more)
            value = process.arguments[++i];
    }
    return value;
}

std::vector<const Daemon *> DaemonTable::named(std::initializer_list<std::string_view> wanted) const {
    std::vector<const Daemon *> found;
    for (const bool defunct : {false, true})
        for (const Daemon &daemon : daemons)
            if (daemon.defunct() == defunct &&
                std::any_of(wanted.begin(), wanted.end(), [&](std::string_view name) {
                    return daemon.program == name || daemon.process.short_name == name;
                }))
                found.push_back(&daemon);
    return found;
}

bool DaemonTable::kernel_serves_nfs() const {
    const std::vector<const Daemon *> all = named({"nfsd"});
    return std::any_of(all.begin(), all.end(),
                       [](const Daemon *daemon) { return daemon->process.arguments.empty(); });
}

std::vector<const Socket *> DaemonTable::on_port(Socket::Kind kind, std::uint16_t port) const {
    std::vector<const Socket *> found;
    for (const Socket &socket : sockets)
        if (socket.kind == kind && socket.port == port)
            found.push_back(&socket);
    return found;
}

bool DaemonTable::is_open(Socket::Kind kind, std::uint16_t port, std::uint32_t address) const {
    const auto found = on_port(kind, port);
    return std::any_of(found.begin(), found.end(), [&](const Socket *socket) {
        return socket->address == 0 || socket->address == address;
    });
}

DaemonTable read_daemons(const std::string &proc) {
    DaemonTable table;
    SocketsByInode sockets;
    using Kind = Socket::Kind;
    const std::string net = proc + "/net/";
    read_ports(net + "udp", Kind::udp, false, sockets, table.sockets);
    read_ports(net + "udp6", Kind::udp, true, sockets, table.sockets);
    read_ports(net + "tcp", Kind::tcp, false, sockets, table.sockets);
    read_ports(net + "tcp6", Kind::tcp, true, sockets, table.sockets);
    read_packet_sockets(net + "packet", sockets, table.sockets);

    std::error_code error;
    const std::string own_network = fs::read_symlink(proc + "/self/ns/net", error);
    for (base::Process &process : base::all_processes(proc)) {
        const std::string program =
            last_part(process.arguments.empty() ? process.short_name : process.arguments.front());
        // A user may call his own program what he likes.
        constexpr uid_t first_user = 1000, nobody = 65534;
        if ((!programs.contains(program) && !programs.contains(process.short_name)) ||
            (process.owner >= first_user && process.owner != nobody))
            continue;
        const std::string folder = proc + "/" + std::to_string(process.pid);
        std::error_code unread;
        const std::string network = fs::read_symlink(folder + "/ns/net", unread);
        Daemon daemon{std::move(process), program, {}, false};
        daemon.other_network = !network.empty() && !own_network.empty() && network != own_network;
        daemon.sockets = sockets_of(folder, sockets);
        table.sockets_known = table.sockets_known || !daemon.sockets.empty();
        table.daemons.push_back(std::move(daemon));
    }
    return table;
}

} // namespace hostadm::server
