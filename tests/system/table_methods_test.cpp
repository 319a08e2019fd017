// SPDX-License-Identifier: MIT
// The methods that list, set and remove lines of the tables of hosts, Ethernet addresses, mounts and shares, run by the
// command.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>

#include "support/run_method.hpp"
#include "support/standin.hpp"
#include "support/text_files.hpp"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using tests::content;
using tests::hostadm;
using tests::Outcome;
using tests::write;

std::string output_of(const std::string &words) {
    const Outcome run = hostadm("run " + words);
    EXPECT_EQ(run.status, 0) << words << ": " << run.output;
    return run.output;
}

// The same run once more finds everything as it is, and leaves the table alone.
void changes_once(const std::string &words, const std::string &table, const std::string &text) {
    EXPECT_THAT(output_of(words), HasSubstr("yes\n")) << words;
    EXPECT_EQ(content(table), text) << words;
    struct stat before {
    }, after{};
    stat(table.c_str(), &before);
    EXPECT_THAT(output_of(words), testing::AllOf(HasSubstr("changed"), testing::EndsWith("  no\n"))) << words;
    stat(table.c_str(), &after);
    EXPECT_EQ(after.st_ino, before.st_ino) << words;
}

void fails(const std::string &words, const std::string &text, int status = 1) {
    const Outcome run = hostadm("run " + words);
    EXPECT_EQ(run.status, status) << words << ": " << run.output;
    EXPECT_THAT(run.output, HasSubstr(text)) << words;
}

// A preview shows the change and makes none.
void is_previewed(const std::string &words, const std::string &table, const std::string &line) {
    const std::string before = content(table);
    const Outcome run = hostadm("preview " + words);
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_THAT(run.output, HasSubstr("\n" + line + "\n"));
    EXPECT_EQ(content(table), before);
}

class Tables : public testing::Test {
protected:
    void SetUp() override {
        for (const char *path : {"/export", "/etc/dfs", "/etc/vfstab", "/etc/ethers", "/etc/bootparams"})
            fs::remove_all(path);
        write("/etc/hosts", hosts);
    }
    // A root that belongs to a client, who has laid its table where the server's lies.
    static void lay_link(const std::string &table) {
        fs::create_directories("/export/root/c1/etc");
        fs::remove("/export/root/c1/etc/" + table);
        fs::create_symlink("/etc/" + table, "/export/root/c1/etc/" + table);
    }
    const std::string hosts = "# mine\n127.0.0.1\tlocalhost\n::1 localhost ip6-localhost\n"
                              "10.1.2.3   c1   c1.lab # of the lab\n10.1.2.4 c2";
};

TEST_F(Tables, HostsAreListed) {
    EXPECT_EQ(output_of("database/list_hosts"), "address    hostname   aliases\n"
                                                "127.0.0.1  localhost  -\n"
                                                "::1        localhost  ip6-localhost\n"
                                                "10.1.2.3   c1         c1.lab\n"
                                                "10.1.2.4   c2         -\n");
    fs::remove("/etc/hosts");
    EXPECT_EQ(output_of("database/list_hosts"), "");
    fs::create_directory("/etc/hosts");
    fails("database/list_hosts", "/etc/hosts cannot be read: Is a directory");
    fs::remove("/etc/hosts");
}

TEST_F(Tables, HostIsSetWithAllItsNames) {
    const std::string rest = hosts.substr(0, hosts.find("10.1.2.4"));
    is_previewed("database/set_host address=10.1.2.4 hostname=c2 aliases=c2.lab,two", "/etc/hosts",
                 "+10.1.2.4\tc2 c2.lab two");
    changes_once("database/set_host address=10.1.2.4 hostname=c2 aliases=c2.lab,two", "/etc/hosts",
                 rest + "10.1.2.4\tc2 c2.lab two\n");
    fails("database/set_host address=127.0.0.1 hostname=c9", "would lose the name localhost");
    EXPECT_THAT(output_of("database/set_host address=127.0.0.1 hostname=localhost aliases=loopback"),
                HasSubstr("changed   yes"));
}

TEST_F(Tables, HostIsRemovedByItsAddressOrItsName) {
    is_previewed("database/remove_host hostname=c2", "/etc/hosts", "-10.1.2.4 c2");
    const std::string rest = hosts.substr(0, hosts.find("10.1.2.4"));
    changes_once("database/remove_host hostname=C2", "/etc/hosts", rest);
    EXPECT_EQ(output_of("database/remove_host address=10.1.2.3 hostname=c2"), "changed  no\n");
    changes_once("database/remove_host address=10.1.2.3", "/etc/hosts",
                 rest.substr(0, rest.find("10.1.2.3")));
}

