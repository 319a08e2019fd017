// SPDX-License-Identifier: MIT
// hostadm list and hostadm help: what methods there are and what they take.
#include <algorithm>

#include "base/columns.hpp"
#include "cli/commands.hpp"
#include "cli/output.hpp"

namespace hostadm::cli {

namespace {

std::string purpose_of(const std::string &method) {
    const auto answer = framework::describe(method);
    const auto *description = std::get_if<method::Description>(&answer);
    return description != nullptr ? description->purpose : "(" + std::get<std::string>(answer) + ")";
}

// What a program needs to know of a method: all that it says of itself.
Json json_of(const std::string &method, const method::Description &description) {
    Json json = {{"method", to_json(method)}};
    const Json said = Json::parse(framework::to_text(description));
    for (const auto &[key, value] : said.items())
        if (key != "name")
            json[key] = value;
    return json;
}

Json json_of(const std::string &method) {
    const auto answer = framework::describe(method);
    if (const auto *description = std::get_if<method::Description>(&answer))
        return json_of(method, *description);
    return {{"method", to_json(method)}, {"purpose", to_json("(" + std::get<std::string>(answer) + ")")}};
}

void print_list(const std::vector<std::string> &methods, bool json) {
    if (json) {
        Json all = Json::array();
        for (const std::string &method : methods)
            all.push_back(json_of(method));
        print_json(all);
        return;
    }
    Table table({"METHOD", "PURPOSE"});
    for (const std::string &method : methods)
        table.add({method, purpose_of(method)});
    print(table.text(base::columns_of_reader()));
}

int list(const std::string &wanted, bool json) {
    std::vector<std::string> methods;
    std::string classes;
    for (const std::string &method : framework::list_methods()) {
        const std::string method_class = method.substr(0, method.find('/'));
        if (wanted.empty() || wanted == method_class)
            methods.push_back(method);
        if (!classes.ends_with(method_class))
            classes += (classes.empty() ? "" : ", ") + method_class;
    }
    if (!wanted.empty() && methods.empty()) {
        print_error(wanted, "there is no such class" + (classes.empty() ? "" : "; there are " + classes),
                    framework::invalid_argument);
        return usage;
    }
    print_list(methods, json);
    for (const std::string &path : framework::hidden_methods())
        print_error(path, "note: it is not used, since hostadm has a method of that name; call it otherwise");
    return done;
}

bool is_class(const std::string &word) {
    const auto methods = framework::list_methods();
    return std::any_of(methods.begin(), methods.end(),
                       [&](const std::string &method) { return method.starts_with(word + "/"); });
}

int help(CLI::App &app, const std::string &subject, bool json) {
    if (subject.empty() && json)
        return list("", json);
    if (subject.empty()) {
        // app.help() would be that of the subcommand given, which is this one.
        print(app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal));
        return done;
    }
    if (subject == "checks" && !json)
        return help_checks();
    for (const CLI::App *command :
         app.get_subcommands([&](const CLI::App *one) { return !json && one->check_name(subject); })) {
        print(command->help(app.get_name()));
        return done;
    }
    const auto found = framework::find_method("", subject);
    if (std::holds_alternative<framework::Unknown>(found) && is_class(subject))
        return list(subject, json);
    if (const auto *unknown = std::get_if<framework::Unknown>(&found)) {
        print_error(subject, unknown->reason, framework::invalid_argument);
        return usage;
    }
    const auto described = framework::describe(std::get<std::string>(found));
    if (const auto *defect = std::get_if<std::string>(&described)) {
        print_error(subject, *defect, framework::cannot_run);
        return failed;
    }
    if (json)
        print_json(json_of(std::get<std::string>(found), std::get<method::Description>(described)));
    else
        print(framework::help_text(std::get<method::Description>(described), base::columns_of_reader()));
    return done;
}

} // namespace

void add_list(CLI::App &app, Work &chosen) {
    static std::string method_class;
    static bool json;
    CLI::App *command = app.add_subcommand("list", "list the methods, a line each");
    command->add_option("class", method_class, "only those of this class")->option_text("CLASS");
    command->add_flag("--json", json, "print the list, with all that the methods say of themselves, as JSON");
    command->callback([&chosen] { chosen = [] { return list(method_class, json); }; });
}

void add_help(CLI::App &app, Work &chosen) {
    static std::string subject;
    static bool json;
    CLI::App *command = app.add_subcommand("help", "say what a method does and what it takes");
    command->add_option("method", subject, "a method, the methods of a class, a subcommand, or \"checks\"")
        ->option_text("CLASS/METHOD");
    command->add_flag("--json", json, "print what a method, or each of a class, says of itself as JSON");
    command->callback([&] { chosen = [&app] { return help(app, subject, json); }; });
}

} // namespace hostadm::cli
