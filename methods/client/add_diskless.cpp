// SPDX-License-Identifier: MIT
// The whole of what a diskless client needs on this server, step by step; what a failure leaves half done is
// taken back.
#include <filesystem>
#include <unistd.h>

#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/adapters.hpp"
#include "server/claims.hpp"
#include "server/daemons.hpp"
#include "server/host_tables.hpp"
#include "server/new_client.hpp"
#include "server/page.hpp"
#include "server/report.hpp"
#include "server/transaction.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "client/add_diskless",
    .purpose =
        "let a diskless client boot from this server: root, swap, share, boot program, tables, daemons",
    .arguments =
        {{"hostname", Kind::host, "the client's name", true},
         {"address", Kind::address, "its IPv4 address", true},
         {"ethernet", Kind::ethernet, "its Ethernet address", true},
         {"instruction_set", Kind::word, "its instruction set, such as kel4", true},
         {"implementation_arch", Kind::word, "its implementation architecture, such as kel4m", true},
         {"os_name", Kind::word, "name of its operating system", true},
         {"os_version", Kind::release, "version of it", true},
         {"tree", Kind::path, "fill the root from this ready tree; any release"},
         {"packages", Kind::path,
          "fill the root from these directories of packages, with commas between them; not for a 4.x "
          "release"},
         {"install_hierarchy", Kind::path,
          "where the operating system is found when neither tree nor packages is given, and its boot program "
          "(default for the program: the tree, or the client's new root)"},
         {"boot_program", Kind::path, "the boot program itself, if the install hierarchy does not hold it"},
         {"rootpath", Kind::path, "the client's root (default /export/root/HOSTNAME)"},
         {"swappath", Kind::path, "its swap file (default /export/swap/HOSTNAME/swap)"},
         {"swap_size", Kind::size, "size of the swap file, which takes no room until it is used", false,
          "32m"},
         {"dumppath", Kind::path, "its dump file (default: none)"},
         {"server", Kind::host, "this server's name, as the client is told (default: this host's name)"}},
    .outputs = {{"pathname", "the root that was shared"},
                {"boot_program", "name of the boot program in /tftpboot"},
                {"install_hierarchy", "where the operating system was looked for, if nothing was said"},
                {"rootpath", "what the root was made of there"},
                changed_output},
    .columns = {{"step", "what was looked after"},
                {"result", "done, unchanged, or warning"},
                {"detail", "what stands there now, or what to do"}},
    .edits = {"rootpath=", "/export", "/tftpboot", "/etc/bootparams", "/etc/hosts", "/etc/ethers",
              "/etc/dfs/dfstab"},
    .starts = {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd", "/usr/sbin/in.rarpd"},
    .shares = {"rootpath="},
};

void make_boot_area(Call &call, const NewClient &client, Journal &journal, Report &report) {
    const std::string method = call.method();
    call.progress("making the boot program and its links");
    make_tftpboot_dir(method.c_str());
    const BootAreaLock lock;
    const std::string program = std::string(tftpboot) + "/" + client.boot_name;
    const bool made = ensure_boot_program(lock, method, client.identity, client.boot_name,
                                          client.boot_program_source(), journal);
    if (!client.boot_program.empty() && !same_content(program, client.boot_program))
        report.warn("boot program",
                    program + " differs from " + client.boot_program +
                        " and stays, since other clients may boot it; to replace it, remove it first");
    report.step("boot program", made, program);
    call.set("boot_program", client.boot_name);
    const bool linked = ensure_boot_links(lock, method, client.address, client.identity.implementation_arch,
                                          client.boot_name, journal);
    report.step("boot links", linked, names_of(boot_links_of(client.address)));
}

// A server whose daemons do not run is set up all the same: what is missing is told, with the way to mend it.
void look_after_daemons(Call &call, Report &report) {
    call.progress("looking after the daemons");
    if (const std::string started = ensure_reverse_arp(); !started.empty())
        report.step("reverse ARP", true, started);
    for (const BootDaemon &daemon : boot_daemons()) {
        if (!daemon.running)
            report.warn(daemon.service, daemon.name + " does not run; start it: " + daemon.advice);
        else if (!daemon.advice.empty())
            report.warn(daemon.service, daemon.name + " runs " + daemon.note + "; " + daemon.advice);
    }
}

// What is said to be done must survive a power cut.
void flush(const NewClient &client) {
    std::vector<std::string> written = {client.root, parent_of(client.swap), tftpboot, "/etc"};
    if (!client.dump.empty())
        written.push_back(parent_of(client.dump));
    flush_file_systems(written);
}

int provision(Call &call, const NewClient &client, Journal &journal) {
    const bool known = check_new_client(call, client);
    const std::string method = call.method();
    Report report;

    const bool root_is_whole = known && exists(client.root) && !std::filesystem::is_empty(client.root) &&
                               !is_being_filled(client.root);
    if (!root_is_whole)
        make_root(call, client.root, client.name, client.identity, client.source, journal);
    report.step("root", !root_is_whole, client.root);

    check_swap(client); // which may have come with the root
    check_dump(client);
    report.step("swap", make_sparse_file(client.swap, client.swap_size, journal), client.swap);
    if (!client.dump.empty())
        report.step("dump", make_sparse_file(client.dump, 0, journal), client.dump);

    for (const std::string &path : client.shared_directories()) {
        call.progress("sharing " + path);
        const std::string options = client.share_options();
        report.step("share", ensure_share(method, path, options, journal), path + " " + options);
    }

    make_boot_area(call, client, journal, report);

    call.progress(std::string("editing ") + bootparams_path);
    const bool items_added = add_missing_items(client.name, client.items(), journal);
    report.step("bootparams", items_added, client.name + " " + client_items(client.name));
    call.progress("editing the tables of hosts");
    report.step("hosts", hosts_table().ensure(client.address, client.name, journal),
                client.address + " " + client.name);
    report.step("ethers", ethers_table().ensure(client.ethernet, client.name, journal),
                client.ethernet + " " + client.name);

    look_after_daemons(call, report);
    for (const auto &[about, text] : warnings_about(client))
        report.warn(about, text);
    flush(client);
    call.set("pathname", client.root); // the last share told its own
    report.tell(call);
    return 0;
}

int work(Call &call) {
    if (geteuid() != 0)
        fail(Code::not_root, "only root may add a client");
    Claims claims(call.method(), call.get("hostname"), {{Claim::Kind::name, call.get("hostname")}});
    Transaction transaction(call, call.get("hostname"));
    const bool done = transaction.run([&] {
        require_command("/usr/sbin/share", "shares directories");
        const NewClient client = read_new_client(call);
        claims.add(client.claims());
        return provision(call, client, transaction.journal());
    });
    if (done)
        return 0;
    if (!transaction.did_anything() && !call.given("tree") && !call.given("packages") &&
        !call.given("install_hierarchy"))
        call.fail("where the operating system lies was not said: give tree, packages or install_hierarchy");
    transaction.take_back();
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
