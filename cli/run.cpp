// SPDX-License-Identifier: MIT
// hostadm run: runs a method and shows what came out.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <unistd.h>
#include <variant>

#include "base/descriptor.hpp"
#include "base/program.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "cli/commands.hpp"
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
    std::vector<std::string> host_lists; // each HOST[,HOST...]
    framework::OtherHosts reach;
};

// What is wrong with the hosts, or they.
std::variant<std::vector<std::string>, std::string> hosts_of(const std::vector<std::string> &lists) {
    std::vector<std::string> hosts;
    for (const std::string &list : lists)
        for (const std::string_view host : base::split(list, ',')) {
            if (host.empty())
                return base::tr("--host: the host has no name; leave the option out to run it here");
            if (std::find(hosts.begin(), hosts.end(), host) != hosts.end())
                return base::tr("--host: {1} is given twice", printable(host));
            hosts.emplace_back(host);
        }
    return hosts;
}

// Shows the outcomes in the order in which the hosts were given, each as soon as it and those before it are
// there.
class Reports {
public:
    Reports(const Invocation &invocation, const std::vector<std::string> &hosts)
        : invocation_(invocation), hosts_(hosts), outcomes_(hosts.size()) {}

    void take(std::size_t at, Outcome outcome) {
        outcomes_[at] = std::move(outcome);
        for (; next_ < outcomes_.size() && outcomes_[next_]; ++next_) {
            show(hosts_[next_], *outcomes_[next_]);
            outcomes_[next_].reset();
        }
    }

    // The exit status of all.
    int finish() const {
        if (invocation_.json)
            print_json(hosts_.size() == 1 ? list_.front() : list_);
        return any_failed_ ? failed : any_invalid_ ? usage : done;
    }

private:
    void show(const std::string &host, const Outcome &outcome) {
        any_failed_ = any_failed_ || outcome.status == Status::failed;
        any_invalid_ = any_invalid_ || outcome.status == Status::invalid;
        if (invocation_.json) {
            Json json = json_of(invocation_.method, outcome);
            json["host"] = to_json(host);
            list_.push_back(std::move(json));
        } else {
            if (hosts_.size() > 1)
                print((next_ == 0 ? "" : "\n") + printable(host) + ":\n");
            print_results(outcome.answer);
        }
        print_errors(hosts_.size() == 1 ? invocation_.method : host + ": " + invocation_.method, outcome);
    }

    const Invocation &invocation_;
    const std::vector<std::string> &hosts_;
    std::vector<std::optional<Outcome>> outcomes_;
    std::size_t next_ = 0;
    Json list_ = Json::array();
    bool any_failed_ = false, any_invalid_ = false;
};

int run_on_hosts(RunOptions &asked, const std::vector<std::string> &hosts) {
    auto request = request_of(asked.invocation);
    if (auto *defect = std::get_if<std::string>(&request))
        return report(asked.invocation, invalid(std::move(*defect)));
    Reports reports(asked.invocation, hosts);
    asked.reach.done = [&](std::size_t at, Outcome outcome) { reports.take(at, std::move(outcome)); };
    asked.reach.say = [&](const std::string &host, const std::string &line) {
        base::write_all(STDERR_FILENO, (hosts.size() == 1 ? "" : host + ": ") + line + "\n");
    };
    // The keyboard's signals reach what runs now, but not what would be started next.
    const base::SignalsPassedOn passed_on(-1, base::SignalsPassedOn::Keyboard::is_passed_on);
    framework::perform_on(hosts, asked.invocation.method, std::move(std::get<framework::Request>(request)),
                          asked.reach);
    return reports.finish();
}

int run_where_asked(RunOptions &asked) {
    const auto hosts = hosts_of(asked.host_lists);
    if (const auto *defect = std::get_if<std::string>(&hosts)) {
        print_error("", *defect);
        return usage;
    }
    const auto &names = std::get<std::vector<std::string>>(hosts);
    return names.empty() ? run(asked.invocation) : run_on_hosts(asked, names);
}

void add_host_options(CLI::App &command, RunOptions &asked) {
    constexpr int longest = 1'000'000; // seconds
    auto *host = command.add_option(
        "--host", asked.host_lists,
        base::tr("run it on this host, over ssh; on several, each by an option or with commas"));
    host->type_name("[USER@]HOST")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->allow_extra_args(false);
    command.add_flag("--sudo", asked.reach.sudo, base::tr("become root there by sudo, without a password"))
        ->needs(host);
    command
        .add_option("--connect-timeout", asked.reach.connect_limit,
                    base::tr("how long a host may take to let the command begin; 30 if not said"))
        ->type_name("SECONDS")
        ->check(CLI::Range(1, longest).description(""))
        ->needs(host);
    command
        .add_option("--answer-timeout", asked.reach.answer_limit,
                    base::tr("how long the method may take there; without end if not said"))
        ->type_name("SECONDS")
        ->check(CLI::Range(1, longest).description(""))
        ->needs(host);
    command
        .add_option("--at-once", asked.reach.at_once,
                    base::tr("so many hosts beside each other; 8 if not said"))
        ->type_name("NUMBER")
        ->check(CLI::Range(1, 100).description(""))
        ->needs(host);
}

} // namespace

void add_run(CLI::App &app, Work &chosen) {
    static RunOptions asked;
    CLI::App *command = app.add_subcommand("run", base::tr("run a method"));
    add_invocation(*command, asked.invocation);
    add_host_options(*command, asked);
    command->callback([&chosen] {
        take_words_from_file(asked.invocation);
        chosen = [] { return run_where_asked(asked); };
    });
}

} // namespace hostadm::cli
