// SPDX-License-Identifier: MIT
// hostadm check: what is wrong on this server. The method host/check finds it; here it is laid out.
#include "base/columns.hpp"
#include "base/translation.hpp"
#include "cli/commands.hpp"
#include "cli/output.hpp"

namespace hostadm::cli {

namespace {

using Row = framework::Rows::Row;

std::string field(const Row &row, std::string_view name) {
    for (const auto &[key, value] : row)
        if (key == name)
            return std::string(value);
    return {};
}

std::string output(const framework::Answer &answer, std::string_view name) {
    const std::string *value = answer.output(name);
    return value == nullptr ? "" : *value;
}

// ERROR    WHERE: WHAT
//          WHY
//          mend: REPAIR
std::string text_of(const Row &row) {
    const std::string severity = base::padded(base::tr(field(row, "severity").c_str()), 9);
    const std::string below(base::width(severity), ' ');
    std::string text =
        severity + field(row, "where") + ": " + field(row, "what") + "\n" + below + field(row, "why") + "\n";
    if (const std::string repair = field(row, "repair"); !repair.empty())
        text += below + base::tr("mend it: {1}", repair) + "\n";
    return text;
}

void print_text(const framework::Answer &answer, std::size_t findings) {
    std::string stage;
    for (const Row row : answer.rows) {
        const std::string now = field(row, "severity") + field(row, "stage");
        if (!stage.empty() && now != stage)
            print("\n");
        stage = now;
        print(text_of(row));
    }
    const std::string looked_at = base::tr_n(std::stoul("0" + output(answer, "clients")),
                                             "looked at {1} client", "looked at {1} clients");
    if (findings == 0)
        print(base::tr("no fault found; {1}", looked_at) + "\n");
    else
        print("\n" +
              base::tr("{1}, {2}; {3}", base::tr_n(findings, "{1} finding", "{1} findings"),
                       base::tr_n(std::stoul("0" + output(answer, "errors")), "{1} error", "{1} errors"),
                       looked_at) +
              "\n");
    if (const std::string not_seen = output(answer, "not_seen"); !not_seen.empty())
        print(base::tr("not looked at: {1}", not_seen) + "\n");
}

void print_as_json(const framework::Answer &answer) {
    Json findings = Json::array();
    for (const Row row : answer.rows) {
        Json &finding = findings.emplace_back(Json::object());
        for (const char *key : {"severity", "stage", "client", "where", "what", "why", "repair", "check"})
            finding[key] = to_json(field(row, key));
    }
    print_json({{"clients", std::stoul("0" + output(answer, "clients"))},
                {"findings", findings},
                {"not_seen", to_json(output(answer, "not_seen"))}});
}

int check(const std::vector<std::string> &clients, bool json) {
    Invocation invocation{.method = "host/check", .words = {}, .json = json};
    std::string names;
    for (const std::string &client : clients)
        names += (names.empty() ? "" : ",") + client;
    if (!names.empty())
        invocation.words.push_back("clients=" + names);
    const framework::Outcome outcome = perform(invocation);
    if (outcome.status != framework::Outcome::Status::done)
        return report(invocation, outcome);
    const std::size_t findings = outcome.answer.rows.size();
    json ? print_as_json(outcome.answer) : print_text(outcome.answer, findings);
    return findings == 0 ? done : failed;
}

} // namespace

int help_checks() {
    const Invocation invocation{.method = "host/check", .words = {"list=yes"}, .json = false};
    const framework::Outcome outcome = perform(invocation);
    if (outcome.status != framework::Outcome::Status::done)
        return report(invocation, outcome);
    Table table({base::tr("CHECK"), base::tr("LOOKS AT")});
    for (const Row row : outcome.answer.rows)
        table.add({field(row, "check"), field(row, "looks_at")});
    print(table.text(base::columns_of_reader()));
    return done;
}

void add_check(CLI::App &app, Work &chosen) {
    static std::vector<std::string> clients;
    static bool json;
    CLI::App *command = app.add_subcommand(
        "check", base::tr("find what keeps clients from booting, without changing anything"));
    command->add_option("clients", clients, base::tr("only these clients, and what is wrong for all"))
        ->option_text("CLIENT");
    command->add_flag("--json", json, base::tr("print the findings as JSON"));
    command->footer(base::tr("Exit status: 0 nothing is wrong, 1 there are findings, 2 wrong usage or no "
                             "such client.\n`hostadm help checks` lists what is looked at."));
    command->callback([&chosen] { chosen = [] { return check(clients, json); }; });
}

} // namespace hostadm::cli
