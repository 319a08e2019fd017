// SPDX-License-Identifier: MIT
// Roots are made for real in a temporary folder; mkdir, chown and rmdir pass through here, so that a test can
// let one of them fail and see the order of the others.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "hostadm.h"
#include "support/fake_commands.hpp"
#include "support/fake_framework.hpp"
#include "support/text_files.hpp"

using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::IsEmpty;
using testing::MatchesRegex;
using tests::content;
namespace fs = std::filesystem;

namespace {

std::vector<std::string> calls;              // "mkdir PATH", "chown PATH UID:GID", "rmdir PATH"
std::map<std::string, int> failures;         // errno by the text of a call
std::vector<std::string> commands;           // what do_systemcmd was given, with "METHOD: " before it
std::map<std::string, int> command_statuses; // by a part of the command
std::string root;                            // the root under test; noted paths are relative to it
std::string admin_text;                      // the admin file as the last command found it
int admin_mode;
const char *refused_line; // fputs writes nothing of it

std::string relative(const char *path) {
    const std::string whole = path;
    return !root.empty() && whole.rfind(root, 0) == 0 ? whole.substr(root.size()) : whole;
}

int fails(const std::string &call) {
    calls.push_back(call);
    const auto found = failures.find(call);
    return found == failures.end() ? 0 : found->second;
}

template <typename Function> Function *real(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

std::set<std::string> admin_files() {
    std::set<std::string> found;
    for (const auto &entry : fs::directory_iterator("/tmp"))
        if (entry.path().filename().string().rfind("admin.", 0) == 0)
            found.insert(entry.path());
    return found;
}

constexpr const char *admin_lines = "mail=\n"
                                    "instance=unique\n"
                                    "partial=nocheck\n"
                                    "runlevel=nocheck\n"
                                    "idepend=nocheck\n"
                                    "rdepend=nocheck\n"
                                    "space=quit\n"
                                    "setuid=nocheck\n"
                                    "conflict=nocheck\n"
                                    "action=nocheck\n"
                                    "basedir=/\n";

} // namespace

extern "C" {

int mkdir(const char *path, mode_t mode) noexcept {
    if (const int why = fails("mkdir " + relative(path)); why != 0) {
        errno = why;
        return -1;
    }
    return real<int(const char *, mode_t)>("mkdir")(path, mode);
}

int chown(const char *path, uid_t owner, gid_t group) noexcept {
    if (const int why =
            fails("chown " + relative(path) + " " + std::to_string(owner) + ":" + std::to_string(group));
        why != 0) {
        errno = why;
        return -1;
    }
    return geteuid() == 0 ? real<int(const char *, uid_t, gid_t)>("chown")(path, owner, group) : 0;
}

int rmdir(const char *path) noexcept {
    fails("rmdir " + relative(path));
    const int status = real<int(const char *)>("rmdir")(path);
    errno = EBUSY; // must not hide what went wrong before
    return status;
}

int fputs(const char *text, FILE *stream) {
    if (refused_line != nullptr && std::string(text) == refused_line)
        return 0;
    return real<int(const char *, FILE *)>("fputs")(text, stream);
}

int do_systemcmd(const char *command, const char *method) {
    commands.push_back(std::string(method) + ": " + command);
    const std::string text = command;
    if (const auto at = text.find("/tmp/admin."); at != std::string::npos) {
        const std::string admin = text.substr(at, text.find(' ', at) - at);
        admin_text = content(admin);
        struct stat status {};
        stat(admin.c_str(), &status);
        admin_mode = status.st_mode;
    }
    for (const auto &[part, status] : command_statuses)
        if (text.find(part) != std::string::npos)
            return status;
    return 0;
}
}

namespace {

class CreateClntRoot : public testing::Test {
protected:
    void SetUp() override {
        fakes::reset_all();
        char name[] = "/tmp/hostadm-root-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        folder_ = name;
        root.clear();
        fs::create_directory(folder_ / "c1");
        root = folder_ / "c1";
        calls.clear();
        failures.clear();
        commands.clear();
        command_statuses.clear();
        admin_text.clear();
        refused_line = nullptr;
        before_ = admin_files();
    }
    void TearDown() override {
        for (const std::string &file : new_admin_files())
            unlink(file.c_str());
        fs::remove_all(folder_);
    }
    // What this test has left of admin files so far.
    std::vector<std::string> new_admin_files() {
        std::vector<std::string> left;
        for (const std::string &file : admin_files())
            if (before_.count(file) == 0)
                left.push_back(file);
        return left;
    }
    int create(const char *version = "2.5", const package_source *sources = nullptr) {
        const char *const service[] = {"unused", "Quorvel", version};
        return create_clnt_root(root.c_str(), service, sources);
    }
    std::vector<std::string> left_in_root() {
        std::vector<std::string> left;
        for (const auto &entry : fs::recursive_directory_iterator(root))
            left.push_back(relative(entry.path().c_str()));
        std::sort(left.begin(), left.end());
        return left;
    }
    static std::vector<std::string> removals() {
        std::vector<std::string> found;
        for (const std::string &call : calls)
            if (call.rfind("rmdir", 0) == 0)
                found.push_back(call);
        return found;
    }
    static std::vector<std::string> &quiet_commands() { return fakes::commands().lines; }

