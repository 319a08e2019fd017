// SPDX-License-Identifier: MIT
// Any text as /etc/bootparams, read as every method and check reads it, and edited: the input is a client's
// name, a line break, and the file.
//
// What must hold: entries lie in the file one behind the other; items that were set are read back and the
// other clients keep theirs; the same again changes nothing; and a client that was removed is gone, and
// nobody else.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "server/bootparams_text.hpp"
#include "server/failure.hpp"

namespace {

using namespace hostadm::server;
using Clients = std::vector<std::pair<std::string, std::string>>;

void require(bool kept, const char *promise) {
    if (!kept) {
        std::fprintf(stderr, "broken: %s\n", promise);
        std::abort();
    }
}

void check_reader(std::string_view file) {
    BootparamsReader reader(file);
    std::size_t last = 0;
    for (BootparamsEntry entry; reader.next(entry); last = entry.end) {
        require(last <= entry.begin && entry.begin < entry.end && entry.end <= file.size(),
                "entries lie one behind the other");
        require(!entry.name().empty() && entry.name().find_first_of(" \t\n") == entry.name().npos,
                "a name is one word");
    }
}

// The clients but one, with their items.
Clients others(const std::string &file, std::string_view client) {
    Clients found;
    for (const BootparamsClient &one : clients_in(file))
        if (one.name != client)
            found.emplace_back(one.name, one.items);
    return found;
}

std::string items_of(const std::string &file, std::string_view client) {
    for (const BootparamsClient &one : clients_in(file))
        if (one.name == client)
            return one.items;
    return {};
}

bool is_plain_name(std::string_view name) {
    return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.';
    });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    const std::size_t end = input.find('\n');
    if (end == input.npos)
        return 0;
    const std::string client(input.substr(0, end));
    const std::string before(input.substr(end + 1));
    check_reader(before);
    parse_items(input);
    if (!is_plain_name(client))
        return 0;

    const Clients rest = others(before, client);
    std::string file = before;
    try {
        set_items(file, client, {{"root", "server", "/export/root/x"}});
        require((" " + items_of(file, client) + " ").find(" root=server:/export/root/x ") !=
                    std::string::npos,
                "what was set is read back");
        require(others(file, client) == rest, "the other clients keep their items");
        const std::string once = file;
        require(!set_items(file, client, {{"root", "server", "/export/root/x"}}) && file == once,
                "the same again changes nothing");
    } catch (const Failure &refused) {
        require(*refused.what() != '\0', "a refusal says why");
        require(file == before, "a refused edit changes nothing");
    }
    remove_client(file, client);
    require(items_of(file, client).empty() && others(file, client) == rest,
            "the client is gone, and nobody else");
    require(!remove_client(file, client), "and there is nothing more to remove");
    return 0;
}
