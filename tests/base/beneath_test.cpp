// SPDX-License-Identifier: MIT
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "../support/scratch.hpp"
#include "base/beneath.hpp"

namespace {

namespace fs = std::filesystem;
using hostadm::base::Attributes;
using hostadm::base::Beneath;
using hostadm::base::BeneathError;
using hostadm::base::Descriptor;
using hostadm::base::Links;
using hostadm::base::NewFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using tests::content;

// What the work says that it cannot do; empty: it could.
std::string complaint(const std::function<void()> &work) {
    try {
        work();
        return "";
    } catch (const BeneathError &error) {
        EXPECT_NE(error.error(), 0);
        return error.what();
    }
}

// A directory with a client's root in it, and a file and a folder of the server's own beside the root.
class BeneathTest : public testing::Test {
protected:
    BeneathTest() {
        scratch.write("own/file", "private\n");
        fs::create_directories(root + "/etc");
    }
    ~BeneathTest() override {
        EXPECT_EQ(content(scratch.path("own/file")), "private\n");
        EXPECT_EQ(std::distance(fs::directory_iterator(scratch.path("own")), {}), 1);
    }

    // Each way in which a client may lay the path PATH out of its root.
    void link(const std::string &path, const std::string &target) const {
        fs::remove_all(root + "/" + path);
        fs::create_symlink(target, root + "/" + path);
    }
    Attributes mine(mode_t mode) const { return {.mode = mode, .owner = getuid(), .group = getgid()}; }

    tests::Scratch scratch;
    std::string root = scratch.path("root");
    std::string own = scratch.path("own");
};

} // namespace

TEST_F(BeneathTest, FilesAreReadAndWrittenWhole) {
    const Beneath beneath(root);
    beneath.write("etc/table", "one\n", mine(0640));
    EXPECT_EQ(beneath.read("/etc/table"), "one\n");
    EXPECT_EQ(content(root + "/etc/table"), "one\n");
    EXPECT_EQ(beneath.status("etc/table")->st_mode, S_IFREG | 0640U);
    beneath.rewrite("etc/table", "two\n");
    EXPECT_EQ(content(root + "/etc/table"), "two\n");
    EXPECT_EQ(beneath.status("etc/table")->st_mode, S_IFREG | 0640U) << "the mode is kept";
    EXPECT_THAT(beneath.names("etc"), ElementsAre("table")) << "nothing stays beside it";
    beneath.write("top", "", mine(04755));
    EXPECT_EQ(beneath.status("top")->st_mode, S_IFREG | 04755U);
}

TEST_F(BeneathTest, ARewrittenFileKeepsItsListOfRightsAndOtherAttributes) {
    // Version 2; owner, user 1234 (read), group, mask, others.
    const std::string rights("\2\0\0\0"
                             "\1\0\6\0\xff\xff\xff\xff"
                             "\2\0\4\0\xd2\4\0\0"
                             "\4\0\4\0\xff\xff\xff\xff"
                             "\x10\0\4\0\xff\xff\xff\xff"
                             "\x20\0\0\0\xff\xff\xff\xff",
                             44);
    const std::string path = root + "/etc/table";
    const auto attribute = [&](const char *name) {
        std::string value(1024, '\0');
        const ssize_t size = lgetxattr(path.c_str(), name, value.data(), value.size());
        return size < 0 ? "none" : value.substr(0, static_cast<std::size_t>(size));
    };
    tests::write(path, "one\n");
    if (setxattr(path.c_str(), "system.posix_acl_access", rights.data(), rights.size(), 0) != 0)
        GTEST_SKIP() << "this file system keeps no lists of rights";
    const bool has_notes = setxattr(path.c_str(), "user.note", "kept", 4, 0) == 0;
    const mode_t mode = Beneath(root).status("etc/table")->st_mode;
    Beneath(root).rewrite("etc/table", "two\n");
    EXPECT_EQ(content(path), "two\n");
    EXPECT_EQ(attribute("system.posix_acl_access"), rights);
    EXPECT_EQ(attribute("user.note"), has_notes ? "kept" : "none");
    EXPECT_EQ(Beneath(root).status("etc/table")->st_mode, mode);
    // A default list of the folder gives the file none that it never had.
    ASSERT_EQ(removexattr(path.c_str(), "system.posix_acl_access"), 0);
    ASSERT_EQ(setxattr((root + "/etc").c_str(), "system.posix_acl_default", rights.data(), rights.size(), 0),
              0);
    Beneath(root).rewrite("etc/table", "three\n");
    EXPECT_EQ(attribute("system.posix_acl_access"), "none");
    EXPECT_EQ(Beneath(root).status("etc/table")->st_mode, mode);
}

