// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "../support/inside.hpp"
#include "../support/text_files.hpp"
#include "server/client_root.hpp"

namespace {

using namespace hostadm::server;
using tests::inside;
namespace fs = std::filesystem;

void make_client(const std::string &root) {
    fs::create_directories(root + "/etc");
    tests::write("/etc/bootparams", "c1 root=server:" + root + "\n");
}

} // namespace

TEST(ClientRoots, ArePathsOfBootparamsAndThoseInTheUsualPlace) {
    inside([] {
        make_client("/srv/c1");
        EXPECT_EQ(client_root_of("/srv/c1/etc/hosts"), "/srv/c1");
        EXPECT_EQ(client_root_of("/srv/./c1//etc/../etc/hosts"), "/srv/c1");
        EXPECT_EQ(client_root_of("/srv/c10/etc/hosts"), "");
        EXPECT_EQ(client_root_of("/export/root/any/etc"), "/export/root/any");
        EXPECT_EQ(client_root_of("/etc/hosts"), "");
    });
}

TEST(ClientRoots, AreFoundThroughTheServersOwnLinks) {
    inside([] {
        make_client("/srv/c1");
        fs::create_directory_symlink("/srv", "/disk");
        EXPECT_EQ(client_root_of("/disk/c1/etc"), "/disk/c1");
        EXPECT_EQ(path_on_server("/disk/c1/etc"), "/srv/c1/etc");
    });
}

TEST(ClientRoots, AreSeenWhenTheTableOrTheRootComesLater) {
    inside([] {
        make_client("/srv/c1");
        EXPECT_EQ(client_root_of("/srv/c1/etc"), "/srv/c1");
        EXPECT_EQ(client_root_of("/srv/c2/etc"), "");
        tests::write("/etc/bootparams", "c1 root=server:/srv/c1\nc2 root=server:/srv/c2\n");
        EXPECT_EQ(client_root_of("/srv/c2/etc"), "") << "there is none yet";
        fs::create_directories("/srv/c2/etc");
        EXPECT_EQ(client_root_of("/srv/c2/etc"), "/srv/c2");
        fs::remove("/etc/bootparams");
        EXPECT_EQ(client_root_of("/srv/c2/etc"), "");
    });
}

TEST(ClientRoots, LinksOfTheClientLeadNoPathOut) {
    inside([] {
        make_client("/srv/c1");
        fs::create_directory_symlink("/etc", "/srv/c1/trap");
        EXPECT_EQ(path_on_server("/srv/c1/trap/passwd"), "/srv/c1/trap/passwd");
        folder_on_server("/srv/c1/trap/new").write("new", "x");
        EXPECT_FALSE(fs::exists("/etc/new"));
        EXPECT_EQ(tests::content("/srv/c1/etc/new"), "x") << "it leads where the client sees it";
        fs::create_directories("/srv/new");
        fs::create_directory_symlink("/etc", "/srv/new/trap");
        EXPECT_EQ(path_on_server("/srv/new/trap/passwd", "/srv/new"), "/srv/new/trap/passwd");
        EXPECT_EQ(path_on_server("/srv/new/trap/passwd"), "/etc/passwd")
            << "nobody's root: a link of the server";
    });
}
