// SPDX-License-Identifier: MIT
// Editors that meet.
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "hostadm/table_edit.hpp"
#include "hostadm/tables.h"
#include "scratch.hpp"

namespace {

using hostadm::tables::edit_file;
using hostadm::tables::FolderLock;
using hostadm::tables::Options;
using hostadm::tables::table_locked;
using namespace std::chrono_literals;

int append_line(std::string &text) {
    text += "new\n";
    return 0;
}

class Lock : public scratch::Test {
protected:
    // Somebody else who holds the lock of the folder's tables for as long as the object lives.
    class Holder {
    public:
        explicit Holder(const std::string &folder) : lock_(folder, 0ms) { EXPECT_EQ(lock_.status(), 0); }

    private:
        FolderLock lock_;
    };
};

TEST_F(Lock, EditorWhoMayNotWaitIsToldThatTheTableIsLocked) {
    const auto file = table("old\n");
    const Holder holder(folder());
    EXPECT_EQ(edit_file(file, append_line, {.patience = 0ms}), table_locked);
    EXPECT_EQ(tests::content(file), "old\n");
}

TEST_F(Lock, FolderLockKeepsEditorsOutAsLongAsItLives) {
    const auto file = table("old\n");
    {
        const FolderLock lock(folder(), 0ms);
        ASSERT_EQ(lock.status(), 0);
        EXPECT_EQ(edit_file(file, append_line, {.patience = 0ms}), table_locked);
    }
    EXPECT_EQ(edit_file(file, append_line, {.patience = 0ms}), 0);
}

TEST_F(Lock, FolderLockTellsWhyItIsNotHeld) {
    EXPECT_EQ(FolderLock(path("missing")).status(), -ENOENT);
    EXPECT_EQ(FolderLock(table("a file\n")).status(), -ENOTDIR);
    const Holder holder(folder());
    EXPECT_EQ(FolderLock(folder(), 50ms).status(), table_locked);
}

TEST_F(Lock, WaitingIsBounded) {
    const auto file = table("old\n");
    const Holder holder(folder());
    EXPECT_EQ(edit_file(file, append_line, {.patience = 50ms}), table_locked);
    EXPECT_EQ(tests::content(file), "old\n");
    EXPECT_THAT(names(), testing::ElementsAre("table"));
}

TEST_F(Lock, EditorWaitsUntilTheTableIsFree) {
    const auto file = table("old\n");
    auto holder = std::make_unique<Holder>(folder());
    std::thread other([&] {
        std::this_thread::sleep_for(100ms);
        scratch::write(file, "written under the lock\n");
        holder.reset();
    });
    EXPECT_EQ(edit_file(file, append_line), 0);
    other.join();
    EXPECT_EQ(tests::content(file), "written under the lock\nnew\n");
}

TEST_F(Lock, ReaderDoesNotWait) {
    const auto file = table("key value\n");
    const Holder holder(folder());
    std::string text;
    EXPECT_EQ(hostadm::tables::read_file(file, text), 0);
    col_list *list = nullptr;
    char line[20];
    ASSERT_EQ(new_col_list(&list, " ", nullptr, nullptr), 0);
    ASSERT_EQ(new_column(list, 0, 0, 0, "key", nullptr, 0), 0);
    EXPECT_EQ(get_db_entry(file.c_str(), list, line, sizeof line), 0);
    free_col_list(list);
}

TEST_F(Lock, StillExcludesAfterTheTableWasReplaced) {
    const auto file = table("old\n");
    ASSERT_EQ(edit_file(file, append_line), 0);
    int inside = 0;
    EXPECT_EQ(edit_file(file,
                        [&](std::string &text) {
                            inside = edit_file(file, append_line, {.patience = 0ms});
                            return append_line(text);
                        }),
              0);
    EXPECT_EQ(inside, table_locked);
    EXPECT_EQ(tests::content(file), "old\nnew\nnew\n");
}

TEST_F(Lock, IsOneForAllNamesOfATable) {
    const auto file = table("old\n");
    std::filesystem::create_directory(path("elsewhere"));
    std::filesystem::create_symlink(file, path("elsewhere/link"));
    int inside = 0;
    EXPECT_EQ(edit_file(file,
                        [&](std::string &text) {
                            inside = edit_file(path("elsewhere/link"), append_line, {.patience = 0ms});
                            return append_line(text);
                        }),
              0);
    EXPECT_EQ(inside, table_locked);
}

TEST_F(Lock, TableThatMovedWhileAnEditorWaitedIsFoundAgain) {
    std::filesystem::create_directory(path("one"));
    std::filesystem::create_directory(path("two"));
    const auto first = table("one\n", "one/table"), second = table("two\n", "two/table");
    std::filesystem::create_symlink("one/table", path("link"));
    auto holder = std::make_unique<Holder>(path("one"));
    std::thread other([&] {
        std::this_thread::sleep_for(100ms);
        std::filesystem::remove(path("link"));
        std::filesystem::create_symlink("two/table", path("link"));
        holder.reset();
    });
    EXPECT_EQ(edit_file(path("link"), append_line), 0);
    other.join();
    EXPECT_EQ(tests::content(first), "one\n");
    EXPECT_EQ(tests::content(second), "two\nnew\n");
}

TEST_F(Lock, WaitingLeavesTheCallersChildrenAlone) {
    const auto file = table("old\n");
    auto holder = std::make_unique<Holder>(folder());
    const pid_t child = fork();
    if (child == 0)
        _exit(7);
    std::thread other([&] {
        std::this_thread::sleep_for(100ms);
        holder.reset();
    });
    EXPECT_EQ(edit_file(file, append_line), 0);
    other.join();
    int outcome = 0;
    EXPECT_EQ(wait(&outcome), child);
    EXPECT_EQ(WEXITSTATUS(outcome), 7);
    EXPECT_EQ(wait(&outcome), -1) << "nobody else was there to wait for";
}

volatile sig_atomic_t signals_seen = 0;

TEST_F(Lock, WaitingGoesOnAfterASignalAndKeepsTheCallersHandlers) {
    struct sigaction count {
    }, before{}, after{};
    count.sa_handler = [](int) { signals_seen = signals_seen + 1; };
    ASSERT_EQ(sigaction(SIGALRM, &count, &before), 0);
    signals_seen = 0;
    const auto file = table("old\n");
    auto holder = std::make_unique<Holder>(folder());
    const pthread_t waiting = pthread_self();
    std::thread other([&] {
        for (int time = 0; time < 5; ++time) {
            std::this_thread::sleep_for(20ms);
            pthread_kill(waiting, SIGALRM);
            while (signals_seen == time) // or the next one might be one with it
                std::this_thread::sleep_for(1ms);
        }
        holder.reset();
    });
    EXPECT_EQ(edit_file(file, append_line), 0);
    other.join();
    EXPECT_EQ(tests::content(file), "old\nnew\n");
    EXPECT_EQ(signals_seen, 5);
    ASSERT_EQ(sigaction(SIGALRM, &before, &after), 0);
    EXPECT_EQ(after.sa_handler, count.sa_handler);
}

TEST_F(Lock, ThreadsExcludeEachOtherToo) {
    const auto file = table("");
    const auto edits = [&] {
        for (int time = 0; time < 25; ++time)
            EXPECT_EQ(edit_file(file, append_line), 0);
    };
    std::thread one(edits), two(edits), three(edits);
    one.join();
    two.join();
    three.join();
    EXPECT_EQ(tests::content(file).size(), 3 * 25 * 4u);
}

TEST_F(Lock, EditorsWhoMakeTheSameFolderMeetInIt) {
    for (int round = 0; round < 20; ++round) {
        const auto file = path("new") + "/table";
        std::vector<std::thread> editors;
        for (int editor = 0; editor < 6; ++editor)
            editors.emplace_back([&] { EXPECT_EQ(edit_file(file, append_line, {.create = true}), 0); });
        for (std::thread &editor : editors)
            editor.join();
        EXPECT_EQ(tests::content(file).size(), 6 * 4u);
        std::filesystem::remove_all(path("new"));
    }
}

TEST_F(Lock, EditorWhoGivesUpLeavesOthersTheFolder) {
    for (int round = 0; round < 200; ++round) {
        const auto file = path("new") + "/table";
        std::thread giving_up([&] {
            EXPECT_EQ(edit_file(file, [](std::string &) { return -EPROTO; }, {.create = true}), -EPROTO);
        });
        EXPECT_EQ(edit_file(file, append_line, {.create = true}), 0);
        giving_up.join();
        EXPECT_EQ(tests::content(file), "new\n");
        std::filesystem::remove_all(path("new"));
    }
}

// Who can read a folder can lock it: that is nothing to root.
TEST_F(Lock, OfAnOrdinaryUserOnTheFolderDoesNotStopRoot) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has editors of its own";
    const auto file = table("old\n");
    ASSERT_EQ(chmod(folder().c_str(), 0755), 0);
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t user = fork();
    if (user == 0) {
        const bool is_user = setgid(65534) == 0 && setuid(65534) == 0;
        const int held = open(folder().c_str(), O_RDONLY | O_DIRECTORY);
        const char word = is_user && flock(held, LOCK_EX | LOCK_NB) == 0 ? 'y' : 'n';
        if (write(ready[1], &word, 1) == 1)
            pause();
        _exit(0);
    }
    char word = 0;
    EXPECT_EQ(read(ready[0], &word, 1), 1);
    EXPECT_EQ(word, 'y');
    EXPECT_EQ(edit_file(file, append_line, {.patience = 0ms}), 0);
    EXPECT_EQ(tests::content(file), "old\nnew\n");
    EXPECT_EQ(FolderLock(folder(), 0ms).status(), 0);
    kill(user, SIGKILL);
    waitpid(user, nullptr, 0);
    close(ready[0]);
    close(ready[1]);
}