    fs::path folder_;

private:
    std::set<std::string> before_;
};

using CreateClntRootExits = CreateClntRoot;

constexpr const char *everything[] = {"/usr", "/var", "/var/sadm", "/var/sadm/install_data",
                                      "/var/sadm/softinfo"};
const std::vector<std::string> all_removals = {"rmdir /var/sadm/install_data", "rmdir /var/sadm/softinfo",
                                               "rmdir /var/sadm", "rmdir /var", "rmdir /usr"};

} // namespace

TEST_F(CreateClntRoot, TheEnvironmentIsMadeInOrderWithOwnerAndGroup) {
    const mode_t mask = umask(0);
    EXPECT_EQ(setup_environment(root.c_str()), 0);
    umask(mask);
    EXPECT_THAT(calls, ElementsAre("mkdir /var", "chown /var 0:3", "mkdir /var/sadm", "chown /var/sadm 0:3",
                                   "mkdir /var/sadm/softinfo", "chown /var/sadm/softinfo 0:3",
                                   "mkdir /var/sadm/install_data", "chown /var/sadm/install_data 0:3",
                                   "mkdir /usr", "chown /usr 0:3"));
    for (const char *directory : everything) {
        struct stat status {};
        ASSERT_EQ(stat((root + directory).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0775u) << directory;
        EXPECT_TRUE(status.st_gid == 3 || geteuid() != 0) << directory;
    }
}

TEST_F(CreateClntRoot, AnExistingDirectoryIsAcceptedAndChangesHands) {
    fs::create_directory(root + "/var");
    calls.clear();
    EXPECT_EQ(setup_environment(root.c_str()), 0);
    EXPECT_EQ(calls[0], "mkdir /var");
    EXPECT_EQ(calls[1], "chown /var 0:3");
}

TEST_F(CreateClntRoot, AFailingDirectoryTakesTheEarlierOnesAway) {
    const struct {
        const char *failing;
        std::vector<std::string> removed;
    } rows[] = {
        {"/var", {}},
        {"/var/sadm", {"rmdir /var"}},
        {"/var/sadm/softinfo", {"rmdir /var/sadm", "rmdir /var"}},
        {"/var/sadm/install_data", {"rmdir /var/sadm/softinfo", "rmdir /var/sadm", "rmdir /var"}},
        {"/usr",
         {"rmdir /var/sadm/install_data", "rmdir /var/sadm/softinfo", "rmdir /var/sadm", "rmdir /var"}},
    };
    for (const auto &[failing, removed] : rows) {
        calls.clear();
        failures = {{std::string("mkdir ") + failing, ENOSPC}};
        EXPECT_EQ(setup_environment(root.c_str()), ENOSPC) << failing;
        EXPECT_EQ(removals(), removed) << failing;
        EXPECT_THAT(left_in_root(), IsEmpty()) << failing;
        EXPECT_THAT(new_admin_files(), IsEmpty()) << failing;
    }
}

TEST_F(CreateClntRoot, AMissingRootIsReportedWithItsErrno) {
    fs::remove(root);
    EXPECT_EQ(setup_environment(root.c_str()), ENOENT);
    EXPECT_EQ(create(), ENOENT);
    EXPECT_THAT(commands, IsEmpty());
}

TEST_F(CreateClntRoot, ADirectoryThatCannotChangeHandsIsRemovedAgain) {
    failures["chown /var 0:3"] = EROFS;
    EXPECT_EQ(mkdir_chown(root.c_str(), "/var", 0775, 0, 3), EROFS);
    EXPECT_THAT(calls, ElementsAre("mkdir /var", "chown /var 0:3", "rmdir /var"));
    EXPECT_THAT(left_in_root(), IsEmpty());
}

TEST_F(CreateClntRoot, AnOldDirectoryThatCannotChangeHandsGoesOnlyWhenEmpty) {
    failures["chown /var 0:3"] = EPERM;
    fs::create_directories(root + "/var/mail");
    EXPECT_EQ(mkdir_chown(root.c_str(), "/var", 0775, 0, 3), EPERM);
    EXPECT_THAT(left_in_root(), ElementsAre("/var", "/var/mail"));
    fs::remove(root + "/var/mail");
    EXPECT_EQ(mkdir_chown(root.c_str(), "/var", 0775, 0, 3), EPERM);
    EXPECT_THAT(left_in_root(), IsEmpty());
}

TEST_F(CreateClntRoot, MkdirChownUsesTheModeAndOwnersItIsGiven) {
    EXPECT_EQ(mkdir_chown(root.c_str(), "/private", 0700, 1, 2), 0);
    EXPECT_EQ(calls.back(), "chown /private 1:2");
    struct stat status {};
    ASSERT_EQ(stat((root + "/private").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700u);
}

TEST_F(CreateClntRoot, ARootLongerThanAPathBufferIsAnErrorNotATruncation) {
    const std::string deep = root + std::string(5000, 'x');
    EXPECT_EQ(mkdir_chown(deep.c_str(), "/var", 0775, 0, 3), ENAMETOOLONG);
}

TEST_F(CreateClntRoot, TheAdminFileAsksNothingAndOnlyItsOwnerWritesIt) {
    EXPECT_EQ(setup_environment(root.c_str()), 0);
    const auto files = new_admin_files();
    ASSERT_EQ(files.size(), 1u);
    const std::string &file = files.front();
    EXPECT_THAT(file, MatchesRegex("/tmp/admin\\.[A-Za-z0-9]{6}"));
    EXPECT_EQ(content(file), admin_lines);
    EXPECT_EQ(fs::status(file).permissions() & (fs::perms::group_write | fs::perms::others_write),
              fs::perms::none);
}

TEST_F(CreateClntRoot, AnAdminFileThatCannotBeWrittenTakesTheDirectoriesAway) {
    const rlimit small{20, RLIM_INFINITY}; // room for the first line, not for the second
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const int status = setup_environment(root.c_str());
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(status, -1);
    EXPECT_EQ(removals(), all_removals);
    EXPECT_THAT(left_in_root(), IsEmpty());
    EXPECT_THAT(new_admin_files(), IsEmpty());
}

TEST_F(CreateClntRoot, EveryLineOfTheAdminFileMustBeWritten) {
    for (const char *line : {"mail=\n", "space=quit\n", "basedir=/\n"}) {
        refused_line = line;
        EXPECT_EQ(setup_environment(root.c_str()), -1) << line;
        EXPECT_THAT(left_in_root(), IsEmpty()) << line;
        EXPECT_THAT(new_admin_files(), IsEmpty()) << line;
    }
    EXPECT_EQ(create(), -1);
    EXPECT_THAT(quiet_commands(), IsEmpty());
}

TEST_F(CreateClntRoot, AnAdminFileThatCannotBeOpenedLeavesTheDirectories) {
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const int next = dup(0);
    close(next);
    const rlimit none{static_cast<rlim_t>(next), before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const int status = setup_environment(root.c_str());
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(status, -1);
    EXPECT_THAT(left_in_root(), testing::ElementsAreArray(everything));
    EXPECT_THAT(new_admin_files(), IsEmpty());
}

TEST_F(CreateClntRoot, EverySourceIsInstalledInOrderThenTheCatalogueCopied) {
    package_source second{nullptr, "/spool/two"};
    const package_source first{&second, "/spool/one"};
    EXPECT_EQ(create("2.5", &first), 0);
    ASSERT_EQ(new_admin_files().size(), 1u) << "the admin file stays";
    const std::string admin = new_admin_files().front();
    EXPECT_THAT(commands, ElementsAre("create_clnt_root: /usr/sbin/pkgadd -S -n -R " + root + " -a " + admin +
                                          " -d /spool/one all",
                                      "create_clnt_root: /usr/sbin/pkgadd -S -n -R " + root + " -a " + admin +
                                          " -d /spool/two all"));
    EXPECT_EQ(admin_text, admin_lines);
    EXPECT_EQ(admin_mode & 0777, 0600);
    EXPECT_THAT(quiet_commands(),
                ElementsAre("set -f ; /bin/cp /export/Quorvel_2.5/var/sadm/system/admin/.clustertoc " + root +
                                "/var/sadm/system/admin/.clustertoc >> /dev/null 2>&1",
                            "set -f ; /bin/cp /export/Quorvel_2.5/var/sadm/system/admin/CLUSTER " + root +
                                "/var/sadm/system/admin/CLUSTER >> /dev/null 2>&1",
                            "set -f ; /bin/cp /export/Quorvel_2.5/var/sadm/system/admin/INST_RELEASE " +
                                root + "/var/sadm/system/admin/INST_RELEASE >> /dev/null 2>&1"));
    EXPECT_THAT(removals(), IsEmpty());
}

TEST_F(CreateClntRoot, WithoutSourcesOnlyTheCatalogueIsCopied) {
    EXPECT_EQ(create(), 0);
    EXPECT_THAT(commands, IsEmpty());
    EXPECT_EQ(quiet_commands().size(), 3u);
}

TEST_F(CreateClntRoot, AnOlderServicesCatalogueIsCopiedFromWhereItLies) {
    fakes::commands().answers = {{.contains = "/bin/cp", .status = 256}};
    EXPECT_EQ(create(), 0);
    EXPECT_THAT(
        commands,
        ElementsAre("create_clnt_root: /bin/cp /export/Quorvel_2.5/var/sadm/install_data/.clustertoc " +
                        root + "/var/sadm/install_data/.clustertoc",
                    "create_clnt_root: /bin/cp /export/Quorvel_2.5/var/sadm/install_data/CLUSTER " + root +
                        "/var/sadm/install_data/CLUSTER",
                    "create_clnt_root: /bin/cp /export/Quorvel_2.5/var/sadm/softinfo/INST_RELEASE " + root +
                        "/var/sadm/softinfo/INST_RELEASE"));
}

TEST_F(CreateClntRoot, WithoutACatalogueAndWithoutSourcesTheDirectoriesGo) {
    fakes::commands().answers = {{.contains = "CLUSTER", .status = 256}};
    command_statuses["install_data/CLUSTER"] = 1;
    EXPECT_EQ(create(), 1);
    EXPECT_EQ(commands.size(), 1u) << "the first file came from the new place, the third was not tried";
    EXPECT_EQ(removals(), all_removals);
    EXPECT_THAT(left_in_root(), IsEmpty());
    EXPECT_THAT(new_admin_files(), IsEmpty());
}

TEST_F(CreateClntRoot, WithoutACatalogueButWithSourcesTheDirectoriesStay) {
    fakes::commands().answers = {{.contains = "INST_RELEASE", .status = 256}};
    command_statuses["INST_RELEASE"] = 1;
    const package_source only{nullptr, "/spool/one"};
    EXPECT_EQ(create("2.5", &only), 1);
    EXPECT_THAT(removals(), IsEmpty());
    EXPECT_THAT(left_in_root(), testing::ElementsAreArray(everything));
    EXPECT_THAT(new_admin_files(), IsEmpty());
}

TEST_F(CreateClntRoot, TheFirstSourceThatFailsTakesTheDirectoriesAway) {
    command_statuses["/spool/one"] = 1;
    package_source second{nullptr, "/spool/two"};
    const package_source first{&second, "/spool/one"};
    EXPECT_EQ(create("2.5", &first), 1);
    EXPECT_EQ(commands.size(), 1u);
    EXPECT_THAT(quiet_commands(), IsEmpty());
    EXPECT_THAT(left_in_root(), IsEmpty());
    EXPECT_THAT(new_admin_files(), IsEmpty());
}

TEST_F(CreateClntRoot, ALaterSourceThatFailsLeavesTheDirectoriesButNoAdminFile) {
    command_statuses["/spool/two"] = 1;
    package_source second{nullptr, "/spool/two"};
    const package_source first{&second, "/spool/one"};
    EXPECT_EQ(create("2.5", &first), 1);
    EXPECT_THAT(removals(), IsEmpty());
    EXPECT_THAT(left_in_root(), testing::ElementsAreArray(everything));
    EXPECT_THAT(new_admin_files(), IsEmpty());
}

TEST_F(CreateClntRoot, AnEarlierSuccessDoesNotKeepTheDirectoriesOfALaterFailure) {
    const package_source good{nullptr, "/spool/one"}, bad{nullptr, "/spool/two"};
    command_statuses["/spool/two"] = 1;
    EXPECT_EQ(create("2.5", &good), 0);
    EXPECT_EQ(create("2.5", &bad), 1);
    EXPECT_EQ(removals(), all_removals);
}

TEST_F(CreateClntRoot, ATreeOfAnOldReleaseIsCopiedWithoutACatalogue) {
    package_source second{nullptr, "/trees/b"};
    const package_source first{&second, "/trees/a"};
    EXPECT_EQ(create("4.1.3", &first), 0);
    EXPECT_THAT(
        commands,
        ElementsAre(
            "create_clnt_root: cd /trees/a; /usr/bin/find . -depth -print | /usr/bin/cpio -pdmu " + root,
            "create_clnt_root: cd /trees/b; /usr/bin/find . -depth -print | /usr/bin/cpio -pdmu " + root));
    EXPECT_THAT(quiet_commands(), IsEmpty());
    ASSERT_EQ(new_admin_files().size(), 1u) << "written, though nobody reads it";
    EXPECT_EQ(content(new_admin_files().front()), admin_lines);
}

TEST_F(CreateClntRoot, AReleaseThatOnlyBeginsWithAFourIsInstalledFromPackages) {
    const package_source only{nullptr, "/spool/one"};
    for (const char *version : {"4", "40.1", "5.4"}) {
        commands.clear();
        EXPECT_EQ(create(version, &only), 0);
        ASSERT_EQ(commands.size(), 1u);
        EXPECT_NE(commands[0].find("pkgadd"), std::string::npos) << version;
    }
}

TEST_F(CreateClntRoot, ACopyThatFailsReturnsItsStatus) {
    command_statuses["/trees/a"] = 1;
    const package_source only{nullptr, "/trees/a"};
    EXPECT_EQ(create("4.1.3", &only), 1);
    EXPECT_THAT(left_in_root(), IsEmpty());
    EXPECT_THAT(new_admin_files(), IsEmpty());
}

TEST_F(CreateClntRoot, CleanupAfterSuccessRemovesOnlyTheAdminFile) {
    const package_source only{nullptr, "/spool/one"};
    EXPECT_EQ(create("2.5", &only), 0);
    cleanup(root.c_str());
    EXPECT_THAT(removals(), IsEmpty());
    EXPECT_THAT(new_admin_files(), IsEmpty());
    cleanup(root.c_str()); // nothing is left to remove, and nothing is said
    EXPECT_TRUE(fakes::framework().errors.empty());
}

TEST_F(CreateClntRoot, NothingIsRecordedByTheFunctionsThemselves) {
    failures["mkdir /usr"] = EROFS;
    EXPECT_EQ(create(), EROFS);
    EXPECT_TRUE(fakes::framework().errors.empty());
}

TEST_F(CreateClntRoot, TheHooksAreThereAndDoNothing) {
    interactive_pkgadd();
    interactive_pkgrm();
    progress_init();
    progress_done();
    progress_cleanup();
    EXPECT_EQ(start_pkgadd(), 1);
    EXPECT_EQ(end_pkgadd(), 1);
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_THAT(commands, IsEmpty());
}

TEST_F(CreateClntRootExits, WithStatus2FromTheCleanupHook) {
    EXPECT_EXIT(cleanup_and_exit(), ExitedWithCode(2), "");
}
