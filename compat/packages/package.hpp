// SPDX-License-Identifier: MIT
// A package in the System V directory format: a directory with pkginfo, pkgmap, the trees root/ (absolute
// paths) and reloc/ (paths below the base directory), and install/ (depend, copyright, scripts).
#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "base/beneath.hpp"

namespace compat {

// The checksum of pkgmap: that of "sum -s", all bytes added up and folded into 16 bits.
class Checksum {
public:
    void add(std::string_view bytes);
    unsigned value() const;

private:
    uint64_t total_ = 0;
};

// Size and checksum of what is left to read of an open file.
struct Measure {
    uint64_t size = 0;
    unsigned sum = 0;
};
// Stops when it has read more than `most`.
constexpr uint64_t all_of_it = ~uint64_t{0};
Measure measure(
    const hostadm::base::Descriptor &file, const std::string &path, uint64_t most = all_of_it,
    const std::function<void()> &reading = [] {});

// At most 64 letters, digits and + - _, a letter first.
bool is_package_name(const std::string &name);

// "KEY=value" lines, values perhaps in quotes.
std::map<std::string, std::string> parse_settings(std::string_view text);

// One object of a package as pkgmap tells it. What is not told ("?") is empty.
struct Entry {
    char type = 0; // f e v: files; d x: directories; s l: links; b c: devices; p: pipe; i: information file
    std::string class_name;
    std::string written; // the path as pkgmap writes it
    std::string path;    // the place inside the root, absolute
    std::string target;  // of a link; for a hard link a place inside the root
    std::optional<mode_t> mode;
    std::string owner;
    std::string group;
    unsigned major = 0;
    unsigned minor = 0;
    uint64_t size = 0;
    unsigned sum = 0;
    std::optional<time_t> modified;
    unsigned part = 1;

    bool is_file() const { return type == 'f' || type == 'e' || type == 'v'; }
    bool is_directory() const { return type == 'd' || type == 'x'; }
    // Files that somebody may have edited, or that change by themselves.
    bool is_editable() const { return type == 'e' || type == 'v'; }
};

class Package {
public:
    // Reads and checks pkginfo and pkgmap. `base` is the base directory
    // that the administrator wants; empty leaves it to the package.
    Package(const std::string &directory, const std::string &base);

    const std::string &name() const { return name_; }
    const std::string &base() const { return base_; }
    std::string setting(const std::string &key, const std::string &otherwise = "") const;
    const std::string &info_text() const { return info_text_; }
    const std::string &map_text() const { return map_text_; }
    const std::vector<Entry> &entries() const { return entries_; }
    const std::vector<Entry> &information() const { return information_; }

    // The contents of a file entry, opened for reading.
    hostadm::base::Descriptor open_source(const Entry &entry) const;
    // Throws unless the size and the checksum of every file
    // are those of pkgmap. `reading` is called now and then.
    void verify(const std::function<void()> &reading = [] {}) const;
    // The packages that install/depend wants to be there before.
    std::vector<std::string> prerequisites() const;
    std::string information_text(const Entry &entry) const;

private:
    void parse_map();
    Entry parse_line(std::string_view line) const;
    void refuse_scripts() const;
    std::string expand(const std::string &word) const;
    std::string place_of(const std::string &written) const;
    [[noreturn]] void fail(const std::string &text) const;

    // Nothing in a package may be reached through a link: it would lead out of it.
    hostadm::base::Beneath files_;
    std::string name_;
    std::string base_;
    std::string info_text_;
    std::string map_text_;
    std::map<std::string, std::string> settings_;
    std::vector<Entry> entries_;
    std::vector<Entry> information_;
};

} // namespace compat
