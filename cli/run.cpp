// SPDX-License-Identifier: MIT
// hostadm run: runs a method and shows what came out.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <unistd.h>
#include <utility>
#include <variant>

#include "base/descriptor.hpp"
#include "base/program.hpp"
#include "base/translation.hpp"
#include "cli/commands.hpp"
#include "cli/on_hosts.hpp"
#include "cli/output.hpp"

namespace hostadm::cli {

namespace {

using framework::Outcome;
using Status = Outcome::Status;

// A method asked to stop by the keyboard ends by itself, and what it did until then is still reported.
class KeyboardIgnored {
public:
    KeyboardIgnored() : interrupt_(std::signal(SIGINT, SIG_IGN)), quit_(std::signal(SIGQUIT, SIG_IGN)) {}
    ~KeyboardIgnored() {
        std::signal(SIGINT, interrupt_);
        std::signal(SIGQUIT, quit_);
    }
    KeyboardIgnored(const KeyboardIgnored &) = delete;
    KeyboardIgnored &operator=(const KeyboardIgnored &) = delete;

private:
    void (*interrupt_)(int);
    void (*quit_)(int);
};

Outcome invalid(std::string reason) {
    Outcome outcome;
    outcome.status = Status::invalid;
    outcome.reason = std::move(reason);
    return outcome;
}

bool take_prefix(std::string_view &text, const std::string &prefix) {
    if (!text.starts_with(prefix))
        return false;
    text.remove_prefix(prefix.size());
    return true;
}

// A recorded text names its method first; said behind the method's name it need not.
std::string without_method(std::string_view text, const std::string &method) {
    const std::string name = method.substr(method.rfind('/') + 1);
    if (!take_prefix(text, "Method " + name + ":") && !take_prefix(text, name + "::") &&
        !take_prefix(text, name + ":") && !take_prefix(text, method + ":") && !take_prefix(text, "::"))
        take_prefix(text, ":");
    const std::size_t begin = std::min(text.find_first_not_of(" \n"), text.size());
    const std::size_t end = text.find_last_not_of(" \n");
    return std::string(begin < text.size() ? text.substr(begin, end - begin + 1) : std::string_view());
}

// Outputs or a row.
template <typename Fields> Json object_of(const Fields &fields) {
    Json object = Json::object();
    for (const auto &[name, value] : fields)
        object[std::string(name)] = to_json(value);
    return object;
}

// Rows may differ in their columns; each column stands where it was first seen.
Table table_of(const framework::Rows &rows) {
    std::vector<std::string> headings;
    for (const framework::Rows::Row row : rows)
        for (const auto &[name, value] : row)
            if (std::find(headings.begin(), headings.end(), name) == headings.end())
                headings.emplace_back(name);
    Table table(headings);
    for (const framework::Rows::Row row : rows) {
        std::vector<std::string> cells(headings.size());
        for (const auto &[name, value] : row)
            cells[static_cast<std::size_t>(std::find(headings.begin(), headings.end(), name) -
                                           headings.begin())] = value;
        table.add(std::move(cells));
    }
    return table;
}

} // namespace

Json json_of(const std::string &method, const Outcome &outcome) {
    constexpr const char *words[] = {"done", "failed", "invalid"};
    Json json = {{"method", to_json(method)},
                 {"status", words[static_cast<int>(outcome.status)]},
                 {"outputs", object_of(outcome.answer.outputs)},
                 {"rows", Json::array()},
                 {"errors", Json::array()}};
    for (const framework::Rows::Row row : outcome.answer.rows)
        json["rows"].push_back(object_of(row));
    for (const framework::ErrorRecord &error : outcome.answer.errors)
        json["errors"].push_back(
            {{"code", error.code}, {"text", to_json(without_method(error.text, method))}});
    if (!outcome.reason.empty())
        json["reason"] = to_json(outcome.reason);
    json["half_done"] = outcome.answer.half_done();
    if (!outcome.answer.left_undone.empty())
        for (const std::string &text : outcome.answer.left_undone)
            json["left_undone"].push_back(to_json(text));
    return json;
}

void print_results(const framework::Answer &answer) {
    if (!answer.outputs.empty())
        print(pairs_text(answer.outputs));
    if (!answer.outputs.empty() && !answer.rows.empty())
        print("\n");
    if (!answer.rows.empty())
        print(table_of(answer.rows).text());
}

void print_errors(const std::string &method, const Outcome &outcome) {
    const framework::ErrorRecord *last = nullptr;
    for (const framework::ErrorRecord &error : outcome.answer.errors) {
        // The same reason may have kept each of two steps from being done; a reader needs it once.
        const bool is_repeated = last != nullptr && *last == error;
        last = &error;
        if (is_repeated)
            continue;
        const std::string text = without_method(error.text, method);
        if (outcome.status == Status::done)
            print_error(method, base::tr("note: {1}", text));
        else
            print_error(method, text, error.code);
    }
    if (outcome.status == Status::invalid)
        print_error(method, outcome.reason, framework::invalid_argument);
    else if (!outcome.reason.empty())
        print_error(method, outcome.reason, framework::cannot_run);
    for (const std::string &text : outcome.answer.left_undone)
        print_error(method, base::tr("left half done: {1}", text));
    if (outcome.answer.dirty && outcome.answer.left_undone.empty())
        print_error(method, base::tr("something may be left half done"));
}

void add_invocation(CLI::App &command, Invocation &invocation) {
    command.add_option("method", invocation.method, base::tr("`hostadm list` shows them"))
        ->option_text("CLASS/METHOD")
        ->required();
    command.add_option("arguments", invocation.words, base::tr("`hostadm help CLASS/METHOD` shows them"))
        ->option_text("NAME=VALUE");
    command
        .add_option("--from", invocation.from,
                    base::tr("take further arguments from a file that holds a JSON object {\"NAME\": VALUE}; "
                             "- is the standard input"))
        ->type_name("FILE");
    command.add_flag("--json", invocation.json, base::tr("print the results as JSON"));
}

void take_words_from_file(Invocation &invocation) {
    if (invocation.from.empty())
        return;
    const bool is_standard_input = invocation.from == "-";
    const base::Descriptor file(is_standard_input ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                                  : open(invocation.from.c_str(), O_RDONLY | O_CLOEXEC));
    const auto text = file.is_open() ? base::read_stream(file.get()) : std::nullopt;
    if (!text)
        throw CLI::ValidationError("--from", base::tr("the arguments cannot be read from {1}: {2}",
                                                      printable(invocation.from), std::strerror(errno)));
    const auto arguments = framework::parse_arguments(*text);
    if (!arguments)
        throw CLI::ValidationError(
            "--from",
            base::tr("{1} holds no JSON object {\"NAME\": VALUE} of texts, numbers and truth values",
                     printable(invocation.from)));
    for (const auto &[name, value] : *arguments)
        invocation.words.push_back(std::string(name).append("=").append(value));
}

std::variant<framework::Request, std::string> request_of(const Invocation &invocation) {
    framework::Request request;
    for (const std::string &word : invocation.words) {
        const std::size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        if (equals == word.npos || !framework::is_name(name))
            return base::tr("\"{1}\" is no argument; arguments are given as NAME=VALUE", printable(word));
        if (request.find(name) != nullptr)
            return base::tr("the argument {1} is given twice", name);
        request.arguments.emplace_back(name, word.substr(equals + 1));
    }
    return request;
}

Outcome perform(const Invocation &invocation) {
    auto request = request_of(invocation);
    if (auto *defect = std::get_if<std::string>(&request))
        return invalid(std::move(*defect));
    const KeyboardIgnored ignored;
    const base::SignalsPassedOn passed_on;
    return framework::perform("", invocation.method, std::move(std::get<framework::Request>(request)), "");
}

int report(const Invocation &invocation, const Outcome &outcome) {
    if (invocation.json)
        print_json(json_of(invocation.method, outcome));
    else
        print_results(outcome.answer);
    print_errors(invocation.method, outcome);
    return static_cast<int>(outcome.status);
}

int run(const Invocation &invocation) {
    return report(invocation, perform(invocation));
}

namespace {

struct RunOptions {
    Invocation invocation;
    HostOptions hosts;
};

int run_where_asked(RunOptions &asked) {
    const auto on_others =
        on_hosts(asked.invocation, asked.hosts, [](Outcome outcome) { return OnHost{std::move(outcome)}; });
    return on_others ? *on_others : run(asked.invocation);
}

} // namespace

void add_run(CLI::App &app, Work &chosen) {
    static RunOptions asked;
    CLI::App *command = app.add_subcommand("run", base::tr("run a method"));
    add_invocation(*command, asked.invocation);
    add_host_options(*command, asked.hosts,
                     base::tr("run it on this host, over ssh; on several, each by an option or with commas"));
    command->callback([&chosen] {
        take_words_from_file(asked.invocation);
        chosen = [] { return run_where_asked(asked); };
    });
}

} // namespace hostadm::cli
