// SPDX-License-Identifier: MIT
// The tables that name clients, line by line as the daemons read them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace hostadm::server {

// A text file; `error` is an errno when it cannot be read.
struct TableText {
    std::string path;
    int error = 0;
    std::string text;
};
TableText read_table(const std::string &path);

struct KeyLine {
    std::size_t line = 0; // in the file, from 1
    std::string key;      // as it is written
    std::string value;    // the key in network byte order; empty: the daemons pass over this line
    std::vector<std::string> names;

    bool is_ipv4() const { return value.size() == 4; }
};

// "KEY NAME..." lines: the hosts table or the ethers table.
struct KeyTable {
    TableText file;
    std::vector<KeyLine> lines; // those that are neither empty nor a comment
    std::unordered_map<std::string, std::vector<std::size_t>> by_name; // in lower case; places in `lines`
    std::unordered_map<std::string, std::vector<std::size_t>> by_value;

    std::string place(std::size_t line) const; // FILE:LINE
    std::vector<const KeyLine *> with_name(std::string_view name) const;
    std::vector<const KeyLine *> with_value(const std::string &value) const;
};
KeyTable parse_hosts(TableText file);
KeyTable parse_ethers(TableText file);

// An IPv4 address or an Ethernet address as bytes; empty: it is none.
std::string ipv4_value(const std::string &text);
std::string ethernet_value(const std::string &text);
// Of four bytes, in host order; and back as text.
std::uint32_t ipv4_number(const std::string &value);
std::string ipv4_text(std::uint32_t address);

// KEY=SERVER:PATH, or KEY=VALUE.
struct BootItem {
    std::string text, key, server, path;
    bool has_server = false; // a colon
};

struct BootLine {
    std::size_t line = 0;
    std::string name;
    std::vector<BootItem> items;

    const BootItem *item(std::string_view key) const; // the first, which is the one that counts
};

struct BootTable {
    TableText file;
    std::vector<BootLine> lines;
    std::unordered_map<std::string, std::vector<std::size_t>> by_name; // in lower case

    std::string place(std::size_t line) const;
};
BootTable parse_bootparams(TableText file);

// "KEYWORD: SOURCE ..." of the name-service switch, without what is in brackets.
struct SwitchLine {
    std::size_t line = 0;
    std::string database;
    std::vector<std::string> sources;
    std::vector<std::string> actions; // what stands in brackets behind each source, or nothing
};
std::vector<SwitchLine> parse_switch(std::string_view text);

} // namespace hostadm::server
