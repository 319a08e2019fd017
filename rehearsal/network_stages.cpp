// SPDX-License-Identifier: MIT
// The stages before there is a file system: address, boot program, name, parameters.
#include <algorithm>
#include <chrono>
#include <fstream>
#include <sstream>

#include "base/text.hpp"
#include "base/translation.hpp"
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
    return size < 10000 ? base::tr("{1} bytes", size) : base::tr("{1} kB", size / 1000);
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
        text += base::tr(" runs ({1}) and is silent", daemon.start.command());
    return daemon.said.empty() ? text : text + ": " + daemon.said;
}

std::string where_of(const Started &daemon) {
    const std::string &origin = daemon.start.origin;
    return origin.empty() ? daemon.start.name : origin;
}

std::string what_lies_between(const Journey &journey) {
    const AtServer at_server(journey.cable);
    const base::Answer route = ask({"ip", "route", "get", journey.own_address});
    const Interface *interface = interface_towards(journey.network, journey.own_address);
    if (!route.ending.well() ||
        (interface != nullptr && route.output.find(" dev " + interface->name + ' ') == std::string::npos))
        return base::tr(
            "the route to {1} does not lead to it (ip route get {1}: {2})", journey.own_address,
            (route.ending.well() ? route.output : route.errors).substr(0, route.output.find('\n')));
    if (!journey.network.filter.empty() || !journey.network.old_filter.empty())
        return base::tr("the packet filter does not let it through (nft list ruleset)");
    return base::tr("something between them does not let it through");
}

