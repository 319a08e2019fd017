// SPDX-License-Identifier: MIT
// An initramfs as a kernel unpacks it, with the files that a test names.
#pragma once

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace tests {

using InitramfsFiles = std::vector<std::pair<std::string, std::string>>; // name and contents

inline std::string initramfs(InitramfsFiles files) {
    files.emplace_back("TRAILER!!!", "");
    std::string archive;
    for (const auto &[name, contents] : files) {
        char head[111];
        std::snprintf(head, sizeof head, "070701%08x%08x%08x%08x%08x%08x%08zx%08x%08x%08x%08x%08zx%08x", 1u,
                      0100644u, 0u, 0u, 1u, 0u, contents.size(), 0u, 0u, 0u, 0u, name.size() + 1, 0u);
        for (const std::string &part : {head + name + '\0', contents}) {
            archive += part;
            archive.resize((archive.size() + 3) / 4 * 4);
        }
    }
    archive.resize((archive.size() + 511) / 512 * 512);
    return archive;
}

// What Debian's tools put into one, as far as it matters for a root by NFS.
inline const InitramfsFiles debians_initramfs = {
    {"scripts/nfs", "mountroot() { :; }\n"},
    {"usr/bin/nfsmount", "a program"},
    {"usr/lib/modules/6.1.0/modules.builtin", "kernel/fs/ext2/ext2.ko\n"},
    {"usr/lib/modules/6.1.0/kernel/fs/nfs/nfsv3.ko", "a module"},
    {"usr/lib/modules/6.1.0/kernel/fs/nfs/nfsv4.ko", "a module"}};

inline InitramfsFiles without(InitramfsFiles files, const std::string &word) {
    std::erase_if(files, [&](const auto &file) { return file.first.find(word) != std::string::npos; });
    return files;
}

} // namespace tests
