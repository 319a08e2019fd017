// SPDX-License-Identifier: MIT
#include <cerrno>
#include <cstring>
#include <gmock/gmock.h>

#include "support.hpp"

namespace {

using tests::got;
using tests::MethodRun;
using tests::put;

class Handle : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(adm_args_newh(&handle), 0); }
    void TearDown() override { EXPECT_EQ(adm_args_freeh(handle), 0); }
    adm_args *handle = nullptr;
};

TEST_F(Handle, GivesBackWhatWasPut) {
    EXPECT_EQ(put(handle, "nameservice", "ufs"), 0);
    EXPECT_EQ(put(handle, "domain", ""), 0);
    EXPECT_EQ(got(handle, "nameservice"), "ufs");
    EXPECT_EQ(got(handle, "domain"), "");
    EXPECT_EQ(got(handle, "other"), "(none)");
}

TEST_F(Handle, PutAgainReplaces) {
    put(handle, "a", "old");
    put(handle, "a", "much longer than before, beyond what a short string holds");
    EXPECT_EQ(got(handle, "a"), "much longer than before, beyond what a short string holds");
}

TEST_F(Handle, TakesAsManyCharactersAsTheLengthSays) {
    EXPECT_EQ(adm_args_puta(handle, "a", ADM_STRING, 3, "abcdef"), 0);
    EXPECT_EQ(got(handle, "a"), "abc");
}

TEST_F(Handle, StopsAtANulBeforeTheLength) {
    EXPECT_EQ(adm_args_puta(handle, "a", ADM_STRING, 100, "abc"), 0);
    EXPECT_EQ(got(handle, "a"), "abc");
}

TEST_F(Handle, TakesANullValueAsEmpty) {
    EXPECT_EQ(adm_args_puta(handle, "a", ADM_STRING, 5, nullptr), 0);
    EXPECT_EQ(got(handle, "a"), "");
}

TEST_F(Handle, LengthDoesNotCountTheTerminator) {
    put(handle, "a", "four");
    adm_arg *record = nullptr;
    ASSERT_EQ(adm_args_geta(handle, "a", ADM_STRING, &record), 0);
    EXPECT_EQ(record->length, 4u);
    EXPECT_EQ(record->value[4], '\0');
}

TEST_F(Handle, RefusesOtherTypes) {
    adm_arg *record = nullptr;
    put(handle, "a", "x");
    EXPECT_EQ(adm_args_puta(handle, "b", 8, 1, "x"), EINVAL);
    EXPECT_EQ(adm_args_geta(handle, "a", 8, &record), EINVAL);
    EXPECT_EQ(adm_args_set("a", 8, 1, "x"), EINVAL);
    EXPECT_EQ(adm_args_geti("a", 8, &record), EINVAL);
}

TEST_F(Handle, RefusesNamesThatAreNone) {
    EXPECT_EQ(put(handle, "", "x"), EINVAL);
    EXPECT_EQ(put(handle, "a b", "x"), EINVAL);
    EXPECT_EQ(put(handle, "-a", "x"), EINVAL);
    EXPECT_EQ(put(handle, "a=b", "x"), EINVAL);
    EXPECT_EQ(put(handle, std::string(65, 'a'), "x"), EINVAL);
    EXPECT_EQ(put(handle, std::string(64, 'a'), "x"), 0);
}

TEST_F(Handle, HasOneRowAtMostBeforeARun) {
    EXPECT_EQ(adm_args_htype(handle), 0u);
    EXPECT_EQ(adm_args_nextr(handle), ADM_NO_MORE_ROWS);
    put(handle, "a", "x");
    EXPECT_EQ(adm_args_nextr(handle), ADM_NO_MORE_ROWS);
    EXPECT_EQ(adm_args_reset(handle), 0);
    EXPECT_EQ(got(handle, "a"), "x");
}

TEST_F(Handle, RecordsStayWhileOthersArePut) {
    put(handle, "first", "stays here");
    adm_arg *record = nullptr;
    ASSERT_EQ(adm_args_geta(handle, "first", ADM_STRING, &record), 0);
    for (int number = 0; number < 1000; ++number)
        put(handle, "name" + std::to_string(number), "x");
    EXPECT_STREQ(record->value, "stays here");
    EXPECT_STREQ(record->name, "first");
}

TEST_F(Handle, FallbackIsWritableAndLivesWithTheHandle) {
    char *one = nullptr;
    char *other = nullptr;
    EXPECT_EQ(_get_returned_arg(handle, "a", "one", &one), ENOENT);
    EXPECT_EQ(_get_returned_arg(handle, "b", "other", &other), ENOENT);
    one[0] = 'O';
    EXPECT_STREQ(one, "One");
    EXPECT_STREQ(other, "other");
    EXPECT_EQ(_get_returned_arg(handle, "a", nullptr, &one), ENOENT);
    EXPECT_EQ(one, nullptr);
}

