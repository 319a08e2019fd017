// SPDX-License-Identifier: MIT
#include "cli/option_words.hpp"

#include <regex>

#include "base/translation.hpp"
#include "cli/options.hpp"

namespace hostadm::cli {

namespace {

// As the library says it, with its own places, and as the catalogue has it.
struct Wording {
    const char *said;
    const char *text;
};

constexpr Wording wordings[] = {
    {"The following argument was not expected: (.*)",
     base::translatable("The following argument was not expected: {1}")},
    {"The following arguments were not expected: (.*)",
     base::translatable("The following arguments were not expected: {1}")},
    {"(.*) is required", base::translatable("{1} is required")},
    {"(.*): 1 required (.*) missing", base::translatable("{1}: 1 required {2} missing")},
    {"(.*): Value (.*) not in range (.*) to (.*)",
     base::translatable("{1}: Value {2} not in range {3} to {4}")},
    {"Could not convert: (.*) = (.*)", base::translatable("Could not convert: {1} = {2}")},
};

// What stands in the help in the place of a word that has a name only here.
std::string as_in_help(const CLI::App &app, const std::string &name) {
    for (const CLI::App *command : app.get_subcommands())
        for (const CLI::Option *option : positionals_of(*command))
            if (option->get_name() == name && !option->get_option_text().empty())
                return option->get_option_text();
    return name;
}

} // namespace

void translate_words(CLI::App &app) {
    for (const char *word : {base::translatable("Usage"), base::translatable("OPTIONS"),
                             base::translatable("SUBCOMMAND"), base::translatable("SUBCOMMANDS"),
                             base::translatable("REQUIRED"), base::translatable("Positionals")})
        app.get_formatter()->label(word, base::tr(word));
    app.option_defaults()->group(base::tr("Options"));
}

void translate_headings(CLI::App &app) {
    for (CLI::Option *option :
         app.get_options([](CLI::Option *one) { return one->get_group() == "Options"; }))
        option->group(base::tr("Options"));
    for (CLI::App *command :
         app.get_subcommands([](CLI::App *one) { return one->get_group() == "Subcommands"; }))
        command->group(base::tr("Subcommands"));
    for (CLI::App *command : app.get_subcommands([](CLI::App *) { return true; }))
        translate_headings(*command);
}

std::string in_words(const CLI::App &app, const CLI::ParseError &wrong) {
    const std::string said = wrong.what();
    std::smatch found;
    for (const Wording &wording : wordings)
        if (std::regex_match(said, found, std::regex(wording.said)))
            return base::filled(base::tr(wording.text),
                                {as_in_help(app, found.str(1)), found.str(2), found.str(3), found.str(4)});
    return said;
}

} // namespace hostadm::cli
