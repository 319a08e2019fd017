// SPDX-License-Identifier: MIT
#include "support/fake_tables.hpp"

#include <cerrno>
#include <cstdio>

#include "hostadm/tables.h"

namespace {

fakes::Tables state;

std::string shown(const char *text) {
    return text == nullptr ? "(none)" : text;
}

} // namespace

struct col_list {
    fakes::TableCall call;
};

namespace fakes {

Tables &tables() {
    return state;
}
void reset_tables() {
    state = Tables{};
}

} // namespace fakes

extern "C" {

int new_col_list(col_list **list, const char *separators, const char *comment, const char *comment_text) {
    if (state.new_list_status != 0)
        return state.new_list_status;
    *list = new col_list;
    ++state.lists;
    (*list)->call.separators = shown(separators);
    (*list)->call.comment = shown(comment);
    (*list)->call.comment_text = shown(comment_text);
    return 0;
}

int new_column(col_list *list, int position, int a, int b, const char *match, const char *value, int flag) {
    if (position == state.fail_column)
        return state.column_status;
    list->call.columns.push_back({position, a, b, shown(match), shown(value), flag});
    return 0;
}

void free_col_list(col_list *list) {
    if (list != nullptr)
        --state.lists;
    delete list;
}

static int finish(const char *what, const char *table, const col_list *list, int mode, int status) {
    fakes::TableCall call = list->call;
    call.what = what;
    call.table = table;
    call.mode = mode;
    state.calls.push_back(call);
    return status;
}

int get_db_entry(const char *table, col_list *list, char *buffer, int size) {
    const bool fits = state.entry.size() < static_cast<std::size_t>(size);
    if (fits)
        std::snprintf(buffer, static_cast<std::size_t>(size), "%s", state.entry.c_str());
    state.sizes.push_back(size);
    return finish("get", table, list, 0, state.get_status != 0 ? state.get_status : fits ? 0 : -ERANGE);
}

int replace_db_entry(const char *table, col_list *list, int mode) {
    return finish("replace", table, list, mode, state.replace_status);
}

int remove_db_entry(const char *table, col_list *list) {
    return finish("remove", table, list, 0, state.remove_status);
}

int is_local_host(const char *host) {
    return state.local_hosts.count(host) != 0;
}
}
