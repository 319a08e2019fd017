// SPDX-License-Identifier: MIT
#include <array>
#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <map>
#include <string>
#include <sys/statvfs.h>
#include <tuple>
#include <unistd.h>
#include <utility>
#include <vector>

#include "hostadm.h"
#include "support/fake_commands.hpp"
#include "support/fake_framework.hpp"
#include "support/fake_platform.hpp"
#include "support/fake_tables.hpp"
#include "support/memory_limit.hpp"

namespace fs = std::filesystem;
using fakes::Answer;
using fakes::Column;
using fakes::Recorded;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Eq;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::StartsWith;

namespace {

// What happened to the host outside of commands and tables, in order, and how it answers.
struct Host {
    std::vector<std::string> events;
    std::map<std::string, int> checks = {{"mountd", HOSTADM_DAEMON_RUNNING},
                                         {"nfsd", HOSTADM_DAEMON_RUNNING}};
    std::map<std::string, int> starts; // by program; 0 otherwise
    int statvfs_status = 0;
    bool knows_errors = true; // false: strerror gives no text
};
Host host;

void answer(Answer said) {
    fakes::commands().answers.push_back(std::move(said));
}
std::vector<std::string> &lines() {
    return fakes::commands().lines;
}
std::vector<Recorded> &errors() {
    return fakes::framework().errors;
}
std::vector<int> &cleanups() {
    return fakes::framework().cleanups;
}
std::vector<fakes::TableCall> &table_calls() {
    return fakes::tables().calls;
}

} // namespace

namespace fakes {
void PrintTo(const Recorded &recorded, std::ostream *out) {
    *out << "error " << recorded.code << " \"" << recorded.text << '"';
}
void PrintTo(const Column &c, std::ostream *out) {
    *out << c.position << '/' << c.a << '/' << c.b << " match \"" << c.match << "\" value \"" << c.value
         << "\" " << c.flag;
}
} // namespace fakes

extern "C" {

int check_daemon(const char *name, int *pid) {
    host.events.push_back(std::string("check ") + name);
    *pid = 1;
    return host.checks[name];
}

int start_daemon(const char *path, const char *args) {
    host.events.push_back(std::string("start ") + path + " " + (args == nullptr ? "(none)" : args));
    return host.starts[path];
}

unsigned int sleep(unsigned int seconds) {
    host.events.push_back("sleep " + std::to_string(seconds));
    return 0;
}

int rename(const char *from, const char *to) noexcept {
    host.events.push_back(std::string("rename ") + from + " " + to);
    errno = ENOENT;
    return -1;
}

int statvfs(const char *, struct statvfs *) noexcept {
    return host.statvfs_status;
}

char *strerror(int error) noexcept {
    static auto *const real = reinterpret_cast<char *(*)(int)>(dlsym(RTLD_NEXT, "strerror"));
    return host.knows_errors ? real(error) : nullptr;
}
}

class Filesys : public testing::Test {
protected:
    void SetUp() override {
        fakes::reset_all();
        host = Host{};
        free_sharefs_ents();
    }
    void TearDown() override {
        free_sharefs_ents();
        EXPECT_EQ(fakes::commands().open_streams, 0);
        EXPECT_EQ(fakes::tables().lists, 0);
    }
};

// ---- mounting ----

class Mounting : public Filesys {
protected:
    // A mount that works; a test changes what it is about.
    const char *resource = "/dev/dsk/c0t1d0s0";
    const char *fsckdev = "/dev/rdsk/c0t1d0s0";
    const char *mountpt = "/mnt";
    const char *fstype = nullptr;
    const char *fsckpass = nullptr;
    const char *mountatboot = nullptr;
    const char *mntopts = nullptr;
    const char *takeeffect = nullptr;
    const char *vfstab = nullptr;

    int mount() {
        return mount_filesystem(resource, fsckdev, mountpt, fstype, fsckpass, mountatboot, mntopts,
                                takeeffect, vfstab, "mount");
    }
    static constexpr char command[] = "set -f ; (/usr/sbin/mount -F ufs -o rw /dev/dsk/c0t1d0s0 /mnt) 2>&1";
    static constexpr char undo_command[] = "set -f ; /usr/sbin/umount /mnt >/dev/null 2>&1";

    static std::vector<Column> columns(const std::array<std::string, 7> &values) {
        std::vector<Column> all;
        for (int i = 0; i < 7; ++i)
            all.push_back({i, i, i, i == 0 ? values[0] : "(none)", values[static_cast<std::size_t>(i)], 0});
        return all;
    }
};

TEST_F(Mounting, MountsAndWritesTheTable) {
    EXPECT_EQ(mount(), 0);
    EXPECT_THAT(lines(), ElementsAre(command));
    ASSERT_THAT(table_calls(), SizeIs(1));
    const fakes::TableCall &edit = table_calls()[0];
    EXPECT_EQ(edit.what, "replace");
    EXPECT_EQ(edit.table, "/etc/vfstab");
    EXPECT_EQ(edit.mode, 3);
    EXPECT_EQ(edit.separators, "\t ");
    EXPECT_EQ(edit.comment, "#");
    EXPECT_EQ(edit.comment_text, "(none)");
    EXPECT_EQ(edit.columns,
              columns({"/dev/dsk/c0t1d0s0", "/dev/rdsk/c0t1d0s0", "/mnt", "ufs", "2", "yes", "rw"}));
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_THAT(cleanups(), IsEmpty());
}

TEST_F(Mounting, NfsHasDefaultsOfItsOwn) {
    resource = "server1:/export/home";
    fsckdev = mntopts = nullptr;
    fstype = "nfs";
    EXPECT_EQ(mount(), 0);
    EXPECT_THAT(
        lines(),
        ElementsAre("set -f ; (/usr/sbin/mount -F nfs -o bg,hard,rw server1:/export/home /mnt) 2>&1"));
    ASSERT_THAT(table_calls(), SizeIs(1));
    EXPECT_EQ(table_calls()[0].columns,
              columns({"server1:/export/home", "-", "/mnt", "nfs", "-", "yes", "bg,hard,rw"}));
}

TEST_F(Mounting, EmptyArgumentsTakeTheDefaults) {
    fstype = fsckpass = mountatboot = mntopts = takeeffect = vfstab = "";
    EXPECT_EQ(mount(), 0);
    EXPECT_THAT(lines(), ElementsAre(command));
    ASSERT_THAT(table_calls(), SizeIs(1));
    EXPECT_EQ(table_calls()[0].table, "/etc/vfstab");
    EXPECT_EQ(table_calls()[0].columns,
              columns({"/dev/dsk/c0t1d0s0", "/dev/rdsk/c0t1d0s0", "/mnt", "ufs", "2", "yes", "rw"}));
}

TEST_F(Mounting, GivenArgumentsAreKept) {
    fstype = "pcfs";
    fsckpass = "1";
    mountatboot = "no";
    mntopts = "ro,noexec";
    vfstab = "/export/root/c1/etc/vfstab";
    fsckdev = "-";
    EXPECT_EQ(mount(), 0);
    EXPECT_THAT(lines(),
                ElementsAre("set -f ; (/usr/sbin/mount -F pcfs -o ro,noexec /dev/dsk/c0t1d0s0 /mnt) 2>&1"));
    ASSERT_THAT(table_calls(), SizeIs(1));
    EXPECT_EQ(table_calls()[0].table, vfstab);
    EXPECT_EQ(table_calls()[0].columns,
              columns({"/dev/dsk/c0t1d0s0", "-", "/mnt", "pcfs", "1", "no", "ro,noexec"}));
}

TEST_F(Mounting, HostPartKeepsItsCase) {
    resource = "Server1:/export";
    fstype = "nfs";
    EXPECT_EQ(mount(), 0);
    EXPECT_EQ(table_calls().at(0).columns.at(0), (Column{0, 0, 0, "Server1:/export", "Server1:/export", 0}));
}

TEST_F(Mounting, CheckDeviceIsMissedFirst) {
    resource = mountpt = fsckdev = nullptr;
    takeeffect = "never";
    EXPECT_EQ(mount(), 1);
    EXPECT_THAT(errors(), ElementsAre(Recorded{1, "1|mount|fsckdev"}));
    fsckdev = "";
    EXPECT_EQ(mount(), 1);
    EXPECT_THAT(errors(), ElementsAre(Recorded{1, "1|mount|fsckdev"}, Recorded{1, "1|mount|fsckdev"}));
    EXPECT_THAT(lines(), IsEmpty());
    EXPECT_THAT(table_calls(), IsEmpty());
}

TEST_F(Mounting, ResourceIsMissedSecond) {
    mountpt = nullptr;
    takeeffect = "never";
    for (const char *absent : {static_cast<const char *>(nullptr), "", "-"}) {
        errors().clear();
        resource = absent;
        EXPECT_EQ(mount(), 1);
        EXPECT_THAT(errors(), ElementsAre(Recorded{1, "1|mount|resource"}));
    }
}

TEST_F(Mounting, MountPointIsMissedThird) {
    takeeffect = "never";
    for (const char *absent : {static_cast<const char *>(nullptr), "", "-"}) {
        errors().clear();
        mountpt = absent;
        EXPECT_EQ(mount(), 1);
        EXPECT_THAT(errors(), ElementsAre(Recorded{1, "1|mount|mountpt"}));
    }
}

TEST_F(Mounting, UnknownModeIsRefused) {
    takeeffect = "nowandboot ";
    EXPECT_EQ(mount(), 10);
    EXPECT_THAT(errors(), ElementsAre(Recorded{10, "10|mount|nowandboot |takeeffect"}));
    EXPECT_THAT(lines(), IsEmpty());
    EXPECT_THAT(table_calls(), IsEmpty());
}

