// SPDX-License-Identifier: MIT
// The methods that list, set and remove boot parameters, run by the command.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "support/run_method.hpp"
#include "support/standin.hpp"
#include "support/text_files.hpp"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using tests::hostadm;
using tests::Outcome;

constexpr const char *table = "/etc/bootparams";

class BootparamsMethods : public testing::Test {
protected:
    void SetUp() override { fs::remove(table); }

    static void write(const std::string &text) { std::ofstream(table) << text; }
    static std::string content() { return tests::content(table); }
    static std::vector<std::string> lines() {
        std::vector<std::string> all;
        std::istringstream file(content());
        for (std::string line; std::getline(file, line);)
            all.push_back(line);
        return all;
    }
    // A run that must do its work and say whether there was anything to change.
    static void changes(const std::string &arguments, const std::string &changed) {
        const Outcome run = hostadm("run database/" + arguments);
        EXPECT_EQ(run.status, 0) << run.output;
        EXPECT_EQ(run.output, "changed  " + changed + "\n");
    }
    // A run that must be refused before it changes anything.
    static void refused(const std::string &arguments, const std::string &text) {
        const std::string before = content();
        const Outcome run = hostadm("run database/" + arguments);
        EXPECT_EQ(run.status, 2) << run.output;
        EXPECT_THAT(run.output, HasSubstr(text));
        EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), 1) << run.output;
        EXPECT_EQ(content(), before);
    }
};

TEST_F(BootparamsMethods, ListsTheFile) {
    write("# clients\nc1 root=srv:/r \\\n\tswap=srv:/s\nc2 boottype=:in\n");
    const Outcome run = hostadm("run database/list_bootparams");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "hostname  filesystems\n"
                          "c1        root=srv:/r swap=srv:/s\n"
                          "c2        boottype=:in\n");
}

TEST_F(BootparamsMethods, MissingFileListsNothing) {
    const Outcome run = hostadm("run database/list_bootparams");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "");
}

TEST_F(BootparamsMethods, FileThatCannotBeReadIsAnError) {
    fs::create_directory(table);
    const Outcome run = hostadm("run database/list_bootparams");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, HasSubstr("/etc/bootparams cannot be read: Is a directory"));
}

TEST_F(BootparamsMethods, ListsTheNameServices) {
    standin::reset();
    standin::place("/usr/bin/ypcat", {.output = "c1 root=srv:/r swap=srv:/s\n"});
    standin::place("/usr/bin/niscat", {.output = "c2 root=srv:/r2\n"});
    EXPECT_EQ(hostadm("run database/list_bootparams nameservice=nis").output,
              "hostname  filesystems\nc1        root=srv:/r swap=srv:/s\n");
    EXPECT_EQ(hostadm("run database/list_bootparams nameservice=nis_plus").output,
              "hostname  filesystems\nc2        root=srv:/r2\n");
    EXPECT_EQ(standin::lines(), (std::vector<std::string>{"/usr/bin/ypcat -k bootparams",
                                                          "/usr/bin/niscat bootparams.org_dir"}));
    standin::answer("/usr/bin/ypcat", {.error = "ypcat: can't get local yp domain\n", .status = 1});
    const Outcome failing = hostadm("run database/list_bootparams nameservice=nis");
    EXPECT_EQ(failing.status, 1);
    EXPECT_THAT(failing.output, HasSubstr("can't get local yp domain"));
    fs::remove("/usr/bin/ypcat");
    fs::remove("/usr/bin/niscat");
}

TEST_F(BootparamsMethods, ListsAllSourcesAtOnceAndNamesThem) {
    write("c1 root=srv:/r\n");
    standin::reset();
    standin::place("/usr/bin/ypcat", {.output = "c1 root=master:/r\n"});
    const Outcome run = hostadm("run database/list_bootparams nameservice=all");
    fs::remove("/usr/bin/ypcat");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "not_seen  NIS+ needs the command niscat, which is not installed on this host\n\n"
                          "hostname  filesystems     source\n"
                          "c1        root=srv:/r     ufs\n"
                          "c1        root=master:/r  nis\n");
    fs::remove(table);
    fs::create_directory(table);
    EXPECT_EQ(hostadm("run database/list_bootparams nameservice=all").status, 1)
        << "the file is always asked";
}

TEST_F(BootparamsMethods, NameServiceWithoutItsCommandIsAnError) {
    for (const char *service : {"nis", "nis_plus"}) {
        const Outcome run = hostadm("run database/list_bootparams nameservice=" + std::string(service));
        EXPECT_EQ(run.status, 1);
        EXPECT_THAT(run.output, HasSubstr("which is not installed"));
    }
}

TEST_F(BootparamsMethods, SetsOneItem) {
    write("c0 root=a:/r\n");
    changes("set_bootparams client=c1 key=root server=srv path=/export/root/c1", "yes");
    EXPECT_EQ(content(), "c0 root=a:/r\nc1 root=srv:/export/root/c1\n");
    changes("set_bootparams client=c1 key=root server=srv path=/export/root/c1", "no");
    changes("set_bootparams client=c1 key=swapsize path=24", "yes");
    EXPECT_EQ(content(), "c0 root=a:/r\nc1 root=srv:/export/root/c1 swapsize=:24\n");
}

