// SPDX-License-Identifier: MIT
// The list of clients that boot from this host. It lives as long as the process, so each test uses client
// names of its own, and what needs an empty list runs in a child process.
#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <vector>

#include "hostadm.h"
#include "support/fake_commands.hpp"
#include "support/fake_framework.hpp"
#include "support/fake_platform.hpp"
#include "support/fake_tables.hpp"

namespace {

using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::IsEmpty;

int allocations_left = -1; // -1: memory does not run out

std::string shown(const client_node *node) {
    return std::string(node->name) + "|" + node->boottype + "|" + node->root_path;
}

std::vector<std::string> clients(const std::string &prefix) {
    std::vector<std::string> found;
    for (const client_node *node = do_bootparams(); node != nullptr; node = node->next)
        if (std::string(node->name).starts_with(prefix))
            found.push_back(shown(node));
    return found;
}

class Enumeration : public testing::Test {
protected:
    void SetUp() override {
        fakes::reset_all();
        fakes::tables().local_hosts = {"server1"};
    }
    void rows(std::vector<fakes::Row> given) { fakes::framework().rows = std::move(given); }
    static fakes::Row row(const std::string &name, const std::string &items) {
        return {{"hostname", name}, {"filesystems", items}};
    }
};

using EnumerationDeath = Enumeration;

} // namespace

// Runs out of memory when a test says so.
extern "C" void *malloc(size_t size) {
    static auto *real = reinterpret_cast<void *(*)(size_t)>(dlsym(RTLD_NEXT, "malloc"));
    if (allocations_left == 0) {
        errno = ENOMEM;
        return nullptr;
    }
    if (allocations_left > 0)
        --allocations_left;
    return real(size);
}

TEST_F(Enumeration, KeepsClientsWhoseRootIsServedHere) {
    rows({row("a1", "root=server1:/export/root/a1 swap=server1:/export/swap/a1 boottype=:in"),
          row("a2", "root=otherhost:/export/root/a2")});
    EXPECT_THAT(clients("a"), ElementsAre("a1|in|/export/root/a1"));
}

TEST_F(Enumeration, AsksTheFrameworkForTheBootparamsOfTheSource) {
    read_bootparams("files");
    const fakes::Framework &framework = fakes::framework();
    ASSERT_EQ(framework.performed.size(), 1u);
    EXPECT_EQ(framework.performed[0].method, "list_bootparams");
    EXPECT_EQ(framework.performed[0].method_class, "database");
    EXPECT_EQ(framework.performed[0].host, "");
    EXPECT_THAT(framework.performed[0].input, ElementsAre(std::pair("nameservice", "ufs")));
    EXPECT_THAT(framework.calls, ElementsAre("adm_init", "adm_err_cleanup 1"));
    EXPECT_THAT(framework.errors, IsEmpty());
}

TEST_F(Enumeration, TranslatesEverySourceName) {
    read_bootparams("files");
    read_bootparams("nis");
    read_bootparams("nisplus");
    std::vector<std::string> keywords;
    for (const fakes::Performed &call : fakes::framework().performed)
        keywords.push_back(call.input.at(0).second);
    EXPECT_THAT(keywords, ElementsAre("ufs", "nis", "nis_plus"));
}

TEST_F(Enumeration, ReadsSourcesInConfiguredOrderAndTheFirstOccurrenceWins) {
    fakes::platform().sources = {"nis", "files"};
    fakes::framework().rows_for = [](const fakes::Performed &call) -> std::vector<fakes::Row> {
        if (call.input.at(0).second == "nis")
            return {row("b2", "root=server1:/nis/b2"), row("b1", "root=server1:/nis/b1")};
        return {row("b1", "root=server1:/files/b1"), row("b3", "root=server1:/files/b3")};
    };
    EXPECT_THAT(clients("b"), ElementsAre("b2||/nis/b2", "b1||/nis/b1", "b3||/files/b3"));
}

TEST_F(Enumeration, ClientWithoutBootTypeHasAnEmptyOne) {
    rows({row("c1", "root=server1:/export/root/c1 swap=server1:/s")});
    EXPECT_THAT(clients("c"), ElementsAre("c1||/export/root/c1"));
}

TEST_F(Enumeration, RootPathEndsAtBlankTabOrNewline) {
    rows({row("d1", "root=server1:/export/root/d1 x=y"), row("d2", "root=server1:/export/root/d2\tx=y"),
          row("d3", "root=server1:/export/root/d3\nx=y"), row("d4", "root=server1:/export/root/d4")});
    EXPECT_THAT(clients("d"), ElementsAre("d1||/export/root/d1", "d2||/export/root/d2", "d3||/export/root/d3",
                                          "d4||/export/root/d4"));
}

TEST_F(Enumeration, RootPathBeginsAtTheFirstSlashBehindTheColon) {
    rows({row("e1", "root=server1:export/root/e1")});
    EXPECT_THAT(clients("e"), ElementsAre("e1||/root/e1"));
}

TEST_F(Enumeration, SkipsRowsThatCannotBeRead) {
    rows({{{"hostname", "f1"}},               // no item list
          row("f2", ""),                      // an empty one
          row("f3", "nothing that is known"), // no item
          row("f4", "swap=server1:/swap"),    // no root
          row("f5", "root=server1"),          // no colon
          row("f6", "root=server1:x"),        // no slash
          row("f7", "root=:/export/root/f7"), // no server
          row("f8", "root=server1:/export/root/f8")});
    EXPECT_THAT(clients("f"), ElementsAre("f8||/export/root/f8"));
}

