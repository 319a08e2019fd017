// SPDX-License-Identifier: MIT
// Lists the boot parameters of all clients in one name service.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <sys/wait.h>

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
                   .purpose = "where they are kept: /etc/bootparams, NIS or NIS+",
                   .default_value = "ufs",
                   .choices = {"ufs", "nis", "nis_plus"}}},
    .columns = {{.name = "hostname", .purpose = "the client"},
                {.name = "filesystems", .purpose = "its items, KEY=SERVER:PATH or KEY=VALUE"}},
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

int list_map(const std::string &command, const std::string &service) {
    const std::string program = command.substr(0, command.find(' '));
    const auto [status, output] = run_command(command);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 127)
        fail(Code::missing_program,
             service + " needs the command " + program + ", which is not installed on this host");
    if (status != 0)
        fail(Code::general, "\"" + command + "\" failed: " + output.substr(0, output.find('\n')));
    add_rows(output);
    return 0;
}

int work(Call &call) {
    const std::string service = call.get("nameservice");
    if (service == "nis")
        return list_map("ypcat -k bootparams", "NIS");
    if (service == "nis_plus")
        return list_map("niscat bootparams.org_dir", "NIS+");
    add_rows(read_bootparams_file());
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
