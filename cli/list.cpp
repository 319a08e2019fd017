// SPDX-License-Identifier: MIT
// hostadm list and hostadm help: what methods there are and what they take.
#include <algorithm>

#include "base/columns.hpp"
#include "cli/commands.hpp"
#include "cli/output.hpp"

namespace hostadm::cli {

namespace {

std::string purpose_of(const std::string &method) {
    const auto described = framework::describe(method);
    const auto *description = std::get_if<method::Description>(&described);
    return description != nullptr ? description->purpose : "(" + std::get<std::string>(described) + ")";
}

int list(const std::string &wanted, bool json) {
    Table table(json ? std::vector<std::string>{"method", "purpose"}
                     : std::vector<std::string>{"METHOD", "PURPOSE"});
    std::string classes;
    for (const std::string &method : framework::list_methods()) {
        const std::string method_class = method.substr(0, method.find('/'));
        if (wanted.empty() || wanted == method_class)
            table.add({method, purpose_of(method)});
        if (!classes.ends_with(method_class))
            classes += (classes.empty() ? "" : ", ") + method_class;
    }
    if (!wanted.empty() && table.empty()) {
        print_error(wanted, "there is no such class" + (classes.empty() ? "" : "; there are " + classes),
                    framework::invalid_argument);
        return usage;
    }
    json ? print_json(table.json()) : print(table.text(base::columns_of_reader()));
    for (const std::string &path : framework::hidden_methods())
        print_error(path, "note: it is not used, since hostadm has a method of that name; call it otherwise");
    return done;
}

bool is_class(const std::string &word) {
    const auto methods = framework::list_methods();
    return std::any_of(methods.begin(), methods.end(),
                       [&](const std::string &method) { return method.starts_with(word + "/"); });
}

int help(CLI::App &app, const std::string &subject) {
    if (subject.empty()) {
        // app.help() would be that of the subcommand given, which is this one.
        print(app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal));
        return done;
    }
    if (subject == "checks")
        return help_checks();
    for (const CLI::App *command :
         app.get_subcommands([&](const CLI::App *one) { return one->check_name(subject); })) {
        print(command->help(app.get_name()));
        return done;
    }
    const auto found = framework::find_method("", subject);
    if (std::holds_alternative<framework::Unknown>(found) && is_class(subject))
        return list(subject, false);
    if (const auto *unknown = std::get_if<framework::Unknown>(&found)) {
        print_error(subject, unknown->reason, framework::invalid_argument);
        return usage;
    }
    const auto described = framework::describe(std::get<std::string>(found));
    if (const auto *defect = std::get_if<std::string>(&described)) {
        print_error(subject, *defect, framework::cannot_run);
        return failed;
    }
    print(framework::help_text(std::get<method::Description>(described), base::columns_of_reader()));
    return done;
}

} // namespace

void add_list(CLI::App &app, Work &chosen) {
    static std::string method_class;
    static bool json;
    CLI::App *command = app.add_subcommand("list", "list the methods, a line each");
    command->add_option("class", method_class, "only those of this class")->option_text("CLASS");
    command->add_flag("--json", json, "print the list as JSON");
    command->callback([&chosen] { chosen = [] { return list(method_class, json); }; });
}

void add_help(CLI::App &app, Work &chosen) {
    static std::string subject;
    CLI::App *command = app.add_subcommand("help", "say what a method does and what it takes");
    command->add_option("method", subject, "a method, the methods of a class, a subcommand, or \"checks\"")
        ->option_text("CLASS/METHOD");
    command->callback([&] { chosen = [&app] { return help(app, subject); }; });
}

} // namespace hostadm::cli
