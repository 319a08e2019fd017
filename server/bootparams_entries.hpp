// SPDX-License-Identifier: MIT
// The file /etc/bootparams as entries. A backslash at the end of a line continues the entry on the next
// line. A "#" at the start of a line or behind a blank begins a comment, which ends with its line and is
// never continued.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace hostadm::server {

inline constexpr const char *bootparams_path = "/etc/bootparams";

struct BootparamsEntry {
    std::size_t begin = 0, end = 0; // its lines in the file, the last line break included
    std::string text;               // name and items, lines joined
    std::string tail;               // what follows them on the last line: blanks, comment, line break

    std::string_view name() const;
    std::string_view items() const;
};

// Whether a line goes on in the next.
bool is_continued(std::string_view line);

// Walks over the entries; lines without one are passed over.
class BootparamsReader {
public:
    explicit BootparamsReader(std::string_view file) : file_(file) {}
    bool next(BootparamsEntry &entry);

private:
    std::string_view line() const;
    void read(BootparamsEntry &entry);

    std::string_view file_;
    std::size_t at_ = 0;
};

// The clients, which are all entries but those that begin with "+" or "-": they belong to the name-service
// switch. The items are separated as in the file, continued lines joined with a blank.
void for_each_client(std::string_view file,
                     const std::function<void(std::string_view name, std::string_view items)> &use);

} // namespace hostadm::server
