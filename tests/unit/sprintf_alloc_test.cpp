// SPDX-License-Identifier: MIT
#include <cstdarg>
#include <cstdlib>
#include <cwchar>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/resource.h>

#include "hostadm.h"
#include "support/memory_limit.hpp"

namespace {

struct Free {
    void operator()(char *text) const { std::free(text); }
};
using Text = std::unique_ptr<char, Free>;

int through_va_list(char **result, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int length = vsprintf_alloc(result, format, args);
    va_end(args);
    return length;
}

std::size_t open_descriptors() {
    std::size_t count = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd"))
        count += entry.exists() ? 1 : 0;
    return count;
}

TEST(SprintfAlloc, FormatsAllValues) {
    char *result = nullptr;
    EXPECT_EQ(sprintf_alloc(&result, "%s-%d-%5.2f|%c", "client1", 42, 1.5, 'x'), 18);
    const Text owned(result);
    EXPECT_STREQ(result, "client1-42- 1.50|x");
}

TEST(SprintfAlloc, UsesTheArgumentListTwice) {
    char *result = nullptr;
    EXPECT_EQ(through_va_list(&result, "%s %s %d %d %s", "a", "b", 3, 4, "e"), 9);
    const Text owned(result);
    EXPECT_STREQ(result, "a b 3 4 e");
}

TEST(SprintfAlloc, EmptyTextIsAllocatedAndHasLengthZero) {
    char *result = nullptr;
    EXPECT_EQ(sprintf_alloc(&result, "%s", ""), 0);
    const Text owned(result);
    ASSERT_NE(result, nullptr);
    EXPECT_STREQ(result, "");
}

TEST(SprintfAlloc, ResultOfAnyLength) {
    const std::string megabytes(5'000'000, 'm');
    char *result = nullptr;
    EXPECT_EQ(sprintf_alloc(&result, "<%s>", megabytes.c_str()), 5'000'002);
    const Text owned(result);
    EXPECT_EQ(result, "<" + megabytes + ">");
}

TEST(SprintfAlloc, KeepsOneDescriptorHoweverOftenItIsCalled) {
    char *first = nullptr;
    sprintf_alloc(&first, "open the sink");
    std::free(first);
    const std::size_t before = open_descriptors();
    for (int i = 0; i < 1000; ++i) {
        char *result = nullptr;
        ASSERT_GT(sprintf_alloc(&result, "number %d", i), 0);
        std::free(result);
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST(SprintfAlloc, ValueThatCannotBeFormattedGivesNull) {
    const wchar_t unrepresentable[] = {0x20ac, 0}; // no such character in the C locale
    char untouched = 'u';
    char *result = &untouched;
    EXPECT_EQ(sprintf_alloc(&result, "%ls", unrepresentable), 0);
    EXPECT_EQ(result, nullptr);

    EXPECT_EQ(sprintf_alloc(&result, "%s", "still working"), 13);
    const Text owned(result);
    EXPECT_STREQ(result, "still working");
}

TEST(SprintfAlloc, ResultLongerThanAnIntGivesNull) {
    char untouched = 'u';
    char *result = &untouched;
    const std::string format = "%*s%s"; // not seen by the compiler, which would refuse it
    EXPECT_EQ(sprintf_alloc(&result, format.c_str(), 2'147'483'647, "", "one more"), 0);
    EXPECT_EQ(result, nullptr);
}

TEST(SprintfAlloc, MemoryOutGivesNull) {
    SKIP_WITHOUT_MEMORY_LIMIT();
    EXPECT_EXIT(
        {
            const std::string value(1, 'x');
            tests::limit_memory_to(100'000'000);
            char untouched = 'u';
            char *result = &untouched;
            const int length = sprintf_alloc(&result, "%*s", 300'000'000, value.c_str());
            std::_Exit(length == 0 && result == nullptr ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

[[noreturn]] void format_without_descriptors() {
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_NOFILE, &none);
    char *result = nullptr;
    const int length = sprintf_alloc(&result, "%s", "counted");
    std::_Exit(length == 7 && std::string("counted") == result ? 0 : 1);
}

// Those that a command started now would get.
std::size_t inheritable_descriptors() {
    std::size_t count = 0;
    for (int number = 0; number < 1024; ++number) {
        const int flags = fcntl(number, F_GETFD);
        count += flags != -1 && (flags & FD_CLOEXEC) == 0 ? 1 : 0;
    }
    return count;
}

[[noreturn]] void format_and_look_at_descriptors() {
    const std::size_t before = inheritable_descriptors();
    char *result = nullptr;
    sprintf_alloc(&result, "open the sink");
    std::_Exit(result != nullptr && inheritable_descriptors() == before ? 0 : 1);
}

TEST(SprintfAllocDeathTest, CommandsDoNotInheritTheDescriptor) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // a fresh process: the sink is not open yet
    EXPECT_EXIT(format_and_look_at_descriptors(), testing::ExitedWithCode(0), "");
}

TEST(SprintfAllocDeathTest, WorksWithoutNullDevice) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // a fresh process: the sink is not open yet
    EXPECT_EXIT(format_without_descriptors(), testing::ExitedWithCode(0), "");
}

} // namespace
