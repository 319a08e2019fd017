// SPDX-License-Identifier: MIT
#include "rehearsal/cable.hpp"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sched.h>
#include <stdexcept>
#include <unistd.h>

#include "base/translation.hpp"
#include "rehearsal/command.hpp"

namespace hostadm::rehearsal {

namespace {

[[noreturn]] void fail(const std::string &step) {
    throw std::runtime_error(base::tr("not possible: {1}: {2}", step, std::strerror(errno)));
}

base::Descriptor this_name_space() {
    base::Descriptor here(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC));
    if (!here.is_open())
        fail(base::tr("open the network name space"));
    return here;
}

void enter(const base::Descriptor &name_space) {
    if (setns(name_space.get(), CLONE_NEWNET) != 0)
        fail(base::tr("change the network name space"));
}

void ip(const std::string &lines) {
    const base::Answer said = ask({"ip", "-batch", "-"}, lines);
    if (said.ending.not_found())
        throw std::runtime_error(base::tr("the program ip is not installed; install the package iproute2"));
    if (!said.ending.well())
        throw std::runtime_error(
            base::tr("the cable cannot be laid: {1}", said.errors.substr(0, said.errors.find('\n'))));
}

std::string addresses_of(const Interface &interface) {
    std::string lines;
    for (const OwnAddress &own : interface.addresses)
        lines += "addr add " + own.address + '/' + std::to_string(own.prefix) +
                 (own.broadcast.empty() ? "" : " brd " + own.broadcast) + " dev " + interface.name + '\n';
    return lines;
}

std::string attributes_of(const Interface &interface) {
    return (interface.ethernet.empty()
                ? ""
                : "link set " + interface.name + " address " + interface.ethernet + '\n') +
           addresses_of(interface) + (interface.up ? "link set " + interface.name + " up\n" : "");
}

} // namespace

Cable::Cable(const Network &network, const std::string &interface, const std::string &client_ethernet)
    : server_(this_name_space()) {
    if (unshare(CLONE_NEWNET) != 0)
        fail(base::tr("make a network name space"));
    client_ = this_name_space();
    go_to_server();

    const std::string far_end = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(client_.get());
    std::string lines;
    int number = 0;
    for (const Interface &each : network.interfaces) {
        const std::string other_end =
            each.name == interface ? client_interface : "far" + std::to_string(++number);
        lines += "link add " + each.name + " type veth peer name " + other_end +
                 (each.name == interface ? " netns " + far_end : "") + '\n';
        lines += attributes_of(each);
        if (each.name != interface)
            lines += "link set " + other_end + " up\n";
    }
    ip(lines);
    for (const std::string &setting : network.settings) {
        const std::size_t equals = setting.find('=');
        std::ofstream("/proc/sys/net/ipv4/conf/" + setting.substr(0, equals)) << setting.substr(equals + 1);
    }
    std::string more;
    for (const std::string &route : network.routes)
        more += "route replace " + route + '\n';
    for (const std::string &neighbour : network.neighbours)
        more += "neighbour replace " + neighbour + '\n';
    if (!more.empty())
        ask({"ip", "-force", "-batch", "-"}, more); // one for an interface that is down cannot be had there
    if (!network.filter.empty() && !ask({"nft", "-f", "-"}, network.filter).ending.well())
        not_copied_ = base::tr("the rules of the packet filter (nft -f refuses them in a private network)");
    if (!network.old_filter.empty() && !ask({"iptables-legacy-restore"}, network.old_filter).ending.well())
        not_copied_ = base::tr("the rules of the older packet filter");

    go_to_client();
    ip("link set lo up\nlink set " + std::string(client_interface) +
       (client_ethernet.empty() ? "" : " address " + client_ethernet) + " up\n");
    go_to_server();
}

void Cable::go_to_client() const {
    enter(client_);
}

void Cable::go_to_server() const {
    enter(server_);
}

void Cable::take_address(const std::string &address, int prefix) const {
    ip("addr add " + address + '/' + std::to_string(prefix) + " brd + dev " + client_interface + "\n");
}

} // namespace hostadm::rehearsal
