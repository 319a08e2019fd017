// SPDX-License-Identifier: MIT
// hostadm complete: what a shell can offer behind the words that are typed.
//
//     hostadm complete bash LINE PART    the line up to the cursor, and the part of it that bash replaces
//     hostadm complete zsh WORDS...      the words up to the cursor, from "hostadm" on; the last may be empty
//     hostadm complete fish WORDS...     so too; the last with the quotes that are typed
//
// A line each comes back: for bash quoted as the place wants it, for zsh as it is, for fish with a tab and its
// meaning behind it. Nothing is ever said on standard error, into the line that the user types.
#include <algorithm>
#include <fcntl.h>
#include <functional>
#include <map>
#include <set>
#include <unistd.h>

#include "base/descriptor.hpp"
#include "base/translation.hpp"
#include "cli/commands.hpp"
#include "cli/completion_values.hpp"
#include "cli/options.hpp"
#include "cli/output.hpp"
#include "cli/shell_words.hpp"
#include "cli/topics.hpp"

namespace hostadm::cli {

namespace {

using framework::Values;
using method::Argument;
using method::Description;

// A command line as far as it is typed.
struct Typed {
    const CLI::App *command = nullptr;    // nothing: not typed yet
    const CLI::App *verb = nullptr;       // of a command that has such
    const CLI::Option *waiting = nullptr; // the option whose value comes next
    std::vector<std::string> words;       // that are neither command nor option
    std::set<const CLI::Option *> given;
    bool options_ended = false; // by "--"
    bool has_host = false;

