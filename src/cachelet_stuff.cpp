// SPDX-License-Identifier: MIT
// Cache-only clients: which clients boot from this host, their mount tables and install profiles, and the
// packages that they and their server need.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <libintl.h>
#include <map>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "base/boundary.hpp"
#include "base/immortal.hpp"
#include "hostadm.h"
#include "hostadm/platform.h"
#include "hostadm/tables.h"
#include "src/support/client_list.hpp"
#include "src/support/command.hpp"
#include "src/support/error.hpp"
#include "src/support/replacement.hpp"
#include "src/support/temporary_file.hpp"
#include "src/support/text.hpp"

namespace {

using namespace hostadm;

// The clients whose root this host serves, in the order in which they were found.
ClientList &list_of_hosts() {
    static base::Immortal<ClientList> list;
    return list.get();
}

[[noreturn]] void out_of_memory(const char *what) {
    std::perror(gettext(what));
    std::exit(-1);
}

// The enumeration ends the process when memory is out.
template <typename Work> void without_memory_to_spare(Work work) {
    base::translated_at_boundary(work, [](int error) {
        errno = error;
        out_of_memory("Can't alloc space for struct");
    });
}

// The framework's keyword for a source of the name-service switch; NULL for a source that has no bootparams.
const char *nameservice_of(const char *source) {
    const std::string_view name = source == nullptr ? "" : source;
    if (name == "files")
        return "ufs";
    if (name == "nis")
        return "nis";
    if (name == "nisplus")
        return "nis_plus";
    return nullptr;
}

// The handles of one performed method, freed together.
struct PerformedMethod {
    PerformedMethod() = default;
    ~PerformedMethod() {
        if (input != nullptr)
            adm_args_freeh(input);
        if (output != nullptr)
            adm_args_freeh(output);
        if (error != nullptr)
            adm_err_freeh(error);
    }
    PerformedMethod(const PerformedMethod &) = delete;
    PerformedMethod &operator=(const PerformedMethod &) = delete;

    adm_args *input = nullptr;
    adm_args *output = nullptr;
    adm_error *error = nullptr;
};

// is_local_host, asked once for each server of one walk.
class LocalServers {
public:
    bool contain(const char *server) {
        auto known = known_.find(std::string_view(server));
        if (known == known_.end())
            known = known_.emplace(server, is_local_host(server) != 0).first;
        return known->second;
    }

private:
    std::map<std::string, bool, std::less<>> known_;
};

// The boot type of an item list; absent when the list holds no known item at all.
struct BootType {
    explicit BootType(const char *items)
        : parsed(parse_bootparams_entry(items, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                        &text, nullptr, nullptr, nullptr, nullptr, nullptr) == 0) {}
    ~BootType() { std::free(text); }
    BootType(const BootType &) = delete;
    BootType &operator=(const BootType &) = delete;

