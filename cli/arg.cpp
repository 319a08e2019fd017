// SPDX-License-Identifier: MIT
// hostadm arg: the arguments and the answer of a method that is a shell script.
#include <charconv>

#include "base/translation.hpp"
#include "cli/commands.hpp"
#include "cli/output.hpp"

namespace hostadm::cli {

namespace {

int refuse(const std::string &text) {
    print_error("arg", text);
    return usage;
}

int stored(bool well) {
    if (well)
        return done;
    print_error("arg", base::tr("there is no method to answer for; only a method that `hostadm run` has "
                                "started has arguments and an answer"));
    return failed;
}

std::string joined(const std::vector<std::string> &words, std::size_t from) {
    std::string text;
    for (std::size_t at = from; at < words.size(); ++at)
        text += (at == from ? "" : " ") + words[at];
    return text;
}

int get(const std::vector<std::string> &words) {
    if (words.size() != 1)
        return refuse(base::tr("get takes the name of an argument"));
    const auto request = framework::read_request();
    if (!request)
        return stored(false);
    const std::string *value = request->find(words[0]);
    if (value == nullptr)
        return failed;
    print(*value + "\n");
    return done;
}

int set(const std::vector<std::string> &words) {
    if (words.size() != 2 || !framework::is_name(words[0]))
        return refuse(base::tr("set takes the name of an output and its value"));
    return stored(framework::answer_output(words[0], words[1]));
}

int row(const std::vector<std::string> &words) {
    std::vector<framework::Rows::Field> fields;
    for (const std::string_view word : words) {
        const std::size_t equals = word.find('=');
        if (equals == word.npos || !framework::is_name(word.substr(0, equals)))
            return refuse(base::tr("row takes the columns as NAME=VALUE, not \"{1}\"", printable(word)));
        fields.emplace_back(word.substr(0, equals), word.substr(equals + 1));
    }
    return words.empty() ? refuse(base::tr("row takes at least one column as NAME=VALUE"))
                         : stored(framework::answer_row(fields));
}

int error(const std::vector<std::string> &words) {
    int code = 0;
    const std::string digits = words.empty() ? "" : words[0];
    const auto [end, wrong] = std::from_chars(digits.data(), digits.data() + digits.size(), code);
    if (wrong != std::errc() || end != digits.data() + digits.size() || (words.size() < 2 && code != 0))
        return refuse(base::tr("error takes a code, a number, and a text"));
    const auto request = framework::read_request();
    const std::string method = request ? request->method.substr(request->method.rfind('/') + 1) : "";
    return stored(framework::answer_error(code, method + ": " + joined(words, 1)));
}

int undone(const std::vector<std::string> &words) {
    if (words.empty())
        return refuse(base::tr("undone takes a text that says what is left half done"));
    return stored(framework::answer_left_undone(joined(words, 0)));
}

} // namespace

void add_arg(CLI::App &app, Work &chosen) {
    struct Verb {
        const char *name;
        const char *purpose;
        int (*work)(const std::vector<std::string> &);
    };
    static constexpr Verb verbs[] = {
        {"get", base::translatable("NAME: print an input argument; status 1 when it was not given"), get},
        {"set", base::translatable("NAME VALUE: return an output"), set},
        {"row", base::translatable("NAME=VALUE...: return a row"), row},
        {"error", base::translatable("CODE TEXT...: record an error"), error},
        {"undone", base::translatable("TEXT...: say that something is left half done"), undone},
    };
    CLI::App *command =
        app.add_subcommand("arg", base::tr("for methods that are shell scripts: arguments and answer"));
    for (const Verb &verb : verbs) {
        // Values may begin with a dash: everything behind the verb is taken as it is.
        CLI::App *sub = command->add_subcommand(verb.name, base::tr(verb.purpose))->prefix_command();
        sub->set_help_flag();
        sub->callback([&chosen, &verb, sub] {
            chosen = [&verb, words = sub->remaining()] { return verb.work(words); };
        });
    }
    command->require_subcommand(0, 1)->allow_extras();
    command->callback([&chosen, command] {
        if (!command->get_subcommands().empty())
            return;
        chosen = [words = command->remaining()] {
            return refuse(words.empty() ? base::tr("it takes get, set, row, error or undone")
                                        : base::tr("it takes get, set, row, error or undone, not \"{1}\"",
                                                   printable(words.front())));
        };
    });
}

} // namespace hostadm::cli
