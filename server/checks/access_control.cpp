// SPDX-License-Identifier: MIT
// /etc/hosts.allow and /etc/hosts.deny, which the TFTP daemon and rpcbind obey.
#include <algorithm>
#include <cctype>

#include "base/files.hpp"
#include "base/text.hpp"
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

// The first line that means a daemon and a client, and whether it does so surely. 0: none.
std::size_t line_for(const std::string &file, const std::string &daemon, const CheckedClient &client,
                     Means &means) {
    std::size_t number = 0, found = 0;
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
        if (found != 0 || whole.empty() || whole[0] == '#' || colon == whole.npos ||
            !names_daemon(whole.substr(0, colon), daemon))
            return;
        const std::size_t end = whole.find(':', colon + 1);
        means = list_means(whole.substr(colon + 1, end == whole.npos ? end : end - colon - 1), client);
        // An option may turn a line of either file into its opposite.
        if (means != Means::no && end != whole.npos &&
            base::lower_case(whole.substr(end)).find("deny") != whole.npos)
            means = Means::maybe;
        if (means != Means::no && end != whole.npos &&
            base::lower_case(whole.substr(end)).find("allow") != whole.npos)
            means = Means::maybe;
        if (means != Means::no)
            found = first;
    });
    return found;
}

} // namespace

Findings access_control_of_client(const Snapshot &server, const CheckedClient &client) {
    Findings found;
    if (client.address.empty())
        return found;
    const std::string &deny = server.denied_hosts, &allow = server.allowed_hosts;
    if (deny.empty())
        return found;
    const bool tftp = server.tftp.daemon != nullptr;
    for (const auto &[daemon, stage, runs] :
         {std::tuple("in.tftpd", Stage::boot_program, tftp), std::tuple("rpcbind", Stage::name, true)}) {
        Means means = Means::no;
        if (!runs || line_for(allow, daemon, client, means) != 0)
            continue;
        const std::size_t line = line_for(deny, daemon, client, means);
        if (line == 0 || means != Means::yes)
            continue;
        found.push_back(
            {.stage = stage,
             .client = client.name,
             .where = "/etc/hosts.deny:" + std::to_string(line),
             .what = std::string(daemon) + " is denied to " + client.name,
             .why =
                 stage == Stage::name
                     ? client.name + " gets no answer when it asks for its name, nor where the NFS server is"
                     : client.name + " gets no boot program",
             .repair = "printf '" + std::string(daemon) + ": " + client.address + "\\n' >>/etc/hosts.allow"});
    }
    return found;
}

} // namespace hostadm::server
