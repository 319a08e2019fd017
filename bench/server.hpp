// SPDX-License-Identifier: MIT
// A server with many clients, in a throwaway root, for the benchmarks of whole jobs: the tables that they
// read lie at fixed paths.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "throwaway_root.hpp"

namespace bench {

namespace fs = std::filesystem;

inline void write(const std::string &path, const std::string &text, fs::perms mode = fs::perms(0644)) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path) << text;
    fs::permissions(path, mode);
}

// A server that everything is in order on.
inline void make_server(std::int64_t clients) {
    static std::int64_t made = -1;
    if (made == clients)
        return;
    std::string hosts = "127.0.0.1\tlocalhost server1\n", ethers, bootparams, shares, table;
    fs::remove_all("/tftpboot");
    write("/tftpboot/inetboot.kel4m.Quorvel_2.5", "boot program");
    for (std::int64_t i = 0; i < clients; ++i) {
        char address[20], digits[16], ethernet[20];
        const int high = static_cast<int>(i / 250), low = static_cast<int>(i % 250 + 1);
        std::snprintf(address, sizeof address, "10.1.%d.%d", high & 255, low & 255);
        std::snprintf(digits, sizeof digits, "0A01%02X%02X", high & 255, low & 255);
        std::snprintf(ethernet, sizeof ethernet, "08:00:20:01:%02x:%02x", high & 255, low & 255);
        std::string name("client");
        name += std::to_string(i);
        hosts += std::string(address) + "\t" + name + "\n";
        ethers += std::string(ethernet) + "\t" + name + "\n";
        bootparams +=
            name + " root=server1:/export/root/" + name + " swap=server1:/export/swap/" + name + "/swap\n";
        shares += "-  /export/root/" + name + "  rw=" + name + ",root=" + name + "  \"\"\n";
        table += "share -F nfs -o rw=" + name + ",root=" + name + " /export/root/" + name + "\n";
        fs::create_directories("/export/root/" + name);
        fs::create_symlink("inetboot.kel4m.Quorvel_2.5", std::string("/tftpboot/") + digits);
        fs::create_symlink("inetboot.kel4m.Quorvel_2.5", std::string("/tftpboot/") + digits + ".KEL4M");
    }
    write("/etc/hosts", hosts);
    write("/etc/ethers", ethers);
    write("/etc/bootparams", bootparams);
    write("/etc/dfs/dfstab", table);
    write("/etc/dfs/sharetab", shares);
    write("/usr/sbin/share", "#!/bin/sh\n[ $# -gt 0 ] || exec cat /etc/dfs/sharetab\n", fs::perms(0755));
    made = clients;
}

} // namespace bench
