// SPDX-License-Identifier: MIT
// What /tftpboot holds for each client.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace hostadm::server {

inline constexpr const char *tftpboot = "/tftpboot";

struct BootLink {
    std::string name;
    std::string target; // empty: no link
    bool whole = false; // it leads to a file
};

using BootLinks = std::vector<BootLink>; // in the order of their names

// The eight upper-case hexadecimal digits under which the client of an address asks; empty when it is none.
std::string address_digits(const std::string &address);

// All links, by the digits that their names begin with. One pass over the directory, which may be missing.
std::unordered_map<std::string, BootLinks> all_boot_links();
BootLinks boot_links_of(const std::string &address);

// The implementation architecture in the name of a boot program, such as inetboot.kel4m.Quorvel_2.5; empty
// when the name is of another kind.
std::string architecture_of(std::string_view boot_program);

// "yes" when the link of the digits and that of the architecture are there and lead to a file, "no" when
// there is none at all, else what is wrong.
std::string boot_links_state(const std::string &digits, const BootLinks &links);

// Whether the links are those of the digits and of the architecture and nothing else, both to that program.
bool lead_to(const BootLinks &links, const std::string &digits, const std::string &architecture,
             const std::string &boot_program);

} // namespace hostadm::server
