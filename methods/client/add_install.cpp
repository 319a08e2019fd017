// SPDX-License-Identifier: MIT
// What a client needs on this server to boot and have an operating system installed on its own disk; what a failure
// leaves half done is taken back.
#include <unistd.h>

#include "base/translation.hpp"
#include "hostadm/method.hpp"
#include "server/adapters.hpp"
#include "server/claims.hpp"
#include "server/install_client.hpp"
#include "server/page.hpp"
#include "server/report.hpp"
#include "server/transaction.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "client/add_install",
    .purpose = "let a client boot from this server to have an operating system installed on its own disk",
    .arguments = {{"hostname", Kind::host, "the client's name", true},
                  {"address", Kind::address, "its IPv4 address", true},
                  {"ethernet", Kind::ethernet, "its Ethernet address", true},
                  {"instruction_set", Kind::word, "its instruction set, such as kel4", true},
                  {"implementation_arch", Kind::word, "its implementation architecture, such as kel4m", true},
                  {"os_name", Kind::word, "name of the operating system", true},
                  {"os_version", Kind::release, "version of it", true},
                  {"install_hierarchy", Kind::path, "what it is installed from, which is shared", true},
                  {"install_config", Kind::path, "a directory that says how to install, which is shared too"},
                  {"boot_program", Kind::path, "the boot program, if the install hierarchy does not hold it"},
                  {"share_options", Kind::options, "with which these directories are shared", false, "ro"},
                  {"server", Kind::host,
                   "this server's name, as the client is told (default: this host's name)"}},
    .outputs = {{"pathname", "the install hierarchy"},
                {"boot_program", "name of the boot program in /tftpboot"},
                changed_output},
    .columns = {{"step", "what was looked after"},
                {"result", "done, unchanged, or warning"},
                {"detail", "what stands there now, or what to do"}},
    .edits = {"/tftpboot", "/etc/bootparams", "/etc/hosts", "/etc/ethers", "/etc/dfs/dfstab"},
    .starts = {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd", "/usr/sbin/in.rarpd"},
    .shares = {"install_hierarchy=", "install_config="},
    .values = new_client_values,
};

int work(Call &call) {
    if (geteuid() != 0)
        fail(Code::not_root, base::tr("only root may add a client"));
    Claims claims(call.method(), call.get("hostname"), {{Claim::Kind::name, call.get("hostname")}});
    Transaction transaction(call, call.get("hostname"));
    return transaction.run_whole([&] {
        require_command("/usr/sbin/share", base::tr("shares directories"));
        const InstallClient wanted = read_install_client(call);
        claims.add(wanted.claims());
        Report report;
        provision(call, wanted, transaction.journal(), report);
        report.tell(call);
        return 0;
    });
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
