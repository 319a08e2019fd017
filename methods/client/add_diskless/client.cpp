// SPDX-License-Identifier: MIT
#include "methods/client/add_diskless/client.hpp"

#include <charconv>
#include <cstdlib>

#include "base/text.hpp"
#include "hostadm.h"
#include "methods/client/add_diskless/failure.hpp"
#include "server/clients.hpp"
#include "server/host_tables.hpp"
#include "server/local_host.hpp"
#include "server/roots.hpp"

namespace hostadm::diskless {

using namespace hostadm::method;
using namespace hostadm::server;

namespace {

// A string as the functions want it that may replace it by one from malloc.
class PathArgument {
public:
    explicit PathArgument(const std::string &value) : given_(value), current_(given_.data()) {}
    char **place() { return &current_; }
    std::string value() const { return current_ == nullptr ? "" : current_; }

private:
    std::string given_;
    char *current_; // a replacement lives as long as the process
};

std::uint64_t bytes_in(const std::string &size) {
    std::uint64_t count = 0;
    const auto end = std::from_chars(size.data(), size.data() + size.size(), count).ptr;
    const std::string unit = base::lower_case(std::string(end, size.data() + size.size()));
    const int shift = unit == "k" ? 10 : unit == "m" ? 20 : unit == "g" ? 30 : 0;
    constexpr std::uint64_t largest = 1ull << 62;
    if (count == 0)
        refuse("a swap file of " + size + " bytes is of no use; give a swap_size such as 32m");
    if (count > largest >> shift)
        refuse("a swap file of " + size + " is more than any file can hold");
    return count << shift;
}

Identity read_identity(Call &call) {
    char *texts[4] = {};
    if (const int missing = get_arch_strings(&texts[0], &texts[1], &texts[2], &texts[3]); missing != 0)
        fail(std::string(arch_xlate(missing)) + " is missing");
    Identity identity{texts[0], texts[1], texts[2], texts[3]};
    for (char *text : texts)
        std::free(text);
    call.progress("adding " + call.get("hostname") + ", a client of " + identity.implementation_arch +
                  " with " + identity.os_name + " " + identity.os_version);
    return identity;
}

void read_paths(Call &call, Client &client) {
    const auto &[inst_set, impl_arch, os_name, os_version] = client.identity;
    const std::string &name = client.hostname;
    for (const char *argument : {"rootpath", "swappath", "dumppath"})
        if (call.given(argument) && call.get(argument).find_first_not_of('/') == std::string::npos)
            refuse(std::string("the argument ") + argument + " cannot be \"/\"; it must be a path below it");
    PathArgument boot(""), root(call.given("rootpath") ? call.get("rootpath") : "/export/root/" + name),
        swap(call.given("swappath") ? call.get("swappath") : "/export/swap/" + name + "/swap"),
        dump(call.get("dumppath"));
    default_boot_paths(call.method().c_str(), name.c_str(), inst_set.c_str(), impl_arch.c_str(),
                       os_name.c_str(), os_version.c_str(), boot.place(), root.place(), swap.place(),
                       dump.place());
    client.boot_name = boot.value();
    client.root = real_path_of(root.value());
    client.swap = real_path_of(swap.value());
    client.dump = dump.value().empty() ? "" : real_path_of(dump.value());
}

void read_source(Call &call, Client &client) {
    const bool from_tree = call.given("tree"), from_packages = call.given("packages");
    if (from_tree && from_packages)
        refuse("give a tree or packages, not both");
    if (from_packages && client.identity.os_version.starts_with("4."))
        refuse("a 4.x release has no packages; give the tree that its root is copied from");
    if (from_tree)
        client.tree = split_paths(call.get("tree")).front();
    if (from_packages)
        client.packages = split_paths(call.get("packages"));
    if (call.given("install_hierarchy"))
        client.hierarchy = call.get("install_hierarchy");
    if (from_tree || from_packages)
        return;

    const auto &[inst_set, impl_arch, os_name, os_version] = client.identity;
    PathArgument hierarchy(client.hierarchy), boot(client.boot_name), image("");
    default_install_paths(call.method().c_str(), local_host_name().c_str(), inst_set.c_str(),
                          impl_arch.c_str(), os_name.c_str(), os_version.c_str(), hierarchy.place(),
                          boot.place(), image.place());
    client.hierarchy = hierarchy.value();
    if (!os_version.starts_with("4.") && holds_packages(image.value()))
        client.packages = {image.value()};
    else
        client.tree = image.value();
}

} // namespace

std::vector<std::string> Client::shared_directories() const {
    std::vector<std::string> shared = {root};
    for (const std::string &file : {swap, dump}) {
        const std::string path = file.empty() ? root : share_path_of(file, hostname);
        if (!is_at_or_below(path, root) && path != shared.back())
            shared.push_back(path);
    }
    return shared;
}

Client read_client(Call &call) {
    Client client;
    client.identity = read_identity(call);
    client.hostname = call.get("hostname");
    client.address = call.get("address");
    client.ethernet = call.get("ethernet");
    client.server = call.given("server") ? call.get("server") : local_host_name();
    client.swap_size = bytes_in(call.get("swap_size"));
    read_paths(call, client);
    read_source(call, client);
    return client;
}

} // namespace hostadm::diskless
