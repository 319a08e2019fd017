// SPDX-License-Identifier: MIT
#include "support/table.hpp"

#include <cstdlib>
#include <cstring>

#include "support/error.hpp"
#include "support/text.hpp"

namespace hostadm {

std::string table_failure_detail(int status, const char *key, const char *table) {
    constexpr int no_such_line = -2;
    constexpr int table_locked = -26;
    switch (status) {
    case table_locked:
        return format(message(53), "", table);
    case no_such_line:
        return format(message(8), "", key, table);
    default:
        return format(": %s", std::strerror(std::abs(status)));
    }
}

} // namespace hostadm
