// SPDX-License-Identifier: MIT
#include "server/checks/packet_filter.hpp"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <unistd.h>

#include "base/files.hpp"
#include "base/program.hpp"
#include "base/translation.hpp"
#include "server/checks/iptables_rules.hpp"
#include "server/checks/system_tables.hpp"

namespace hostadm::server {

namespace {

using Json = nlohmann::json;

constexpr const char *iptables_in_nftables = "iptables-nft";

enum class Truth { no, maybe, yes };

Truth operator!(Truth truth) {
    return truth == Truth::no ? Truth::yes : truth == Truth::yes ? Truth::no : Truth::maybe;
}

Truth truth_of(bool is) {
    return is ? Truth::yes : Truth::no;
}

struct Chain {
    std::string family, table, name, hook, device, policy;
    int priority = 0;
    bool nat = false;
    std::string command; // of iptables, that changes it; empty: nft
    std::vector<Json> rules;
};

std::string text_in(const Json &object, const char *key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

} // namespace

struct PacketFilter::Rules {
    std::map<std::string, Chain> chains; // by FAMILY TABLE NAME
    std::map<std::string, Json> sets;    // elements, likewise
};

namespace {

// What a packet has at the place that an expression names: a number or a word. Nothing: it cannot be told.
struct Field {
    enum class Kind { unknown, none, number, word } kind = Kind::unknown;
    std::uint32_t number = 0;
    std::string word;
};

Field word(std::string text) {
    return {Field::Kind::word, 0, std::move(text)};
}
Field number(std::uint32_t value) {
    return {Field::Kind::number, value, {}};
}

Field payload_field(const Packet &packet, const std::string &protocol, const std::string &field) {
    const bool ip = packet.protocol == "udp" || packet.protocol == "tcp";
    const Field absent{Field::Kind::none, 0, {}};
    if (protocol == "udp" || protocol == "tcp" || protocol == "th") {
        if (!ip || (protocol != "th" && protocol != packet.protocol))
            return absent;
        if (field == "dport")
            return number(packet.port);
        return field == "sport" ? number(packet.source_port) : Field{};
    }
    if (protocol == "ip") {
        if (!ip)
            return absent;
        if (field == "saddr")
            return number(packet.source);
        if (field == "daddr")
            return number(packet.destination);
        return field == "protocol" ? word(packet.protocol) : Field{};
    }
    if (protocol == "ether" && field == "type")
        return word(ip ? "ip" : packet.protocol);
    if (protocol == "ip6" || protocol == "icmp" || protocol == "icmpv6" || protocol == "sctp")
        return absent;
    return {};
}

Field meta_field(const Packet &packet, const std::string &key) {
    const bool in = packet.direction == Packet::Direction::in;
    const bool ip = packet.protocol == "udp" || packet.protocol == "tcp";
    const Field absent{Field::Kind::none, 0, {}};
    if (key == "iifname" || key == "iif")
        return in ? word(packet.interface) : absent;
    if (key == "oifname" || key == "oif")
        return in ? absent : word(packet.interface);
    if (key == "l4proto")
        return ip ? word(packet.protocol) : absent;
    if (key == "nfproto")
        return word(ip ? "ipv4" : packet.protocol);
    if (key == "protocol")
        return word(ip ? "ip" : packet.protocol);
    if (key == "pkttype" && in)
        return word(packet.broadcast ? "broadcast" : "host");
    return {};
}

Field field_of(const Packet &packet, const Json &left) {
    if (const auto payload = left.find("payload"); payload != left.end())
        return payload_field(packet, text_in(*payload, "protocol"), text_in(*payload, "field"));
    if (const auto meta = left.find("meta"); meta != left.end())
        return meta_field(packet, text_in(*meta, "key"));
    if (const auto ct = left.find("ct"); ct != left.end() && text_in(*ct, "key") == "state")
        return word(packet.established ? "established" : "new");
    return {};
}

std::optional<std::uint32_t> number_in(const Json &value) {
    if (value.is_number_unsigned())
        return value.get<std::uint32_t>();
    if (!value.is_string())
        return std::nullopt;
    const std::string text = value.get<std::string>();
    if (const std::string address = ipv4_value(text); !address.empty())
        return ipv4_number(address);
    static const std::map<std::string, std::uint32_t> services = {
        {"tftp", 69},   {"sunrpc", 111}, {"nfs", 2049}, {"ssh", 22},
        {"domain", 53}, {"http", 80},    {"https", 443}};
    const auto service = services.find(text);
    return service == services.end() ? std::nullopt : std::optional(service->second);
}

// "eth*" stands for all that begin so.
bool same_word(const std::string &has, const std::string &wanted) {
    if (wanted.ends_with('*'))
        return has.starts_with(wanted.substr(0, wanted.size() - 1));
    static const std::map<std::string, std::string> numbers = {
        {"17", "udp"},     {"6", "tcp"},       {"0x0806", "arp"}, {"2054", "arp"},
        {"32821", "rarp"}, {"0x8035", "rarp"}, {"8035", "rarp"},  {"unicast", "host"}};
    const auto alias = numbers.find(wanted);
    return has == wanted || (alias != numbers.end() && alias->second == has);
}

Truth equals(const PacketFilter::Rules &rules, const std::string &scope, const Field &field,
             const Json &right);

Truth any_of(const PacketFilter::Rules &rules, const std::string &scope, const Field &field,
             const Json &list) {
    Truth found = Truth::no;
    for (const Json &one : list)
        found = std::max(found, equals(rules, scope, field, one));
    return found;
}

Truth equals(const PacketFilter::Rules &rules, const std::string &scope, const Field &field,
             const Json &right) {
    if (right.is_object()) {
        if (const auto set = right.find("set"); set != right.end())
            return any_of(rules, scope, field, set->is_array() ? *set : Json::array({*set}));
        if (const auto element = right.find("elem"); element != right.end())
            return equals(rules, scope, field, element->value("val", Json()));
        if (field.kind != Field::Kind::number)
            return Truth::maybe;
        if (const auto range = right.find("range"); range != right.end() && range->size() == 2) {
            const auto first = number_in((*range)[0]), last = number_in((*range)[1]);
            return first && last ? truth_of(*first <= field.number && field.number <= *last) : Truth::maybe;
        }
        if (const auto prefix = right.find("prefix"); prefix != right.end()) {
            const auto address = number_in(prefix->value("addr", Json()));
            const int length = prefix->value("len", -1);
            if (!address || length < 0 || length > 32)
                return Truth::maybe;
            const std::uint32_t mask = length == 0 ? 0 : ~0u << (32 - length);
            return truth_of((*address & mask) == (field.number & mask));
        }
        return Truth::maybe;
    }
    if (right.is_array())
        return any_of(rules, scope, field, right);
    if (right.is_string() && right.get_ref<const std::string &>().starts_with('@')) {
        const auto set = rules.sets.find(scope + right.get<std::string>().substr(1));
        return set == rules.sets.end() ? Truth::maybe : any_of(rules, scope, field, set->second);
    }
    if (field.kind == Field::Kind::number) {
        const auto wanted = number_in(right);
        return wanted ? truth_of(*wanted == field.number) : Truth::maybe;
    }
    return truth_of(same_word(field.word, right.is_string() ? right.get<std::string>() : right.dump()));
}

Truth matches(const PacketFilter::Rules &rules, const std::string &scope, const Packet &packet,
              const Json &match) {
    const Field field = field_of(packet, match.value("left", Json()));
    if (field.kind == Field::Kind::unknown)
        return Truth::maybe;
    if (field.kind == Field::Kind::none)
        return Truth::no;
    const std::string operation = text_in(match, "op");
    const Json right = match.value("right", Json());
    if (operation == "==" || operation == "in")
        return equals(rules, scope, field, right);
    if (operation == "!=")
        return !equals(rules, scope, field, right);
    const auto limit = number_in(right);
    if (field.kind != Field::Kind::number || !limit)
        return Truth::maybe;
    if (operation == "<")
        return truth_of(field.number < *limit);
    if (operation == ">")
        return truth_of(field.number > *limit);
    if (operation == "<=")
        return truth_of(field.number <= *limit);
    return operation == ">=" ? truth_of(field.number >= *limit) : Truth::maybe;
}

// What becomes of a packet in a chain. "open" stands for what cannot be told, which counts as passing.
enum class Fate { on, passes, open, dropped, back };

class Walk {
public:
    Walk(const PacketFilter::Rules &rules, const Packet &packet) : rules_(rules), packet_(packet) {}

