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
    .name = "service/add_template_package",
    .purpose =
        "add a package to the templates of which an OS service's client roots are made; an older version of "
        "it for the same architecture is replaced",
    .arguments = {{.name = "package_dir",
                   .kind = Kind::path,
                   .purpose = "directory that holds the package's directory",
                   .required = true},
                  {.name = "package", .kind = Kind::word, .purpose = "name of the package", .required = true},
                  {.name = "release",
                   .kind = Kind::release,
                   .purpose = "release of the service, such as 2.4 or 2.5",
                   .required = true},
                  {.name = "arch",
                   .kind = Kind::word,
                   .purpose = "instruction-set architecture of the service (this server's)"}},
    .outputs = {{"result", "done, or unchanged when it was recorded already"},
                {"template", "directory of the template"},
                {"record", "file that records the service's templates"},
                changed_output},
    .edits = {"the service's templates"},
};

int work(Call &call) {
    const std::string directory = call.get("package_dir"), package = call.get("package");
    const std::string release = call.get("release"), method = call.method();
    const std::string arch = call.given("arch") ? call.get("arch") : server_architecture();
    if (!release.starts_with("2.") || release.size() < 3)
        return call.refuse(hostadm::base::tr(
            "release: {1} is no release of an OS service; they are numbered 2.4, 2.5, ...", release));
    if (package == "." || package == "..")
        return call.refuse(hostadm::base::tr("package: {1} is no name of a package", package));
    const TemplateRecord record(directory, package, arch, release);
    if (const std::string why = record.obstacle(); !why.empty())
        fail(Code::unusable, hostadm::base::tr("nothing was changed: {1}", why));

    const bool was_recorded = record.is_recorded(), had_template = record.exists();
    record.prepare();
    record.become_standard_input();
    call.progress(
        hostadm::base::tr("adding {1} to the templates of release {2} for {3}", package, release, arch));
    const int status = add_pkg_to_templates(method.c_str(), directory.c_str(), package.c_str(), arch.c_str(),
                                            release.c_str());
    // The status tells an addition from a failure in no way that can be relied on: only the records do.
    if (record.is_recorded()) {
        call.set("result", was_recorded ? "unchanged" : "done");
        call.set("template", record.path());
        call.set("record", record.file());
        tell_changed(call, !was_recorded);
        return 0;
    }
    if (!had_template && record.exists())
        record.remove_template();
    if (status == 0)
        fail(
            Code::table,
            hostadm::base::tr(
                "{1} names {2}, but lacks one of its two lines; remove what it has of it, and run this again",
                record.file(), record.path()));
    if (status != 1)
        fail(Code::table,
             hostadm::base::tr("the template could not be recorded in {1}; it has been taken away again",
                               record.file()));
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
