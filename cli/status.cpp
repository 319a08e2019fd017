// SPDX-License-Identifier: MIT
// hostadm status: what this server serves. The method host/status gathers it; here it is laid out.
#include <array>

#include "base/translation.hpp"
#include "cli/commands.hpp"
#include "cli/output.hpp"

namespace hostadm::cli {

namespace {

struct Section {
    const char *kind;   // as the rows say it
    const char *plural; // key in JSON
    const char *heading;
    std::vector<std::string> columns;
};

const std::array sections{
    Section{"client",
            "clients",
            base::translatable("CLIENTS"),
            {"name", "kind", "address", "architecture", "root", "boot_links", "shared", "disabled"}},
    Section{"share", "shares", base::translatable("SHARES"), {"path", "options", "now", "at_boot"}},
    Section{"mount",
            "mounts",
            base::translatable("MOUNTS"),
            {"resource", "mount_point", "type", "options", "now", "at_boot"}},
    Section{
        "daemon", "daemons", base::translatable("DAEMONS"), {"service", "name", "running", "pid", "note"}},
};

std::string field(const framework::Rows::Row &row, std::string_view name) {
    for (const auto &[key, value] : row)
        if (key == name)
            return std::string(value);
    return {};
}

std::vector<Table> tables_of(const framework::Rows &rows) {
    std::vector<Table> tables;
    for (const Section &section : sections)
        tables.emplace_back(section.columns);
    for (const framework::Rows::Row row : rows) {
        const std::string kind = field(row, "section");
        for (std::size_t at = 0; at < sections.size(); ++at) {
            if (kind != sections[at].kind)
                continue;
            std::vector<std::string> cells;
            for (const std::string &column : sections[at].columns)
                cells.push_back(field(row, column));
            tables[at].add(std::move(cells));
        }
    }
    return tables;
}

void print_text(const std::vector<Table> &tables) {
    for (std::size_t at = 0; at < sections.size(); ++at) {
        print(std::string(at == 0 ? "" : "\n") + base::tr(sections[at].heading) + "\n");
        print(tables[at].empty() ? base::tr("none") + std::string("\n") : tables[at].text());
    }
}

std::size_t findings_of(const framework::Answer &answer) {
    const std::string *count = answer.output("findings");
    return count == nullptr ? 0 : std::stoul("0" + *count);
}

void print_findings(std::size_t count) {
    const std::string text =
        count == 0 ? base::tr("No fault found.")
                   : base::tr_n(count, "{1} finding; `hostadm check` tells what is wrong and what mends it.",
                                "{1} findings; `hostadm check` tells what is wrong and what mends it.");
    print("\n" + text + "\n");
}

void print_as_json(const std::vector<Table> &tables, std::size_t findings) {
    Json json = Json::object();
    for (std::size_t at = 0; at < sections.size(); ++at)
        json[sections[at].plural] = tables[at].json();
    json["findings"] = findings;
    print_json(json);
}

int status(bool json) {
    const Invocation invocation{.method = "host/status", .words = {}, .json = json};
    const framework::Outcome outcome = perform(invocation);
    if (outcome.status != framework::Outcome::Status::done)
        return report(invocation, outcome);
    const std::vector<Table> tables = tables_of(outcome.answer.rows);
    const std::size_t findings = findings_of(outcome.answer);
    if (json) {
        print_as_json(tables, findings);
    } else {
        print_text(tables);
        print_findings(findings);
    }
    return done;
}

} // namespace

void add_status(CLI::App &app, Work &chosen) {
    static bool json;
    CLI::App *command = app.add_subcommand(
        "status", base::tr("show what this server serves: clients, shares, mounts, daemons"));
    command->add_flag("--json", json, base::tr("print it as JSON"));
    command->callback([&chosen] { chosen = [] { return status(json); }; });
}

} // namespace hostadm::cli
