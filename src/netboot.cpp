// SPDX-License-Identifier: MIT
// The two boot areas of the server: /tftpboot, where a client finds its boot program under its own address,
// and /rplboot, where it finds it under its own key.
#include <arpa/inet.h>
#include <cstdlib>
#include <initializer_list>
#include <new>
#include <string>
#include <unistd.h>

#include "base/boundary.hpp"
#include "hostadm.h"
#include "hostadm/platform.h"
#include "src/support/error.hpp"
#include "src/support/exit.hpp"
#include "src/support/text.hpp"

using hostadm::format;
using hostadm::record;
using hostadm::work_or_exit;
using hostadm::base::at_boundary;

namespace {

constexpr const char *tftpboot = "/tftpboot";
constexpr const char *rplboot = "/rplboot";

char this_host[257]; // who is named when a program is missing from an exported image

void fetch_this_host() {
    if (sysv_sysinfo(SYSV_SI_HOSTNAME, this_host, sizeof this_host) < 1)
        this_host[0] = '\0';
}

bool exists(const std::string &path) {
    return access(path.c_str(), F_OK) == 0;
}

[[noreturn]] void refuse_to_create(const char *method, const char *path) {
    record<hostadm::cannot_create>(method, path);
    std::exit(1);
}

void make_boot_directory(const char *method, const char *directory) {
    constexpr int was_there = -3;
    std::string path = directory;
    const int status = mkdir_path(path.data());
    if (status != 0 && status != was_there)
        refuse_to_create(method, directory);
}

// The address as a boot client names itself: eight upper-case hexadecimal digits. What is no address comes
// out as FFFFFFFF; callers have checked it.
std::string address_digits(const char *address) {
    return format("%08lX", static_cast<unsigned long>(ntohl(inet_addr(address))));
}

// Copies the first source that there is, unless the destination is there already: what clients boot from now
// is never replaced under them. False when there is nothing to copy; how the copy ended does not count, and what it
// made stays.
bool provide(const std::string &destination, std::initializer_list<std::string> sources) {
    if (exists(destination))
        return true;
    for (const std::string &source : sources) {
        if (exists(source)) {
            copyfile(destination.c_str(), source.c_str());
            return true;
        }
    }
    return false;
}

const char *boot_name_of(const char *os_version, const char *os_name, const char *inst_set,
                         const char *impl_arch) {
    const char *name = make_boot_name(os_version, os_name, inst_set, impl_arch);
    if (name == nullptr)
        throw std::bad_alloc();
    return name;
}

} // namespace

void make_tftpboot_dir(const char *method) {
    work_or_exit([&] {
        make_boot_directory(method, tftpboot);
        const std::string self = format("%s/%s", tftpboot, "tftpboot");
        if (mklink(".", self.c_str()) != 0)
            refuse_to_create(method, self.c_str());
    });
}

const char *init_tftpboot_dir(const char *method, const char *host, const char *, char *impl_arch,
                              const char *dirpath, const char *inst_set, const char *os_name,
                              const char *os_version) {
    return work_or_exit([&] {
        make_tftpboot_dir(method);
        const char *boot_name = boot_name_of(os_version, os_name, inst_set, impl_arch);
        const std::string program = format("%s/%s", tftpboot, boot_name);
        if (exists(program))
            return boot_name;
        static const char *source; // stays the answer's own storage, which is never freed
        source = install_bootprog_location(method, host, dirpath, inst_set, impl_arch, os_name, os_version);
        if (copyfile(program.c_str(), source) != 0) {
            record<hostadm::no_boot_program>(method, host, inst_set, impl_arch, os_name, os_version);
            std::exit(1);
        }
        return boot_name;
    });
}

int setup_tftpboot_dir(const char *method, const char *host, const char *client_addr, char *impl_arch,
                       const char *dirpath, const char *inst_set, const char *os_name,
                       const char *os_version) {
    const char *boot_name =
        init_tftpboot_dir(method, host, client_addr, impl_arch, dirpath, inst_set, os_name, os_version);
    return add_tftpboot_dir_client(method, boot_name, client_addr, impl_arch);
}

