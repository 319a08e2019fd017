// SPDX-License-Identifier: MIT
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../support/scratch.hpp"
#include "server/shares.hpp"

namespace {

using namespace hostadm::server;

} // namespace

TEST(ShareTables, GiveThePathAndTheOptionsOfEachLine) {
    const tests::Scratch scratch;
    const auto shares =
        table_shares(scratch.write("dfstab", "# shares\n"
                                             "share -F nfs -o rw=c1,root=c1 /export/root/c1\n"
                                             "#share -F nfs -o ro /export/none\n"
                                             "share -F nfs -o rw -d 'two words' /export/home\n"
                                             "share /plain\n\n"));
    ASSERT_EQ(shares.size(), 4u);
    EXPECT_EQ(shares[0].path, "/export/root/c1");
    EXPECT_EQ(shares[0].options, "rw=c1,root=c1");
    EXPECT_FALSE(shares[0].failed);
    EXPECT_TRUE(shares[1].failed) << "it could not be made";
    EXPECT_EQ(shares[2].path, "/export/home");
    EXPECT_EQ(shares[3].options, "");
    EXPECT_TRUE(table_shares(scratch.path("none")).empty());
}

TEST(ShareOptions, TellWhetherOthersAreNamed) {
    EXPECT_FALSE(names_others("rw=c1,root=c1", "c1"));
    EXPECT_FALSE(names_others("rw=C1,root=c1,anon=0", "c1")) << "case does not count";
    EXPECT_TRUE(names_others("rw=c1:c2,root=c1", "c1"));
    EXPECT_TRUE(names_others("ro=c10", "c1"));
    EXPECT_FALSE(names_others("rw", "c1")) << "nobody is named";
    EXPECT_FALSE(names_others("", "c1"));
}

TEST(SharedPaths, AreKnownWithoutLinksAndDots) {
    const tests::Scratch scratch;
    std::filesystem::create_directories(scratch.path("real/c1"));
    std::filesystem::create_directory_symlink(scratch.path("real"), scratch.path("link"));
    EXPECT_EQ(resolved_share_path(scratch.path("link/./c1/")),
              std::filesystem::canonical(scratch.path("real/c1")).string());
    EXPECT_EQ(resolved_share_path("/no/such/./path"), "/no/such/./path") << "as it was given";
}
