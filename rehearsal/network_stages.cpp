// SPDX-License-Identifier: MIT
// The stages before there is a file system: address, boot program, name, parameters.
#include <algorithm>
#include <chrono>
#include <fstream>
#include <sstream>

#include "base/text.hpp"
#include "rehearsal/command.hpp"
#include "rehearsal/reverse_arp.hpp"
#include "rehearsal/stages.hpp"
#include "rehearsal/tftp.hpp"
#include "server/boot_area.hpp"

namespace hostadm::rehearsal {

namespace {

using namespace std::chrono_literals;
using server::Severity;
using server::Stage;

// As long as a client waits before it asks again, and how often it does so here.
constexpr auto patience = 250ms;
constexpr int tries = 4;

std::string install_or_look(const Started &daemon, const std::string &client) {
    if (daemon.start.program.empty() && !daemon.start.in_kernel)
        return "apt-get install " + daemon.start.package;
    return "hostadm check " + client;
}

std::string size_in_words(std::size_t size) {
    return size < 10000 ? std::to_string(size) + " bytes" : std::to_string(size / 1000) + " kB";
}

bool is_loopback(const std::string &address) {
    return address.starts_with("127.");
}

// While it lives this process is at the server's end.
class AtServer {
public:
    explicit AtServer(const Cable &cable) : cable_(cable) { cable_.go_to_server(); }
    ~AtServer() { cable_.go_to_client(); }
    AtServer(const AtServer &) = delete;
    AtServer &operator=(const AtServer &) = delete;

private:
    const Cable &cable_;
};

bool gives_tftp_here(const Journey &journey, const std::string &file) {
    const AtServer at_server(journey.cable);
    return !fetch_by_tftp(journey.server_address, file, "", 500ms).silent;
}

bool maps_ports_here(const Journey &journey) {
    const AtServer at_server(journey.cable);
    return answers(journey.server_address, port_mapper_program, 2);
}

} // namespace

std::string why_silent(const Started &daemon) {
    std::string text = daemon.start.name;
    if (!daemon.failure.empty())
        text += " " + daemon.failure;
    else
        text += " runs (" + daemon.start.command() + ") and is silent";
    return daemon.said.empty() ? text : text + ": " + daemon.said;
}

std::string where_of(const Started &daemon) {
    const std::string &origin = daemon.start.origin;
    return origin.empty()                  ? daemon.start.name
           : origin.starts_with("process") ? daemon.start.name + ", " + origin
                                           : origin;
}

std::string what_lies_between(const Journey &journey) {
    const AtServer at_server(journey.cable);
    const base::Answer route = ask({"ip", "route", "get", journey.own_address});
    const Interface *interface = interface_towards(journey.network, journey.own_address);
    if (!route.ending.well() ||
        (interface != nullptr && route.output.find(" dev " + interface->name + ' ') == std::string::npos))
        return "the route to " + journey.own_address + " does not lead to it (ip route get " +
               journey.own_address + ": " +
               (route.ending.well() ? route.output : route.errors).substr(0, route.output.find('\n')) + ")";
    if (!journey.network.filter.empty() || !journey.network.old_filter.empty())
        return "the packet filter does not let it through (nft list ruleset)";
    return "something between them does not let it through";
}

StageEnd end_without_ethernet(Journey &journey, const Started &daemon) {
    const BootingClient &client = journey.client;
    journey.note(daemon.start.name, "which address has me?", "", false);
    journey.find(Severity::error, Stage::address, "/etc/ethers", client.name + " has no line",
                 client.name + " gets no address: nobody knows whose Ethernet address asks",
                 "hostadm run database/set_host hostname=" + client.name + " address=" +
                     (client.address.empty() ? "ADDRESS" : client.address) + " ethernet=ETHERNET");
    return failed("no Ethernet address is known for " + client.name);
}

void take_learned_address(const Journey &journey) {
    const Interface *interface = interface_towards(journey.network, journey.own_address);
    int prefix = 24;
    for (const OwnAddress &own : interface == nullptr ? std::vector<OwnAddress>() : interface->addresses)
        if (is_in_network(journey.own_address, own))
            prefix = own.prefix;
    journey.cable.take_address(journey.own_address, prefix);
}

StageEnd learn_address(Journey &journey) {
    const BootingClient &client = journey.client;
    const Started &daemon = journey.daemon(Service::reverse_arp);
    const std::string question = "which address has " + client.ethernet + "?";
    if (client.ethernet.empty())
        return end_without_ethernet(journey, daemon);
    const auto answers = ask_own_address(client_interface, patience, tries);
    if (answers.empty()) {
        journey.note(daemon.start.name, question, "", false);
        journey.find(Severity::error, Stage::address, where_of(daemon),
                     "nobody answers the reverse ARP of " + client.ethernet + "; " + why_silent(daemon),
                     client.name + " gets no address and does not go on",
                     install_or_look(daemon, client.name));
        return failed("no answer to the reverse ARP of " + client.ethernet);
    }
    const OwnAddressAnswer &answer = answers.front();
    journey.note(daemon.start.name, question, answer.address + ", says " + answer.server, true);
    for (const OwnAddressAnswer &other : answers)
        if (other.address != answer.address)
            journey.find(Severity::error, Stage::address, "/etc/ethers",
                         client.ethernet + " gets the address " + answer.address + " or " + other.address,
                         client.name + " boots as another host, by chance", "hostadm check " + client.name);
    if (!client.address.empty() && answer.address != client.address) {
        journey.find(Severity::error, Stage::address, "/etc/ethers",
                     client.ethernet + " gets the address " + answer.address + ", but " + client.name +
                         " has " + client.address + " in the hosts table",
                     client.name + " boots as another host", "hostadm check " + client.name);
        return failed("got " + answer.address + " instead of " + client.address);
    }
    journey.own_address = answer.address;
    journey.server_address = answer.server;
    take_learned_address(journey);
    return passed(answer.address + " from " + answer.server);
}

namespace {

// What the server itself finds under this name in the boot directory.
std::string expected_program(const std::string &file) {
    std::ifstream stream(std::string(server::tftpboot) + '/' + file, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return std::move(text).str();
}

} // namespace

StageEnd load_boot_program(Journey &journey) {
    const BootingClient &client = journey.client;
    if (client.starts_from_own_disk())
        return skipped("it starts from its own disk");
    if (client.kind == server::ClientKind::rpl) {
        journey.walked.not_tried.push_back("its boot program by RPL: nobody here speaks that but rpld; "
                                           "its links in /rplboot are looked at instead");
        return skipped("it loads its boot program by RPL");
    }
    const Started &daemon = journey.daemon(Service::tftp);
    std::string detail;
    // The tables may give a client an address that only its line in the Ethernet table names.
    const std::vector<std::string> files = client.boot_files.empty()
                                               ? std::vector{server::address_digits(journey.own_address)}
                                               : client.boot_files;
    for (const std::string &file : files) {
        const Fetched fetched = fetch_by_tftp(journey.server_address, file, client_interface, 1000ms);
        journey.note(daemon.start.name, "the file " + file + "?",
                     fetched.whole ? size_in_words(fetched.content.size()) : fetched.reason, !fetched.silent);
        journey.walked.seen["tftp " + file] = fetched.whole    ? fingerprint(fetched.content)
                                              : fetched.silent ? ""
                                                               : "refused";
        const std::string path = std::string(server::tftpboot) + '/' + file;
        if (!fetched.whole) {
            if (fetched.silent && daemon.failure.empty() && gives_tftp_here(journey, file)) {
                journey.find(Severity::error, Stage::boot_program, where_of(daemon),
                             "it answers this server itself and not " + client.name + ": " +
                                 what_lies_between(journey),
                             client.name + " loads no boot program", "hostadm check " + client.name);
                return failed(file + ": " + fetched.reason);
            }
            const bool asked_by_name = fetched.silent;
            journey.find(Severity::error, Stage::boot_program, asked_by_name ? where_of(daemon) : path,
                         "TFTP does not give " + file + ": " + fetched.reason + "; " +
                             (asked_by_name || !daemon.failure.empty()
                                  ? why_silent(daemon)
                                  : daemon.start.name + " was started as " + daemon.start.command()),
                         client.name + " loads no boot program", install_or_look(daemon, client.name));
            return failed(file + ": " + fetched.reason);
        }
        if (fetched.content.empty()) {
            journey.find(Severity::error, Stage::boot_program, path, "the boot program is empty",
                         client.name + " loads nothing that it could start", "hostadm check " + client.name);
            return failed(file + ": it is empty");
        }
        if (const std::string expected = expected_program(file);
            !expected.empty() && expected != fetched.content) {
            journey.find(Severity::error, Stage::boot_program, where_of(daemon),
                         "TFTP gives another file than " + path + ": it serves another directory (" +
                             daemon.start.command() + ")",
                         client.name + " loads a boot program that is not its own",
                         "hostadm check " + client.name);
            return failed(file + ": not the one in " + server::tftpboot);
        }
        detail += (detail.empty() ? "" : ", ") + file + " (" + size_in_words(fetched.content.size()) + ")";
    }
    return passed(detail);
}

StageEnd learn_name(Journey &journey) {
    const BootingClient &client = journey.client;
    const Started &mapper = journey.daemon(Service::port_mapper);
    const Started &daemon = journey.daemon(Service::boot_parameters);
    const auto answer = who_am_i(
        {.address = "255.255.255.255", .interface = client_interface, .patience = patience, .tries = tries},
        journey.own_address);
    const std::string question = "WHOAMI: who is " + journey.own_address + "? (broadcast)";
    if (!answer.result) {
        // Asked straight, it shows which of the two is silent.
        const auto direct =
            who_am_i({.address = journey.server_address, .directly = true, .patience = patience, .tries = 2},
                     journey.own_address);
        journey.note(mapper.start.name, question, answer.reply.reason, false);
        std::string what = "nobody answers the broadcast WHOAMI of " + journey.own_address + "; ";
        const Started *silent = &daemon;
        if (direct.result) {
            what += daemon.start.name + " itself answers, but " + mapper.start.name +
                    " does not hand the question on (" + mapper.start.command() + ")";
            silent = &mapper;
        } else if (!mapper.failure.empty()) {
            what += why_silent(mapper);
            silent = &mapper;
        } else if (direct.reply.kind == Reply::Kind::silence && maps_ports_here(journey) &&
                   !answers(journey.server_address, port_mapper_program, 2)) {
            what += mapper.start.name + " answers this server itself and not " + client.name + ": " +
                    what_lies_between(journey);
            silent = &mapper;
        } else {
            what += direct.reply.reason.empty() ? why_silent(daemon)
                                                : direct.reply.reason + "; " + why_silent(daemon);
        }
        journey.find(Severity::error, Stage::name, where_of(*silent), what,
                     client.name + " does not learn its name", install_or_look(*silent, client.name));
        return failed("no answer to WHOAMI");
    }
    const WhoAmI &result = *answer.result;
    journey.note(mapper.start.name, question, result.name + ", router " + result.router, true);
    journey.walked.seen["whoami"] = result.name + ' ' + result.router;
    if (base::lower_case(result.name) != base::lower_case(client.name)) {
        journey.find(Severity::error, Stage::name, "/etc/hosts",
                     journey.own_address + " is told that it is " + result.name + " and not " + client.name,
                     client.name + " boots with the root of " + result.name, "hostadm check " + client.name);
        return failed("told to be " + result.name);
    }
    journey.own_name = result.name;
    if (is_loopback(result.router) || result.router == "0.0.0.0")
        journey.find(Severity::warning, Stage::name, where_of(daemon),
                     daemon.start.name + " tells " + client.name + " that " + result.router +
                         " is its router (" + daemon.start.command() + ")",
                     client.name + " reaches nothing beyond its own network",
                     "start it as: rpc.bootparamd -r " + journey.server_address);
    else if (const Interface *interface = interface_towards(journey.network, journey.own_address);
             interface != nullptr && std::none_of(interface->addresses.begin(), interface->addresses.end(),
                                                  [&](const OwnAddress &own) {
                                                      return is_in_network(journey.own_address, own) &&
                                                             is_in_network(result.router, own);
                                                  }))
        journey.find(Severity::warning, Stage::name, where_of(daemon),
                     daemon.start.name + " tells " + client.name + " that " + result.router +
                         " is its router, which is not in its network (" + daemon.start.command() + ")",
                     client.name + " reaches nothing beyond its own network",
                     "start it as: rpc.bootparamd -r " + journey.server_address);
    return passed(result.name + ", router " + result.router + ", from " + answer.reply.from);
}

StageEnd learn_parameters(Journey &journey) {
    const BootingClient &client = journey.client;
    const Started &daemon = journey.daemon(Service::boot_parameters);
    std::string detail;
    if (client.item("root") == nullptr && client.starts_from_own_disk())
        detail = "its root is on its own disk";
    else if (client.item("root") == nullptr) {
        journey.find(Severity::error, Stage::parameters, "/etc/bootparams",
                     "the entry of " + client.name + " has no root=SERVER:PATH",
                     client.name + " finds no root",
                     "hostadm run database/set_bootparams hostname=" + client.name + " root=SERVER:PATH");
        return failed("no root in the entry of " + client.name);
    }
    for (const server::BootparamsItem &item : client.items) {
        if (item.server.empty())
            continue; // a setting such as term=:vt100, which the service does not answer and no boot waits for
        const auto answer =
            get_file({.address = journey.server_address, .patience = patience, .tries = tries},
                     journey.own_name, item.key);
        const std::string question = "GETFILE: where is the " + item.key + " of " + journey.own_name + "?";
        journey.note(daemon.start.name, question,
                     answer.result ? answer.result->address + ":" + answer.result->path : answer.reply.reason,
                     answer.result.has_value());
        if (!answer.result) {
            journey.find(Severity::error, Stage::parameters, "/etc/bootparams",
                         "nobody tells where the " + item.key + " of " + client.name + " is (" + item.key +
                             "=" + item.server + ":" + item.path + "); " + why_silent(daemon),
                         client.name + " waits for its " + item.key + " for ever",
                         "hostadm check " + client.name);
            return failed(item.key + ": no answer");
        }
        const FileOfClient &file = *answer.result;
        journey.walked.seen["getfile " + item.key] = file.address + ':' + file.path;
        if (file.path != item.path || file.address == "0.0.0.0") {
            journey.find(Severity::error, Stage::parameters, "/etc/bootparams",
                         "the " + item.key + " of " + client.name + " is told to be " + file.address + ":" +
                             file.path + ", and its entry says " + item.server + ":" + item.path,
                         client.name + " gets the " + item.key + " of somebody else, or none",
                         "hostadm check " + client.name);
            return failed(item.key + ": told " + file.address + ":" + file.path);
        }
        if (is_loopback(file.address) || !is_own_address(journey.network, file.address)) {
            journey.find(Severity::error, Stage::parameters, "/etc/bootparams",
                         "the server " + item.server + " of the " + item.key + " of " + client.name +
                             " has the address " + file.address + ", which is none of this server's",
                         client.name + " looks for its " + item.key + " where it is not",
                         "hostadm check " + client.name);
            return failed(item.key + ": at " + file.address + ", which is not this server");
        }
        journey.files[item.key] = file;
        detail += (detail.empty() ? "" : ", ") + item.key + " " + file.path;
    }
    return passed(detail);
}

} // namespace hostadm::rehearsal
