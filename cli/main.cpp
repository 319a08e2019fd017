// SPDX-License-Identifier: MIT
// hostadm: runs methods, previews them, shows the server's state.
#include <algorithm>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

#include "base/nearest.hpp"
#include "base/translation.hpp"
#include "cli/commands.hpp"
#include "cli/narrow_help.hpp"
#include "cli/option_words.hpp"
#include "cli/options.hpp"
#include "cli/output.hpp"

namespace {

using namespace hostadm::cli;

// A result that could not be written is a failure, whatever the method said.
int flushed(int status, bool is_done = false) {
    const int error = finish_output();
    if (error == 0)
        return status;
    print_error("", is_done ? hostadm::base::tr("the method was done, but its results cannot be written: {1}",
                                                std::strerror(error))
                            : hostadm::base::tr("the results cannot be written: {1}", std::strerror(error)));
    return status == done ? failed : status;
}

// Only a word that is no option can have been meant as a command.
std::string nearest_command(const CLI::App &app, const std::string &word) {
    std::vector<std::string> names;
    for (const CLI::App *command :
         app.get_subcommands([](const CLI::App *one) { return !one->get_group().empty(); }))
        names.push_back(command->get_name());
    return word.starts_with('-') ? "" : hostadm::base::nearest(names, word);
}

// The option that was meant by the first of the words that the command does not know.
std::string nearest_option(const CLI::App &command, const std::vector<std::string> &words) {
    std::vector<std::string> names{"--help"};
    for (const CLI::Option *option : options_of(command))
        names.push_back(long_name(*option));
    for (const std::string &word : words) {
        const std::string name = word.substr(0, word.find('='));
        if (name.starts_with("--") && std::find(names.begin(), names.end(), name) == names.end())
            return hostadm::base::nearest(names, name);
    }
    return "";
}

int refuse(const CLI::App &app, const std::vector<std::string> &words, const std::string &what) {
    const auto commands = app.get_subcommands();
    const std::string first_word = words.empty() ? "" : words.front();
    const std::string meant =
        commands.empty() ? nearest_command(app, first_word) : nearest_option(*commands.front(), words);
    if (commands.empty() &&
        std::holds_alternative<std::string>(hostadm::framework::find_method("", first_word)))
        print_error(
            "", hostadm::base::tr("{1} is a method; `hostadm run {1} NAME=VALUE...` runs it", first_word));
    else if (commands.empty() && !meant.empty())
        print_error("", hostadm::base::tr("there is no command {1}; did you mean {2}?", printable(first_word),
                                          meant));
    else if (!meant.empty())
        print_error("", hostadm::base::tr("{1}; did you mean {2}?", what, meant));
    else
        print_error("", commands.empty()
                            ? hostadm::base::tr("{1}; `hostadm --help` shows how it is used", what)
                            : hostadm::base::tr("{1}; `hostadm {2} --help` shows how it is used", what,
                                                commands.front()->get_name()));
    return usage;
}

// Who asks a command that runs a method for help, and names the method, wants that of the method.
int help_asked(const CLI::App &app, const CLI::Success &asked) {
    const auto commands = app.get_subcommands();
    const CLI::Option *method = commands.empty() ? nullptr : commands.front()->get_option_no_throw("method");
    if (method != nullptr && commands.front()->get_name() != "help" && !method->results().empty())
        return help(app, method->results().front());
    return commands.empty() ? help(app, "") : app.exit(asked);
}

// A file that this program opens must not become its standard output by accident. What is printed where there
// is no such output is lost, and that is told.
void open_standard_descriptors() {
    int descriptor = -1;
    do
        descriptor = open("/dev/null", O_RDONLY); // NOLINT(android-cloexec-open): it is inherited
    while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor > STDERR_FILENO)
        close(descriptor);
}

int hostadm_main(int argc, char **argv) {
    CLI::App app(hostadm::base::tr("Keeps the network-boot side of a server in order."), "hostadm");
    app.set_version_flag("--version", "hostadm " HOSTADM_VERSION, hostadm::base::tr("print the version"));
    app.formatter(std::make_shared<NarrowHelp>());
    translate_words(app);
    app.require_subcommand(0, 1);
    app.set_help_flag("-h,--help", hostadm::base::tr("print this help"));
    Work chosen;
    for (const auto add : {add_list, add_help, add_run, add_preview, add_status, add_check, add_rehearse,
                           add_watch, add_arg, add_serve, add_complete, add_generate})
        add(app, chosen);
    translate_headings(app);
    app.footer(hostadm::base::tr("Exit status: 0 done, 1 the method failed, 2 wrong usage or invalid "
                                 "argument.\n`hostadm COMMAND --help` says more about a command."));
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp &asked) {
        return flushed(help_asked(app, asked));
    } catch (const CLI::Success &asked) {
        return flushed(app.exit(asked));
    } catch (const CLI::ParseError &wrong) {
        return refuse(app, std::vector<std::string>(argv + std::min(argc, 1), argv + argc),
                      in_words(app, wrong));
    }
    if (!chosen)
        return flushed(help(app, ""));
    const int status = chosen();
    // Who runs a method once more because its results were lost must know that it was done.
    return flushed(status, status == done && app.got_subcommand("run"));
}

} // namespace

int main(int argc, char **argv) {
    open_standard_descriptors();
    hostadm::base::speak_the_users_language();
    try {
        return hostadm_main(argc, argv);
    } catch (const std::exception &failure) {
        print_error("", failure.what());
        return failed;
    }
}
