// SPDX-License-Identifier: MIT
#include "src/support/table.hpp"

#include <cstdlib>
#include <cstring>

#include "src/support/error.hpp"
#include "src/support/text.hpp"

namespace hostadm {

std::string table_failure_detail(int status, const char *key, const char *table) {
    switch (status) {
    case table_locked:
        return message<table_is_locked>("", table);
    case no_such_line:
        return message<no_such_entry>("", key, table);
    default:
        return format(": %s", std::strerror(std::abs(status)));
    }
}

int report_table_failure(int status, const char *key, const char *table, const char *method) {
    record<table_edit_failed>(method, key, table, table_failure_detail(status, key, table).c_str());
    return table_not_updated;
}

} // namespace hostadm
