// SPDX-License-Identifier: MIT
// Behaves as it is told, mostly badly, after it has returned an output and a row.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unistd.h>

#include "hostadm/framework.h"
#include "hostadm/method.hpp"

using namespace hostadm::method;

namespace {

void answer(std::string_view bytes) {
    if (write(4, bytes.data(), bytes.size()) == -1)
        std::abort();
}

int hold_a_descriptor_after_the_end() {
    if (fork() == 0) {
        for (int standard = 0; standard < 3; ++standard)
            close(standard);
        sleep(30);
        _exit(0);
    }
    return 0;
}

const std::map<std::string, int (*)(Call &)> behaviours{
    {"well", [](Call &) { return 0; }},
    {"fail", [](Call &call) { return call.fail("it was told to"); }},
    {"fail_twice",
     [](Call &call) {
         call.fail("first");
         return call.fail("second", 92);
     }},
    {"fail_silently", [](Call &) { return 7; }},
    {"crash",
     [](Call &call) {
         call.fail("about to crash");
         std::signal(SIGSEGV, SIG_DFL);
         return std::raise(SIGSEGV);
     }},
    {"exit_early", [](Call &) -> int { std::exit(0); }},
    {"exit_1", [](Call &) -> int { std::exit(1); }},
    {"exit_255",
     [](Call &call) -> int {
         call.fail("cannot go on");
         std::exit(-1);
     }},
    {"half_a_line",
     [](Call &) -> int {
         answer("{\"output\": \"late\", \"val");
         std::exit(0);
     }},
    {"rubbish",
     [](Call &) {
         answer("what\x01is this\n");
         return 0;
     }},
    {"rubbish_then_row",
     [](Call &call) {
         answer("[1, 2]\n");
         call.row({{"number", "2"}});
         return 0;
     }},
    {"print",
     [](Call &) {
         std::puts("printed by the method");
         return 0;
     }},
    {"throw", [](Call &) -> int { throw std::runtime_error("thrown out"); }},
    {"bad_output",
     [](Call &call) {
         call.set("9 lives", "lost");
         return 0;
     }},
    {"clear",
     [](Call &call) {
         call.fail("put right later");
         adm_err_setf(nullptr, 0, "all is well");
         return 0;
     }},
    {"clear_then_fail",
     [](Call &call) {
         call.fail("put right later");
         adm_err_setf(nullptr, 0, "all is well");
         return call.fail("not put right");
     }},
    {"note",
     [](Call &) {
         adm_err_setf(nullptr, 92, "%s:: %s", "behave", "\nhello\n");
         return 0;
     }},
    {"dirty",
     [](Call &call) {
         adm_err_cleanup(nullptr, ADM_DIRTY);
         return call.fail("stopped halfway");
     }},
    {"dirty_then_clean",
     [](Call &call) {
         adm_err_cleanup(nullptr, ADM_DIRTY);
         adm_err_cleanup(nullptr, ADM_CLEAN);
         return call.fail("stopped, and undone");
     }},
    {"undone",
     [](Call &call) {
         call.left_undone("/export/root/c1 is still there");
         adm_err_cleanup(nullptr, ADM_CLEAN);
         return call.fail("stopped halfway");
     }},
    {"empty_method_name",
     [](Call &) {
         adm_err_setf(nullptr, 92, "%s: the command failed: %s: %s", "", "false", "\nno\n");
         return 1;
     }},
    {"outlive", [](Call &) { return hold_a_descriptor_after_the_end(); }},
    {"own_descriptors",
     [](Call &call) {
         std::string open;
         for (int descriptor = 0; descriptor < 64; ++descriptor)
             if (fcntl(descriptor, F_GETFD) != -1)
                 open += std::to_string(descriptor) + " ";
         call.set("open", open);
         std::FILE *child = popen("ls /proc/self/fd | tr '\\n' ' '", "r");
         char line[256] = "";
         if (child != nullptr && std::fgets(line, sizeof line, child) != nullptr)
             call.set("open_in_command", line);
         return child == nullptr ? 1 : pclose(child);
     }},
    {"own_signals",
     [](Call &call) {
         sigset_t blocked;
         sigprocmask(SIG_BLOCK, nullptr, &blocked);
         struct sigaction action {};
         sigaction(SIGPIPE, nullptr, &action);
         call.set("blocked", sigismember(&blocked, SIGTERM) == 1 ? "yes" : "no");
         call.set("ignored", action.sa_handler == SIG_IGN ? "yes" : "no");
         return 0;
     }},
    {"nested",
     [](Call &call) {
         adm_args *input = nullptr;
         adm_args *output = nullptr;
         adm_error *error = nullptr;
         char *said = nullptr;
         adm_args_newh(&input);
         adm_args_puta(input, "text", ADM_STRING, 2, "hi");
         const int status = adm_perf_method("echo", input, &output, &error, ADM_CLASS, "test", 0);
         _get_returned_arg(output, "said", "nothing", &said);
         call.set("nested", said);
         adm_args_freeh(input);
         adm_args_freeh(output);
         adm_err_freeh(error);
         return status;
     }},
};

Description describe() {
    Description description{.name = "test/behave",
                            .purpose = "behave as told",
                            .arguments = {{.name = "how", .kind = Kind::choice, .required = true}},
                            .columns = {{.name = "number"}}};
    for (const auto &[name, work] : behaviours)
        description.arguments[0].choices.push_back(name);
    return description;
}

int work(Call &call) {
    call.set("how", call.get("how"));
    call.row({{"number", "1"}});
    return behaviours.at(call.get("how"))(call);
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, describe(), work);
}
