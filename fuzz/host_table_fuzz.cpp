// SPDX-License-Identifier: MIT
// Any text as /etc/hosts or /etc/ethers: the input's first byte says which, then come a key and a name, a
// line each, and the table.
//
// What must hold: a line that was added is found again and the rest keeps every byte; the same again is
// there already; a conflict changes nothing and says what stands in the way; removing takes the name away
// and only lines of that name.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <unistd.h>

#include "server/failure.hpp"
#include "server/host_tables.hpp"

namespace {

using namespace hostadm::server;

void require(bool kept, const char *promise) {
    if (!kept) {
        std::fprintf(stderr, "broken: %s\n", promise);
        std::abort();
    }
}

// A table in a folder of its own, used for one input after the other.
class Table {
public:
    Table() {
        std::string pattern =
            (std::filesystem::exists("/dev/shm") ? "/dev/shm" : "/tmp") + std::string("/hostadm-fuzz-XXXXXX");
        require(mkdtemp(pattern.data()) != nullptr, "there is a folder for the table");
        folder_ = pattern;
    }
    ~Table() { std::filesystem::remove_all(folder_); }
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;

    std::string path() const { return folder_ + "/table"; }
    void write(std::string_view text) const { std::ofstream(path(), std::ios::binary) << text; }
    std::string read() const {
        std::ifstream file(path(), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::string folder_;
};

std::string take_line(std::string_view &input) {
    const std::size_t end = std::min(input.find('\n'), input.size());
    std::string line(input.substr(0, end));
    input.remove_prefix(std::min(end + 1, input.size()));
    return line;
}

bool is_plain_name(std::string_view name) {
    return !name.empty() && name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789.-") == name.npos;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const Table file;
    std::string_view input(reinterpret_cast<const char *>(data), size);
    if (input.empty())
        return 0;
    const bool ethernets = (input[0] & 1) != 0;
    input.remove_prefix(1);
    const std::string key = take_line(input), name = take_line(input);
    // What methods hand on has been checked by its kind.
    const bool is_key = !key.empty() && key.find_first_not_of("0123456789abcdef.:") == key.npos;
    if (!is_key || !is_plain_name(name))
        return 0;
    const HostTable table(ethernets ? HostTable::Kind::ethernets : HostTable::Kind::addresses, file.path());
    file.write(input);
    const std::string before = file.read();
    try {
        const HostTable::Added foreseen = table.examine(key, name);
        const HostTable::Added added = table.add(key, name);
        require(foreseen.outcome == added.outcome, "what was foreseen came");
        const std::string after = file.read();
        if (added.outcome == HostTable::Outcome::conflict) {
            require(!added.conflict.empty() && after == before, "a conflict says why and changes nothing");
            return 0;
        }
        if (added.outcome == HostTable::Outcome::present)
            require(after == before, "what is there already stays as it is");
        else
            require(after.starts_with(before), "the other lines keep every byte");
        require(!table.key_of(name).empty(), "what was added is found");
        require(table.add(key, name).outcome == HostTable::Outcome::present && file.read() == after,
                "the same again changes nothing");
        table.remove(name);
        require(table.key_of(name, true).empty(), "what was removed is gone");
        if (added.outcome == HostTable::Outcome::added && before.ends_with('\n'))
            require(file.read().size() <= before.size(), "removing takes the added line away");
    } catch (const Failure &refused) {
        require(*refused.what() != '\0', "a refusal says why");
    }
    return 0;
}
