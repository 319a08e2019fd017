// SPDX-License-Identifier: MIT
// rehearse: lets a client boot on a virtual cable and tells how far it comes. `hostadm rehearse` runs it.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <iostream>
#include <set>

#include "base/columns.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm/sandbox.hpp"
#include "rehearsal/rehearsal.hpp"
#include "rehearsal/sequence.hpp"
#include "rehearsal/table_watch.hpp"
#include "rehearsal/walked_json.hpp"
#include "server/bootparams.hpp"
#include "server/checks/registry.hpp"
#include "server/host_tables.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::rehearsal;

constexpr int passed_status = 0, failed_status = 1, usage_status = 2;

struct Asked {
    std::string client, picture;
    bool json = false, watch = false, at_boot = false;
};

int complain(const std::string &text, int status) {
    std::fprintf(stderr, "hostadm: rehearse: %s\n", text.c_str());
    return status;
}

// Nothing that a daemon or a table says may steer the terminal.
std::string printable(std::string_view text) {
    std::string safe;
    for (const char c : text)
        safe += static_cast<unsigned char>(c) < ' ' || c == 0x7f ? '?' : c;
    return safe;
}

const char *in_words(StageResult::Outcome outcome) {
    switch (outcome) {
    case StageResult::Outcome::passed:
        return base::tr("passed");
    case StageResult::Outcome::failed:
        return base::tr("FAILED");
    default:
        return base::tr("skipped");
    }
}

void print_stage(const StageResult &stage) {
    const std::string name = base::padded(base::tr(stage.name.c_str()), 14),
                      outcome = base::padded(in_words(stage.outcome), 9);
    std::printf("%s%s%6.0f ms  %s\n", name.c_str(), outcome.c_str(), stage.milliseconds,
                printable(stage.detail).c_str());
    std::fflush(stdout);
}

void print_finding(const server::Finding &finding) {
    std::printf("\n%s: %s: %s\n", base::tr(name_of(finding.severity)), printable(finding.where).c_str(),
                printable(finding.what).c_str());
    if (!finding.why.empty())
        std::printf("    %s\n", printable(finding.why).c_str());
    if (!finding.repair.empty())
        std::printf("    %s\n", base::tr("repair: {1}", printable(finding.repair)).c_str());
}

// All names that tables of clients hold, for a name that is none of them.
server::Snapshot known_names() {
    std::set<std::string> names;
    for (const server::BootparamsClient &client : server::client_entries())
        names.insert(client.name);
    for (const auto &[name, key] : server::ethers_table().keys_by_name())
        names.insert(name);
    server::Snapshot snapshot;
    for (const std::string &name : names)
        snapshot.clients.emplace_back().name = name;
    return snapshot;
}

bool is_known(const std::string &client) {
    return !server::client_items(server::client_name_as_written(client)).empty() ||
           !server::ethers_table().key_of(client).empty() || !server::hosts_table().key_of(client).empty();
}

int complain_of_unknown(const std::string &client) {
    const std::string near = base::joined(server::nearest_clients(known_names(), client));
    return complain(
        near.empty()
            ? base::tr(
                  "no table of this server knows a client {1}; `hostadm run client/list` shows the clients",
                  printable(client))
            : base::tr("no table of this server knows a client {1}; did you mean {2}?", printable(client),
                       near),
        usage_status);
}

// The causes that the checks know, for this client, beside what the walk has met itself.
void add_checks(Rehearsed &rehearsed) {
    server::Findings all = server::check(server::read_snapshot(), {rehearsed.client.name});
    const auto is_explained = [&](const server::Finding &own) {
        return std::any_of(all.begin(), all.end(), [&](const server::Finding &by_check) {
            return by_check.severity == server::Severity::error && by_check.stage == own.stage;
        });
    };
    // The cause in the terms of the checks comes first; what the walk saw of it stands behind it.
    server::Findings explained;
    for (server::Finding &own : rehearsed.walked.findings)
        (is_explained(own) ? explained : all).push_back(std::move(own));
    std::stable_sort(all.begin(), all.end(), [](const server::Finding &one, const server::Finding &other) {
        return std::pair(one.severity, one.stage) < std::pair(other.severity, other.stage);
    });
    std::move(explained.begin(), explained.end(), std::back_inserter(all));
    rehearsed.walked.findings = std::move(all);
}

void print(const Rehearsed &rehearsed) {
    for (const std::string &what : rehearsed.walked.not_tried)
        std::printf("%s\n", base::tr("not rehearsed: {1}", printable(what)).c_str());
    for (const server::Finding &finding : rehearsed.walked.findings)
        print_finding(finding);
    const auto findings = rehearsed.walked.findings.size();
    const std::string boots = rehearsed.walked.passed()
                                  ? base::tr("{1} boots in the rehearsal: yes", rehearsed.client.name)
                                  : base::tr("{1} boots in the rehearsal: no", rehearsed.client.name);
    const std::string wrong =
        findings == 0 ? base::tr("nothing is wrong") : base::tr_n(findings, "{1} finding", "{1} findings");
    std::printf("\n%s; %s (%.1f s)\n", boots.c_str(), wrong.c_str(), rehearsed.milliseconds / 1000);
    std::fflush(stdout);
}

int rehearse_once(const Asked &asked) {
    if (!asked.json)
        std::printf("%s\n\n",
                    base::tr("{1} at a virtual cable to this server; nothing on it is changed", asked.client)
                        .c_str());
    std::fflush(stdout);
    const auto tell = [&](const StageResult &stage) {
        if (!asked.json)
            print_stage(stage);
    };
    Rehearsed rehearsed =
        rehearse(asked.client, asked.at_boot ? Settings::of_boot : Settings::of_processes, tell);
    add_checks(rehearsed);
    if (asked.json)
        std::cout << json_of(rehearsed).dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace)
                  << std::endl;
    else
        print(rehearsed);
    if (!asked.picture.empty())
        draw_sequence(rehearsed, asked.picture);
    return rehearsed.passed() ? passed_status : failed_status;
}

int rehearse_until_it_passes(const Asked &asked) {
    const BootingClient client = read_client(asked.client);
    const server::BootparamsItem *root = client.item("root");
    TableWatch watch(root == nullptr ? "" : root->path);
    while (rehearse_once(asked) != passed_status) {
        if (!asked.json)
            std::printf("\n%s\n", base::tr("waiting for a change"));
        std::fflush(stdout);
        const std::string changed = watch.wait();
        if (!asked.json)
            std::printf("%s\n\n", base::tr("{1} has changed", printable(changed)).c_str());
    }
    return passed_status;
}

} // namespace

int main(int argc, char **argv) {
    base::speak_the_users_language();
    Asked asked;
    CLI::App app("", "rehearse");
    app.add_option("client", asked.client)->required();
    app.add_flag("--json", asked.json);
    app.add_flag("--watch", asked.watch);
    app.add_flag("--at-boot", asked.at_boot);
    app.add_option("--sequence", asked.picture);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &wrong) {
        return complain(wrong.what(), usage_status);
    }
    try {
        if (!is_known(asked.client))
            return complain_of_unknown(asked.client);
        return asked.watch ? rehearse_until_it_passes(asked) : rehearse_once(asked);
    } catch (const sandbox::Error &error) {
        return complain(
            base::tr("{1}; a rehearsal needs root, and a kernel that lets it make name spaces and overlays",
                     error.what()),
            failed_status);
    } catch (const std::exception &error) {
        return complain(error.what(), failed_status);
    }
}