StageEnd end_without_ethernet(Journey &journey, const Started &daemon) {
    const BootingClient &client = journey.client;
    journey.note(daemon.start.name, base::tr("which address has me?"), "", false);
    journey.find(Severity::error, Stage::address, "/etc/ethers", base::tr("{1} has no line", client.name),
                 base::tr("{1} gets no address: nobody knows whose Ethernet address asks", client.name),
                 "hostadm run database/set_host hostname=" + client.name + " address=" +
                     (client.address.empty() ? "ADDRESS" : client.address) + " ethernet=ETHERNET");
    return failed(base::tr("no Ethernet address is known for {1}", client.name));
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
    const std::string question = base::tr("which address has {1}?", client.ethernet);
    if (client.ethernet.empty())
        return end_without_ethernet(journey, daemon);
    const auto answers = ask_own_address(client_interface, patience, tries);
    if (answers.empty()) {
        journey.note(daemon.start.name, question, "", false);
        journey.find(
            Severity::error, Stage::address, where_of(daemon),
            base::tr("nobody answers the reverse ARP of {1}; {2}", client.ethernet, why_silent(daemon)),
            base::tr("{1} gets no address and does not go on", client.name),
            install_or_look(daemon, client.name));
        return failed(base::tr("no answer to the reverse ARP of {1}", client.ethernet));
    }
    const OwnAddressAnswer &answer = answers.front();
    journey.note(daemon.start.name, question, base::tr("{1}, says {2}", answer.address, answer.server), true);
    for (const OwnAddressAnswer &other : answers)
        if (other.address != answer.address)
            journey.find(
                Severity::error, Stage::address, "/etc/ethers",
                base::tr("{1} gets the address {2} or {3}", client.ethernet, answer.address, other.address),
                base::tr("{1} boots as another host, by chance", client.name),
                "hostadm check " + client.name);
    if (!client.address.empty() && answer.address != client.address) {
        journey.find(Severity::error, Stage::address, "/etc/ethers",
                     base::tr("{1} gets the address {2}, but {3} has {4} in the hosts table", client.ethernet,
                              answer.address, client.name, client.address),
                     base::tr("{1} boots as another host", client.name), "hostadm check " + client.name);
        return failed(base::tr("got {1} instead of {2}", answer.address, client.address));
    }
    journey.own_address = answer.address;
    journey.server_address = answer.server;
    take_learned_address(journey);
    return passed(base::tr("{1} from {2}", answer.address, answer.server));
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
        return skipped(base::tr("it starts from its own disk"));
    if (client.kind == server::ClientKind::rpl) {
        journey.walked.not_tried.push_back(base::tr("its boot program by RPL: nobody here speaks that but "
                                                    "rpld; its links in /rplboot are looked at instead"));
        return skipped(base::tr("it loads its boot program by RPL"));
    }
    const Started &daemon = journey.daemon(Service::tftp);
    std::string detail;
    // The tables may give a client an address that only its line in the Ethernet table names.
    const std::vector<std::string> files = client.boot_files.empty()
                                               ? std::vector{server::address_digits(journey.own_address)}
                                               : client.boot_files;
    for (const std::string &file : files) {
        const Fetched fetched = fetch_by_tftp(journey.server_address, file, client_interface, 1000ms);
        journey.note(daemon.start.name, base::tr("the file {1}?", file),
                     fetched.whole ? size_in_words(fetched.content.size()) : fetched.reason, !fetched.silent);
        journey.walked.seen["tftp " + file] = fetched.whole    ? fingerprint(fetched.content)
                                              : fetched.silent ? ""
                                                               : "refused";
        const std::string path = std::string(server::tftpboot) + '/' + file;
        if (!fetched.whole) {
            if (fetched.silent && daemon.failure.empty() && gives_tftp_here(journey, file)) {
                journey.find(Severity::error, Stage::boot_program, where_of(daemon),
                             base::tr("it answers this server itself and not {1}: {2}", client.name,
                                      what_lies_between(journey)),
                             base::tr("{1} loads no boot program", client.name),
                             "hostadm check " + client.name);
                return failed(file + ": " + fetched.reason);
            }
            const bool asked_by_name = fetched.silent;
            journey.find(
                Severity::error, Stage::boot_program, asked_by_name ? where_of(daemon) : path,
                asked_by_name || !daemon.failure.empty()
                    ? base::tr("TFTP does not give {1}: {2}; {3}", file, fetched.reason, why_silent(daemon))
                    : base::tr("TFTP does not give {1}: {2}; {3} was started as {4}", file, fetched.reason,
                               daemon.start.name, daemon.start.command()),
                base::tr("{1} loads no boot program", client.name), install_or_look(daemon, client.name));
            return failed(file + ": " + fetched.reason);
        }
        if (fetched.content.empty()) {
            journey.find(Severity::error, Stage::boot_program, path, base::tr("the boot program is empty"),
                         base::tr("{1} loads nothing that it could start", client.name),
                         "hostadm check " + client.name);
            return failed(base::tr("{1}: it is empty", file));
        }
        if (const std::string expected = expected_program(file);
            !expected.empty() && expected != fetched.content) {
            journey.find(Severity::error, Stage::boot_program, where_of(daemon),
                         base::tr("TFTP gives another file than {1}: it serves another directory ({2})", path,
                                  daemon.start.command()),
                         base::tr("{1} loads a boot program that is not its own", client.name),
                         "hostadm check " + client.name);
            return failed(base::tr("{1}: not the one in {2}", file, server::tftpboot));
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
    const std::string question = base::tr("WHOAMI: who is {1}? (broadcast)", journey.own_address);
    if (!answer.result) {
        // Asked straight, it shows which of the two is silent.
        const auto direct =
            who_am_i({.address = journey.server_address, .directly = true, .patience = patience, .tries = 2},
                     journey.own_address);
        journey.note(mapper.start.name, question, answer.reply.reason, false);
        std::string what = base::tr("nobody answers the broadcast WHOAMI of {1}; ", journey.own_address);
        const Started *silent = &daemon;
        if (direct.result) {
            what += base::tr("{1} itself answers, but {2} does not hand the question on ({3})",
                             daemon.start.name, mapper.start.name, mapper.start.command());
            silent = &mapper;
        } else if (!mapper.failure.empty()) {
            what += why_silent(mapper);
            silent = &mapper;
        } else if (direct.reply.kind == Reply::Kind::silence && maps_ports_here(journey) &&
                   !answers(journey.server_address, port_mapper_program, 2)) {
            what += base::tr("{1} answers this server itself and not {2}: {3}", mapper.start.name,
                             client.name, what_lies_between(journey));
            silent = &mapper;
        } else {
            what += direct.reply.reason.empty() ? why_silent(daemon)
                                                : direct.reply.reason + "; " + why_silent(daemon);
        }
        journey.find(Severity::error, Stage::name, where_of(*silent), what,
                     base::tr("{1} does not learn its name", client.name),
                     install_or_look(*silent, client.name));
        return failed(base::tr("no answer to WHOAMI"));
    }
    const WhoAmI &result = *answer.result;
    journey.note(mapper.start.name, question, base::tr("{1}, router {2}", result.name, result.router), true);
    journey.walked.seen["whoami"] = result.name + ' ' + result.router;
    if (base::lower_case(result.name) != base::lower_case(client.name)) {
        journey.find(
            Severity::error, Stage::name, "/etc/hosts",
            base::tr("{1} is told that it is {2} and not {3}", journey.own_address, result.name, client.name),
            base::tr("{1} boots with the root of {2}", client.name, result.name),
            "hostadm check " + client.name);
        return failed(base::tr("told to be {1}", result.name));
    }
    journey.own_name = result.name;
    if (is_loopback(result.router) || result.router == "0.0.0.0")
        journey.find(Severity::warning, Stage::name, where_of(daemon),
                     base::tr("{1} tells {2} that {3} is its router ({4})", daemon.start.name, client.name,
                              result.router, daemon.start.command()),
                     base::tr("{1} reaches nothing beyond its own network", client.name),
                     base::tr("start it as: rpc.bootparamd -r {1}", journey.server_address));
    else if (const Interface *interface = interface_towards(journey.network, journey.own_address);
             interface != nullptr && std::none_of(interface->addresses.begin(), interface->addresses.end(),
                                                  [&](const OwnAddress &own) {
                                                      return is_in_network(journey.own_address, own) &&
                                                             is_in_network(result.router, own);
                                                  }))
        journey.find(Severity::warning, Stage::name, where_of(daemon),
                     base::tr("{1} tells {2} that {3} is its router, which is not in its network ({4})",
                              daemon.start.name, client.name, result.router, daemon.start.command()),
                     base::tr("{1} reaches nothing beyond its own network", client.name),
                     base::tr("start it as: rpc.bootparamd -r {1}", journey.server_address));
    return passed(base::tr("{1}, router {2}, from {3}", result.name, result.router, answer.reply.from));
}

StageEnd learn_parameters(Journey &journey) {
    const BootingClient &client = journey.client;
    const Started &daemon = journey.daemon(Service::boot_parameters);
    std::string detail;
    if (client.item("root") == nullptr && client.starts_from_own_disk())
        detail = base::tr("its root is on its own disk");
    else if (client.item("root") == nullptr) {
        journey.find(Severity::error, Stage::parameters, "/etc/bootparams",
                     base::tr("the entry of {1} has no root=SERVER:PATH", client.name),
                     base::tr("{1} finds no root", client.name),
                     "hostadm run database/set_bootparams hostname=" + client.name + " root=SERVER:PATH");
        return failed(base::tr("no root in the entry of {1}", client.name));
    }
    for (const server::BootparamsItem &item : client.items) {
        if (item.server.empty())
            continue; // a setting such as term=:vt100, which the service does not answer and no boot waits for
        const auto answer =
            get_file({.address = journey.server_address, .patience = patience, .tries = tries},
                     journey.own_name, item.key);
        const std::string question =
            base::tr("GETFILE: where is the {1} of {2}?", item.key, journey.own_name);
        journey.note(daemon.start.name, question,
                     answer.result ? answer.result->address + ":" + answer.result->path : answer.reply.reason,
                     answer.result.has_value());
        if (!answer.result) {
            journey.find(Severity::error, Stage::parameters, "/etc/bootparams",
                         base::tr("nobody tells where the {1} of {2} is ({1}={3}:{4}); {5}", item.key,
                                  client.name, item.server, item.path, why_silent(daemon)),
                         base::tr("{1} waits for its {2} for ever", client.name, item.key),
                         "hostadm check " + client.name);
            return failed(base::tr("{1}: no answer", item.key));
        }
        const FileOfClient &file = *answer.result;
        journey.walked.seen["getfile " + item.key] = file.address + ':' + file.path;
        if (file.path != item.path || file.address == "0.0.0.0") {
            journey.find(Severity::error, Stage::parameters, "/etc/bootparams",
                         base::tr("the {1} of {2} is told to be {3}:{4}, and its entry says {5}:{6}",
                                  item.key, client.name, file.address, file.path, item.server, item.path),
                         base::tr("{1} gets the {2} of somebody else, or none", client.name, item.key),
                         "hostadm check " + client.name);
            return failed(base::tr("{1}: told {2}:{3}", item.key, file.address, file.path));
        }
        if (is_loopback(file.address) || !is_own_address(journey.network, file.address)) {
            journey.find(
                Severity::error, Stage::parameters, "/etc/bootparams",
                base::tr(
                    "the server {1} of the {2} of {3} has the address {4}, which is none of this server's",
                    item.server, item.key, client.name, file.address),
                base::tr("{1} looks for its {2} where it is not", client.name, item.key),
                "hostadm check " + client.name);
            return failed(base::tr("{1}: at {2}, which is not this server", item.key, file.address));
        }
        journey.files[item.key] = file;
        detail += (detail.empty() ? "" : ", ") + item.key + " " + file.path;
    }
    return passed(detail);
}

} // namespace hostadm::rehearsal
