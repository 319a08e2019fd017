// SPDX-License-Identifier: MIT
// A client's architecture identity, and the boot and install paths that follow from it.
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "base/boundary.hpp"
#include "base/immortal.hpp"
#include "base/owners.hpp"
#include "hostadm.h"
#include "hostadm/platform.h"
#include "src/support/error.hpp"
#include "src/support/exit.hpp"
#include "src/support/text.hpp"

namespace {

using hostadm::is_empty;
using hostadm::record;
using hostadm::text_or;
using hostadm::work_or_exit;

constexpr const char *query_method = "get_os_pathnames";
constexpr const char *default_hierarchy = "/cdrom/cdrom0/s0";

constexpr std::array<const char *, 4> identity_arguments = {"instruction_set", "implementation_arch",
                                                            "os_name", "os_version"};

// Refreshed at every use, since a method may change the host's name.
char thishost[257];

// Paths without a value point here. The caller must not free it.
char no_path[] = "";

using OwnedText = hostadm::base::Allocated<char>;

// ---- the answer of the last query ----

struct InstallAnswer {
    std::string rootpath = "uninitialized";
    std::string bootprog = "uninitialized";
    std::array<std::string, 4> identity; // asked by that alone: hierarchy and host do not count
};

hostadm::base::Immortal<InstallAnswer> last_answer;

class ArgumentHandle {
public:
    ArgumentHandle() = default;
    ~ArgumentHandle() { release(); }
    ArgumentHandle(const ArgumentHandle &) = delete;
    ArgumentHandle &operator=(const ArgumentHandle &) = delete;

    adm_args *get() const { return handle_; }
    adm_args **place() { return &handle_; }
    // Before exit(), which does not unwind.
    void release() {
        if (handle_ != nullptr)
            adm_args_freeh(handle_);
        handle_ = nullptr;
    }

private:
    adm_args *handle_ = nullptr;
};

unsigned int length_of(const char *value) {
    return static_cast<unsigned int>(std::strlen(value));
}

bool put(adm_args *handle, const char *name, const char *value) {
    return adm_args_puta(handle, name, ADM_STRING, length_of(value), value) == 0;
}

void publish(const char *name, const char *value) {
    adm_args_set(name, ADM_STRING, length_of(value), value);
}

std::string returned(adm_args *rows, const char *name) {
    adm_arg *argument = nullptr;
    adm_args_geta(rows, name, ADM_STRING, &argument);
    return argument == nullptr || argument->value == nullptr ? "" : argument->value;
}

[[noreturn]] void refuse_path(const char *method, const char *path, const char *argument) {
    record<hostadm::bad_argument>(method, path, argument);
    std::exit(1);
}

// ---- defaults ----

void set_path(char **path, std::string_view value) {
    *path = hostadm::duplicate(value);
    if (*path == nullptr)
        throw std::bad_alloc();
}

bool is_absolute(const char *path) {
    return *path == '/';
}

// "/" alone is no directory that a client could have for itself.
bool is_client_path(const char *path) {
    return is_absolute(path) && path[1] != '\0';
}

void require_identity(const char *method, const std::array<const char *, 4> &identity) {
    for (std::size_t i = 0; i < identity.size(); ++i) {
        if (is_empty(identity[i])) {
            record<hostadm::argument_missing>(method, identity_arguments[i]);
            std::exit(1);
        }
    }
}

void default_boot_file(char **boot_file, const std::array<const char *, 4> &identity) {
    const auto [inst_set, impl_arch, os_name, os_version] = identity;
    if (boot_file != nullptr && is_empty(*boot_file)) {
        const char *name = make_boot_name(os_version, os_name, inst_set, impl_arch);
        if (name == nullptr)
            throw std::bad_alloc();
        set_path(boot_file, name);
    }
}

// The default, AREA/HOST, is relative and so never passes: root and swap must be given.
void default_client_path(const char *method, char **path, const char *area, const char *host,
                         const char *argument) {
    if (is_empty(*path))
        set_path(path, hostadm::format("%s/%s", area, host));
    hostadm::strip_trailing_slashes(*path);
    if (!is_client_path(*path))
        refuse_path(method, *path, argument);
}

bool same(const char *one, const char *other) {
    return std::strcmp(one, other) == 0;
}

// given_swap is the swap path as the caller gave it, swap as it is by now.
void default_dump_path(const char *method, char **dump_path, const char *given_swap, const char *swap,
                       const char *host) {
    if (is_empty(*dump_path))
        *dump_path = no_path;
    // A dump file that is the swap file, or just the host's name, means that there is none of its own.
    if (same(*dump_path, given_swap) || same(*dump_path, swap) || same(*dump_path, host))
        *dump_path = no_path;
    hostadm::strip_trailing_slashes(*dump_path);
    if (**dump_path == '\0')
        return;
    // Deliberately the swap path is tested here and named in the error; a relative dump path is accepted.
    if (std::strlen(*dump_path) < 2 || !is_absolute(swap))
        refuse_path(method, swap, "dumppath");
}

} // namespace