TEST_F(Tables, HostThatIsNeededIsNotRemoved) {
    fails("database/remove_host", "say which line", 2);
    fails("database/remove_host hostname=localhost", "holds the name localhost");
    fails("database/remove_host address=127.0.0.1", "holds the name localhost");
    fails("database/remove_host hostname=c1.lab", "c1.lab is a further name of c1 (10.1.2.3)");
    EXPECT_EQ(content("/etc/hosts"), hosts);
}

TEST_F(Tables, EthernetAddressesAreListedSetAndRemovedInAnySpelling) {
    write("/etc/ethers", "# macs\n8:0:20:A:b:C c1 # mine\n");
    EXPECT_EQ(output_of("database/list_ethers"), "ethernet      hostname\n8:0:20:A:b:C  c1\n");
    EXPECT_EQ(output_of("database/set_ether ethernet=08:00:20:0a:0b:0c hostname=c1"), "changed  no\n");
    changes_once("database/set_ether ethernet=08:00:20:0a:0b:0c hostname=c3", "/etc/ethers",
                 "# macs\n8:0:20:A:b:C\tc3 # mine\n");
    changes_once("database/set_ether ethernet=8:0:20:1:2:3 hostname=c2", "/etc/ethers",
                 "# macs\n8:0:20:A:b:C\tc3 # mine\n08:00:20:01:02:03\tc2\n");
    fails("database/set_ether ethernet=8:0:20:1:2:4 hostname=c2", "c2 has 08:00:20:01:02:03 in /etc/ethers");
    is_previewed("database/remove_ether hostname=c2", "/etc/ethers", "-08:00:20:01:02:03\tc2");
    changes_once("database/remove_ether ethernet=08:00:20:0a:0b:0c", "/etc/ethers",
                 "# macs\n08:00:20:01:02:03\tc2\n");
    fails("database/remove_ether", "say which line", 2);
    fs::remove("/etc/ethers");
    EXPECT_EQ(output_of("database/remove_ether hostname=c2"), "changed  no\n");
    EXPECT_FALSE(fs::exists("/etc/ethers"));
    changes_once("database/set_ether ethernet=8:0:20:1:2:3 hostname=c2", "/etc/ethers",
                 "08:00:20:01:02:03\tc2\n");
}

TEST_F(Tables, TableOfAClientLeadsToNoneOfTheServers) {
    lay_link("hosts");
    const std::string of_client = " table=/export/root/c1/etc/hosts";
    for (const char *words : {"database/list_hosts", "database/set_host address=10.1.2.9 hostname=c9",
                              "database/remove_host hostname=c1"})
        EXPECT_EQ(hostadm("run " + (words + of_client)).status, 1) << words;
    EXPECT_EQ(content("/etc/hosts"), hosts);
    fs::remove("/export/root/c1/etc/hosts");
    EXPECT_EQ(output_of("database/remove_host hostname=c9" + of_client), "changed  no\n");
    changes_once("database/set_host address=10.1.2.9 hostname=c9" + of_client, "/export/root/c1/etc/hosts",
                 "10.1.2.9\tc9\n");
    EXPECT_EQ(output_of("database/list_hosts" + of_client),
              "address   hostname  aliases\n10.1.2.9  c9        -\n");
    changes_once("database/remove_host hostname=c9" + of_client, "/export/root/c1/etc/hosts", "");
}

TEST_F(Tables, MountsAreListedWithoutThoseOfTheSystem) {
    fs::create_directories("/data/lake");
    ASSERT_EQ(mount("lake", "/data/lake", "tmpfs", MS_NOSUID, "size=64k"), 0);
    const std::string listed = output_of("filesystem/list_mounts");
    EXPECT_THAT(listed, testing::ContainsRegex("lake +/data/lake +tmpfs +rw\n"));
    EXPECT_THAT(listed, Not(HasSubstr(" /proc ")));
    EXPECT_THAT(output_of("filesystem/list_mounts system=yes"), testing::ContainsRegex(" /proc +proc "));
    EXPECT_EQ(umount("/data/lake"), 0);
    EXPECT_THAT(output_of("filesystem/list_mounts"), Not(HasSubstr("/data/lake")));
}

