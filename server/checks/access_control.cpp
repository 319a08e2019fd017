// SPDX-License-Identifier: MIT
// /etc/hosts.allow and /etc/hosts.deny, which the TFTP daemon and rpcbind obey.
#include <algorithm>
#include <cctype>

#include "base/files.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/checks/subjects.hpp"

namespace hostadm::server {

namespace {

// What a list of these files says of a client. What cannot be told counts as neither allowed nor denied.
enum class Means { no, maybe, yes };

Means word_means(const std::string &word, const CheckedClient &client) {
    const std::string low = base::lower_case(word);
    if (low == "all" || low == "known")
        return Means::yes;
    if (low == "unknown" || low == "paranoid")
        return Means::no;
    if (low == "local")
        return std::any_of(client.caller.names.begin(), client.caller.names.end(),
                           [](const std::string &name) { return name.find('.') == name.npos; })
                   ? Means::yes
                   : Means::no;
    if (low.starts_with('/') || low.starts_with('@') || low.find_first_of("*?[") != low.npos)
        return Means::maybe;
    const auto is = [](bool truth) { return truth ? Means::yes : Means::no; };
    if (low.starts_with('.'))
        return is(std::any_of(client.caller.names.begin(), client.caller.names.end(),
                              [&](const std::string &name) { return name.ends_with(low); }));
    if (std::isdigit(static_cast<unsigned char>(low[0])) != 0) {
        if (low.ends_with('.'))
            return is(client.address.starts_with(low));
        if (const std::size_t slash = low.find('/'); slash != low.npos) {
            const std::string net = ipv4_value(low.substr(0, slash)), bits = low.substr(slash + 1);
            const std::string mask = ipv4_value(bits);
            if (net.empty())
                return Means::maybe;
            const int length = std::atoi(bits.c_str());
            const std::uint32_t number = !mask.empty() ? ipv4_number(mask)
                                         : length <= 0 ? 0
                                                       : ~0u << (32 - std::min(length, 32));
            return is((ipv4_number(net) & number) == (client.number & number));
        }
        return is(low == client.address);
    }
    return is(std::find(client.caller.names.begin(), client.caller.names.end(), low) !=
              client.caller.names.end());
}

Means list_means(const std::string &list, const CheckedClient &client) {
    std::string text = list;
    std::replace(text.begin(), text.end(), ',', ' ');
    const auto words = base::words_of(text);
    Means found = Means::no;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (base::lower_case(words[i]) == "except") {
            if (found == Means::no)
                return found;
            std::string rest;
            for (std::size_t j = i + 1; j < words.size(); ++j)
                rest += std::string(words[j]) + " ";
            const Means except = list_means(rest, client);
            return except == Means::yes ? Means::no : except == Means::maybe ? Means::maybe : found;
        }
        found = std::max(found, word_means(std::string(words[i]), client));
    }
    return found;
}

bool names_daemon(const std::string &list, const std::string &daemon) {
    std::string text = list;
    std::replace(text.begin(), text.end(), ',', ' ');
    for (const std::string_view word : base::words_of(text)) {
        if (base::lower_case(word) == "except")
            return false;
        if (base::lower_case(word) == "all" || word == daemon)
            return true;
    }
    return false;
}

// The first line that means a daemon and a client. An option of a line may turn it into its opposite.
struct AccessLine {
    std::size_t number = 0; // 0: there is none
    Means means = Means::no;
    bool denies = false;
};

// The words behind the second colon: options, parted by colons.
bool has_option(const std::string &options, std::string_view wanted) {
    for (std::size_t at = 0; at < options.size();) {
        const std::size_t end = std::min(options.find(':', at), options.size());
        if (base::lower_case(base::trimmed(std::string_view(options).substr(at, end - at))) == wanted)
            return true;
        at = end + 1;
    }
    return false;
}

AccessLine line_for(const std::string &file, const std::string &daemon, const CheckedClient &client,
                    bool denies) {
    AccessLine found;
    std::size_t number = 0;
    std::string joined;
    std::size_t first = 0;
    base::for_each_line(file, [&](std::string_view line) {
        ++number;
        if (joined.empty())
            first = number;
        joined += line;
        if (joined.ends_with('\\')) {
            joined.pop_back();
            return;
        }
        const std::string whole = std::move(joined);
        joined.clear();
        const std::size_t colon = whole.find(':');
        if (found.number != 0 || whole.empty() || whole[0] == '#' || colon == whole.npos ||
            !names_daemon(whole.substr(0, colon), daemon))
            return;
        const std::size_t end = whole.find(':', colon + 1);
        const Means means =
            list_means(whole.substr(colon + 1, end == whole.npos ? end : end - colon - 1), client);
        if (means == Means::no)
            return;
        const std::string options = end == whole.npos ? "" : whole.substr(end + 1);
        found = {first, means, has_option(options, "deny") || (denies && !has_option(options, "allow"))};
    });
    return found;
}

// The line that turns a client away; a number of 0: none does, or it cannot be told.
struct Denial {
    AccessLine line;
    bool by_allowing_file = false;
};
Denial denial(const Snapshot &server, const std::string &daemon, const CheckedClient &client) {
    AccessLine line = line_for(server.allowed_hosts, daemon, client, false);
    const bool by_allowing_file = line.number != 0;
    if (!by_allowing_file)
        line = line_for(server.denied_hosts, daemon, client, true);
    if (line.means != Means::yes || !line.denies)
        return {};
    return {line, by_allowing_file};
}

} // namespace

bool is_denied(const Snapshot &server, const std::string &daemon, std::uint32_t address) {
    CheckedClient self;
    self.name = server.host_name;
    self.address = ipv4_text(address);
    self.number = address;
    self.caller = {address, {base::lower_case(server.host_name)}};
    constexpr unsigned loopback = 127;
    if (address >> 24 == loopback)
        self.caller.names = {"localhost"};
    return denial(server, daemon, self).line.number != 0;
}

Findings access_control_of_client(const Snapshot &server, const CheckedClient &client) {
    Findings found;
    if (client.address.empty())
        return found;
    const bool tftp = server.tftp.daemon != nullptr;
    for (const auto &[daemon, stage, runs] :
         {std::tuple("in.tftpd", Stage::boot_program, tftp), std::tuple("rpcbind", Stage::root, true)}) {
        const auto [line, by_allowing_file] = runs ? denial(server, daemon, client) : Denial{};
        if (line.number == 0)
            continue;
        const std::string place = std::to_string(line.number);
        const std::string allowed = std::string(daemon) + ": " + client.address;
        found.push_back(
            {.stage = stage,
             .client = client.name,
             .where = (by_allowing_file ? "/etc/hosts.allow:" : "/etc/hosts.deny:") + place,
             .what = base::tr("{1} is denied to {2}", daemon, client.name),
             .why = stage == Stage::root
                        ? base::tr("{1} gets no answer when it asks where the NFS server is", client.name)
                        : base::tr("{1} gets no boot program", client.name),
             // The first line counts.
             .repair = by_allowing_file ? "sed -i '" + place + "i " + allowed + "' /etc/hosts.allow"
                                        : "printf '" + allowed + "\\n' >>/etc/hosts.allow"});
    }
    return found;
}

} // namespace hostadm::server
