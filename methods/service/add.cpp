// SPDX-License-Identifier: MIT
// Lays out what this server needs to keep an operating system for clients; what a failure leaves half done is taken
// back.
#include <unistd.h>

#include "base/translation.hpp"
#include "hostadm/method.hpp"
#include "server/claims.hpp"
#include "server/new_service.hpp"
#include "server/page.hpp"
#include "server/patches.hpp"
#include "server/report.hpp"
#include "server/transaction.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "service/add",
    .purpose =
        "keep an operating system for clients on this server: executables, templates of roots, software "
        "records, catalogue, boot programs, patches",
    .arguments =
        {{"os_name", Kind::word, "name of the operating system", true},
         {"os_version", Kind::release, "version of it", true},
         {"instruction_set", Kind::word, "the instruction set that it is for, such as kel4", true},
         {"implementation_arch", Kind::word,
          "an implementation architecture that boots it, such as kel4m (default: those of which a boot "
          "program "
          "is found)"},
         {"tree", Kind::path, "make it of this ready root file system"},
         {"packages", Kind::path,
          "make it of these directories of packages, with commas between them; not for a 4.x release"},
         {"install_hierarchy", Kind::path, "make it of this export area, or tree"},
         {"boot_program", Kind::path, "its boot program (default: that of the tree or install hierarchy)"},
         {"patches", Kind::path,
          "take the patches for its instruction set from this store (default: Patches in the export area)"}},
    .outputs = {{"pathname", "the area of the service"}, changed_output},
    .columns = {{"step", "what was looked after"},
                {"result", "done, unchanged, kept, or warning"},
                {"detail", "where it is, or what to do"}},
    .edits = {"/export", "/tftpboot", "/var/sadm/system/admin/services", "/var/sadm/softinfo", patch_store},
};

int work(Call &call) {
    if (geteuid() != 0)
        fail(Code::not_root, hostadm::base::tr("only root may add an OS service"));
    const std::string subject =
        call.get("os_name") + " " + call.get("os_version") + " for " + call.get("instruction_set");
    Claims claims(call.method(), subject, {});
    Transaction transaction(call, subject);
    return transaction.run_whole([&] {
        const NewService wanted = read_new_service(call);
        const ServiceLock lock(wanted.service, ServiceLock::For::change);
        claims.add(wanted.claims());
        Report report;
        lay_out(call, wanted, transaction.journal(), report);
        call.set("pathname", wanted.service.area());
        report.tell(call);
        return 0;
    });
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
