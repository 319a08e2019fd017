// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../support/inside.hpp"
#include "../support/text_files.hpp"
#include "server/filling.hpp"
#include "server/undo_context.hpp"

namespace {

using namespace hostadm::server;
using testing::IsEmpty;
namespace fs = std::filesystem;

} // namespace

TEST(Filling, ARootStandsInTheTableUntilItsFillingEnds) {
    tests::inside([] {
        EXPECT_FALSE(is_being_filled("/export/root/c1")) << "nobody has begun one";
        begin_filling("/export/root/c1", "c1");
        begin_filling("/export/root/c2", "c2");
        begin_filling("/export/root/c1", "c1");
        EXPECT_TRUE(is_being_filled("/export/root/c1"));
        EXPECT_FALSE(is_being_filled("/export/root/c"));
        ASSERT_EQ(roots_being_filled().size(), 2u);
        end_filling("/export/root/c1");
        EXPECT_FALSE(is_being_filled("/export/root/c1"));
        ASSERT_EQ(roots_being_filled().size(), 1u);
        EXPECT_EQ(roots_being_filled().front().client, "c2");
        end_filling("/export/root/c2");
        end_filling("/export/root/c2");
        EXPECT_THAT(roots_being_filled(), IsEmpty());
    });
}

TEST(Filling, AWholeRootIsKnownToItsClientUntilAllOfThatIsThere) {
    tests::inside([] {
        fs::create_directories("/export/root/c1/etc");
        begin_filling("/export/root/c1", "c1");
        EXPECT_FALSE(is_filled_for("/export/root/c1", "c1"));
        root_is_filled("/export/root/c1", "c1");
        begin_filling("/export/root/c2", "c2");
        EXPECT_FALSE(is_being_filled("/export/root/c1"));
        EXPECT_TRUE(is_filled_for("/export/root/c1", "C1"));
        EXPECT_FALSE(is_filled_for("/export/root/c1", "c2"));
        EXPECT_FALSE(is_filled_for("/export/root/c2", "c2"));
        EXPECT_EQ(roots_being_filled().size(), 2u);
        end_filling("/export/root/c1");
        EXPECT_FALSE(is_filled_for("/export/root/c1", "c1"));
        end_filling("/export/root/c2");
        EXPECT_THAT(roots_being_filled(), IsEmpty());
    });
}

TEST(Filling, TakingBackRemovesTheRootThatWasMadeAndNoOther) {
    tests::inside([] {
        fs::create_directories("/export/root/c1/etc");
        MadeRoot made{"/export/root/c1", identity_of("/export/root/c1").value()};
        fs::rename("/export/root/c1", "/export/root/moved");
        fs::create_directories("/export/root/c1/somebody");
        EXPECT_EQ(take_back(made, {.method = "test"}), "");
        EXPECT_TRUE(fs::exists("/export/root/c1/somebody")) << "it has the path, but it is another";
        made.path = "/export/root/moved";
        EXPECT_EQ(take_back(made, {.method = "test"}), "");
        EXPECT_FALSE(fs::exists("/export/root/moved"));
    });
}

TEST(Filling, TakingBackEmptiesADirectoryThatWasThere) {
    tests::inside([] {
        fs::create_directories("/export/root/c1");
        ASSERT_EQ(chmod("/export/root/c1", 0700), 0);
        const FilledRoot filled{"/export/root/c1", identity_of("/export/root/c1").value(), 0750, 1, 2};
        tests::write("/export/root/c1/etc/hosts", "x");
        EXPECT_EQ(take_back(filled, {.method = "test"}), "");
        EXPECT_TRUE(fs::is_empty("/export/root/c1"));
        struct stat now {};
        ASSERT_EQ(stat("/export/root/c1", &now), 0);
        EXPECT_EQ(now.st_mode & 07777, 0750u);
        EXPECT_EQ(now.st_uid, 1u);
        EXPECT_EQ(now.st_gid, 2u);
    });
}
