// SPDX-License-Identifier: MIT
// The whole of what a diskless client needs on this server, step by step; what a failure leaves half done is
// taken back.
#include <optional>
#include <unistd.h>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm/method.hpp"
#include "server/adapters.hpp"
#include "server/claims.hpp"
#include "server/new_client.hpp"
#include "server/page.hpp"
#include "server/provisioning.hpp"
#include "server/report.hpp"
#include "server/services.hpp"
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
          "where the operating system is found when neither tree nor packages is given and this server keeps "
          "no such service, and its boot program (default for the program: the tree, or the client's new "
          "root)"},
         {"boot_program", Kind::path, "the boot program itself, if the install hierarchy does not hold it"},
         {"root",
          Kind::choice,
          "adopt: take the root that is there as it is",
          false,
          "new",
          {"new", "adopt"}},
         {"boot",
          Kind::choice,
          "how it asks for what it boots: tftp after reverse ARP, rpl, or pc for a PC of today, by DHCP",
          false,
          "tftp",
          {"tftp", "rpl", "pc"}},
         {"kernel_words", Kind::words, "of a PC: further words for its kernel, such as console=ttyS0"},
         {"nfs",
          Kind::choice,
          "of a PC: the version of NFS that it mounts its root with",
          false,
          "3",
          {"3", "4"}},
         {"rootpath", Kind::path, "the client's root (default /export/root/HOSTNAME)"},
         {"swappath", Kind::path, "its swap file (default /export/swap/HOSTNAME/swap)"},
         {"swap_size", Kind::size,
          "size of the swap file, which must fit; it takes room when it is used, that of a PC at once", false,
          default_swap_size},
         {"dumppath", Kind::path, "its dump file (default: none)"},
         {"prepare", Kind::yes_no,
          "give its root what it needs to run: lines of the mount table, hosts, its name, devices; what is "
          "there stays",
          false, "yes"},
         {"server", Kind::host, "this server's name, as the client is told (default: this host's name)"}},
    .outputs = {{"pathname", "the root that was shared"},
                {"boot_program", "name of the boot program in /tftpboot, or /rplboot; of a PC its kernel"},
                {"install_hierarchy", "where the operating system was looked for, if nothing was said"},
                {"rootpath", "what the root was made of there"},
                changed_output},
    .columns = {{"step", "what was looked after"},
                {"result", "done, unchanged, or warning"},
                {"detail", "what stands there now, or what to do"}},
    .edits = {"rootpath=", "/export", "/tftpboot", "/rplboot", "/etc/bootparams", "/etc/hosts", "/etc/ethers",
              "/etc/dfs/dfstab"},
    .starts = {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd", "/usr/sbin/in.rarpd", "/usr/sbin/rpld"},
    .shares = {"rootpath="},
    .values = new_client_values,
};

int provision(Call &call, const NewClient &client, Journal &journal) {
    Report report;
    provision(call, client, journal, report);
    report.tell(call);
    return 0;
}

int work(Call &call) {
    if (geteuid() != 0)
        fail(Code::not_root, base::tr("only root may add a client"));
    Claims claims(call.method(), call.get("hostname"), {{Claim::Kind::name, call.get("hostname")}});
    Transaction transaction(call, call.get("hostname"));
    const bool done = transaction.run([&] {
        require_command("/usr/sbin/share", base::tr("shares directories"));
        const NewClient client = read_new_client(call);
        std::optional<ServiceLock> service;
        if (client.service)
            service.emplace(*client.service, ServiceLock::For::client);
        claims.add(client.claims());
        return provision(call, client, transaction.journal());
    });
    if (done)
        return 0;
    if (!transaction.did_anything() && !call.given("tree") && !call.given("packages") &&
        call.get("root") != "adopt" && !call.given("install_hierarchy") &&
        !find_service(call.get("os_name"), call.get("os_version"),
                      base::lower_case(call.get("instruction_set"))))
        call.fail(
            base::tr("where the operating system lies was not said, and this server keeps no such service: "
                     "give tree, packages or install_hierarchy, or add the service (service/add)"),
            static_cast<int>(Code::not_found));
    transaction.take_back();
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
