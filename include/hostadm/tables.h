/* SPDX-License-Identifier: MIT */
#ifndef HOSTADM_TABLES_H
#define HOSTADM_TABLES_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

typedef struct col_list col_list;

int new_col_list(col_list **list, const char *separators, const char *comment, const char *comment_text);
int new_column(col_list *list, int position, int a, int b, const char *match, const char *value, int flag);
void free_col_list(col_list *list);
int get_db_entry(const char *table, col_list *list, char *buffer, int size);
int replace_db_entry(const char *table, col_list *list, int mode);
int remove_db_entry(const char *table, col_list *list);
int is_local_host(const char *host);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