TEST_F(Mounting, BootOnlyRunsNoCommand) {
    takeeffect = "bootonly";
    EXPECT_EQ(mount(), 0);
    EXPECT_THAT(lines(), IsEmpty());
    EXPECT_THAT(table_calls(), SizeIs(1));
}

TEST_F(Mounting, NowOnlyNeverOpensTheTable) {
    takeeffect = "nowonly";
    fakes::tables().new_list_status = -12;
    EXPECT_EQ(mount(), 0);
    EXPECT_THAT(lines(), ElementsAre(command));
    EXPECT_THAT(table_calls(), IsEmpty());
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Mounting, CommandThatCannotStart) {
    answer({.contains = "mount", .starts = false});
    EXPECT_EQ(mount(), 23);
    EXPECT_THAT(errors(), ElementsAre(Recorded{23, "23|mount|/usr/sbin/mount|/dev/dsk/c0t1d0s0|"}));
    EXPECT_THAT(lines(), ElementsAre(command));
    EXPECT_THAT(table_calls(), IsEmpty());
}

TEST_F(Mounting, AnyWordIsAFailure) {
    answer({.contains = "mount", .status = 0, .output = "mount: warning: odd\nmore\n"});
    EXPECT_EQ(mount(), 23);
    EXPECT_THAT(errors(), ElementsAre(Recorded{
                              23, "23|mount|/usr/sbin/mount|/dev/dsk/c0t1d0s0|mount: warning: odd\n"}));
    EXPECT_THAT(lines(), ElementsAre(command)) << "what was not mounted is not unmounted";
    EXPECT_THAT(table_calls(), IsEmpty());
}

TEST_F(Mounting, SilenceIsSuccessWhateverTheStatus) {
    answer({.contains = "mount", .status = 32 << 8});
    EXPECT_EQ(mount(), 0);
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Mounting, ComplaintWithoutNewline) {
    answer({.contains = "mount", .output = "no"});
    EXPECT_EQ(mount(), 23);
    EXPECT_THAT(errors(), ElementsAre(Recorded{23, "23|mount|/usr/sbin/mount|/dev/dsk/c0t1d0s0|no"}));
}

TEST_F(Mounting, LongComplaintIsToldToTheReadBuffersEnd) {
    const std::string words(5000, 'x');
    answer({.contains = "mount", .output = words + "\n"});
    EXPECT_EQ(mount(), 23);
    EXPECT_THAT(errors(), ElementsAre(Recorded{23, "23|mount|/usr/sbin/mount|/dev/dsk/c0t1d0s0|" +
                                                       words.substr(0, 1023)}));
}

TEST_F(Mounting, HsfsIsTriedAgainAsUfsWhenReadOnly) {
    fstype = "hsfs";
    mntopts = "ro";
    answer({.contains = "-F hsfs", .output = "not an hsfs\n", .once = true});
    EXPECT_EQ(mount(), 0);
    EXPECT_THAT(lines(), ElementsAre("set -f ; (/usr/sbin/mount -F hsfs -o ro /dev/dsk/c0t1d0s0 /mnt) 2>&1",
                                     "set -f ; (/usr/sbin/mount -F ufs -o ro /dev/dsk/c0t1d0s0 /mnt) 2>&1"));
    EXPECT_THAT(errors(),
                ElementsAre(Recorded{23, "23|mount|/usr/sbin/mount|/dev/dsk/c0t1d0s0|not an hsfs\n"}));
    EXPECT_EQ(table_calls().at(0).columns,
              columns({"/dev/dsk/c0t1d0s0", "/dev/rdsk/c0t1d0s0", "/mnt", "ufs", "2", "yes", "ro"}));
}

TEST_F(Mounting, HsfsIsTriedAgainWhenItsCommandCannotStart) {
    fstype = "hsfs";
    mntopts = "nosuid,ro";
    answer({.contains = "-F hsfs", .starts = false});
    EXPECT_EQ(mount(), 0);
    EXPECT_THAT(lines(), SizeIs(2));
}

TEST_F(Mounting, ReadOnlyIsFoundAnywhereInTheOptions) {
    fstype = "hsfs";
    mntopts = "rw,norockridge"; // holds "ro"
    answer({.contains = "-F hsfs", .output = "no\n"});
    EXPECT_EQ(mount(), 0);
    EXPECT_THAT(lines(), SizeIs(2));
}

TEST_F(Mounting, HsfsIsTriedAgainOnlyOnce) {
    fstype = "hsfs";
    mntopts = "ro";
    answer({.contains = "mount", .output = "no\n"});
    EXPECT_EQ(mount(), 23);
    EXPECT_THAT(lines(), SizeIs(2));
    EXPECT_THAT(errors(), SizeIs(2));
    EXPECT_THAT(table_calls(), IsEmpty());
}

TEST_F(Mounting, HsfsToBeWrittenIsNotTriedAgain) {
    fstype = "hsfs";
    mntopts = "rw";
    answer({.contains = "mount", .output = "no\n"});
    EXPECT_EQ(mount(), 23);
    EXPECT_THAT(lines(), SizeIs(1));
}

TEST_F(Mounting, OtherTypesAreNotTriedAgain) {
    fstype = "pcfs";
    mntopts = "ro";
    answer({.contains = "mount", .output = "no\n"});
    EXPECT_EQ(mount(), 23);
    EXPECT_THAT(lines(), SizeIs(1));
}

TEST_F(Mounting, UnpreparedEditIsUndone) {
    fakes::tables().new_list_status = -12;
    EXPECT_EQ(mount(), 22);
    EXPECT_THAT(errors(), ElementsAre(Recorded{22, "22|mount"}));
    EXPECT_THAT(lines(), ElementsAre(command, undo_command));
    EXPECT_THAT(cleanups(), IsEmpty());
}

TEST_F(Mounting, AnyColumnMayFail) {
    for (int column = 0; column < 7; ++column) {
        SetUp();
        fakes::tables().fail_column = column;
        EXPECT_EQ(mount(), 22);
        EXPECT_THAT(errors(), ElementsAre(Recorded{22, "22|mount"}));
        EXPECT_THAT(lines(), ElementsAre(command, undo_command));
        EXPECT_THAT(table_calls(), IsEmpty());
    }
}

TEST_F(Mounting, FailedEditIsRecordedAs70AndReturnedAs38) {
    const std::pair<int, std::string> details[] = {
        {-26, "53||/etc/vfstab"},
        {-2, "8||/dev/dsk/c0t1d0s0|/etc/vfstab"},
        {-EACCES, std::string(": ") + std::strerror(EACCES)},
        {EACCES, std::string(": ") + std::strerror(EACCES)},
    };
    for (const auto &[status, detail] : details) {
        SetUp();
        fakes::tables().replace_status = status;
        EXPECT_EQ(mount(), 38);
        EXPECT_THAT(errors(), ElementsAre(Recorded{70, "70|mount|/dev/dsk/c0t1d0s0|/etc/vfstab|" + detail}));
        EXPECT_THAT(lines(), ElementsAre(command, undo_command));
        EXPECT_THAT(cleanups(), IsEmpty());
    }
}

TEST_F(Mounting, FailedUndoIsTold) {
    for (const int status : {256, -1}) {
        SetUp();
        fakes::tables().replace_status = -26;
        answer({.contains = "/usr/sbin/umount", .status = status});
        EXPECT_EQ(mount(), 38);
        EXPECT_THAT(lines(), ElementsAre(command, undo_command));
        EXPECT_THAT(cleanups(), ElementsAre(2));
    }
}

TEST_F(Mounting, NothingIsUndoneWhenNothingWasMounted) {
    takeeffect = "bootonly";
    fakes::tables().replace_status = -26;
    EXPECT_EQ(mount(), 38);
    EXPECT_THAT(lines(), IsEmpty());
    EXPECT_THAT(cleanups(), IsEmpty());
}

TEST_F(Mounting, LongPathsAndOptionsAreNotCut) {
    const std::string device = "/dev/" + std::string(3000, 'd');
    const std::string folder = "/" + std::string(3000, 'm');
    const std::string options = "rw," + std::string(3000, 'o');
    const std::string type(300, 't');
    resource = device.c_str();
    mountpt = folder.c_str();
    mntopts = options.c_str();
    fstype = type.c_str();
    fakes::tables().replace_status = -2;
    EXPECT_EQ(mount(), 38);
    EXPECT_THAT(lines(), ElementsAre("set -f ; (/usr/sbin/mount -F " + type + " -o " + options + " " +
                                         device + " " + folder + ") 2>&1",
                                     "set -f ; /usr/sbin/umount " + folder + " >/dev/null 2>&1"));
    EXPECT_EQ(table_calls().at(0).columns, columns({device, fsckdev, folder, type, "2", "yes", options}));
}

// ---- unmounting ----

class Unmounting : public Filesys {};

