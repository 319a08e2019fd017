// SPDX-License-Identifier: MIT
// Any text as the option list of a share.
//
// What must hold: a list that is accepted names only clients that a table and an exports file can hold;
// written anew it is accepted and means the same; each client has one rule; and the order of its words does
// not change what it means.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "base/share_options.hpp"
#include "base/text.hpp"

namespace {

using namespace hostadm::base;

void require(bool kept, const char *promise) {
    if (!kept) {
        std::fprintf(stderr, "broken: %s\n", promise);
        std::abort();
    }
}

bool same(const ShareOptions &one, const ShareOptions &other) {
    return one.everyone == other.everyone && one.writers == other.writers && one.readers == other.readers &&
           one.roots == other.roots && one.anonymous == other.anonymous;
}

std::string joined(const std::vector<std::string> &list) {
    std::string text;
    for (const std::string &word : list)
        text += (text.empty() ? "" : ":") + word;
    return text;
}

std::string written(const ShareOptions &options) {
    std::vector<std::string> words;
    if (!options.writers.empty())
        words.push_back("rw=" + joined(options.writers));
    if (!options.readers.empty())
        words.push_back("ro=" + joined(options.readers));
    if (!options.roots.empty())
        words.push_back("root=" + joined(options.roots));
    if (options.anonymous)
        words.push_back("anon=" + std::to_string(*options.anonymous));
    if (options.everyone == Access::read)
        words.push_back("ro");
    if (options.everyone == Access::write)
        words.push_back("rw");
    std::string text;
    for (const std::string &word : words)
        text += (text.empty() ? "" : ",") + word;
    return text;
}

void check_clients(const std::vector<std::string> &clients) {
    for (const std::string &client : clients)
        require(!client.empty() && client.find_first_of(" \t\n,:=()\"'\\#*;{}$`") == std::string::npos &&
                    client.front() != '-',
                "no client's name takes a line apart");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    ShareOptions options;
    try {
        options = parse_share_options(text);
    } catch (const ShareRefused &refused) {
        require(*refused.what() != '\0', "a refusal says why");
        return 0;
    }
    check_clients(options.writers);
    check_clients(options.readers);
    check_clients(options.roots);
    require(same(parse_share_options(written(options)), options), "written anew it means the same");

    const auto parts = split(text, ',');
    std::vector<std::string> words(parts.begin(), parts.end());
    std::stable_sort(words.begin(), words.end(), [](const std::string &one, const std::string &other) {
        return one.find('=') == one.npos && other.find('=') != other.npos;
    });
    std::string sorted;
    for (const std::string &word : words)
        sorted += (sorted.empty() ? "" : ",") + word;
    require(same(parse_share_options(sorted), options),
            "the order of rw and ro among the lists does not matter");

    const std::vector<ClientRule> rules = client_rules(options);
    for (const ClientRule &rule : rules) {
        require(rule.access != Access::none, "a rule gives something");
        require(std::count_if(rules.begin(), rules.end(),
                              [&rule](const ClientRule &other) { return other.client == rule.client; }) == 1,
                "a client has one rule");
    }
    return 0;
}
