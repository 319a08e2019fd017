// SPDX-License-Identifier: MIT
// Any bytes as a table of hosts or of Ethernet addresses, with a host to add and to remove, and lines to change. The
// input's first byte picks the table, the next six are the address, then comes the name up to a line break, then the
// table.
//
// What must hold: an edit leaves all other lines byte for byte, or the table as it was where it is refused; what was
// added is found; the same edit again changes nothing; what was changed can be taken back.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "base/text.hpp"
#include "server/failure.hpp"
#include "server/host_tables.hpp"
#include "server/journal.hpp"
#include "server/line_edits.hpp"
#include "server/transaction.hpp"

namespace {

using namespace hostadm::server;

void require(bool kept, const char *promise) {
    if (!kept) {
        std::fprintf(stderr, "broken: %s\n", promise);
        std::abort();
    }
}

// In memory's file system, in a folder that goes with the process.
class File {
public:
    File() {
        require(mkdtemp(folder_.data()) != nullptr, "a temporary folder");
        path_ = folder_ + "/table";
    }
    ~File() {
        unlink(path_.c_str());
        rmdir(folder_.c_str());
    }
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    const std::string &path() const { return path_; }
    void write(std::string_view text) const {
        const int file = open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        require(file >= 0 && ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()),
                "a table");
        close(file);
    }
    std::string read() const {
        const hostadm::base::Descriptor file(open(path_.c_str(), O_RDONLY | O_CLOEXEC));
        const std::optional<std::string> text = hostadm::base::read_whole(file.get());
        require(text.has_value(), "the table can be read");
        return *text;
    }

private:
    std::string folder_ = "/dev/shm/hostadm-fuzz-XXXXXX";
    std::string path_;
};

std::vector<std::string> lines_of(std::string_view text) {
    std::vector<std::string> lines;
    hostadm::base::for_each_line(text, [&](std::string_view line) { lines.emplace_back(line); });
    return lines;
}

bool is_subsequence(const std::vector<std::string> &some, const std::vector<std::string> &all) {
    auto next = all.begin();
    return std::all_of(some.begin(), some.end(), [&](const std::string &line) {
        next = std::find(next, all.end(), line);
        return next != all.end() && next++ != all.end();
    });
}

std::string key_of(HostTable::Kind kind, const std::uint8_t *bytes) {
    char text[32];
    if (kind == HostTable::Kind::addresses)
        std::snprintf(text, sizeof text, "%u.%u.%u.%u", bytes[0], bytes[1], bytes[2], bytes[3]);
    else
        std::snprintf(text, sizeof text, "%x:%x:%x:%x:%x:%x", bytes[0], bytes[1], bytes[2], bytes[3],
                      bytes[4], bytes[5]);
    return text;
}

void add_and_remove(const HostTable &table, const File &file, const std::string &key,
                    const std::string &name) {
    const std::string before = file.read();
    HostTable::Added added;
    try {
        added = table.add(key, name);
    } catch (const Failure &refused) {
        require(*refused.what() != '\0', "a refusal says why");
        require(file.read() == before, "a refused edit changes nothing");
        return;
    }
    const std::string after = file.read();
    if (added.outcome == HostTable::Outcome::conflict) {
        require(!added.conflict.empty(), "a conflict says what stands in the way");
        require(after == before, "a conflict changes nothing");
    } else {
        require(!table.key_of(name).empty(), "the name is found");
        require(!table.name_of(key).empty(), "the key is found");
        require(after.starts_with(before), "all that was there stays");
        require((after == before) == (added.outcome == HostTable::Outcome::present),
                "only what is added is new");
        require(table.add(key, name).outcome == HostTable::Outcome::present, "it is there now");
        require(file.read() == after, "the same edit again changes nothing");
    }
    const bool removed = table.remove(name);
    const std::string rest = file.read();
    require(removed == (rest != after), "a removal is told as it was");
    require(is_subsequence(lines_of(rest), lines_of(after)), "a removal leaves the other lines alone");
    require(table.key_of(name, true).empty(), "what was removed is not found");
    require(!table.remove(name) && file.read() == rest, "the same removal again changes nothing");
}

// Every line that holds the word becomes another one, and back.
void change_and_take_back(const File &file, const std::string &word) {
    const std::string before = file.read(), fresh = "changed " + word;
    if (before.find("changed") != before.npos)
        return;
    const auto change = [&](std::string_view line) -> std::optional<std::string> {
        return line.find(word) != line.npos && line != fresh ? std::optional(fresh) : std::nullopt;
    };
    Journal journal;
    bool changed = false;
    try {
        changed = change_lines(file.path(), change, journal);
    } catch (const Failure &) {
        require(file.read() == before, "a refused edit changes nothing");
        return;
    }
    const std::vector<std::string> old_lines = lines_of(before), new_lines = lines_of(file.read());
    require(old_lines.size() == new_lines.size(), "no line is lost, none is added");
    for (std::size_t i = 0; i < old_lines.size(); ++i)
        require(new_lines[i] == change(old_lines[i]).value_or(old_lines[i]), "only the wanted lines change");
    require(changed == (file.read() != before), "a change is told as it was");
    Journal none;
    require(!change_lines(file.path(), change, none) && none.entries().empty(),
            "the same edit again changes nothing");
    const std::vector<Written> entries = journal.entries();
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry)
        require(take_back(*entry, {.method = "fuzz"}).empty(), "it can be taken back");
    std::vector<std::string> sorted_before = old_lines, sorted_now = lines_of(file.read());
    std::sort(sorted_before.begin(), sorted_before.end());
    std::sort(sorted_now.begin(), sorted_now.end());
    require(sorted_before == sorted_now, "taken back, all lines are there again");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    constexpr std::size_t head = 7;
    if (size < head)
        return 0;
    static const File file;
    const auto kind = data[0] % 2 == 0 ? HostTable::Kind::addresses : HostTable::Kind::ethernets;
    const std::string_view rest(reinterpret_cast<const char *>(data) + head, size - head);
    std::string name(rest.substr(0, rest.find('\n')));
    std::erase_if(name, [](unsigned char c) { return std::isalnum(c) == 0 && c != '-' && c != '.'; });
    const std::string_view text = rest.find('\n') == rest.npos ? "" : rest.substr(rest.find('\n') + 1);
    if (name.empty())
        return 0;
    const HostTable table(kind, file.path());
    file.write(text);
    add_and_remove(table, file, key_of(kind, data + 1), name);
    file.write(text);
    change_and_take_back(file, name);
    return 0;
}
