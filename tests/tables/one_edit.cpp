// SPDX-License-Identifier: MIT
// One edit of a table between two marks that a tracer of system calls can see. Ends with 0, or 1 and the
// edit's status on standard error.
//
//   one_edit replace|remove TABLE
#include <cstdio>
#include <string_view>
#include <sys/syscall.h>
#include <unistd.h>

#include "hostadm/tables.h"

namespace {

void mark() {
    syscall(SYS_getpgid, 0x7ab1e); // 502558; nobody else asks for this one
}

} // namespace

int main(int count, char **arguments) {
    if (count != 3)
        return 2;
    const bool replacing = std::string_view(arguments[1]) == "replace";
    col_list *list = nullptr;
    int status = new_col_list(&list, "\t ", "#", nullptr);
    if (status == 0)
        status = new_column(list, 0, 0, 0, "key", "key", 0);
    if (status == 0)
        status = new_column(list, 1, 1, 1, nullptr, "new", 0);
    if (status != 0)
        return 2;
    mark();
    status = replacing ? replace_db_entry(arguments[2], list, 3) : remove_db_entry(arguments[2], list);
    mark();
    free_col_list(list);
    if (status == 0)
        return 0;
    std::fprintf(stderr, "%d\n", status);
    return 1;
}
