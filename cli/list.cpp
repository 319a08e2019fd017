// SPDX-License-Identifier: MIT
// hostadm list and hostadm help: what methods there are and what they take.
#include <algorithm>

#include "base/columns.hpp"
#include "base/nearest.hpp"
#include "base/translation.hpp"
#include "cli/commands.hpp"
#include "cli/options.hpp"
#include "cli/output.hpp"
#include "cli/topics.hpp"

namespace hostadm::cli {

namespace {

std::string purpose_of(const std::string &method) {
    const auto answer = framework::describe(method);
    const auto *description = std::get_if<method::Description>(&answer);
    return description != nullptr ? base::tr(description->purpose.c_str())
                                  : "(" + std::get<std::string>(answer) + ")";
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
    Table table({base::tr("METHOD"), base::tr("PURPOSE")});
    for (const std::string &method : methods)
        table.add({method, purpose_of(method)});
    print(table.text(base::columns_of_reader()));
}

std::vector<std::string> classes() {
    std::vector<std::string> all;
    for (const std::string &method : framework::list_methods())
        if (const std::string one = method.substr(0, method.find('/')); all.empty() || all.back() != one)
            all.push_back(one);
    return all;
}

int refuse_class(const std::string &wanted) {
    std::string all;
    for (const std::string &one : classes())
        all += (all.empty() ? "" : ", ") + one;
    const std::string meant = base::nearest(classes(), wanted);
    print_error(wanted,
                !meant.empty() ? base::tr("there is no such class; did you mean {1}?", meant)
                : all.empty()  ? base::tr("there is no such class")
                               : base::tr("there is no such class; there are {1}", all),
                framework::invalid_argument);
    return usage;
}

int list(const std::string &wanted, bool json) {
    std::vector<std::string> methods;
    for (const std::string &method : framework::list_methods())
        if (wanted.empty() || wanted == method.substr(0, method.find('/')))
            methods.push_back(method);
    if (!wanted.empty() && methods.empty())
        return refuse_class(wanted);
    print_list(methods, json);
    for (const std::string &path : framework::hidden_methods())
        print_error(
            path,
            base::tr("note: it is not used, since hostadm has a method of that name; call it otherwise"));
    return done;
}

std::string list_of_topics() {
    std::string text = "\n" + std::string(base::tr("Topics (hostadm help TOPIC):")) + "\n";
    for (const Topic &topic : topics())
        text +=
            base::with_hanging_text("  " + std::string(topic.name) + std::string(13 - topic.name.size(), ' '),
                                    base::tr(topic.title), base::columns_of_reader()) +
            "\n";
    return text;
}

// Of what is no method, the one that was meant.
std::string nearest_subject(const CLI::App &app, const std::string &subject) {
    std::vector<std::string> names;
    for (const CLI::App *command : commands_of(app))
        names.push_back(command->get_name());
    for (const Topic &topic : topics())
        names.emplace_back(topic.name);
    for (const std::string &one : classes())
        names.push_back(one);
    return base::nearest(names, subject);
}

int help_method(const std::string &subject, const std::string &meant, bool json) {
    const auto found = framework::find_method("", subject);
    if (const auto *unknown = std::get_if<framework::Unknown>(&found)) {
        print_error(
            subject,
            meant.empty()
                ? unknown->reason
                : base::tr("there is no such command, topic, class or method; did you mean {1}?", meant),
            framework::invalid_argument);
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

int help(const CLI::App &app, const std::string &subject, bool json) {
    if (subject.empty() && json)
        return list("", json);
    if (subject.empty()) {
        // app.help() would be that of the subcommand given, which is this one.
        print(app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal));
        print(list_of_topics());
        return done;
    }
    for (const CLI::App *command :
         app.get_subcommands([&](const CLI::App *one) { return !json && one->check_name(subject); })) {
        print(command->help(app.get_name()));
        return done;
    }
    if (const Topic *topic = json ? nullptr : find_topic(subject)) {
        print(text_of(*topic, base::columns_of_reader()));
        if (subject != "checks")
            return done;
        print("\n");
        return help_checks();
    }
    const std::vector<std::string> all = classes();
    if (std::find(all.begin(), all.end(), subject) != all.end() &&
        std::holds_alternative<framework::Unknown>(framework::find_method("", subject)))
        return list(subject, json);
    const bool is_name_alone = subject.find('/') == subject.npos;
    // Commands and topics say nothing as JSON.
    return help_method(subject, is_name_alone && !json ? nearest_subject(app, subject) : "", json);
}

void add_list(CLI::App &app, Work &chosen) {
    static std::string method_class;
    static bool json;
    CLI::App *command = app.add_subcommand("list", base::tr("list the methods, a line each"));
    command->add_option("class", method_class, base::tr("only those of this class"))->option_text("CLASS");
    command->add_flag("--json", json,
                      base::tr("print the list, with all that the methods say of themselves, as JSON"));
    command->callback([&chosen] { chosen = [] { return list(method_class, json); }; });
}

void add_help(CLI::App &app, Work &chosen) {
    static std::string subject;
    static bool json;
    CLI::App *command = app.add_subcommand(
        "help", base::tr("say what a method does and takes, or what is to know of a topic"));
    command->add_option("method", subject, base::tr("a method, a class, a command or a topic"))
        ->option_text("SUBJECT");
    command->add_flag("--json", json,
                      base::tr("print what a method, or each of a class, says of itself as JSON"));
    command->callback([&] { chosen = [&app] { return help(app, subject, json); }; });
}

} // namespace hostadm::cli
