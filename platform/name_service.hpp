// SPDX-License-Identifier: MIT
// The reader behind sysv_nsw_getconfig: lines of the name-service switch.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hostadm::platform {

// The sources that a line "DATABASE: SOURCE [STATUS=ACTION]
// SOURCE" names; absent when the line is not for that database.
std::optional<std::vector<std::string>> sources_in_line(std::string_view line, std::string_view database);

// The sources of a database by the switch file at `path`: "files" when it has no line for it, absent (with
// errno) when the file cannot be read.
std::optional<std::vector<std::string>> sources_of(const std::string &path, std::string_view database);

} // namespace hostadm::platform