TEST_F(Unmounting, UnmountsAndRemovesTheLine) {
    EXPECT_EQ(unmount_filesystem("/mnt", nullptr, nullptr, "unmount"), 0);
    EXPECT_THAT(lines(), ElementsAre("(set -f ; /usr/sbin/umount /mnt) 2>&1"));
    ASSERT_THAT(table_calls(), SizeIs(1));
    const fakes::TableCall &edit = table_calls()[0];
    EXPECT_EQ(edit.what, "remove");
    EXPECT_EQ(edit.table, "/etc/vfstab");
    EXPECT_EQ(edit.separators, "\t ");
    EXPECT_EQ(edit.comment, "#");
    EXPECT_EQ(edit.comment_text, "(none)");
    EXPECT_THAT(edit.columns, ElementsAre(Column{2, 2, 2, "/mnt", "/mnt", 0}));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Unmounting, MountPointIsMissedFirst) {
    for (const char *absent : {static_cast<const char *>(nullptr), "", "-"}) {
        errors().clear();
        EXPECT_EQ(unmount_filesystem(absent, "never", nullptr, "unmount"), 1);
        EXPECT_THAT(errors(), ElementsAre(Recorded{1, "1|unmount|mountpt"}));
    }
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(Unmounting, UnknownModeIsRefused) {
    EXPECT_EQ(unmount_filesystem("/mnt", "now", nullptr, "unmount"), 10);
    EXPECT_THAT(errors(), ElementsAre(Recorded{10, "10|unmount|now|takeeffect"}));
}

TEST_F(Unmounting, ModesChooseTheSteps) {
    EXPECT_EQ(unmount_filesystem("/mnt", "nowonly", "", "unmount"), 0);
    EXPECT_THAT(lines(), SizeIs(1));
    EXPECT_THAT(table_calls(), IsEmpty());
    EXPECT_EQ(unmount_filesystem("/mnt", "bootonly", "/tmp/vfstab", "unmount"), 0);
    EXPECT_THAT(lines(), SizeIs(1));
    ASSERT_THAT(table_calls(), SizeIs(1));
    EXPECT_EQ(table_calls()[0].table, "/tmp/vfstab");
    EXPECT_EQ(unmount_filesystem("/mnt", "", "", "unmount"), 0);
    EXPECT_THAT(lines(), SizeIs(2));
    EXPECT_THAT(table_calls(), SizeIs(2));
}

TEST_F(Unmounting, CommandThatCannotStart) {
    answer({.contains = "umount", .starts = false});
    EXPECT_EQ(unmount_filesystem("/mnt", nullptr, nullptr, "unmount"), 24);
    EXPECT_THAT(errors(), ElementsAre(Recorded{24, "24|unmount|/usr/sbin/umount|/mnt|"}));
    EXPECT_THAT(table_calls(), IsEmpty());
}

TEST_F(Unmounting, AnyWordIsAFailure) {
    answer({.contains = "umount", .output = "/mnt: busy\nmore\n"});
    EXPECT_EQ(unmount_filesystem("/mnt", nullptr, nullptr, "unmount"), 24);
    EXPECT_THAT(errors(), ElementsAre(Recorded{24, "24|unmount|/usr/sbin/umount|/mnt|/mnt: busy\n"}));
    EXPECT_THAT(table_calls(), IsEmpty());
}

TEST_F(Unmounting, SilenceIsSuccessWhateverTheStatus) {
    answer({.contains = "umount", .status = 256});
    EXPECT_EQ(unmount_filesystem("/mnt", nullptr, nullptr, "unmount"), 0);
}

TEST_F(Unmounting, UnpreparedEdit) {
    fakes::tables().new_list_status = -12;
    EXPECT_EQ(unmount_filesystem("/mnt", nullptr, nullptr, "unmount"), 22);
    fakes::tables().new_list_status = 0;
    fakes::tables().fail_column = 2;
    EXPECT_EQ(unmount_filesystem("/mnt", nullptr, nullptr, "unmount"), 22);
    EXPECT_THAT(errors(), ElementsAre(Recorded{22, "22|unmount"}, Recorded{22, "22|unmount"}));
    EXPECT_THAT(table_calls(), IsEmpty());
}

TEST_F(Unmounting, FailedEditIsNotUndone) {
    const std::pair<int, std::string> details[] = {
        {-26, "53||/etc/vfstab"},
        {-2, "8||/mnt|/etc/vfstab"},
        {-EACCES, std::string(": ") + std::strerror(EACCES)},
        {EACCES, std::string(": ") + std::strerror(EACCES)},
    };
    for (const auto &[status, detail] : details) {
        SetUp();
        fakes::tables().remove_status = status;
        EXPECT_EQ(unmount_filesystem("/mnt", nullptr, nullptr, "unmount"), 38);
        EXPECT_THAT(errors(), ElementsAre(Recorded{70, "70|unmount|/mnt|/etc/vfstab|" + detail}));
        EXPECT_THAT(lines(), SizeIs(1));
        EXPECT_THAT(cleanups(), IsEmpty());
    }
}

TEST_F(Unmounting, LongPathIsNotCut) {
    const std::string folder = "/" + std::string(3000, 'm');
    EXPECT_EQ(unmount_filesystem(folder.c_str(), nullptr, nullptr, "unmount"), 0);
    EXPECT_THAT(lines(), ElementsAre("(set -f ; /usr/sbin/umount " + folder + ") 2>&1"));
    EXPECT_EQ(table_calls().at(0).columns.at(0).match, folder);
}

// ---- the share list ----

class ShareList : public Filesys {
protected:
    static void shares(const std::string &output) {
        fakes::commands().answers = {{.contains = "/usr/sbin/share", .output = output}};
    }
    static std::vector<std::pair<std::string, std::string>> listed() {
        std::vector<std::pair<std::string, std::string>> all;
        for (const sharefs_entry *entry = sfs_top; entry != nullptr; entry = entry->next)
            all.emplace_back(entry->path, entry->options);
        return all;
    }
};

TEST_F(ShareList, NothingSharedLeavesTheListEmpty) {
    get_sharefs_ents();
    EXPECT_EQ(sfs_top, nullptr);
    EXPECT_EQ(sfs_current, nullptr);
    EXPECT_STREQ(get_sharefs_ent("/export/home"), "");
    EXPECT_EQ(match_sharefs_ent("/export/home", "rw"), 0);
    EXPECT_THAT(lines(), ElementsAre("/usr/sbin/share", "/usr/sbin/share", "/usr/sbin/share"));
}

TEST_F(ShareList, CommandThatCannotStartGivesNothing) {
    answer({.contains = "share", .starts = false});
    EXPECT_STREQ(get_sharefs_ent("/export/home"), "");
    EXPECT_EQ(match_sharefs_ent("/export/home", "rw"), 0);
    EXPECT_EQ(sfs_top, nullptr);
}

TEST_F(ShareList, LineGivesPathAndOptions) {
    shares("-  /export/home  rw  \"\"\n");
    EXPECT_STREQ(get_sharefs_ent("/export/home"), "rw");
    EXPECT_EQ(match_sharefs_ent("/export/home", "rw"), 1);
    EXPECT_EQ(match_sharefs_ent("/export/home", "rw,ro"), 0);
    EXPECT_EQ(match_sharefs_ent("/export", "rw"), 0);
}

TEST_F(ShareList, StatusOfTheCommandDoesNotMatter) {
    answer({.contains = "share", .status = 256, .output = "- /a rw \"\"\n"});
    EXPECT_EQ(match_sharefs_ent("/a", "rw"), 1);
}

TEST_F(ShareList, LinesKeepTheirOrder) {
    shares("- /a rw \"\"\n\t-\t/b\tro,anon=0\twords of a description\n- /c rw");
    get_sharefs_ents();
    EXPECT_THAT(listed(), ElementsAre(Pair("/a", "rw"), Pair("/b", "ro,anon=0"), Pair("/c", "rw")));
    EXPECT_STREQ(sfs_current->path, "/c");
}

TEST_F(ShareList, AnyWhiteSpaceSeparatesWords) {
    shares("\v-\f/a\rrw\r\n");
    get_sharefs_ents();
    EXPECT_THAT(listed(), ElementsAre(Pair("/a", "rw")));
}

TEST_F(ShareList, TwoSnapshotsHoldEveryShareTwice) {
    shares("- /a rw \"\"\n- /b ro \"\"\n");
    get_sharefs_ents();
    get_sharefs_ents();
    EXPECT_THAT(listed(),
                ElementsAre(Pair("/a", "rw"), Pair("/b", "ro"), Pair("/a", "rw"), Pair("/b", "ro")));
}

TEST_F(ShareList, MissingWordsStayAsTheLineBeforeHadThem) {
    shares("- /a rw \"\"\n- /b\n\n-\n- /c ro\n");
    get_sharefs_ents();
    EXPECT_THAT(listed(), ElementsAre(Pair("/a", "rw"), Pair("/b", "rw"), Pair("/b", "rw"), Pair("/b", "rw"),
                                      Pair("/c", "ro")));
}

TEST_F(ShareList, MissingWordsOfTheFirstLineAreEmpty) {
    shares("-\n- /b\n");
    get_sharefs_ents();
    EXPECT_THAT(listed(), ElementsAre(Pair("", ""), Pair("/b", "")));
    free_sharefs_ents();
    shares("- /x ro\n");
    get_sharefs_ents();
    free_sharefs_ents();
    shares("\n");
    get_sharefs_ents();
    EXPECT_THAT(listed(), ElementsAre(Pair("", ""))) << "words of an earlier snapshot do not come back";
}

TEST_F(ShareList, LongLinesStayWhole) {
    const std::string path = "/" + std::string(1500, 'p');
    const std::string options = "rw=" + std::string(3000, 'c');
    shares("- " + path + " " + options + " \"\"\n- /b ro \"\"\n");
    get_sharefs_ents();
    EXPECT_THAT(listed(), ElementsAre(Pair(path, options), Pair("/b", "ro")));
}

TEST_F(ShareList, FirstOfSeveralMatchesWins) {
    shares("- /a rw \"\"\n- /b ro \"\"\n- /b rw \"\"\n");
    EXPECT_STREQ(get_sharefs_ent("/b"), "ro");
    EXPECT_EQ(sfs_current, sfs_top->next);
    free_sharefs_ents();
    EXPECT_EQ(match_sharefs_ent("/b", "rw"), 1) << "path and options belong together";
}

TEST_F(ShareList, MatchAlwaysFreesTheList) {
    shares("- /a rw \"\"\n");
    EXPECT_EQ(match_sharefs_ent("/a", "rw"), 1);
    EXPECT_EQ(sfs_top, nullptr);
    EXPECT_EQ(sfs_current, nullptr);
    EXPECT_EQ(match_sharefs_ent("/b", "rw"), 0);
    EXPECT_EQ(sfs_top, nullptr);
}

TEST_F(ShareList, GetKeepsTheListOnlyAfterAMatch) {
    shares("- /a rw \"\"\n- /b ro \"\"\n");
    const char *options = get_sharefs_ent("/b");
    EXPECT_EQ(sfs_current->options, options);
    EXPECT_THAT(listed(), SizeIs(2));
    free_sharefs_ents();
    EXPECT_EQ(sfs_top, nullptr);
    EXPECT_EQ(sfs_current, nullptr);
    EXPECT_STREQ(get_sharefs_ent("/c"), "");
    EXPECT_EQ(sfs_top, nullptr);
}

TEST_F(ShareList, SnapshotIsAppendedBehindTheCursor) {
    shares("- /a rw \"\"\n- /b ro \"\"\n- /c rw \"\"\n");
    EXPECT_STREQ(get_sharefs_ent("/b"), "ro");
    shares("- /d rw \"\"\n- /e rw \"\"\n");
    get_sharefs_ents();
    EXPECT_THAT(listed(),
                ElementsAre(Pair("/a", "rw"), Pair("/b", "ro"), Pair("/d", "rw"), Pair("/e", "rw")));
}

TEST_F(ShareList, SearchBeginsWithWhatWasThereBefore) {
    shares("- /a rw \"\"\n- /b ro \"\"\n- /c rw \"\"\n");
    EXPECT_STREQ(get_sharefs_ent("/b"), "ro");
    shares("- /a ro \"\"\n- /d rw \"\"\n");
    EXPECT_STREQ(get_sharefs_ent("/a"), "rw");
    EXPECT_EQ(sfs_current, sfs_top);
    EXPECT_EQ(match_sharefs_ent("/a", "rw"), 1) << "the old entry up to the cursor";
    EXPECT_EQ(match_sharefs_ent("/a", "rw"), 0) << "the list was freed";
}

TEST_F(ShareList, OptionsOfACutOffEntryStayUntilTheListIsFreed) {
    shares("- /a rw \"\"\n- /b ro,anon=0 \"\"\n");
    const char *options = get_sharefs_ent("/b");
    EXPECT_STREQ(get_sharefs_ent("/a"), "rw");
    get_sharefs_ents();
    EXPECT_STREQ(options, "ro,anon=0");
}

TEST_F(ShareList, CallerMayWalkOffTheEnd) {
    shares("- /a rw \"\"\n- /b ro \"\"\n");
    get_sharefs_ents();
    for (sfs_current = sfs_top; sfs_current != nullptr;)
        sfs_current = sfs_current->next;
    get_sharefs_ents();
    EXPECT_THAT(listed(), SizeIs(4));
}

TEST_F(ShareList, FreeingAnEmptyListIsHarmless) {
    free_sharefs_ents();
    free_sharefs_ents();
    EXPECT_EQ(sfs_top, nullptr);
}

// ---- sharing ----

class Sharing : public Filesys {
protected:
    const char *fstype = nullptr;
    const char *options = nullptr;
    const char *description = nullptr;
    const char *pathname = "/nowhere/home";
    const char *takeeffect = nullptr;
    int force = 0;

    int share() { return sharefs(fstype, options, description, pathname, takeeffect, "share", force); }

    static constexpr char command[] = "(set -f ; /usr/sbin/share -F nfs -o rw /nowhere/home) 2>&1";
    static constexpr char undo_command[] = "set -f ; /usr/sbin/unshare -F nfs /nowhere/home >/dev/null 2>&1";

    static void complaint(const std::string &output, bool once = true) {
        answer({.contains = "/usr/sbin/share -F", .output = output, .once = once});
    }
    static void list(const std::string &output) {
        answer({.contains = "/usr/sbin/share -F"}); // silence when the complaints are used up
        answer({.contains = "/usr/sbin/share", .output = output});
    }
    static std::vector<Column> columns(const std::string &word, const std::string &line_options,
                                       const std::string &path) {
        return {{0, 0, 0, word, word, 0},
                {1, 1, 1, "-F", "-F", 0},
                {2, 2, 2, "nfs", "nfs", 0},
                {3, 1, 3, "(none)", "-o", 0},
                {4, 2, 4, "(none)", line_options, 0},
                {5, 1, 7, path, path, 0}};
    }
};

TEST_F(Sharing, PathAloneIsEnough) {
    EXPECT_EQ(share(), 0);
    EXPECT_THAT(lines(), ElementsAre(command));
    EXPECT_THAT(host.events, ElementsAre("rename /usr/lib/nfs/mountd- /usr/lib/nfs/mountd", "check mountd",
                                         "rename /usr/lib/nfs/nfsd- /usr/lib/nfs/nfsd", "check nfsd"));
    EXPECT_EQ(fakes::framework().outputs,
              (std::map<std::string, std::string>{{"pathname", "/nowhere/home"}}));
    ASSERT_THAT(table_calls(), SizeIs(1));
    const fakes::TableCall &edit = table_calls()[0];
    EXPECT_EQ(edit.what, "replace");
    EXPECT_EQ(edit.table, "/etc/dfs/dfstab");
    EXPECT_EQ(edit.mode, 11);
    EXPECT_EQ(edit.separators, " \t");
    EXPECT_EQ(edit.comment, "(none)");
    EXPECT_EQ(edit.comment_text, "(none)");
    EXPECT_EQ(edit.columns, columns("share", "rw", "/nowhere/home"));
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_THAT(cleanups(), IsEmpty());
}

TEST_F(Sharing, EmptyArgumentsTakeTheDefaults) {
    fstype = options = description = takeeffect = "";
    EXPECT_EQ(share(), 0);
    EXPECT_THAT(lines(), ElementsAre(command));
    EXPECT_EQ(table_calls().at(0).columns, columns("share", "rw", "/nowhere/home"));
}

TEST_F(Sharing, DescriptionIsWrittenAsGiven) {
    fstype = "nfs";
    options = "ro,anon=0";
    description = "homes";
    EXPECT_EQ(share(), 0);
    EXPECT_THAT(lines(),
                ElementsAre("(set -f ; /usr/sbin/share -F nfs -o ro,anon=0 -d homes /nowhere/home) 2>&1"));
    ASSERT_THAT(table_calls(), SizeIs(1));
    EXPECT_EQ(table_calls()[0].comment, "#");
    EXPECT_EQ(table_calls()[0].comment_text, "homes");
    EXPECT_THAT(table_calls()[0].columns,
                ElementsAre(Column{0, 0, 0, "share", "share", 0}, Column{1, 1, 1, "-F", "-F", 0},
                            Column{2, 2, 2, "nfs", "nfs", 0}, Column{3, 1, 3, "(none)", "-o", 0},
                            Column{4, 2, 4, "(none)", "ro,anon=0", 0}, Column{5, 1, 5, "(none)", "-d", 0},
                            Column{6, 2, 6, "(none)", "homes", 0},
                            Column{7, 1, 7, "/nowhere/home", "/nowhere/home", 0}));
}

TEST_F(Sharing, OtherTypesAreRefusedFirst) {
    fstype = "ufs";
    pathname = nullptr;
    takeeffect = "never";
    EXPECT_EQ(share(), 26);
    EXPECT_THAT(errors(), ElementsAre(Recorded{26, "26|share|nfs"}));
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(Sharing, PathIsMissedSecond) {
    takeeffect = "never";
    for (const char *absent : {static_cast<const char *>(nullptr), ""}) {
        errors().clear();
        pathname = absent;
        EXPECT_EQ(share(), 1);
        EXPECT_THAT(errors(), ElementsAre(Recorded{1, "1|share|pathname"}));
    }
}

TEST_F(Sharing, UnknownModeIsRefusedBeforeTheDirectoryIsLookedAt) {
    fakes::platform().fstype = "nfs";
    takeeffect = "both";
    EXPECT_EQ(share(), 10);
    EXPECT_THAT(errors(), ElementsAre(Recorded{10, "10|share|both|takeeffect"}));
    EXPECT_THAT(fakes::framework().outputs, IsEmpty());
}

TEST_F(Sharing, DirectoryOnANfsMountIsRefusedInEveryMode) {
    fakes::platform().fstype = "nfs";
    force = 1;
    for (const char *mode : {"nowonly", "bootonly", "nowandboot"}) {
        errors().clear();
        takeeffect = mode;
        EXPECT_EQ(share(), 27);
        EXPECT_THAT(errors(),
                    ElementsAre(Recorded{27, "27|share|/usr/sbin/share|/nowhere/home|cannot share nfs"}));
    }
    EXPECT_THAT(lines(), IsEmpty());
    EXPECT_THAT(table_calls(), IsEmpty());
}

TEST_F(Sharing, UnknownFileSystemIsNotRefused) {
    fakes::platform().fstype = "nfs";
    host.statvfs_status = -1;
    EXPECT_EQ(share(), 0);
    host.statvfs_status = 0;
    fakes::platform().fstype = "";
    EXPECT_EQ(share(), 0);
    fakes::platform().fstype = "nfsd";
    EXPECT_EQ(share(), 0);
}

TEST_F(Sharing, LinksAndDotsAreResolved) {
    char name[] = "/tmp/filesys_test.XXXXXX";
    const std::string directory = fs::canonical(mkdtemp(name));
    fs::create_directory(directory + "/home");
    fs::create_symlink("home", directory + "/link");
    const std::string path = directory + "/home/../link/";
    pathname = path.c_str();
    EXPECT_EQ(share(), 0);
    EXPECT_EQ(unsharefs(nullptr, pathname, nullptr, nullptr, "unshare"), 0);
    fs::remove_all(directory);
    const std::string home = directory + "/home";
    EXPECT_THAT(lines(), ElementsAre("(set -f ; /usr/sbin/share -F nfs -o rw " + home + ") 2>&1",
                                     "(set -f ; /usr/sbin/unshare -F nfs " + home + ") 2>&1"));
    EXPECT_EQ(fakes::framework().outputs["pathname"], home);
    EXPECT_EQ(table_calls().at(0).columns, columns("share", "rw", home));
    EXPECT_EQ(table_calls().at(1).columns.at(3).match, home);
}

TEST_F(Sharing, LongPathsAndOptionsAreNotCut) {
    std::string path;
    for (int i = 0; i < 30; ++i)
        path += "/" + std::string(200, 'p');
    const std::string hosts = "rw=" + std::string(3000, 'h');
    const std::string words(2000, 'd');
    pathname = path.c_str();
    options = hosts.c_str();
    description = words.c_str();
    fakes::tables().replace_status = -2;
    EXPECT_EQ(share(), 38);
    EXPECT_THAT(lines(), ElementsAre("(set -f ; /usr/sbin/share -F nfs -o " + hosts + " -d " + words + " " +
                                         path + ") 2>&1",
                                     "set -f ; /usr/sbin/unshare -F nfs " + path + " >/dev/null 2>&1"));
    EXPECT_EQ(fakes::framework().outputs["pathname"], path);
}

TEST_F(Sharing, NowOnlyNeverOpensTheTable) {
    takeeffect = "nowonly";
    EXPECT_EQ(share(), 0);
    EXPECT_THAT(lines(), ElementsAre(command));
    EXPECT_THAT(table_calls(), IsEmpty());
    EXPECT_EQ(fakes::framework().outputs["pathname"], "/nowhere/home");
}

TEST_F(Sharing, BootOnlyRunsNothing) {
    takeeffect = "bootonly";
    EXPECT_EQ(share(), 0);
    EXPECT_THAT(lines(), IsEmpty());
    EXPECT_THAT(host.events, IsEmpty());
    EXPECT_EQ(fakes::framework().outputs["pathname"], "/nowhere/home");
    EXPECT_EQ(table_calls().at(0).columns, columns("share", "rw", "/nowhere/home"));
}

TEST_F(Sharing, CommandThatCannotStart) {
    answer({.contains = "share", .starts = false});
    EXPECT_EQ(share(), 27);
    EXPECT_THAT(errors(), ElementsAre(Recorded{27, "27|share|/usr/sbin/share|/nowhere/home|"}));
    EXPECT_THAT(host.events, IsEmpty());
    EXPECT_THAT(fakes::framework().outputs, IsEmpty());
    EXPECT_THAT(table_calls(), IsEmpty());
}

TEST_F(Sharing, UnknownComplaint) {
    complaint("share_nfs: /nowhere/home: No such file or directory\nmore\n");
    EXPECT_EQ(share(), 27);
    EXPECT_THAT(errors(), ElementsAre(Recorded{27, "27|share|/usr/sbin/share|/nowhere/home|"
                                                   "share_nfs: /nowhere/home: No such file or directory\n"}));
    EXPECT_THAT(lines(), ElementsAre(command)) << "nothing to undo";
    EXPECT_THAT(host.events, IsEmpty());
    EXPECT_THAT(fakes::framework().outputs, IsEmpty());
    EXPECT_THAT(table_calls(), IsEmpty());
}

TEST_F(Sharing, SilenceIsSuccessWhateverTheStatus) {
    answer({.contains = "share", .status = 256});
    EXPECT_EQ(share(), 0);
}

TEST_F(Sharing, SubDirectoryWithTheSameOptionsIsWithdrawn) {
    complaint("share_nfs: /nowhere: sub-directory (/nowhere/home) already shared\n");
    list("- /nowhere/home rw \"\"\n");
    pathname = "/nowhere";
    EXPECT_EQ(share(), 0);
    EXPECT_THAT(lines(),
                ElementsAre("(set -f ; /usr/sbin/share -F nfs -o rw /nowhere) 2>&1", "/usr/sbin/share",
                            "(set -f ; /usr/sbin/unshare -F nfs /nowhere/home) 2>&1",
                            "(set -f ; /usr/sbin/share -F nfs -o rw /nowhere) 2>&1"));
    EXPECT_THAT(errors(), ElementsAre(Recorded{0, "0"}));
    ASSERT_THAT(table_calls(), SizeIs(2));
    EXPECT_EQ(table_calls()[0].what, "remove");
    EXPECT_EQ(table_calls()[0].columns.back(), (Column{3, 1, 7, "/nowhere/home", "(none)", 0}));
    EXPECT_EQ(table_calls()[1].columns, columns("share", "rw", "/nowhere"));
    EXPECT_EQ(fakes::framework().outputs["pathname"], "/nowhere");
}

TEST_F(Sharing, EverySubDirectoryIsWithdrawn) {
    for (const char *name : {"a", "b", "c"})
        complaint(std::string("sub-directory (/nowhere/home/") + name + ") already being shared\n");
    list("- /nowhere/home/a rw \"\"\n- /nowhere/home/b rw \"\"\n- /nowhere/home/c rw \"\"\n");
    EXPECT_EQ(share(), 0);
    for (const char *name : {"a", "b", "c"})
        EXPECT_THAT(lines(), Contains(std::string("(set -f ; /usr/sbin/unshare -F nfs /nowhere/home/") +
                                      name + ") 2>&1"));
    EXPECT_THAT(lines(), Contains(command).Times(4));
    EXPECT_THAT(errors(), ElementsAre(Recorded{0, "0"}, Recorded{0, "0"}, Recorded{0, "0"}));
    EXPECT_EQ(sfs_top, nullptr);
}

TEST_F(Sharing, FailureToWithdrawIsTakenBackByTheErrorOfTheShare) {
    // The sub-directory cannot be withdrawn, so that share complains about it for ever.
    complaint("sub-directory (/nowhere/home/a) already shared\n", false);
    answer({.contains = "/usr/sbin/unshare", .output = "unshare: no permission\n"});
    list("- /nowhere/home/a rw \"\"\n");
    EXPECT_EQ(share(), 27);
    ASSERT_GE(errors().size(), 5u) << "it is tried more than once";
    EXPECT_EQ(errors()[0],
              (Recorded{27, "27|share|/usr/sbin/unshare|/nowhere/home/a|unshare: no permission\n"}));
    EXPECT_EQ(errors()[1], (Recorded{0, "0"}));
    EXPECT_EQ(errors().back(), (Recorded{27, "27|share|/usr/sbin/share|/nowhere/home|"
                                             "sub-directory (/nowhere/home/a) already shared\n"}));
}

TEST_F(Sharing, SubDirectoryThatIsSharedAgainMeanwhileIsWithdrawnAgain) {
    for (int i = 0; i < 5; ++i)
        complaint("sub-directory (/nowhere/home/a) already shared\n");
    list("- /nowhere/home/a rw \"\"\n");
    EXPECT_EQ(share(), 0);
    EXPECT_THAT(lines(),
                Contains(std::string("(set -f ; /usr/sbin/unshare -F nfs /nowhere/home/a) 2>&1")).Times(5));
    EXPECT_THAT(lines(), Contains(command).Times(6));
}

TEST_F(Sharing, SubDirectoryThatComesBackIsLookedAtAnew) {
    complaint("sub-directory (/nowhere/home/a) already shared\n");
    complaint("sub-directory (/nowhere/home/a) already shared\n");
    answer({.contains = "/usr/sbin/share", .output = "- /nowhere/home/a rw \"\"\n", .once = true});
    EXPECT_EQ(share(), 29) << "the second time it is not listed";
    EXPECT_THAT(errors(),
                ElementsAre(Recorded{0, "0"}, Recorded{29, "29|share|/nowhere/home/a||/nowhere/home|rw"}));
}

TEST_F(Sharing, SubDirectoryWithOtherOptionsStays) {
    complaint("share_nfs: /nowhere/home: sub-directory (/nowhere/home/a) already shared\n");
    list("- /nowhere/home/a ro=c1 \"\"\n");
    EXPECT_EQ(share(), 29);
    EXPECT_THAT(errors(), ElementsAre(Recorded{29, "29|share|/nowhere/home/a|ro=c1|/nowhere/home|rw"}));
    EXPECT_THAT(lines(), ElementsAre(command, "/usr/sbin/share", "/usr/sbin/share"));
    EXPECT_THAT(table_calls(), IsEmpty());
    EXPECT_THAT(fakes::framework().outputs, IsEmpty());
    EXPECT_EQ(sfs_top, nullptr) << "the list is not left to the caller";
}

TEST_F(Sharing, SubDirectoryThatIsNotListedHasNoOptions) {
    complaint("sub-directory (/nowhere/home/a) already shared\n");
    EXPECT_EQ(share(), 29);
    EXPECT_THAT(errors(), ElementsAre(Recorded{29, "29|share|/nowhere/home/a||/nowhere/home|rw"}));
}

TEST_F(Sharing, CommandThatCannotStartAgain) {
    complaint("sub-directory (/nowhere/home/a) already shared\n");
    answer({.contains = "/usr/sbin/share -F", .starts = false});
    list("- /nowhere/home/a rw \"\"\n");
    EXPECT_EQ(share(), 27);
    EXPECT_THAT(errors(),
                ElementsAre(Recorded{0, "0"}, Recorded{27, "27|share|/usr/sbin/share|/nowhere/home|"}));
}

TEST_F(Sharing, ParentWithTheSameOptionsServesTheDirectory) {
    complaint("share_nfs: /nowhere/home: parent-directory (/nowhere) already shared\n");
    list("- /nowhere rw \"\"\n");
    EXPECT_EQ(share(), 0);
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_EQ(table_calls().at(0).columns, columns("share", "rw", "/nowhere/home"));
    EXPECT_EQ(fakes::framework().outputs["pathname"], "/nowhere/home");
    EXPECT_THAT(host.events, Contains("check nfsd"));
}

TEST_F(Sharing, ParentWithOtherOptionsStandsInTheWay) {
    complaint("share_nfs: /nowhere/home: parent-directory (/nowhere) already shared\n");
    list("- /nowhere ro \"\"\n");
    EXPECT_EQ(share(), 30);
    EXPECT_THAT(errors(), ElementsAre(Recorded{30, "30|share|/nowhere/home|rw|/nowhere|ro|server1"}));
    EXPECT_THAT(table_calls(), IsEmpty());
    EXPECT_EQ(sfs_top, nullptr) << "the list is not left to the caller";
}

TEST_F(Sharing, HostNameMayBeUnknown) {
    fakes::platform().sysinfo.clear();
    complaint("parent (/nowhere) already shared\n");
    EXPECT_EQ(share(), 30);
    EXPECT_THAT(errors(), ElementsAre(Recorded{30, "30|share|/nowhere/home|rw|/nowhere||"}));
}

TEST_F(Sharing, SubDirectoryComesBeforeParent) {
    complaint("parent? sub-directory (/nowhere/home/a) already shared\n");
    EXPECT_EQ(share(), 29);
}

TEST_F(Sharing, ForcedShareBecomesAComment) {
    complaint("share: no\n");
    force = 1;
    EXPECT_EQ(share(), 0);
    EXPECT_THAT(errors(), ElementsAre(Recorded{27, "27|share|/usr/sbin/share|/nowhere/home|share: no\n"}));
    EXPECT_THAT(host.events, Contains("check nfsd"));
    EXPECT_EQ(fakes::framework().outputs["pathname"], "/nowhere/home");
    EXPECT_EQ(table_calls().at(0).columns, columns("#share", "rw", "/nowhere/home"));
    EXPECT_THAT(lines(), ElementsAre(command));
}

TEST_F(Sharing, ForcedShareCountsAsDoneNow) {
    answer({.contains = "share", .starts = false});
    force = -1;
    takeeffect = "nowonly";
    EXPECT_EQ(share(), 0);
    EXPECT_THAT(errors(), ElementsAre(Recorded{27, "27|share|/usr/sbin/share|/nowhere/home|"}));
    EXPECT_THAT(host.events, Contains("check nfsd"));
    EXPECT_THAT(table_calls(), IsEmpty());
}

TEST_F(Sharing, ForceIsNotNeededForAShareThatWorks) {
    force = 1;
    EXPECT_EQ(share(), 0);
    EXPECT_EQ(table_calls().at(0).columns, columns("share", "rw", "/nowhere/home"));
}

TEST_F(Sharing, ForcedShareWhoseLineFailsIsUndone) {
    complaint("share: no\n");
    force = 1;
    fakes::tables().replace_status = -26;
    EXPECT_EQ(share(), 38);
    EXPECT_THAT(lines(), ElementsAre(command, undo_command));
    EXPECT_THAT(errors(),
                ElementsAre(Recorded{27, "27|share|/usr/sbin/share|/nowhere/home|share: no\n"},
                            Recorded{70, "70|share|/nowhere/home|/etc/dfs/dfstab|53||/etc/dfs/dfstab"}));
}

TEST_F(Sharing, DaemonsThatDoNotStartAreNoFailure) {
    host.checks["mountd"] = HOSTADM_DAEMON_NOT_RUNNING;
    host.starts["/usr/lib/nfs/mountd"] = ENOMEM;
    EXPECT_EQ(share(), 0);
    EXPECT_THAT(errors(), SizeIs(1));
    EXPECT_THAT(table_calls(), SizeIs(1));
}

TEST_F(Sharing, UnpreparedEditIsUndone) {
    fakes::tables().new_list_status = -12;
    EXPECT_EQ(share(), 22);
    EXPECT_THAT(errors(), ElementsAre(Recorded{22, "22|share"}));
    EXPECT_THAT(lines(), ElementsAre(command, undo_command));
    EXPECT_THAT(cleanups(), IsEmpty());
}

TEST_F(Sharing, AnyColumnMayFail) {
    description = "homes";
    for (int column = 0; column < 8; ++column) {
        SetUp();
        fakes::tables().fail_column = column;
        EXPECT_EQ(share(), 22);
        EXPECT_THAT(errors(), ElementsAre(Recorded{22, "22|share"}));
        EXPECT_THAT(lines(), SizeIs(2));
        EXPECT_THAT(table_calls(), IsEmpty());
    }
}

TEST_F(Sharing, FailedEditIsRecordedAs70AndReturnedAs38) {
    const std::pair<int, std::string> details[] = {
        {-26, "53||/etc/dfs/dfstab"},
        {-2, "8||/nowhere/home|/etc/dfs/dfstab"},
        {-ENOSPC, std::string(": ") + std::strerror(ENOSPC)},
        {ENOSPC, std::string(": ") + std::strerror(ENOSPC)},
    };
    for (const auto &[status, detail] : details) {
        SetUp();
        fakes::tables().replace_status = status;
        EXPECT_EQ(share(), 38);
        EXPECT_THAT(errors(), ElementsAre(Recorded{70, "70|share|/nowhere/home|/etc/dfs/dfstab|" + detail}));
        EXPECT_THAT(lines(), ElementsAre(command, undo_command));
        EXPECT_THAT(cleanups(), IsEmpty());
    }
}

TEST_F(Sharing, FailedUndoIsTold) {
    fakes::tables().replace_status = -26;
    answer({.contains = "/usr/sbin/unshare", .status = 256});
    EXPECT_EQ(share(), 38);
    EXPECT_THAT(cleanups(), ElementsAre(2));
}

TEST_F(Sharing, NothingIsUndoneWhenNothingWasShared) {
    takeeffect = "bootonly";
    fakes::tables().replace_status = -26;
    EXPECT_EQ(share(), 38);
    EXPECT_THAT(lines(), IsEmpty());
    EXPECT_THAT(cleanups(), IsEmpty());
}

// ---- unsharing ----

class Unsharing : public Filesys {
protected:
    static constexpr char command[] = "(set -f ; /usr/sbin/unshare -F nfs /nowhere/home) 2>&1";
    int unshare(const char *client = nullptr, const char *takeeffect = nullptr) {
        return unsharefs(nullptr, "/nowhere/home", client, takeeffect, "unshare");
    }
    static void list(const std::string &output) { answer({.contains = "/usr/sbin/share", .output = output}); }
    static void complaint(const std::string &output) {
        answer({.contains = "/usr/sbin/unshare", .output = output});
    }
};

TEST_F(Unsharing, WithdrawsTheShareAndItsLine) {
    EXPECT_EQ(unshare(), 0);
    EXPECT_THAT(lines(), ElementsAre(command));
    EXPECT_EQ(fakes::framework().outputs,
              (std::map<std::string, std::string>{{"pathname", "/nowhere/home"}}));
    ASSERT_THAT(table_calls(), SizeIs(1));
    const fakes::TableCall &edit = table_calls()[0];
    EXPECT_EQ(edit.what, "remove");
    EXPECT_EQ(edit.table, "/etc/dfs/dfstab");
    EXPECT_EQ(edit.separators, " \t");
    EXPECT_EQ(edit.comment, "(none)");
    EXPECT_EQ(edit.comment_text, "(none)");
    EXPECT_THAT(edit.columns,
                ElementsAre(Column{0, 0, 0, "share", "(none)", 0}, Column{1, 1, 1, "-F", "(none)", 0},
                            Column{2, 2, 2, "nfs", "nfs", 0}, Column{3, 1, 7, "/nowhere/home", "(none)", 0}));
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_THAT(cleanups(), IsEmpty());
}

TEST_F(Unsharing, OtherTypesAreRefusedFirst) {
    EXPECT_EQ(unsharefs("ufs", nullptr, nullptr, "never", "unshare"), 26);
    EXPECT_THAT(errors(), ElementsAre(Recorded{26, "26|unshare|nfs"}));
    EXPECT_THAT(fakes::framework().outputs, IsEmpty());
}

TEST_F(Unsharing, PathIsMissedSecond) {
    EXPECT_EQ(unsharefs("nfs", nullptr, nullptr, "never", "unshare"), 1);
    EXPECT_EQ(unsharefs("", "", nullptr, "never", "unshare"), 1);
    EXPECT_THAT(errors(), ElementsAre(Recorded{1, "1|unshare|pathname"}, Recorded{1, "1|unshare|pathname"}));
}

TEST_F(Unsharing, UnknownModeIsRefusedAfterThePathIsTold) {
    EXPECT_EQ(unshare(nullptr, "never"), 10);
    EXPECT_THAT(errors(), ElementsAre(Recorded{10, "10|unshare|never|takeeffect"}));
    EXPECT_EQ(fakes::framework().outputs["pathname"], "/nowhere/home");
    EXPECT_THAT(lines(), IsEmpty());
    EXPECT_THAT(table_calls(), IsEmpty());
}

TEST_F(Unsharing, ModesChooseTheSteps) {
    EXPECT_EQ(unshare(nullptr, "nowonly"), 0);
    EXPECT_THAT(lines(), SizeIs(1));
    EXPECT_THAT(table_calls(), IsEmpty());
    EXPECT_EQ(unshare("", "bootonly"), 0);
    EXPECT_THAT(lines(), SizeIs(1));
    EXPECT_THAT(table_calls(), SizeIs(1));
}

TEST_F(Unsharing, WhatIsNotSharedAtAllIsNoError) {
    complaint("unshare_nfs: /nowhere/home: not shared\n");
    fakes::tables().remove_status = -2;
    EXPECT_EQ(unshare(), 0);
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_THAT(cleanups(), IsEmpty());
}

TEST_F(Unsharing, SilenceIsSuccessWhateverTheStatus) {
    answer({.contains = "unshare", .status = 256});
    EXPECT_EQ(unshare(), 0);
}

TEST_F(Unsharing, CommandThatCannotStart) {
    answer({.contains = "unshare", .starts = false});
    EXPECT_EQ(unshare(nullptr, "nowonly"), 27);
    EXPECT_THAT(errors(), ElementsAre(Recorded{27, "27|unshare|/usr/sbin/unshare|/nowhere/home|"}));
    EXPECT_THAT(cleanups(), IsEmpty());
}

TEST_F(Unsharing, ComplaintDoesNotKeepTheLine) {
    complaint("unshare_nfs: /nowhere/home: busy\nmore\n");
    EXPECT_EQ(unshare(), 27);
    EXPECT_THAT(errors(), ElementsAre(Recorded{27, "27|unshare|/usr/sbin/unshare|/nowhere/home|"
                                                   "unshare_nfs: /nowhere/home: busy\n"}));
    EXPECT_THAT(table_calls(), SizeIs(1));
    EXPECT_THAT(cleanups(), ElementsAre(2)) << "the line went, the share stayed";
}

TEST_F(Unsharing, BothStepsMayFail) {
    complaint("busy\n");
    fakes::tables().remove_status = -26;
    EXPECT_EQ(unshare(), 38) << "the last failure counts";
    EXPECT_THAT(errors(),
                ElementsAre(Recorded{27, "27|unshare|/usr/sbin/unshare|/nowhere/home|busy\n"},
                            Recorded{70, "70|unshare|/nowhere/home|/etc/dfs/dfstab|53||/etc/dfs/dfstab"}));
    EXPECT_THAT(cleanups(), IsEmpty()) << "nothing was changed";
}

TEST_F(Unsharing, FailedEditIsRecordedAs70AndReturnedAs38) {
    const std::pair<int, std::string> details[] = {
        {-26, "53||/etc/dfs/dfstab"},
        {-EROFS, std::string(": ") + std::strerror(EROFS)},
        {EROFS, std::string(": ") + std::strerror(EROFS)},
    };
    for (const auto &[status, detail] : details) {
        SetUp();
        fakes::tables().remove_status = status;
        EXPECT_EQ(unshare(), 38);
        EXPECT_THAT(errors(),
                    ElementsAre(Recorded{70, "70|unshare|/nowhere/home|/etc/dfs/dfstab|" + detail}));
        EXPECT_THAT(cleanups(), ElementsAre(2));
        SetUp();
        fakes::tables().remove_status = status;
        EXPECT_EQ(unshare(nullptr, "bootonly"), 38);
        EXPECT_THAT(cleanups(), IsEmpty());
    }
}

TEST_F(Unsharing, UnpreparedEdit) {
    for (int column = -1; column < 4; ++column) {
        SetUp();
        fakes::tables().new_list_status = column < 0 ? -12 : 0;
        fakes::tables().fail_column = column;
        EXPECT_EQ(unshare(), 22);
        EXPECT_THAT(errors(), ElementsAre(Recorded{22, "22|unshare"}));
        EXPECT_THAT(cleanups(), ElementsAre(2));
        EXPECT_THAT(table_calls(), IsEmpty());
    }
}

TEST_F(Unsharing, OnlyClientGetsItsShareWithdrawn) {
    list("- /other rw=c2 \"\"\n- /nowhere/home rw=c1 \"\"\n- /third ro \"\"\n");
    fakes::tables().entry = "share -F nfs -o rw=c1 /nowhere/home";
    EXPECT_EQ(unshare("c1"), 0);
    EXPECT_THAT(lines(), ElementsAre("/usr/sbin/share", command));
    ASSERT_THAT(table_calls(), SizeIs(2));
    EXPECT_EQ(table_calls()[0].what, "get");
    EXPECT_EQ(table_calls()[0].table, "/etc/dfs/dfstab");
    EXPECT_EQ(table_calls()[1].what, "remove");
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Unsharing, OneOfSeveralClientsKeepsTheShare) {
    for (const char *hosts : {"rw=c1:c2", "rw=c2:c1", "rw=c10", "rw", "ro=c2,rw=c2"}) {
        SetUp();
        list(std::string("- /nowhere/home ") + hosts + " \"\"\n");
        fakes::tables().entry = std::string("share -F nfs -o ") + hosts + " /nowhere/home\n";
        EXPECT_EQ(unshare("c1"), 49) << hosts;
        const Recorded refused{49, "49|unshare|/usr/sbin/unshare|/nowhere/home|c1"};
        EXPECT_THAT(errors(), ElementsAre(refused, refused)) << hosts;
        EXPECT_THAT(lines(), ElementsAre("/usr/sbin/share"));
        ASSERT_THAT(table_calls(), SizeIs(1));
        EXPECT_EQ(table_calls()[0].what, "get");
        EXPECT_THAT(cleanups(), IsEmpty());
    }
}

TEST_F(Unsharing, ClientTestRestsOnTheFirstMention) {
    list("- /nowhere/home rw=c1,root=c1:c2 \"\"\n");
    EXPECT_EQ(unshare("c1", "nowonly"), 0);
    SetUp();
    list("- /nowhere/home rw=c1:c2,root=c1 \"\"\n");
    EXPECT_EQ(unshare("c1", "nowonly"), 49);
}

TEST_F(Unsharing, ClientAtTheVeryEndOfTheLine) {
    list("/nowhere/home=c1");
    EXPECT_EQ(unshare("c1", "nowonly"), 0);
}

TEST_F(Unsharing, LinesBeforeThatOfThePathDoNotMatter) {
    list("- /other rw=c1 \"\"\n- /nowhere/home rw=c2 \"\"\n- /third rw=c1 \"\"\n");
    EXPECT_EQ(unshare("c1", "nowonly"), 49);
}

TEST_F(Unsharing, ClientsOfAShareThatIsNotListedDoNotMatter) {
    list("- /other rw=c2 \"\"\n");
    EXPECT_EQ(unshare("c1", "nowonly"), 0);
    EXPECT_THAT(lines(), ElementsAre("/usr/sbin/share", command));
}

TEST_F(Unsharing, ListThatCannotStartHoldsNothing) {
    answer({.contains = "/usr/sbin/share", .starts = false});
    EXPECT_EQ(unshare("c1", "nowonly"), 0);
    EXPECT_THAT(lines(), ElementsAre("/usr/sbin/share", command));
}

TEST_F(Unsharing, PathIsFoundAnywhereInALine) {
    list("- /nowhere/home2 rw=c2 \"\"\n- /nowhere/home rw=c1 \"\"\n");
    EXPECT_EQ(unshare("c1", "nowonly"), 49) << "the first line that holds the path decides";
}

TEST_F(Unsharing, LongListLineIsReadWhole) {
    std::string hosts = "ro=c2";
    for (int i = 0; i < 1000; ++i)
        hosts += ":host" + std::to_string(i);
    list("- /first " + hosts + " \"\"\n- " + std::string(1020, '-') + " /nowhere/home " + hosts +
         ",rw=c1 \"\"\n");
    EXPECT_EQ(unshare("c1", "nowonly"), 0);
    SetUp();
    list("- /nowhere/home " + hosts + ",rw=c1:c2 \"\"\n");
    EXPECT_EQ(unshare("c1", "nowonly"), 49);
}

TEST_F(Unsharing, LongTableLineIsReadWhole) {
    std::string hosts = "ro=c2";
    for (int i = 0; i < 1000; ++i)
        hosts += ":host" + std::to_string(i);
    fakes::tables().entry = "share -F nfs -o " + hosts + ",rw=c1:c2 /nowhere/home";
    EXPECT_EQ(unshare("c1", "bootonly"), 49);
    fakes::tables().entry = "share -F nfs -o " + hosts + ",rw=c1 /nowhere/home";
    EXPECT_EQ(unshare("c1", "bootonly"), 0);
}

TEST_F(Unsharing, TableLineIsReadIntoAKilobyteFirst) {
    fakes::tables().entry = "share -F nfs -o rw=c1 /nowhere/home";
    EXPECT_EQ(unshare("c1", "bootonly"), 0);
    EXPECT_THAT(fakes::tables().sizes, ElementsAre(1024));
}

TEST_F(Unsharing, TableLineLongerThanACommandIsReadWhole) {
    fakes::tables().entry = "share -F nfs -o ro=" + std::string(300 * 1024, 'h') + ",rw=c1:c2 /nowhere/home";
    EXPECT_EQ(unshare("c1", "bootonly"), 49);
    EXPECT_EQ(fakes::tables().sizes.back(), 512 * 1024);
}

TEST_F(Unsharing, LineThatNeverFitsIsAskedForOnlySoOften) {
    fakes::tables().get_status = -ERANGE;
    EXPECT_EQ(unshare("c1", "bootonly"), 0);
    EXPECT_THAT(table_calls(), SizeIs(testing::Lt(20u)));
    EXPECT_EQ(table_calls().back().what, "remove");
}

TEST_F(Unsharing, ClientThatIsNoExpressionIsNobody) {
    list("- /nowhere/home rw=c1 \"\"\n");
    EXPECT_EQ(unshare("c1\\(", "nowonly"), 49);
    EXPECT_THAT(errors(), ElementsAre(Recorded{49, "49|unshare|/usr/sbin/unshare|/nowhere/home|c1\\("}));
}

TEST_F(Unsharing, RefusedNowButGoneFromTheTable) {
    list("- /nowhere/home rw=c1:c2 \"\"\n");
    fakes::tables().entry = "share -F nfs -o rw=c1 /nowhere/home\n";
    EXPECT_EQ(unshare("c1"), 49);
    EXPECT_THAT(errors(), SizeIs(1));
    EXPECT_EQ(table_calls().at(1).what, "remove");
    EXPECT_THAT(cleanups(), ElementsAre(2));
}

TEST_F(Unsharing, WithdrawnNowButKeptInTheTable) {
    list("- /nowhere/home rw=c1 \"\"\n");
    fakes::tables().entry = "share -F nfs -o rw=c1:c2 /nowhere/home\n";
    EXPECT_EQ(unshare("c1"), 49);
    EXPECT_THAT(lines(), SizeIs(2));
    EXPECT_THAT(table_calls(), SizeIs(1));
    EXPECT_THAT(cleanups(), ElementsAre(2));
}

TEST_F(Unsharing, LineThatIsNotInTheTableIsNoErrorForAClient) {
    fakes::tables().get_status = -2;
    fakes::tables().remove_status = -2;
    EXPECT_EQ(unshare("c1"), 0);
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Unsharing, RemovalIsTriedForAClientWithoutALine) {
    fakes::tables().get_status = -2;
    fakes::tables().entry = "share -F nfs -o rw=c1:c2 /nowhere/home"; // not an answer
    EXPECT_EQ(unshare("c1", "bootonly"), 0);
    ASSERT_THAT(table_calls(), SizeIs(2));
    EXPECT_EQ(table_calls()[1].what, "remove");
    fakes::tables().remove_status = -26;
    EXPECT_EQ(unshare("c1", "bootonly"), 38);
    EXPECT_THAT(errors(),
                ElementsAre(Recorded{70, "70|unshare|/nowhere/home|/etc/dfs/dfstab|53||/etc/dfs/dfstab"}));
}

TEST_F(Unsharing, LookUpThatFailsKeepsNothingFromBeingRemoved) {
    for (const int status : {-26, -5, -84}) {
        fakes::tables().get_status = status;
        fakes::tables().calls.clear();
        EXPECT_EQ(unshare("c1", "bootonly"), 0) << status;
        EXPECT_THAT(errors(), IsEmpty()) << status;
        ASSERT_GE(table_calls().size(), 2u);
        EXPECT_EQ(table_calls().back().what, "remove");
    }
}

// ---- the daemons ----

class NfsDaemons : public Filesys {};

TEST_F(NfsDaemons, RunningDaemonsAreLeftAlone) {
    EXPECT_EQ(enable_nfs_file_serving("share"), 0);
    EXPECT_THAT(host.events, ElementsAre("rename /usr/lib/nfs/mountd- /usr/lib/nfs/mountd", "check mountd",
                                         "rename /usr/lib/nfs/nfsd- /usr/lib/nfs/nfsd", "check nfsd"));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(NfsDaemons, BothAreStartedAndWaitedFor) {
    host.checks = {{"mountd", HOSTADM_DAEMON_NOT_RUNNING}, {"nfsd", HOSTADM_DAEMON_NOT_RUNNING}};
    EXPECT_EQ(enable_nfs_file_serving("share"), 0);
    EXPECT_THAT(host.events,
                ElementsAre("rename /usr/lib/nfs/mountd- /usr/lib/nfs/mountd", "check mountd",
                            "start /usr/lib/nfs/mountd (none)", "rename /usr/lib/nfs/nfsd- /usr/lib/nfs/nfsd",
                            "check nfsd", "start /usr/lib/nfs/nfsd -a 16", "sleep 3"));
}

TEST_F(NfsDaemons, OneStartedIsReasonToWait) {
    for (const char *name : {"mountd", "nfsd"}) {
        SetUp();
        host.checks[name] = HOSTADM_DAEMON_NOT_RUNNING;
        EXPECT_EQ(enable_nfs_file_serving("share"), 0);
        EXPECT_THAT(host.events, SizeIs(6));
        EXPECT_EQ(host.events.back(), "sleep 3");
    }
}

TEST_F(NfsDaemons, AnyOtherAnswerMeansRunning) {
    host.checks = {{"mountd", HOSTADM_DAEMON_NO_PROCFS}, {"nfsd", HOSTADM_DAEMON_DEFUNCT}};
    EXPECT_EQ(enable_nfs_file_serving("share"), 0);
    EXPECT_THAT(host.events, SizeIs(4));
}

TEST_F(NfsDaemons, FailedMountDaemonEndsIt) {
    host.checks = {{"mountd", HOSTADM_DAEMON_NOT_RUNNING}, {"nfsd", HOSTADM_DAEMON_NOT_RUNNING}};
    host.starts["/usr/lib/nfs/mountd"] = EAGAIN;
    EXPECT_EQ(enable_nfs_file_serving("share"), 42);
    EXPECT_THAT(errors(), ElementsAre(Recorded{42, std::string("42|share|/usr/lib/nfs/mountd|") +
                                                       std::strerror(EAGAIN)}));
    EXPECT_THAT(host.events, SizeIs(3));
}

TEST_F(NfsDaemons, FailedNfsDaemonDoesNotWait) {
    host.checks = {{"mountd", HOSTADM_DAEMON_NOT_RUNNING}, {"nfsd", HOSTADM_DAEMON_NOT_RUNNING}};
    host.starts["/usr/lib/nfs/nfsd"] = -1;
    EXPECT_EQ(enable_nfs_file_serving("share"), 42);
    EXPECT_THAT(errors(), ElementsAre(Recorded{42, "42|share|/usr/lib/nfs/nfsd|-1"}));
    EXPECT_EQ(host.events.back(), "start /usr/lib/nfs/nfsd -a 16");
}

TEST_F(NfsDaemons, UnknownErrorNumberIsToldAsItIs) {
    host.checks["mountd"] = HOSTADM_DAEMON_NOT_RUNNING;
    host.starts["/usr/lib/nfs/mountd"] = 99999;
    EXPECT_EQ(enable_nfs_file_serving("share"), 42);
    EXPECT_THAT(errors(), ElementsAre(Recorded{42, "42|share|/usr/lib/nfs/mountd|99999"}));
    SetUp();
    host.checks["mountd"] = HOSTADM_DAEMON_NOT_RUNNING;
    host.starts["/usr/lib/nfs/mountd"] = EAGAIN;
    host.knows_errors = false;
    EXPECT_EQ(enable_nfs_file_serving("share"), 42);
    EXPECT_THAT(errors(),
                ElementsAre(Recorded{42, "42|share|/usr/lib/nfs/mountd|" + std::to_string(EAGAIN)}));
}

// ---- memory ----

[[noreturn]] void work_without_memory() {
    const std::string text(100'000'000, 'x');
    tests::limit_memory_to(50'000'000);
    const char *enormous = text.c_str();
    const bool failed = mount_filesystem("h:/d", "-", "/mnt", "nfs", nullptr, nullptr, enormous, nullptr,
                                         nullptr, "mount") == 22 &&
                        unmount_filesystem(enormous, nullptr, nullptr, "unmount") == 22 &&
                        sharefs(nullptr, enormous, nullptr, "/a", nullptr, "share", 1) == 22 &&
                        unsharefs(nullptr, enormous, nullptr, nullptr, "unshare") == 22;
    std::_Exit(failed && lines().empty() && errors().empty() ? 0 : 1);
}

TEST_F(Filesys, MemoryOutIsAFailure) {
    SKIP_WITHOUT_MEMORY_LIMIT();
    EXPECT_EXIT(work_without_memory(), testing::ExitedWithCode(0), "");
}

TEST_F(Filesys, NothingGrowsOverTenThousandCalls) {
    std::string list;
    for (int i = 0; i < 10; ++i)
        list += "- /nowhere/" + std::to_string(i) + " rw=c1 \"\"\n";
    const auto call_everything = [&](int times) {
        for (int i = 0; i < times; ++i) {
            fakes::reset_all();
            host.events.clear();
            fakes::tables().replace_status = i % 2 == 0 ? 0 : -2;
            answer({.contains = "share -F nfs -o rw=c1 ",
                    .output = "sub-directory (/nowhere/5) already shared\n",
                    .once = true});
            answer({.contains = "share -F nfs -o ro ", .output = "parent (/nowhere/5) already shared\n"});
            answer({.contains = "share -F nfs"});
            answer({.contains = "/usr/sbin/share", .output = list});
            mount_filesystem("h:/d", "-", "/mnt", "hsfs", nullptr, nullptr, "ro", nullptr, nullptr, "mount");
            unmount_filesystem("/mnt", nullptr, nullptr, "unmount");
            sharefs(nullptr, "rw=c1", "words", "/nowhere", nullptr, "share", i % 3);
            sharefs(nullptr, "ro", nullptr, "/nowhere/5/a", nullptr, "share", i % 3);
            unsharefs(nullptr, "/nowhere/5", "c1", nullptr, "unshare");
            unsharefs(nullptr, "/nowhere/5", "c2", nullptr, "unshare");
            get_sharefs_ent("/nowhere/5");
            get_sharefs_ent("/nowhere/2"); // cuts the list off and leaves it to the next call
            match_sharefs_ent("/nowhere/7", "rw");
        }
        fakes::reset_all();
        return mallinfo2().uordblks;
    };
    const auto before = call_everything(100);
    EXPECT_LT(call_everything(1200), before + 16384) << "a lost byte block a round is more than that";
}
