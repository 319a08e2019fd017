// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "hostadm.h"
#include "support/bootparams_reference.hpp"
#include "support/fake_commands.hpp"
#include "support/fake_framework.hpp"
#include "support/fake_tables.hpp"
#include "support/memory_limit.hpp"
#include "support/scratch.hpp"

namespace {

std::vector<std::string> made; // what mkdir_path was asked for

} // namespace

extern "C" int mkdir_path(char *path) {
    made.push_back(path);
    return reinterpret_cast<int (*)(char *)>(dlsym(RTLD_NEXT, "mkdir_path"))(path);
}

namespace {

namespace fs = std::filesystem;
using fakes::Column;
using Columns = std::vector<Column>;
using Lines = std::vector<std::string>;

class SystemUtils : public testing::Test {
protected:
    void SetUp() override {
        fakes::reset_all();
        made.clear();
    }
    // Nothing here records an error.
    void TearDown() override { EXPECT_EQ(fakes::framework().calls, Lines{}); }
    tests::Scratch scratch;
};

// ---- copyfile, copytree ----

class Copyfile : public SystemUtils {};
class Copytree : public SystemUtils {};

TEST_F(Copyfile, RunsTheCopyCommand) {
    const std::string destination = scratch.path("a/b/name");
    EXPECT_EQ(copyfile(destination.c_str(), "/cdrom/file"), 0);
    EXPECT_EQ(fakes::commands().lines, Lines{"set -f ; cp /cdrom/file " + destination});
    EXPECT_EQ(made.at(0), scratch.path("a/b/"));
    EXPECT_TRUE(fs::is_directory(scratch.path("a/b")));
    EXPECT_FALSE(fs::exists(destination));
}

TEST_F(Copyfile, ReturnsTheRawStatus) {
    fakes::commands().answers = {{.contains = "cp ", .status = 256}};
    EXPECT_EQ(copyfile(scratch.path("x").c_str(), "/missing"), 256);
}

TEST_F(Copyfile, RefusesWhatIsNotAbsolute) {
    EXPECT_EQ(copyfile(scratch.path("a/x").c_str(), "relative"), -1);
    EXPECT_EQ(copyfile("relative/x", "/source"), -1);
    EXPECT_EQ(copyfile(nullptr, "/source"), -1);
    EXPECT_EQ(copyfile(scratch.path("a/x").c_str(), nullptr), -1);
    EXPECT_EQ(copyfile("", "/source"), -1);
    EXPECT_EQ(copyfile(scratch.path("a/x").c_str(), ""), -1);
    EXPECT_EQ(fakes::commands().lines, Lines{});
    EXPECT_TRUE(fs::is_empty(scratch.path()));
}

TEST_F(Copyfile, ReallyCopies) {
    fakes::commands().real = true;
    const std::string source = scratch.write("from/file", "the text");
    EXPECT_EQ(copyfile(scratch.path("to/deep/copy").c_str(), source.c_str()), 0);
    EXPECT_EQ(tests::content(scratch.path("to/deep/copy")), "the text");
}

TEST_F(Copyfile, PathLongerThanTheUsualBuffer) {
    fakes::commands().real = true;
    const std::string source = scratch.write("file", "the text");
    std::string destination = scratch.path();
    while (destination.size() < 3000)
        destination += "/" + std::string(99, 'd');
    EXPECT_EQ(copyfile(destination.c_str(), source.c_str()), 0);
    EXPECT_EQ(tests::content(destination), "the text");
}

TEST_F(Copyfile, DirectoryThatCannotBeMadeShowsInTheStatusOfTheCopy) {
    fakes::commands().real = true;
    const std::string source = scratch.write("file", "text");
    testing::internal::CaptureStderr();
    EXPECT_NE(copyfile(scratch.path("file/below/x").c_str(), source.c_str()), 0);
    testing::internal::GetCapturedStderr();
}

TEST_F(Copytree, RunsTheCopyCommand) {
    std::string destination = scratch.path("a/b/name");
    EXPECT_EQ(copytree(destination.data(), "/cdrom/tree"), 0);
    EXPECT_EQ(fakes::commands().lines, Lines{"set -f ; cp -r /cdrom/tree " + destination});
    EXPECT_EQ(destination, scratch.path("a/b/name"));
    EXPECT_EQ(made.at(0), scratch.path("a/b/"));
    EXPECT_TRUE(fs::is_directory(scratch.path("a/b")));
}

TEST_F(Copytree, SameLastNameCopiesIntoTheParent) {
    std::string destination = scratch.path("a/tree");
    EXPECT_EQ(copytree(destination.data(), "/cdrom/tree"), 0);
    EXPECT_STREQ(destination.c_str(), (scratch.path("a") + "/").c_str());
    EXPECT_EQ(made.at(0), scratch.path("a/"));
    EXPECT_EQ(fakes::commands().lines, Lines{"set -f ; cp -r /cdrom/tree " + scratch.path("a") + "/"});
}

TEST_F(Copytree, SameLastNameEndsUpUnderThatName) {
    fakes::commands().real = true;
    scratch.write("from/tree/sub/file", "the text");
    std::string destination = scratch.path("to/tree");
    EXPECT_EQ(copytree(destination.data(), scratch.path("from/tree").c_str()), 0);
    EXPECT_EQ(tests::content(scratch.path("to/tree/sub/file")), "the text");
    std::string again = scratch.path("to/tree");
    EXPECT_EQ(copytree(again.data(), scratch.path("from/tree").c_str()), 0);
    EXPECT_FALSE(fs::exists(scratch.path("to/tree/tree")));
}

TEST_F(Copytree, LastNamesOfNothingAreEqual) {
    std::string destination = scratch.path("a") + "/";
    EXPECT_EQ(copytree(destination.data(), "/cdrom/tree/"), 0);
    EXPECT_EQ(destination, scratch.path("a") + "/");
    EXPECT_EQ(fakes::commands().lines, Lines{"set -f ; cp -r /cdrom/tree/ " + scratch.path("a") + "/"});
}

TEST_F(Copytree, PathLongerThanTheUsualBuffer) {
    fakes::commands().real = true;
    scratch.write("from/file", "the text");
    std::string destination = scratch.path();
    while (destination.size() < 3000)
        destination += "/" + std::string(99, 'd');
    EXPECT_EQ(copytree(destination.data(), scratch.path("from").c_str()), 0);
    EXPECT_EQ(tests::content(destination + "/file"), "the text");
}

TEST_F(Copytree, LastNamesDifferInOnePart) {
    std::string destination = scratch.path("xtree");
    EXPECT_EQ(copytree(destination.data(), "/cdrom/tree"), 0);
    EXPECT_EQ(destination, scratch.path("xtree"));
}

TEST_F(Copytree, RefusesWhatIsNotAbsolute) {
    std::string relative = "relative/x";
    std::string absolute = scratch.path("a/x");
    EXPECT_EQ(copytree(relative.data(), "/source"), -1);
    EXPECT_EQ(copytree(absolute.data(), "source"), -1);
    EXPECT_EQ(copytree(nullptr, "/source"), -1);
    EXPECT_EQ(copytree(absolute.data(), nullptr), -1);
    EXPECT_EQ(fakes::commands().lines, Lines{});
    EXPECT_TRUE(fs::is_empty(scratch.path()));
}

TEST_F(Copytree, ReturnsTheRawStatus) {
    fakes::commands().answers = {{.contains = "cp -r", .status = 512}};
    std::string destination = scratch.path("x");
    EXPECT_EQ(copytree(destination.data(), "/missing"), 512);
}

// ---- set_hosts ----

class SetHosts : public SystemUtils {
protected:
    void TearDown() override {
        EXPECT_EQ(fakes::tables().lists, 0);
        SystemUtils::TearDown();
    }
};

TEST_F(SetHosts, ReplacesTheEntryOfTheKey) {
    EXPECT_EQ(set_hosts("/etc/hosts", "10.0.0.1", "client1"), 0);
    ASSERT_EQ(fakes::tables().calls.size(), 1u);
    const fakes::TableCall &call = fakes::tables().calls[0];
    EXPECT_EQ(call.what, "replace");
    EXPECT_EQ(call.table, "/etc/hosts");
    EXPECT_EQ(call.separators, "\t ");
    EXPECT_EQ(call.comment, "#");
    EXPECT_EQ(call.comment_text, "(none)");
    EXPECT_EQ(call.columns,
              (Columns{{0, 0, 0, "10.0.0.1", "10.0.0.1", 0}, {1, 1, 1, "(none)", "client1", 1}}));
    EXPECT_EQ(call.mode, 3);
}

TEST_F(SetHosts, EveryFailureIsReturned) {
    fakes::tables().new_list_status = -11;
    EXPECT_EQ(set_hosts("/etc/hosts", "k", "v"), -11);
    fakes::reset_tables();
    for (const int column : {0, 1}) {
        fakes::tables().fail_column = column;
        fakes::tables().column_status = -20 - column;
        EXPECT_EQ(set_hosts("/etc/hosts", "k", "v"), -20 - column);
        EXPECT_EQ(fakes::tables().lists, 0);
    }
    EXPECT_TRUE(fakes::tables().calls.empty());
    fakes::reset_tables();
    fakes::tables().replace_status = -26;
    EXPECT_EQ(set_hosts("/etc/hosts", "k", "v"), -26);
}

// ---- mount tables ----

class Mntadd : public SetHosts {};
class Mntadd4x : public SetHosts {};

Columns mount_columns(const std::vector<std::string> &values) {
    Columns columns;
    for (const std::string &value : values) {
        const int position = static_cast<int>(columns.size());
        columns.push_back({position, position, position, position == 0 ? value : "(none)", value, 0});
    }
    return columns;
}

TEST_F(Mntadd, WritesSevenColumns) {
    char resource[] = "server:/export/home";
    EXPECT_EQ(mntadd("/etc/vfstab", resource, "/dev/rdsk/x", "/home", "nfs", "2", "yes", "rw,soft"), 0);
    ASSERT_EQ(fakes::tables().calls.size(), 1u);
    const fakes::TableCall &call = fakes::tables().calls[0];
    EXPECT_EQ(call.what, "replace");
    EXPECT_EQ(call.table, "/etc/vfstab");
    EXPECT_EQ(call.separators, "\t ");
    EXPECT_EQ(call.comment, "#");
    EXPECT_EQ(call.comment_text, "(none)");
    EXPECT_EQ(call.columns,
              mount_columns({"server:/export/home", "/dev/rdsk/x", "/home", "nfs", "2", "yes", "rw,soft"}));
    EXPECT_EQ(call.mode, 3);
}

TEST_F(Mntadd, EmptyAndNullColumnsAreDashes) {
    EXPECT_EQ(mntadd("t", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), 0);
    char empty[] = "";
    EXPECT_EQ(mntadd("t", empty, "", "", "", "", "", ""), 0);
    ASSERT_EQ(fakes::tables().calls.size(), 2u);
    for (const fakes::TableCall &call : fakes::tables().calls)
        EXPECT_EQ(call.columns, mount_columns({"-", "-", "-", "-", "-", "-", "-"}));
}

TEST_F(Mntadd, HostIsLowerCasedInTheCallersString) {
    struct Case {
        const char *given, *written;
    };
    for (const auto &[given, written] :
         std::initializer_list<Case>{{"SERVER:/export/exec", "server:/export/exec"},
                                     {"Host1:/export/ROOT/c1", "host1:/export/ROOT/c1"},
                                     {"A:B:c", "a:B:c"},
                                     {":ABC", ":ABC"},
                                     {"X:", "x:"},
                                     {"/dev/DSK/C0", "/dev/DSK/C0"}}) {
        fakes::reset_tables();
        std::string resource = given;
        EXPECT_EQ(mntadd("t", resource.data(), "", "", "", "", "", ""), 0);
        EXPECT_EQ(resource, written);
        EXPECT_EQ(fakes::tables().calls.at(0).columns.at(0), (Column{0, 0, 0, written, written, 0}));
    }
}

TEST_F(Mntadd, EveryFailureIsReturned) {
    char resource[] = "-";
    fakes::tables().new_list_status = -11;
    EXPECT_EQ(mntadd("t", resource, "", "", "", "", "", ""), -11);
    fakes::reset_tables();
    for (int column = 0; column < 7; ++column) {
        fakes::tables().fail_column = column;
        fakes::tables().column_status = -20 - column;
        EXPECT_EQ(mntadd("t", resource, "", "", "", "", "", ""), -20 - column);
        EXPECT_EQ(fakes::tables().lists, 0);
    }
    EXPECT_TRUE(fakes::tables().calls.empty());
    for (const int status : {-2, -26, -EACCES}) {
        fakes::reset_tables();
        fakes::tables().replace_status = status;
        EXPECT_EQ(mntadd("t", resource, "", "", "", "", "", ""), status);
    }
}

TEST_F(Mntadd4x, WritesSixColumns) {
    char resource[] = "Server:/export";
    EXPECT_EQ(mntadd4x("/etc/fstab", resource, "/home", "nfs", "rw", "0", nullptr), 0);
    ASSERT_EQ(fakes::tables().calls.size(), 1u);
    EXPECT_EQ(fakes::tables().calls[0].table, "/etc/fstab");
    EXPECT_EQ(fakes::tables().calls[0].columns,
              mount_columns({"server:/export", "/home", "nfs", "rw", "0", "-"}));
    EXPECT_EQ(fakes::tables().calls[0].mode, 3);
    EXPECT_STREQ(resource, "server:/export");
}

TEST_F(Mntadd4x, EmptyAndNullColumnsAreDashes) {
    EXPECT_EQ(mntadd4x("t", nullptr, nullptr, "", nullptr, "", nullptr), 0);
    EXPECT_EQ(fakes::tables().calls.at(0).columns, mount_columns({"-", "-", "-", "-", "-", "-"}));
}

TEST_F(Mntadd4x, EveryFailureIsReturned) {
    char resource[] = "-";
    fakes::tables().new_list_status = -11;
    EXPECT_EQ(mntadd4x("t", resource, "", "", "", "", ""), -11);
    fakes::reset_tables();
    for (int column = 0; column < 6; ++column) {
        fakes::tables().fail_column = column;
        EXPECT_EQ(mntadd4x("t", resource, "", "", "", "", ""), -12);
        EXPECT_EQ(fakes::tables().lists, 0);
    }
    fakes::reset_tables();
    fakes::tables().replace_status = -26;
    EXPECT_EQ(mntadd4x("t", resource, "", "", "", "", ""), -26);
}

// ---- get_client_index ----

TEST(GetClientIndex, EveryKeyword) {
    struct Case {
        const char *keyword;
        int number;
    };
    for (const auto &[keyword, number] : std::initializer_list<Case>{{"DISKLESS", HOSTADM_DISKLESS},
                                                                     {"DATALESS", HOSTADM_DATALESS},
                                                                     {"DISKFULL", HOSTADM_DISKFULL},
                                                                     {"CACHELET", HOSTADM_CACHELET},
                                                                     {"OS_SERVER", HOSTADM_OS_SERVER},
                                                                     {"UNKNOWN", HOSTADM_UNKNOWN}}) {
        int index = 0;
        EXPECT_EQ(get_client_index(keyword, &index), 1) << keyword;
        EXPECT_EQ(index, number) << keyword;
    }
}

TEST(GetClientIndex, AnythingElseLeavesTheResultAlone) {
    for (const char *keyword : {"diskless", "DISKLESS ", " DISKLESS", "DISK", "", "4"}) {
        int index = 7;
        EXPECT_EQ(get_client_index(keyword, &index), 0) << keyword;
        EXPECT_EQ(index, 7);
    }
}

// ---- parse_bootparams_entry ----

using reference::Parsed;

// An answer in which what is not named is the empty string.
Parsed answer(int status, const std::vector<std::pair<reference::Output, std::string>> &values) {
    Parsed parsed;
    parsed.status = status;
    parsed.outputs.fill("");
    for (const auto &[output, value] : values)
        parsed.outputs[output] = value;
    return parsed;
}

TEST(ParseBootparamsEntry, ServerAndPathsOfEveryKey) {
    EXPECT_EQ(reference::parse("c1 root=s1:/r swap=s2:/s dump=s3:/d exec=s4:/e kvm=s5:/k boottype=s6:cd "
                               "swapsize=s7:24 install=s8:/i install_config=s9:/c term=:xterm"),
              answer(0, {{reference::server, "s1"},
                         {reference::exec_server, "s4"},
                         {reference::root_path, "/r"},
                         {reference::swap_path, "/s"},
                         {reference::dump_path, "/d"},
                         {reference::exec_path, "/e"},
                         {reference::kvm_path, "/k"},
                         {reference::boottype, "cd"},
                         {reference::swapsize, "24"},
                         {reference::install_server, "s8"},
                         {reference::install_path, "/i"},
                         {reference::install_config_server, "s9"},
                         {reference::install_config_path, "/c"}}));
}

TEST(ParseBootparamsEntry, WantedServerThatIsMissingGives1) {
    const char *entry = "c1 root=srv:/export/root/c1 swap=srv:/export/swap/c1";
    EXPECT_EQ(reference::parse(entry), answer(1, {{reference::server, "srv"},
                                                  {reference::root_path, "/export/root/c1"},
                                                  {reference::swap_path, "/export/swap/c1"}}));
    EXPECT_EQ(reference::parse(entry, reference::all_outputs & ~(1u << reference::exec_server)).status, 0);
    EXPECT_EQ(reference::parse("c1 exec=srv:/usr").status, 1);
    EXPECT_EQ(reference::parse("c1 exec=srv:/usr", 1u << reference::exec_server).status, 0);
}

TEST(ParseBootparamsEntry, ItemWithoutServer) {
    EXPECT_EQ(reference::parse("c1 swapsize=24"), answer(1, {{reference::swapsize, "24"}}));
    EXPECT_EQ(reference::parse("c1 swapsize=24", 1u << reference::swapsize).status, 0);
}

TEST(ParseBootparamsEntry, EntryWithoutAnyKeyGivesMinus1AndEmptyStrings) {
    EXPECT_EQ(reference::parse("c1"), answer(-1, {}));
    EXPECT_EQ(reference::parse("c1 rom=x:/y"), answer(-1, {}));
}

TEST(ParseBootparamsEntry, EmptyAndNullStoreNothing) {
    Parsed nothing;
    nothing.status = -1;
    EXPECT_EQ(reference::parse(""), nothing);
    EXPECT_EQ(reference::parse(nullptr), nothing);
}

TEST(ParseBootparamsEntry, TermAloneIsAKeyThatIsFound) {
    EXPECT_EQ(reference::parse("c1 term=xterm"), answer(1, {}));
    EXPECT_EQ(reference::parse("c1 term=xterm", 0).status, 0);
}

TEST(ParseBootparamsEntry, KeyWithoutValueIsFound) {
    EXPECT_EQ(reference::parse("root=", 0).status, 0);
    EXPECT_EQ(reference::parse("root=:"), answer(1, {}));
}

TEST(ParseBootparamsEntry, ServersAreTakenInOrder) {
    const auto server_of = [](const char *entry) {
        return *reference::parse(entry).outputs[reference::server];
    };
    EXPECT_EQ(server_of("dump=d:/d swap=s:/s root=r:/r"), "r");
    EXPECT_EQ(server_of("dump=d:/d swap=s:/s root=/r"), "s");
    EXPECT_EQ(server_of("dump=d:/d swap=:/s root=:/r"), "d");
    const auto exec_of = [](const char *entry) {
        return *reference::parse(entry).outputs[reference::exec_server];
    };
    EXPECT_EQ(exec_of("kvm=k:/k exec=e:/e"), "e");
    EXPECT_EQ(exec_of("kvm=k:/k exec=/e"), "k");
}

TEST(ParseBootparamsEntry, KeyCountsAtTheEndOfALongerWord) {
    EXPECT_EQ(reference::parse("c1 myroot=srv:/r"),
              answer(1, {{reference::server, "srv"}, {reference::root_path, "/r"}}));
}

TEST(ParseBootparamsEntry, NamesThatBeginAlikeAreApart) {
    EXPECT_EQ(reference::parse("swapsize=24 install_config=c:/c"),
              answer(1, {{reference::swapsize, "24"},
                         {reference::install_config_server, "c"},
                         {reference::install_config_path, "/c"}}));
}

TEST(ParseBootparamsEntry, PathMayHoldColons) {
    EXPECT_EQ(reference::parse("root=srv:/a:b:c"),
              answer(1, {{reference::server, "srv"}, {reference::root_path, "/a:b:c"}}));
}

TEST(ParseBootparamsEntry, FirstItemWithAServerWins) {
    EXPECT_EQ(reference::parse("root=/a root=one:/b root=two:/c"),
              answer(1, {{reference::server, "one"}, {reference::root_path, "/b"}}));
    EXPECT_EQ(reference::parse("root=/a root=/b"), answer(1, {{reference::root_path, "/a"}}));
}

TEST(ParseBootparamsEntry, KeyInsideAValue) {
    EXPECT_EQ(reference::parse("root=root=srv:/r"),
              answer(1, {{reference::server, "root=srv"}, {reference::root_path, "/r"}}));
    EXPECT_EQ(reference::parse("term=root=srv:/r swap=:root=x:y"),
              answer(1, {{reference::server, "srv"},
                         {reference::root_path, "/r"},
                         {reference::swap_path, "root=x:y"}}));
}

TEST(ParseBootparamsEntry, TabsAndNewlinesSeparateToo) {
    EXPECT_EQ(
        reference::parse("c1\troot=srv:/r\nswap=srv:/s\tdump=\nexec=\tx:y"),
        answer(1, {{reference::server, "srv"}, {reference::root_path, "/r"}, {reference::swap_path, "/s"}}));
}

TEST(ParseBootparamsEntry, InstallServerFollowsALooseTestOfTheRootPath) {
    const auto install_of = [](const char *entry) {
        return *reference::parse(entry).outputs[reference::install_server];
    };
    EXPECT_EQ(install_of("root=srv:/a/export/exec/kvm/xy"), "srv");
    EXPECT_EQ(install_of("root=srv:ab/export/exec/kvm/cd"), "srv");
    EXPECT_EQ(install_of("root=srv:/export/exec/kvm/x"), "");
    EXPECT_EQ(install_of("root=srv:/a/export/exec/kvm/x"), "");
    EXPECT_EQ(install_of("root=srv:a/export/exec/kvm/xy"), "");
    EXPECT_EQ(install_of("root=srv:/export/exec/kvm/export/exec/kvm/xy"), "srv");
    EXPECT_EQ(install_of("root=srv:/a/export/exec/kvm/xy install=other:/i"), "other");
    EXPECT_EQ(install_of("root=srv:/a/export/exec/kvm/xy install=/i"), "srv");
    EXPECT_EQ(install_of("root=/a/export/exec/kvm/xy"), "");
}

TEST(ParseBootparamsEntry, EveryOutputIsOptional) {
    const char *entry = "c1 root=srv:/r exec=srv:/e";
    for (std::size_t output = 0; output < reference::output_count; ++output) {
        const Parsed one = reference::parse(entry, 1u << output);
        EXPECT_EQ(one.status, 0);
        EXPECT_EQ(one.outputs[output], reference::parse(entry).outputs[output]);
    }
    EXPECT_EQ(reference::parse(entry, 0).status, 0);
}

TEST(ParseBootparamsEntry, ValuesOfAnyLength) {
    const std::string server(100'000, 's');
    const std::string path = "/" + std::string(100'000, 'p');
    EXPECT_EQ(reference::parse(("c1 root=" + server + ":" + path).c_str()),
              answer(1, {{reference::server, server}, {reference::root_path, path}}));
}

// Texts that no administrator writes, full of what the rules hang on.
std::string random_entry(std::mt19937 &random) {
    static const std::vector<std::string> parts = {"root",
                                                   "swap",
                                                   "dump",
                                                   "exec",
                                                   "kvm",
                                                   "boottype",
                                                   "swapsize",
                                                   "install",
                                                   "install_config",
                                                   "term",
                                                   "=",
                                                   "=",
                                                   "=",
                                                   "=",
                                                   ":",
                                                   ":",
                                                   ":",
                                                   " ",
                                                   " ",
                                                   " ",
                                                   "\t",
                                                   "\n",
                                                   "c1",
                                                   "srv",
                                                   "/",
                                                   "/export/exec/kvm/",
                                                   "xy",
                                                   "root=s:/a/export/exec/kvm/xy",
                                                   "_config",
                                                   "size",
                                                   "\xe4",
                                                   "\r"};
    std::string entry;
    const int count = std::uniform_int_distribution<int>(1, 40)(random);
    for (int i = 0; i < count; ++i)
        entry += parts[std::uniform_int_distribution<std::size_t>(0, parts.size() - 1)(random)];
    return entry;
}

TEST(ParseBootparamsEntry, AgreesWithRegularExpressions) {
    std::mt19937 random(20261121);
    for (int i = 0; i < 20'000; ++i) {
        const std::string entry = random_entry(random);
        const unsigned wanted = i % 2 == 0 ? reference::all_outputs : random() & reference::all_outputs;
        ASSERT_EQ(reference::parse(entry.c_str(), wanted),
                  reference::parse_by_patterns(entry.c_str(), wanted, reference::search_remembering))
            << entry << ", wanted " << wanted;
    }
}

[[noreturn]] void parse_without_memory() {
    const std::string entry = "c1 root=srv:/r swap=srv:/" + std::string(50'000'000, 's');
    char *root = nullptr;
    char *swap = nullptr;
    tests::limit_memory_to(10'000'000);
    const int status = parse_bootparams_entry(entry.c_str(), nullptr, nullptr, &root, &swap, nullptr, nullptr,
                                              nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    const bool edited = edit_bootparams_entry(entry.c_str(), "dump", "s", "/d") != nullptr;
    std::_Exit(status == -1 && root == nullptr && swap == nullptr && !edited ? 0 : 1);
}

TEST(ParseBootparamsEntry, MemoryOutStoresNothing) {
    SKIP_WITHOUT_MEMORY_LIMIT();
    EXPECT_EXIT(parse_without_memory(), testing::ExitedWithCode(0), "");
}

// ---- edit_bootparams_entry ----

std::string edited(const char *entry, const char *key, const char *server, const char *path) {
    char *result = edit_bootparams_entry(entry, key, server, path);
    const std::string text = result == nullptr ? "(NULL)" : result;
    std::free(result);
    return text;
}

TEST(EditBootparamsEntry, RemovesAnItem) {
    EXPECT_EQ(edited("c1 root=a:/r swap=a:/s", "swap", nullptr, nullptr), "c1 root=a:/r");
    EXPECT_EQ(edited("c1 root=a:/r swap=a:/s", "root", nullptr, nullptr), "c1  swap=a:/s");
    EXPECT_EQ(edited("c1 root=a:/r swap=a:/s", "root", "", ""), "c1  swap=a:/s");
    EXPECT_EQ(edited("root=a:/r swap=a:/s", "root", nullptr, nullptr), "swap=a:/s");
    EXPECT_EQ(edited("c1 root=a:/r", "root", nullptr, ""), "c1");
    EXPECT_EQ(edited("root=a:/r", "root", nullptr, nullptr), "");
}

TEST(EditBootparamsEntry, AddsAnItemAtTheEnd) {
    EXPECT_EQ(edited("c1 root=a:/r", "dump", "a", "/d"), "c1 root=a:/r dump=a:/d");
    EXPECT_EQ(edited("c1", "root", "a", "/r"), "c1 root=a:/r");
    EXPECT_EQ(edited("", "root", "a", "/r"), " root=a:/r");
}

TEST(EditBootparamsEntry, ReplacesAnItemInItsPlace) {
    EXPECT_EQ(edited("c1 root=a:/r", "root", "b", "/r2"), "c1 root=b:/r2");
    EXPECT_EQ(edited("c1 root=a:/r swap=a:/s", "root", "b", "/r2"), "c1 root=b:/r2 swap=a:/s");
    EXPECT_EQ(edited("c1\troot=a:/r\tswap=a:/s", "root", "b", "/r2"), "c1\troot=b:/r2 swap=a:/s");
    EXPECT_EQ(edited("c1 root=a:/r\nswap=a:/s", "root", "b", "/r2"), "c1 root=b:/r2 swap=a:/s");
}

TEST(EditBootparamsEntry, ItemIsWrittenWithAColonAlways) {
    EXPECT_EQ(edited("c1 swapsize=16", "swapsize", "", "24"), "c1 swapsize=:24");
    EXPECT_EQ(edited("c1", "swapsize", nullptr, "24"), "c1 swapsize=:24");
    EXPECT_EQ(edited("c1", "root", "srv", nullptr), "c1 root=srv:");
}

TEST(EditBootparamsEntry, OnlyTheFirstOccurrenceChanges) {
    EXPECT_EQ(edited("c1 root=a:/r root=b:/s", "root", "c", "/t"), "c1 root=c:/t root=b:/s");
    EXPECT_EQ(edited("c1 myroot=a:/r root=b:/s", "root", "c", "/t"), "c1 myroot=c:/t root=b:/s");
}

TEST(EditBootparamsEntry, OnlyOneSeparatorGoesWithTheItem) {
    EXPECT_EQ(edited("c1 root=a:/r   swap=a:/s", "root", "b", "/q"), "c1 root=b:/q   swap=a:/s");
    EXPECT_EQ(edited("c1 root=a:/r   swap=a:/s", "root", nullptr, nullptr), "c1    swap=a:/s");
}

TEST(EditBootparamsEntry, WhiteSpaceAtTheEndGoesButNeverTheFirstCharacter) {
    EXPECT_EQ(edited("c1 root=a:/r \t\r\n", "swap", "a", "/s\v\f "), "c1 root=a:/r \t\r\n swap=a:/s");
    EXPECT_EQ(edited("c1 swap=x \t\v ", "swap", "", ""), "c1");
    EXPECT_EQ(edited("  swap=x", "swap", "", ""), " ");
    EXPECT_EQ(edited("swap=x \t ", "swap", "", ""), "\t");
}

TEST(EditBootparamsEntry, AbsentKeyWithoutValueGivesAnUnchangedCopy) {
    const char *entry = "c1 root=a:/r  \t";
    EXPECT_EQ(edited(entry, "swap", nullptr, nullptr), entry);
    EXPECT_EQ(edited(entry, "swap", "", ""), entry);
    EXPECT_EQ(edited("", "swap", "", ""), "");
    char *copy = edit_bootparams_entry(entry, "swap", nullptr, nullptr);
    EXPECT_NE(copy, entry);
    std::free(copy);
}

TEST(EditBootparamsEntry, AnyLength) {
    const std::string entry =
        "c1 root=a:/" + std::string(100'000, 'r') + " swap=a:/" + std::string(100'000, 's');
    const std::string path = "/" + std::string(300'000, 'n');
    EXPECT_EQ(edited(entry.c_str(), "root", "b", path.c_str()),
              "c1 root=b:" + path + " swap=a:/" + std::string(100'000, 's'));
    const std::string key(10'000, 'k');
    EXPECT_EQ(edited("c1", key.c_str(), "b", "/p"), "c1 " + key + "=b:/p");
}

} // namespace
