// SPDX-License-Identifier: MIT
#include "sandbox/private_root.hpp"

#include <array>
#include <fcntl.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <system_error>
#include <utility>

#include "base/translation.hpp"
#include "sandbox/mount_table.hpp"
#include "sandbox/shown_processes.hpp"
#include "sandbox/tree.hpp"

namespace hostadm::sandbox {

namespace {

// Where the root is put together: a directory that every system has, covered by memory in this mount
// namespace only, so that nothing is ever made on the running system.
constexpr const char *stage = "/tmp";

constexpr std::array<const char *, 6> harmless_devices = {"/dev/null",   "/dev/zero",    "/dev/full",
                                                          "/dev/random", "/dev/urandom", "/dev/tty"};

// One file system of the running system.
struct Area {
    base::Mount mount;
    Descriptor lower;
    std::string directory; // of its layers, on the stage
    bool single_file = false;
    bool layered = true; // else it is bound read-only
};

// A part of the running system's tree, cloned before the stage covers anything.
struct Clone {
    std::string place;
    Descriptor tree;
};

unsigned long long mount_id_of(int fd) {
    struct statx status;
    if (statx(fd, "", AT_EMPTY_PATH, STATX_MNT_ID, &status) != 0)
        return 0;
    return status.stx_mnt_id;
}

Descriptor open_place(const std::string &path) {
    return Descriptor(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
}

std::vector<base::Mount> mounts_of_this_system() try {
    return base::all_mounts();
} catch (const std::system_error &error) {
    errno = error.code().value();
    fail(base::tr("read the table of mounts"));
}

// The file systems that are to be seen, the root first. A mount that another one hides is none of them.
std::vector<Area> areas_of_this_system() {
    std::vector<Area> areas;
    for (base::Mount &mount : mounts_of_this_system()) {
        if (!is_shown(mount))
            continue;
        Area area;
        area.lower = open_place(mount.point);
        struct stat status;
        if (!area.lower.is_open() || mount_id_of(area.lower.get()) != mount.id ||
            fstat(area.lower.get(), &status) != 0)
            continue;
        area.single_file = S_ISREG(status.st_mode);
        if (!area.single_file && !S_ISDIR(status.st_mode))
            continue;
        area.directory = "layers/" + std::to_string(areas.size());
        area.mount = std::move(mount);
        areas.push_back(std::move(area));
    }
    if (areas.empty() || areas.front().mount.point != "/") {
        errno = ENOENT;
        fail(base::tr("find the root file system in /proc/self/mountinfo"));
    }
    return areas;
}

Descriptor clone_tree(const std::string &path, unsigned int flags) {
    Descriptor tree(open_tree(AT_FDCWD, path.c_str(), OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | flags));
    if (!tree.is_open())
        fail(base::tr("clone the mount of {1}", path));
    return tree;
}

void make_directory(const std::string &path) {
    if (mkdir(path.c_str(), 0755) != 0)
        fail(base::tr("make the directory {1} of the stage", path));
}

void mount_at(const char *what, const char *type, const std::string &target, unsigned long flags,
              const std::string &options) {
    if (mount(what, target.c_str(), type, flags, options.c_str()) != 0)
        fail(base::tr("mount {1} on {2}", type, target));
}

void attach(const Clone &clone, int root) {
    const Descriptor target = open_inside(root, clone.place, O_PATH);
    if (!target.is_open() || move_mount(clone.tree.get(), "", target.get(), "",
                                        MOVE_MOUNT_F_EMPTY_PATH | MOVE_MOUNT_T_EMPTY_PATH) != 0)
        fail(base::tr("bind {1}", clone.place));
}

void make_read_only(const std::string &target, unsigned long flags = 0) {
    if (mount(nullptr, target.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY | flags, nullptr) != 0)
        fail(base::tr("make {1} read-only", target));
}

class RootBuilder {
public:
    RootBuilder(const Options &options, Descriptor processes, const RootListener &listener)
        : options_(options), listener_(listener), processes_(std::move(processes)),
          has_closed_processes_(processes_.is_open()) {}

    void build() {
        areas_ = areas_of_this_system();
        clone_shared_parts();
        mount_at("hostadm-sandbox", "tmpfs", stage, 0, "mode=0755");
        if (chdir(stage) != 0)
            fail(base::tr("enter the stage"));
        make_directory("layers");
        make_directory("root");
        if (has_something_to_place()) {
            mount_areas("placed", false);
            place_files();
            if (umount2("root", MNT_DETACH) != 0)
                fail(base::tr("take down the first layer"));
            has_placed_ = true;
        }
        mount_areas("written", true);
        for (const Area &area : areas_)
            tell_layers(area);
        mount_own_places();
        const Descriptor root(open("root", O_PATH | O_DIRECTORY | O_CLOEXEC));
        for (const Clone &clone : clones_) {
            if (clone.place != "/proc" && base::is_within(clone.place, "/run"))
                make_directories(root.get(), clone.place);
            attach(clone, root.get());
        }
        if (has_closed_processes_)
            show_names_of_processes("root/proc", "processes");
        if (options_.live_processes)
            make_read_only("root/proc", MS_NOSUID | MS_NODEV | MS_NOEXEC);
        areas_.clear();
        clones_.clear();
        enter();
    }

private:
    bool has_something_to_place() const {
        for (const Area &area : areas_)
            if (area.single_file)
                return true;
        return !options_.seeds.empty() || !options_.files.empty();
    }

    void clone_shared_parts() {
        for (const char *device : harmless_devices)
            if (access(device, F_OK) == 0)
                clones_.push_back({device, clone_tree(device, 0)});
        if (options_.live_processes)
            clones_.push_back(
                {"/proc", has_closed_processes_ ? std::move(processes_) : clone_tree("/proc", 0)});
        for (const std::string &bind : options_.binds) {
            const std::unique_ptr<char, decltype(&std::free)> real(realpath(bind.c_str(), nullptr),
                                                                   &std::free);
            if (!real)
                fail(base::tr("bind {1}", bind));
            clones_.push_back({real.get(), clone_tree(real.get(), AT_RECURSIVE)});
        }
        for (const std::string &seed : options_.seeds) {
            seeds_.emplace_back(open(seed.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
            if (!seeds_.back().is_open())
                fail(base::tr("open the seed directory {1}", seed));
        }
    }

    // Layers every file system over its original, at its place below root.
    void mount_areas(const std::string &layer, bool final) {
        for (Area &area : areas_)
            if (!area.single_file)
                mount_area(area, layer, final);
    }

    std::string lower_layers(const Area &area) const {
        return has_placed_ ? area.directory + "/placed:" + area.lower.path() : area.lower.path();
    }

    // A layer's root shows its own attributes, not those of the directory below it.
    static void make_layer(const Area &area, const std::string &directory) {
        make_directory(directory);
        struct stat status;
        if (fstat(area.lower.get(), &status) != 0 ||
            chown(directory.c_str(), status.st_uid, status.st_gid) != 0 ||
            chmod(directory.c_str(), status.st_mode & 07777) != 0)
            fail(base::tr("take over the attributes of {1}", area.mount.point));
        const timespec times[2] = {status.st_atim, status.st_mtim};
        utimensat(AT_FDCWD, directory.c_str(), times, 0);
    }

    void mount_area(Area &area, const std::string &layer, bool final) {
        const std::string target = area.mount.point == "/" ? "root" : "root" + area.mount.point;
        const std::string upper = area.directory + '/' + layer, work = upper + ".work";
        if (layer == "placed" || !has_placed_)
            make_directory(area.directory);
        make_layer(area, upper);
        make_directory(work);
        // The source tells what is below, for whoever asks what is mounted here.
        const std::string source = base::layer_source(area.mount);
        const std::string layers = "lowerdir=" + lower_layers(area) + ",upperdir=" + upper +
                                   ",workdir=" + work + ",redirect_dir=on,metacopy=off";
        const unsigned long flags =
            MS_NODEV | (final ? flags_of(area.mount) : flags_of(area.mount) & ~MS_RDONLY);
        const auto layered_with = [&](const std::string &more) {
            return mount(source.c_str(), target.c_str(), "overlay", flags, (layers + more).c_str()) == 0;
        };
        // Files must be found again by their handles, which needs an index, and all seem to be of one device.
        if (area.layered && final && options_.exportable && layered_with(",index=on,nfs_export=on,xino=on"))
            return;
        if (area.layered && layered_with(",index=off"))
            return;
        if (area.mount.point == "/")
            fail(base::tr("layer a private copy over /"));
        area.layered = false;
        if (mount(area.lower.path().c_str(), target.c_str(), nullptr, MS_BIND, nullptr) != 0)
            fail(base::tr("show {1}", area.mount.point));
        make_read_only(target, MS_NODEV);
        if (final && listener_.on_read_only)
            listener_.on_read_only(area.mount.point);
    }

    void place_files() {
        const Descriptor root(open("root", O_PATH | O_DIRECTORY | O_CLOEXEC));
        for (const Area &area : areas_) {
            if (!area.single_file)
                continue;
            const Descriptor file(open(area.lower.path().c_str(), O_RDONLY | O_CLOEXEC));
            if (!file.is_open())
                fail(base::tr("read {1}", area.mount.point));
            replace_with_copy(file.get(), root.get(), area.mount.point);
        }
        for (const Descriptor &seed : seeds_)
            copy_over(seed.get(), root.get());
        for (const PlacedFile &file : options_.files)
            place(file, root.get());
    }

    void tell_layers(const Area &area) {
        if (!options_.keep_changes || area.single_file || !area.layered)
            return;
        Layers layers;
        layers.mount_point = area.mount.point;
        const std::string merged = area.mount.point == "/" ? "root" : "root" + area.mount.point;
        layers.written =
            Descriptor(open((area.directory + "/written").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        layers.merged = Descriptor(open(merged.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        layers.found = found_before(area);
        if (!layers.written.is_open() || !layers.merged.is_open() || !layers.found.is_open())
            fail(base::tr("open the layers of {1}", area.mount.point));
        listener_.on_layers(std::move(layers));
    }

    // The file system as the command finds it: the original, or original and placed files together.
    Descriptor found_before(const Area &area) {
        std::string path = area.lower.path();
        if (has_placed_) {
            path = area.directory + "/found";
            make_directory(path);
            mount_at("hostadm-sandbox", "overlay", path, MS_NODEV | MS_RDONLY,
                     "lowerdir=" + lower_layers(area));
        }
        return Descriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }

    void mount_own_places() const {
        mount_at("sysfs", "sysfs", "root/sys", MS_RDONLY | MS_NOSUID | MS_NODEV | MS_NOEXEC, "");
        if (access("root/run", F_OK) == 0) {
            mount_at("run", "tmpfs", "root/run", MS_NOSUID | MS_NODEV, "mode=0755");
            make_directory("root/run/lock");
            chmod("root/run/lock", 01777);
        }
        if (access("root/dev/pts", F_OK) == 0) {
            mount_at("devpts", "devpts", "root/dev/pts", MS_NOSUID | MS_NOEXEC,
                     "newinstance,ptmxmode=0666,mode=0620");
            mount("root/dev/pts/ptmx", "root/dev/ptmx", nullptr, MS_BIND, nullptr);
        }
        if (!options_.live_processes)
            mount_own_proc();
    }

    // Of the kernel's settings only those of the private network may be changed.
    static void mount_own_proc() {
        mount_at("proc", "proc", "root/proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, "");
        const std::string settings = "root/proc/sys", network = settings + "/net",
                          keys = "root/proc/sysrq-trigger";
        if (access(settings.c_str(), F_OK) == 0) {
            if (mount(settings.c_str(), settings.c_str(), nullptr, MS_BIND, nullptr) != 0)
                fail(base::tr("bind {1}", settings));
            if (mount(network.c_str(), network.c_str(), nullptr, MS_BIND, nullptr) != 0)
                fail(base::tr("bind {1}", network));
            make_read_only(settings, MS_NOSUID | MS_NODEV | MS_NOEXEC);
        }
        if (access(keys.c_str(), F_OK) == 0) {
            if (mount(keys.c_str(), keys.c_str(), nullptr, MS_BIND, nullptr) != 0)
                fail(base::tr("bind {1}", keys));
            make_read_only(keys, MS_NOSUID | MS_NODEV | MS_NOEXEC);
        }
    }

    // The old root goes with everything that hangs on it;
    // only the private one is left in this mount namespace.
    static void enter() {
        if (chdir("root") != 0)
            fail(base::tr("enter the private root"));
        if (syscall(SYS_pivot_root, ".", ".") != 0)
            fail(base::tr("make the private root the root"));
        if (umount2(".", MNT_DETACH) != 0)
            fail(base::tr("leave the running system's root"));
        if (chdir("/") != 0)
            fail(base::tr("enter the private root"));
    }

    const Options &options_;
    const RootListener &listener_;
    Descriptor processes_;
    bool has_closed_processes_;
    std::vector<Area> areas_;
    std::vector<Clone> clones_;
    std::vector<Descriptor> seeds_;
    bool has_placed_ = false;
};

void bring_up_loopback() {
    const Descriptor socket_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    std::string("lo").copy(request.ifr_name, sizeof request.ifr_name - 1);
    request.ifr_flags = IFF_UP;
    if (!socket_fd.is_open() || ioctl(socket_fd.get(), SIOCSIFFLAGS, &request) != 0)
        fail(base::tr("bring up the loopback interface"));
}

} // namespace

void enter_private_root(const Options &options, const LiveNetwork &network, Descriptor processes,
                        const RootListener &listener) {
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        fail(base::tr("cut the mounts off from the running system's"));
    if (options.live_network)
        network.rebuild();
    else
        bring_up_loopback();
    if (!options.host_name.empty() && sethostname(options.host_name.c_str(), options.host_name.size()) != 0)
        fail(base::tr("set the host name {1}", options.host_name));
    RootBuilder(options, std::move(processes), listener).build();
}

} // namespace hostadm::sandbox
