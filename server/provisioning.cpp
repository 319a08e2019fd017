// SPDX-License-Identifier: MIT
#include "server/provisioning.hpp"

#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

#include "base/beneath.hpp"
#include "base/descriptor.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "server/boot_area.hpp"
#include "server/boot_tree.hpp"
#include "server/bootparams.hpp"
#include "server/catalogue.hpp"
#include "server/client_change.hpp"
#include "server/daemons.hpp"
#include "server/dhcp_server.hpp"
#include "server/failure.hpp"
#include "server/files.hpp"
#include "server/filling.hpp"
#include "server/host_tables.hpp"
#include "server/patches.hpp"
#include "server/pc_area.hpp"
#include "server/pc_client.hpp"
#include "server/root_tables.hpp"
#include "server/rpl_area.hpp"
#include "server/shares.hpp"

namespace hostadm::server {

namespace {

// A kernel finds its modules only in a root of the same release.
void warn_of_another_kernel(const std::string &kernel, const base::Beneath &root, Report &report) {
    const std::string newest = newest_kernel_in(root).kernel, there = kernel_release(kernel);
    const std::string wanted = newest.empty() ? "" : kernel_release(root.open_file(newest));
    if (!wanted.empty() && !there.empty() && wanted != there)
        report.warn("kernel",
                    base::tr("{1} is {2} and stays, since other clients may boot it; the newest of {3} is "
                             "{4}; to replace it and its initramfs, copy them from the root's boot",
                             kernel, there, root.path(), wanted));
}

void make_rpl_area(method::Call &call, const NewClient &client, Journal &journal, Report &report) {
    call.progress(base::tr("making the RPL boot program and its links"));
    const RplAreaLock lock;
    const std::string key = rpl_key(client.ethernet);
    report.step("boot program", ensure_rpl_files(lock, client.rpl_sources(), journal),
                std::string(rplboot) + "/" + client.boot_name);
    call.set("boot_program", client.boot_name);
    const bool linked = ensure_rpl_links(lock, call.method(), key, client.boot_name, journal);
    report.step("boot links", linked, names_of(rpl_links_of(key)));
}

void make_pc_area(method::Call &call, const NewClient &client, Journal &journal, Report &report) {
    call.progress(base::tr("making the menu and what it boots"));
    make_tftpboot_dir(call.method().c_str());
    const BootAreaLock lock;
    const base::Beneath root(client.root, base::Links::inside);
    const PcMenu menu = client.pc_menu();
    const std::string kernel = std::string(pc_systems) + "/" + menu.system + "/vmlinuz";
    report.step("kernel", ensure_pc_system(lock, menu.system, root, journal), kernel);
    warn_of_another_kernel(kernel, root, report);
    call.set("boot_program", "linux/" + menu.system + "/vmlinuz");
    report.step("menu", ensure_pc_menu(lock, menu, journal), pc_menu_path(client.address));
    for (const Firmware &firmware : all_firmware())
        if (!is_served(firmware))
            report.warn("boot loader",
                        base::tr("PCs with {1} cannot boot yet; run netboot/setup_pc once", firmware.name));
}

void fill_new_root(method::Call &call, const NewClient &client, Journal &journal, Report &report) {
    const auto &[inst_set, impl_arch, os_name, os_version] = client.identity;
    // Packages are installed together with the catalogue, of which every root gets a copy.
    if (const CatalogueOf what{client.area(), os_name, os_version, client.names_of_packages(),
                               client.source.packages};
        client.source.tree.empty() && ensure_catalogue(what, journal))
        report.step("catalogue", true, what.area + "/var/sadm/system/admin");
    make_root(call, client.root, client.name, client.identity, client.source, journal);
}

void patch_root(method::Call &call, const NewClient &client, Report &report) {
    const std::string &architecture = client.identity.instruction_set;
    const std::string patches = base::joined(patches_for(architecture));
    if (patches.empty())
        return;
    if (!has_patch_tool()) {
        report.warn("patches", base::tr("{1} for {2} were not applied, since {3} is missing; install it, and "
                                        "run service/apply_patches root={4}",
                                        patches, architecture, patch_tool, client.root));
        return;
    }
    if (!apply_stored_patches(call, client.root))
        throw Recorded();
    report.step("patches", true, base::tr("{1} for {2}", patches, architecture));
}

// Where packages are executables of the service, clients mount these.
void share_executables(method::Call &call, const NewClient &client, Journal &journal, Report &report) {
    if (!client.mounts_usr())
        return;
    const std::string &path = client.service->executables;
    call.progress(base::tr("sharing {1}", path));
    report.step("share", ensure_share(call.method(), path, executables_share_options, journal),
                path + " " + executables_share_options);
}

void warn_about_adopted_root(const NewClient &client, Report &report) {
    const base::Beneath files(client.root, base::Links::inside);
    for (const char *program : {"sbin/init", "usr/sbin/init", "etc/init", "lib/systemd/systemd", "init"})
        if (files.status(program))
            return;
    report.warn("root", base::tr("{1} has no sbin/init, without which no client runs", client.root));
}

// What names the client in its root that it was copied from.
void name_anew(const NewClient &client, Journal &journal, Report &report) {
    report.step("files in its root", change_words_in_root(client.root, client.words, journal), client.root);
    // Every machine makes its own, once it finds this empty.
    constexpr const char *identity = "etc/machine-id";
    const base::Beneath files(client.root, base::Links::inside);
    if (files.is_file(identity))
        files.rewrite(identity, "");
}

// What is said to be done must survive a power cut.
void flush(const NewClient &client) {
    std::vector<std::string> written = {client.root, client.kind == ClientKind::rpl ? rplboot : tftpboot,
                                        "/etc"};
    for (const std::string &file : {client.swap, client.dump})
        if (!file.empty())
            written.push_back(parent_of(file));
    flush_file_systems(written);
}

} // namespace

void make_boot_area(method::Call &call, const NewClient &client, Journal &journal, Report &report) {
    const std::string method = call.method();
    call.progress(base::tr("making the boot program and its links"));
    make_tftpboot_dir(method.c_str());
    const BootAreaLock lock;
    const std::string program = std::string(tftpboot) + "/" + client.boot_name;
    BootProgramSource source = client.boot_program_source();
    base::Descriptor from_root;
    if (source.file.empty() && source.hierarchy.empty()) {
        from_root = boot_program_in(client.root, client.identity);
        source.file = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(from_root.get());
    }
    const bool made = ensure_boot_program(lock, method, client.identity, client.boot_name, source, journal);
    if (!client.boot_program.empty() && !same_content(program, client.boot_program))
        report.warn("boot program", base::tr("{1} differs from {2} and stays, since other clients may boot "
                                             "it; to replace it, remove it first",
                                             program, client.boot_program));
    report.step("boot program", made, program);
    call.set("boot_program", client.boot_name);
    const bool linked = ensure_boot_links(lock, method, client.address, client.identity.implementation_arch,
                                          client.boot_name, journal);
    report.step("boot links", linked, names_of(boot_links_of(client.address)));
}

void enter_in_tables(method::Call &call, const NewClient &client, const std::vector<BootparamsItem> &items,
                     Journal &journal, Report &report) {
    call.progress(base::tr("editing {1}", bootparams_path));
    const bool items_added = add_missing_items(client.name, items, journal);
    report.step("bootparams", items_added, client.name + " " + client_items(client.name));
    call.progress(base::tr("editing the tables of hosts"));
    report.step("hosts", hosts_table().ensure(client.address, client.name, journal),
                client.address + " " + client.name);
    report.step("ethers", ethers_table().ensure(client.ethernet, client.name, journal),
                client.ethernet + " " + client.name);
}

namespace {

// A PC asks neither by reverse ARP nor for boot parameters.
bool is_met_by_pc(const BootDaemon &daemon) {
    return daemon.service == "TFTP" || daemon.service.starts_with("NFS") ||
           (daemon.service == "RPC port mapper" && !daemon.running);
}

void look_after_pc(Report &report) {
    tell_dhcp_server(report);
    for (const BootDaemon &daemon : boot_daemons())
        if (is_met_by_pc(daemon) && !daemon.running)
            report.warn(daemon.service,
                        base::tr("{1} does not run; start it: {2}", daemon.name, daemon.advice));
}

} // namespace

void look_after_daemons(method::Call &call, const NewClient &client, Report &report) {
    call.progress(base::tr("looking after the daemons"));
    if (client.kind == ClientKind::pc)
        return look_after_pc(report);
    if (const std::string started = ensure_reverse_arp(); !started.empty())
        report.step("reverse ARP", true, started);
    if (client.kind == ClientKind::rpl)
        if (const std::string started = ensure_rpl(); !started.empty())
            report.step("RPL", true, started);
    for (const BootDaemon &daemon : boot_daemons()) {
        if (!daemon.running)
            report.warn(daemon.service,
                        base::tr("{1} does not run; start it: {2}", daemon.name, daemon.advice));
        else if (!daemon.advice.empty())
            report.warn(daemon.service,
                        base::tr("{1} runs {2}; {3}", daemon.name, daemon.note, daemon.advice));
    }
}

void provision(method::Call &call, const NewClient &client, Journal &journal, Report &report) {
    const bool known = check_new_client(call, client);
    const std::string method = call.method();

    const bool root_is_whole = (known || is_filled_for(client.root, client.name)) && exists(client.root) &&
                               !std::filesystem::is_empty(client.root) && !is_being_filled(client.root);
    const bool is_filled = !root_is_whole && !client.adopted;
    if (client.adopted)
        warn_about_adopted_root(client, report);
    if (is_filled)
        fill_new_root(call, client, journal, report);
    report.step("root", is_filled, client.root);
    if (is_filled && !client.source.of_client)
        patch_root(call, client, report);
    if (is_filled)
        root_is_filled(client.root, client.name);
    if (!known && !client.words.empty())
        name_anew(client, journal, report);

    check_swap(client); // which may have come with the root
    check_swap_size(client);
    check_dump(client);
    if (!client.swap.empty())
        report.step("swap",
                    client.kind == ClientKind::pc
                        ? make_linux_swap_file(client.swap, client.swap_size, journal)
                        : make_sparse_file(client.swap, client.swap_size, journal),
                    client.swap);
    if (!client.dump.empty())
        report.step("dump", make_sparse_file(client.dump, 0, journal), client.dump);

    if (client.prepare) {
        call.progress(base::tr("preparing the tables in {1}", client.root));
        prepare_root(client, journal, report);
    }

    for (const std::string &path : client.shared_directories()) {
        call.progress(base::tr("sharing {1}", path));
        const std::string options = client.share_options();
        report.step("share", ensure_share(method, path, options, journal), path + " " + options);
    }

    share_executables(call, client, journal, report);

    const auto make_area = client.kind == ClientKind::rpl  ? make_rpl_area
                           : client.kind == ClientKind::pc ? make_pc_area
                                                           : make_boot_area;
    make_area(call, client, journal, report);

    enter_in_tables(call, client, client.items(), journal, report);
    look_after_daemons(call, client, report);
    for (const auto &[about, text] : warnings_about(client))
        report.warn(about, text);
    flush(client);
    end_filling(client.root);
    call.set("pathname", client.root); // the last share told its own
}

} // namespace hostadm::server
