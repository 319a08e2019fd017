// SPDX-License-Identifier: MIT
// The initramfs of a PC: made by its system's own tools so that it finds a root by NFS, and read as to whether it does.
#pragma once

#include <string>
#include <string_view>

#include "base/beneath.hpp"
#include "base/descriptor.hpp"

namespace hostadm::server {

// Makes the initramfs of a root's newest kernel by the root's own program, shut in there, so that it finds a root by NFS
// of version 3 or 4 on any machine. Its path; throws Failure with what the program said, and CannotEnterTree.
std::string build_network_initramfs(const base::Beneath &root);

// What an initramfs can mount a root by.
struct InitramfsRoots {
    bool known = false; // else it is of a kind that cannot be told here
    bool nfs3 = false, nfs4 = false;
};

// The archive of an initramfs, unpacked, in pieces of any size; only what matters here is kept of it.
class InitramfsReader {
public:
    // False: what comes next is of no interest, or no such archive, and begins at place().
    bool hear(std::string_view piece);
    std::size_t place() const { return place_; }
    InitramfsRoots roots() const;

private:
    bool hear_head();
    bool hear_entry();
    void note_name(std::string_view name);
    void note_built_in(std::string_view list);
    void begin_next();

    std::size_t place_ = 0; // of what is heard next
    std::string entry_;     // what is kept of this one so far: head, name, and contents where they matter
    std::size_t wanted_ = 0, skipped_ = 0, name_size_ = 0, file_size_ = 0;
    bool modules_known_ = false, nfs3_module_ = false, nfs4_module_ = false;
    bool debians_scripts_ = false, mounts_version4_ = false;
};

// Of a whole initramfs, packed or not, from where the descriptor stands, which moves.
InitramfsRoots roots_of_initramfs(const base::Descriptor &file);

} // namespace hostadm::server
