// SPDX-License-Identifier: MIT
// Makes device nodes with a script MAKEDEV. One that lies in a client's root is the client's, and never runs.
#include <filesystem>
#include <set>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "base/beneath.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/client_root.hpp"
#include "server/confined.hpp"
#include "server/page.hpp"
#include "server/roots.hpp"

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

namespace {

const Description description{
    .name = "host/make_devices",
    .purpose = "make device nodes with a script MAKEDEV of this server or of the client's service",
    .arguments = {{.name = "device",
                   .kind = Kind::word,
                   .purpose = "what to make, as the script names it; st8... means st0",
                   .required = true},
                  {.name = "directory",
                   .kind = Kind::path,
                   .purpose = "where, for instance in a client's root",
                   .default_value = "/dev"},
                  {.name = "script",
                   .kind = Kind::path,
                   .purpose = "the script, for instance of the service's tree; never one in a client's root",
                   .default_value = "/dev/MAKEDEV"},
                  {.name = "held_device",
                   .kind = Kind::word,
                   .purpose = "what to make once the tape devices (st0, st8) are there"},
                  {.name = "held_directory",
                   .kind = Kind::path,
                   .purpose = "where to make that, if elsewhere"}},
    .outputs = {changed_output},
    .columns = {{.name = "node",
                 .purpose = "a name that was not there before; no row when all were there, or when the "
                            "script failed, which only its own words tell"}},
    .edits = {"directory=", "held_directory="},
};

bool is_tape(const std::string &device) {
    return device.starts_with("st0") || device.starts_with("st8");
}

// What keeps a script from being run as this server's; empty: nothing.
std::string defect_of_script(const std::string &script, const std::set<std::string> &directories) {
    if (access(script.c_str(), X_OK) != 0)
        return base::tr("{1} is not there or not executable; Debian's package makedev has such a script",
                        script);
    const std::string real = std::filesystem::canonical(script);
    for (const std::string &directory : directories)
        if (directory != "/dev" && is_at_or_below(real, real_path_of(directory)))
            return base::tr("{1} lies where the devices are to be made, and may be the client's own; name "
                            "one of this server or of the client's service",
                            script);
    for (const std::string &path : {script, real})
        if (const std::string root = client_root_of(path); !root.empty())
            return base::tr("{1} lies in the client's root {2}, and what the client wrote is not run here; "
                            "name one of this server or of its service",
                            script, root);
    return "";
}

std::set<std::string> nodes_in(const std::string &directory) {
    std::set<std::string> nodes;
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator(directory, ignored))
        nodes.insert(entry.path().string());
    return nodes;
}

// On this server: the library runs the directory's own script. True when anything is new.
bool make_own(Call &call, const std::string &device, const std::string &held_device) {
    const std::string directory = "/dev";
    const std::set<std::string> before = nodes_in(directory);
    if (!held_device.empty())
        hold_dev = {directory.c_str(), held_device.c_str()};
    makedevs(directory.c_str(), device.c_str());
    bool changed = false;
    for (const std::string &node : nodes_in(directory))
        if (before.count(node) == 0) {
            call.row({{"node", node}});
            changed = true;
        }
    return changed;
}

// Gives the directory what the script has made. Tells what was not there before; true when anything was put there.
bool take_over(Call &call, const base::Beneath &made, const base::Beneath &directory) {
    bool changed = false;
    for (const std::string &name : made.names()) {
        const struct stat node = made.status(name).value();
        const auto there = directory.status(name);
        const base::Attributes attributes = base::attributes_of(node);
        if (there && (there->st_mode & S_IFMT) == (node.st_mode & S_IFMT) && there->st_rdev == node.st_rdev &&
            !S_ISDIR(node.st_mode))
            continue;
        const bool is_same_directory = S_ISDIR(node.st_mode) && there && S_ISDIR(there->st_mode);
        changed = changed || !is_same_directory;
        if (S_ISDIR(node.st_mode))
            directory.make_directory(name, attributes);
        else if (S_ISLNK(node.st_mode))
            directory.make_link(made.link_target(name), name);
        else if (S_ISREG(node.st_mode))
            directory.write(name, made.read(name), attributes);
        else
            directory.make_node(name, attributes, node.st_rdev);
        if (S_ISDIR(node.st_mode))
            changed = take_over(call, made.directory(name), directory.directory(name)) || changed;
        if (!there)
            call.row({{"node", directory.path_of(name)}});
    }
    return changed;
}

// Elsewhere: the script runs in a directory that is nobody's, and what it makes there is made again.
bool make_for_client(Call &call, const std::string &directory, const std::string &device,
                     const std::string &script) {
    const base::Beneath files = folder_at(directory);
    const Stage stage;
    stage.files().write("MAKEDEV", base::Beneath("/").read(std::filesystem::canonical(script).native()),
                        {.mode = 0755});
    stage.run([&] { return makedevs(Stage::nowhere, device.c_str()); }, {.programs_run = true});
    stage.files().remove("MAKEDEV");
    const bool changed = take_over(call, stage.files(), files);
    files.flush();
    return changed;
}

int work(Call &call) {
    const std::string device = call.get("device");
    const std::string directory = call.get("directory");
    const std::string held_device = call.get("held_device");
    const std::string held_directory = call.given("held_directory") ? call.get("held_directory") : directory;
    if (held_device.empty() && call.given("held_directory"))
        return call.refuse(base::tr("held_directory needs held_device"));
    if (!held_device.empty() && !is_tape(device))
        return call.refuse(
            base::tr("held_device waits for the tape devices, so device must begin with st0 or st8"));
    if (is_tape(held_device))
        return call.refuse(base::tr("held_device cannot be a tape device (st0, st8) itself"));
    const std::string script = call.get("script");
    const bool is_own = directory == "/dev" && held_directory == "/dev";
    if (is_own && call.given("script") && script != "/dev/MAKEDEV")
        return call.refuse(base::tr("in /dev this server's own script is run; leave script out"));
    if (const std::string defect = defect_of_script(script, {directory, held_directory}); !defect.empty())
        fail(Code::unusable, defect);

    if (is_own) {
        tell_changed(call, make_own(call, device, held_device));
        return 0;
    }
    bool changed = make_for_client(call, directory, device, script);
    if (!held_device.empty())
        changed = make_for_client(call, held_directory, held_device, script) || changed;
    tell_changed(call, changed);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