    Fate through(const Chain &chain, int depth = 0) {
        constexpr int deepest = 16;
        if (depth > deepest)
            return Fate::open;
        for (const Json &rule : chain.rules) {
            const Fate fate = by_rule(chain, rule, depth);
            if (fate == Fate::back)
                return depth == 0 ? by_policy(chain) : Fate::on;
            if (fate != Fate::on)
                return fate;
        }
        return depth == 0 ? by_policy(chain) : Fate::on;
    }
    const Dropped &dropped() const { return dropped_; }

private:
    static std::string scope_of(const Chain &chain) { return chain.family + " " + chain.table + " "; }
    static std::string name_of(const Chain &chain) {
        if (!chain.command.empty())
            return base::tr("chain {1} of {2}", chain.name, chain.command);
        return base::tr("chain {1} of the table {2} {3}", chain.name, chain.family, chain.table);
    }

    // Between ports that are chosen anew each time only the client can be named.
    bool is_between_chosen_ports() const {
        return packet_.port == a_clients_port ? !packet_.established
                                              : packet_.source_port == a_clients_port && packet_.established;
    }

    std::string iptables_words() const {
        const bool in = packet_.direction == Packet::Direction::in;
        if (is_between_chosen_ports())
            return "-p " + packet_.protocol +
                   (in ? " -s " + ipv4_text(packet_.source) : " -d " + ipv4_text(packet_.destination));
        if (packet_.established)
            return "-m conntrack --ctstate ESTABLISHED";
        return "-p " + packet_.protocol + " --dport " + std::to_string(packet_.port);
    }

