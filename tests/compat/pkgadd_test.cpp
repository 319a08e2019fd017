// SPDX-License-Identifier: MIT
#include <csignal>
#include <filesystem>
#include <sys/stat.h>

#include "compat/packages/package.hpp"
#include "installed.hpp"

namespace {

using compat::must;
using compat::Outcome;
using compat::sh;
using compat::text_of;
using compat::write_text;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char *admin_text = "mail=\ninstance=unique\npartial=nocheck\nrunlevel=nocheck\nidepend="
                                   "nocheck\nrdepend=nocheck\nspace=quit\n"
                                   "setuid=nocheck\nconflict=nocheck\naction=nocheck\nbasedir=/\n";

class Pkgadd : public testing::Test {
protected:
    void SetUp() override {
        must("rm -rf /tmp/p; mkdir -p /tmp/p/spool /tmp/p/root /tmp/p/tree/usr/bin /tmp/p/tree/etc");
        write_text("/tmp/p/admin", admin_text);
        write_text("/tmp/p/tree/usr/bin/hello", "#!/bin/sh\necho hello\n");
        write_text("/tmp/p/tree/etc/motd", "welcome\n");
        must("cd /tmp/p/tree; chown 2:3 usr/bin/hello; chmod 4755 usr/bin/hello; chmod 1775 etc; chgrp 3 etc;"
             "ln -s hello usr/bin/hi; ln usr/bin/hello usr/bin/salut; mknod etc/tape c 21 5; mkfifo etc/pipe;"
             "ln -s ./usr/bin bin; touch -d @700000000 usr/bin/hello etc/motd; : >etc/empty");
    }
    void TearDown() override { sh("umount -q /tmp/p/small"); }