    char *text = nullptr;
    bool parsed;
};

// Adds the client of one row if its root is served by this host. The item list is cut up in place.
void add_if_local(const char *hostname, char *items, LocalServers &local) {
    const BootType boottype(items);
    if (!boottype.parsed)
        return;
    constexpr std::string_view root_key = "root=";
    char *server = std::strstr(items, root_key.data());
    if (server == nullptr)
        return;
    server += root_key.size();
    char *colon = std::strchr(server, ':');
    if (colon == nullptr)
        return;
    char *root_path = std::strchr(colon, '/');
    if (root_path == nullptr)
        return;
    *colon = '\0';
    if (!local.contain(server))
        return;
    root_path[std::strcspn(root_path, " \t\n")] = '\0';
    add_to_list(hostname, text_or(boottype.text, ""), root_path);
}

void walk_rows(adm_args *handle) {
    LocalServers local;
    adm_args_reset(handle);
    do {
        char *hostname = nullptr;
        char *items = nullptr;
        if (_get_returned_arg(handle, "hostname", "", &hostname) != 0)
            return;
        if (_get_returned_arg(handle, "filesystems", "", &items) == 0)
            add_if_local(hostname, items, local);
    } while (adm_args_nextr(handle) == 0);
}

bool exists(const std::string &path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0;
}

bool run(const std::string &command) {
    return system(command.c_str()) == 0;
}

constexpr const char *disconnectable = "disconnectable";

// Appends the option to the lines of the root, /usr and /usr/openwin that do not have it.
int write_enabling_program(std::FILE *file) {
    return std::fprintf(file,
                        "{"
                        "\t    if(substr($0,1,1) != \"#\" ) {"
                        " \t\tif (index($0, \"%s\") == 0) {"
                        " \t\t    if ($3 == \"/\" || $3 == \"/usr\") {"
                        " \t\t\tprint $0 \",%s\""
                        " \t\t    } else {"
                        " \t\t\tif ($3 == \"/usr/openwin\") {"
                        " \t\t\t    print $0 \",%s\""
                        " \t\t\t} else {"
                        " \t\t\t    print $0"
                        " \t\t\t}"
                        " \t\t    }"
                        " \t\t} else print $0"
                        " \t    } else print $0"
                        " \t    }",
                        disconnectable, disconnectable, disconnectable);
}

// Cuts a line before the option; what stood behind it goes too. The second test repeats the first, as ever.
int write_disabling_program(std::FILE *file) {
    return std::fprintf(file,
                        "{"
                        "\t    if(substr($0,1,1) != \"#\" ) {"
                        " \t\tif(i = index($0,\",%s\")) {"
                        " \t\t    print substr($0,1,i-1)"
                        " \t\t} else {"
                        " \t\t    if(i = index($0,\",%s\")) {"
                        " \t\t\tprint substr($0,1,i-1)"
                        " \t\t    } else print $0"
                        " \t\t}"
                        " \t    } else print $0"
                        " \t    }",
                        disconnectable, disconnectable);
}

// The records of the table edit carry no method name: they never did.
int edit_failed(const char *step) {
    const char *reason = std::strerror(errno);
    record<client_table_not_changed>("", step, reason);
    return 1;
}

// Runs an awk program over the client's table. 0, or 1 and error 37; the table is then as it was.
int edit_client_table(const char *client_root, int (*write_program)(std::FILE *)) {
    const std::string program = format("/tmp/awk.%d", getpid());
    std::FILE *file = create_exclusively(program) ? std::fopen(program.c_str(), "we") : nullptr;
    if (file == nullptr)
        return edit_failed("fopen");
    const bool written = write_program(file) >= 1;
    const int reason = errno;
    if (std::fclose(file) != 0 || !written) { // a program cut short by a full disk would empty the table
        if (!written)
            errno = reason;
        return edit_failed("fprintf");
    }
    const RemovedAtEnd removed(program);
    const Replacement output(format("/tmp/vfstab.%d", getpid()), format("%s/etc/vfstab", client_root));
    if (!output.create() || !run(format("awk -f %s %s > %s", program.c_str(), output.table(), output.path())))
        return edit_failed("awk");
    run(format("mv %s %s", output.path(), output.table()));
    return 0;
}

std::string cache_directory(const char *client_root) {
    return format("%s/etc/fs/cachefs", client_root);
}

// The name of the admin file that was written last.
std::array<char, 1024> admin_file_name;

constexpr const char *admin_text =
    "mail=\ninstance=unique\npartial=nocheck\nrunlevel=nocheck\nidepend=nocheck\n"
    "rdepend=nocheck\nspace=quit\nsetuid=nocheck\nconflict=nocheck\naction=nocheck\n"
    "basedir=%s\n";

std::string sysinfo(int item) {
    std::array<char, 1024> answer{};
    return sysv_sysinfo(item, answer.data(), answer.size()) < 0 ? std::string() : answer.data();
}

// What releases are compared by, since "2.4" and "5.4"
// name the same one: the text from the third character on.
std::string minor_of(std::string_view release) {
    return std::string(release.substr(std::min<std::size_t>(release.size(), 2)));
}

std::string package_directory(const std::string &arch, const char *release) {
    return format("%s/Packages/%s/%s", HOSTADM_DATAADMIN, arch.c_str(), release);
}

// Looks at the server's own records whenever the releases match, even for another architecture, whose
// packages then still go into the service tree: that asymmetry is meant.
bool is_installed(const char *arch, const std::string &minor, bool own_release, const char *package) {
    if (own_release)
        return run(format("grep ARCH=%s /var/sadm/pkg/%s*/pkginfo >/dev/null 2>&1", arch, package));
    return run(format("grep ARCH=%s /export/Quorvel_2.%s/var/sadm/pkg/%s*/pkginfo > /dev/null 2>&1", arch,
                      minor.c_str(), package));
}

void record_pkgadd_error(const char *method, const char *place, const char *text) {
    record_literal<pkgadd_ended_with_words>(method, place, text);
}

// The version of a package directory; absent when its pkginfo names none, and then recorded.
std::optional<std::string> package_version(const char *method, const std::string &package_path) {
    CommandOutput output(
        format("/usr/bin/sed -n 's/^VERSION=\\(.*\\)/\\1/p' %s/pkginfo", package_path.c_str()));
    if (output.started())
        errno = ENODATA; // the reason when nothing at all is printed
    std::optional<std::string> line = output.piece(1024);
    if (!line || line->empty()) { // empty: a NUL hides the version
        const char *reason = std::strerror(errno);
        record_pkgadd_error(method, package_path.c_str(), reason);
        return std::nullopt;
    }
    line->pop_back();
    return line;
}

// The record file of a service's templates: where it lies depends on the server's own release.
std::string software_record(const std::string &os_directory) {
    const std::string release = sysinfo(SYSV_SI_RELEASE);
    const bool newer = release.size() > 2 && release[2] > '4';
    return format("%s/%s", newer ? "/var/sadm/system/admin/services" : "/var/sadm/softinfo",
                  os_directory.c_str());
}

// Drops the lines and templates of other versions of the package. A failure is not reported.
void remove_older_versions(const char *package, const char *arch, const std::string &os_directory,
                           const Replacement &edit) {
    if (edit.create())
        run(format("/usr/bin/grep -v \"%s.*%s.*\" %s > %s ;/usr/bin/mv %s %s", arch, package, edit.table(),
                   edit.path(), edit.path(), edit.table()));
    run(format("/usr/bin/rm -rf /export/root/templates/%s/%s*%s*", os_directory.c_str(), package, arch));
}

// Never 0, although only the low half of the pointer fits.
int pointer_as_status(const char *pointer) {
    const int low_half = static_cast<int>(reinterpret_cast<std::uintptr_t>(pointer));
    return low_half != 0 ? low_half : 1;
}

} // namespace

