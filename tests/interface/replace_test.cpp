// SPDX-License-Identifier: MIT
// A program that defines a function itself takes its place in the library, be it imported, exported or of
// libc.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "hostadm.h"
#include "hostadm/framework.h"
#include "hostadm/platform.h"
#include "hostadm/tables.h"

using testing::Contains;
using testing::ElementsAre;
using testing::StartsWith;

namespace {

std::vector<std::string> called;

adm_arg argument{"", ADM_STRING, 0, nullptr};
char argument_value[] = "KEL4";

} // namespace

#pragma GCC visibility push(default)
extern "C" {

int adm_args_geti(const char *name, unsigned int, adm_arg **record) {
    called.push_back(std::string("adm_args_geti ") + name);
    argument.value = argument_value;
    *record = &argument;
    return 0;
}

int adm_err_setf(adm_error *, int code, const char *, ...) {
    called.push_back("adm_err_setf " + std::to_string(code));
    return 0;
}

int replace_db_entry(const char *table, col_list *, int) {
    called.push_back(std::string("replace_db_entry ") + table);
    return 0;
}

sysv_nsw_config *sysv_nsw_getconfig(const char *database) {
    called.push_back(std::string("sysv_nsw_getconfig ") + database);
    return nullptr;
}

char *sysv_strlwr(char *text) {
    called.push_back(std::string("sysv_strlwr ") + text);
    return text;
}

FILE *popen(const char *command, const char *) {
    called.push_back(std::string("popen ") + command);
    return nullptr;
}

int mkdir_path(char *path) {
    called.push_back(std::string("mkdir_path ") + path);
    return 0;
}

int mklink(const char *, const char *link_path) {
    called.push_back(std::string("mklink ") + link_path);
    return 0;
}
}
#pragma GCC visibility pop

class Replace : public testing::Test {
protected:
    void SetUp() override { called.clear(); }
};

TEST_F(Replace, AFunctionOfTheFramework) {
    char *texts[4] = {};
    EXPECT_EQ(get_arch_strings(&texts[0], &texts[1], &texts[2], &texts[3]), 0);
    EXPECT_THAT(called, Contains("adm_args_geti instruction_set"));
    for (char *text : texts)
        std::free(text);
}

TEST_F(Replace, AFunctionOfThePlatform) {
    char *texts[4] = {};
    EXPECT_EQ(get_arch_strings(&texts[0], &texts[1], &texts[2], &texts[3]), 0);
    EXPECT_THAT(called, Contains("sysv_strlwr KEL4"));
    EXPECT_STREQ(texts[0], "KEL4") << "the library lower-cased by itself";
    for (char *text : texts)
        std::free(text);
    EXPECT_EQ(do_bootparams(), nullptr);
    EXPECT_THAT(called, Contains("sysv_nsw_getconfig bootparams"));
}

TEST_F(Replace, AFunctionOfTheTables) {
    EXPECT_EQ(set_hosts("/no/such/table", "key", "value"), 0);
    EXPECT_THAT(called, Contains("replace_db_entry /no/such/table"));
}

TEST_F(Replace, AFunctionOfTheSystemLibrary) {
    do_systemcmd("true", "test");
    EXPECT_THAT(called, Contains(StartsWith("popen ")));
}

TEST_F(Replace, AnExportedFunctionOfTheLibraryItself) {
    make_tftpboot_dir("test");
    EXPECT_THAT(called, ElementsAre("mkdir_path /tftpboot", "mklink /tftpboot/tftpboot"));
}
