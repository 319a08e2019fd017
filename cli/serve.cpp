// SPDX-License-Identifier: MIT
// hostadm serve: runs or previews one method for another host. The request comes on standard input, the answer goes to
// standard output, and last how the run was judged.
#include <cstdlib>
#include <unistd.h>

#include "base/descriptor.hpp"
#include "base/program.hpp"
#include "base/translation.hpp"
#include "cli/commands.hpp"
#include "cli/output.hpp"
#include "cli/preview.hpp"

namespace hostadm::cli {

namespace {

int serve(bool is_preview) {
    // The other host asked sudo to speak English; here the language of the login holds again.
    unsetenv("LANGUAGE");
    print(std::string(framework::serve_greeting) + "\n");
    finish_output();
    const auto text = base::read_stream(STDIN_FILENO);
    const auto request = framework::parse_request(text.value_or(""));
    if (!request) {
        print_error("serve",
                    base::tr("there is no request on standard input; `hostadm run --host` sends one"));
        return usage;
    }
    const framework::Outcome outcome = [&] {
        if (is_preview)
            return preview_for_another_host(*request);
        const base::SignalsPassedOn passed_on(STDOUT_FILENO); // with the connection its reader goes
        return framework::perform("", request->method, *request, "");
    }();
    print(framework::to_text(outcome));
    return static_cast<int>(outcome.status);
}

} // namespace

void add_serve(CLI::App &app, Work &chosen) {
    static bool is_preview;
    CLI::App *command = app.add_subcommand("serve", base::tr("run one method for another host"))->group("");
    command->add_flag("--preview", is_preview, base::tr("show what it would change, without changing it"));
    command->callback([&chosen] { chosen = [] { return serve(is_preview); }; });
}

} // namespace hostadm::cli