client_node *do_bootparams(void) {
    const sysv_nsw_config *config = sysv_nsw_getconfig("bootparams");
    if (config == nullptr) {
        std::perror(gettext("__nsw_getconfig returned error"));
        return nullptr;
    }
    for (const sysv_nsw_lookup *lookup = config->lookups; lookup != nullptr; lookup = lookup->next)
        read_bootparams(lookup->service);
    return list_of_hosts().first();
}

void read_bootparams(const char *source) {
    const char *nameservice = nameservice_of(source);
    if (nameservice == nullptr)
        std::exit(-1);
    adm_init();
    adm_err_cleanup(nullptr, ADM_CLEAN);
    PerformedMethod call;
    if (adm_args_newh(&call.input) != 0)
        return;
    adm_args_puta(call.input, "nameservice", ADM_STRING, static_cast<unsigned int>(std::strlen(nameservice)),
                  nameservice);
    if (adm_perf_method("list_bootparams", call.input, &call.output, &call.error, ADM_CLASS, "database", 0) ==
        0)
        foreach_client(call.output);
}

void foreach_client(adm_args *handle) {
    if (handle == nullptr)
        return;
    without_memory_to_spare([&] { walk_rows(handle); });
}

void add_to_list(const char *name, const char *boottype, const char *root_path) {
    if (name == nullptr)
        return;
    without_memory_to_spare(
        [&] { list_of_hosts().add(name, [&] { return alloc_list(name, boottype, root_path); }); });
}

