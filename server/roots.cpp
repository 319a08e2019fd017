// SPDX-License-Identifier: MIT
#include "server/roots.hpp"

#include <algorithm>
#include <cstring>
#include <deque>
#include <filesystem>
#include <signal.h>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "base/beneath.hpp"
#include "base/folder_lock.hpp"
#include "base/mounts.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "server/confined.hpp"
#include "server/failure.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;
using base::Beneath;

namespace {

bool is_release_4(const std::string &version) {
    return version.starts_with("4.");
}

// While it lives, TERM ends the commands that the library runs and not the library, which then cleans up.
class CommandsAreInterrupted {
public:
    CommandsAreInterrupted() {
        struct sigaction survive {};
        survive.sa_handler = [](int) {};
        survive.sa_flags = SA_RESTART;
        sigaction(SIGTERM, &survive, &before_);
    }
    ~CommandsAreInterrupted() { sigaction(SIGTERM, &before_, nullptr); }
    CommandsAreInterrupted(const CommandsAreInterrupted &) = delete;
    CommandsAreInterrupted &operator=(const CommandsAreInterrupted &) = delete;

private:
    struct sigaction before_ {};
};

// Commands that succeed may still talk, and their words stand in the record of errors; this takes them back.
void forget_words_of_success() {
    adm_err_setf(nullptr, 0, "");
}

std::string mount_below(const std::string &directory) {
    const std::vector<base::Mount> mounts = base::mounts_within(directory);
    return mounts.empty() ? "" : mounts.front().point;
}

int fail_with(method::Call &call, Code code, const std::string &text) {
    return call.fail(text, static_cast<int>(code));
}

} // namespace

std::vector<std::string> split_paths(const std::string &list) {
    std::vector<std::string> paths;
    for (std::size_t begin = 0; begin <= list.size();) {
        const std::size_t end = std::min(list.find(',', begin), list.size());
        std::string path = list.substr(begin, end - begin);
        while (path.size() > 1 && path.back() == '/')
            path.pop_back();
        if (!path.empty())
            paths.push_back(std::move(path));
        begin = end + 1;
    }
    return paths;
}

int fill_root(method::Call &call, const std::string &root, const std::string &os_name,
              const std::string &os_version, const std::vector<std::string> &sources) {
    const bool copy = is_release_4(os_version);
    // Without these the library would copy whatever the process's own directory is, or say only "not found".
    for (const std::string &source : sources)
        if (std::error_code error; source.front() != '/' || !fs::is_directory(source, error))
            return fail_with(call, Code::not_found,
                             base::tr("there is no directory {1} to fill the root from", source));
    if (copy && access("/usr/bin/cpio", X_OK) != 0)
        return fail_with(
            call, Code::missing_program,
            base::tr("/usr/bin/cpio, which copies the root of a 4.x release, is missing (package cpio)"));
    if (!copy && access("/usr/sbin/pkgadd", X_OK) != 0)
        return fail_with(call, Code::missing_program,
                         base::tr("/usr/sbin/pkgadd, which installs packages, is missing"));

    std::deque<package_source> list;
    for (auto source = sources.rbegin(); source != sources.rend(); ++source)
        list.push_front({list.empty() ? nullptr : &list.front(), source->c_str()});
    const char *const service[] = {"", os_name.c_str(), os_version.c_str()};
    // What keeps installations apart is made here: whoever is shut in finds /run read-only.
    const base::Descriptor lock = base::lock_file_of(Beneath(root).descriptor(), "packages");
    // A ready tree brings its links and needs none; packages may rightly be installed through some.
    const Confinement how{.links_are_followed = !copy, .sources = sources};
    const int status = run_confined(
        root,
        [&] {
            const CommandsAreInterrupted guard;
            const int made = create_clnt_root(root.c_str(), service, list.empty() ? nullptr : &list.front());
            if (made == 0) {
                cleanup(root.c_str()); // the admin file: once something is installed, nothing else goes
                forget_words_of_success();
            }
            return made;
        },
        how);
    if (status == 0) {
        Beneath(root).flush();
        return 0;
    }
    if (status == 1) {
        fail_with(call, Code::system,
                  copy ? base::tr("cannot fill {1} from its tree", root)
                       : base::tr("cannot fill {1} from its packages", root));
        return Beneath(root).names().empty() ? 1 : 2;
    }
    return fail_with(
        call, Code::system,
        status < 0
            ? base::tr("cannot prepare {1}: the package tool's settings cannot be written to /tmp", root)
            : base::tr("cannot prepare {1}: {2}", root, std::strerror(status)));
}

int copy_tree(method::Call &call, const std::string &tree, const std::string &root, bool of_client) {
    // What stands in the way is removed, never written to: it may be a fifo that nobody reads.
    const std::string command = "/bin/cp -a --remove-destination " + (tree == "/" ? "" : tree) + "/. " + root;
    const auto copy = [&] {
        const int status = do_systemcmd(command.c_str(), call.method().c_str());
        if (status == 0)
            forget_words_of_success();
        return status;
    };
    if (run_confined(root, copy, {.sources = {tree}, .sources_are_clients = of_client}) != 0)
        return fail_with(call, Code::system, base::tr("cannot copy {1} to {2}", tree, root));
    Beneath(root).flush();
    return 0;
}

