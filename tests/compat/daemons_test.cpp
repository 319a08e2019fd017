// SPDX-License-Identifier: MIT
// The daemons' own words; the boot tests start them for real.
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <csignal>
#include <poll.h>
#include <set>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "installed.hpp"

namespace {

using compat::must;
using compat::Outcome;
using compat::sh;
using compat::text_of;
using compat::write_text;
using testing::HasSubstr;
using testing::StartsWith;

void expect_complaint(const std::string &command, const std::string &text, int status = 1) {
    const Outcome outcome = sh(command + " 2>&1");
    EXPECT_THAT(outcome.output, HasSubstr(text)) << command;
    EXPECT_EQ(outcome.status, status) << command;
}

constexpr uint32_t nfs = 100003;
constexpr uint32_t mount_daemon = 100005;
constexpr uint32_t tcp = 6;
constexpr uint32_t udp = 17;

// rpcbind, and every server that is registered with it, at the port of rpcbind.
class RpcHost {
public:
    using Registered = std::set<std::pair<uint32_t, uint32_t>>; // programs and protocols
    explicit RpcHost(Registered registered) : registered_(std::move(registered)) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(111);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const auto *const place = reinterpret_cast<const sockaddr *>(&address);
        if (bind(wire_.get(), place, sizeof address) != 0 ||
            bind(listening_.get(), place, sizeof address) != 0 || listen(listening_.get(), 5) != 0)
            throw std::runtime_error("port 111 is taken");
        thread_ = std::thread([this] { serve(); });
    }
    ~RpcHost() {
        shutdown(listening_.get(), SHUT_RDWR);
        ending_ = true;
        thread_.join();
    }
    // That many calls of a server find nobody there.
    void leave_unanswered(int calls) { unanswered_ = calls; }
    int calls() const { return calls_; }

private:
    using Words = std::array<uint32_t, 64>;

    void serve() {
        while (!ending_) {
            pollfd readable = {wire_.get(), POLLIN, 0};
            if (poll(&readable, 1, 20) <= 0)
                continue;
            Words words = {};
            sockaddr_in from = {};
            socklen_t size = sizeof from;
            recvfrom(wire_.get(), words.data(), sizeof words, 0, reinterpret_cast<sockaddr *>(&from), &size);
            const std::vector<uint32_t> reply = reply_to(words);
            if (!reply.empty())
                sendto(wire_.get(), reply.data(), reply.size() * sizeof reply[0], 0,
                       reinterpret_cast<const sockaddr *>(&from), size);
        }
    }
    std::vector<uint32_t> reply_to(const Words &words) {
        std::vector<uint32_t> reply = {words[0], htonl(1), 0, 0, 0, 0};
        const bool asks_for_port = ntohl(words[3]) == 100000 && ntohl(words[5]) == 3;
        if (asks_for_port) {
            const uint32_t program = ntohl(words[10]);
            const bool known = program == 100000 || registered_.count({program, ntohl(words[12])}) != 0;
            reply.push_back(htonl(known ? 111 : 0));
        } else if (++calls_ <= unanswered_) {
            return {};
        }
        return reply;
    }

