// SPDX-License-Identifier: MIT
// Recording failures with the administration framework.
#pragma once

#include <libintl.h>

#include "hostadm/framework.h"

namespace hostadm {

// The catalogue text of an error code.
inline const char *message(int code) {
    return dgettext("system_msgs", system_msgs[code]);
}

// The texts are the format, also that of code 0, which takes no argument.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
// Records an error with its catalogue text. The first argument of every text is the method's name.
template <typename... Arguments> void record(int code, Arguments... arguments) {
    adm_err_setf(nullptr, code, message(code), arguments...);
}
#pragma GCC diagnostic pop

// Records an error; the status of an operation that answers with the code it records.
template <typename... Arguments> int fail(int code, Arguments... arguments) {
    record(code, arguments...);
    return code;
}

} // namespace hostadm
