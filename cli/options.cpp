// SPDX-License-Identifier: MIT
#include "cli/options.hpp"

namespace hostadm::cli {

std::vector<const CLI::App *> commands_of(const CLI::App &app) {
    return app.get_subcommands([](const CLI::App *command) { return !command->get_group().empty(); });
}

bool takes_value(const CLI::Option &option) {
    return option.get_items_expected_max() > 0;
}

bool is_repeated(const CLI::Option &option) {
    return option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll ||
           option.get_expected_max() > 1;
}

std::vector<const CLI::Option *> options_of(const CLI::App &command) {
    return command.get_options([&](const CLI::Option *option) {
        return option->nonpositional() && option != command.get_help_ptr();
    });
}

std::vector<const CLI::Option *> positionals_of(const CLI::App &command) {
    return command.get_options([](const CLI::Option *option) { return option->get_positional(); });
}

std::string long_name(const CLI::Option &option) {
    return "--" + option.get_lnames().front();
}

} // namespace hostadm::cli
