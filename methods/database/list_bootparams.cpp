// SPDX-License-Identifier: MIT
// Lists the boot parameters of all clients, in one name service or in all that this server can ask.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <sys/wait.h>

#include "base/translation.hpp"
#include "hostadm/method.hpp"
#include "server/bootparams.hpp"
#include "server/page.hpp"

using namespace hostadm::method;
using namespace hostadm::server;

namespace {

const Description description{
    .name = "database/list_bootparams",
    .purpose = "list the boot parameters of every client",
    .arguments = {{.name = "nameservice",
                   .kind = Kind::choice,
                   .purpose =
                       "where they are kept: /etc/bootparams, NIS or NIS+; or all that can be asked here",
                   .default_value = "ufs",
                   .choices = {"ufs", "nis", "nis_plus", "all"}}},
    .outputs = {{.name = "not_seen", .purpose = "of all: what could not be asked, and why"}},
    .columns = {{.name = "hostname", .purpose = "the client"},
                {.name = "filesystems", .purpose = "its items, KEY=SERVER:PATH or KEY=VALUE"},
                {.name = "source", .purpose = "of all: ufs, nis or nis_plus"}},
};

void add_rows(std::string_view table) {
    ManyRows rows;
    for_each_client(table, [&](std::string_view name, std::string_view items) {
        rows.add({{"hostname", name}, {"filesystems", items}});
    });
}

struct Result {
    int status; // as pclose tells it
    std::string output;
};

Result run_command(const std::string &command) {
    std::string output;
    char buffer[65536];
    std::FILE *stream = popen((command + " 2>&1").c_str(), "r");
    if (stream == nullptr)
        return {-1, std::strerror(errno)};
    for (std::size_t size; (size = std::fread(buffer, 1, sizeof buffer, stream)) > 0;)
        output.append(buffer, size);
    return {pclose(stream), output};
}

// The text of a map, as its service's command prints it.
std::string map_text(const std::string &command, const std::string &service) {
    const std::string program = command.substr(0, command.find(' '));
    const auto [status, output] = run_command(command);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 127)
        fail(Code::missing_program,
             hostadm::base::tr("{1} needs the command {2}, which is not installed on this host", service,
                               program));
    if (status != 0)
        fail(Code::system, "\"" + command + "\" failed: " + output.substr(0, output.find('\n')));
    return output;
}

struct Source {
    const char *name;
    std::string (*text)();
};
const Source sources[] = {{"ufs", read_bootparams_file},
                          {"nis", [] { return map_text("ypcat -k bootparams", "NIS"); }},
                          {"nis_plus", [] { return map_text("niscat bootparams.org_dir", "NIS+"); }}};

// A service that this host does not take part in keeps nobody from seeing the others.
void list_all(Call &call) {
    std::string not_seen;
    ManyRows rows;
    for (const Source &source : sources) {
        try {
            for_each_client(source.text(), [&](std::string_view name, std::string_view items) {
                rows.add({{"hostname", name}, {"filesystems", items}, {"source", source.name}});
            });
        } catch (const Failure &failure) {
            if (source.text == read_bootparams_file)
                throw;
            not_seen += (not_seen.empty() ? "" : "; ") + std::string(failure.what());
        }
    }
    call.set("not_seen", not_seen);
}

int work(Call &call) {
    const std::string service = call.get("nameservice");
    if (service == "all")
        list_all(call);
    for (const Source &source : sources)
        if (service == source.name)
            add_rows(source.text());
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
