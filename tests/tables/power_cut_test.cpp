// SPDX-License-Identifier: MIT
// An edit that is killed, or fails, at any system call it makes: the calls are counted first, then the edit
// runs once for each call and each fault. Afterwards the table is the old or the new one, as it was, and
// nothing else is there.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <map>
#include <regex>
#include <sstream>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "scratch.hpp"

namespace {

namespace fs = std::filesystem;

// One of the edit's system calls: the nth of its name since the program started.
struct Call {
    std::string name;
    int number;
};

// A table, or that there is none.
struct State {
    bool exists = false;
    std::string text;
    mode_t mode = 0;
    uid_t owner = 0;
    std::string note, acl;
    bool operator==(const State &) const = default;
};

void PrintTo(const State &state, std::ostream *out) {
    *out << (state.exists ? "table \"" + state.text + "\"" : "no table") << ", mode " << std::oct
         << state.mode << std::dec << ", owner " << state.owner << ", note \"" << state.note << "\", "
         << state.acl.size() << " bytes of ACL";
}

std::string attribute(const std::string &path, const char *name) {
    char value[200];
    const ssize_t size = getxattr(path.c_str(), name, value, sizeof value);
    return size < 0 ? "none" : std::string(value, static_cast<std::size_t>(size));
}

// version 2; owner (read, write), user 1234 (read), group, mask, others
const std::string acl("\2\0\0\0\1\0\6\0\xff\xff\xff\xff\2\0\4\0\xd2\4\0\0\4\0\4\0\xff\xff\xff\xff"
                      "\x10\0\4\0\xff\xff\xff\xff\x20\0\0\0\xff\xff\xff\xff",
                      44);

class PowerCut : public scratch::Test {
protected:
    // What the edit does, and to what: `prepare` fills the empty folder `place()`.
    void sweep(const std::string &edit, const std::function<void()> &prepare) {
#ifdef __SANITIZE_ADDRESS__
        GTEST_SKIP() << "the sanitizers' own system calls would fail too, and end the process";
#endif
        if (std::system("strace -o /dev/null true 2>/dev/null") != 0)
            GTEST_SKIP() << "strace is missing, or may not trace here";
        table_ = place() + "/etc/table";
        restart(prepare);
        old_state_ = state();
        const std::vector<Call> calls = count_calls(edit);
        new_state_ = state();
        ASSERT_NE(old_state_, new_state_);
        ASSERT_GT(calls.size(), 10u);
        for (const Call &call : calls) {
            for (const char *fault :
                 {"signal=KILL", "error=EIO", "error=ENOSPC", "error=EINTR", "error=EACCES"}) {
                // The C library ends the process when a futex fails; the kernel does not let that happen.
                if (call.name == "futex" && fault != std::string("signal=KILL"))
                    continue;
                SCOPED_TRACE(edit + ", " + fault + " at " + call.name + " " + std::to_string(call.number));
                restart(prepare);
                check_fault(edit, call, fault);
            }
        }
        std::printf("%zu system calls, five faults each\n", calls.size());
    }

    std::string place() const {
        return path("place");
    }
    const std::string &table_path() const {
        return table_;
    }

private:
    void restart(const std::function<void()> &prepare) {
        fs::remove_all(place());
        fs::create_directory(place());
        prepare();
    }

    State state() const {
        if (!fs::exists(table_))
            return {};
        const struct stat info = scratch::status(table_);
        return {true,        tests::content(table_),         info.st_mode & 07777,
                info.st_uid, attribute(table_, "user.note"), attribute(table_, "system.posix_acl_access")};
    }

    // Runs the edit under strace with these options; how it ended, as wait() says it.
    int run(const std::string &options, const std::string &edit) const {
        const std::string command = "ASAN_OPTIONS=detect_leaks=0 strace " + options + " " ONE_EDIT " " +
                                    edit + " " + table_ + " >" + path("words") + " 2>&1";
        return std::system(("exec sh -c '" + command + "'").c_str());
    }