TEST_F(BeneathTest, WhatIsMissingIsTold) {
    const Beneath beneath(root);
    EXPECT_FALSE(beneath.status("etc/none"));
    EXPECT_FALSE(beneath.status("none/none"));
    EXPECT_FALSE(beneath.is_file("etc/none"));
    EXPECT_FALSE(beneath.remove("etc/none"));
    EXPECT_FALSE(beneath.remove_tree("etc/none"));
    EXPECT_EQ(complaint([&] { beneath.read("etc/none"); }),
              "cannot read " + root + "/etc/none: No such file or directory");
    EXPECT_EQ(complaint([&] { beneath.rewrite("etc/none", ""); }),
              "cannot write " + root + "/etc/none: No such file or directory");
    EXPECT_THAT(complaint([&] { beneath.write("none/none", "", mine(0600)); }), HasSubstr("No such file"));
    EXPECT_EQ(complaint([&] { Beneath(root + "/none"); }),
              "cannot open the directory " + root + "/none: No such file or directory");
}

TEST_F(BeneathTest, LinkOnTheWayLeadsNowhere) {
    const Beneath beneath(root);
    for (const std::string &target : {own, std::string("../own")}) {
        link("etc", target);
        for (const auto &work : std::initializer_list<std::function<void()>>{
                 [&] { beneath.read("etc/file"); }, [&] { beneath.write("etc/file", "x", mine(0644)); },
                 [&] { beneath.rewrite("etc/file", "x"); }, [&] { beneath.status("etc/file"); },
                 [&] { beneath.names("etc"); }, [&] { beneath.directory("etc"); },
                 [&] { beneath.make_directory("etc/new", mine(0755)); },
                 [&] { beneath.make_directories("etc/new/new", mine(0755)); },
                 [&] { beneath.make_link("x", "etc/new"); },
                 [&] { beneath.make_node("etc/new", mine(S_IFIFO | 0644U)); },
                 [&] { beneath.set_attributes("etc/file", mine(04755)); },
                 [&] { beneath.rename("etc/file", "file"); }, [&] { beneath.rename("etc", "etc/etc"); },
                 [&] { beneath.remove("etc/file"); }, [&] { beneath.remove_tree("etc/file"); }})
            EXPECT_NE(complaint(work), "");
    }
    EXPECT_EQ(complaint([&] { beneath.read("etc/file"); }),
              "cannot read " + root + "/etc/file: a symbolic link stands there or leads there");
}

TEST_F(BeneathTest, LinkAtTheEndIsNeverFollowed) {
    for (const Links links : {Links::refused, Links::inside}) {
        const Beneath beneath(root, links);
        link("etc/file", own + "/file");
        EXPECT_NE(complaint([&] { beneath.read("etc/file"); }), "");
        EXPECT_NE(complaint([&] { beneath.rewrite("etc/file", "x"); }), "");
        EXPECT_NE(complaint([&] { beneath.set_attributes("etc/file", mine(04755)); }), "");
        EXPECT_EQ(beneath.link_target("etc/file"), own + "/file");
        EXPECT_TRUE(S_ISLNK(beneath.status("etc/file")->st_mode));
        beneath.write("etc/file", "mine\n", mine(0644));
        EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(root + "/etc/file")))
            << "it takes the link's place";
        link("etc/file", own + "/file");
        EXPECT_TRUE(beneath.remove_tree("etc/file"));
        EXPECT_FALSE(fs::exists(fs::symlink_status(root + "/etc/file")));
    }
}