TEST_F(BootparamsMethods, SetsSeveralItems) {
    changes("set_bootparams client=c1 'items=root=srv:/r swap=srv:/s'", "yes");
    EXPECT_EQ(content(), "c1 root=srv:/r swap=srv:/s\n");
    EXPECT_EQ(fs::status(table).permissions(), fs::perms(0644));
}

TEST_F(BootparamsMethods, UnchangedFileIsNotWritten) {
    write("c1 root=srv:/r");
    struct stat before {
    }, after{};
    stat(table, &before);
    changes("set_bootparams client=c1 key=root server=srv path=/r", "no");
    changes("remove_bootparams client=c2", "no");
    stat(table, &after);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(content(), "c1 root=srv:/r");
}

TEST_F(BootparamsMethods, RemovesOneItemOrTheEntry) {
    write("# head\nc1 root=srv:/r swap=srv:/s # note\nc2\n");
    changes("remove_bootparams client=c1 key=root", "yes");
    EXPECT_EQ(content(), "# head\nc1 swap=srv:/s # note\nc2\n");
    changes("remove_bootparams client=c1 key=root", "no");
    changes("remove_bootparams client=c1", "yes");
    EXPECT_EQ(content(), "# head\nc2\n");
    changes("remove_bootparams client=c1", "no");
}

TEST_F(BootparamsMethods, MissingFileHasNothingToRemove) {
    changes("remove_bootparams client=c1", "no");
    EXPECT_FALSE(fs::exists(table));
}

TEST_F(BootparamsMethods, RefusesWhatDoesNotFit) {
    write("c1 root=srv:/r\n");
    refused("set_bootparams client=c1", "nothing to set");
    refused("set_bootparams client=c1 key=root", "needs a path");
    refused("set_bootparams client=c1 path=/x", "give key");
    refused("set_bootparams client=c1 key=root path=/x items=a=b", "give one or the other");
    refused("set_bootparams client=c1 server=srv items=a=b", "give one or the other");
    refused("set_bootparams client=c1 path=/x items=a=b", "give one or the other");
    refused("set_bootparams client=c1 items=root", "root is no item");
    refused("set_bootparams client=c1 'items=root=a:/x root=b:/x'", "given twice");
    refused("set_bootparams client=c1 'items= '", "nothing to set");
    refused("set_bootparams client=c1 key=root 'path=/a b'", "blanks");
    refused("set_bootparams client=c1 key=root server=srv 'path=/x;reboot'", "the shell");
    refused("set_bootparams client=c1 'items=root=srv:/x$(reboot)'", "the shell");
    refused("set_bootparams client=c1 key=root 'server=srv;reboot' path=/x", "server");
    refused("set_bootparams client=c1 key=root server=srv path=/export/../etc", "\"..\"");
    refused("set_bootparams client=c1 key=a:b path=/x", "the key");
    refused("set_bootparams client='c 1' key=root path=/x", "client");
    refused("set_bootparams key=root path=/x", "client is missing");
    refused("set_bootparams client=c1 key=root path=/x nameservice=nis", "only be ufs");
    refused("remove_bootparams client=c1 nameservice=nis_plus", "only be ufs");
    refused("remove_bootparams client=c1 nameservice=dns", "nameservice");
}

TEST_F(BootparamsMethods, LinkToTheFileStaysALink) {
    std::ofstream("/etc/bootparams.real") << "c1 root=a:/r\n";
    fs::create_symlink("bootparams.real", table);
    changes("set_bootparams client=c1 key=root server=srv path=/r", "yes");
    EXPECT_TRUE(fs::is_symlink(table));
    EXPECT_EQ(content(), "c1 root=srv:/r\n");
}

TEST_F(BootparamsMethods, ManyAtOnceLoseNothing) {
    constexpr int editors = 64;
    write("# head \\\nkept root=a:/r \\\n\tswap=a:/s\n\ngone0 root=a:/r");
    std::vector<pid_t> children;
    for (int i = 0; i < editors; ++i) {
        const pid_t child = fork();
        ASSERT_NE(child, -1);
        if (child == 0) {
            const std::string name = std::string("c").append(std::to_string(i));
            const bool good =
                hostadm("run database/set_bootparams client=" + name + " key=root server=s path=/r").status ==
                    0 &&
                hostadm("run database/set_bootparams client=" + name + " key=swap server=s path=/s").status ==
                    0;
            _exit(good ? 0 : 1);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    std::vector<std::string> expected = {"# head \\", "kept root=a:/r \\", "\tswap=a:/s", "",
                                         "gone0 root=a:/r"};
    std::vector<std::string> found = lines();
    ASSERT_EQ(found.size(), expected.size() + editors);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), found.begin()));
    std::vector<std::string> added(found.begin() + static_cast<std::ptrdiff_t>(expected.size()), found.end());
    std::vector<std::string> wanted;
    for (int i = 0; i < editors; ++i)
        wanted.push_back(std::string("c").append(std::to_string(i)).append(" root=s:/r swap=s:/s"));
    EXPECT_THAT(added, testing::UnorderedElementsAreArray(wanted));
}

} // namespace
