// SPDX-License-Identifier: MIT
// A stand-in for the table interface: it remembers each edit as a line of text.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace fakes {

struct Column {
    int position, a, b;
    std::string match; // "(none)" for NULL
    std::string value; // "(none)" for NULL
    int flag;
    bool operator==(const Column &) const = default;
};

struct TableCall {
    std::string what; // "replace", "remove" or "get"
    std::string table;
    std::string separators, comment, comment_text; // "(none)" for NULL
    std::vector<Column> columns;
    int mode = 0;
};

struct Tables {
    std::vector<TableCall> calls;
    int new_list_status = 0;
    int fail_column = -1; // the position whose new_column fails
    int column_status = -12;
    int replace_status = 0, remove_status = 0, get_status = 0;
    std::string entry;                 // what get_db_entry finds
    std::vector<int> sizes;            // of the buffers that get_db_entry was given
    std::set<std::string> local_hosts; // is_local_host
    int lists = 0;                     // column lists alive
};

Tables &tables();
void reset_tables();

} // namespace fakes