void get_hostname(void) {
    if (sysv_sysinfo(SYSV_SI_HOSTNAME, thishost, sizeof thishost) <= 0)
        thishost[0] = '\0';
}

int get_arch_strings(char **inst_set, char **impl_arch, char **os_name, char **os_version) {
    std::array<OwnedText, 4> identity;
    for (std::size_t i = 0; i < identity.size(); ++i) {
        adm_arg *argument = nullptr;
        if (adm_args_geti(identity_arguments[i], ADM_STRING, &argument) == 0)
            identity[i].reset(hostadm::duplicate(text_or(argument->value, "")));
        if (identity[i] == nullptr)
            return static_cast<int>(i) + 1;
    }
    sysv_strlwr(identity[0].get());
    sysv_strlwr(identity[1].get());
    *inst_set = identity[0].release();
    *impl_arch = identity[1].release();
    *os_name = identity[2].release();
    *os_version = identity[3].release();
    return 0;
}

const char *arch_xlate(int code) {
    return code < 1 || code > 4 ? nullptr : identity_arguments[static_cast<std::size_t>(code) - 1];
}

const char *make_boot_name(const char *os_version, const char *os_name, const char *inst_set,
                           const char *impl_arch) {
    return hostadm::base::at_boundary(static_cast<const char *>(nullptr), [&] {
        static hostadm::base::Immortal<std::string> place; // a method may clean up in a handler of atexit
        std::string &boot_name = place.get();
        constexpr std::size_t usual_size =
            1024; // up to here the name stays at one place for the whole process
        boot_name.reserve(usual_size);

        const std::string_view set(inst_set);
        const bool release_4 = std::string_view(os_version).starts_with("4.");
        const std::string name = release_4 && (set.starts_with("kel3") || set.starts_with("kel4"))
                                     ? hostadm::format("%s.%s.%s.%s", "boot", impl_arch, os_name, os_version)
                                     : hostadm::format("inetboot.%s.%s_%s", impl_arch, os_name, os_version);
        boot_name.assign(name);
        return boot_name.c_str();
    });
}

void default_boot_paths(const char *method, const char *host, const char *inst_set, const char *impl_arch,
                        const char *os_name, const char *os_version, char **boot_file, char **root_path,
                        char **swap_path, char **dump_path) {
    work_or_exit([&] {
        get_hostname();
        const std::array identity = {inst_set, impl_arch, os_name, os_version};
        require_identity(method, identity);
        default_boot_file(boot_file, identity);
        if (root_path != nullptr)
            default_client_path(method, root_path, "root", host, "rootpath");

        const char *given_swap = swap_path != nullptr && *swap_path != nullptr ? *swap_path : no_path;
        if (swap_path != nullptr)
            default_client_path(method, swap_path, "swap", host, "swappath");
        if (dump_path != nullptr)
            default_dump_path(method, dump_path, given_swap, swap_path == nullptr ? no_path : *swap_path,
                              host);
    });
}