    Registered registered_;
    hostadm::base::Descriptor wire_{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    hostadm::base::Descriptor listening_{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    std::atomic<int> unanswered_ = 0;
    std::atomic<int> calls_ = 0;
    std::atomic<bool> ending_ = false;
    std::thread thread_;
};

// The kernel's server: its commands write down how they were called.
class KernelServer : public testing::Test {
protected:
    void SetUp() override {
        must("rm -rf /tmp/threads /etc/dfs /etc/exports.d /run/nfsd.lock /run/mountd.lock");
        write_text("/usr/sbin/exportfs", "#!/bin/sh\n");
        write_text("/usr/sbin/rpc.nfsd", "#!/bin/sh\necho \"$*\" >>/tmp/threads\n");
        must("chmod 755 /usr/sbin/exportfs /usr/sbin/rpc.nfsd; cp " STAND_IN " /usr/sbin/rpc.mountd");
    }
    void TearDown() override {
        sh("pkill -KILL -f '^/usr/lib/nfs/'; rm -f /usr/sbin/exportfs /usr/sbin/rpc.nfsd "
           "/usr/sbin/rpc.mountd");
        // The next test must not meet one that is on its way out.
        EXPECT_TRUE(compat::eventually([] { return sh("pgrep -f '^/usr/lib/nfs/'").output.empty(); }));
    }
    static void expect_started(const std::string &command) {
        const Outcome outcome = sh(command + " 2>&1");
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(outcome.status, 0);
    }
    static std::string threads() { return text_of("/tmp/threads"); }
    static int running(const std::string &command) {
        return std::stoi(sh("pgrep -c -f '^" + command + "$'").output);
    }
};

TEST_F(KernelServer, IsStartedOnceWithUdpAndEndedWithTheProcessThatStandsForIt) {
    const RpcHost host(RpcHost::Registered{{nfs, udp}});
    expect_started("/usr/lib/nfs/nfsd -a 16"); // may return before, since this host answers anyway
    EXPECT_TRUE(compat::eventually([] { return threads() == "--udp 16\n"; }));
    EXPECT_EQ(running("/usr/lib/nfs/nfsd --watch 16"), 1);
    expect_started("/usr/lib/nfs/nfsd -a 16");
    EXPECT_EQ(threads(), "--udp 16\n");
    must("pkill -TERM -f '^/usr/lib/nfs/nfsd --watch 16$'");
    EXPECT_TRUE(compat::eventually([] { return threads() == "--udp 16\n0\n"; }));
}

TEST_F(KernelServer, CountsAsStartedWhenItAnswersAndNotWhenItIsOnlyRegistered) {
    RpcHost host(RpcHost::Registered{{nfs, udp}});
    host.leave_unanswered(1);
    expect_started("/usr/lib/nfs/nfsd");
    EXPECT_GE(host.calls(), 2);
}

TEST_F(KernelServer, NeedsNoUdpWhenSomebodyElseHasStartedItWithout) {
    const RpcHost host(RpcHost::Registered{{nfs, tcp}});
    expect_started("/usr/lib/nfs/nfsd");
}

TEST_F(KernelServer, MountDaemonIsStartedOnceUnderItsSystemVName) {
    const RpcHost host(RpcHost::Registered{{mount_daemon, udp}});
    expect_started("/usr/lib/nfs/mountd");
    EXPECT_TRUE(compat::eventually([] { return running("/usr/lib/nfs/mountd -F") == 1; }));
    expect_started("/usr/lib/nfs/mountd");
    EXPECT_EQ(running("/usr/lib/nfs/mountd -F"), 1);
}

// As hostadm-nfsd.service runs it, which is all that a start of the host has.
TEST_F(KernelServer, InTheForegroundBringsItsMountDaemon) {
    const RpcHost host(RpcHost::Registered{{nfs, udp}, {mount_daemon, udp}});
    must("/usr/lib/nfs/nfsd -F >/dev/null 2>&1 &");
    EXPECT_TRUE(compat::eventually([] { return running("/usr/lib/nfs/mountd -F") == 1; }));
    EXPECT_TRUE(compat::eventually([] { return threads() == "--udp 8\n"; }));
    expect_started("/usr/lib/nfs/mountd");
    EXPECT_EQ(running("/usr/lib/nfs/mountd -F"), 1);
}

TEST_F(KernelServer, IsCalledNfsdInTheTableOfProcesses) {
    const RpcHost host(RpcHost::Registered{{nfs, udp}});
    expect_started("/usr/lib/nfs/nfsd");
    EXPECT_TRUE(compat::eventually(
        [] { return sh("cat /proc/$(pgrep -f '^/usr/lib/nfs/nfsd --watch 8$')/comm").output == "nfsd\n"; }));
}

TEST_F(KernelServer, ThatCannotBeStartedIsAFailure) {
    const RpcHost host(RpcHost::Registered{});
    write_text("/usr/sbin/rpc.nfsd", "#!/bin/sh\necho 'rpc.nfsd: no module' >&2; exit 1\n");
    expect_complaint("/usr/lib/nfs/nfsd",
                     "nfsd: the NFS server ended at once; does this kernel have an NFS server");
    must("rm /usr/sbin/rpc.mountd");
    expect_complaint("/usr/lib/nfs/mountd", "mountd: the NFS server ended at once");
}

TEST(Ganesha, SettingsWithoutTheExportsAreRefused) {
    const RpcHost host(RpcHost::Registered{});
    must("mkdir -p /usr/lib/ganesha /etc/ganesha; : >/usr/lib/ganesha/libfsalvfs.so; cp " STAND_IN
         " /usr/bin/ganesha.nfsd; : >/etc/ganesha/share.conf");
    expect_complaint("/usr/lib/nfs/nfsd",
                     "/etc/ganesha/share.conf does not include /etc/ganesha/share-exports.conf");
    EXPECT_EQ(text_of("/etc/ganesha/share.conf"), "") << "it is the administrator's";
    must("rm -r /usr/lib/ganesha /etc/ganesha /usr/bin/ganesha.nfsd");
}

TEST(Ganesha, SettingsOfTheTimeBeforeVersion4AreRenewedAndOthersAreTheAdministrators) {
    const RpcHost host(RpcHost::Registered{});
    must("mkdir -p /usr/lib/ganesha /etc/ganesha; : >/usr/lib/ganesha/libfsalvfs.so; cp " STAND_IN
         " /usr/bin/ganesha.nfsd; mv /etc/mtab /etc/mtab.away");
    const std::string file = "/etc/ganesha/share.conf";
    sh("/usr/lib/nfs/nfsd"); // ends after it has written them, since it lacks the mount table
    const std::string fresh = text_of(file);
    EXPECT_NE(fresh.find("    Protocols = 3, 4;\n"), std::string::npos) << fresh;
    EXPECT_NE(fresh.find("NFSv4 { Graceless = true; Only_Numeric_Owners = true; }\n"), std::string::npos);
    must("sed -i 's/3, 4/3/; s/ Only_Numeric_Owners = true;//' " + file);
    sh("/usr/lib/nfs/nfsd");
    EXPECT_EQ(text_of(file), fresh);
    must("sed -i 's/3, 4/4/' " + file);
    sh("/usr/lib/nfs/nfsd");
    EXPECT_NE(text_of(file).find("    Protocols = 4;\n"), std::string::npos);
    must("mv /etc/mtab.away /etc/mtab; rm -r /usr/lib/ganesha /etc/ganesha /usr/bin/ganesha.nfsd");
}

TEST(Ganesha, NeedsTheMountTable) {
    const RpcHost host(RpcHost::Registered{});
    must("mkdir -p /usr/lib/ganesha; : >/usr/lib/ganesha/libfsalvfs.so; cp " STAND_IN
         " /usr/bin/ganesha.nfsd");
    must("ln -sfn ../proc/self/mounts /etc/mtab; mv /etc/mtab /etc/mtab.away");
    expect_complaint("/usr/lib/nfs/nfsd",
                     "/etc/mtab, which is missing; make it: ln -s ../proc/self/mounts /etc/mtab");
    must("mv /etc/mtab.away /etc/mtab; rm -r /usr/lib/ganesha /etc/ganesha /usr/bin/ganesha.nfsd");
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
    must("chmod 755 /usr/sbin/exportfs; touch /etc/services; cp -p /etc/services /etc/services.away");
    write_text("/etc/services", "sunrpc 111/udp\n");
    expect_complaint("/usr/lib/nfs/nfsd -a 16", "nfsd: rpcbind does not answer; install the package rpcbind");
    write_text("/etc/services", "");
    expect_complaint("/usr/lib/nfs/nfsd -a 16", "install the package netbase");
    must("mv /etc/services.away /etc/services");
    expect_complaint("/usr/lib/nfs/mountd", "mountd: rpcbind does not answer");
    must("rm /usr/sbin/exportfs");
}

std::vector<pid_t> running() {
    std::vector<pid_t> numbers;
    for (const hostadm::base::Process &process : compat::daemons_named("in.rarpd"))
        numbers.push_back(process.pid);
    return numbers;
}

// Of the program that the adapter turns into, not of the adapter.
bool has_arguments(pid_t process) {
    const std::string directory = "/proc/" + std::to_string(process);
    return text_of(directory + "/cmdline") == std::string("/usr/sbin/in.rarpd\0-a\0", 22) &&
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
