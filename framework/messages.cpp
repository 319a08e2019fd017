// SPDX-License-Identifier: MIT
// The texts of the error codes. Each begins with the method's name, so that one formatted with an empty name
// begins with ": " and can stand behind another; only that of code 0, which says that all is well, has no
// arguments at all.
#include "hostadm/framework.h"

namespace {

// Marks a text for the message catalogue; the library looks the translation up when it records an error.
constexpr const char *translatable(const char *text) {
    return text;
}

// Codes that nothing records have no text of their own.
constexpr const char *unused = translatable("%s: the operation failed");

} // namespace

extern "C" {

const char *const system_msgs[] = {
    /*  0 */ translatable("all is well"),
    /*  1 */ translatable("%s: the argument %s is missing or empty; give it a value"),
    /*  2 */ unused,
    /*  3 */ unused,
    /*  4 */ unused,
    /*  5 */ unused,
    /*  6 */ unused,
    /*  7 */ unused,
    /*  8 */ translatable("%s: there is no line for %s in %s"),
    /*  9 */ unused,
    /* 10 */ translatable("%s: \"%s\" is no value for the argument %s; `hostadm help` says what it accepts"),
    /* 11 */ unused,
    /* 12 */ unused,
    /* 13 */ unused,
    /* 14 */ unused,
    /* 15 */ unused,
    /* 16 */ unused,
    /* 17 */ unused,
    /* 18 */ unused,
    /* 19 */ unused,
    /* 20 */ unused,
    /* 21 */ unused,
    /* 22 */ translatable("%s: the change of a system table could not be prepared; memory may be short"),
    /* 23 */ translatable("%s: %s could not mount %s: %s"),
    /* 24 */ translatable("%s: %s could not unmount %s: %s"),
    /* 25 */ unused,
    /* 26 */ translatable("%s: only file systems of type %s can be shared"),
    /* 27 */ translatable("%s: %s failed for %s: %s"),
    /* 28 */ unused,
    /* 29 */
    translatable("%s: the directory %s below is already shared with other options (%s); unshare it, or share "
                 "%s with the same options instead of (%s)"),
    /* 30 */
    translatable("%s: %s cannot be shared with the options (%s): its parent %s is already shared with others "
                 "(%s) by %s; unshare the parent, or use the same options"),
    /* 31 */ unused,
    /* 32 */ unused,
    /* 33 */ unused,
    /* 34 */ unused,
    /* 35 */ unused,
    /* 36 */ unused,
    /* 37 */ translatable("%s: the client's mount table could not be changed: %s: %s"),
    /* 38 */ unused,
    /* 39 */ unused,
    /* 40 */
    translatable("%s: cannot create %s; is the disk full or read-only, or something else in its place?"),
    /* 41 */ unused,
    /* 42 */ translatable("%s: cannot start the daemon %s: %s"),
    /* 43 */ unused,
    /* 44 */ translatable("%s: cannot copy the install profile %s to the client; does it exist?"),
    /* 45 */ unused,
    /* 46 */ unused,
    /* 47 */ unused,
    /* 48 */ unused,
    /* 49 */
    translatable("%s: %s was not run: %s is shared with others than %s; unshare it without naming a client, "
                 "or share it anew for those that are left"),
    /* 50 */ unused,
    /* 51 */ unused,
    /* 52 */ unused,
    /* 53 */ translatable("%s: %s is locked by another program; try again when that has finished"),
    /* 54 */ unused,
    /* 55 */ unused,
    /* 56 */ translatable("%s: the method %s could not be run on %s: %s"),
    /* 57 */ unused,
    /* 58 */ unused,
    /* 59 */ unused,
    /* 60 */ unused,
    /* 61 */ unused,
    /* 62 */ unused,
    /* 63 */ unused,
    /* 64 */ unused,
    /* 65 */ unused,
    /* 66 */
    translatable("%s: nothing on %s knows the install paths for %s, %s, %s %s; are these right, and does the "
                 "install hierarchy hold them?"),
    /* 67 */
    translatable("%s: no boot program on %s for %s, %s, %s %s, or it could not be copied; does the install "
                 "hierarchy hold it?"),
    /* 68 */ unused,
    /* 69 */ unused,
    /* 70 */ translatable("%s: cannot update the entry for %s in %s%s"),
    /* 71 */ unused,
    /* 72 */ unused,
    /* 73 */ unused,
    /* 74 */ unused,
    /* 75 */ unused,
    /* 76 */ unused,
    /* 77 */ unused,
    /* 78 */ unused,
    /* 79 */ unused,
    /* 80 */ unused,
    /* 81 */ unused,
    /* 82 */ unused,
    /* 83 */ unused,
    /* 84 */ unused,
    /* 85 */ unused,
    /* 86 */ unused,
    /* 87 */ unused,
    /* 88 */ unused,
    /* 89 */ unused,
    /* 90 */ unused,
    /* 91 */ translatable("%s: the command could not be started: %s: %s"),
    /* 92 */ translatable("%s: the command failed: %s: %s"),
    /* 93 */ unused,
    /* 94 */ unused,
    /* 95 */ unused,
    /* 96 */ translatable("%s: the package %s is missing; is this the right package directory?"),
    /* 97 */
    translatable(
        "%s: the template directory %s exists already, but %s does not list it; move it away and try again"),
};
}
