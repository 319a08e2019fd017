// SPDX-License-Identifier: MIT
#include "base/share_options.hpp"

#include <algorithm>
#include <charconv>

#include "base/text.hpp"
#include "base/translation.hpp"

namespace hostadm::base {
namespace {

constexpr std::string_view known = "rw, ro, rw=CLIENTS, ro=CLIENTS, root=CLIENTS, anon=UID, sec=sys";

bool is_client(std::string_view word) {
    if (word.starts_with('@'))
        return word.size() > 1 && word.find_first_not_of("0123456789./", 1) == std::string_view::npos;
    return !word.empty() && word != "." &&
           word.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-_") ==
               std::string_view::npos &&
           word.front() != '-';
}

void append_clients(std::vector<std::string> &clients, std::string_view option, std::string_view list) {
    for (const std::string_view client : split(list, ':')) {
        if (!is_client(client))
            throw ShareRefused(base::tr("option {1}=: \"{2}\" is no client: give host names, addresses, "
                                        ".DOMAIN or @NETWORK/BITS, separated by \":\"",
                                        option, client));
        clients.emplace_back(client);
    }
}

unsigned parse_anonymous(std::string_view value) {
    unsigned user = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), user);
    if (error != std::errc() || end != value.data() + value.size())
        throw ShareRefused(base::tr("option anon: \"{1}\" is no user number", value));
    return user;
}

bool contains(const std::vector<std::string> &list, const std::string &word) {
    return std::find(list.begin(), list.end(), word) != list.end();
}

} // namespace

ShareOptions parse_share_options(std::string_view text) {
    ShareOptions options;
    bool write_all = false;
    bool read_all = false;
    for (const std::string_view word : split(text, ',')) {
        const size_t equals = word.find('=');
        const std::string_view name = word.substr(0, equals);
        const std::string_view value =
            equals == std::string::npos ? std::string_view() : word.substr(equals + 1);
        if (word == "rw")
            write_all = true;
        else if (word == "ro")
            read_all = true;
        else if (name == "rw" && equals != std::string::npos)
            append_clients(options.writers, name, value);
        else if (name == "ro" && equals != std::string::npos)
            append_clients(options.readers, name, value);
        else if (name == "root" && equals != std::string::npos)
            append_clients(options.roots, name, value);
        else if (name == "anon")
            options.anonymous = parse_anonymous(value);
        else if (word != "sec=sys")
            throw ShareRefused(base::tr("unknown option \"{1}\"; known are {2}", word, known));
    }
    if (write_all && read_all)
        throw ShareRefused(base::tr("options rw and ro exclude each other"));
    if (read_all)
        options.everyone = Access::read;
    else if (!write_all && (!options.writers.empty() || !options.readers.empty()))
        options.everyone = Access::none;
    return options;
}

std::vector<ClientRule> client_rules(const ShareOptions &options) {
    std::vector<ClientRule> rules;
    for (const auto *list : {&options.writers, &options.readers, &options.roots}) {
        for (const std::string &client : *list) {
            ClientRule rule;
            rule.client = client;
            rule.access = contains(options.writers, client)   ? Access::write
                          : contains(options.readers, client) ? Access::read
                                                              : options.everyone;
            rule.root = contains(options.roots, client) || options.anonymous == 0U;
            // Being named after root= gives no access by itself.
            if (rule.access != Access::none && std::find(rules.begin(), rules.end(), rule) == rules.end())
                rules.push_back(rule);
        }
    }
    return rules;
}

} // namespace hostadm::base