    Fate by_policy(const Chain &chain) {
        if (chain.policy != "drop")
            return Fate::passes;
        std::string wanted = packet_.protocol + " dport " + std::to_string(packet_.port);
        if (is_between_chosen_ports())
            wanted = packet_.direction == Packet::Direction::in
                         ? "ip saddr " + ipv4_text(packet_.source) + " meta l4proto " + packet_.protocol
                         : "ip daddr " + ipv4_text(packet_.destination) + " meta l4proto " + packet_.protocol;
        else if (packet_.established)
            wanted = "ct state established";
        else if (packet_.port == 0)
            wanted = packet_.protocol == "arp" ? "" : "ether type " + packet_.protocol + " ";
        if (!chain.command.empty()) {
            dropped_ = {name_of(chain),
                        base::tr("no rule there accepts such packets, and its policy is drop"),
                        chain.command + " -I " + chain.name + " " + iptables_words() + " -j ACCEPT"};
            return Fate::dropped;
        }
        dropped_ = {name_of(chain), base::tr("no rule there accepts such packets, and its policy is drop"),
                    "nft insert rule " + scope_of(chain) + chain.name + " " + wanted + " accept"};
        return Fate::dropped;
    }

    Fate drop_by(const Chain &chain, const Json &rule, const char *how) {
        if (!chain.command.empty()) {
            const std::string words = rule.value("words", std::string());
            dropped_ = {name_of(chain) + ": " + words, base::tr("the rule {1} such packets", how),
                        chain.command + " -D " + words};
            return Fate::dropped;
        }
        const std::string handle = std::to_string(rule.value("handle", 0));
        dropped_ = {base::tr("{1}, rule handle {2}", name_of(chain), handle),
                    base::tr("the rule {1} such packets", how),
                    "nft delete rule " + scope_of(chain) + chain.name + " handle " + handle};
        return Fate::dropped;
    }

    // One verdict, reached by a packet that the rule means surely or perhaps.
    Fate by_verdict(const Chain &chain, const Json &rule, const std::string &verdict, const Json &detail,
                    Truth meant, int depth) {
        if (verdict == "accept")
            return meant == Truth::yes ? Fate::passes : Fate::open;
        if (verdict == "drop" || verdict == "reject")
            return meant == Truth::yes ? drop_by(chain, rule, verdict == "drop" ? "drops" : "rejects")
                                       : Fate::on;
        if (verdict == "return")
            return meant == Truth::yes ? Fate::back : Fate::on;
        if (verdict == "redirect" || verdict == "dnat")
            return meant == Truth::yes ? drop_by(chain, rule, base::tr("sends elsewhere")) : Fate::on;
        if (verdict == "queue" || verdict == "tproxy" || verdict == "fwd" || verdict == "dup")
            return Fate::open;
        if (verdict != "jump" && verdict != "goto")
            return Fate::on;
        const auto target = rules_.chains.find(scope_of(chain) + text_in(detail, "target"));
        if (target == rules_.chains.end())
            return Fate::open;
        const Fate fate = through(target->second, depth + 1);
        if (meant == Truth::yes)
            return fate == Fate::on && verdict == "goto" ? Fate::back : fate;
        return fate == Fate::passes || fate == Fate::open ? Fate::open : Fate::on;
    }

