/* SPDX-License-Identifier: MIT */
/* A program of somebody else, in C: calls each of the installed libraries. */
#include <hostadm.h>
#include <hostadm/framework.h>
#include <hostadm/platform.h>
#include <hostadm/tables.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(void) {
    char host[257];
    char *text = NULL;
    col_list *columns = NULL;
    if (sysv_sysinfo(SYSV_SI_HOSTNAME, host, sizeof host) < 1)
        return 1;
    if (sprintf_alloc(&text, "%s-%d", host, 7) < 0 || strncmp(text, host, strlen(host)) != 0)
        return 2;
    free(text);
    if (strcmp(make_boot_name("2.5", "Quorvel", "kel4", "kel4m"), "inetboot.kel4m.Quorvel_2.5") != 0)
        return 3;
    if (new_col_list(&columns, " \t", "#", "") != 0)
        return 4;
    free_col_list(columns);
    if (adm_init() != 0 || system_msgs[1] == NULL || sfs_top != NULL)
        return 5;
    puts("all four libraries answer");
    return 0;
}
