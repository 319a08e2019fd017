/* SPDX-License-Identifier: MIT */
/* A method in C with nothing but the framework: bytes in, bytes out. */
#include <stdio.h>
#include <string.h>

#include "hostadm/framework.h"

int main(void) {
    adm_arg *bytes;
    if (adm_init() != 0)
        return 1;
    if (adm_args_geti("bytes", ADM_STRING, &bytes) != 0) {
        adm_err_setf(0, 1, "%s: the argument %s is missing", "plain", "bytes");
        return 1;
    }
    return adm_args_set("bytes", ADM_STRING, bytes->length, bytes->value);
}
