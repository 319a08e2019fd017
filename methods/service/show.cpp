// SPDX-License-Identifier: MIT
#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm/method.hpp"
#include "server/files.hpp"
#include "server/page.hpp"
#include "server/services.hpp"

namespace {

using namespace hostadm;
using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "service/show",
    .purpose = "show what this server keeps of an operating system for clients, and whether it is there",
    .arguments = {{"os_name", Kind::word, "name of the operating system", true},
                  {"os_version", Kind::release, "version of it", true},
                  {"instruction_set", Kind::word, "the instruction set that it is for", true}},
    .outputs = {{"record", "the file that records it"},
                {"architectures", "implementation architectures of which it has boot programs"},
                {"made_of", "the tree, packages or install hierarchy that it was made of"},
                {"clients", "the clients that use it"}},
    .columns = {{"part", "template, executables, boot program or patch"},
                {"name", "of the package, the architecture or the patch"},
                {"place", "where it lies"},
                {"there", "yes or no"}},
    .values = service_values,
};

void tell(Call &call, const std::string &part, const std::string &name, const std::string &place) {
    call.row({{"part", part}, {"name", name}, {"place", place}, {"there", exists(place) ? "yes" : "no"}});
}

int work(Call &call) {
    const std::string instruction_set = base::lower_case(call.get("instruction_set"));
    const auto service = find_service(call.get("os_name"), call.get("os_version"), instruction_set);
    if (!service)
        fail(Code::not_found,
             base::tr("there is no service {1} {2} for {3}; service/list tells those that there are",
                      call.get("os_name"), call.get("os_version"), instruction_set));
    call.set("record", service->record_file());
    call.set("architectures", base::joined(service->architectures));
    call.set("made_of", service->source);
    call.set("clients", base::joined(clients_of(*service)));
    for (const std::string &place : service->templates)
        tell(call, "template", service->package_of(place), place);
    if (!service->executables.empty())
        tell(call, "executables", "usr", service->executables);
    for (const auto &[architecture, file] : service->boot_programs)
        tell(call, "boot program", architecture, file);
    for (const std::string &patch : service->patches)
        tell(call, "patch", patch, service->patch_place(patch));
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
