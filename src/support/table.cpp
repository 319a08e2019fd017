// SPDX-License-Identifier: MIT
#include "src/support/table.hpp"

#include <cstdlib>
#include <cstring>

#include "src/support/error.hpp"
#include "src/support/text.hpp"

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

int report_table_failure(int status, const char *key, const char *table, const char *method) {
    constexpr int table_failure = 70;
    record(table_failure, method, key, table, table_failure_detail(status, key, table).c_str());
    return table_not_updated;
}

} // namespace hostadm
