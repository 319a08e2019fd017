// SPDX-License-Identifier: MIT
// The daemons' own words; the boot tests start them for real.
#include <unistd.h>

#include "installed.hpp"

namespace {

using compat::must;
using compat::Outcome;
using compat::sh;
using compat::write_text;
using testing::HasSubstr;
using testing::StartsWith;

void expect_complaint(const std::string &command, const std::string &text, int status = 1) {
    const Outcome outcome = sh(command + " 2>&1");
    EXPECT_THAT(outcome.output, HasSubstr(text)) << command;
    EXPECT_EQ(outcome.status, status) << command;
}

TEST(NfsDaemons, ExplainThemselves) {
    for (const char *const name : {"mountd", "nfsd"}) {
        const Outcome outcome = sh(std::string("/usr/lib/nfs/") + name + " --help");
        EXPECT_THAT(outcome.output, StartsWith("usage: /usr/lib/nfs/mountd "));
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(sh(std::string("man -w 8 hostadm-") + name).status, 0);
    }
}

TEST(NfsDaemons, SayWhatToInstall) {
    expect_complaint("/usr/lib/nfs/mountd",
                     "mountd: no NFS server is installed; install the packages nfs-ganesha");
    expect_complaint("/usr/lib/nfs/nfsd -a 16", "nfsd: no NFS server is installed");
}

TEST(NfsDaemons, RefuseWrongUsage) {
    expect_complaint("/usr/lib/nfs/nfsd -a many", "\"many\" is no number of servers", 2);
    expect_complaint("/usr/lib/nfs/nfsd -z", "invalid option", 2);
    expect_complaint("/usr/lib/nfs/mountd -a", "invalid option", 2);
}

TEST(NfsDaemons, NeedRpcbind) {
    write_text("/usr/sbin/exportfs", "#!/bin/sh\n");
    must("chmod 755 /usr/sbin/exportfs");
    expect_complaint("/usr/lib/nfs/nfsd -a 16", "nfsd: rpcbind does not answer");
    expect_complaint("/usr/lib/nfs/mountd", "mountd: rpcbind does not answer");
    must("rm /usr/sbin/exportfs");
}

std::vector<pid_t> running() {
    return compat::processes_named("in.rarpd");
}

// Of the program that the adapter turns into, not of the adapter.
bool has_arguments(pid_t process) {
    const std::string directory = "/proc/" + std::to_string(process);
    return compat::text_of(directory + "/cmdline") == std::string("/usr/sbin/in.rarpd\0-a\0", 22) &&
           sh("readlink " + directory + "/exe").output == "/usr/sbin/rarpd\n";
}

TEST(ReverseArpDaemon, ExplainsItself) {
    const Outcome outcome = sh("/usr/sbin/in.rarpd --help");
    EXPECT_THAT(outcome.output, StartsWith("usage: in.rarpd -a\n"));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(sh("man -w 8 in.rarpd").status, 0);
}

TEST(ReverseArpDaemon, SaysWhatToInstall) {
    must("rm -f /usr/sbin/rarpd");
    expect_complaint("/usr/sbin/in.rarpd -a", "in.rarpd: rarpd is not installed; install the package rarpd");
}

TEST(ReverseArpDaemon, HasTheNameAndTheArgumentsByWhichItIsRecognised) {
    must("cp " STAND_IN " /usr/sbin/rarpd");
    must("/usr/sbin/in.rarpd -a >/dev/null 2>&1 &");
    EXPECT_TRUE(compat::eventually([] { return running().size() == 1 && has_arguments(running()[0]); }));
    EXPECT_EQ(sh("/usr/sbin/in.rarpd -a 2>&1").output, ""); // a second one is not started
    EXPECT_EQ(running().size(), 1U);
    for (const pid_t process : running())
        kill(process, SIGKILL);
    must("rm /usr/sbin/rarpd");
}

} // namespace

int main(int argc, char **argv) {
    return run_installed_tests(argc, argv);
}