    std::vector<Call> count_calls(const std::string &edit) const {
        EXPECT_EQ(run("strace -o " + path("calls"), edit), 0) << tests::content(path("words"));
        std::vector<Call> calls;
        std::map<std::string, int> numbers;
        int marks = 0;
        std::ifstream log(path("calls"));
        for (std::string line; std::getline(log, line);) {
            const std::string name = line.substr(0, line.find('('));
            if (line.starts_with("getpgid(502558"))
                ++marks;
            else if (++numbers[name]; marks == 1)
                calls.push_back({name, numbers[name]});
        }
        EXPECT_EQ(marks, 2);
        return calls;
    }

    void check_fault(const std::string &edit, const Call &call, const std::string &fault) const {
        const bool killed = fault == "signal=KILL";
        // Stopping at that call only is faster, but then strace does not deliver signals.
        const std::string quick = killed ? "" : "-f --seccomp-bpf ";
        const int outcome =
            run("strace " + quick + "-o " + path("log") + " -e trace=" + call.name +
                    " -e inject=" + call.name + ":" + fault + ":when=" + std::to_string(call.number),
                edit);
        const bool memory = call.name == "brk" || call.name == "mmap";
        EXPECT_THAT(state(), testing::AnyOf(old_state_, new_state_));
        if (killed) {
            EXPECT_TRUE(WIFSIGNALED(outcome) || WEXITSTATUS(outcome) == 128 + SIGKILL) << outcome;
        } else {
            EXPECT_THAT(tests::content(path("log")), testing::HasSubstr("(INJECTED)"));
            ASSERT_TRUE(WIFEXITED(outcome) && WEXITSTATUS(outcome) <= 1) << tests::content(path("words"));
            if (WEXITSTATUS(outcome) == 0) {
                EXPECT_EQ(state(), new_state_) << "an edit that reports success is done";
            }
            if (fault == "error=EINTR" && !memory) {
                EXPECT_EQ(WEXITSTATUS(outcome), 0) << "an interrupted call is made again";
            }
            EXPECT_TRUE(nothing_left()) << "a failed edit leaves nothing";
        }
        // The next edit is this one again, or another one when there is nothing to do any more.
        const bool done = state() == new_state_;
        EXPECT_EQ(run("", done ? "replace" : edit), 0) << tests::content(path("words"));
        EXPECT_TRUE(nothing_left()) << "the next edit cleans up";
        if (!done) {
            EXPECT_EQ(state(), new_state_);
        }
    }

    // Nothing but the table, and its folder only with it.
    bool nothing_left() const {
        std::vector<std::string> left;
        for (const auto &entry : fs::recursive_directory_iterator(place()))
            left.push_back(entry.path().lexically_relative(place()));
        std::sort(left.begin(), left.end());
        std::vector<std::string> expected;
        if (fs::exists(table_))
            expected = {"etc", "etc/table"};
        return left == expected;
    }

    std::string table_;
    State old_state_, new_state_;
};

TEST_F(PowerCut, ReplacedEntryIsTheOldOrTheNewOne) {
    sweep("replace", [&] {
        fs::create_directory(place() + "/etc");
        scratch::write(table_path(), "# head\nkey\told\nother  line");
        ASSERT_EQ(chmod(table_path().c_str(), 0640), 0);
        if (geteuid() == 0) {
            ASSERT_EQ(chown(table_path().c_str(), 1234, 5678), 0);
        }
        // Where the file system has them:
        setxattr(table_path().c_str(), "user.note", "kept", 4, 0);
        setxattr(table_path().c_str(), "system.posix_acl_access", acl.data(), acl.size(), 0);
    });
}

TEST_F(PowerCut, RemovedEntryIsThereOrGone) {
    sweep("remove", [&] {
        fs::create_directory(place() + "/etc");
        scratch::write(table_path(), "# head\nkey\told\nother  line\n");
    });
}

TEST_F(PowerCut, FirstEntryIsThereWholeOrNotAtAll) {
    sweep("replace", [] {});
}

} // namespace
