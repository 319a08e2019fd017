// SPDX-License-Identifier: MIT
// The kinds of clients, and how an entry of bootparams says which one a client is and how large its swap area is.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "server/bootparams_text.hpp"

namespace hostadm::server {

enum class ClientKind {
    diskless,   // root and swap on the server
    dataless,   // root and swap on its own disk, the rest from the server
    diskfull,   // all of it on its own disk
    cache_only, // a diskless client that mounts through a cache on its own disk
    install,    // starts the installation of an operating system
    rpl,        // a diskless client that asks for its boot program by remote program load
    pc,         // a diskless client that asks by DHCP, and boots by a menu
    unknown
};

std::string name_of(ClientKind kind);

// By its item "boottype" or, where there is none, by what it gets from the server.
ClientKind kind_of(std::string_view items);

// The value of an item KEY=VALUE or KEY=SERVER:VALUE; empty: none.
std::string value_of_item(std::string_view items, std::string_view key);

// The items that say it.
BootparamsItem boot_type_item(ClientKind kind);
// Whole megabytes; nothing: it is smaller than one.
std::optional<BootparamsItem> swap_size_item(std::uint64_t bytes);

} // namespace hostadm::server
