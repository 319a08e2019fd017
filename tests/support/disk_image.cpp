// SPDX-License-Identifier: MIT
#include "support/disk_image.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <linux/loop.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <utility>

#include "base/descriptor.hpp"
#include "base/text.hpp"
#include "support/text_files.hpp"

namespace tests {

using hostadm::base::Descriptor;

namespace {

constexpr const char *nodes = "/loop-devices"; // those of a throwaway root cannot be opened
constexpr unsigned control_major = 10, control_minor = 237, loop_major = 7;

[[noreturn]] void fail(const std::string &what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

Descriptor open_node(const std::string &name, mode_t type, dev_t device) {
    const std::string path = std::string(nodes) + "/" + name;
    if (mkdir(nodes, 0700) == 0 && mount("loop-devices", nodes, "tmpfs", MS_NOSUID, nullptr) != 0)
        fail("cannot make room for device nodes");
    if (mknod(path.c_str(), type | 0600, device) != 0 && errno != EEXIST)
        fail("cannot make " + path);
    Descriptor node(open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (!node.is_open())
        fail("cannot open the loop device " + name);
    return node;
}

// Goes with the mount. Returns the device's name.
std::string attach(const std::string &file, Descriptor &device) {
    const Descriptor backing(open(file.c_str(), O_RDWR | O_CLOEXEC));
    if (!backing.is_open())
        fail("cannot open " + file);
    const Descriptor control = open_node("control", S_IFCHR, makedev(control_major, control_minor));
    constexpr int tries = 20; // against others who take the free one
    for (int i = 0; i < tries; ++i) {
        const int number = ioctl(control.get(), LOOP_CTL_GET_FREE);
        if (number < 0)
            fail("there is no free loop device");
        const std::string name = "loop" + std::to_string(number);
        device = open_node(name, S_IFBLK, makedev(loop_major, static_cast<unsigned>(number)));
        loop_config config{};
        config.fd = static_cast<unsigned>(backing.get());
        config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
        if (ioctl(device.get(), LOOP_CONFIGURE, &config) == 0)
            return name;
        if (errno != EBUSY)
            fail("cannot use " + name);
    }
    fail("no loop device stays free");
}

} // namespace

void DiskImage::make(const std::string &file) {
    const std::string command = "rm -f " + file + " && truncate -s 32M " + file +
                                " && mkfs.ext4 -q -F -b 1024 -m 0 -N 2048 -J size=1 "
                                "-E lazy_itable_init=0,lazy_journal_init=0 " +
                                file;
    if (std::system(command.c_str()) != 0)
        throw std::runtime_error("mkfs.ext4 fails");
}

DiskImage::DiskImage(const std::string &file, std::string place) : file_(file), place_(std::move(place)) {
    Descriptor device;
    device_ = attach(file, device);
    std::filesystem::create_directories(place_);
    // What the kernel would flush by itself for programs that forget to, it shall not.
    if (mount((std::string(nodes) + "/" + device_).c_str(), place_.c_str(), "ext4", 0,
              "noauto_da_alloc,commit=300") != 0)
        fail("cannot mount " + file);
}

DiskImage::~DiskImage() {
    while (umount2(place_.c_str(), 0) != 0 && errno == EBUSY)
        usleep(1'000);
}

void DiskImage::commit() const {
    const std::string path = place_ + "/of-another-program";
    const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    if (!file.is_open() || !hostadm::base::write_all(file.get(), "x") || fsync(file.get()) != 0)
        fail("cannot flush " + path);
}

// The numbers of writes and flushes that are done, and of those under way.
std::string DiskImage::written_so_far() const {
    constexpr std::size_t writes = 4, under_way = 8, flushes = 15;
    const std::string text = content("/sys/block/" + device_ + "/stat");
    const auto words = hostadm::base::words_of(text);
    if (words.size() <= flushes)
        throw std::runtime_error("the kernel does not tell what is written to " + device_);
    return std::string(words[writes]) + " " + std::string(words[flushes]) +
           (words[under_way] == "0" ? "" : " under way");
}

void DiskImage::copy_to(const std::string &file) const {
    for (;;) {
        const std::string before = written_so_far();
        if (before.ends_with("under way")) {
            usleep(200);
            continue;
        }
        const std::string command = "cp --sparse=always " + file_ + " " + file;
        if (std::system(command.c_str()) != 0)
            throw std::runtime_error("cannot copy " + file_);
        if (written_so_far() == before)
            return;
    }
}

} // namespace tests