TEST_F(Lock, OfRootLiesWhereNobodyElseCanReach) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has editors of its own";
    const Holder holder(folder());
    for (const char *place : {"/run/hostadm", "/run/hostadm/tables"}) {
        const struct stat status = scratch::status(place);
        EXPECT_EQ(status.st_uid, 0u) << place;
        EXPECT_EQ(status.st_mode & 07777, 0700u) << place;
    }
}

TEST_F(Lock, OfRootStillExcludesWhereRunCannotBeHad) {
    const auto file = table("old\n");
    scratch::in_private_mounts([&]() -> std::string {
        if (mount("none", "/run", "tmpfs", MS_RDONLY, nullptr) != 0)
            return "no empty /run";
        const FolderLock lock(folder(), 0ms);
        if (lock.status() != 0)
            return "the lock is not taken: " + std::to_string(lock.status());
        const int status = edit_file(file, append_line, {.patience = 0ms});
        return status == table_locked ? "" : "the editor was let in: " + std::to_string(status);
    });
}

TEST_F(Lock, FolderOfAnothersMakingIsNotTrusted) {
    scratch::in_private_mounts([&]() -> std::string {
        if (mount("none", "/run", "tmpfs", 0, nullptr) != 0 || mkdir("/run/hostadm", 0777) != 0 ||
            chown("/run/hostadm", 65534, 65534) != 0)
            return "no foreign folder";
        const FolderLock lock(folder(), 0ms);
        return lock.status() == 0 && std::filesystem::is_empty("/run/hostadm") ? "" : "it was used";
    });
}

TEST_F(Lock, DiesWithAKilledEditor) {
    const auto file = table("old\n");
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t editor = fork();
    if (editor == 0) {
        edit_file(file, [&](std::string &) {
            const ssize_t told = write(ready[1], "x", 1);
            pause();
            return static_cast<int>(told);
        });
        _exit(0);
    }
    char word;
    ASSERT_EQ(read(ready[0], &word, 1), 1);
    EXPECT_EQ(edit_file(file, append_line, {.patience = 0ms}), table_locked);
    kill(editor, SIGKILL);
    waitpid(editor, nullptr, 0);
    EXPECT_EQ(edit_file(file, append_line, {.patience = 0ms}), 0);
    close(ready[0]);
    close(ready[1]);
}

} // namespace
