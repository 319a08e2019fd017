// SPDX-License-Identifier: MIT
#include <cerrno>
#include <cstdlib>
#include <string>

#include "support.hpp"

namespace {

using tests::behave;

struct OwnRecord {
    adm_error error{0, nullptr};
    ~OwnRecord() { std::free(error.text); }
};

TEST(ErrorRecord, HoldsCodeAndFormattedText) {
    OwnRecord own;
    EXPECT_EQ(adm_err_setf(&own.error, 23, "%s: %d of %s", "mount", 2, "three"), 0);
    EXPECT_EQ(own.error.code, 23);
    EXPECT_STREQ(own.error.text, "mount: 2 of three");
}

TEST(ErrorRecord, LaterTextReplacesTheEarlier) {
    OwnRecord own;
    adm_err_setf(&own.error, 1, "first");
    adm_err_setf(&own.error, 2, "second");
    EXPECT_EQ(own.error.code, 2);
    EXPECT_STREQ(own.error.text, "second");
}

TEST(ErrorRecord, TakesTextOfAnyLength) {
    OwnRecord own;
    const std::string text(1 << 20, 'x');
    EXPECT_EQ(adm_err_setf(&own.error, 92, "%s:: %s", "m", text.c_str()), 0);
    EXPECT_EQ(std::string(own.error.text), "m:: " + text);
}

TEST(ErrorRecord, LeavesErrnoAlone) {
    OwnRecord own;
    errno = EXDEV;
    adm_err_setf(&own.error, 1, "%s", "x");
    EXPECT_EQ(errno, EXDEV);
}

TEST(ErrorRecord, WithoutAFormatIsRefused) {
    OwnRecord own;
    const char *no_format = nullptr;
    EXPECT_EQ(adm_err_setf(&own.error, 1, no_format), EINVAL);
    EXPECT_EQ(own.error.text, nullptr);
}

TEST(ErrorRecord, OutsideAMethodIsSaidOnStandardError) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(adm_err_setf(nullptr, 10, "%s: no", "share"), 0);
    EXPECT_EQ(adm_err_setf(nullptr, 0, "all is well"), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "share: no (error 10)\n");
}

TEST(ErrorRecord, IsFreedWithItsText) {
    EXPECT_EQ(adm_err_freeh(nullptr), 0);
    auto *error = static_cast<adm_error *>(std::calloc(1, sizeof(adm_error)));
    adm_err_setf(error, 1, "text");
    EXPECT_EQ(adm_err_freeh(error), 0);
    EXPECT_EQ(adm_err_freeh(static_cast<adm_error *>(std::calloc(1, sizeof(adm_error)))), 0);
}

TEST(Cleanup, KnowsTwoStates) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(adm_err_cleanup(nullptr, ADM_CLEAN), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(adm_err_cleanup(nullptr, 0), EINVAL);
    EXPECT_EQ(adm_err_cleanup(nullptr, 3), EINVAL);
    adm_error record{7, nullptr};
    EXPECT_EQ(adm_err_cleanup(&record, ADM_DIRTY), 0);
    EXPECT_EQ(record.code, 7);
}

TEST(Cleanup, OutsideAMethodSaysWhatIsHalfDone) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(adm_err_cleanup(nullptr, ADM_DIRTY), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "a change is left half done\n");
}

TEST(ErrorOfARun, IsTheMethodsLastRecord) {
    const auto run = behave("fail_twice");
    EXPECT_EQ(run.status, 92);
    EXPECT_EQ(run.error->code, 92);
    EXPECT_EQ(run.text(), "behave: second");
}

TEST(ErrorOfARun, SurvivesTheMarkOfCleanliness) {
    const auto run = behave("dirty_then_clean");
    EXPECT_EQ(run.status, 100);
    EXPECT_EQ(run.text(), "behave: stopped, and undone");
}

TEST(ErrorOfARun, IsGoneBehindCodeZero) {
    const auto run = behave("clear");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.error->code, 0);
    EXPECT_EQ(run.text(), "");
    EXPECT_EQ(behave("clear_then_fail").text(), "behave: not put right");
}

} // namespace
