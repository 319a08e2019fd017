// SPDX-License-Identifier: MIT
// Asks whether an RPC program answers on a host.
#include <charconv>
#include <optional>
#include <rpc/netdb.h>

#include "base/translation.hpp"
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
        return call.refuse(hostadm::base::tr("program: {1} is no program number and has no line in /etc/rpc",
                                             call.get("program")));
    if (!version || *version == 0)
        return call.refuse(hostadm::base::tr("version: {1} is no version of a program", call.get("version")));
    if (!seconds || *seconds == 0)
        return call.refuse(hostadm::base::tr("timeout: {1} is no number of seconds from 1 to 3600", timeout));

    call.set("program", std::to_string(*program));
    const std::string what =
        hostadm::base::tr("program {1} version {2}", call.get("program"), call.get("version"));
    switch (rpc_ping(host.c_str(), *program, *version, static_cast<int>(*seconds))) {
    case 0:
        call.set("state", "answers");
        return 0;
    case 1:
        call.set("state", "silent");
        fail(Code::unusable,
             hostadm::base::tr("{1} does not answer on {2}; it is not registered there, has ended, "
                               "hangs, or the host cannot be reached",
                               what, host));
    case 2:
        call.set("state", "unknown_host");
        fail(Code::not_found, hostadm::base::tr("the host {1} is not known here; look at /etc/hosts", host));
    case 3:
        call.set("state", "mapper_silent");
        fail(Code::unusable,
             hostadm::base::tr_n(*seconds,
                                 "the port mapper of {2} does not answer within {3} second; is the "
                                 "host up, and does rpcbind run there?",
                                 "the port mapper of {2} does not answer within {3} seconds; is the "
                                 "host up, and does rpcbind run there?",
                                 host, timeout));
    default:
        call.set("state", "failed");
        fail(Code::system, hostadm::base::tr("the probe could not be run; are there too many processes?"));
    }
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