client_node *alloc_list(const char *name, const char *boottype, const char *root_path) {
    auto *node = static_cast<client_node *>(std::malloc(sizeof(client_node)));
    if (node == nullptr)
        out_of_memory("Can't alloc space for struct");
    node->name = duplicate(text_or(name, ""));
    if (node->name == nullptr)
        out_of_memory("Can't alloc space for name in struct");
    node->boottype = duplicate(text_or(boottype, "")); // a client without these two is better than none
    node->root_path = duplicate(text_or(root_path, ""));
    node->next = nullptr;
    return node;
}

int enable_chart(const char *client_root) {
    return base::at_boundary(1, [&] {
        if (edit_client_table(client_root, write_enabling_program) != 0)
            return 1;
        const std::string directory = cache_directory(client_root);
        return mkdir(directory.c_str(), 0775) == 0 || exists(directory) ? 0 : 1;
    });
}

int disable_chart(const char *client_root) {
    return base::at_boundary(1, [&] {
        if (edit_client_table(client_root, write_disabling_program) != 0)
            return 1;
        rmdir(cache_directory(client_root).c_str());
        return 0;
    });
}

int set_cachelet_disk_config(const char *method, const char *client_root, const char *profile_set,
                             const char *profile) {
    return base::at_boundary(1, [&] {
        const std::string source =
            format("%s/%s/%s", HOSTADM_DATAADMIN "/etc/autoinstall", profile_set, profile);
        run(format("/usr/bin/mkdir %s%s", client_root, "/.autoinstall"));
        const std::string destination = format("%s/.autoinstall/%s", client_root, profile);
        if (copyfile(destination.c_str(), source.c_str()) != 0) {
            record<profile_not_copied>(method, source.c_str());
            return 1;
        }
        const std::string link = format("%s/.autoinstall/profile", client_root);
        unlink(link.c_str());
        mklink(profile, link.c_str());
        return 0;
    });
}

char *make_admin_file(const char *basedir) {
    std::snprintf(admin_file_name.data(), admin_file_name.size(), "/tmp/pkgadmin.%d", getpid());
    const bool complete = base::at_boundary(false, [&] {
        std::FILE *file =
            create_exclusively(admin_file_name.data()) ? std::fopen(admin_file_name.data(), "we") : nullptr;
        if (file == nullptr)
            return false;
        const bool written = std::fprintf(file, admin_text, basedir) >= 1;
        return std::fclose(file) == 0 && written;
    });
    if (!complete) // the installer then names the missing file; with half of its text it would ask questions
        unlink(admin_file_name.data());
    return admin_file_name.data();
}

int do_cachelet_pkgadd(const char *method, const char *arch, const char *release, const char *package_dir,
                       const char *package) {
    return base::at_boundary(1, [&] {
        const std::string minor = minor_of(release);
        const bool own_release = minor == minor_of(sysinfo(SYSV_SI_RELEASE));
        const bool own_arch = arch == sysinfo(SYSV_SI_ARCHITECTURE);
        if (is_installed(arch, minor, own_release, package))
            return 0;
        const std::string path = format("%s/%s", package_dir, package);
        if (!exists(path)) {
            record<package_missing>(method, path.c_str());
            return 1;
        }
        const std::optional<std::string> log_name = create_unique("/tmp/pkgadd.XXXXXX");
        if (!log_name) {
            do_pkgadd_failure(method, package_dir, -1, "");
            return -1;
        }
        const RemovedAtEnd log(*log_name);
        const bool onto_server = own_release && own_arch;
        const RemovedAtEnd admin(make_admin_file(onto_server ? "/" : format("/usr_%s.all", arch).c_str()));
        const std::string into = onto_server ? "" : format("-R /export/Quorvel_2.%s ", minor.c_str());
        const int status = system(format("/usr/sbin/pkgadd -S %s-a %s -d %s %s >> %s 2>&1", into.c_str(),
                                         admin.path().c_str(), package_dir, package, log.path().c_str())
                                      .c_str());
        if (status != 0)
            do_pkgadd_failure(method, package_dir, status, log.path().c_str());
        return status;
    });
}

