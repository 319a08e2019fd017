// SPDX-License-Identifier: MIT
// Letter case of ASCII text, whatever the locale.
#include "hostadm/platform.h"

namespace {

constexpr char distance = 'a' - 'A';

} // namespace

char *sysv_strlwr(char *text) {
    for (char *c = text; c != nullptr && *c != '\0'; ++c)
        if (*c >= 'A' && *c <= 'Z')
            *c = static_cast<char>(*c + distance);
    return text;
}

char *sysv_strupr(char *text) {
    for (char *c = text; c != nullptr && *c != '\0'; ++c)
        if (*c >= 'a' && *c <= 'z')
            *c = static_cast<char>(*c - distance);
    return text;
}
