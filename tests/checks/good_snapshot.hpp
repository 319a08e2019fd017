// SPDX-License-Identifier: MIT
// A server of one client, client1, that everything is in order on, as the checks see it: tables in memory, files in a
// folder of the test's own, daemons that are only told of.
#pragma once

#include <net/if.h>
#include <string>
#include <vector>

#include "server/checks/registry.hpp"
#include "support/scratch.hpp"

namespace tests {

namespace server = hostadm::server;

class GoodServer {
public:
    GoodServer() {
        std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
        write_files();
        set_hosts("127.0.0.1 localhost\n192.168.1.1 server\n192.168.1.10 client1\n");
        set_ethers("08:00:20:aa:bb:01 client1\n");
        set_bootparams("client1 root=server:" + root + " swap=server:" + swap + "\n");
        snapshot.host_name = "server";
        set_switch("hosts: files dns\nethers: db files\n");
        snapshot.network.interfaces = {
            {"lo", 1, IFF_UP | IFF_RUNNING | IFF_LOOPBACK, {}, {{0x7f000001, 0xff000000}}},
            {"srv0", 2, IFF_UP | IFF_RUNNING, std::string("\2\0\0\0\0\1", 6), {{0xc0a80101, 0xffffff00}}}};
        snapshot.mounts = {{"/", "ext4", "/dev/vda1", false}};
        add_daemons();
        snapshot.rpc.mapper = server::RpcAnswers::Mapper::answered;
        for (const auto &[program, version, port] :
             {std::tuple(100000u, 2u, 111), {100003u, 3u, 2049}, {100005u, 3u, 900}, {100026u, 1u, 901}})
            for (const bool tcp : {true, false})
                snapshot.rpc.registrations.push_back(
                    {program, version, tcp, static_cast<std::uint16_t>(port)});
        snapshot.live = {.null_procedure = [](std::uint32_t, std::uint32_t, bool,
                                              std::uint16_t) { return server::Answer::answered; },
                         .way_to =
                             [](std::uint32_t) {
                                 return server::Way{0, 0xc0a80101};
                             },
                         .room_at =
                             [](const std::string &) {
                                 return server::Room{1 << 30, true, true};
                             }};
        share(root, "rw=client1,root=client1");
        share(folder.path("export/swap/client1"), "rw=client1,root=client1");
        snapshot.has_share_command = true;
        read_again();
    }

    // The clients and the boot area anew, after a change of a table or a file.
    void read_again() {
        snapshot.clients.clear();
        snapshot.client_places.clear();
        server::read_clients(snapshot);
        snapshot.boot_area = server::read_boot_area(area, true);
    }
    void set_hosts(const std::string &text) { snapshot.hosts = server::parse_hosts({"/etc/hosts", 0, text}); }
    void set_ethers(const std::string &text) {
        snapshot.ethers = server::parse_ethers({"/etc/ethers", 0, text});
    }
    void set_bootparams(const std::string &text) {
        snapshot.bootparams = server::parse_bootparams({"/etc/bootparams", 0, text});
    }
    void set_switch(const std::string &text) {
        snapshot.name_switch = {"/etc/nsswitch.conf", 0, text};
        snapshot.sources = server::parse_switch(text);
    }
    void share(const std::string &path, const std::string &options) {
        snapshot.shares[path] = options;
        snapshot.boot_share_places[path] = snapshot.boot_shares.size();
        snapshot.boot_shares.push_back({snapshot.boot_shares.size() + 1, path, options, false, {}});
        const server::Access all{true, true, true};
        snapshot.exports.by_path[path] = snapshot.exports.exports.size();
        snapshot.exports.exports.push_back({path, "exports", 1, {{{"192.168.1.10"}, all, true}}, {}});
    }
    server::Daemon &daemon(const std::string &program) {
        for (server::Daemon &one : snapshot.daemons.daemons)
            if (one.program == program)
                return one;
        throw std::runtime_error("no daemon " + program);
    }
    void remove_daemon(const std::string &program) {
        std::erase_if(snapshot.daemons.daemons,
                      [&](const server::Daemon &one) { return one.program == program; });
        point_at_tftp();
    }

    // What one of the checks finds, each as "WHERE: WHAT".
    std::vector<std::string> found_by(const std::string &check) const {
        std::vector<std::string> found;
        for (const server::Finding &finding : server::check(snapshot))
            if (finding.check == check)
                found.push_back(finding.where + ": " + finding.what);
        return found;
    }

    const Scratch folder;
    const std::string area = folder.path("tftpboot");
    const std::string root = folder.path("export/root/client1");
    const std::string swap = folder.path("export/swap/client1/swap");
    server::Snapshot snapshot;

private:
    void write_files() const {
        namespace fs = std::filesystem;
        folder.write("tftpboot/inetboot.kel4m.Quorvel_2.5", "a boot program");
        for (const char *name : {"C0A8010A", "C0A8010A.KEL4M"})
            fs::create_symlink("inetboot.kel4m.Quorvel_2.5", folder.path(std::string("tftpboot/") + name));
        folder.write("export/root/client1/sbin/init", "#!/bin/sh\n");
        folder.write("export/root/client1/bin/sh", std::string("\x7f"
                                                               "ELF\1\1") +
                                                       std::string(100, '\0'));
        for (const char *program : {"sbin/init", "bin/sh"})
            fs::permissions(folder.path(std::string("export/root/client1/") + program), fs::perms(0755));
        folder.write("export/root/client1/etc/vfstab", "server:" + root + " - / nfs - no rw\n");
        folder.write("export/swap/client1/swap", std::string(4096, '\0'));
        fs::permissions(swap, fs::perms(0600));
    }
    void add(int pid, std::vector<std::string> words, std::vector<server::Socket> sockets) {
        server::Daemon one;
        one.process.pid = pid;
        one.process.short_name = one.program = words.front();
        one.process.arguments = std::move(words);
        one.sockets = sockets;
        snapshot.daemons.sockets.insert(snapshot.daemons.sockets.end(), sockets.begin(), sockets.end());
        snapshot.daemons.daemons.push_back(std::move(one));
    }
    void add_daemons() {
        using Kind = server::Socket::Kind;
        add(101, {"in.rarpd", "-a"}, {{Kind::packet, 0, 0x8035, false, 2}});
        add(102, {"in.tftpd", "--listen", "--secure", area}, {{Kind::udp, 0, 69, false, 0}});
        add(103, {"rpcbind", "-r"}, {{Kind::udp, 0, 111, false, 0}, {Kind::tcp, 0, 111, false, 0}});
        add(104, {"rpc.bootparamd", "-r", "192.168.1.1"}, {{Kind::udp, 0, 901, false, 0}});
        add(105, {"ganesha.nfsd"}, {{Kind::tcp, 0, 2049, false, 0}});
        snapshot.nfs = server::NfsServer::ganesha;
        point_at_tftp();
    }
    void point_at_tftp() {
        snapshot.tftp = {};
        for (const server::Daemon &one : snapshot.daemons.daemons)
            if (one.program == "in.tftpd") {
                snapshot.tftp.daemon = &one;
                snapshot.tftp.arguments = one.process.arguments;
                snapshot.tftp.directory = area;
                snapshot.tftp.confined = true;
            }
    }
};

} // namespace tests
