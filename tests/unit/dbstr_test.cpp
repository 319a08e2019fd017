// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>

#include "hostadm.h"
#include "support/fake_commands.hpp"
#include "support/fake_framework.hpp"
#include "support/fake_platform.hpp"

namespace {

std::size_t refused_size = 0; // memory of just this size is out

class Dbstr : public testing::Test {
protected:
    void SetUp() override {
        fakes::reset_all();
        fakes::framework().announce_errors = true;
    }
    static void given(const std::map<std::string, std::string> &inputs) {
        fakes::framework().inputs = inputs;
    }
};

std::string taken(char *text) {
    const std::unique_ptr<char, decltype(&std::free)> owner(text, std::free);
    return text == nullptr ? "(null)" : text;
}

struct Selection {
    std::string service, domain, host, result;
    int mask = -1;
    bool operator==(const Selection &) const = default;
};

void PrintTo(const Selection &s, std::ostream *out) {
    *out << s.service << "|" << s.domain << "|" << s.host << "|" << s.result << "|" << s.mask;
}

Selection select() {
    Selection selection;
    char *service = nullptr, *domain = nullptr, *host = nullptr;
    selection.result = get_db_strings("add", &service, &selection.mask, &domain, &host);
    selection.service = taken(service);
    selection.domain = taken(domain);
    selection.host = taken(host);
    return selection;
}

Selection expected(const char *service, const char *domain, const char *host, int mask) {
    return {service, domain, host, host, mask};
}

using DbstrExits = Dbstr;

} // namespace

extern "C" void *malloc(size_t size) {
    static auto *real = reinterpret_cast<void *(*)(size_t)>(dlsym(RTLD_NEXT, "malloc"));
    return refused_size != 0 && size == refused_size ? nullptr : real(size);
}

TEST_F(Dbstr, LocalFilesNeedTheDatabaseHostAndHaveNoDomain) {
    given({{"nameservice", "ufs"}, {"db_hostname", "srv"}, {"domain", "ignored"}});
    EXPECT_EQ(select(), expected("ufs", "", "srv", 1));
}

TEST_F(Dbstr, LocalFilesNeverAskTheSystemForADomain) {
    fakes::platform().sysinfo.clear();
    given({{"nameservice", "ufs"}, {"db_hostname", "srv"}});
    EXPECT_EQ(select(), expected("ufs", "", "srv", 1));
}

TEST_F(Dbstr, NisTakesTheGivenDomainAndHasNoDatabaseHost) {
    given({{"nameservice", "nis"}, {"domain", "given.example"}, {"db_hostname", "ignored"}});
    EXPECT_EQ(select(), expected("nis", "given.example", "", 2));
}

TEST_F(Dbstr, NisWithoutADomainTakesTheSystems) {
    given({{"nameservice", "nis"}});
    EXPECT_EQ(select(), expected("nis", "lab.example", "", 2));
}

TEST_F(Dbstr, AnEmptyDomainAlsoTakesTheSystems) {
    given({{"nameservice", "nis_plus"}, {"domain", ""}});
    EXPECT_EQ(select(), expected("nis_plus", "lab.example", "", 4));
}

TEST_F(Dbstr, AllSelectsEveryDatabase) {
    given({{"nameservice", "all"}, {"db_hostname", "srv"}});
    EXPECT_EQ(select(), expected("all", "lab.example", "srv", 7));
}

TEST_F(Dbstr, ASystemDomainOf256CharactersComesBackWhole) {
    const std::string longest(256, 'd');
    fakes::platform().sysinfo[9] = longest;
    given({{"nameservice", "nis"}});
    EXPECT_EQ(select().domain, longest);
}

TEST_F(Dbstr, EveryOutputMayBeNull) {
    given({{"nameservice", "all"}, {"db_hostname", "srv"}});
    EXPECT_STREQ(get_db_strings("add", nullptr, nullptr, nullptr, nullptr), "srv");
    EXPECT_TRUE(fakes::framework().errors.empty());
}

