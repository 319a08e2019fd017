// SPDX-License-Identifier: MIT
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>

#include "hostadm.h"
#include "support/fake_commands.hpp"
#include "support/fake_framework.hpp"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

bool tool_installed = false;

class Patches : public testing::Test {
protected:
    void SetUp() override {
        fakes::reset_all();
        tool_installed = false;
    }
};

} // namespace

// The patch tool is there when a test says so.
extern "C" int stat(const char *path, struct stat *status) {
    static auto *real = reinterpret_cast<int (*)(const char *, struct stat *)>(dlsym(RTLD_NEXT, "stat"));
    if (std::string_view(path) == "/opt/KTVXmgr/2.2/bin/drelpatch")
        return tool_installed ? real("/", status) : (errno = ENOENT, -1);
    return real(path, status);
}

TEST_F(Patches, FileInPatchesRunsTheScript) {
    EXPECT_EQ(file_in_patches("i386", "kernel/genunix"), 0);
    EXPECT_THAT(fakes::commands().lines,
                ElementsAre("ret=0\n"
                            "for i in `/usr/bin/grep kernel/genunix /opt/KTVXmgrd/2.2/Patches/*/*/pkgmap | "
                            "\t\t\tawk -F/ '{print $6}' | uniq`\n"
                            "do\n"
                            "\t grep \"^ARCH=i386\" /opt/KTVXmgrd/2.2/Patches/$i/*/pkginfo > /dev/null 2>&1\n"
                            "\t if [ $? -eq 0 ]; then\n"
                            "        ret=1\n"
                            "    fi\n"
                            "done\n"
                            "exit $ret"));
}

TEST_F(Patches, FileInPatchesGivesTheRawStatus) {
    fakes::commands().answers = {{.contains = "Patches", .status = 256, .once = true},
                                 {.contains = "Patches", .status = -1, .once = true}};
    EXPECT_EQ(file_in_patches("i386", "f"), 256);
    EXPECT_EQ(file_in_patches("i386", "f"), -1);
    EXPECT_THAT(fakes::framework().errors, IsEmpty());
}

TEST_F(Patches, FileInPatchesTakesTextOfAnyLength) {
    const std::string file(5000, 'f');
    file_in_patches("i386", file.c_str());
    EXPECT_THAT(fakes::commands().lines, ElementsAre(testing::HasSubstr("grep " + file + " /opt")));
}

TEST_F(Patches, MissingClientRootRunsNothing) {
    tool_installed = true;
    EXPECT_EQ(apply_patches("/no/such/client"), 0);
    EXPECT_EQ(apply_patches(""), 0);
    EXPECT_EQ(apply_patches(nullptr), 0);
    EXPECT_THAT(fakes::commands().lines, IsEmpty());
}

TEST_F(Patches, MissingPatchToolRunsNothing) {
    EXPECT_EQ(apply_patches("/tmp"), 0);
    EXPECT_THAT(fakes::commands().lines, IsEmpty());
}

TEST_F(Patches, PatchToolRunsOnTheClientRoot) {
    tool_installed = true;
    EXPECT_EQ(apply_patches("/tmp"), 0);
    EXPECT_THAT(fakes::commands().lines,
                ElementsAre("(set -f ; /opt/KTVXmgr/2.2/bin/drelpatch -C /tmp) 2>&1"));
    EXPECT_THAT(fakes::framework().errors, IsEmpty());
}

TEST_F(Patches, FailedPatchRunIsRecordedWithoutMethodName) {
    tool_installed = true;
    fakes::commands().answers = {{.contains = "drelpatch", .status = 256, .output = "no patches\n"}};
    EXPECT_EQ(apply_patches("/tmp"), 1);
    ASSERT_EQ(fakes::framework().errors.size(), 1u);
    EXPECT_EQ(fakes::framework().errors[0].code, 92);
    EXPECT_EQ(fakes::framework().errors[0].text, "92||/opt/KTVXmgr/2.2/bin/drelpatch -C /tmp|\nno patches\n");
}
