// SPDX-License-Identifier: MIT
#include "compat/share/share_table.hpp"

#include <algorithm>
#include <bitset>
#include <charconv>
#include <string_view>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "compat/support/failure.hpp"
#include "compat/support/files.hpp"

namespace compat {
namespace {

constexpr const char *table_path = "/etc/dfs/sharetab";
constexpr const char *numbers_path = "/etc/dfs/exportids";
constexpr unsigned last_number = 65535;

} // namespace

ShareTable ShareTable::load() {
    ShareTable table;
    const std::string text = read_file(table_path).value_or("");
    hostadm::base::for_each_line(text, [&](std::string_view line) {
        std::vector<std::string_view> fields = hostadm::base::split(line, '\t');
        if (fields.size() < 4 || !fields[0].starts_with('/'))
            return;
        fields.resize(5);
        table.shares.push_back({std::string(fields[0]), std::string(fields[3]), std::string(fields[4])});
    });
    return table;
}

void ShareTable::save() const {
    std::string text;
    for (const hostadm::base::Share &share : shares)
        text += share.path + "\t-\tnfs\t" + share.options + "\t" + share.description + "\n";
    make_directories("/etc/dfs");
    replace_file(table_path, text);
}

bool ShareTable::holds(const std::string &path) const {
    return std::any_of(shares.begin(), shares.end(),
                       [&](const hostadm::base::Share &share) { return share.path == path; });
}

ExportNumbers ExportNumbers::load() {
    ExportNumbers numbers;
    const std::string text = read_file(numbers_path).value_or("");
    hostadm::base::for_each_line(text, [&](std::string_view line) {
        unsigned number = 0;
        const std::size_t blank = std::min(line.find(' '), line.size());
        const auto [end, error] = std::from_chars(line.data(), line.data() + blank, number);
        if (error == std::errc() && end == line.data() + blank && blank < line.size() && number >= 1 &&
            number <= last_number)
            numbers.entries_.push_back({number, std::string(line.substr(blank + 1))});
    });
    return numbers;
}

void ExportNumbers::save() const {
    std::string text;
    for (const Entry &entry : entries_)
        text += std::to_string(entry.number) + " " + entry.path + "\n";
    make_directories("/etc/dfs");
    replace_file(numbers_path, text);
}

unsigned ExportNumbers::number_of(const std::string &path, const ShareTable &in_use) {
    const auto known = std::find_if(entries_.begin(), entries_.end(),
                                    [&](const Entry &entry) { return entry.path == path; });
    if (known != entries_.end())
        return known->number;
    if (entries_.size() >= last_number) {
        const auto forgotten = std::find_if(entries_.begin(), entries_.end(),
                                            [&](const Entry &entry) { return !in_use.holds(entry.path); });
        if (forgotten == entries_.end())
            throw Failure(hostadm::base::tr("too many shares: there are only 65535 export numbers"));
        entries_.erase(forgotten);
    }
    std::bitset<last_number + 1> taken;
    for (const Entry &entry : entries_)
        taken.set(entry.number);
    unsigned number = 1;
    while (taken.test(number))
        ++number;
    entries_.push_back({number, path});
    changed_ = true;
    return number;
}

} // namespace compat
