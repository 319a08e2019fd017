// SPDX-License-Identifier: MIT
#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/packages.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "service/setup_cachelet_service",
    .purpose = "install what cache-only clients of one OS service need",
    .arguments = {{.name = "release",
                   .kind = Kind::release,
                   .purpose = "release of the service, such as 2.4 or 2.5",
                   .required = true},
                  {.name = "arch",
                   .kind = Kind::word,
                   .purpose = "instruction-set architecture of the service (this server's)"}},
    .outputs = {changed_output},
    .columns = {{"package", "package that is needed"},
                {"result", "installed, or present when it was there before"}},
    .edits = {"the service's tree"},
};

struct Needed {
    std::string package;
    bool before, now;
};

void report(Call &call, const Needed &needed) {
    if (needed.now)
        call.row({{"package", needed.package}, {"result", needed.before ? "present" : "installed"}});
}

int work(Call &call) {
    const std::string release = call.get("release");
    const std::string arch = call.given("arch") ? call.get("arch") : server_architecture();
    const std::string method = call.method();
    if (!release.starts_with("2.") || release.size() < 3)
        return call.refuse(hostadm::base::tr(
            "release: {1} is no release of an OS service; they are numbered 2.4, 2.5, ...", release));
    const bool is_old = release == "2.4";
    const TemplateRecord record(HOSTADM_DATAADMIN "/Packages/" + arch + "/5.4", "KTVXmgr5r", arch, release);
    const auto client_support = [&] { return is_package_recorded(arch, release, "KTVXqcu"); };
    const auto administration = [&] { return is_package_recorded(arch, "5.4", "KTVXmgr5u"); };
    const bool had_support = client_support(), had_administration = is_old && administration(),
               had_template = is_old && record.is_recorded(), had_template_tree = record.exists();
    if (is_old) {
        if (const std::string why = record.obstacle(); !why.empty())
            fail(Code::unusable, hostadm::base::tr("nothing was changed: {1}", why));
        record.prepare();
        record.become_standard_input();
    }
    call.progress(hostadm::base::tr("installing the client support of release {1} for {2}", release, arch));
    int status = setup_cachelet_service(method.c_str(), arch.c_str(), release.c_str());
    // A template that has just been added ends the library's call as if it had failed; the next call goes on.
    if (status != 0 && is_old && !had_template && record.is_recorded())
        status = setup_cachelet_service(method.c_str(), arch.c_str(), release.c_str());

    if (is_old) {
        report(call, {"KTVXmgr5u", had_administration, administration()});
        report(call, {"KTVXmgr5r", had_template, record.is_recorded()});
    }
    report(call, {"KTVXqcu", had_support, status == 0 || client_support()});
    if (status != 0 && is_old && record.exists() && !had_template_tree && !record.is_recorded()) {
        record.remove_template();
        fail(Code::table,
             hostadm::base::tr("the template {1} could not be recorded in {2}; it has been taken away again",
                               record.path(), record.file()));
    }
    if (status == 0)
        tell_changed(call, !had_support || (is_old && (!had_administration || !had_template)));
    return status;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