    Fate by_map(const Chain &chain, const Json &rule, const Json &map, Truth meant, int depth) {
        const Field field = field_of(packet_, map.value("key", Json()));
        Json data = map.value("data", Json());
        if (data.is_string()) {
            const auto set = rules_.sets.find(scope_of(chain) + data.get<std::string>().substr(1));
            data = set == rules_.sets.end() ? Json() : set->second;
        } else if (data.is_object()) {
            data = data.value("set", Json());
        }
        if (field.kind == Field::Kind::none)
            return Fate::on;
        if (field.kind == Field::Kind::unknown || !data.is_array())
            return Fate::open;
        for (const Json &one : data) {
            if (!one.is_array() || one.size() != 2 || !one[1].is_object() || one[1].empty())
                return Fate::open;
            const Truth here = std::min(meant, equals(rules_, scope_of(chain), field, one[0]));
            if (here == Truth::no)
                continue;
            const auto verdict = one[1].begin();
            if (const Fate fate = by_verdict(chain, rule, verdict.key(), verdict.value(), here, depth);
                fate != Fate::on)
                return fate;
        }
        return Fate::on;
    }

    Fate by_rule(const Chain &chain, const Json &rule, int depth) {
        Truth meant = Truth::yes;
        for (const Json &expression : rule.value("expr", Json::array())) {
            if (!expression.is_object() || expression.empty())
                continue;
            const auto statement = expression.begin();
            const std::string &kind = statement.key();
            if (kind == "match")
                meant = std::min(meant, matches(rules_, scope_of(chain), packet_, statement.value()));
            else if (kind == "limit" || kind == "xt" || kind == "quota" || kind == "connlimit" ||
                     kind == "ct count")
                meant = std::min(meant, Truth::maybe);
            if (meant == Truth::no)
                return Fate::on;
            const Fate fate = kind == "vmap" ? by_map(chain, rule, statement.value(), meant, depth)
                                             : by_verdict(chain, rule, kind, statement.value(), meant, depth);
            if (fate != Fate::on)
                return fate;
        }
        return Fate::on;
    }