TEST(HandleOfNull, IsRefusedEverywhere) {
    adm_arg *record = nullptr;
    char *value = nullptr;
    EXPECT_EQ(adm_args_newh(nullptr), EINVAL);
    EXPECT_EQ(adm_args_puta(nullptr, "a", ADM_STRING, 1, "x"), EINVAL);
    EXPECT_EQ(adm_args_geta(nullptr, "a", ADM_STRING, &record), EINVAL);
    EXPECT_EQ(adm_args_reset(nullptr), EINVAL);
    EXPECT_EQ(adm_args_nextr(nullptr), EINVAL);
    EXPECT_EQ(adm_args_htype(nullptr), 0u);
    EXPECT_EQ(adm_args_freeh(nullptr), 0);
    EXPECT_EQ(_get_returned_arg(nullptr, "a", "fallback", &value), EINVAL);
    EXPECT_STREQ(value, "fallback");
    EXPECT_EQ(_get_returned_arg(nullptr, "a", "fallback", nullptr), EINVAL);
}

TEST_F(Handle, NullNamesAndPlacesAreRefused) {
    EXPECT_EQ(adm_args_puta(handle, nullptr, ADM_STRING, 1, "x"), EINVAL);
    EXPECT_EQ(adm_args_geta(handle, "a", ADM_STRING, nullptr), EINVAL);
    adm_arg *record = nullptr;
    EXPECT_EQ(adm_args_geta(handle, nullptr, ADM_STRING, &record), EINVAL);
    char *value = nullptr;
    EXPECT_EQ(_get_returned_arg(handle, nullptr, "f", &value), EINVAL);
    EXPECT_STREQ(value, "f");
}

TEST(ReturnedRows, AreWalkedOneByOne) {
    const MethodRun run("echo", {{"text", "ab"}, {"times", "3"}, {"rows", "yes"}});
    ASSERT_EQ(run.status, 0) << run.text();
    EXPECT_EQ(adm_args_htype(run.output) & ADM_HANDLE_ROWS, ADM_HANDLE_ROWS);
    for (const char *time : {"1", "2", "3"}) {
        EXPECT_EQ(run.field("time"), time);
        EXPECT_EQ(adm_args_nextr(run.output), std::string(time) == "3" ? ADM_NO_MORE_ROWS : 0);
    }
    EXPECT_EQ(adm_args_nextr(run.output), ADM_NO_MORE_ROWS);
    EXPECT_EQ(run.field("time"), "3");
    EXPECT_EQ(adm_args_reset(run.output), 0);
    EXPECT_EQ(run.field("time"), "1");
}

TEST(ReturnedRows, ShowOutputsInEveryRow) {
    const MethodRun run("echo", {{"text", "ab"}, {"times", "2"}, {"rows", "yes"}});
    EXPECT_EQ(run.field("said"), "abab");
    adm_args_nextr(run.output);
    EXPECT_EQ(run.field("said"), "abab");
}

TEST(ReturnedRows, OutputsAloneAreReadAsOneRow) {
    const MethodRun run("echo", {{"text", "ab"}});
    ASSERT_EQ(run.status, 0) << run.text();
    EXPECT_EQ(adm_args_htype(run.output) & ADM_HANDLE_ROWS, ADM_HANDLE_ROWS);
    EXPECT_EQ(adm_args_reset(run.output), 0);
    EXPECT_EQ(run.field("said"), "ab");
    EXPECT_EQ(adm_args_nextr(run.output), ADM_NO_MORE_ROWS);
}

TEST(ReturnedRows, NothingReturnedHasNoRowsBit) {
    const MethodRun run("rows");
    ASSERT_EQ(run.status, 0) << run.text();
    ASSERT_NE(run.output, nullptr);
    EXPECT_EQ(adm_args_htype(run.output) & ADM_HANDLE_ROWS, 0u);
    char *value = nullptr;
    EXPECT_NE(_get_returned_arg(run.output, "hostname", "", &value), 0);
    EXPECT_STREQ(value, "");
    EXPECT_EQ(adm_args_nextr(run.output), ADM_NO_MORE_ROWS);
}

TEST(ReturnedRows, ValuesMayBeCutInPlace) {
    const MethodRun run("rows", {{"rows", "2"}});
    char *items = nullptr;
    ASSERT_EQ(_get_returned_arg(run.output, "filesystems", "", &items), 0);
    *std::strchr(items, ':') = '\0';
    EXPECT_STREQ(items, "root=server");
    char *again = nullptr;
    _get_returned_arg(run.output, "filesystems", "", &again);
    EXPECT_EQ(again, items);
    adm_args_nextr(run.output);
    _get_returned_arg(run.output, "filesystems", "", &items);
    EXPECT_STREQ(items, "root=server:/export/root/client swap=server:/export/swap/client");
}

TEST(AtExit, ArgumentsAreStillReadableAndResultsTold) {
    const MethodRun run("leaving", {{"text", "as it was given"}});
    EXPECT_EQ(run.status, 0) << run.text();
    EXPECT_EQ(run.field("text"), "as it was given");
}

TEST(OutsideAMethod, ThereAreNoInputsAndOutputs) {
    adm_arg *record = nullptr;
    EXPECT_EQ(adm_init(), 0);
    EXPECT_EQ(adm_args_geti("a", ADM_STRING, &record), ENOENT);
    EXPECT_EQ(adm_args_geti(nullptr, ADM_STRING, &record), EINVAL);
    EXPECT_EQ(adm_args_geti("a", ADM_STRING, nullptr), EINVAL);
    EXPECT_EQ(adm_args_set("a", ADM_STRING, 1, "x"), EBADF);
    EXPECT_EQ(adm_args_set(nullptr, ADM_STRING, 1, "x"), EINVAL);
    EXPECT_EQ(adm_args_set("a b", ADM_STRING, 1, "x"), EINVAL);
}

} // namespace
