/* SPDX-License-Identifier: MIT */
/* A method in C that cleans up in an exit handler, as one does behind an operation that ends the process. */
#include <stdlib.h>

#include "hostadm/framework.h"

static adm_arg *argument;

static void clean_up(void) {
    adm_arg *again = NULL;
    if (adm_args_geti("text", ADM_STRING, &again) == 0 && again->value == argument->value)
        adm_args_set("text", ADM_STRING, argument->length, argument->value);
}

int main(int argc, char **argv) {
    (void)argc;
    (void)argv;
    /* Registered first, so that it runs behind every handler of the libraries. */
    atexit(clean_up);
    if (adm_init() != 0 || adm_args_geti("text", ADM_STRING, &argument) != 0)
        return 2;
    exit(0);
}
