// SPDX-License-Identifier: MIT
// Builds a diskless client's root file system on the server, and holds the hooks that package tools call.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "base/boundary.hpp"
#include "base/immortal.hpp"
#include "base/owners.hpp"
#include "hostadm.h"
#include "src/support/temporary_file.hpp"
#include "src/support/text.hpp"

using hostadm::format;
using hostadm::base::at_boundary;
using hostadm::base::Stream;

namespace {

constexpr const char *method = "create_clnt_root";

int g_dirty; // something has been installed: the directories are no longer ours to remove
int howfar;  // 1: an admin file has been made
hostadm::base::Immortal<std::string> admin_file_name; // its path

// What the package tools expect to find in a root, in the order in which it is made.
constexpr const char *directories[] = {"/var", "/var/sadm", "/var/sadm/softinfo", "/var/sadm/install_data",
                                       "/usr"};

// Answers for the package tools: ask nothing, stop only when space is short. Closed by an empty line.
constexpr const char *admin_lines[] = {"mail=\n",
                                       "instance=unique\n",
                                       "partial=nocheck\n",
                                       "runlevel=nocheck\n",
                                       "idepend=nocheck\n",
                                       "rdepend=nocheck\n",
                                       "space=quit\n",
                                       "setuid=nocheck\n",
                                       "conflict=nocheck\n",
                                       "action=nocheck\n",
                                       "basedir=/\n",
                                       ""};

// The software catalogue of a service: where newer services keep each file, and where older ones do.
constexpr struct {
    const char *new_path, *old_path;
} catalogue[] = {{"/var/sadm/system/admin/.clustertoc", "/var/sadm/install_data/.clustertoc"},
                 {"/var/sadm/system/admin/CLUSTER", "/var/sadm/install_data/CLUSTER"},
                 {"/var/sadm/system/admin/INST_RELEASE", "/var/sadm/softinfo/INST_RELEASE"}};

// Makes the admin file under a name that nobody else can have taken, writable by its owner alone.
Stream open_admin_file() {
    const std::optional<std::string> path = hostadm::create_unique("/tmp/admin.XXXXXX");
    if (!path)
        return nullptr;
    Stream stream(std::fopen(path->c_str(), "we"));
    if (stream == nullptr) {
        unlink(path->c_str());
        return nullptr;
    }
    std::setvbuf(stream.get(), nullptr, _IONBF, 0); // so that each write tells whether it reached the file
    admin_file_name.get() = *path;
    howfar = 1;
    return stream;
}

bool write_admin_lines(std::FILE *stream) {
    for (const char *const *line = admin_lines; **line != '\0'; ++line)
        if (std::fputs(*line, stream) < 1)
            return false;
    return true;
}

std::string install_command(bool copy, const char *root, const char *directory) {
    if (copy)
        return format("cd %s; /usr/bin/find . -depth -print | /usr/bin/cpio -pdmu %s", directory, root);
    return format("/usr/sbin/pkgadd -S -n -R %s -a %s -d %s all", root, admin_file_name.get().c_str(),
                  directory);
}

int run_or_cleanup(const std::string &command, const char *root) {
    const int status = do_systemcmd(command.c_str(), method);
    if (status != 0)
        cleanup(root);
    return status;
}

} // namespace

int create_clnt_root(const char *root, const char *const os_service[], const struct package_source *sources) {
    return at_boundary(-1, [&] {
        if (const int status = setup_environment(root); status != 0)
            return status;

        const char *os_name = os_service[1];
        const char *os_version = os_service[2];
        const bool copy = std::strncmp(os_version, "4.", 2) == 0;

        g_dirty = 0;
        for (const package_source *source = sources; source != nullptr; source = source->next) {
            if (const int status = run_or_cleanup(install_command(copy, root, source->path), root);
                status != 0)
                return status;
            g_dirty = 1;
        }
        if (copy)
            return 0;

        for (const auto &[new_path, old_path] : catalogue) {
            const std::string quiet = format("set -f ; /bin/cp /export/%s_%s%s %s%s >> /dev/null 2>&1",
                                             os_name, os_version, new_path, root, new_path);
            if (std::system(quiet.c_str()) == 0)
                continue;
            const std::string loud =
                format("/bin/cp /export/%s_%s%s %s%s", os_name, os_version, old_path, root, old_path);
            if (const int status = run_or_cleanup(loud, root); status != 0)
                return status;
        }
        return 0;
    });
}

int setup_environment(const char *root) {
    return at_boundary(-1, [&] {
        constexpr int mode = 0775, owner = 0, group = 3;
        for (auto made = std::begin(directories); made != std::end(directories); ++made) {
            const int status = mkdir_chown(root, *made, mode, owner, group);
            if (status == 0)
                continue;
            while (made != std::begin(directories))
                rmdir((std::string(root) + *--made).c_str());
            return status;
        }

        Stream stream = open_admin_file();
        if (stream == nullptr)
            return -1;
        const bool written = write_admin_lines(stream.get());
        if (std::fclose(stream.release()) != 0 || !written) {
            cleanup(root);
            return -1;
        }
        return 0;
    });
}

void cleanup(const char *root) {
    at_boundary(-1, [&] {
        if (howfar == 1)
            unlink(admin_file_name.get().c_str());
        if (g_dirty == 0) {
            for (const char *directory :
                 {"/var/sadm/install_data", "/var/sadm/softinfo", "/var/sadm", "/var", "/usr"})
                rmdir((std::string(root) + directory).c_str());
        }
        return 0;
    });
}

int mkdir_chown(const char *root, const char *path, int mode, int uid, int gid) {
    return at_boundary(ENOMEM, [&] {
        const std::string directory = format("%s%s", root, path);
        if (mkdir(directory.c_str(), static_cast<mode_t>(mode)) != 0 && errno != EEXIST)
            return errno;
        if (chown(directory.c_str(), static_cast<uid_t>(uid), static_cast<gid_t>(gid)) == 0)
            return 0;
        const int why = errno;
        rmdir(directory.c_str()); // also one that was there before: only an empty one can go
        return why;
    });
}

// The package tools call these at fixed points; a client's root is made without questions and without a
// progress display, so they have nothing to do.
void interactive_pkgadd(void) {}
void interactive_pkgrm(void) {}
int start_pkgadd(void) {
    return 1;
}
int end_pkgadd(void) {
    return 1;
}
void cleanup_and_exit(void) {
    std::exit(2);
}
void progress_init(void) {}
void progress_done(void) {}
void progress_cleanup(void) {}
