// SPDX-License-Identifier: MIT
// The argument by which methods that edit /etc/bootparams are told where a client's boot parameters are
// kept. Only the file can be edited here.
#pragma once

#include <string>

#include "base/translation.hpp"
#include "hostadm/method.hpp"
#include "server/failure.hpp"

namespace hostadm::server {

inline const method::Argument edited_nameservice{
    .name = "nameservice",
    .kind = method::Kind::choice,
    .purpose = "where they are kept; only /etc/bootparams (ufs) can be edited here",
    .default_value = "ufs",
    .choices = {"ufs", "nis", "nis_plus"}};

// Refuses the call where they are kept elsewhere.
inline void check_nameservice(const method::Call &call) {
    if (call.get(edited_nameservice.name) != "ufs")
        refuse(base::tr("the nameservice can only be ufs here; NIS maps are made from the files of their "
                        "master server: do it there and rebuild the map"));
}

} // namespace hostadm::server
