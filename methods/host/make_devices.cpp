// SPDX-License-Identifier: MIT
// Makes device nodes with the script MAKEDEV of a directory.
#include <filesystem>
#include <set>
#include <string>
#include <unistd.h>

#include "hostadm.h"
#include "hostadm/method.hpp"

using namespace hostadm::method;

namespace {

const Description description{
    .name = "host/make_devices",
    .purpose = "make device nodes with the directory's own script MAKEDEV",
    .arguments = {{.name = "device",
                   .kind = Kind::word,
                   .purpose = "what to make, as the script names it; st8... means st0",
                   .required = true},
                  {.name = "directory",
                   .kind = Kind::path,
                   .purpose = "where, for instance in a client's root",
                   .default_value = "/dev"},
                  {.name = "held_device",
                   .kind = Kind::word,
                   .purpose = "what to make once the tape devices (st0, st8) are there"},
                  {.name = "held_directory",
                   .kind = Kind::path,
                   .purpose = "where to make that, if elsewhere"}},
    .columns = {{.name = "node",
                 .purpose = "a name that was not there before; no row when all were there, or when the "
                            "script failed, which only its own words tell"}},
    .edits = {"directory=", "held_directory="},
};

bool is_tape(const std::string &device) {
    return device.starts_with("st0") || device.starts_with("st8");
}

// The library tells nothing of a missing directory or script.
std::string missing_script(const std::string &directory) {
    const std::string script = directory + "/MAKEDEV";
    if (access(script.c_str(), X_OK) == 0)
        return "";
    return script + " is not there or not executable; Debian's package makedev has such a script";
}

std::set<std::string> nodes_in(const std::string &directory) {
    std::set<std::string> nodes;
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator(directory, ignored))
        nodes.insert(entry.path().string());
    return nodes;
}

int work(Call &call) {
    const std::string device = call.get("device");
    const std::string directory = call.get("directory");
    const std::string held_device = call.get("held_device");
    const std::string held_directory = call.given("held_directory") ? call.get("held_directory") : directory;
    if (held_device.empty() && call.given("held_directory"))
        return call.refuse("held_directory needs held_device");
    if (!held_device.empty() && !is_tape(device))
        return call.refuse("held_device waits for the tape devices, so device must begin with st0 or st8");
    if (is_tape(held_device))
        return call.refuse("held_device cannot be a tape device (st0, st8) itself");
    for (const std::string &place : {directory, held_directory})
        if (const std::string missing = missing_script(place); !missing.empty())
            return call.fail(missing);

    std::set<std::string> before = nodes_in(directory);
    before.merge(nodes_in(held_directory));
    if (!held_device.empty())
        hold_dev = {held_directory.c_str(), held_device.c_str()};
    makedevs(directory.c_str(), device.c_str());

    std::set<std::string> after = nodes_in(directory);
    after.merge(nodes_in(held_directory));
    for (const std::string &node : after)
        if (before.count(node) == 0)
            call.row({{"node", node}});
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
