// SPDX-License-Identifier: MIT
// Which name-service databases a method is to update, read from the method's own arguments.
#include <cstdlib>
#include <cstring>

#include "hostadm.h"
#include "hostadm/platform.h"
#include "src/support/error.hpp"
#include "src/support/text.hpp"

using hostadm::is_empty;
using hostadm::record;

namespace {

constexpr struct {
    const char *keyword;
    int mask;
} services[] = {
    {"ufs", HOSTADM_UFS}, {"nis", HOSTADM_NIS}, {"nis_plus", HOSTADM_NIS_PLUS}, {"all", HOSTADM_ALL}};

// The value of an input argument of the method, or NULL when it is missing or empty.
const char *input(const char *name) {
    adm_arg *argument = nullptr;
    if (adm_args_geti(name, ADM_STRING, &argument) != 0 || argument == nullptr || is_empty(argument->value))
        return nullptr;
    return argument->value;
}

[[noreturn]] void missing(const char *method, const char *name) {
    record<hostadm::argument_missing>(method, name);
    std::exit(1);
}

const char *required(const char *method, const char *name) {
    const char *value = input(name);
    if (value == nullptr)
        missing(method, name);
    return value;
}

int mask_of(const char *method, const char *keyword) {
    for (const auto &service : services)
        if (std::strcmp(service.keyword, keyword) == 0)
            return service.mask;
    record<hostadm::bad_argument>(method, keyword, "nameservice");
    std::exit(1);
}

// The domain argument, or else the system's own domain, which goes into the caller's buffer.
const char *domain_or_system(const char *method, char *buffer, long size) {
    if (const char *domain = input("domain"))
        return domain;
    if (sysv_sysinfo(SYSV_SI_SRPC_DOMAIN, buffer, size) < 1)
        missing(method, "domain");
    return buffer;
}

void store_copy(char **output, const char *text) {
    if (output == nullptr)
        return;
    *output = hostadm::duplicate(text);
    if (*output == nullptr)
        std::exit(1);
}

} // namespace

const char *get_db_strings(const char *method, char **nameservice, int *mask, char **domain,
                           char **db_hostname) {
    const char *keyword = required(method, "nameservice");
    const int selected = mask_of(method, keyword);

    char system_domain[257] = "";
    const char *domain_name = "";
    if ((selected & (HOSTADM_NIS | HOSTADM_NIS_PLUS)) != 0)
        domain_name = domain_or_system(method, system_domain, sizeof system_domain);

    const char *host = "";
    if ((selected & HOSTADM_UFS) != 0)
        host = required(method, "db_hostname");

    store_copy(nameservice, keyword);
    if (mask != nullptr)
        *mask = selected;
    store_copy(domain, domain_name);
    store_copy(db_hostname, host);
    return host;
}
