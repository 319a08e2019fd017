// SPDX-License-Identifier: MIT
// Takes away an operating system that this server keeps for clients, if none uses it.
#include <unistd.h>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm/method.hpp"
#include "server/claims.hpp"
#include "server/new_service.hpp"
#include "server/page.hpp"
#include "server/patches.hpp"
#include "server/report.hpp"
#include "server/transaction.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "service/remove",
    .purpose =
        "take away an operating system that this server keeps for clients; refused while a client uses it",
    .arguments = {{"os_name", Kind::word, "name of the operating system", true},
                  {"os_version", Kind::release, "version of it", true},
                  {"instruction_set", Kind::word, "the instruction set that it is for", true}},
    .outputs = {changed_output},
    .columns = {{"step", "what was looked after"},
                {"result", "done, unchanged, or kept"},
                {"detail", "what is gone, or why it stays"}},
    .edits = {"/export", "/tftpboot", "/var/sadm/system/admin/services", "/var/sadm/softinfo", patch_store,
              "/etc/dfs/dfstab"},
    .shares = {"the service's executables"},
    .values = service_values,
};

int remove(Call &call, Claims &claims, Journal &journal) {
    Report report;
    const std::string instruction_set = base::lower_case(call.get("instruction_set"));
    check_service_names(call.get("os_name"), instruction_set, "");
    const auto service = find_service(call.get("os_name"), call.get("os_version"), instruction_set);
    if (!service) {
        report.step("service", false,
                    base::tr("there is no service {1} {2} for {3}", call.get("os_name"),
                             call.get("os_version"), instruction_set));
        report.tell(call);
        return 0;
    }
    const ServiceLock lock(*service, ServiceLock::For::change);
    claims.add({{Claim::Kind::path, service->area()}, {Claim::Kind::path, service->exec_directory()}});
    check_nobody_uses(*service);
    journal.note(NewTable{service->record_file()}); // from here on it is no longer whole
    remove_service(call, *service, report);
    report.tell(call);
    return 0;
}

int work(Call &call) {
    if (geteuid() != 0)
        fail(Code::not_root, base::tr("only root may remove an OS service"));
    const std::string subject =
        call.get("os_name") + " " + call.get("os_version") + " for " + call.get("instruction_set");
    Claims claims(call.method(), subject, {});
    Transaction transaction(call, subject);
    if (transaction.run([&] { return remove(call, claims, transaction.journal()); }))
        return 0;
    if (transaction.did_anything())
        call.left_undone(base::tr(
            "the service {1} may be gone in part; run this again when the cause is mended", subject));
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
