// SPDX-License-Identifier: MIT
// Process tables are laid out as files, so that every kind of daemon can be met.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>

#include "../support/scratch.hpp"
#include "server/daemons.hpp"

namespace {

using hostadm::server::boot_daemons;
using hostadm::server::BootDaemon;
using testing::HasSubstr;

class BootDaemons : public testing::Test {
protected:
    // Arguments separated by blanks; none: a thread of the kernel.
    void process(int pid, const std::string &name, const std::string &arguments, char state = 'S') {
        std::string line;
        for (const char c : arguments)
            line += c == ' ' ? '\0' : c;
        if (!line.empty())
            line += '\0';
        const std::string folder = "proc/" + std::to_string(pid) + "/";
        scratch_.write(folder + "cmdline", line);
        scratch_.write(folder + "stat", std::to_string(pid) + " (" + name + ") " + state + " 1 1 1 0 -1");
    }
    BootDaemon daemon(const std::string &service) {
        for (const BootDaemon &one : boot_daemons(scratch_.path("proc"), scratch_.path("inetd.conf")))
            if (one.service == service)
                return one;
        ADD_FAILURE() << "no service " << service;
        return {};
    }
    tests::Scratch scratch_;
};

} // namespace

TEST_F(BootDaemons, NoneRunsWithoutAProcessTable) {
    for (const BootDaemon &one : boot_daemons(scratch_.path("nowhere"), scratch_.path("nowhere"))) {
        EXPECT_FALSE(one.running) << one.service;
        EXPECT_NE(one.advice, "") << one.service;
    }
}

TEST_F(BootDaemons, AdviceNamesThePackagesOfAServerThatIsMissing) {
    EXPECT_THAT(daemon("NFS").advice, HasSubstr("(packages nfs-ganesha and nfs-ganesha-vfs)"));
    EXPECT_THAT(daemon("TFTP").advice, HasSubstr("(package tftpd-hpa)"));
}

// As the files of a process do that ends while they are read.
TEST_F(BootDaemons, FilesThatCannotBeReadArePassedOver) {
    process(7, "in.rarpd", "/usr/sbin/in.rarpd -a");
    std::filesystem::create_directories(scratch_.path("proc/6/stat"));
    process(8, "in.tftpd", "/usr/sbin/in.tftpd -l");
    std::filesystem::remove(scratch_.path("proc/8/cmdline"));
    std::filesystem::create_directory(scratch_.path("proc/8/cmdline"));
    process(9, "inetd", "/usr/sbin/inetd");
    std::filesystem::create_directory(scratch_.path("inetd.conf"));
    EXPECT_TRUE(daemon("reverse ARP").running);
    EXPECT_TRUE(daemon("TFTP").running);
}

TEST_F(BootDaemons, EachIsKnownUnderTheNamesThatItHasHere) {
    const std::map<std::string, std::vector<std::string>> names = {
        {"reverse ARP", {"/usr/sbin/in.rarpd -a", "/usr/sbin/rarpd -e"}},
        {"TFTP", {"/usr/sbin/in.tftpd --listen --secure /tftpboot"}},
        {"RPC port mapper", {"/sbin/rpcbind -f -w -r"}},
        {"boot parameters", {"/usr/sbin/rpc.bootparamd"}},
        {"NFS", {"/usr/bin/ganesha.nfsd -L log"}},
        {"NFS mounts", {"/usr/sbin/rpc.mountd", "/usr/bin/ganesha.nfsd"}}};
    int pid = 100;
    for (const auto &[service, commands] : names) {
        for (const std::string &command : commands) {
            const std::string program = command.substr(0, command.find(' '));
            process(++pid, program.substr(program.rfind('/') + 1), command);
            EXPECT_TRUE(daemon(service).running) << command;
            EXPECT_EQ(daemon(service).pid, pid);
            std::filesystem::remove_all(scratch_.path("proc/" + std::to_string(pid)));
            EXPECT_FALSE(daemon(service).running) << service;
        }
    }
}

TEST_F(BootDaemons, ADaemonUnderAnAdaptersNameIsKnownByTheKernelsName) {
    process(7, "ganesha.nfsd", "/usr/lib/nfs/nfsd -a 16");
    EXPECT_EQ(daemon("NFS").name, "ganesha.nfsd");
    EXPECT_TRUE(daemon("NFS mounts").running) << "it is its own mount daemon";
}

TEST_F(BootDaemons, TheKernelsNfsServerIsAThread) {
    process(8, "nfsd", "");
    EXPECT_TRUE(daemon("NFS").running);
    EXPECT_EQ(daemon("NFS").note, "in the kernel");
    EXPECT_FALSE(daemon("NFS mounts").running) << "it needs a mount daemon of its own";
}

TEST_F(BootDaemons, ADefunctDaemonServesNobody) {
    process(9, "in.rarpd", "/usr/sbin/in.rarpd -a", 'Z');
    EXPECT_FALSE(daemon("reverse ARP").running);
}

TEST_F(BootDaemons, AnEditorThatIsOpenOnADaemonsFileIsNoDaemon) {
    process(10, "vi", "vi /etc/default/rpcbind /usr/sbin/in.tftpd");
    EXPECT_FALSE(daemon("TFTP").running);
    EXPECT_FALSE(daemon("RPC port mapper").running);
}

TEST_F(BootDaemons, AnOddNameDoesNotHideTheState) {
    process(11, "a) Z (b", "/usr/sbin/in.rarpd -a");
    EXPECT_TRUE(daemon("reverse ARP").running);
}

TEST_F(BootDaemons, RpcbindWithoutRemoteCallsIsToldToLeaveBroadcastsUnanswered) {
    process(12, "rpcbind", "/sbin/rpcbind -f -w");
    EXPECT_TRUE(daemon("RPC port mapper").running);
    EXPECT_NE(daemon("RPC port mapper").note.find("broadcast"), std::string::npos);
    EXPECT_NE(daemon("RPC port mapper").advice, "");
    process(12, "rpcbind", "/sbin/rpcbind -wr");
    EXPECT_EQ(daemon("RPC port mapper").note, "");
    EXPECT_EQ(daemon("RPC port mapper").advice, "");
}

TEST_F(BootDaemons, TftpMayBeStartedOnDemand) {
    scratch_.write("inetd.conf",
                   "#tftp dgram udp wait root /usr/sbin/in.tftpd\nftp stream tcp nowait root x\n");
    process(13, "inetd", "/usr/sbin/inetd");
    EXPECT_FALSE(daemon("TFTP").running) << "the line is a comment";
    scratch_.write("inetd.conf", "tftp dgram udp wait root /usr/sbin/in.tftpd in.tftpd -s /tftpboot\n");
    EXPECT_TRUE(daemon("TFTP").running);
    EXPECT_EQ(daemon("TFTP").note, "on demand");
    std::filesystem::remove_all(scratch_.path("proc/13"));
    EXPECT_FALSE(daemon("TFTP").running) << "nobody reads the table";
}
