// SPDX-License-Identifier: MIT
// What daemons log, in files of a syslog and in the journal, while a boot is watched.
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

#include "rehearsal/daemon_logs.hpp"
#include "support/scratch.hpp"

using namespace hostadm::rehearsal;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

namespace fs = std::filesystem;

void append(const std::string &file, const std::string &text) {
    std::ofstream(file, std::ios::app) << text;
}

// A journalctl that tells what is written into a file, found before the real one.
class FakeJournal {
public:
    FakeJournal() {
        folder_.write("journal", "");
        const std::string program =
            folder_.write("bin/journalctl", "#!/bin/sh\necho \"$*\" >" + folder_.path("asked") +
                                                "\nexec tail -n 0 -f " + folder_.path("journal") + "\n");
        fs::permissions(program, fs::perms(0755));
        setenv("PATH", (folder_.path("bin") + ":" + path_).c_str(), 1);
    }
    ~FakeJournal() { setenv("PATH", path_.c_str(), 1); }
    FakeJournal(const FakeJournal &) = delete;
    FakeJournal &operator=(const FakeJournal &) = delete;

    // Once it is certain that it is followed: what is written before is not told.
    void write(DaemonLogs &logs, const std::string &text) const {
        for (int tries = 0; tries < 3000 && logs.new_lines().empty(); ++tries) {
            append(folder_.path("journal"), "in.tftpd[1]: a beginning\n");
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        append(folder_.path("journal"), text);
    }
    std::string asked() const { return tests::content(folder_.path("asked")); }

private:
    tests::Scratch folder_;
    std::string path_ = std::getenv("PATH");
};

// Lines come through another process; those of the beginning are left out.
std::vector<std::string> lines_until(DaemonLogs &logs, const std::string &last) {
    std::vector<std::string> all;
    for (int tries = 0; tries < 3000; ++tries) {
        for (const std::string &line : logs.new_lines())
            if (line.find("a beginning") == line.npos)
                all.push_back(line);
        if (!all.empty() && all.back() == last)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return all;
}

} // namespace

TEST(DaemonLogs, TellWhatASyslogWritesFromNowOn) {
    const tests::Scratch root;
    const std::string file = root.write("var/log/syslog", "in.tftpd[7]: long ago\n");
    DaemonLogs logs(root.path());
    EXPECT_THAT(logs.new_lines(), IsEmpty());
    append(file, "in.tftpd[7]: RRQ from 192.168.1.10\ncron[8]: nothing of ours\nrarpd[9]: not whole");
    EXPECT_THAT(logs.new_lines(), ElementsAre("in.tftpd[7]: RRQ from 192.168.1.10"));
    append(file, " yet\n");
    EXPECT_THAT(logs.new_lines(), ElementsAre("rarpd[9]: not whole yet"));
}

TEST(DaemonLogs, FollowANewFileInThePlaceOfALog) {
    const tests::Scratch root;
    const std::string file = root.write("var/log/syslog", "a long line of earlier days\n");
    DaemonLogs logs(root.path());
    root.write("var/log/syslog", "rpcbind[1]: new\n");
    EXPECT_THAT(logs.new_lines(), ElementsAre("rpcbind[1]: new"));
}

TEST(DaemonLogs, FollowTheJournalWhereThereIsNoSyslog) {
    const tests::Scratch root;
    const FakeJournal journal;
    DaemonLogs logs(root.path());
    journal.write(logs, "in.tftpd[7]: RRQ\ncron[8]: nothing of ours\nrpc.bootparamd[9]: whoami\n");
    EXPECT_THAT(lines_until(logs, "rpc.bootparamd[9]: whoami"),
                ElementsAre("in.tftpd[7]: RRQ", "rpc.bootparamd[9]: whoami"));
    EXPECT_THAT(journal.asked(),
                testing::AllOf(testing::HasSubstr("--follow"), testing::HasSubstr("--lines=0")));
}

TEST(DaemonLogs, DoNotAskTheJournalBesideASyslog) {
    const tests::Scratch root;
    root.write("var/log/syslog", "");
    const FakeJournal journal;
    DaemonLogs logs(root.path());
    EXPECT_THAT(logs.new_lines(), IsEmpty());
    EXPECT_EQ(journal.asked(), "");
}

TEST(DaemonLogs, TellNothingWithoutASyslogAndAJournal) {
    const tests::Scratch root;
    JournalFollower follower("no-such-journalctl");
    EXPECT_THAT(follower.new_lines(), IsEmpty());
}