void do_pkgadd_failure(const char *method, const char *package_dir, int status, const char *log) {
    std::FILE *file = std::fopen(log, "re");
    if (file == nullptr) {
        record_literal<pkgadd_ended_with_status>(method, package_dir, status);
    } else {
        constexpr std::size_t longest = 3696;
        constexpr std::string_view cut_mark = ".....";
        std::array<char, longest + cut_mark.size() + 1> text{};
        if (std::fread(text.data(), 1, longest, file) == longest)
            cut_mark.copy(text.data() + longest, cut_mark.size());
        record_pkgadd_error(method, package_dir, text.data());
        std::fclose(file);
    }
    adm_err_cleanup(nullptr, ADM_DIRTY);
}

int setup_as_cachelet_server(const char *method) {
    return base::at_boundary(1, [&] {
        const std::string arch = sysinfo(SYSV_SI_ARCHITECTURE);
        const std::string release = sysinfo(SYSV_SI_RELEASE);
        const std::string directory = package_directory(arch, "5.X");
        for (const char *package : {"KTVXqsvu", "KTVXqsvr"})
            if (do_cachelet_pkgadd(method, arch.c_str(), release.c_str(), directory.c_str(), package) != 0)
                return 1;
        return 0;
    });
}

int setup_cachelet_service(const char *method, const char *arch, const char *release) {
    return base::at_boundary(1, [&] {
        if (std::string_view(release) == "2.4") {
            const std::string directory = package_directory(arch, "5.4");
            if (do_cachelet_pkgadd(method, arch, "5.4", directory.c_str(), "KTVXmgr5u") != 0)
                return 1;
            // Also after an addition that has just been completed:
            // the client support then waits for the next call.
            if (add_pkg_to_templates(method, directory.c_str(), "KTVXmgr5r", arch, release) != 0)
                return 1;
        }
        const std::string directory = package_directory(arch, "5.X");
        return do_cachelet_pkgadd(method, arch, release, directory.c_str(), "KTVXqcu") != 0 ? 1 : 0;
    });
}

int add_pkg_to_templates(const char *method, const char *package_dir, const char *package, const char *arch,
                         const char *release) {
    return base::at_boundary(1, [&] {
        const std::string package_path = format("%s/%s", package_dir, package);
        if (!exists(package_path)) {
            record<package_missing>(method, package_path.c_str());
            return 1;
        }
        const std::optional<std::string> version = package_version(method, package_path);
        if (!version)
            return 1;
        const std::string os_directory = format("Quorvel_2.%s", minor_of(release).c_str());
        const std::string record_file = software_record(os_directory);
        const std::string template_path = format("/export/root/templates/%s/%s_%s_%s.all",
                                                 os_directory.c_str(), package, version->c_str(), arch);
        if (run(format("grep %s %s > /dev/null 2>&1", template_path.c_str(), record_file.c_str())))
            return 0;
        const Replacement edit("/tmp/.softinfo.edit", record_file); // ends when the new lines are there, too
        // Without a file name: this reads the standard input of the calling process, and is kept so.
        if (run(format("grep \"%s.*%s\" > /dev/null 2>&1", arch, package)))
            remove_older_versions(package, arch, os_directory, edit);
        if (exists(template_path)) {
            record<template_in_the_way>(method, template_path.c_str(), record_file.c_str());
            return 1;
        }
        if (do_systemcmd(format("/usr/bin/mkdir -p %s; /usr/bin/cp -rp %s %s", template_path.c_str(),
                                package_path.c_str(), template_path.c_str())
                             .c_str(),
                         method) != 0)
            return 1;
        run(format("echo SPOOLED_ROOT=%s.all:%s >> %s; echo ROOT=%s.all:%s,%s >> %s", arch,
                   template_path.c_str(), record_file.c_str(), arch, package, version->c_str(),
                   record_file.c_str()));
        return pointer_as_status(method); // the callers rely on it: a completed addition is not 0
    });
}
