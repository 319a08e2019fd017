// SPDX-License-Identifier: MIT
// The whole of what a diskless client needs on this server, step by step; what a failure leaves half done is
// taken back.
#include <exception>

#include "hostadm/method.hpp"
#include "methods/client/add_diskless/checks.hpp"
#include "methods/client/add_diskless/client.hpp"
#include "methods/client/add_diskless/failure.hpp"
#include "methods/client/add_diskless/steps.hpp"
#include "methods/client/add_diskless/undo.hpp"
#include "server/client_lock.hpp"
#include "server/host_tables.hpp"
#include "server/undo.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::diskless;
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
                {"rootpath", "what the root was made of there"}},
    .columns = {{"step", "what was looked after"},
                {"result", "done, unchanged, or warning"},
                {"detail", "what stands there now, or what to do"}},
};

int provision(Call &call, Journal &journal) {
    check_tools();
    const Client client = read_client(call);
    const bool known = check(call, client);

    Steps steps(call, client, journal);
    steps.make_root(known);
    check_swap(client); // which may have come with the root
    steps.make_file("swap", client.swap, client.swap_size);
    check_dump(client);
    if (!client.dump.empty())
        steps.make_file("dump", client.dump, 0);
    for (const std::string &path : client.shared_directories())
        steps.share(path);
    steps.boot();
    steps.bootparams();
    steps.table("hosts", hosts_table(), client.address);
    steps.table("ethers", ethers_table(), client.ethernet);
    steps.daemons();
    steps.warnings();
    call.set("pathname", client.root); // the last share told its own
    steps.tell();
    return 0;
}

int work(Call &call) {
    const ClientLock lock(call.get("hostname")); // until all is done, or taken back
    Journal journal;
    const Ending ending = run_apart([&] {
        try {
            return provision(call, journal);
        } catch (const Recorded &) {
            return 1;
        } catch (const Refused &argument) {
            return call.refuse(argument.what());
        } catch (const std::exception &failure) {
            return call.fail(failure.what());
        }
    });
    if (ending.done)
        return 0;
    if (journal.entries().empty() && !call.given("tree") && !call.given("packages") &&
        !call.given("install_hierarchy"))
        call.fail("where the operating system lies was not said: give tree, packages or install_hierarchy");
    if (!ending.reason.empty())
        call.fail(ending.reason);
    take_back(call, journal, [&](const auto &entry) { return undo(call, entry); });
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
