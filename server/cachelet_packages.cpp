// SPDX-License-Identifier: MIT
#include "server/cachelet_packages.hpp"

#include <algorithm>
#include <optional>
#include <string>

#include "base/translation.hpp"
#include "hostadm.h"
#include "server/failure.hpp"
#include "server/packages.hpp"
#include "server/services.hpp"

namespace hostadm::server {

namespace {

bool server_has_all() {
    const std::string arch = server_architecture(), release = server_release();
    return is_package_recorded(arch, release, "KTVXqsvu") && is_package_recorded(arch, release, "KTVXqsvr");
}

// The service that made the boot program inetboot.ARCH.NAME_VERSION.
std::optional<Service> service_of(const Client &client) {
    const std::string program = client.boot_program(), architecture = client.architecture();
    for (Service &service : all_services()) {
        const auto &known = service.architectures;
        if (program.ends_with("." + service.directory_name()) &&
            (known.empty() || std::find(known.begin(), known.end(), architecture) != known.end()))
            return std::move(service);
    }
    return std::nullopt;
}

std::string set_up_service(const Service &service) {
    return "service/setup_cachelet_service release=" + service.os_version +
           " arch=" + service.instruction_set;
}

} // namespace

void ensure_cachelet_packages(const method::Call &call, const Client &client, bool install, Report &report) {
    const bool had_server = server_has_all();
    if (!had_server && !install)
        fail(Code::unusable, base::tr("this server is not prepared for cache-only clients; hostadm run "
                                      "service/setup_cachelet_server prepares it, or setup=yes"));
    if (!had_server && setup_as_cachelet_server(call.method().c_str()) != 0)
        throw Recorded();
    report.step("server packages", !had_server, "KTVXqsvu, KTVXqsvr");

    const std::optional<Service> service = service_of(client);
    if (!service || !service->os_version.starts_with("2."))
        return;
    const bool had_service = is_package_recorded(service->instruction_set, service->os_version, "KTVXqcu");
    // That of 2.4 takes templates too, which is a request of its own.
    if (!had_service && (!install || service->os_version == "2.4"))
        fail(Code::unusable,
             base::tr("the service {1} is not prepared for cache-only clients; hostadm run {2} prepares it",
                      service->title(), set_up_service(*service)));
    if (!had_service && setup_cachelet_service(call.method().c_str(), service->instruction_set.c_str(),
                                               service->os_version.c_str()) != 0)
        throw Recorded();
    report.step("service packages", !had_service, "KTVXqcu for " + service->title());
}

} // namespace hostadm::server
