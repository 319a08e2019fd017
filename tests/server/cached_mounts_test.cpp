// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "server/cached_mounts.hpp"

namespace {

using namespace hostadm::server;
using testing::IsEmpty;

// MOUNTPT=cached or MOUNTPT=plain.
std::vector<std::string> told(std::string_view table) {
    std::vector<std::string> lines;
    for (const CachedMount &mount : cached_mounts(table))
        lines.push_back(mount.mountpt + (mount.cached ? "=cached" : "=plain"));
    return lines;
}

} // namespace

TEST(CachedMounts, AreThoseOfTheSystemAndAnyWithTheOption) {
    EXPECT_THAT(told("s:/root - / nfs - no rw\n"
                     "s:/usr - /usr nfs - no ro,disconnectable\n"
                     "s:/home - /home nfs - no rw\n"
                     "s:/data - /data nfs - no rw,disconnectable\n"
                     "s:/ow - /usr/openwin nfs - no ro\n"),
                testing::ElementsAre("/=plain", "/usr=cached", "/data=cached", "/usr/openwin=plain"));
}

TEST(CachedMounts, CommentsAndShortLinesAreNone) {
    EXPECT_THAT(told("# s:/root - / nfs - no rw\n\ns:/root -\n"), IsEmpty());
    EXPECT_THAT(told(""), IsEmpty());
}

TEST(CachedMounts, OptionsAreTheLastColumn) {
    const auto mounts = cached_mounts("s:/root - / nfs - no rw,disconnectable\n");
    ASSERT_EQ(mounts.size(), 1u);
    EXPECT_EQ(mounts.front().options, "rw,disconnectable");
}