    const std::string &method() const { return words.front(); }
};

const CLI::App *named(const CLI::App &app, const std::string &name) {
    const auto commands = commands_of(app);
    const auto found = std::find_if(commands.begin(), commands.end(),
                                    [&](const CLI::App *one) { return one->get_name() == name; });
    return found == commands.end() ? nullptr : *found;
}

const CLI::Option *option_called(const CLI::App &command, std::string_view name) {
    for (const CLI::Option *option : options_of(command))
        if (long_name(*option) == name)
            return option;
    return nullptr;
}

void take_option(Typed &typed, const std::string &word) {
    const std::size_t equals = word.find('=');
    const CLI::Option *option = option_called(*typed.command, word.substr(0, equals));
    if (option == nullptr)
        return;
    typed.given.insert(option);
    typed.has_host = typed.has_host || long_name(*option) == "--host";
    if (equals == word.npos && takes_value(*option))
        typed.waiting = option;
}

Typed read_words(const CLI::App &app, const std::vector<std::string> &words) {
    Typed typed;
    for (const std::string &word : words) {
        if (typed.waiting != nullptr)
            typed.waiting = nullptr;
        else if (typed.command == nullptr)
            typed.command = named(app, word);
        else if (word == "--")
            typed.options_ended = true;
        else if (word.starts_with('-') && !typed.options_ended)
            take_option(typed, word);
        else if (typed.verb == nullptr && named(*typed.command, word) != nullptr)
            typed.verb = named(*typed.command, word);
        else
            typed.words.push_back(word);
    }
    return typed;
}

void offer_commands(Offers &offers, const CLI::App &app) {
    for (const CLI::App *command : commands_of(app))
        offers.add(command->get_name(), command->get_description());
}

void offer_methods(Offers &offers) {
    for (const std::string &method : framework::list_methods())
        offers.add(method);
}

void offer_classes(Offers &offers) {
    std::set<std::string> classes;
    for (const std::string &method : framework::list_methods())
        classes.insert(method.substr(0, method.find('/')));
    for (const std::string &one : classes)
        offers.add(one);
}

void offer_subjects(Offers &offers, const CLI::App &app) {
    offer_commands(offers, app);
    offer_classes(offers);
    offer_methods(offers);
    for (const Topic &topic : topics())
        offers.add(topic.name, base::tr(topic.title));
}

void offer_clients(Offers &offers) {
    offer_column(offers, "client/list_names", "name");
}

// The values of options, and of the words of commands that take no method.
void offer_for(Offers &offers, const CLI::App &app, const CLI::App &command, const CLI::Option &option) {
    const std::map<std::pair<std::string, std::string>, std::function<void()>> known{
        {{"list", "class"}, [&] { offer_classes(offers); }},
        {{"help", "method"}, [&] { offer_subjects(offers, app); }},
        {{"run", "--host"}, [&] { offer_column(offers, "database/list_hosts", "hostname"); }},
        {{"run", "--from"}, [&] { offer_files(offers); }},
        {{"preview", "--host"}, [&] { offer_column(offers, "database/list_hosts", "hostname"); }},
        {{"preview", "--from"}, [&] { offer_files(offers); }},
        {{"preview", "--then"}, [&] { offer_commands(offers, app); }},
        {{"check", "clients"}, [&] { offer_clients(offers); }},
        {{"rehearse", "client"}, [&] { offer_clients(offers); }},
        {{"rehearse", "--sequence"}, [&] { offer_files(offers); }},
        {{"watch", "client"}, [&] { offer_clients(offers); }},
        {{"watch", "--interface"}, [&] { offer_interfaces(offers); }},
        {{"watch", "--read"}, [&] { offer_files(offers); }},
        {{"watch", "--record"}, [&] { offer_files(offers); }},
    };
    const auto found = known.find({command.get_name(), option.get_name()});
    if (found != known.end())
        found->second();
}

void offer_options(Offers &offers, const Typed &typed) {
    for (const CLI::Option *option : options_of(*typed.command))
        if (!typed.given.contains(option) || is_repeated(*option))
            offers.add(long_name(*option), option->get_description());
    offers.add("--help", base::tr("print this help"));
}

Values values_in(const std::vector<std::string> &words) {
    Values given;
    for (const std::string &word : words)
        if (const std::size_t equals = word.find('='); equals != word.npos)
            given.emplace_back(word.substr(0, equals), word.substr(equals + 1));
    return given;
}

// NAME= of the arguments that are not given yet; behind a NAME= its values.
Offers offer_arguments(const Typed &typed, const std::string &current) {
    const auto described = framework::find_method("", typed.method());
    const auto *name = std::get_if<std::string>(&described);
    const auto found =
        name != nullptr ? framework::describe(*name) : std::variant<Description, std::string>("");
    const auto *description = std::get_if<Description>(&found);
    const Values given = values_in(typed.words);
    const std::size_t equals = current.find('=');
    if (description == nullptr)
        return Offers(current);
    if (equals == current.npos) {
        Offers offers(current);
        for (const Argument &argument : description->arguments)
            if (std::none_of(given.begin(), given.end(),
                             [&](const auto &one) { return one.first == argument.name; }))
                offers.add(argument.name + "=", argument.purpose);
        return offers;
    }
    Offers offers(current.substr(equals + 1), current.substr(0, equals + 1));
    for (const Argument &argument : description->arguments)
        if (argument.name == current.substr(0, equals))
            offer_values(offers, *description, argument, given, !typed.has_host);
    return offers;
}

bool takes_method(const CLI::App &command) {
    return command.get_name() == "run" || command.get_name() == "preview";
}

Offers offer_words(const CLI::App &app, const Typed &typed, const std::string &current) {
    if (takes_method(*typed.command) && !typed.words.empty())
        return offer_arguments(typed, current);
    Offers offers(current);
    if (typed.verb == nullptr)
        offer_commands(offers, *typed.command);
    const auto positionals = positionals_of(*typed.command);
    if (takes_method(*typed.command))
        offer_methods(offers);
    else if (!positionals.empty() && (typed.words.empty() || is_repeated(*positionals.front())))
        offer_for(offers, app, *typed.command, *positionals.front());
    return offers;
}

Offers offer(const CLI::App &app, const std::vector<std::string> &before, const std::string &current) {
    const Typed typed = read_words(app, before);
    if (typed.command == nullptr) {
        Offers offers(current);
        if (before.empty() || before.front().starts_with('-')) {
            offer_commands(offers, app);
            offers.add("--help", base::tr("print this help"));
            offers.add("--version", base::tr("print the version"));
        }
        return offers;
    }
    if (typed.waiting != nullptr) {
        Offers offers(current);
        offer_for(offers, app, *typed.command, *typed.waiting);
        return offers;
    }
    if (current.starts_with('-') && !typed.options_ended && typed.verb == nullptr) {
        const std::size_t equals = current.find('=');
        const CLI::Option *option = option_called(*typed.command, current.substr(0, equals));
        if (equals != current.npos && option != nullptr) {
            Offers offers(current.substr(equals + 1), current.substr(0, equals + 1));
            offer_for(offers, app, *typed.command, *option);
            return offers;
        }
        Offers offers(current);
        offer_options(offers, typed);
        return offers;
    }
    return offer_words(app, typed, current);
}

void print_for_bash(const CLI::App &app, const std::string &line, const std::string &part) {
    ShellWords read = shell_words(line);
    if (!read.in_word)
        read.words.emplace_back();
    // Settings before the command are no words of it.
    std::size_t command = 0;
    while (command + 1 < read.words.size() && read.words[command].find('=') != std::string::npos)
        ++command;
    const std::string current = read.words.back();
    read.words.pop_back();
    read.words.erase(read.words.begin(), read.words.begin() + static_cast<std::ptrdiff_t>(
                                                                  std::min(command + 1, read.words.size())));
    // bash may have begun behind a "=" or a ":", or behind the quote.
    const bool begins_inside = read.quote != 0 && !part.starts_with(read.quote);
    const ShellWords replaced = shell_words(part, begins_inside ? read.quote : '\0');
    const std::size_t length = replaced.words.empty() ? 0 : replaced.words.back().size();
    const std::size_t kept = current.size() - std::min(length, current.size());
    const std::string opening = read.quote != 0 && !begins_inside ? std::string(1, read.quote) : "";
    const Offers offers = offer(app, read.words, current);
    for (const Offer &one : offers.list())
        print(opening + quoted_for_shell(std::string_view(one.word).substr(kept), read.quote) + "\n");
}

void print_for_words(const CLI::App &app, std::vector<std::string> words, const std::string &current,
                     bool with_meaning) {
    words.erase(words.begin(), words.begin() + (words.empty() ? 0 : 1));
    const Offers offers = offer(app, words, current);
    for (const Offer &one : offers.list())
        print(one.word + (with_meaning && !one.meaning.empty() ? "\t" + one.meaning : "") + "\n");
}

void silence_standard_error() {
    const base::Descriptor nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
    if (nowhere.is_open())
        dup2(nowhere.get(), STDERR_FILENO);
}

int complete(const CLI::App &app, const std::vector<std::string> &words) {
    silence_standard_error();
    const std::string shell = words.empty() ? "" : words.front();
    std::vector<std::string> before(words.begin() + (words.empty() ? 0 : 1), words.end());
    const std::string current = before.size() > 1 ? before.back() : "";
    if (before.size() > 1)
        before.pop_back();
    if (shell == "bash" && !before.empty())
        print_for_bash(app, before.front(), current);
    else if (shell == "zsh")
        print_for_words(app, before, current, false);
    else if (shell == "fish") {
        // It gives the last word as it is typed, with its quotes.
        const ShellWords read = shell_words(current);
        print_for_words(app, before, read.words.empty() ? "" : read.words.back(), true);
    }
    return done;
}

} // namespace

void add_complete(CLI::App &app, Work &chosen) {
    CLI::App *command = app.add_subcommand("complete", "what a shell can offer")->group("");
    // What is typed may begin with a dash: everything is taken as it is.
    command->prefix_command()->set_help_flag();
    command->callback([&chosen, &app, command] {
        chosen = [&app, words = command->remaining()] { return complete(app, words); };
    });
}

} // namespace hostadm::cli
