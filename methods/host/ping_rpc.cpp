// SPDX-License-Identifier: MIT
// Asks whether an RPC program answers on a host.
#include <charconv>
#include <optional>
#include <rpc/netdb.h>

#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "host/ping_rpc",
    .purpose = "ask a host whether an RPC program answers there, over UDP",
    .arguments =
        {{.name = "host",
          .kind = Kind::host,
          .purpose = "name or IPv4 address of the host",
          .required = true},
         {.name = "program",
          .kind = Kind::word,
          .purpose = "number of the program, or its name in /etc/rpc, such as mountd",
          .required = true},
         {.name = "version", .kind = Kind::number, .purpose = "version of the program", .default_value = "1"},
         {.name = "timeout",
          .kind = Kind::number,
          .purpose = "seconds to wait for the port mapper, and again for the program; at most 3600",
          .default_value = "5"}},
    .outputs = {{"state", "answers, silent, mapper_silent, unknown_host or failed"},
                {"program", "the program's number"}},
    .values = {{"host", "database/list_hosts", "hostname"}},
};

// A whole decimal number, or nothing when it is no number or too large.
std::optional<unsigned long> number(const std::string &text, unsigned long largest) {
    unsigned long value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value > largest)
        return std::nullopt;
    return value;
}

std::optional<unsigned long> program_number(const std::string &program) {
    if (program.find_first_not_of("0123456789") == program.npos)
        return number(program, 0xffffffff);
    const rpcent *entry = getrpcbyname(program.c_str());
    return entry == nullptr ? std::nullopt : std::optional<unsigned long>(entry->r_number);
}

int work(Call &call) {
    const std::string host = call.get("host"), timeout = call.get("timeout");
    const auto program = program_number(call.get("program"));
    const auto version = number(call.get("version"), 0xffffffff);
    const auto seconds = number(timeout, 3600);
    if (!program || *program == 0)
        return call.refuse("program: " + call.get("program") +
                           " is no program number and has no line in /etc/rpc");
    if (!version || *version == 0)
        return call.refuse("version: " + call.get("version") + " is no version of a program");
    if (!seconds || *seconds == 0)
        return call.refuse("timeout: " + timeout + " is no number of seconds from 1 to 3600");

    call.set("program", std::to_string(*program));
    const std::string what = "program " + call.get("program") + " version " + call.get("version");
    switch (rpc_ping(host.c_str(), *program, *version, static_cast<int>(*seconds))) {
    case 0:
        call.set("state", "answers");
        return 0;
    case 1:
        call.set("state", "silent");
        fail(Code::unusable,
             what + " does not answer on " + host +
                 "; it is not registered there, has ended, hangs, or the host cannot be reached");
    case 2:
        call.set("state", "unknown_host");
        fail(Code::not_found, "the host " + host + " is not known here; look at /etc/hosts");
    case 3:
        call.set("state", "mapper_silent");
        fail(Code::unusable, "the port mapper of " + host + " does not answer within " + timeout +
                                 (*seconds == 1 ? " second" : " seconds") +
                                 "; is the host up, and does rpcbind run there?");
    default:
        call.set("state", "failed");
        fail(Code::system, "the probe could not be run; are there too many processes?");
    }
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
