// SPDX-License-Identifier: MIT
// Patches: applying them to a client, and asking which files they deliver.
#include <cstdlib>
#include <string>
#include <sys/stat.h>

#include "base/boundary.hpp"
#include "hostadm.h"
#include "src/support/text.hpp"

namespace {

using namespace hostadm;

bool exists(const char *path) {
    struct stat status;
    return !is_empty(path) && stat(path, &status) == 0;
}

} // namespace

int apply_patches(const char *client_root) {
    return base::at_boundary(1, [&] {
        const std::string tool = format("%s/bin/%s", HOSTADM_OPTADMIN, "drelpatch");
        if (!exists(client_root) || !exists(tool.c_str()))
            return 0;
        return do_systemcmd(format("%s/bin/%s -C %s", HOSTADM_OPTADMIN, "drelpatch", client_root).c_str(),
                            "");
    });
}

int file_in_patches(const char *arch, const char *file) {
    return base::at_boundary(-1, [&] {
        const std::string script =
            format("ret=0\n"
                   "for i in `/usr/bin/grep %s %s/Patches/*/*/pkgmap | \t\t\tawk -F/ '{print $6}' | uniq`\n"
                   "do\n"
                   "\t grep \"^ARCH=%s\" %s/Patches/$i/*/pkginfo > /dev/null 2>&1\n"
                   "\t if [ $? -eq 0 ]; then\n"
                   "        ret=1\n"
                   "    fi\n"
                   "done\n"
                   "exit $ret",
                   file, HOSTADM_DATAADMIN, arch, HOSTADM_DATAADMIN);
        return system(script.c_str());
    });
}