TEST_F(BeneathTest, NameAboveTheDirectoryIsRefused) {
    const Beneath beneath(root);
    for (const char *path : {"../own/file", "etc/../../own/file", "/../own/file"}) {
        EXPECT_NE(complaint([&] { beneath.read(path); }), "") << path;
        EXPECT_NE(complaint([&] { beneath.write(path, "x", mine(0644)); }), "") << path;
        EXPECT_NE(complaint([&] { beneath.remove(path); }), "") << path;
    }
    for (const char *path : {"", "/", ".", "..", "etc/.."})
        EXPECT_NE(complaint([&] { beneath.remove_tree(path); }), "") << path;
    EXPECT_NE(complaint([&] { beneath.read(std::string_view("etc\0x", 5)); }), "");
}

TEST_F(BeneathTest, LinksInsideLeadWhereTheOwnerSeesThem) {
    const Beneath beneath(root, Links::inside);
    fs::create_directories(root + "/usr/bin");
    link("bin", "/usr/bin");
    beneath.write("bin/tool", "text", mine(0755));
    EXPECT_EQ(content(root + "/usr/bin/tool"), "text");
    EXPECT_EQ(beneath.read("/bin/tool"), "text");
    EXPECT_FALSE(beneath.make_directories("bin/", mine(0755)));
    EXPECT_TRUE(beneath.make_directories("bin/deep/er", mine(0755)));
    EXPECT_TRUE(fs::is_directory(root + "/usr/bin/deep/er"));
    link("bin", "../../../../" + own);
    fs::create_directories(root + own);
    beneath.write("bin/file", "inside\n", mine(0644));
    EXPECT_EQ(content(root + own + "/file"), "inside\n");
}

TEST_F(BeneathTest, OnlyRegularFilesAreRead) {
    const Beneath beneath(root);
    ASSERT_EQ(mkfifo((root + "/etc/fifo").c_str(), 0644), 0);
    EXPECT_EQ(complaint([&] { beneath.read("etc/fifo"); }),
              "cannot read " + root + "/etc/fifo: it is a fifo, and only a regular file is read there");
    EXPECT_THAT(complaint([&] { beneath.read("etc"); }), HasSubstr("it is a directory"));
    EXPECT_THAT(complaint([&] { beneath.rewrite("etc/fifo", "x"); }), HasSubstr("it is a fifo"));
    beneath.write("etc/fifo", "table\n", mine(0644));
    EXPECT_EQ(beneath.read("etc/fifo"), "table\n") << "it takes the fifo's place";
}

TEST_F(BeneathTest, EnormousFileIsNotRead) {
    const Beneath beneath(root);
    scratch.write("root/etc/table", "");
    ASSERT_EQ(truncate((root + "/etc/table").c_str(), off_t{1} << 40), 0);
    EXPECT_THAT(complaint([&] { beneath.read("etc/table"); }), HasSubstr("it is larger than 16777216 bytes"));
    scratch.write("root/etc/table", "12345");
    EXPECT_EQ(beneath.read("etc/table", 5), "12345");
    EXPECT_THAT(complaint([&] { beneath.read("etc/table", 4); }), HasSubstr("larger than 4 bytes"));
}

TEST_F(BeneathTest, DirectoriesAreMadeWithTheirModes) {
    const Beneath beneath(root);
    const mode_t mask = umask(077);
    EXPECT_TRUE(beneath.make_directories("/var/sadm//pkg/", mine(02755)));
    umask(mask);
    for (const char *path : {"var", "var/sadm", "var/sadm/pkg"})
        EXPECT_EQ(beneath.status(path)->st_mode, S_IFDIR | 02755U) << path;
    EXPECT_FALSE(beneath.make_directory("var/sadm", mine(0700)));
    EXPECT_EQ(beneath.status("var/sadm")->st_mode, S_IFDIR | 02755U) << "it was there";
    scratch.write("root/etc/table", "");
    EXPECT_NE(complaint([&] { beneath.make_directory("etc/table", mine(0755)); }), "");
}

