// SPDX-License-Identifier: MIT
// /tmp and the tables lie on two file systems, so that nothing is moved from the one to the other in one step, and the
// file system of the tables is full. Each table is the old or the new one, never anything less, and a method that could
// not do its work says so.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "support/run_method.hpp"
#include "support/standin.hpp"
#include "support/text_files.hpp"

namespace {

namespace fs = std::filesystem;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;
using tests::content;
using tests::hostadm;
using tests::Outcome;
using tests::write;

// A small file system with what is at this place.
class SmallDisk {
public:
    explicit SmallDisk(const std::string &path) : path_(path) {
        fs::create_directories(path);
        system(("cp -a " + path + "/. /beside").c_str());
        EXPECT_EQ(mount("small", path.c_str(), "tmpfs", 0, "size=512k,mode=0755"), 0);
        system(("cp -a /beside/. " + path).c_str());
    }
    ~SmallDisk() { umount2(path_.c_str(), MNT_DETACH); }
    SmallDisk(const SmallDisk &) = delete;
    SmallDisk &operator=(const SmallDisk &) = delete;

    // So many pages are left free.
    void fill(int left) const {
        std::ofstream filler(path_ + "/filler", std::ios::binary);
        const std::string page(4096, 'x');
        while (filler.write(page.data(), static_cast<std::streamsize>(page.size())).flush()) {
        }
        filler.close();
        fs::resize_file(path_ + "/filler", fs::file_size(path_ + "/filler") / 4096 * 4096 -
                                               static_cast<std::uintmax_t>(left) * 4096);
    }
    void empty() const { fs::remove(path_ + "/filler"); }

private:
    std::string path_;
};

class FullDisk : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(std::getenv("HOSTADM_SANDBOX"), nullptr) << "run this with in-sandbox";
        standin::reset();
        fs::remove_all("/beside");
        fs::create_directory("/beside");
        for (const char *path : {"/export", "/tftpboot"})
            fs::remove_all(path);
        struct stat root {
        }, temporary{};
        if (stat("/", &root) == 0 && stat("/tmp", &temporary) == 0 && root.st_dev == temporary.st_dev) {
            ASSERT_EQ(mount("own", "/tmp", "tmpfs", 0, "mode=1777"), 0);
        }
    }

    // Runs it with nothing left on the disk of the table, then with a little more each time until it is done.
    static void at_every_fill(const SmallDisk &disk, const std::string &command,
                              const std::vector<std::string> &tables, const std::function<void()> &prepare) {
        std::vector<std::string> old_texts, new_texts;
        const auto read = [&] {
            std::vector<std::string> texts;
            for (const std::string &table : tables)
                texts.push_back(content(table));
            return texts;
        };
        prepare();
        old_texts = read();
        Outcome ran = hostadm(command);
        ASSERT_EQ(ran.status, 0) << ran.output;
        new_texts = read();
        ASSERT_NE(old_texts, new_texts);
        int failed = 0;
        for (int left = 0; left <= 12; ++left) {
            SCOPED_TRACE(std::to_string(left) + " pages left");
            prepare();
            disk.fill(left);
            ran = hostadm(command);
            const std::vector<std::string> texts = read();
            disk.empty();
            for (std::size_t i = 0; i < tables.size(); ++i)
                EXPECT_THAT(texts[i], AnyOf(old_texts[i], new_texts[i])) << tables[i];
            if (ran.status == 0) {
                EXPECT_EQ(texts, new_texts) << "what is said to be done is done";
            } else {
                ++failed;
                EXPECT_EQ(ran.status, 1);
                EXPECT_NE(ran.output, "");
                EXPECT_EQ(texts, old_texts);
            }
        }
        EXPECT_GT(failed, 0) << "the disk was never full";
    }
};

TEST_F(FullDisk, LeavesTheMountTableOfAClientOldOrNew) {
    const std::string root = "/export/root/c1", table = root + "/etc/vfstab";
    const SmallDisk disk("/export");
    // Longer than a page, so that half of it could be written.
    std::string text;
    for (int i = 0; i < 200; ++i)
        text += "srv:/home" + std::to_string(i) + " - /home" + std::to_string(i) + " nfs - yes rw\n";
    const auto prepare = [&] { write(table, "srv:/r - / nfs - no rw\n" + text); };
    at_every_fill(disk, "run cachelet/enable_cache root=" + root, {table}, prepare);
    at_every_fill(disk, "run filesystem/add_mount_entry resource=srv:/new mountpt=/new vfstab=" + table,
                  {table}, prepare);
}

TEST_F(FullDisk, LeavesTheTablesOfTheServerOldOrNew) {
    for (const char *daemon : {"/usr/lib/nfs/mountd", "/usr/lib/nfs/nfsd", "/usr/sbin/in.rarpd"}) {
        standin::place(daemon, {.stay = true});
        standin::start(daemon, "-a");
    }
    standin::place("/usr/sbin/share",
                   {.script = "tab=/shared; [ $# = 0 ] && { cat $tab; exit 0; }\n"
                              "while getopts F:o:d: o; do case $o in o) opts=$OPTARG;; esac; done\n"
                              "shift $((OPTIND - 1)); echo \"-  $1  $opts  \\\"\\\"\" >>$tab"});
    standin::place("/usr/sbin/unshare", {.script = "shift 2; sed -i \"\\|  $1  |d\" /shared"});
    write("/tree/etc/motd", "welcome\n");
    write("/tree/usr/platform/kel4m/lib/fs/nfs/inetboot", "boot program");
    // Only what is edited lies on the small disk.
    const std::string around = "/small-etc";
    fs::create_directory(around);
    for (const char *name : {"passwd", "group", "nsswitch.conf", "ld.so.cache"})
        fs::copy_file(std::string("/etc/") + name, around + "/" + name);
    fs::copy("/etc/alternatives", around + "/alternatives", fs::copy_options::copy_symlinks);
    ASSERT_EQ(mount(around.c_str(), "/etc", nullptr, MS_BIND, nullptr), 0);
    {
        const SmallDisk disk("/etc");
        const auto prepare = [] {
            for (const char *path : {"/export", "/tftpboot", "/var/lib/hostadm"})
                fs::remove_all(path);
            write("/shared", "");
            write("/etc/hosts", "127.0.0.1\tlocalhost server1\n");
            write("/etc/ethers", "# ethers\n");
            write("/etc/bootparams", "other root=elsewhere:/export/root/other\n");
            write("/etc/dfs/dfstab", "# shares\n");
        };
        at_every_fill(disk,
                      "run client/add_diskless hostname=c1 address=10.1.2.3 ethernet=8:0:20:a:b:c "
                      "instruction_set=kel4 implementation_arch=kel4m os_name=Quorvel os_version=2.5 "
                      "server=server1 tree=/tree swap_size=64k",
                      {"/etc/hosts", "/etc/ethers", "/etc/bootparams", "/etc/dfs/dfstab"}, prepare);
    }
    umount2("/etc", MNT_DETACH);
}

} // namespace
