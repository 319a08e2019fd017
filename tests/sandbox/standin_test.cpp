// SPDX-License-Identifier: MIT
// Stand-ins write down what happens to them. Runs in a throwaway root made by the sandbox itself.
#include <cstdlib>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/inside.hpp"
#include "support/standin.hpp"

using testing::ElementsAre;
using testing::Not;
using tests::inside;

TEST(Standin, RefusesOutsideAThrowawayRoot) {
    EXPECT_THROW(standin::reset(), std::runtime_error);
    EXPECT_THROW(standin::place("/usr/sbin/share"), std::runtime_error);
}

TEST(Standin, WritesDownArgumentsEnvironmentDirectoryAndDescriptors) {
    inside([] {
        standin::reset();
        standin::place("/no/such/directory/yet/tool");
        setenv("STANDIN_TEST", "a=b c", 1);
        ASSERT_EQ(chdir("/usr"), 0);
        const int kept = open("/etc/passwd", O_RDONLY);
        const int closed = open("/etc/group", O_RDONLY | O_CLOEXEC);
        EXPECT_EQ(std::system("/no/such/directory/yet/tool 'two words' '' x"), 0);
        ASSERT_EQ(standin::calls().size(), 1u);
        const standin::Call call = standin::calls()[0];
        EXPECT_EQ(call.path, "/no/such/directory/yet/tool");
        EXPECT_THAT(call.arguments, ElementsAre("/no/such/directory/yet/tool", "two words", "", "x"));
        EXPECT_EQ(call.environment.at("STANDIN_TEST"), "a=b c");
        EXPECT_EQ(call.directory, "/usr");
        EXPECT_EQ(call.descriptors.at(kept), "/etc/passwd");
        EXPECT_THAT(call.descriptors, Not(testing::Contains(testing::Key(closed))));
    });
}

TEST(Standin, AnswersAsTold) {
    inside([] {
        standin::reset();
        standin::place("/sbin/tool", {.output = "out\n", .error = "err\n", .status = 3});
        standin::answer_call("/sbin/tool", 2, {.status = 4});
        EXPECT_EQ(std::system("test \"$(/sbin/tool 2>&1)\" = \"$(printf 'out\\nerr')\""), 0);
        EXPECT_EQ(WEXITSTATUS(std::system("/sbin/tool")), 4);
        EXPECT_EQ(WEXITSTATUS(std::system("/sbin/tool >/dev/null 2>&1")), 3);
        standin::answer("/sbin/tool", {.script = "test \"$1\" = yes"});
        EXPECT_EQ(WEXITSTATUS(std::system("/sbin/tool yes")), 0);
        EXPECT_EQ(WEXITSTATUS(std::system("/sbin/tool no")), 1);
        EXPECT_EQ(standin::calls("/sbin/tool").size(), 5u);
    });
}

TEST(Standin, TakesThePlaceOfASystemCommand) {
    inside([] {
        standin::reset();
        standin::place("/usr/bin/mount", {.output = "nothing mounted\n"});
        EXPECT_EQ(std::system("test \"$(mount -a)\" = 'nothing mounted'"), 0);
        EXPECT_THAT(standin::lines(), ElementsAre("/usr/bin/mount -a"));
    });
}

TEST(Standin, StaysAsADaemonWithItsName) {
    inside([] {
        standin::reset();
        standin::place("/usr/lib/nfs/nfsd", {.stay = true});
        EXPECT_EQ(std::system("/usr/lib/nfs/nfsd -a 16 & while [ ! -s /standin/log ]; do sleep 0.01; done; "
                              "test \"$(cat /proc/$!/comm)\" = nfsd"),
                  0);
    });
}