TEST_F(BeneathTest, LinksAndNodesTakeTheirPlaces) {
    const Beneath beneath(root);
    scratch.write("root/etc/name", "old");
    beneath.make_link("there", "etc/name");
    beneath.make_link("elsewhere", "etc/name");
    EXPECT_EQ(beneath.link_target("etc/name"), "elsewhere");
    beneath.make_node("etc/name", mine(S_IFIFO | 0622U));
    EXPECT_EQ(beneath.status("etc/name")->st_mode, S_IFIFO | 0622U);
    if (geteuid() == 0) {
        beneath.make_node("etc/null", {.mode = S_IFCHR | 0666U}, makedev(1, 3));
        EXPECT_EQ(beneath.status("etc/null")->st_rdev, makedev(1, 3));
        EXPECT_THAT(complaint([&] { beneath.read("etc/null"); }), HasSubstr("it is a device"));
    }
    fs::create_directories(root + "/etc/full/of");
    EXPECT_NE(complaint([&] { beneath.make_link("x", "etc/full"); }), "");
    beneath.rename("etc/name", "moved");
    EXPECT_FALSE(beneath.status("etc/name"));
    EXPECT_TRUE(beneath.status("moved"));
}

TEST_F(BeneathTest, NewFileThatNeverTakesItsPlaceIsGone) {
    const Beneath beneath(root);
    {
        NewFile file(beneath, "etc/table");
        file.write("half");
    }
    EXPECT_THAT(beneath.names("etc"), IsEmpty());
}

TEST_F(BeneathTest, WhatABrokenRunLeftGoesWithTheNext) {
    const Beneath beneath(root);
    scratch.write("root/etc/.hostadm-new.table", "half");
    beneath.write("etc/table", "whole", mine(0644));
    fs::create_symlink(own + "/file", root + "/etc/.hostadm-new.link");
    beneath.make_link("there", "etc/link");
    EXPECT_THAT(beneath.names("etc"), ElementsAre("link", "table"));
    const std::string longest(255, 'n');
    beneath.write("etc/" + longest, "whole", mine(0644));
    EXPECT_EQ(beneath.read("etc/" + longest), "whole");
}

TEST_F(BeneathTest, TwoWritersDoNotMeet) {
    const Beneath beneath(root);
    NewFile first(beneath, "etc/table");
    first.write("first");
    NewFile second(beneath, "etc/table");
    second.write("second");
    second.take_place(mine(0644));
    EXPECT_EQ(beneath.read("etc/table"), "second");
    first.take_place(mine(0644));
    EXPECT_EQ(beneath.read("etc/table"), "first");
    EXPECT_THAT(beneath.names("etc"), ElementsAre("table"));
}

TEST_F(BeneathTest, TreeIsRemovedWhateverIsInIt) {
    const Beneath beneath(root);
    fs::create_directories(root + "/tree/a/b");
    scratch.write("root/tree/a/file", "x");
    fs::create_directory_symlink(own, root + "/tree/a/b/out");
    fs::create_symlink(own + "/file", root + "/tree/out");
    mkfifo((root + "/tree/fifo").c_str(), 0);
    EXPECT_TRUE(beneath.remove_tree("tree"));
    EXPECT_THAT(beneath.names(), ElementsAre("etc"));
    beneath.remove_contents();
    EXPECT_THAT(beneath.names(), IsEmpty());
    link("tree", own);
    beneath.remove_contents();
}

TEST_F(BeneathTest, TreeIsRemovedHoweverDeepItIs) {
    const Beneath beneath(root);
    constexpr int depth = 300; // deeper than descriptors are held open
    {
        Descriptor directory(open(root.c_str(), O_RDONLY | O_DIRECTORY));
        for (int i = 0; i < depth; ++i) {
            ASSERT_EQ(mkdirat(directory.get(), "d", 0755), 0);
            directory = Descriptor(openat(directory.get(), "d", O_RDONLY | O_DIRECTORY));
        }
    }
    EXPECT_TRUE(beneath.remove_tree("d"));
    EXPECT_THAT(beneath.names(), ElementsAre("etc"));
}
