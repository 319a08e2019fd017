// SPDX-License-Identifier: MIT
// A table that a method is told by its path: one of this server's, or one that may lie in a client's root, where the
// client may lay links about it at any moment.
#pragma once

#include <functional>
#include <string>

namespace hostadm::server {

// The whole table; empty when there is none. Throws Failure.
std::string read_named_table(const std::string &table);

// Changes a table by an edit that takes a path and returns a status of the table interface, such as the library's own
// functions. Where the table is not sure to be the server's, the edit is made on a copy, in a process of its own, which
// then takes the table's place. False: it was so already. Throws Failure.
bool edit_named_table(const std::string &table, const std::function<int(const std::string &path)> &edit);

// A library operation that has one effect now and one at boot, on a table that it edits by its path. In a client's root the
// table's part is done on a copy, after the other. `operate` is told the effect: nowonly, bootonly or nowandboot. Its
// status. Throws Failure.
int operate_on_named_table(
    const std::string &table, const std::string &effect,
    const std::function<int(const std::string &effect, const std::string &path)> &operate);

// An edit of the text, as edit_named_table does it.
bool change_named_table(const std::string &table, const std::function<void(std::string &text)> &change);

} // namespace hostadm::server
