// SPDX-License-Identifier: MIT
#include <algorithm>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm/method.hpp"
#include "server/checks/registry.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "host/check",
    .purpose =
        "what is wrong on this server for the clients that boot from it, with the commands that mend it",
    .arguments = {{"clients", Kind::hosts,
                   "only these clients, and what is wrong for all (default: every client)"},
                  {"list", Kind::yes_no, "list the checks and what they look at, and check nothing", false,
                   "no"}},
    .outputs = {{"clients", "how many clients were looked at"},
                {"findings", "how many findings there are"},
                {"errors", "how many of them keep a client from booting"},
                {"not_seen", "what could not be looked at, and why"}},
    .columns =
        {{"severity", "error: a boot fails; warning: something is damaged, or fails later"},
         {"client", "whose boot it is; none: every client's"},
         {"stage",
          "the step of the boot: address, boot program, name, parameters, root, start, swap; or reboot, of "
          "this server"},
         {"where", "file and line, path, daemon or interface"},
         {"what", "what is wrong there"},
         {"why", "what that does to the client"},
         {"repair", "the command that mends it"},
         {"check", "the check that found it"},
         {"looks_at", "of the list of checks: what it looks at"}},
    .values = {{"clients", "client/list_names", "name"}},
};

void list_checks() {
    ManyRows rows;
    for (const Check &check : all_checks())
        rows.add({{"check", check.name}, {"looks_at", check.looks_at}});
}

std::vector<std::string> words(std::string text) {
    std::replace(text.begin(), text.end(), ',', ' ');
    const auto parts = base::words_of(text);
    return {parts.begin(), parts.end()};
}

// What is wrong with a name; empty: it is a client.
std::string defect_of_name(const Snapshot &server, const std::string &name) {
    if (server.client(name) != nullptr)
        return {};
    const std::vector<std::string> near = nearest_clients(server, name);
    const std::string &table = server.bootparams.file.path;
    return near.empty() ? base::tr("there is no client {1} in {2}", name, table)
                        : base::tr("there is no client {1} in {2}; the nearest names are {3}", name, table,
                                   base::joined(near));
}

int work(Call &call) {
    if (call.get("list") == "yes") {
        list_checks();
        return 0;
    }
    const Snapshot server = read_snapshot();
    const std::vector<std::string> clients = words(call.get("clients"));
    for (const std::string &name : clients)
        if (const std::string defect = defect_of_name(server, name); !defect.empty())
            return call.refuse(defect);
    const Findings findings = check(server, clients);
    const auto errors = std::count_if(findings.begin(), findings.end(), [](const Finding &finding) {
        return finding.severity == Severity::error;
    });
    call.set("clients", std::to_string(clients.empty() ? server.clients.size() : clients.size()));
    call.set("findings", std::to_string(findings.size()));
    call.set("errors", std::to_string(errors));
    call.set("not_seen", not_seen(server));
    ManyRows rows;
    for (const Finding &finding : findings)
        rows.add({{"severity", name_of(finding.severity)},
                  {"client", finding.client},
                  {"stage", name_of(finding.stage)},
                  {"where", finding.where},
                  {"what", finding.what},
                  {"why", finding.why},
                  {"repair", finding.repair},
                  {"check", finding.check}});
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
