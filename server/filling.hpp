// SPDX-License-Identifier: MIT
// How a client's root comes to be: made, filled from a tree or from packages, flushed. While that goes on the
// root stands in a table of this server's own, so that a run that was cut off is found by the next: the root is not
// whole.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "hostadm/method.hpp"
#include "server/files.hpp"
#include "server/journal.hpp"
#include "server/packages.hpp"
#include "server/undo_context.hpp"

namespace hostadm::server {

// What a root is made of: one of these.
struct RootSource {
    std::string tree;                  // to copy
    std::vector<std::string> packages; // to install
    bool of_client = false;            // the tree is a client's root, and changes while it is copied
};

struct MadeRoot {
    static constexpr std::string_view kind = "made root";
    std::string path;
    FileIdentity identity;
    static auto fields(auto &self) {
        return std::tie(self.path, self.identity.device, self.identity.inode, self.identity.born);
    }
};
std::string take_back(const MadeRoot &made, const UndoContext &context);

// A directory that was there, and empty.
struct FilledRoot {
    static constexpr std::string_view kind = "filled root";
    std::string path;
    FileIdentity identity;
    std::uint64_t mode = 0, owner = 0, group = 0;
    static auto fields(auto &self) {
        return std::tie(self.path, self.identity.device, self.identity.inode, self.identity.born, self.mode,
                        self.owner, self.group);
    }
};
std::string take_back(const FilledRoot &filled, const UndoContext &context);

// Makes a directory that is missing or empty, or that a run which was cut off has left, and puts down that it is not
// whole until end_filling. Throws Failure.
void prepare_filling(const method::Call &call, const std::string &root, const std::string &owner,
                     Journal &journal);

// Makes and fills a root that is missing or empty, or that a run which was cut off has left. It stands in the table
// as not whole until root_is_filled, and as whole until end_filling. Throws Failure.
void make_root(method::Call &call, const std::string &root, const std::string &client,
               const Identity &identity, const RootSource &source, Journal &journal);
// Returns when all of it is on the disk.
void root_is_filled(const std::string &root, const std::string &client);

// The roots of clients that are being added, or whose adding was cut off.
struct Filling {
    std::string root, client;
    bool is_whole = false; // else its filling has not ended
};
std::vector<Filling> roots_being_filled();
bool is_being_filled(const std::string &root);
// Its filling has ended, and what else belongs to the client may be missing.
bool is_filled_for(const std::string &root, const std::string &client);
void begin_filling(const std::string &root, const std::string &client);
void end_filling(const std::string &root);

} // namespace hostadm::server