TEST_F(Tables, MountEntriesOfSevenColumnsAreListedSetAndRemoved) {
    const std::string table = "#device fsck point type pass boot options\nh:/usr - /usr nfs - yes ro\n";
    write("/etc/vfstab", table);
    EXPECT_EQ(output_of("filesystem/list_mount_entries"),
              "resource  fsckdev  mountpt  fstype  fsckpass  mountatboot  mntopts\n"
              "h:/usr    -        /usr     nfs     -         yes          ro\n");
    changes_once("filesystem/add_mount_entry resource=H:/x mountpt=/x fstype=nfs mountatboot=no",
                 "/etc/vfstab", table + "h:/x\t-\t/x\tnfs\t-\tno\t-\n");
    is_previewed("filesystem/remove_mount_entry resource=H:/x", "/etc/vfstab", "-h:/x\t-\t/x\tnfs\t-\tno\t-");
    changes_once("filesystem/remove_mount_entry resource=H:/x", "/etc/vfstab", table);
    changes_once("filesystem/remove_mount_entry mountpt=/usr", "/etc/vfstab",
                 table.substr(0, table.find("h:")));
}

TEST_F(Tables, MountEntriesOfSixColumnsAreListedSetAndRemoved) {
    write("/etc/fstab", "/dev/sda1 / ext4 errors=remount-ro 0 1\n");
    EXPECT_EQ(output_of("filesystem/list_mount_entries vfstab=/etc/fstab"),
              "resource   mountpt  fstype  mntopts            freq  fsckpass\n"
              "/dev/sda1  /        ext4    errors=remount-ro  0     1\n");
    for (const char *table :
         {"vfstab=/etc/fstab", "vfstab=/etc/fstab layout=fstab", "vfstab=/etc/fstab layout=4x"}) {
        changes_once(
            "filesystem/add_mount_entry resource=h:/x mountpt=/x fstype=nfs mntopts=rw freq=0 fsckpass=0 " +
                std::string(table),
            "/etc/fstab", "/dev/sda1 / ext4 errors=remount-ro 0 1\nh:/x\t/x\tnfs\trw\t0\t0\n");
        changes_once("filesystem/remove_mount_entry mountpt=/x " + std::string(table), "/etc/fstab",
                     "/dev/sda1 / ext4 errors=remount-ro 0 1\n");
    }
}

TEST_F(Tables, MountEntryThatIsNotTheOnlyOneIsAskedFor) {
    const std::string table = "swap - /tmp tmpfs - yes -\nswap - /run tmpfs - yes -\n";
    write("/etc/vfstab", table);
    fails("filesystem/remove_mount_entry", "say which line", 2);
    fails("filesystem/remove_mount_entry resource=swap", "swap on /tmp, swap on /run");
    EXPECT_EQ(content("/etc/vfstab"), table);
    changes_once("filesystem/remove_mount_entry resource=swap mountpt=/run", "/etc/vfstab",
                 "swap - /tmp tmpfs - yes -\n");
}

TEST_F(Tables, ShareEntriesAreListedSetAndRemovedAndNothingIsShared) {
    standin::reset();
    standin::place("/usr/sbin/share");
    standin::place("/usr/sbin/unshare");
    const std::string table = "/etc/dfs/dfstab", failed = "#share -F nfs -o ro /export/a\n";
    fs::create_directories("/export/a");
    write(table, "# shares\n" + failed + "share -F nfs /export/b\n");
    changes_once(
        "filesystem/set_share_entry pathname=/export/./a options=rw=c1,root=c1 'description=homes of all'",
        table,
        "# shares\n" + failed +
            "share -F nfs /export/b\n"
            "share -F nfs -o rw=c1,root=c1 -d 'homes of all' /export/a\n");
    EXPECT_EQ(output_of("filesystem/list_share_entries"), "path       options        description   at_boot\n"
                                                          "/export/a  ro             -             failed\n"
                                                          "/export/b  -              -             yes\n"
                                                          "/export/a  rw=c1,root=c1  homes of all  yes\n");
    is_previewed("filesystem/remove_share_entry pathname=/export/b", table, "-share -F nfs /export/b");
    changes_once("filesystem/remove_share_entry pathname=/export/a", table,
                 "# shares\nshare -F nfs /export/b\n");
    EXPECT_THAT(standin::lines(), testing::Each("/usr/sbin/share")) << "a preview asks for the shares";
}

TEST_F(Tables, MountTableOfAClientLeadsToNoneOfTheServers) {
    write("/etc/vfstab", "h:/usr - /usr nfs - yes ro\n");
    lay_link("vfstab");
    const std::string of_client = " vfstab=/export/root/c1/etc/vfstab";
    for (const char *words : {"filesystem/list_mount_entries", "filesystem/remove_mount_entry mountpt=/usr",
                              "filesystem/add_mount_entry resource=h:/x mountpt=/x fstype=nfs"})
        EXPECT_EQ(hostadm("run " + (words + of_client)).status, 1) << words;
    EXPECT_EQ(content("/etc/vfstab"), "h:/usr - /usr nfs - yes ro\n");
}

} // namespace
