// SPDX-License-Identifier: MIT
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>

#include "base/descriptor.hpp"

using hostadm::base::Descriptor;

namespace {

Descriptor open_null() {
    return Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

bool is_open(int number) {
    return fcntl(number, F_GETFD) != -1;
}

} // namespace

TEST(Descriptor, IsClosedWhenItGoes) {
    int number = -1;
    {
        const Descriptor descriptor = open_null();
        number = descriptor.get();
        ASSERT_TRUE(is_open(number));
    }
    EXPECT_FALSE(is_open(number));
}

TEST(Descriptor, ClosesWhatItHeldWhenAnotherIsMovedIn) {
    Descriptor one = open_null();
    Descriptor other = open_null();
    const int first = one.get(), second = other.get();
    one = std::move(other);
    EXPECT_FALSE(is_open(first));
    EXPECT_TRUE(is_open(second));
    EXPECT_EQ(one.get(), second);
    EXPECT_FALSE(other.is_open());
}

TEST(Descriptor, SurvivesBeingMovedIntoItself) {
    Descriptor one = open_null();
    Descriptor &same = one;
    one = std::move(same);
    EXPECT_TRUE(is_open(one.get()));
}

TEST(Descriptor, ClosesWithoutHidingAnEarlierError) {
    Descriptor one = open_null();
    close(one.get());
    errno = ENOSPC;
    one.reset();
    EXPECT_EQ(errno, ENOSPC);
}

TEST(Descriptor, ReportsACloseThatFails) {
    Descriptor one = open_null();
    EXPECT_EQ(one.close(), 0);
    Descriptor gone = open_null();
    close(gone.get());
    EXPECT_EQ(gone.close(), EBADF);
    EXPECT_FALSE(gone.is_open());
}

TEST(Descriptor, IsReachedByItsPath) {
    const Descriptor one = open_null();
    EXPECT_TRUE(Descriptor(open(one.path().c_str(), O_RDONLY | O_CLOEXEC)).is_open());
}