    const PacketFilter::Rules &rules_;
    const Packet &packet_;
    Dropped dropped_;
};

bool sees(const Chain &chain, const Packet &packet) {
    const bool in = packet.direction == Packet::Direction::in;
    const bool ip = packet.protocol == "udp" || packet.protocol == "tcp";
    if (chain.family == "netdev")
        return (in && chain.hook == "ingress" &&
                (chain.device.empty() || chain.device == packet.interface)) ||
               (!in && chain.hook == "egress" && chain.device == packet.interface);
    if (chain.family == "arp")
        return packet.protocol == "arp" && chain.hook == (in ? "input" : "output");
    if (chain.family != "ip" && chain.family != "inet")
        return false;
    if (in && chain.hook == "ingress")
        return chain.device == packet.interface;
    return ip && (in ? chain.hook == "prerouting" || chain.hook == "input"
                     : chain.hook == "output" || chain.hook == "postrouting");
}

} // namespace

namespace {

// The tables that iptables keeps in nftables, in its own words; these are asked of iptables instead.
bool is_table_of_iptables(const std::string &scope) {
    static const std::set<std::string_view> tables = {"ip filter ", "ip nat ", "ip mangle ", "ip raw ",
                                                      "ip security "};
    return tables.contains(scope);
}

} // namespace

PacketFilter parse_packet_filter(const std::string &json, const std::vector<SavedRules> &saved) {
    Json all = Json::array();
    if (const Json of_nftables = Json::parse(json, nullptr, false); of_nftables.is_object())
        all = of_nftables.value("nftables", Json::array());
    const bool without_its_tables = std::any_of(saved.begin(), saved.end(), [](const SavedRules &one) {
        return one.command == iptables_in_nftables;
    });
    for (const SavedRules &one : saved)
        for (Json &part : chains_of_iptables(one.text, one.command))
            all.push_back(std::move(part));
    if (all.empty())
        return {};
    auto rules = std::make_shared<PacketFilter::Rules>();
    for (const Json &one : all) {
        if (!one.is_object() || one.empty())
            continue;
        const std::string kind = one.begin().key();
        const Json &object = one.begin().value();
        const std::string scope = text_in(object, "family") + " " + text_in(object, "table") + " ";
        if (without_its_tables && is_table_of_iptables(scope))
            continue;
        if (kind == "chain") {
            Chain &chain = rules->chains[scope + text_in(object, "name")];
            chain.family = text_in(object, "family");
            chain.table = text_in(object, "table");
            chain.name = text_in(object, "name");
            chain.hook = text_in(object, "hook");
            chain.device = text_in(object, "dev");
            chain.policy = text_in(object, "policy");
            chain.command = text_in(object, "command");
            chain.nat = text_in(object, "type") == "nat";
            chain.priority =
                object.contains("prio") && object["prio"].is_number() ? object["prio"].get<int>() : 0;
        } else if (kind == "rule") {
            rules->chains[scope + text_in(object, "chain")].rules.push_back(object);
        } else if (kind == "set" || kind == "map") {
            rules->sets[scope + text_in(object, "name")] = object.value("elem", Json::array());
        }
    }
    return PacketFilter(rules);
}

std::optional<Dropped> PacketFilter::drops(const Packet &packet) const {
    if (rules_ == nullptr)
        return std::nullopt;
    std::vector<const Chain *> base_chains;
    for (const auto &[key, chain] : rules_->chains)
        if (!chain.hook.empty() && sees(chain, packet))
            base_chains.push_back(&chain);
    std::stable_sort(base_chains.begin(), base_chains.end(),
                     [](const Chain *one, const Chain *other) { return one->priority < other->priority; });
    for (const Chain *chain : base_chains) {
        Walk walk(*rules_, packet);
        if (walk.through(*chain) == Fate::dropped)
            return walk.dropped();
    }
    return std::nullopt;
}

namespace {

void add_saved(std::vector<SavedRules> &saved, const std::string &command) {
    base::Answer answer =
        base::run_and_listen({.words = {"/usr/sbin/" + command + "-save"}, .time_limit = 2});
    if (answer.ending.well())
        saved.push_back({command, std::move(answer.output)});
}

} // namespace

PacketFilter read_packet_filter() {
    PacketFilter filter;
    if (geteuid() != 0) {
        filter.unread = base::tr("only root may read them");
        return filter;
    }
    const base::Answer answer =
        base::run_and_listen({.words = {"/usr/sbin/nft", "-j", "list", "ruleset"}, .time_limit = 2});
    if (!answer.ending.well() && !answer.ending.not_found()) {
        filter.unread = "nft " + base::in_words(answer.ending);
        return filter;
    }
    std::vector<SavedRules> saved;
    // It is asked only where it has rules: the question alone would make the kernel load its modules.
    if (answer.output.find("\"xt\"") != std::string::npos)
        add_saved(saved, iptables_in_nftables);
    if (!base::file_contents("/proc/net/ip_tables_names").empty())
        add_saved(saved, "iptables-legacy");
    return parse_packet_filter(answer.output, saved);
}

PacketFilter read_packet_filter_at_boot() {
    const auto is_enabled = [](const char *target) {
        const std::string link = std::string("/etc/systemd/system/") + target + ".wants/nftables.service";
        return access(link.c_str(), F_OK) == 0;
    };
    if (geteuid() != 0 || (!is_enabled("sysinit.target") && !is_enabled("multi-user.target")))
        return {};
    const base::Answer answer = base::run_and_listen(
        {.words = {"/usr/bin/unshare", "--net", "/bin/sh", "-c",
                   "/usr/sbin/nft -f /etc/nftables.conf && exec /usr/sbin/nft -j list ruleset"},
         .time_limit = 2});
    return answer.ending.well() ? parse_packet_filter(answer.output) : PacketFilter();
}

} // namespace hostadm::server
