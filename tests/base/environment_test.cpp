// SPDX-License-Identifier: MIT
// The environment that programs are given.
#include <algorithm>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/environment.hpp"

namespace {

using namespace hostadm::base;
using testing::Contains;
using testing::Not;
using testing::StartsWith;

TEST(CleanEnvironment, HasTheSystemsPathAndOnlyHarmlessWords) {
    setenv("LC_ALL", "C.UTF-8", 1);
    setenv("LANG", "../../tmp/catalogue", 1);
    setenv("LC_MESSAGES", "/tmp/catalogue", 1);
    setenv("LANGUAGE", "de:../../tmp/catalogue", 1);
    setenv("IFS", "x", 1);
    setenv("LD_PRELOAD_OF_TEST", "x", 1);
    const auto variables = clean_environment();
    EXPECT_THAT(variables, Contains("PATH=/usr/sbin:/usr/bin:/sbin:/bin"));
    EXPECT_THAT(variables, Contains("LC_ALL=C.UTF-8"));
    for (const char *name : {"LANG=", "LC_MESSAGES=", "LANGUAGE=", "IFS=", "LD_"})
        EXPECT_THAT(variables, Not(Contains(StartsWith(name))));
    EXPECT_EQ(std::count_if(variables.begin(), variables.end(),
                            [](const std::string &variable) { return variable.starts_with("PATH="); }),
              1);
}

TEST(CleanEnvironment, HandsOnTheLanguagesOfTheUser) {
    setenv("LANGUAGE", "de_AT:de", 1);
    EXPECT_THAT(clean_environment(), Contains("LANGUAGE=de_AT:de"));
    unsetenv("LANGUAGE");
}

TEST(CleanEnvironment, HandsOnNoTimeZoneThatIsAFile) {
    setenv("TZ", "Europe/Berlin", 1);
    EXPECT_THAT(clean_environment(), Contains("TZ=Europe/Berlin"));
    for (const char *file : {"/tmp/zone", ":/tmp/zone", "../../../tmp/zone", "Europe/../../tmp/zone"}) {
        setenv("TZ", file, 1);
        EXPECT_THAT(clean_environment(), Not(Contains(StartsWith("TZ=")))) << file;
    }
}

TEST(ForeignTexts, AreOutOfReach) {
    setenv("LANGUAGE", "de:en_US@latin", 1);
    setenv("LC_ALL", "C.UTF-8", 1);
    setenv("LOCPATH", "/tmp/locales", 1);
    drop_ways_to_foreign_texts();
    EXPECT_STREQ(std::getenv("LANGUAGE"), "de:en_US@latin");
    EXPECT_STREQ(std::getenv("LC_ALL"), "C.UTF-8");
    EXPECT_EQ(std::getenv("LOCPATH"), nullptr);
    setenv("LANGUAGE", "de:../../../tmp/catalogue", 1);
    setenv("LC_ALL", "/tmp/locale", 1);
    drop_ways_to_foreign_texts();
    EXPECT_EQ(std::getenv("LANGUAGE"), nullptr);
    EXPECT_EQ(std::getenv("LC_ALL"), nullptr);
}

} // namespace