TEST_F(Enumeration, RowWithoutHostNameEndsTheSource) {
    rows({row("g1", "root=server1:/g1"),
          {{"filesystems", "root=server1:/g2"}},
          row("g3", "root=server1:/g3")});
    EXPECT_THAT(clients("g"), ElementsAre("g1||/g1"));
}

TEST_F(Enumeration, FailedMethodAddsNothing) {
    rows({row("h1", "root=server1:/h1")});
    fakes::framework().perform_status = 5;
    EXPECT_THAT(clients("h"), IsEmpty());
    EXPECT_THAT(fakes::framework().errors, IsEmpty());
}

TEST_F(Enumeration, FreesEveryHandle) {
    rows({row("i1", "root=server1:/i1")});
    read_bootparams("files");
    fakes::framework().perform_status = 5;
    read_bootparams("files");
    EXPECT_EQ(fakes::framework().handles, 0);
    EXPECT_EQ(fakes::framework().error_handles, 0);
}

TEST_F(Enumeration, SecondRunAppendsNewClientsBehindTheSameHead) {
    rows({row("j1", "root=server1:/j1")});
    const client_node *head = do_bootparams();
    rows({row("j1", "root=server1:/elsewhere"), row("j2", "root=server1:/j2")});
    EXPECT_EQ(do_bootparams(), head);
    EXPECT_THAT(clients("j"), ElementsAre("j1||/j1", "j2||/j2"));
}

TEST_F(Enumeration, ServerIsLookedUpAgainInTheNextWalk) {
    rows({row("k1", "root=moved:/k1")});
    EXPECT_THAT(clients("k"), IsEmpty());
    fakes::tables().local_hosts.insert("moved");
    EXPECT_THAT(clients("k"), ElementsAre("k1||/k1"));
}

TEST_F(Enumeration, NamesDifferingInCaseAreDifferentClients) {
    add_to_list("l1", "", "/l1");
    add_to_list("lX", "", "/lX");
    add_to_list("lx", "", "/lx");
    EXPECT_THAT(clients("l"), ElementsAre("l1||/l1", "lX||/lX", "lx||/lx"));
}

TEST_F(Enumeration, NodesThatACallerAppendsBelongToTheList) {
    add_to_list("m1", "", "/m1");
    client_node *last = do_bootparams();
    while (last->next != nullptr)
        last = last->next;
    last->next = alloc_list("m2", "in", "/m2");
    add_to_list("m2", "", "/another");
    add_to_list("m3", "", "/m3");
    EXPECT_THAT(clients("m"), ElementsAre("m1||/m1", "m2|in|/m2", "m3||/m3"));
}

TEST_F(Enumeration, NewNodeHoldsItsOwnCopies) {
    std::string name = "n1", boottype = "in", root = "/n1";
    client_node *node = alloc_list(name.c_str(), boottype.c_str(), root.c_str());
    name = boottype = root = "?";
    EXPECT_EQ(shown(node), "n1|in|/n1");
    EXPECT_EQ(node->next, nullptr);
    std::free(node->name);
    std::free(node->boottype);
    std::free(node->root_path);
    std::free(node);
}

TEST_F(Enumeration, MissingStringsAreEmpty) {
    add_to_list("o1", nullptr, nullptr);
    add_to_list(nullptr, "in", "/o2");
    foreach_client(nullptr);
    EXPECT_THAT(clients("o"), ElementsAre("o1||"));
}

TEST_F(EnumerationDeath, FirstClientBecomesTheHead) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // a process of its own, whose list is empty
    EXPECT_EXIT(
        {
            std::exit(do_bootparams() == nullptr && (add_to_list("first", "", "/"), true) &&
                              shown(do_bootparams()) == "first||/"
                          ? 7
                          : 1);
        },
        ExitedWithCode(7), "");
}

TEST_F(EnumerationDeath, WithoutSwitchConfigurationSaysSoAndGivesNoList) {
    EXPECT_EXIT(
        {
            add_to_list("known", "", "/");
            fakes::platform().has_switch = false;
            errno = ENOENT;
            std::exit(do_bootparams() == nullptr && fakes::framework().performed.empty() ? 7 : 1);
        },
        ExitedWithCode(7), "__nsw_getconfig returned error: No such file or directory");
}

TEST_F(EnumerationDeath, UnknownSourceEndsTheProcess) {
    for (const char *source : {"compat", "dns", "", "Files"}) {
        fakes::platform().sources = {source};
        EXPECT_EXIT(do_bootparams(), ExitedWithCode(255), "^$");
    }
    EXPECT_EXIT(read_bootparams(nullptr), ExitedWithCode(255), "^$");
}

TEST_F(EnumerationDeath, NoMemoryForTheNodeEndsTheProcess) {
    EXPECT_EXIT((allocations_left = 0, alloc_list("p1", "", "/")), ExitedWithCode(255),
                "Can't alloc space for struct: Cannot allocate memory");
}

TEST_F(EnumerationDeath, NoMemoryForTheNameEndsTheProcess) {
    EXPECT_EXIT((allocations_left = 1, alloc_list("p1", "", "/")), ExitedWithCode(255),
                "Can't alloc space for name in struct: Cannot allocate memory");
}

TEST_F(Enumeration, NoMemoryForBootTypeAndRootIsNotReported) {
    allocations_left = 2;
    client_node *node = alloc_list("q1", "in", "/q1");
    allocations_left = -1;
    EXPECT_STREQ(node->name, "q1");
    EXPECT_EQ(node->boottype, nullptr);
    EXPECT_EQ(node->root_path, nullptr);
    std::free(node->name);
    std::free(node);
}
