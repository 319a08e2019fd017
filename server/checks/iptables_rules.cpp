// SPDX-License-Identifier: MIT
#include "server/checks/iptables_rules.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <iomanip>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string_view>
#include <vector>

#include "base/text.hpp"
#include "server/checks/system_tables.hpp"

namespace hostadm::server {

namespace {

using Json = nlohmann::json;

std::vector<std::string> words_of_rule(std::string_view line) {
    std::istringstream stream{std::string(line)};
    std::vector<std::string> words;
    for (std::string word; stream >> std::quoted(word);)
        words.push_back(word);
    return words;
}

Json payload(const char *protocol, const char *field) {
    return {{"payload", {{"protocol", protocol}, {"field", field}}}};
}

Json meta(const char *key) {
    return {{"meta", {{"key", key}}}};
}

// "A.B.C.D", "A.B.C.D/BITS" or "A.B.C.D/MASK"; null when it is none of them.
Json network(const std::string &text) {
    const std::size_t slash = text.find('/');
    const std::string address = text.substr(0, slash);
    if (slash == text.npos)
        return address;
    const std::string bits = text.substr(slash + 1);
    int length = -1;
    if (const std::string mask = ipv4_value(bits); !mask.empty()) {
        const std::uint32_t number = ipv4_number(mask);
        const int ones = __builtin_popcount(number);
        length = number == (ones == 0 ? 0 : ~0u << (32 - ones)) ? ones : -1;
    } else if (std::from_chars(bits.data(), bits.data() + bits.size(), length).ec != std::errc{}) {
        length = -1;
    }
    return {{"prefix", {{"addr", address}, {"len", length}}}};
}

// "69", "60:70", "69,111,600:700"
Json ports(const std::string &text) {
    Json set = Json::array();
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, ',');) {
        std::array<unsigned, 2> ends{0, 65535};
        const std::size_t colon = part.find(':');
        const auto number = [&](std::string_view digits, unsigned &into) {
            std::from_chars(digits.data(), digits.data() + digits.size(), into);
        };
        number(std::string_view(part).substr(0, colon), ends[0]);
        if (colon == part.npos)
            ends[1] = ends[0];
        else
            number(std::string_view(part).substr(colon + 1), ends[1]);
        set.push_back({{"range", {ends[0], ends[1]}}});
    }
    return {{"set", set}};
}

Json states(const std::string &text) {
    Json list = Json::array();
    std::istringstream stream(base::lower_case(text));
    for (std::string state; std::getline(stream, state, ',');)
        list.push_back(state);
    return list;
}

std::string interface_pattern(std::string name) {
    if (name.ends_with('+'))
        name.back() = '*';
    return name;
}

// Something that it is known to ask, but not what a packet would be told.
Json unknown() {
    return {{"xt", Json::object()}};
}

// One option of a rule and its value; null when it asks nothing.
Json match(const std::string &option, const std::string &value, bool negated) {
    static const std::set<std::string_view> harmless = {"udp",       "tcp",     "state",  "conntrack",
                                                        "multiport", "comment", "pkttype"};
    const auto matches = [&](const Json &left, const Json &right) {
        return Json{{"match", {{"op", negated ? "!=" : "=="}, {"left", left}, {"right", right}}}};
    };
    if (option == "-p" || option == "--protocol")
        return value == "all" ? Json() : matches(meta("l4proto"), value);
    if (option == "-s")
        return matches(payload("ip", "saddr"), network(value));
    if (option == "-d")
        return matches(payload("ip", "daddr"), network(value));
    if (option == "-i")
        return matches(meta("iifname"), interface_pattern(value));
    if (option == "-o")
        return matches(meta("oifname"), interface_pattern(value));
    if (option == "--dport" || option == "--dports")
        return matches(payload("th", "dport"), ports(value));
    if (option == "--sport" || option == "--sports")
        return matches(payload("th", "sport"), ports(value));
    if (option == "--state" || option == "--ctstate")
        return matches({{"ct", {{"key", "state"}}}}, states(value));
    if (option == "--pkt-type")
        return matches(meta("pkttype"), value);
    if (option == "--comment" || (option == "-m" && harmless.contains(value)))
        return {};
    return unknown();
}