int install_in_area(method::Call &call, const std::string &area, const std::string &base,
                    const std::string &directory, const std::vector<std::string> &packages) {
    if (access("/usr/sbin/pkgadd", X_OK) != 0)
        return fail_with(call, Code::missing_program,
                         base::tr("/usr/sbin/pkgadd, which installs packages, is missing"));
    const auto install = [&] {
        const CommandsAreInterrupted guard;
        std::string command =
            "/usr/sbin/pkgadd -S -n -R " + area + " -a " + make_admin_file(base.c_str()) + " -d " + directory;
        for (const std::string &package : packages)
            command += " " + package;
        const int status = do_systemcmd(command.c_str(), call.method().c_str());
        if (status == 0)
            forget_words_of_success();
        return status; // the admin file goes with the /tmp of this process
    };
    if (run_confined(area, install, {.links_are_followed = true, .sources = {directory}}) != 0)
        return fail_with(call, Code::system,
                         base::tr("cannot install the packages of {1} in {2}", directory, area));
    Beneath(area).flush();
    return 0;
}

std::string share_path_of(const std::string &file, const std::string &client) {
    const fs::path folder = fs::path(file).parent_path();
    return folder.filename() == client ? folder.string() : file;
}

std::string real_path_of(const std::string &path) {
    return RealPaths().of(path);
}

std::string RealPaths::of(const std::string &path) {
    std::string plain = fs::path(path).lexically_normal();
    if (plain.size() > 1 && plain.ends_with('/'))
        plain.pop_back();
    if (!plain.starts_with('/') || plain == "/")
        return plain;
    const std::size_t slash = plain.rfind('/');
    return directory(plain.substr(0, slash)) + plain.substr(slash);
}

// Without a slash at its end, so that of the root is empty.
const std::string &RealPaths::directory(const std::string &path) {
    const auto [place, is_new] = known_.try_emplace(path);
    if (is_new && !path.empty()) {
        const std::size_t slash = path.rfind('/');
        const std::string here = directory(path.substr(0, slash)) + path.substr(slash);
        std::error_code error;
        const fs::path target = fs::is_symlink(here, error) ? fs::weakly_canonical(here, error) : fs::path();
        place->second = error || target.empty() ? here : target == "/" ? "" : target.string();
    }
    return place->second;
}

bool is_at_or_below(const std::string &path, const std::string &directory) {
    const std::string above = directory == "/" ? "" : directory;
    return path == directory || path.starts_with(above + "/");
}

std::string defect_of_root(const std::string &root) {
    std::error_code error;
    if (!fs::is_directory(root, error))
        return base::tr("{1} is no directory; give the client's root directory on this server", root);
    return fs::equivalent(root, "/", error) ? base::tr("{1} is this server's own root, not a client's", root)
                                            : "";
}

std::string defect_of_deep_root(const std::string &root) {
    const std::string defect = defect_of_root(root);
    return defect.empty() && is_near_server_root(fs::canonical(root))
               ? base::tr("{1} is too near to the root of this server", root)
               : defect;
}

std::string defect_of_source(const std::string &root, const std::string &source) {
    std::error_code error;
    const std::string into = fs::weakly_canonical(root, error);
    const std::string from = error ? "" : fs::weakly_canonical(source, error).string();
    if (error)
        return base::tr("cannot tell whether {1} and {2} lie in one another: {3}", root, source,
                        error.message());
    return is_at_or_below(into, from) || is_at_or_below(from, into)
               ? base::tr("the root {1} and its source {2} lie in one another", root, source)
               : "";
}

std::string way_out_of_root(const std::string &root, const std::string &below) {
    std::error_code error;
    const fs::path place = fs::weakly_canonical(root + below, error);
    if (error)
        return base::tr("cannot look at {1}{2}: {3}", root, below, error.message());
    if (is_at_or_below(place, fs::canonical(root)))
        return "";
    return base::tr("{1}{2} leads out of the client's root, to {3}; make the link there a relative one", root,
                    below, place.string());
}

bool is_near_server_root(const std::string &directory) {
    const fs::path path = real_path_of(directory);
    return std::distance(path.begin(), path.end()) < 3; // "/", and two names below it
}

void remove_tree(const std::string &directory) {
    std::error_code error;
    const fs::path path = fs::weakly_canonical(directory, error);
    if (error || path != fs::path(directory).lexically_normal())
        throw std::runtime_error(base::tr("{1} is reached through a symbolic link", directory));
    if (is_near_server_root(directory))
        throw std::runtime_error(base::tr("{1} is too near to the root of this server", directory));
    if (const std::string mounted = mount_below(directory); !mounted.empty())
        throw std::runtime_error(base::tr("something is mounted at {1}", mounted));
    Beneath("/").remove_tree(path.native());
}

void remove_contents(const std::string &directory) {
    Beneath("/").directory(directory).remove_contents();
}

bool remove_file(const std::string &path) {
    return Beneath("/").remove(path);
}

} // namespace hostadm::server