    static void make(const std::string &words = "ABChello", const std::string &options = "") {
        must("pkgmk -o " + options + " -d /tmp/p/spool -r /tmp/p/tree " + words);
    }
    // As a client's root is filled.
    static Outcome add(const std::string &names = "all", const std::string &root = "/tmp/p/root") {
        return sh("/usr/sbin/pkgadd -S -n -R " + root + " -a /tmp/p/admin -d /tmp/p/spool " + names +
                  " 2>&1");
    }
    static void expect_added(const std::string &names = "all") {
        const Outcome outcome = add(names);
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(outcome.status, 0);
    }
    // Refused, and nothing in the root has changed.
    static void expect_refused(const std::string &text, int status = 1, const std::string &names = "all") {
        const std::string before = listing("/tmp/p/root");
        const Outcome outcome = add(names);
        EXPECT_THAT(outcome.output, HasSubstr(text));
        EXPECT_THAT(outcome.output, StartsWith("pkgadd: "));
        EXPECT_EQ(outcome.status, status);
        EXPECT_EQ(listing("/tmp/p/root"), before);
    }
    static std::string listing(const std::string &tree) {
        return sh("cd " + tree +
                  " && find . -printf '%p %y %m %U:%G %s %l\\n' | sort; find . -type f | sort | "
                  "xargs -r md5sum")
            .output;
    }
    static void set_admin(const std::string &key, const std::string &value) {
        must("sed -i 's,^" + key + "=.*," + key + "=" + value + ",' /tmp/p/admin");
    }
    static void set_map_line(const std::string &expression) {
        must("sed -i '" + expression + "' /tmp/p/spool/ABChello/pkgmap");
    }
};

TEST(PackageChecksum, IsThatOfSumS) {
    must("head -c 300000 /dev/urandom >/tmp/noise");
    compat::Checksum sum;
    sum.add(text_of("/tmp/noise"));
    EXPECT_THAT(sh("sum -s /tmp/noise").output, StartsWith(std::to_string(sum.value()) + " "));
    EXPECT_EQ(compat::Checksum().value(), 0U);
}

TEST_F(Pkgadd, PlacesEveryKindOfObjectAsInTheTree) {
    make();
    expect_added();
    must("rm -r /tmp/p/root/var");
    EXPECT_EQ(listing("/tmp/p/root"), listing("/tmp/p/tree"));
    EXPECT_EQ(sh("stat -c '%h %Y' /tmp/p/root/usr/bin/hello").output, "2 700000000\n");
    EXPECT_EQ(sh("stat -c '%F %t %T' /tmp/p/root/etc/tape").output, "character special file 15 5\n");
}

TEST_F(Pkgadd, AbsolutePathsIgnoreTheBaseDirectory) {
    make("ABChello", "-a");
    set_admin("basedir", "/opt");
    expect_added();
    EXPECT_EQ(text_of("/tmp/p/root/etc/motd"), "welcome\n");
    EXPECT_FALSE(std::filesystem::exists("/tmp/p/root/opt"));
}

TEST_F(Pkgadd, RelativePathsGoBelowTheBaseDirectory) {
    make();
    set_admin("basedir", "/usr_sparc.all");
    expect_added("ABChello");
    EXPECT_EQ(text_of("/tmp/p/root/usr_sparc.all/etc/motd"), "welcome\n");
    EXPECT_THAT(text_of("/tmp/p/root/var/sadm/pkg/ABChello/pkginfo"),
                HasSubstr("\nBASEDIR=/usr_sparc.all\n"));
}

TEST_F(Pkgadd, BaseDirectoryIsThePackagesOwnByDefault) {
    make("ABChello BASEDIR=/opt/hello");
    set_admin("basedir", "default");
    expect_added();
    EXPECT_EQ(text_of("/tmp/p/root/opt/hello/etc/motd"), "welcome\n");
}

TEST_F(Pkgadd, ReplacesParametersInPaths) {
    make("ABChello ETCDIR=/private/etc");
    set_map_line("s,none etc/motd,none $BASEDIR/etc/motd,; s,none etc/empty,none $ETCDIR/empty,");
    must("cd /tmp/p/spool/ABChello/reloc; mkdir '$ETCDIR'; mv etc/empty '$ETCDIR/empty'");
    set_admin("basedir", "/opt");
    expect_added();
    EXPECT_EQ(text_of("/tmp/p/root/opt/etc/motd"), "welcome\n");
    EXPECT_EQ(text_of("/tmp/p/root/private/etc/empty"), "");
    set_map_line("s,none usr ,none $NOWHERE ,");
    expect_refused("pkginfo has no value for $NOWHERE");
}

TEST_F(Pkgadd, KeepsARecord) {
    make("ABChello ARCH=sparc VERSION=2.0,REV=1");
    expect_added();
    const std::string info = text_of("/tmp/p/root/var/sadm/pkg/ABChello/pkginfo");
    EXPECT_THAT(info, HasSubstr("ARCH=sparc\n"));
    EXPECT_THAT(info, HasSubstr("VERSION=2.0,REV=1\n"));
    EXPECT_THAT(info, HasSubstr("PKGINST=ABChello\nINSTDATE="));
    EXPECT_EQ(sh("grep ARCH=sparc /tmp/p/root/var/sadm/pkg/ABC*/pkginfo >/dev/null 2>&1").status, 0);
    EXPECT_EQ(text_of("/tmp/p/root/var/sadm/pkg/ABChello/pkgmap"), text_of("/tmp/p/spool/ABChello/pkgmap"));
    const std::string contents = text_of("/tmp/p/root/var/sadm/install/contents");
    EXPECT_THAT(contents, HasSubstr("\n/etc d none 1775 root 3 ABChello\n"));
    EXPECT_THAT(contents, HasSubstr("\n/usr/bin/hello f none 4755 2 3 21 1693 700000000 ABChello\n"));
    EXPECT_THAT(contents, HasSubstr("\n/usr/bin/hi=hello s none ABChello\n"));
    EXPECT_THAT(contents, HasSubstr("\n/usr/bin/salut=/usr/bin/hello l none ABChello\n"));
    EXPECT_THAT(contents, HasSubstr("\n/etc/tape c none 21 5 0644 root root ABChello\n"));
}

TEST_F(Pkgadd, ObjectsOfSeveralPackagesHaveAllOwners) {
    make();
    make("ABCother");
    expect_added();
    EXPECT_THAT(text_of("/tmp/p/root/var/sadm/install/contents"),
                HasSubstr("/etc d none 1775 root 3 ABChello ABCother\n"));
}

TEST_F(Pkgadd, AgainChangesNothing) {
    make();
    expect_added();
    const std::string before = listing("/tmp/p/root");
    const std::string inodes =
        sh("cd /tmp/p/root; find usr etc/motd etc/empty -printf '%p %i\\n' | grep -v salut").output;
    must("touch -d '1 hour ago' /tmp/p/root/var/sadm/pkg/ABChello/pkginfo");
    expect_added();
    EXPECT_EQ(listing("/tmp/p/root"), before);
    EXPECT_EQ(sh("cd /tmp/p/root; find usr etc/motd etc/empty -printf '%p %i\\n' | grep -v salut").output,
              inodes);
}

TEST_F(Pkgadd, AgainRepairsWhatWasDamaged) {
    make();
    expect_added();
    must("cd /tmp/p/root; echo broken >usr/bin/hello; rm etc/motd; chmod 777 etc; ln -sfn elsewhere bin");
    expect_added();
    must("rm -r /tmp/p/root/var");
    EXPECT_EQ(listing("/tmp/p/root"), listing("/tmp/p/tree"));
}

TEST_F(Pkgadd, EditedFilesAreKept) {
    make("ABChello", "-e etc/motd");
    expect_added();
    write_text("/tmp/p/root/etc/motd", "our own welcome\n");
    expect_added();
    EXPECT_EQ(text_of("/tmp/p/root/etc/motd"), "our own welcome\n");
}

TEST_F(Pkgadd, SaysWhatItDidUnlessToldNotTo) {
    make();
    const Outcome outcome = sh("pkgadd -n -R /tmp/p/root -a /tmp/p/admin -d /tmp/p/spool ABChello 2>&1");
    EXPECT_EQ(outcome.output, "Installation of <ABChello> was successful.\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(Pkgadd, InstallsIntoTheRunningSystemByDefault) {
    make();
    set_admin("basedir", "/opt/hello");
    EXPECT_EQ(sh("/usr/sbin/pkgadd -S -a /tmp/p/admin -d /tmp/p/spool ABChello >> /tmp/p/log 2>&1").status,
              0);
    EXPECT_EQ(text_of("/opt/hello/etc/motd"), "welcome\n");
    EXPECT_THAT(text_of("/var/sadm/pkg/ABChello/pkginfo"), HasSubstr("BASEDIR=/opt/hello\n"));
    must("rm -r /opt/hello /var/sadm");
}

// ---- damage ----

TEST_F(Pkgadd, RefusesFileOfAnotherSize) {
    make();
    must("echo more >>/tmp/p/spool/ABChello/reloc/etc/motd");
    expect_refused("ABChello: the file etc/motd is damaged: it has 13 bytes instead of 8");
}

TEST_F(Pkgadd, RefusesFileWithAnotherChecksum) {
    make();
    must("printf 'Welcome\\n' >/tmp/p/spool/ABChello/reloc/etc/motd");
    expect_refused("ABChello: the file etc/motd is damaged: its checksum is");
}

TEST_F(Pkgadd, RefusesDamagedInformation) {
    make();
    must("sed -i s/CATEGORY=system/CATEGORY=sysTEM/ /tmp/p/spool/ABChello/pkginfo");
    expect_refused("the file pkginfo is damaged");
}

TEST_F(Pkgadd, RefusesMissingFile) {
    make();
    must("rm /tmp/p/spool/ABChello/reloc/etc/motd");
    expect_refused("the file etc/motd is missing");
}

TEST_F(Pkgadd, ADamagedPackageStopsThoseBeforeItToo) {
    make("ABCfirst");
    make();
    must("rm /tmp/p/spool/ABChello/reloc/etc/motd");
    expect_refused("ABChello: the file etc/motd is missing");
}

TEST_F(Pkgadd, RefusesMapThatIsNone) {
    make();
    const std::string good = text_of("/tmp/p/spool/ABChello/pkgmap");
    for (const auto &[line, text] : {std::pair{"1 f none etc/x 0644 root", "too few words"},
                                     std::pair{"1 f none etc/x 0644 root root 1 2 3 4", "too many words"},
                                     std::pair{"1 q none etc/x", "unknown type \"q\""},
                                     std::pair{"1 d none etc/x 0999 root root", "\"0999\" is no mode"},
                                     std::pair{"1 d none etc/x 77777 root root", "is no mode"},
                                     std::pair{"1 c none etc/x one 2 0600 root root", "\"one\" is no number"},
                                     std::pair{"1 s none etc/x", "has no target"},
                                     std::pair{"1 d none etc 0755 root root", "stands there twice"},
                                     std::pair{"1 i sub/depend 1 2 3", "has a directory"}}) {
        write_text("/tmp/p/spool/ABChello/pkgmap", good + line + "\n");
        expect_refused(text);
    }
}

TEST_F(Pkgadd, RefusesMapThatListsNothing) {
    make();
    write_text("/tmp/p/spool/ABChello/pkgmap", ": 1 4\n");
    expect_refused("ABChello: pkgmap lists nothing");
    write_text("/tmp/p/spool/ABChello/pkgmap", "");
    expect_refused("ABChello: pkgmap lists nothing");
}

TEST_F(Pkgadd, AllLeavesOutAPackageThatIsBeingMade) {
    make();
    must("mkdir /tmp/p/spool/.ABCother.new; cp /tmp/p/spool/ABChello/pkginfo /tmp/p/spool/.ABCother.new");
    expect_added();
}

TEST_F(Pkgadd, RefusesWhatIsNoPackage) {
    must("mkdir /tmp/p/spool/junk");
    expect_refused("/tmp/p/spool holds no package");
    expect_refused("no package, it has no file pkginfo", 1, "junk");
    expect_refused("/tmp/p/spool/ABCnone: no such package", 1, "ABCnone");
    expect_refused("is no package name", 1, "../spool");
    write_text("/tmp/p/spool/junk/pkginfo", "PKG=../x\nARCH=all\nVERSION=1\n");
    write_text("/tmp/p/spool/junk/pkgmap", "");
    expect_refused("is no package name");
    write_text("/tmp/p/spool/junk/pkginfo", "PKG=ABCx\nARCH=all\n");
    expect_refused("pkginfo has no VERSION");
    must("rm -r /tmp/p/spool; echo stream >/tmp/p/spool");
    expect_refused("packages in one file are not supported");
}

TEST_F(Pkgadd, RefusesTwoPackagesOfOneName) {
    make();
    must("cp -r /tmp/p/spool/ABChello /tmp/p/spool/ABChello.2");
    expect_refused("two of the packages have this name");
}

TEST_F(Pkgadd, RefusesScripts) {
    make();
    must("mkdir /tmp/p/spool/ABChello/install; echo 'rm -rf /' >/tmp/p/spool/ABChello/install/postinstall");
    set_map_line("$a1 i postinstall 9 692 700000000");
    expect_refused("ABChello: it has the script postinstall");
    set_map_line("s/i postinstall/i i.conf/");
    expect_refused("it has the script i.conf");
    set_map_line("$d");
    set_map_line("s/f none etc.motd/e sed etc\\/motd/");
    expect_refused("is of the class sed");
}

TEST_F(Pkgadd, KeepsDependAndCopyrightWithTheRecord) {
    make();
    must("mkdir /tmp/p/spool/ABChello/install; echo 'P ABCbase the base' "
         ">/tmp/p/spool/ABChello/install/depend");
    std::string sum = sh("sum -s /tmp/p/spool/ABChello/install/depend").output;
    sum.resize(sum.find(' '));
    set_map_line("$a1 i depend 19 " + sum + " 700000000");
    expect_added();
    EXPECT_EQ(text_of("/tmp/p/root/var/sadm/pkg/ABChello/install/depend"), "P ABCbase the base\n");
    set_admin("idepend", "quit");
    must("rm -r /tmp/p/root/var");
    expect_refused("it needs the package ABCbase", 4);
}

// ---- ways out of the root ----

TEST_F(Pkgadd, RefusesPathsThatLeadUpwards) {
    make();
    const std::string good = text_of("/tmp/p/spool/ABChello/pkgmap");
    for (const char *const path :
         {"../escaped", "/../escaped", "etc/../../escaped", "$BASEDIR/../../escaped"}) {
        write_text("/tmp/p/spool/ABChello/pkgmap", good + "1 d none " + path + " 0755 root root\n");
        expect_refused("leads out of its directory");
    }
    write_text("/tmp/p/spool/ABChello/pkgmap", good + "1 l none etc/x=../../../etc/shadow\n");
    expect_refused("leads out of its directory");
    EXPECT_FALSE(std::filesystem::exists("/tmp/p/escaped"));
}

TEST_F(Pkgadd, LinksInTheRootDoNotLeadOutOfIt) {
    must("mkdir /tmp/p/outside");
    make();
    for (const char *const target : {"/tmp/p/outside", "../outside", "../../../../tmp/p/outside"}) {
        must(std::string("rm -rf /tmp/p/root; mkdir /tmp/p/root; ln -s ") + target + " /tmp/p/root/etc");
        const Outcome outcome = add();
        EXPECT_EQ(outcome.status, 1) << target;
        EXPECT_THAT(outcome.output, HasSubstr("/etc")) << target;
        EXPECT_TRUE(std::filesystem::is_empty("/tmp/p/outside")) << target;
        EXPECT_EQ(sh("ls -A /tmp/p/root").output, "etc\n") << target;
    }
}

TEST_F(Pkgadd, AbsoluteLinksInTheRootMeanPlacesInIt) {
    make();
    must("mkdir -p /tmp/p/root/private/etc; chgrp 3 /tmp/p/root/private/etc; ln -s /private/etc "
         "/tmp/p/root/etc");
    expect_added();
    EXPECT_EQ(text_of("/tmp/p/root/private/etc/motd"), "welcome\n");
}

TEST_F(Pkgadd, LinksInThePackageAreNotFollowed) {
    make();
    must("cd /tmp/p/spool/ABChello/reloc/etc; mv motd m; ln -s m motd");
    expect_refused("not a plain file in the package");
}

// ---- a client that changes its root meanwhile ----

constexpr const char *add_words = "-S -n -R /tmp/p/root -a /tmp/p/admin -d /tmp/p/spool all";

// A server's own files, told with their modes and owners, and what a client does to reach them: everything that lies
// beside its place becomes a link to a file, and every directory of the package one to a directory.
class PkgaddAttacked : public Pkgadd {
protected:
    void SetUp() override {
        Pkgadd::SetUp();
        must("rm -rf /tmp/p/server; mkdir -m 700 /tmp/p/server; echo secret >/tmp/p/server/key; chmod 600 "
             "/tmp/p/server/key");
        write_text("/tmp/p/attack", R"(cd /tmp/p/root || exit
find . -name '.*.pkgnew' -exec ln -sfn /tmp/p/server/key {} \;
find . -depth -mindepth 1 -type d \( -name usr -o -name bin -o -name etc \) \
    -exec mv -T {} {}.away \; -exec ln -sfn /tmp/p/server {} \;
)");
        server_ = listing("/tmp/p/server");
    }
    void expect_server_untouched(const std::string &when) const {
        EXPECT_EQ(listing("/tmp/p/server"), server_) << when;
    }
    // Stops the program behind the call with this number, of those with these names, while the client attacks.
    // False: it does not make so many.
    static bool run_attacked_after(int call, const std::string &calls, const std::string &program) {
        must("rm -f /tmp/p/calls /tmp/p/ended");
        const Outcome outcome =
            sh("(ASAN_OPTIONS=detect_leaks=0 strace -f -o /tmp/p/calls -e trace=" + calls +
               " -e inject=" + calls + ":signal=STOP:when=" + std::to_string(call) + " " + program +
               R"( >/tmp/p/said 2>&1; touch /tmp/p/ended) &
            until grep -q 'stopped by SIGSTOP' /tmp/p/calls 2>/dev/null; do
                test ! -e /tmp/p/ended || exit 9
                sleep 0.002
            done
            sh /tmp/p/attack
            until test -e /tmp/p/ended; do # strace may not have seen the stop to its end yet
                kill -CONT $(awk '/stopped by SIGSTOP/ { print $1; exit }' /tmp/p/calls) 2>/dev/null
                sleep 0.002
            done)");
        return outcome.status != 9;
    }
    std::string server_;
};

TEST_F(PkgaddAttacked, NoPauseLetsAClientLeadAnInstallationToTheServersFiles) {
    must("printf 'a text\\n' >/tmp/p/tree/etc/text");
    make("ABChello", "-e etc/text");
    int stops = 0;
    for (int call = 1;; ++call) {
        must("rm -rf /tmp/p/root; mkdir /tmp/p/root");
        if (!run_attacked_after(call,
                                "mkdirat,mknodat,symlinkat,linkat,renameat,unlinkat,fchown,fchmod,fchownat,"
                                "fchmodat,chmod,utimensat,syncfs",
                                std::string("/usr/sbin/pkgadd ") + add_words))
            break;
        ++stops;
        expect_server_untouched("after call " + std::to_string(call));
        ASSERT_LT(call, 5000);
    }
    EXPECT_GE(stops, 30);
}

TEST_F(PkgaddAttacked, NoSwapInALoopLeadsAnInstallationToTheServersFiles) {
    make();
    must("(while :; do for name in usr/bin/.hello etc/.tape etc/.motd etc/.pipe; do "
         "ln -sfn /tmp/p/server/key /tmp/p/root/$name.pkgnew; done; done) >/dev/null 2>&1 & echo $! "
         ">/tmp/swapper");
    for (int run = 0; run < 20; ++run) {
        must("rm -rf /tmp/p/root/var; find /tmp/p/root -type f -delete; mkdir -p /tmp/p/root/usr/bin "
             "/tmp/p/root/etc");
        add();
        expect_server_untouched("run " + std::to_string(run));
    }
    must("kill $(cat /tmp/swapper); while kill -0 $(cat /tmp/swapper) 2>/dev/null; do sleep 0.01; done");
}

TEST_F(PkgaddAttacked, WhatAClientPutInPlaceOfAFileIsNoSuccess) {
    make();
    // Between the last look and the rename: the file that was laid beside its place is another one now.
    write_text("/tmp/p/attack",
               "find /tmp/p/root -name .hello.pkgnew -exec sh -c 'echo theirs >{}.x; mv {}.x {}' \\;\n");
    const Outcome traced = sh("ASAN_OPTIONS=detect_leaks=0 strace -f -o /tmp/p/calls -e trace=syncfs -e "
                              "inject=syncfs:signal=STOP:when=1 /usr/sbin/pkgadd " +
                              std::string(add_words) + R"( >/tmp/p/said 2>&1 & traced=$!
        until grep -q 'stopped by SIGSTOP' /tmp/p/calls 2>/dev/null; do sleep 0.002; done
        sh /tmp/p/attack
        pid=$(awk '/stopped by SIGSTOP/ { print $1; exit }' /tmp/p/calls)
        while kill -CONT $pid 2>/dev/null; do sleep 0.002; done
        wait $traced)");
    EXPECT_EQ(traced.status, 1);
    EXPECT_THAT(text_of("/tmp/p/said"),
                HasSubstr("hello was replaced by somebody else while it was installed"));
    EXPECT_FALSE(std::filesystem::exists("/tmp/p/root/usr/bin/hello"));
}

TEST_F(PkgaddAttacked, PipesDevicesAndEndlessFilesInTheRootAreNotRead) {
    make("ABChello", "-e etc/motd");
    expect_added();
    for (const char *const table : {"etc/passwd", "etc/motd", "var/sadm/install/contents"}) {
        for (const std::string make_trap : {"mkfifo ", "cp -a /dev/zero ", "truncate -s 4E "}) {
            const std::string path = std::string("/tmp/p/root/") + table;
            must("rm -f " + path + "; " + make_trap + path);
            const Outcome outcome = sh("(ulimit -v 4000000; timeout -s KILL 20 /usr/sbin/pkgadd " +
                                       std::string(add_words) + ") 2>&1");
            EXPECT_NE(outcome.status, 128 + SIGKILL) << make_trap << path;
            must("rm -f " + path);
        }
    }
}

TEST_F(PkgaddAttacked, NoPauseLetsATreeLeadTheMakerToTheServersFiles) {
    write_text("/tmp/p/attack", R"(cd /tmp/p/tree || exit
find . -type f -exec ln -sfn /tmp/p/server/key {} \;
find . -depth -mindepth 1 -type d -exec mv -T {} /tmp/p/away \; -exec ln -sfn /tmp/p/server {} \; -exec rm -r /tmp/p/away \;
)");
    must("cp -a /tmp/p/tree /tmp/p/tree.good");
    int stops = 0;
    for (int call = 1;; call += 1 + call / 20) {
        must("rm -rf /tmp/p/tree /tmp/p/spool; cp -a /tmp/p/tree.good /tmp/p/tree; mkdir /tmp/p/spool");
        if (!run_attacked_after(call, "openat,openat2,fstat,newfstatat,getdents64,readlinkat",
                                "/usr/bin/pkgmk -d /tmp/p/spool -r /tmp/p/tree ABChello"))
            break;
        ++stops;
        EXPECT_EQ(sh("grep -r secret /tmp/p/spool").output, "") << "after call " << call;
        expect_server_untouched("after call " + std::to_string(call));
        ASSERT_LT(call, 5000);
    }
    EXPECT_GE(stops, 20);
}

// ---- done means done ----

// Everything is flushed before the first rename, and the renames before the end.
TEST_F(Pkgadd, SaysDoneOnlyWhenAllIsOnTheDisk) {
    make();
    must("ASAN_OPTIONS=detect_leaks=0 strace -o /tmp/p/calls -e trace=syncfs,renameat,exit_group "
         "/usr/sbin/pkgadd " +
         std::string(add_words));
    EXPECT_EQ(sh("sed 's/(.*//' /tmp/p/calls | grep -v exited | uniq").output,
              "syncfs\nrenameat\nsyncfs\nrenameat\nsyncfs\nexit_group\n");
}

TEST_F(Pkgadd, FailedFlushTakesEverythingBack) {
    make();
    const std::string before = listing("/tmp/p/root");
    for (int when = 1; when <= 3; ++when) {
        const Outcome outcome =
            sh("ASAN_OPTIONS=detect_leaks=0 strace -o /dev/null -e trace=syncfs -e "
               "inject=syncfs:error=EIO:when=" +
               std::to_string(when) + " /usr/sbin/pkgadd " + std::string(add_words) + " 2>&1");
        EXPECT_THAT(outcome.output, HasSubstr("Input/output error; nothing of it was installed")) << when;
        EXPECT_EQ(outcome.status, 1) << when;
        EXPECT_EQ(listing("/tmp/p/root"), before) << when;
    }
}

// ---- failures on the way ----

TEST_F(Pkgadd, ShortSpaceIsRefusedBeforeAnythingIsPlaced) {
    must("head -c 3000000 /dev/zero >/tmp/p/tree/usr/big; mkdir -p /tmp/p/small");
    must("mount -t tmpfs -o size=2m,mode=755 small /tmp/p/small");
    make();
    const Outcome outcome = add("all", "/tmp/p/small");
    EXPECT_THAT(outcome.output, HasSubstr("not enough space below /: "));
    EXPECT_THAT(outcome.output, HasSubstr(" KB are needed, 2048 KB are free\n"));
    EXPECT_EQ(outcome.status, 4);
    EXPECT_EQ(sh("ls -A /tmp/p/small").output, "");
}

TEST_F(Pkgadd, SpaceThatRunsOutOnTheWayTakesEverythingBack) {
    must("head -c 3000000 /dev/zero >/tmp/p/tree/usr/big; mkdir -p /tmp/p/small");
    must("mount -t tmpfs -o size=2m,mode=755 small /tmp/p/small; echo 'ours' >/tmp/p/small/keep");
    make();
    set_admin("space", "nocheck");
    const std::string before = listing("/tmp/p/small");
    const Outcome outcome = add("all", "/tmp/p/small");
    EXPECT_THAT(outcome.output, HasSubstr("No space left on device; nothing of it was installed"));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(listing("/tmp/p/small"), before);
}

TEST_F(Pkgadd, TooFewFileEntriesAreRefused) {
    must("mkdir /tmp/p/small; mount -t tmpfs -o nr_inodes=8,mode=755 small /tmp/p/small");
    make();
    EXPECT_THAT(add("all", "/tmp/p/small").output, HasSubstr("not enough file entries below /"));
    EXPECT_EQ(sh("ls -A /tmp/p/small").output, "");
}

TEST_F(Pkgadd, DirectoryInTheWayOfAFileTakesEverythingBack) {
    make();
    must("mkdir -p /tmp/p/root/etc/motd");
    expect_refused("/etc/motd is there already and is a directory");
}

TEST_F(Pkgadd, FileInTheWayOfADirectoryTakesEverythingBack) {
    make();
    write_text("/tmp/p/root/usr", "a file\n");
    expect_refused("/usr is there already and is no directory");
}

// The rename of every object in turn fails: earlier files are back as they were, new ones are gone.
TEST_F(Pkgadd, FailedRenameTakesEverythingBack) {
    make();
    write_text("/tmp/p/root/keep", "ours\n");
    must("mkdir /tmp/p/root/etc; echo older >/tmp/p/root/etc/motd");
    const std::string before = listing("/tmp/p/root");
    int failures = 0;
    for (int when = 1; when <= 20; ++when) {
        const Outcome outcome =
            sh("ASAN_OPTIONS=detect_leaks=0 strace -f -o /dev/null -e trace=renameat,renameat2 -e "
               "inject=renameat,renameat2:error=EIO:when=" +
               std::to_string(when) +
               " /usr/sbin/pkgadd -S -n -R /tmp/p/root -a /tmp/p/admin -d /tmp/p/spool all 2>&1");
        if (outcome.status == 0)
            break;
        ++failures;
        EXPECT_THAT(outcome.output, HasSubstr("Input/output error; nothing of it was installed")) << when;
        EXPECT_EQ(listing("/tmp/p/root"), before) << when;
    }
    EXPECT_GE(failures, 6);
}

TEST_F(Pkgadd, KilledOnTheWayIsRepairedByTheNextRun) {
    make();
    int killed = 0;
    for (int when = 1; when <= 12; ++when) {
        must("rm -rf /tmp/p/root; mkdir /tmp/p/root");
        killed += sh("ASAN_OPTIONS=detect_leaks=0 strace -f -o /dev/null -e trace=renameat,renameat2 -e "
                     "inject=renameat,renameat2:signal=KILL:"
                     "when=" +
                     std::to_string(when) +
                     " /usr/sbin/pkgadd -S -n -R /tmp/p/root -a /tmp/p/admin -d /tmp/p/spool all 2>&1")
                      .status != 0;
        expect_added();
        EXPECT_EQ(sh("find /tmp/p/root -name '.*.pkg*'").output, "") << when;
        must("rm -r /tmp/p/root/var");
        EXPECT_EQ(listing("/tmp/p/root"), listing("/tmp/p/tree")) << when;
    }
    EXPECT_GE(killed, 6);
}

// Names too long to get an ending included.
TEST_F(Pkgadd, KilledUpdateLeavesNoOldFileAfterTheNextRun) {
    const std::string name(250, 'n');
    write_text("/tmp/p/tree/usr/" + name, "older\n");
    make();
    expect_added();
    write_text("/tmp/p/tree/usr/" + name, "newer\n");
    write_text("/tmp/p/tree/usr/bin/hello", "#!/bin/sh\necho safer\n");
    make("ABChello VERSION=2.0");
    set_admin("instance", "overwrite");
    must("cp -a /tmp/p/root /tmp/p/before");
    int left = 0;
    for (int when = 1; when <= 8; ++when) {
        must("rm -rf /tmp/p/root; cp -a /tmp/p/before /tmp/p/root");
        sh("ASAN_OPTIONS=detect_leaks=0 strace -f -o /dev/null -e trace=renameat,renameat2 -e "
           "inject=renameat,renameat2:signal=KILL:when=" +
           std::to_string(when) +
           " /usr/sbin/pkgadd -S -n -R /tmp/p/root -a /tmp/p/admin -d /tmp/p/spool all 2>&1");
        left += sh("find /tmp/p/root -name '.*.pkgold' -perm -4000").output != "";
        expect_added();
        EXPECT_EQ(sh("find /tmp/p/root -name '.*.pkg*'").output, "") << when;
    }
    EXPECT_GE(left, 1);
}

TEST_F(Pkgadd, InterruptTakesEverythingBack) {
    make();
    const std::string before = listing("/tmp/p/root");
    const Outcome outcome = sh("ASAN_OPTIONS=detect_leaks=0 strace -f -o /dev/null -e trace=mknodat -e "
                               "inject=mknodat:signal=INT /usr/sbin/pkgadd -S -n -R "
                               "/tmp/p/root -a /tmp/p/admin -d /tmp/p/spool all 2>&1");
    EXPECT_EQ(outcome.output, "pkgadd: interrupted\n");
    EXPECT_EQ(outcome.status, 3);
    EXPECT_EQ(listing("/tmp/p/root"), before);
}

// What those lock who install into the root.
const std::string lock_file = "lock=/run/hostadm/packages/$(printf %x-%x $(stat -c '%d %i' /tmp/p/root)); ";

TEST_F(Pkgadd, ALockThatAnybodyCanHoldOnTheRootHoldsNothingUp) {
    make();
    must("(exec 9</tmp/p/root; flock 9; exec sleep 60) >/dev/null 2>&1 & echo $! >/tmp/p/other;"
         "while flock -n /tmp/p/root true; do :; done");
    const Outcome outcome =
        sh("timeout 20 /usr/sbin/pkgadd -S -n -R /tmp/p/root -a /tmp/p/admin -d /tmp/p/spool all 2>&1");
    must("kill $(cat /tmp/p/other)");
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    expect_added();
    must(lock_file + "test -e $lock && test $(stat -c %a /run/hostadm) = 700");
}

TEST_F(Pkgadd, InterruptEndsTheWaitForAnother) {
    make();
    must(lock_file + "mkdir -p $(dirname $lock); (exec 9>$lock; flock 9; exec sleep 60) >/dev/null 2>&1 & "
                     "echo $! >/tmp/p/other; while flock -n $lock true; do :; done");
    const Outcome outcome =
        sh("/usr/sbin/pkgadd -S -n -R /tmp/p/root -a /tmp/p/admin -d /tmp/p/spool all 2>&1 & added=$!;"
           "until grep -q '^SigCgt:.*[4-7c-f]...$' /proc/$added/status; do sleep 0.01; done; kill -TERM "
           "$added; wait "
           "$added");
    EXPECT_EQ(outcome.output, "pkgadd: interrupted\n");
    EXPECT_EQ(outcome.status, 3);
    must("kill $(cat /tmp/p/other)");
}

TEST_F(Pkgadd, InterruptIsHeardInTheMiddleOfALargeFile) {
    must("head -c 20000000 /dev/zero >/tmp/p/tree/usr/big");
    make("ABChello");
    for (const char *const when : {"100", "500"}) { // while it is verified, and while it is copied
        const std::string before = listing("/tmp/p/root");
        const Outcome outcome =
            sh(std::string("ASAN_OPTIONS=detect_leaks=0 strace -f -o /tmp/p/calls -e trace=read -e "
                           "inject=read:signal=INT:when=") +
               when + " /usr/sbin/pkgadd -S -n -R /tmp/p/root -a /tmp/p/admin -d /tmp/p/spool all 2>&1");
        EXPECT_EQ(outcome.output, "pkgadd: interrupted\n");
        EXPECT_EQ(outcome.status, 3);
        EXPECT_EQ(listing("/tmp/p/root"), before);
        EXPECT_EQ(sh("grep -c '= 65536$' /tmp/p/calls").status, 0);
        EXPECT_EQ(sh("test $(wc -l </tmp/p/calls) -le $((" + std::string(when) + " + 3))").status, 0) << when;
    }
}

TEST_F(Pkgadd, TwoAtOnceLoseNothing) {
    make();
    make("ABCother");
    const std::string command = "/usr/sbin/pkgadd -S -n -R /tmp/p/root -a /tmp/p/admin -d /tmp/p/spool ";
    must(command + "ABChello & " + command + "ABCother & wait");
    EXPECT_THAT(text_of("/tmp/p/root/var/sadm/install/contents"),
                testing::AnyOf(HasSubstr(" ABChello ABCother\n"), HasSubstr(" ABCother ABChello\n")));
    EXPECT_TRUE(std::filesystem::exists("/tmp/p/root/var/sadm/pkg/ABChello/pkginfo"));
    EXPECT_TRUE(std::filesystem::exists("/tmp/p/root/var/sadm/pkg/ABCother/pkginfo"));
}

// ---- the admin file ----

TEST_F(Pkgadd, AnotherVersionIsASecondInstanceWhereThePackageAllowsIt) {
    make("ABChello VERSION=1.0");
    expect_added();
    make("ABChello VERSION=2.0");
    expect_refused("another version is installed (ABChello, version 1.0)", 4);
    make("ABChello VERSION=2.0 MAXINST=2");
    expect_added();
    EXPECT_THAT(text_of("/tmp/p/root/var/sadm/pkg/ABChello.2/pkginfo"), HasSubstr("PKGINST=ABChello.2\n"));
    expect_added(); // the same version again is the same instance
    EXPECT_FALSE(std::filesystem::exists("/tmp/p/root/var/sadm/pkg/ABChello.3"));
}

TEST_F(Pkgadd, AnotherArchitectureIsASecondInstanceWhereThePackageAllowsIt) {
    make("ABChello ARCH=i386");
    expect_added();
    make("ABChello ARCH=ppc");
    expect_refused("another architecture is installed (ABChello, for i386)", 4);
    make("ABChello ARCH=ppc MAXINST=2");
    expect_added();
    EXPECT_THAT(text_of("/tmp/p/root/var/sadm/pkg/ABChello.2/pkginfo"), HasSubstr("ARCH=ppc\n"));
    write_text("/tmp/p/root/var/sadm/pkg/ABChello/pkginfo", "a damaged record\n");
    must("rm -r /tmp/p/root/var/sadm/pkg/ABChello.2");
    make("ABChello ARCH=ppc");
    expect_refused("another version is installed (ABChello, version )", 4);
}

TEST_F(Pkgadd, InstanceOverwriteReplacesTheOnlyOne) {
    make("ABChello VERSION=1.0");
    expect_added();
    make("ABChello VERSION=2.0");
    set_admin("instance", "overwrite");
    expect_added();
    EXPECT_THAT(text_of("/tmp/p/root/var/sadm/pkg/ABChello/pkginfo"), HasSubstr("VERSION=2.0\n"));
}

TEST_F(Pkgadd, InstanceQuitRefusesWhatIsInstalled) {
    make();
    set_admin("instance", "quit");
    expect_added();
    expect_refused("instance=quit", 4);
}

TEST_F(Pkgadd, SetuidQuitRefusesSuchFiles) {
    make();
    set_admin("setuid", "quit");
    expect_refused("/usr/bin/hello runs with its owner's rights", 4);
}

TEST_F(Pkgadd, ConflictQuitRefusesAnotherPackagesFiles) {
    make();
    expect_added();
    make("ABCother");
    set_admin("conflict", "quit");
    expect_refused("belongs to ABChello", 4, "ABCother");
    expect_added("ABChello");
}

TEST_F(Pkgadd, RefusesToAsk) {
    make();
    set_admin("conflict", "ask");
    expect_refused("wants to be asked about conflict; give nocheck or quit, this program asks nothing", 5);
    write_text("/tmp/p/admin", "basedir=ask\n");
    expect_refused("wants to be asked about basedir; give a directory or default, this program asks nothing",
                   5);
}

TEST_F(Pkgadd, RefusesUnknownAdminFiles) {
    make();
    set_admin("space", "maybe");
    expect_refused("unknown value space=maybe");
    write_text("/tmp/p/admin", "colour=blue\n");
    expect_refused("unknown setting colour");
    write_text("/tmp/p/admin", "# a comment\n\nspace=quit\ninstance quit\n");
    expect_refused("no key=value: \"instance quit\"");
    must("rm /tmp/p/admin");
    expect_refused("there is no admin file /tmp/p/admin");
    write_text("/tmp/p/admin", "basedir=opt\n");
    expect_refused("the base directory opt is not absolute");
}

// ---- owners ----

TEST_F(Pkgadd, OwnersAreThoseOfTheRootThenNumbersThenTheUsualOnes) {
    make();
    must("mkdir -p /tmp/p/root/etc; chgrp 3 /tmp/p/root/etc; chmod 1775 /tmp/p/root/etc");
    write_text("/tmp/p/root/etc/passwd", "root:x:0:0::/:\nsys:x:33:3::/:\n");
    set_map_line(
        "s,etc/motd 0644 root root,etc/motd 0644 sys sys,; s,etc/empty 0644 root root,etc/empty 0644 "
        "1234 4321,");
    expect_added();
    EXPECT_EQ(sh("stat -c '%u %g' /tmp/p/root/etc/motd /tmp/p/root/etc/empty").output, "33 3\n1234 4321\n");
    set_map_line("s,etc/motd 0644 sys,etc/motd 0644 stranger,");
    expect_refused("the user stranger is in no table of the root");
}

TEST_F(Pkgadd, QuestionMarksLeaveADirectoryAsItIs) {
    make();
    must("mkdir /tmp/p/root/etc; chmod 700 /tmp/p/root/etc; chown 7:8 /tmp/p/root/etc");
    set_map_line("s,d none etc .*,d none etc ? ? ?,");
    expect_added();
    EXPECT_EQ(sh("stat -c '%a %u %g' /tmp/p/root/etc").output, "700 7 8\n");
}

// ---- the command lines ----

TEST_F(Pkgadd, ExplainsItself) {
    for (const char *const name : {"pkgadd", "pkgmk"}) {
        const Outcome outcome = sh(std::string(name) + " --help");
        EXPECT_THAT(outcome.output, StartsWith(std::string("usage: ") + name));
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(sh(std::string("man -w ") + name).status, 0) << name;
        EXPECT_EQ(sh(std::string(name) + " --none 2>&1").status, 1);
        EXPECT_EQ(sh(std::string(name) + " 2>&1").status, 1);
    }
    EXPECT_THAT(sh("pkgadd -R relative all 2>&1").output, HasSubstr("is not absolute"));
    EXPECT_THAT(sh("pkgadd -d /tmp/p/none all 2>&1").output, HasSubstr("/tmp/p/none: No such file"));
    EXPECT_THAT(sh("pkgadd -R /tmp/p/none -d /tmp/p/spool all 2>&1").output, HasSubstr("holds no package"));
}

TEST_F(Pkgadd, MakerRefusesWhatAMapCannotHold) {
    must("touch '/tmp/p/tree/two words'");
    const Outcome outcome = sh("pkgmk -d /tmp/p/spool -r /tmp/p/tree ABChello 2>&1");
    EXPECT_THAT(outcome.output, HasSubstr("pkgmap cannot hold a path with a blank"));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(sh("ls -A /tmp/p/spool").output, "");
}

TEST_F(Pkgadd, MakerRefusesWhatIsNotThere) {
    const auto refusal = [](const std::string &words) {
        return sh("pkgmk -d /tmp/p/spool " + words + " 2>&1");
    };
    EXPECT_EQ(refusal("-r /tmp/p/none ABChello").output, "pkgmk: /tmp/p/none: no such tree\n");
    EXPECT_EQ(refusal("-r /tmp/p/tree -e etc/modt ABChello").output,
              "pkgmk: etc/modt: /tmp/p/tree has no such file that could be edited\n");
    EXPECT_EQ(refusal("-r /tmp/p/tree ABC/hello").output, "pkgmk: \"ABC/hello\" is no package name\n");
    EXPECT_EQ(sh("ls -A /tmp/p/spool").output, "");
}

TEST_F(Pkgadd, MakerReplacesAPackageOnlyWhenAsked) {
    make();
    EXPECT_THAT(sh("pkgmk -d /tmp/p/spool -r /tmp/p/tree ABChello 2>&1").output,
                HasSubstr("is there already"));
    make();
}

} // namespace

int main(int argc, char **argv) {
    return run_installed_tests(argc, argv);
}
