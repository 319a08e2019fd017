// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

#include "hostadm.h"
#include "support/fake_commands.hpp"
#include "support/fake_framework.hpp"
#include "support/fake_platform.hpp"

namespace {

using Lines = std::vector<std::string>;

struct Free {
    void operator()(char *text) const { std::free(text); }
};
using Text = std::unique_ptr<char, Free>;

// An in-out path as a method holds it: its own string, which the library may shorten or replace.
class Path {
public:
    Path() = default; // NULL
    Path(const char *text) : own_(text), current_(own_.data()) {}
    ~Path() {
        if (current_ != own_.data() && current_ != nullptr && *current_ != '\0')
            std::free(current_);
    }
    Path(const Path &) = delete;
    Path &operator=(const Path &) = delete;

    char **place() { return &current_; }
    std::string text() const { return current_ == nullptr ? "(NULL)" : current_; }
    bool replaced() const { return current_ != own_.data(); }

private:
    std::string own_;
    char *current_ = nullptr;
};

class Archstr : public testing::Test {
protected:
    void SetUp() override {
        fakes::reset_all();
        fakes::framework().announce_errors = true; // seen in the output of the processes that exit
    }
    void TearDown() override {
        EXPECT_EQ(fakes::framework().handles, 0);
        EXPECT_EQ(fakes::framework().error_handles, 0);
        EXPECT_TRUE(fakes::framework().errors.empty());
    }
};

testing::ExitedWithCode exits() {
    return testing::ExitedWithCode(1);
}

// ---- identity ----

using GetArchStrings = Archstr;
using MakeBootName = Archstr;

TEST_F(GetArchStrings, ReadsAllFour) {
    fakes::framework().inputs = {{"instruction_set", "KEL4"},
                                 {"implementation_arch", "Kel4M"},
                                 {"os_name", "Quorvel"},
                                 {"os_version", "2.5_B"}};
    char *strings[4] = {};
    EXPECT_EQ(get_arch_strings(&strings[0], &strings[1], &strings[2], &strings[3]), 0);
    const Text owned[4] = {Text(strings[0]), Text(strings[1]), Text(strings[2]), Text(strings[3])};
    EXPECT_STREQ(strings[0], "kel4");
    EXPECT_STREQ(strings[1], "kel4m");
    EXPECT_STREQ(strings[2], "Quorvel");
    EXPECT_STREQ(strings[3], "2.5_B");
}

TEST_F(GetArchStrings, TellsWhichOneIsMissing) {
    const char *names[] = {"instruction_set", "implementation_arch", "os_name", "os_version"};
    for (int missing = 0; missing < 4; ++missing) {
        fakes::framework().inputs = {
            {"instruction_set", "a"}, {"implementation_arch", "b"}, {"os_name", "c"}, {"os_version", "d"}};
        fakes::framework().inputs.erase(names[missing]);
        char *strings[4] = {};
        const int result = get_arch_strings(&strings[0], &strings[1], &strings[2], &strings[3]);
        EXPECT_EQ(result, missing + 1);
        EXPECT_STREQ(arch_xlate(result), names[missing]);
        for (const char *string : strings)
            EXPECT_EQ(string, nullptr); // what was read before is freed and not handed out
    }
}

TEST_F(GetArchStrings, EmptyArgumentsAreRead) {
    fakes::framework().inputs = {
        {"instruction_set", ""}, {"implementation_arch", ""}, {"os_name", ""}, {"os_version", ""}};
    char *strings[4] = {};
    EXPECT_EQ(get_arch_strings(&strings[0], &strings[1], &strings[2], &strings[3]), 0);
    for (char *string : strings) {
        EXPECT_STREQ(string, "");
        std::free(string);
    }
}

TEST(ArchXlate, NamesTheArguments) {
    EXPECT_STREQ(arch_xlate(1), "instruction_set");
    EXPECT_STREQ(arch_xlate(2), "implementation_arch");
    EXPECT_STREQ(arch_xlate(3), "os_name");
    EXPECT_STREQ(arch_xlate(4), "os_version");
    for (const int code : {0, 5, -1, 1'000'000, -2'147'483'647})
        EXPECT_EQ(arch_xlate(code), nullptr) << code;
}

TEST_F(MakeBootName, Release4OfTheOldInstructionSets) {
    EXPECT_STREQ(make_boot_name("4.1.3", "Quorvel", "kel4", "kel4c"), "boot.kel4c.Quorvel.4.1.3");
    EXPECT_STREQ(make_boot_name("4.1.3", "Quorvel", "kel3", "kel3x"), "boot.kel3x.Quorvel.4.1.3");
    EXPECT_STREQ(make_boot_name("4.", "Quorvel", "kel4m", "kel4m"), "boot.kel4m.Quorvel.4.");
}

TEST_F(MakeBootName, EverythingElse) {
    EXPECT_STREQ(make_boot_name("2.5", "Quorvel", "kel4", "kel4m"), "inetboot.kel4m.Quorvel_2.5");
    EXPECT_STREQ(make_boot_name("4.1.3", "Quorvel", "i386", "i86pc"), "inetboot.i86pc.Quorvel_4.1.3");
    EXPECT_STREQ(make_boot_name("4.1.3", "Quorvel", "kel", "kel"), "inetboot.kel.Quorvel_4.1.3");
    EXPECT_STREQ(make_boot_name("4.1.3", "Quorvel", "KEL4", "kel4"), "inetboot.kel4.Quorvel_4.1.3");
    EXPECT_STREQ(make_boot_name("4", "Quorvel", "kel4", "kel4m"), "inetboot.kel4m.Quorvel_4");
    EXPECT_STREQ(make_boot_name("14.1", "Quorvel", "kel4", "kel4m"), "inetboot.kel4m.Quorvel_14.1");
}

TEST_F(MakeBootName, NextCallChangesTheName) {
    const char *first = make_boot_name("2.5", "Quorvel", "kel4", "kel4m");
    const char *second = make_boot_name("4.1.3", "Quorvel", "kel4", std::string(900, 'i').c_str());
    EXPECT_EQ(first, second);
    EXPECT_STREQ(first, ("boot." + std::string(900, 'i') + ".Quorvel.4.1.3").c_str());
}

TEST_F(MakeBootName, NameOfAnyLength) {
    const std::string arch(5000, 'a');
    EXPECT_EQ(make_boot_name("2.5", "Quorvel", "kel4", arch.c_str()), "inetboot." + arch + ".Quorvel_2.5");
}

using GetHostname = Archstr;

TEST_F(GetHostname, EveryCallAsksAnew) {
    get_hostname();
    const std::vector<fakes::SysinfoCall> &calls = fakes::platform().sysinfo_calls;
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].command, 2);
    EXPECT_EQ(calls[0].size, 257);
    EXPECT_STREQ(calls[0].buffer, "server1");
    fakes::platform().sysinfo[2] = "server2";
    get_hostname();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_STREQ(calls[0].buffer, "server2");
}

TEST_F(GetHostname, UnknownNameIsEmpty) {
    get_hostname();
    char *const buffer = fakes::platform().sysinfo_calls.at(0).buffer;
    ASSERT_STRNE(buffer, "");
    fakes::platform().sysinfo.clear();
    get_hostname();
    EXPECT_STREQ(buffer, "");
}

TEST_F(GetHostname, DefaultingRefreshesIt) {
    default_boot_paths("add", "client1", "kel4", "kel4c", "os", "2.5", nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(fakes::platform().sysinfo_calls.size(), 1u);
    default_install_paths("add", "server1", "kel4", "kel4c", "os", "2.5", nullptr, nullptr, nullptr);
    EXPECT_EQ(fakes::platform().sysinfo_calls.size(), 2u);
    get_install_os_pathnames("add", "server1", "/cdrom", "kel4", "kel4c", "os", "1.0");
    EXPECT_EQ(fakes::platform().sysinfo_calls.size(), 3u);
    const Text location(install_bootprog_location("add", "server1", "/cdrom", "kel4", "kel4c", "os", "1.0"));
    EXPECT_EQ(fakes::platform().sysinfo_calls.size(), 5u); // by itself, and by the query that it makes
}

// ---- default_boot_paths ----

class DefaultBootPaths : public Archstr {
protected:
    // Identity and host are those of one client; the paths are each test's matter.
    static void defaults(Path *boot_file, Path *root, Path *swap, Path *dump, const char *version = "2.5") {
        const auto place = [](Path *path) { return path == nullptr ? nullptr : path->place(); };
        default_boot_paths("add", "client1", "kel4", "kel4c", "os", version, place(boot_file), place(root),
                           place(swap), place(dump));
    }
};

TEST_F(DefaultBootPaths, NoPathWantedChecksTheIdentityOnly) {
    defaults(nullptr, nullptr, nullptr, nullptr);
    EXPECT_TRUE(fakes::framework().calls.empty());
}

TEST_F(DefaultBootPaths, EmptyIdentityEndsTheProcess) {
    const auto with = [](const char *set, const char *arch, const char *name, const char *version) {
        default_boot_paths("add", "client1", set, arch, name, version, nullptr, nullptr, nullptr, nullptr);
    };
    EXPECT_EXIT(with("", "", "", ""), exits(), "^recorded 1: 1[|]add[|]instruction_set\n$");
    EXPECT_EXIT(with("s", "", "", ""), exits(), "^recorded 1: 1[|]add[|]implementation_arch\n$");
    EXPECT_EXIT(with("s", "a", "", ""), exits(), "^recorded 1: 1[|]add[|]os_name\n$");
    EXPECT_EXIT(with("s", "a", "n", ""), exits(), "^recorded 1: 1[|]add[|]os_version\n$");
    EXPECT_EXIT(with(nullptr, "a", "n", "v"), exits(), "^recorded 1: 1[|]add[|]instruction_set\n$");
}

TEST_F(DefaultBootPaths, BootFileFollowsFromTheIdentity) {
    for (const bool null : {false, true}) {
        Path old_release(""), new_release("");
        if (null)
            *old_release.place() = *new_release.place() = nullptr;
        defaults(&old_release, nullptr, nullptr, nullptr, "4.1.3");
        defaults(&new_release, nullptr, nullptr, nullptr, "2.5");
        EXPECT_EQ(old_release.text(), "boot.kel4c.os.4.1.3");
        EXPECT_EQ(new_release.text(), "inetboot.kel4c.os_2.5");
    }
}

TEST_F(DefaultBootPaths, GivenBootFileStaysAsItIs) {
    Path boot_file("relative/boot//");
    defaults(&boot_file, nullptr, nullptr, nullptr);
    EXPECT_FALSE(boot_file.replaced());
    EXPECT_EQ(boot_file.text(), "relative/boot//");
}

TEST_F(DefaultBootPaths, TrailingSlashesGoInPlace) {
    Path root("/export/root/client1///"), swap("/export/swap/client1/"), dump("/export/dump/client1//");
    defaults(nullptr, &root, &swap, &dump);
    EXPECT_EQ(root.text(), "/export/root/client1");
    EXPECT_EQ(swap.text(), "/export/swap/client1");
    EXPECT_EQ(dump.text(), "/export/dump/client1");
    EXPECT_FALSE(root.replaced() || swap.replaced() || dump.replaced());
}

TEST_F(DefaultBootPaths, ShortestPath) {
    Path root("/r"), swap("/s/");
    defaults(nullptr, &root, &swap, nullptr);
    EXPECT_EQ(root.text(), "/r");
    EXPECT_EQ(swap.text(), "/s");
}

TEST_F(DefaultBootPaths, RootPathMustBeAbsolute) {
    const auto with = [](const char *text) {
        Path root(text);
        defaults(nullptr, &root, nullptr, nullptr);
    };
    EXPECT_EXIT(with("client1/root/"), exits(), "^recorded 10: 10[|]add[|]client1/root[|]rootpath\n$");
    EXPECT_EXIT(with("/"), exits(), "^recorded 10: 10[|]add[|]/[|]rootpath\n$");
    EXPECT_EXIT(with("///"), exits(), "^recorded 10: 10[|]add[|]/[|]rootpath\n$");
    EXPECT_EXIT(with("r"), exits(), "^recorded 10: 10[|]add[|]r[|]rootpath\n$");
}

TEST_F(DefaultBootPaths, RootDefaultIsRelativeAndFails) {
    const auto with = [](bool null) {
        Path root("");
        if (null)
            *root.place() = nullptr;
        defaults(nullptr, &root, nullptr, nullptr);
    };
    EXPECT_EXIT(with(false), exits(), "^recorded 10: 10[|]add[|]root/client1[|]rootpath\n$");
    EXPECT_EXIT(with(true), exits(), "^recorded 10: 10[|]add[|]root/client1[|]rootpath\n$");
}

TEST_F(DefaultBootPaths, SwapPathMustBeAbsolute) {
    const auto with = [](const char *text) {
        Path root("/r"), swap(text);
        defaults(nullptr, &root, &swap, nullptr);
    };
    EXPECT_EXIT(with("swap/c1"), exits(), "^recorded 10: 10[|]add[|]swap/c1[|]swappath\n$");
    EXPECT_EXIT(with("/"), exits(), "^recorded 10: 10[|]add[|]/[|]swappath\n$");
    EXPECT_EXIT(with(""), exits(), "^recorded 10: 10[|]add[|]swap/client1[|]swappath\n$");
}

TEST_F(DefaultBootPaths, DumpPathThatIsNoneOfItsOwnComesBackEmpty) {
    for (const char *text : {"", "/export/swap/c1", "client1", "/export/swap/c1/"}) {
        Path swap("/export/swap/c1/"), dump(text);
        defaults(nullptr, nullptr, &swap, &dump);
        // Trailing slashes of the swap path are gone by then, also from the string that the caller gave.
        EXPECT_EQ(dump.text(), std::strcmp(text, "/export/swap/c1/") == 0 ? "/export/swap/c1" : "") << text;
    }
    Path swap("/s"), dump;
    defaults(nullptr, nullptr, &swap, &dump);
    EXPECT_EQ(dump.text(), "");
}

TEST_F(DefaultBootPaths, RelativeDumpPathIsAccepted) {
    Path swap("/export/swap/c1"), dump("dump/x");
    defaults(nullptr, nullptr, &swap, &dump);
    EXPECT_EQ(dump.text(), "dump/x");
    EXPECT_FALSE(dump.replaced());
}

TEST_F(DefaultBootPaths, ShortDumpPathNamesTheSwapPath) {
    const auto with = [](const char *text) {
        Path swap("/export/swap/c1"), dump(text);
        defaults(nullptr, nullptr, &swap, &dump);
    };
    EXPECT_EXIT(with("/"), exits(), "^recorded 10: 10[|]add[|]/export/swap/c1[|]dumppath\n$");
    EXPECT_EXIT(with("//"), exits(), "^recorded 10: 10[|]add[|]/export/swap/c1[|]dumppath\n$");
    EXPECT_EXIT(with("d"), exits(), "^recorded 10: 10[|]add[|]/export/swap/c1[|]dumppath\n$");
}

TEST_F(DefaultBootPaths, DumpPathWithoutSwapPathIsRefused) {
    const auto with = [] {
        Path dump("/export/dump/c1");
        defaults(nullptr, nullptr, nullptr, &dump);
    };
    EXPECT_EXIT(with(), exits(), "^recorded 10: 10[|]add[|][|]dumppath\n$");
    Path none("");
    defaults(nullptr, nullptr, nullptr, &none);
    EXPECT_EQ(none.text(), "");
}

TEST_F(DefaultBootPaths, PathsOfAnyLength) {
    const std::string host(5000, 'h');
    const auto with = [&] {
        Path root;
        default_boot_paths("add", host.c_str(), "kel4", "kel4c", "os", "2.5", nullptr, root.place(), nullptr,
                           nullptr);
    };
    EXPECT_EXIT(with(), exits(), "^recorded 10: 10[|]add[|]root/h{200}");
}

// ---- install paths ----

class InstallPaths : public Archstr {
protected:
    void SetUp() override {
        Archstr::SetUp();
        // The answer is kept for the whole process: each test asks for an identity of its own.
        version = "2." + std::to_string(++tests_run);
        fakes::framework().rows = {{{"root_path", "/cdrom/root"}, {"boot_prog", "/cdrom/boot"}}};
    }
    std::string location(const char *hierarchy = "/cdrom") const {
        const Text found(
            install_bootprog_location("add", "server1", hierarchy, "kel4", "kel4c", "os", version.c_str()));
        return found == nullptr ? "(NULL)" : found.get();
    }
    int query() const {
        return get_install_os_pathnames("add", "server1", "/cdrom", "kel4", "kel4c", "os", version.c_str());
    }
    void defaults(Path *hierarchy, Path *boot_file, Path *root) const {
        const auto place = [](Path *path) { return path == nullptr ? nullptr : path->place(); };
        default_install_paths("add", "server1", "kel4", "kel4c", "os", version.c_str(), place(hierarchy),
                              place(boot_file), place(root));
    }
    static int queries() { return static_cast<int>(fakes::framework().performed.size()); }

    std::string version;
    static inline int tests_run = 0;
};

TEST(InstallPathsFirst, EmptyIdentityIsAnsweredBeforeAnyQuery) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // a fresh process: nothing was queried yet
    EXPECT_EXIT(
        {
            const int status = get_install_os_pathnames("add", "server1", "/cdrom", "", "", "", "");
            const Text location(install_bootprog_location("add", "server1", "/cdrom", "", "", "", ""));
            const bool as_it_began = std::strcmp(location.get(), "uninitialized") == 0;
            std::_Exit(status == 0 && as_it_began && fakes::framework().performed.empty() ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(InstallPaths, AsksTheInstallMethod) {
    EXPECT_EQ(location(), "/cdrom/boot");
    ASSERT_EQ(queries(), 1);
    const fakes::Performed &call = fakes::framework().performed[0];
    EXPECT_EQ(call.method, "get_os_pathnames");
    EXPECT_EQ(call.method_class, "install");
    EXPECT_EQ(call.host, "server1");
    const std::vector<std::pair<std::string, std::string>> input = {{"inst_set_arch", "kel4"},
                                                                    {"imp_arch", "kel4c"},
                                                                    {"os_prod", "os"},
                                                                    {"os_version", version},
                                                                    {"dirpath", "/cdrom"}};
    EXPECT_EQ(call.input, input);
}

TEST_F(InstallPaths, AnswerIsKeptByIdentityAlone) {
    EXPECT_EQ(location("/first"), "/cdrom/boot");
    fakes::framework().rows = {{{"root_path", "/other/root"}, {"boot_prog", "/other/boot"}}};
    EXPECT_EQ(location("/second"), "/cdrom/boot");
    EXPECT_EQ(get_install_os_pathnames("add", "server2", "/third", "kel4", "kel4c", "os", version.c_str()),
              0);
    EXPECT_EQ(queries(), 1);
    version += "x";
    EXPECT_EQ(location("/second"), "/other/boot");
    EXPECT_EQ(queries(), 2);
}

TEST_F(InstallPaths, OnlyTheLastIdentityIsRemembered) {
    const std::string first = version;
    query();
    version = first + "x";
    query();
    version = first;
    query();
    EXPECT_EQ(queries(), 3);
}

TEST_F(InstallPaths, MissingPathsOfTheAnswerAreEmpty) {
    fakes::framework().rows = {{{"root_path", "/cdrom/root"}}};
    EXPECT_EQ(location(), "");
}

TEST_F(InstallPaths, LocationBelongsToTheCaller) {
    char *first = install_bootprog_location("add", "s", "/cdrom", "kel4", "kel4c", "os", version.c_str());
    char *second = install_bootprog_location("add", "s", "/cdrom", "kel4", "kel4c", "os", version.c_str());
    EXPECT_NE(first, second);
    std::free(first);
    std::free(second);
}

TEST_F(InstallPaths, QueryThatCannotBeRunEndsTheProcess) {
    std::atexit([] {
        if (fakes::framework().handles != 0 || fakes::framework().error_handles != 0)
            std::_Exit(77);
    });
    fakes::framework().perform_status = 5;
    fakes::framework().perform_error = "no such method";
    EXPECT_EXIT(query(), exits(), "^recorded 56: 56[|]add[|]get_os_pathnames[|]server1[|]no such method\n$");
    EXPECT_EXIT(location(), exits(), "^recorded 56: ");
}

TEST_F(InstallPaths, AnswerWithoutRowsEndsTheProcess) {
    fakes::framework().result_flags = 1u | 4u;
    EXPECT_EXIT(query(), exits(),
                "^recorded 66: 66[|]add[|]server1[|]kel4[|]kel4c[|]os[|]" + version + "\ncleanup 1\n$");
}

TEST_F(InstallPaths, FailedQueryIsNotRemembered) {
    fakes::framework().perform_status = 1;
    EXPECT_EXIT(query(), exits(), "^recorded 56: ");
    fakes::framework().perform_status = 0;
    query();
    EXPECT_EQ(queries(), 1);
}

TEST_F(InstallPaths, EmptyIdentityEndsTheProcess) {
    const auto with = [](const char *set, const char *arch, const char *name, const char *os_version) {
        default_install_paths("add", "server1", set, arch, name, os_version, nullptr, nullptr, nullptr);
    };
    EXPECT_EXIT(with("", "", "", ""), exits(), "^recorded 1: 1[|]add[|]instruction_set\n$");
    EXPECT_EXIT(with("s", "", "", ""), exits(), "^recorded 1: 1[|]add[|]implementation_arch\n$");
    EXPECT_EXIT(with("s", "a", "", ""), exits(), "^recorded 1: 1[|]add[|]os_name\n$");
    EXPECT_EXIT(with("s", "a", "n", nullptr), exits(), "^recorded 1: 1[|]add[|]os_version\n$");
}

TEST_F(InstallPaths, NoPathWantedChecksTheIdentityOnly) {
    defaults(nullptr, nullptr, nullptr);
    EXPECT_TRUE(fakes::framework().calls.empty());
}

TEST_F(InstallPaths, EmptyHierarchyIsTheCdromAndIsPublished) {
    Path empty(""), null;
    defaults(&empty, nullptr, nullptr);
    EXPECT_EQ(empty.text(), "/cdrom/cdrom0/s0");
    EXPECT_EQ(fakes::framework().outputs["install_hierarchy"], "/cdrom/cdrom0/s0");
    fakes::framework().outputs.clear();
    defaults(&null, nullptr, nullptr);
    EXPECT_EQ(null.text(), "/cdrom/cdrom0/s0");
    EXPECT_EQ(fakes::framework().outputs["install_hierarchy"], "/cdrom/cdrom0/s0");
}

TEST_F(InstallPaths, GivenHierarchyIsStrippedAndNotPublished) {
    Path hierarchy("/cdrom/cdrom0/s0///"), slash("/");
    defaults(&hierarchy, nullptr, nullptr);
    EXPECT_EQ(hierarchy.text(), "/cdrom/cdrom0/s0");
    EXPECT_FALSE(hierarchy.replaced());
    defaults(&slash, nullptr, nullptr);
    EXPECT_EQ(slash.text(), "/");
    EXPECT_TRUE(fakes::framework().outputs.empty());
}

TEST_F(InstallPaths, HierarchyMustBeAbsolute) {
    const auto with = [&] {
        Path hierarchy("cdrom/s0/");
        defaults(&hierarchy, nullptr, nullptr);
    };
    EXPECT_EXIT(with(), exits(), "^recorded 10: 10[|]add[|]cdrom/s0[|]install_hierarchy\n$");
}

TEST_F(InstallPaths, BootFileFollowsFromTheIdentity) {
    Path empty(""), given("my/boot/");
    defaults(nullptr, &empty, nullptr);
    EXPECT_EQ(empty.text(), "inetboot.kel4c.os_" + version);
    defaults(nullptr, &given, nullptr);
    EXPECT_EQ(given.text(), "my/boot/");
}

TEST_F(InstallPaths, EmptyRootPathIsAskedForAndPublished) {
    Path hierarchy("/cdrom"), empty(""), null;
    defaults(&hierarchy, nullptr, &empty);
    EXPECT_EQ(empty.text(), "/cdrom/root");
    EXPECT_EQ(fakes::framework().outputs["rootpath"], "/cdrom/root");
    EXPECT_EQ(queries(), 1);
    defaults(&hierarchy, nullptr, &null);
    EXPECT_EQ(null.text(), "/cdrom/root");
    EXPECT_EQ(queries(), 1);
}

TEST_F(InstallPaths, GivenRootPathIsStrippedAndNotPublished) {
    Path root("/export/root//"), slashes("///");
    defaults(nullptr, nullptr, &root);
    defaults(nullptr, nullptr, &slashes);
    EXPECT_EQ(root.text(), "/export/root");
    EXPECT_EQ(slashes.text(), "/");
    EXPECT_TRUE(fakes::framework().outputs.empty());
    EXPECT_EQ(queries(), 0);
}

TEST_F(InstallPaths, RootPathMustBeAbsolute) {
    const auto given = [&] {
        Path root("export/root/");
        defaults(nullptr, nullptr, &root);
    };
    EXPECT_EXIT(given(), exits(), "^recorded 10: 10[|]add[|]export/root[|]rootpath\n$");
    fakes::framework().rows = {{{"root_path", "relative"}, {"boot_prog", "/cdrom/boot"}}};
    const auto asked = [&] {
        Path hierarchy("/cdrom"), root("");
        defaults(&hierarchy, nullptr, &root);
    };
    EXPECT_EXIT(asked(), exits(), "^recorded 10: 10[|]add[|]relative[|]rootpath\n$");
}

TEST_F(InstallPaths, EmptyRootPathNeedsAHierarchy) {
    const auto with = [&] {
        Path root("");
        defaults(nullptr, nullptr, &root);
    };
    EXPECT_EXIT(with(), exits(), "^recorded 10: 10[|]add[|][|]install_hierarchy\n$");
}

} // namespace

TEST(AtExit, BootNameIsStillReadable) {
    EXPECT_EXIT(
        {
            static const char *name;
            // Registered before the library makes anything, so that it runs after whatever that would destroy.
            std::atexit([] {
                _exit(std::strcmp(name, "inetboot.kel4m.Quorvel_2.5") == 0 &&
                              make_boot_name("2.5", "Quorvel", "kel4", "kel4c") == name
                          ? 0
                          : 3);
            });
            name = make_boot_name("2.5", "Quorvel", "kel4", "kel4m");
            std::exit(1);
        },
        testing::ExitedWithCode(0), "");
}