int get_install_os_pathnames(const char *method, const char *host, const char *dirpath, const char *inst_set,
                             const char *impl_arch, const char *os_name, const char *os_version) {
    work_or_exit([&] {
        get_hostname();
        const std::array<std::string, 4> identity = {inst_set, impl_arch, os_name, os_version};
        InstallAnswer &answer = last_answer.get();
        if (identity == answer.identity)
            return;

        ArgumentHandle input;
        ArgumentHandle output;
        adm_error *error = nullptr;
        const bool ready = adm_args_newh(input.place()) == 0 && put(input.get(), "inst_set_arch", inst_set) &&
                           put(input.get(), "imp_arch", impl_arch) && put(input.get(), "os_prod", os_name) &&
                           put(input.get(), "os_version", os_version) && put(input.get(), "dirpath", dirpath);
        const int status = !ready ? ENOMEM
                                  : adm_perf_method(query_method, input.get(), output.place(), &error,
                                                    ADM_CLASS, "install", ADM_HOST, host, 0);
        input.release();
        if (status != 0) {
            const char *reason = !ready             ? std::strerror(ENOMEM)
                                 : error == nullptr ? ""
                                                    : text_or(error->text, "");
            record<hostadm::query_not_run>(method, query_method, host, reason);
            output.release();
            if (error != nullptr)
                adm_err_freeh(error);
            std::exit(1);
        }
        if (error != nullptr)
            adm_err_freeh(error);
        if (output.get() == nullptr || (adm_args_htype(output.get()) & ADM_HANDLE_ROWS) == 0) {
            record<hostadm::query_without_answer>(method, host, inst_set, impl_arch, os_name, os_version);
            output.release();
            adm_err_cleanup(nullptr, ADM_CLEAN);
            std::exit(1);
        }
        adm_args_reset(output.get());
        answer.rootpath = returned(output.get(), "root_path");
        answer.bootprog = returned(output.get(), "boot_prog");
        answer.identity = identity;
    });
    return 0;
}

char *install_bootprog_location(const char *method, const char *host, const char *dirpath,
                                const char *inst_set, const char *impl_arch, const char *os_name,
                                const char *os_version) {
    get_hostname();
    if (get_install_os_pathnames(method, host, dirpath, inst_set, impl_arch, os_name, os_version) != 0)
        return nullptr;
    return hostadm::duplicate(last_answer.get().bootprog);
}

void default_install_paths(const char *method, const char *host, const char *inst_set, const char *impl_arch,
                           const char *os_name, const char *os_version, char **install_hierarchy,
                           char **boot_file, char **root_path) {
    work_or_exit([&] {
        get_hostname();
        const std::array identity = {inst_set, impl_arch, os_name, os_version};
        require_identity(method, identity);

        if (install_hierarchy != nullptr) {
            if (is_empty(*install_hierarchy)) {
                set_path(install_hierarchy, default_hierarchy);
                publish("install_hierarchy", *install_hierarchy);
            }
            hostadm::strip_trailing_slashes(*install_hierarchy);
            if (!is_absolute(*install_hierarchy))
                refuse_path(method, *install_hierarchy, "install_hierarchy");
        }
        default_boot_file(boot_file, identity);
        if (root_path == nullptr)
            return;

        if (*root_path == nullptr)
            *root_path = no_path;
        hostadm::strip_trailing_slashes(*root_path);
        if (**root_path == '\0') {
            if (install_hierarchy == nullptr)
                refuse_path(method, "", "install_hierarchy");
            get_install_os_pathnames(method, host, *install_hierarchy, inst_set, impl_arch, os_name,
                                     os_version);
            set_path(root_path, last_answer.get().rootpath);
            publish("rootpath", *root_path);
        }
        if (!is_absolute(*root_path))
            refuse_path(method, *root_path, "rootpath");
    });
}
