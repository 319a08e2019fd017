// SPDX-License-Identifier: MIT
#include "server/install_client.hpp"

#include <filesystem>
#include <system_error>

#include "base/this_host.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "server/bootparams.hpp"
#include "server/client_kind.hpp"
#include "server/common_shares.hpp"
#include "server/disabling.hpp"
#include "server/failure.hpp"
#include "server/files.hpp"
#include "server/provisioning.hpp"
#include "server/roots.hpp"

namespace hostadm::server {

namespace {

void check_install_client(const method::Call &call, const InstallClient &wanted) {
    const NewClient &client = wanted.client;
    check_name_and_addresses(call, client);
    if (!disabled_ethernet_of(client.name).empty())
        fail(Code::taken, base::tr("{1} is a client already, and disabled; client/enable lets it boot again",
                                   client.name));
    for (const std::string &directory : wanted.shared_directories())
        if (!is_directory(directory))
            fail(Code::not_found,
                 base::tr("{1} is no directory; name one that the client can be installed from", directory));
    if (!client.boot_program.empty()) {
        if (std::error_code error; !std::filesystem::is_regular_file(client.boot_program, error))
            fail(Code::not_found, base::tr("there is no boot program {1}", client.boot_program));
    } else if (!exists(std::string(tftpboot) + "/" + client.boot_name)) {
        find_os(client.hierarchy, client.identity);
    }
    const std::string items = client_items(client.name);
    for (const char *key : {"root", "swap", "dump", "exec", "kvm"})
        if (const std::string item = item_of(items, key); !item.empty())
            fail(Code::taken,
                 base::tr("{1} is a client already, with {2}={3} in {4}; remove it first (client/remove)",
                          client.name, key, item, bootparams_path));
    for (const BootparamsItem &item : wanted.items()) {
        const std::string there = item_of(items, item.key), ours = item.server + ":" + item.path;
        if (!there.empty() && value_of_item(items, item.key) != item.path)
            fail(Code::taken,
                 base::tr(
                     "{1} is a client already, with {2}={3} in {4}, not {5}; remove it first (client/remove)",
                     client.name, item.key, there, bootparams_path, ours));
    }
    for (const BootLink &link : boot_links_of(client.address))
        if (!link.target.empty() && link.target != client.boot_name)
            fail(Code::taken,
                 base::tr("{1} boots {2} already, not {3}; remove that client first (client/remove)",
                          client.address, link.target, client.boot_name));
}

} // namespace

std::vector<BootparamsItem> InstallClient::items() const {
    std::vector<BootparamsItem> all = {{"install", client.server, client.hierarchy}};
    if (!config.empty())
        all.push_back({"install_config", client.server, config});
    all.push_back(boot_type_item(ClientKind::install));
    return all;
}

std::vector<std::string> InstallClient::shared_directories() const {
    std::vector<std::string> all = {client.hierarchy};
    if (!config.empty() && !is_at_or_below(config, client.hierarchy))
        all.push_back(config);
    return all;
}

std::vector<Claim> InstallClient::claims() const {
    return {{Claim::Kind::name, client.name},
            {Claim::Kind::address, client.address},
            {Claim::Kind::ethernet, client.ethernet}};
}

InstallClient read_install_client(method::Call &call) {
    InstallClient wanted;
    NewClient &client = wanted.client;
    client.identity = read_identity(call);
    client.kind = ClientKind::install;
    client.name = call.get("hostname");
    client.address = call.get("address");
    client.ethernet = call.get("ethernet");
    client.server = call.given("server") ? call.get("server") : base::own_host_name();
    client.boot_program = call.get("boot_program");
    client.hierarchy = real_path_of(call.get("install_hierarchy"));
    const auto &[inst_set, impl_arch, os_name, os_version] = client.identity;
    client.boot_name =
        make_boot_name(os_version.c_str(), os_name.c_str(), inst_set.c_str(), impl_arch.c_str());
    if (call.given("install_config"))
        wanted.config = real_path_of(call.get("install_config"));
    wanted.share_options = call.get("share_options");
    for (const std::string &directory : wanted.shared_directories())
        if (directory == "/")
            refuse(base::tr("this server's own root is nothing to install from, and is not shared"));
    return wanted;
}

void provision(method::Call &call, const InstallClient &wanted, Journal &journal, Report &report) {
    const NewClient &client = wanted.client;
    check_install_client(call, wanted);
    for (const std::string &path : wanted.shared_directories()) {
        call.progress(base::tr("sharing {1}", path));
        report.step("share", ensure_common_share(call.method(), path, wanted.share_options, journal),
                    path + " " + wanted.share_options);
    }
    make_boot_area(call, client, journal, report);
    enter_in_tables(call, client, wanted.items(), journal, report);
    look_after_daemons(call, client, report);
    for (const auto &[about, text] : warnings_about(client))
        report.warn(about, text);
    flush_file_systems({tftpboot, "/etc"});
    call.set("pathname", client.hierarchy); // the last share told its own
}

} // namespace hostadm::server
