// SPDX-License-Identifier: MIT
// hostadm preview: runs a method in a throwaway root and shows what it would change.
#include "cli/preview.hpp"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>
#include <variant>

#include "base/descriptor.hpp"
#include "base/encoding.hpp"
#include "base/program.hpp"
#include "base/translation.hpp"
#include "cli/commands.hpp"
#include "cli/on_hosts.hpp"
#include "cli/output.hpp"
#include "cli/preview_report.hpp"
#include "cli/preview_stand_ins.hpp"
#include "cli/shell_words.hpp"
#include "hostadm/sandbox.hpp"

namespace hostadm::cli {

namespace {

using base::Descriptor;
using framework::Outcome;
using sandbox::Change;
using sandbox::FileState;
using sandbox::FileType;

constexpr double longest_time = 1e6; // seconds

struct PreviewOptions {
    Invocation invocation;
    bool everything = false;
    double time_limit = 0;
    std::vector<std::string> then; // hostadm's words, to be run in the same root afterwards
    HostOptions hosts;
    bool is_for_another_host = false;
};

std::string quotes_defect(const std::string &line) {
    return shell_words(line).quote == 0 ? "" : base::tr("a quote is not closed in: {1}", printable(line));
}

// Runs this program again, in the same root, and keeps what it says.
bool run_then(const std::string &line, const std::string &program, int output) {
    std::vector<std::string> command = shell_words(line).words;
    command.insert(command.begin(), program);
    base::write_all(output, "\n== hostadm " + line + '\n');
    const base::Ending ending =
        base::run({.words = command, .descriptors = {{STDOUT_FILENO, output}, {STDERR_FILENO, output}}});
    if (!ending.well())
        base::write_all(output, base::tr("(it {1})", base::in_words(ending)) + "\n");
    return ending.well();
}

// For another host: the method is told to end when the connection goes.
Outcome perform_while_connected(const Invocation &invocation) {
    auto request = request_of(invocation);
    if (auto *defect = std::get_if<std::string>(&request))
        return {Outcome::Status::invalid, {}, std::move(*defect)};
    const base::SignalsPassedOn passed_on(STDOUT_FILENO); // its reader goes with it
    return framework::perform("", invocation.method, std::move(std::get<framework::Request>(request)), "");
}

int perform_inside(const PreviewOptions &asked, const std::string &program, int result, int afterwards) {
    const Outcome outcome =
        asked.is_for_another_host ? perform_while_connected(asked.invocation) : perform(asked.invocation);
    base::write_all(result, framework::to_text(outcome));
    let_others_end();
    if (outcome.status != Outcome::Status::done)
        return static_cast<int>(outcome.status);
    bool well = true;
    for (const std::string &line : asked.then)
        well = run_then(line, program, afterwards) && well;
    return well ? done : failed;
}

struct Preview {
    sandbox::Outcome run;
    Outcome method;
    std::vector<Command> commands;
    std::string afterwards; // what the commands of --then said
};

Outcome outcome_of(const sandbox::Outcome &run, int result) {
    const std::string text = base::read_whole(result).value_or("");
    if (auto outcome = framework::parse_outcome(text))
        return std::move(*outcome);
    return {Outcome::Status::failed, framework::parse_answer(text),
            run.timed_out
                ? base::tr("it had not ended when the time limit passed; what it did until then is shown")
                : base::tr("its run in the throwaway root was cut off")};
}

Preview make_preview(const PreviewOptions &asked) {
    const Descriptor result(memfd_create("hostadm-preview", MFD_CLOEXEC));
    const Descriptor afterwards(memfd_create("hostadm-then", MFD_CLOEXEC));
    if (!result.is_open() || !afterwards.is_open())
        throw std::runtime_error(base::tr("no memory file can be made"));
    const std::string program = std::filesystem::read_symlink("/proc/self/exe");
    sandbox::Options options;
    options.work = [&] { return perform_inside(asked, program, result.get(), afterwards.get()); };
    options.files = stand_ins(asked.invocation);
    options.live_processes = true;
    options.live_network = true;
    options.confined = true;
    options.keep_changes = true;
    options.time_limit = std::chrono::milliseconds(static_cast<long>(asked.time_limit * 1000));
    Preview preview;
    preview.run = sandbox::run(options);
    preview.method = outcome_of(preview.run, result.get());
    preview.commands = noted_commands(preview.run.changes);
    preview.afterwards = base::read_whole(afterwards.get()).value_or("");
    return preview;
}

// On a terminal the contents of files must not steer it.
std::string shown_diff(const std::string &diff) {
    if (isatty(STDOUT_FILENO) == 0)
        return diff;
    std::string shown;
    std::size_t begin = 0;
    for (std::size_t end; (end = diff.find('\n', begin)) != diff.npos; begin = end + 1)
        for (std::size_t tab = begin, next;; tab = next + 1) {
            next = std::min(diff.find('\t', tab), end);
            shown += printable(std::string_view(diff).substr(tab, next - tab));
            shown += next == end ? '\n' : '\t';
            if (next == end)
                break;
        }
    return shown + printable(std::string_view(diff).substr(begin));
}

std::string commands_text(const std::vector<Command> &commands) {
    std::string text;
    for (const Command &command : commands)
        text += "  " +
                (command.is_installed()
                     ? printable(command.text())
                     : base::tr("{1}    (not installed on this system)", printable(command.text()))) +
                "\n";
    return text;
}

// All but the results of the method.
std::string text_of(const Preview &preview, const ChangesReport &report) {
    std::string diffs, lines;
    for (const ChangesReport::Entry &entry : report.entries()) {
        diffs += shown_diff(entry.diff);
        for (const std::string &line : entry.lines)
            lines += "  " + line + '\n';
    }
    for (const std::string &mount_point : preview.run.read_only)
        lines +=
            "  " +
            base::tr("({1} could not be layered: it was read-only in the preview)", printable(mount_point)) +
            "\n";
    const std::string commands = commands_text(preview.commands);
    std::string text =
        diffs.empty() && lines.empty() ? base::tr("No file would change.") + std::string("\n") : diffs;
    if (!lines.empty())
        text += std::string(diffs.empty() ? "" : "\n") + base::tr("Files:") + "\n" + lines;
    text += commands.empty() ? "" : std::string("\n") + base::tr("Commands:") + "\n" + commands;
    text += preview.afterwards;
    return text + "\n" + base::tr("This was a preview: nothing on this system has been changed.") + "\n";
}

void print_preview(const framework::Answer &results, const std::string &text) {
    print_results(results);
    print((results.outputs.empty() && results.rows.empty() ? "" : "\n") + text);
}

Json json_of(const FileState &state) {
    if (state.type == FileType::none)
        return nullptr;
    Json json = {
        {"type", type_word(state)}, {"mode", mode_text(state.mode)}, {"uid", state.uid}, {"gid", state.gid}};
    if (state.type == FileType::regular)
        json["size"] = state.size;
    if (state.type == FileType::link)
        json["target"] = to_json(state.target);
    return json;
}

Json json_of(const Preview &preview, const ChangesReport &report) {
    Json changes = Json::array(), commands = Json::array();
    for (const ChangesReport::Entry &entry : report.entries()) {
        const Change &change = *entry.change;
        Json json = {{"path", to_json(change.path)},
                     {"change", change.added()     ? "added"
                                : change.removed() ? "removed"
                                                   : "changed"},
                     {"before", json_of(change.before)},
                     {"after", json_of(change.after)},
                     {"content_differs", change.content_differs}};
        if (!entry.diff.empty())
            json["diff"] = to_json(entry.diff);
        changes.push_back(std::move(json));
    }
    for (const Command &command : preview.commands) {
        Json arguments = Json::array();
        for (const std::string &argument : command.arguments)
            arguments.push_back(to_json(argument));
        commands.push_back({{"path", to_json(command.path)},
                            {"arguments", std::move(arguments)},
                            {"installed", command.is_installed()}});
    }
    return {{"changes", std::move(changes)}, {"commands", std::move(commands)}};
}

// Why a preview fails whose method does not; empty: it does not.
std::string complaint_of(const PreviewOptions &asked, const Preview &preview) {
    if (preview.method.status != Outcome::Status::done || asked.then.empty() || preview.run.exit_status == 0)
        return "";
    return preview.run.timed_out
               ? base::tr("the time limit passed before every command of --then had ended")
               : base::tr("a command of --then failed; what it said stands under its heading");
}

Json changes_of(const PreviewOptions &asked, const Preview &preview, const ChangesReport &report) {
    Json json = json_of(preview, report);
    if (!asked.then.empty())
        json["then"] = to_json(preview.afterwards);
    return json;
}

int preview(const PreviewOptions &asked) {
    const Preview preview = make_preview(asked);
    if (preview.run.interrupted_by != 0)
        return preview.run.exit_status;
    const ChangesReport report(preview.run.changes, asked.everything);
    if (asked.invocation.json) {
        Json json = cli::json_of(asked.invocation.method, preview.method);
        json.update(changes_of(asked, preview, report));
        print_json(json);
    } else if (preview.method.status != Outcome::Status::invalid) {
        print_preview(preview.method.answer, text_of(preview, report));
    }
    print_errors(asked.invocation.method, preview.method);
    if (preview.method.status != Outcome::Status::done)
        return static_cast<int>(preview.method.status);
    const std::string complaint = complaint_of(asked, preview);
    if (complaint.empty())
        return done;
    print_error("preview", complaint);
    return failed;
}

int preview_or_say_why_not(const PreviewOptions &asked) {
    try {
        return preview(asked);
    } catch (const sandbox::Error &error) {
        print_error("preview", error.what());
        return failed;
    }
}

// ---- on other hosts ----

// The output by which the report comes from there: no argument, output or column can be called so.
constexpr const char *report_output = "_preview";
constexpr const char *full_setting = "full", *time_limit_setting = "time-limit", *then_setting = "then";

framework::Values settings_of(const PreviewOptions &asked) {
    framework::Values settings{{time_limit_setting, std::to_string(asked.time_limit)}};
    if (asked.everything)
        settings.emplace_back(full_setting, "yes");
    for (const std::string &line : asked.then)
        settings.emplace_back(then_setting, line);
    return settings;
}

PreviewOptions options_of(const framework::Request &request) {
    PreviewOptions asked;
    asked.is_for_another_host = true;
    asked.invocation.method = request.method;
    for (const auto &[name, value] : request.arguments)
        asked.invocation.words.push_back(std::string(name).append("=").append(value));
    for (const auto &[name, value] : request.settings)
        if (name == full_setting)
            asked.everything = true;
        else if (name == time_limit_setting)
            asked.time_limit = std::clamp(std::strtod(value.c_str(), nullptr), 0.0, longest_time);
        else if (name == then_setting)
            asked.then.push_back(value);
    return asked;
}

// Takes the report out of an outcome that came from another host.
Json take_report(Outcome &outcome) {
    auto &outputs = outcome.answer.outputs;
    const auto found = std::ranges::find(outputs, report_output, &framework::Values::value_type::first);
    Json report = found == outputs.end() ? Json() : Json::parse(found->second, nullptr, false);
    if (found != outputs.end())
        outputs.erase(found);
    const bool is_whole = report.is_object() && report["text"].is_string() &&
                          report["complaint"].is_string() && report["changes"].is_object();
    return is_whole ? report : Json();
}

OnHost preview_from(Outcome outcome) {
    const Json report = take_report(outcome);
    OnHost came{.outcome = std::move(outcome)};
    if (report.is_null()) {
        if (came.outcome.status == Outcome::Status::done)
            came.complaint = base::tr("the answer does not tell what would change there");
        return came;
    }
    for (const char *part : {"changes", "commands", "then"})
        if (report["changes"].contains(part))
            came.more[part] = report["changes"][part];
    if (came.outcome.status != Outcome::Status::invalid)
        came.print = [has_results = !came.outcome.answer.outputs.empty() || !came.outcome.answer.rows.empty(),
                      text = report["text"].get<std::string>()] {
            print((has_results ? "\n" : "") + shown_diff(text));
        };
    if (const auto complaint = report["complaint"].get<std::string>(); !complaint.empty())
        came.complaint = complaint;
    return came;
}

int preview_where_asked(PreviewOptions &asked) {
    asked.hosts.reach.preview = preview_for_another_host;
    const auto on_others = on_hosts(asked.invocation, asked.hosts, preview_from, settings_of(asked));
    return on_others ? *on_others : preview_or_say_why_not(asked);
}

} // namespace

Outcome preview_for_another_host(const framework::Request &request) {
    const PreviewOptions asked = options_of(request);
    try {
        Preview preview = make_preview(asked);
        const ChangesReport report(preview.run.changes, asked.everything);
        const std::string text = text_of(preview, report);
        const Json json = {{"text", base::is_utf8(text) ? text : printable(text)},
                           {"complaint", complaint_of(asked, preview)},
                           {"changes", changes_of(asked, preview, report)}};
        preview.method.answer.outputs.emplace_back(report_output, json.dump());
        return std::move(preview.method);
    } catch (const sandbox::Error &error) {
        return {Outcome::Status::failed, {}, error.what()};
    }
}

void add_preview(CLI::App &app, Work &chosen) {
    static PreviewOptions asked;
    CLI::App *command =
        app.add_subcommand("preview", base::tr("show what a method would change, without changing it"));
    add_invocation(*command, asked.invocation);
    add_host_options(
        *command, asked.hosts,
        base::tr("preview it on this host, over ssh; on several, each by an option or with commas"));
    command->add_flag("--full", asked.everything,
                      base::tr("show every file of large added trees, and large files too"));
    command->add_option("--time-limit", asked.time_limit, base::tr("the time after which the run is cut off"))
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, longest_time).description(""));
    command
        ->add_option(
            "--then", asked.then,
            base::tr("run `hostadm COMMAND` in the same throwaway root afterwards, such as --then status"))
        ->type_name("COMMAND")
        ->check(CLI::Validator(quotes_defect, ""))
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->allow_extra_args(false);
    command->callback([&chosen] {
        take_words_from_file(asked.invocation);
        chosen = [] { return preview_where_asked(asked); };
    });
    command->footer(base::tr(
        "The method runs for real, but in a throwaway root over this system. Commands that mount, share, "
        "start or signal something are noted instead of run. The method sees the processes and the network "
        "of this system, and can reach neither: it has only the rights that work on files. That holds "
        "against a method that enters other processes or name spaces, opens disks, sets the clock, changes "
        "the kernel, talks over the network or types into the terminal; not against a fault of the kernel, "
        "nor against one that fills the memory. Needs root."));
}

} // namespace hostadm::cli