Json verdict(const std::string &target, bool goes) {
    static const std::map<std::string_view, const char *> known = {
        {"ACCEPT", "accept"}, {"DROP", "drop"},         {"REJECT", "reject"}, {"RETURN", "return"},
        {"DNAT", "dnat"},     {"REDIRECT", "redirect"}, {"NFQUEUE", "queue"}, {"TPROXY", "tproxy"}};
    // They only note something.
    static const std::set<std::string_view> silent = {"LOG",    "NFLOG",    "MARK", "CONNMARK",   "CT",
                                                      "TRACE",  "ULOG",     "TOS",  "MASQUERADE", "SNAT",
                                                      "TCPMSS", "CHECKSUM", "DSCP"};
    if (const auto found = known.find(target); found != known.end())
        return {{found->second, nullptr}};
    if (silent.contains(target))
        return {{"log", nullptr}};
    return {{goes ? "goto" : "jump", {{"target", target}}}};
}

// "-A CHAIN OPTION..."
Json expressions_of(const std::vector<std::string> &words) {
    Json expressions = Json::array();
    bool negated = false;
    for (std::size_t i = 2; i < words.size(); ++i) {
        if (words[i] == "!") {
            negated = true;
            continue;
        }
        if (!words[i].starts_with('-'))
            continue; // a further value of an option that is not known
        const std::string value = i + 1 < words.size() ? words[i + 1] : "";
        if (words[i] == "-j" || words[i] == "-g") {
            expressions.push_back(verdict(value, words[i] == "-g"));
            break; // what follows are options of the target
        }
        if (const Json one = match(words[i], value, negated); !one.is_null())
            expressions.push_back(one);
        if (!value.starts_with('-') && value != "!")
            ++i;
        negated = false;
    }
    return expressions;
}

int priority_of(const std::string &table) {
    if (table == "raw")
        return -300;
    if (table == "mangle")
        return -150;
    return table == "nat" ? -100 : 0;
}

std::string hook_of(const std::string &chain) {
    for (const char *hook : {"INPUT", "OUTPUT", "PREROUTING", "POSTROUTING", "FORWARD"})
        if (chain == hook)
            return base::lower_case(chain);
    return {};
}

} // namespace

Json chains_of_iptables(const std::string &saved, const std::string &command) {
    Json all = Json::array();
    std::string table;
    // A name of its own for the table keeps it apart from nftables' of the same name.
    const auto name_of = [&] { return command + " " + table; };
    base::for_each_line(saved, [&](std::string_view line) {
        if (line.starts_with('*')) {
            table = base::trimmed(line.substr(1));
        } else if (line.starts_with(':')) {
            const auto words = base::words_of(line.substr(1));
            if (words.size() < 2)
                return;
            const std::string chain(words[0]);
            all.push_back({{"chain",
                            {{"family", "ip"},
                             {"table", name_of()},
                             {"name", chain},
                             {"hook", hook_of(chain)},
                             {"type", table == "nat" ? "nat" : "filter"},
                             {"prio", priority_of(table)},
                             {"policy", words[1] == "DROP" ? "drop" : "accept"},
                             {"command", command + " -t " + table}}}});
        } else if (line.starts_with("-A ")) {
            const auto words = words_of_rule(line);
            if (words.size() > 1)
                all.push_back({{"rule",
                                {{"family", "ip"},
                                 {"table", name_of()},
                                 {"chain", words[1]},
                                 {"words", base::trimmed(line.substr(3))},
                                 {"expr", expressions_of(words)}}}});
        }
    });
    return all;
}

} // namespace hostadm::server