TEST_F(Dbstr, TheResultIsNotTheCallersCopy) {
    given({{"nameservice", "ufs"}, {"db_hostname", "srv"}});
    char *host = nullptr;
    const char *result = get_db_strings("add", nullptr, nullptr, nullptr, &host);
    EXPECT_NE(result, host);
    EXPECT_EQ(taken(host), "srv");
    EXPECT_STREQ(result, "srv");
}

TEST_F(DbstrExits, WithoutANameService) {
    given({{"db_hostname", "srv"}});
    EXPECT_EXIT(select(), testing::ExitedWithCode(1), "recorded 1: 1\\|add\\|nameservice\n");
}

TEST_F(DbstrExits, WithAnEmptyNameService) {
    given({{"nameservice", ""}});
    EXPECT_EXIT(select(), testing::ExitedWithCode(1), "recorded 1: 1\\|add\\|nameservice\n");
}

TEST_F(DbstrExits, WithAnUpperCaseKeyword) {
    given({{"nameservice", "NIS"}});
    EXPECT_EXIT(select(), testing::ExitedWithCode(1), "recorded 10: 10\\|add\\|NIS\\|nameservice\n");
}

TEST_F(DbstrExits, WithTheNameOfASwitchSource) {
    given({{"nameservice", "files"}});
    EXPECT_EXIT(select(), testing::ExitedWithCode(1), "recorded 10: 10\\|add\\|files\\|nameservice\n");
}

TEST_F(DbstrExits, WhenNisIsSelectedAndTheSystemHasNoDomain) {
    fakes::platform().sysinfo.erase(9);
    for (const char *service : {"nis", "nis_plus", "all"}) {
        given({{"nameservice", service}, {"db_hostname", "srv"}});
        EXPECT_EXIT(select(), testing::ExitedWithCode(1), "recorded 1: 1\\|add\\|domain\n") << service;
    }
}

TEST_F(DbstrExits, WhenTheSystemsDomainIsAnEmptyAnswer) {
    fakes::platform().sysinfo.erase(9);
    fakes::platform().no_sysinfo = 0;
    given({{"nameservice", "nis"}});
    EXPECT_EXIT(select(), testing::ExitedWithCode(1), "recorded 1: 1\\|add\\|domain\n");
}

TEST_F(DbstrExits, AskingForTheDomainBeforeTheDatabaseHost) {
    fakes::platform().sysinfo.erase(9);
    given({{"nameservice", "all"}});
    EXPECT_EXIT(select(), testing::ExitedWithCode(1), "^recorded 1: 1\\|add\\|domain\n$");
}

TEST_F(DbstrExits, AskingForTheNameServiceFirst) {
    fakes::platform().sysinfo.erase(9);
    given({{"nameservice", "dns"}});
    EXPECT_EXIT(select(), testing::ExitedWithCode(1), "^recorded 10: 10\\|add\\|dns\\|nameservice\n$");
}

TEST_F(DbstrExits, WithoutARecordWhenMemoryIsOut) {
    given({{"nameservice", "ufs"}, {"db_hostname", "srv"}});
    EXPECT_EXIT((refused_size = sizeof "ufs", select()), testing::ExitedWithCode(1), "^$");
}

TEST_F(DbstrExits, WhenLocalFilesAreSelectedWithoutADatabaseHost) {
    for (const char *service : {"ufs", "all"}) {
        given({{"nameservice", service}});
        EXPECT_EXIT(select(), testing::ExitedWithCode(1), "recorded 1: 1\\|add\\|db_hostname\n") << service;
        given({{"nameservice", service}, {"db_hostname", ""}});
        EXPECT_EXIT(select(), testing::ExitedWithCode(1), "recorded 1: 1\\|add\\|db_hostname\n") << service;
    }
}