int add_tftpboot_dir_client(const char *method, const char *boot_name, const char *client_addr,
                            char *impl_arch) {
    return at_boundary(-1, [&] {
        const std::string digits = address_digits(client_addr);
        delete_tftpboot_dir_client(method, client_addr);
        mklink(boot_name, format("%s/%s", tftpboot, digits.c_str()).c_str());
        // The caller's own string becomes upper case, and stays so: callers rely on it.
        sysv_strupr(impl_arch);
        return mklink(boot_name, format("%s/%s.%s", tftpboot, digits.c_str(), impl_arch).c_str());
    });
}

int delete_tftpboot_dir_client(const char *, const char *client_addr) {
    return at_boundary(-1, [&] {
        // Everything that begins with the digits goes, so that no link of another architecture is left.
        return std::system(format("rm %s/%s*", tftpboot, address_digits(client_addr).c_str()).c_str());
    });
}

int cleanup_tftpboot_dir(const char *method, const char *client_addr) {
    return delete_tftpboot_dir_client(method, client_addr);
}

const char *init_rplboot_dir(const char *method, const char *, const char *impl_arch, const char *root_dir,
                             const char *inst_set, const char *os_name, const char *os_version) {
    return work_or_exit([&] {
        fetch_this_host();
        const char *boot_name = boot_name_of(os_version, os_name, inst_set, impl_arch);
        make_boot_directory(method, rplboot);

        const std::string image = format("%s/export/exec/%s.%s_%s", root_dir, inst_set, os_name, os_version);
        const std::string platform = format("%s/platform/%s/lib/fs/nfs", image.c_str(), impl_arch);
        // The boot program lies in lib/fs/nfs itself,
        // the two modules in a folder below it; images are laid so.
        const std::string plain = image + "/lib/fs/nfs";
        const std::string drivers = plain + "/drv.i86pc";
        const struct {
            const char *shared_name, *name;
            const std::string &fallback;
        } programs[] = {{boot_name, "inetboot", plain},
                        {"gluecode.com", "gluecode.com", drivers},
                        {"smc.com", "smc.com", drivers}};

        for (const auto &[shared_name, name, fallback] : programs) {
            if (!provide(format("%s/%s", rplboot, shared_name),
                         {platform + "/" + name, fallback + "/" + name})) {
                record<hostadm::no_boot_program>(method, this_host, inst_set, impl_arch, os_name, os_version);
                std::exit(1);
            }
        }
        return boot_name;
    });
}

int setup_rplboot_dir(const char *method, const char *client_key, const char *impl_arch, const char *root_dir,
                      const char *inst_set, const char *os_name, const char *os_version) {
    const char *boot_name =
        init_rplboot_dir(method, client_key, impl_arch, root_dir, inst_set, os_name, os_version);
    return add_rplboot_dir_client(method, boot_name, client_key);
}

int add_rplboot_dir_client(const char *, const char *boot_name, const char *client_key) {
    return at_boundary(-1, [&] {
        const struct {
            const char *suffix, *target;
        } links[] = {{"hw.com", "./smc.com"}, {"glue.com", "./gluecode.com"}, {"inetboot", boot_name}};
        int last = -1;
        for (const auto &[suffix, target] : links) {
            const std::string path = format("%s/%s.%s", rplboot, client_key, suffix);
            unlink(path.c_str());
            last = mklink(target, path.c_str());
        }
        return last;
    });
}

int delete_rplboot_dir_client(const char *, const char *client_key) {
    return at_boundary(-1, [&] {
        // A key that begins another client's key takes that client's files along; keys are of one length.
        return std::system(format("rm %s/%s*", rplboot, client_key).c_str());
    });
}

int cleanup_rplboot_dir(const char *method, const char *client_key) {
    return delete_rplboot_dir_client(method, client_key);
}
