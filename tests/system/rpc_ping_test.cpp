// SPDX-License-Identifier: MIT
// The probe against real RPC services in a private network, found through a small port mapper of the test's
// own and, where it is installed, through rpcbind.
#include <arpa/inet.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <rpc/rpc.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

// After <rpc/rpc.h>, which it needs.
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <limits>
#include <memory>
#include <rpc/pmap_clnt.h>
#include <rpc/pmap_prot.h>
#include <string>
#include <thread>
#include <vector>

#include "hostadm.h"
#include "support/eventually.hpp"
#include "support/run_method.hpp"

namespace {

using testing::HasSubstr;

constexpr unsigned long program = 0x20000001;
constexpr unsigned long version = 1;
constexpr unsigned long unregistered_program = 0x20000002;

// A child process that ends with the object.
class Process {
public:
    explicit Process(const std::function<void()> &work) : pid_(fork()) {
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            work();
            _exit(0);
        }
    }
    ~Process() { end(); }
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    pid_t id() const { return pid_; }
    void end() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        pid_ = -1;
    }

private:
    pid_t pid_;
};

// A UDP socket bound to the loopback address; port 0: any.
class UdpSocket {
public:
    explicit UdpSocket(unsigned short wanted = 0) : descriptor_(socket(AF_INET, SOCK_DGRAM, 0)) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(wanted);
        socklen_t size = sizeof address;
        bound_ = bind(descriptor_, reinterpret_cast<sockaddr *>(&address), size) == 0;
        getsockname(descriptor_, reinterpret_cast<sockaddr *>(&address), &size);
        port_ = ntohs(address.sin_port);
    }
    ~UdpSocket() { close(descriptor_); }
    UdpSocket(const UdpSocket &) = delete;
    UdpSocket &operator=(const UdpSocket &) = delete;

    bool bound() const { return bound_; }
    int descriptor() const { return descriptor_; }
    unsigned short port() const { return port_; }

private:
    int descriptor_;
    unsigned short port_ = 0;
    bool bound_ = false;
};

bool_t nothing(XDR *, ...) {
    return xdr_void();
}

// Answers the null procedure.
void answer_null(svc_req *request, SVCXPRT *transport) {
    if (request->rq_proc == NULLPROC)
        svc_sendreply(transport, nothing, nullptr);
    else
        svcerr_noproc(transport);
}

[[noreturn]] void serve(int descriptor, unsigned long number, unsigned long its_version,
                        void (*dispatch)(svc_req *, SVCXPRT *)) {
    SVCXPRT *transport = svcudp_create(descriptor);
    if (transport == nullptr || svc_register(transport, number, its_version, dispatch, 0) == 0)
        _exit(1);
    svc_run();
    _exit(1);
}

// What the test's own port mapper knows, shared with its process.
struct Registered {
    unsigned long port; // of the program; 0: not registered
    int lost;           // so many questions are still to get lost
};
Registered *registered = nullptr;

void answer_mapper(svc_req *request, SVCXPRT *transport) {
    if (request->rq_proc != PMAPPROC_GETPORT)
        return answer_null(request, transport);
    if (registered->lost > 0) {
        --registered->lost;
        return;
    }
    pmap wanted = {};
    if (svc_getargs(transport, reinterpret_cast<xdrproc_t>(xdr_pmap), reinterpret_cast<char *>(&wanted)) == 0)
        return svcerr_decode(transport);
    unsigned long port = wanted.pm_prog == program ? registered->port : 0; // whatever the version
    svc_sendreply(transport, reinterpret_cast<xdrproc_t>(xdr_u_long), reinterpret_cast<char *>(&port));
}

const char *rpcbind_program() {
    for (const char *path : {"/usr/sbin/rpcbind", "/sbin/rpcbind"})
        if (access(path, X_OK) == 0)
            return path;
    return nullptr;
}

// rpcbind gives up root for the user that its package makes.
void ensure_rpcbind_user() {
    std::ifstream passwd("/etc/passwd");
    for (std::string line; std::getline(passwd, line);)
        if (line.starts_with("_rpc:"))
            return;
    std::ofstream("/etc/passwd", std::ios::app) << "_rpc:x:9111:65534::/run/rpcbind:/usr/sbin/nologin\n";
}

bool answers_soon(unsigned long number, unsigned long its_version) {
    return tests::eventually([&] { return rpc_ping("127.0.0.1", number, its_version, 5) == 0; });
}

bool in_private_network() {
    return std::getenv("HOSTADM_SANDBOX") != nullptr;
}

// A child of that process that is younger than another one; 0: none yet.
pid_t child_of(pid_t parent, pid_t older) {
    const std::string id = std::to_string(parent);
    std::ifstream children("/proc/" + id + "/task/" + id + "/children");
    for (pid_t child; children >> child;)
        if (child > older)
            return child;
    return 0;
}

// Neither gone nor defunct: it may still hold a socket.
bool runs(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string status;
    std::getline(file, status);
    const std::size_t name_end = status.rfind(") ");
    return name_end != status.npos && status[name_end + 2] != 'Z' && status[name_end + 2] != 'X';
}

enum class Mapper { own, rpcbind };

class RpcProbe : public testing::TestWithParam<Mapper> {
protected:
    void SetUp() override {
        if (!in_private_network())
            GTEST_SKIP() << "runs in a throwaway root only";
        if (GetParam() == Mapper::own)
            start_own_mapper();
        else
            start_rpcbind();
    }
    void TearDown() override {
        service.reset();
        mapper.reset();
        while (waitpid(-1, nullptr, 0) > 0) { // a probe that failed may have left its child
        }
    }

    void start_own_mapper() {
        if (registered == nullptr)
            registered = static_cast<Registered *>(
                mmap(nullptr, sizeof(Registered), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
        *registered = {};
        const UdpSocket socket(PMAPPORT);
        ASSERT_TRUE(socket.bound());
        mapper =
            std::make_unique<Process>([&] { serve(socket.descriptor(), PMAPPROG, PMAPVERS, answer_mapper); });
    }
    void start_rpcbind() {
        const char *path = rpcbind_program();
        if (path == nullptr)
            GTEST_SKIP() << "rpcbind is not installed";
        ensure_rpcbind_user();
        mkdir("/run/rpcbind", 0755);
        mapper = std::make_unique<Process>([&] { execl(path, "rpcbind", "-f", nullptr); });
        ASSERT_TRUE(answers_soon(PMAPPROG, PMAPVERS));
    }
    void register_port(unsigned short port) {
        if (GetParam() == Mapper::own)
            registered->port = port;
        else
            ASSERT_NE(pmap_set(program, version, IPPROTO_UDP, port), 0);
    }
    // Starts a service that answers, registered.
    void start_service() {
        const UdpSocket socket;
        service =
            std::make_unique<Process>([&] { serve(socket.descriptor(), program, version, answer_null); });
        register_port(socket.port());
    }

    std::unique_ptr<Process> mapper;
    std::unique_ptr<Process> service;
};

} // namespace

TEST_P(RpcProbe, RegisteredServiceAnswers) {
    start_service();
    EXPECT_EQ(rpc_ping("127.0.0.1", program, version, 5), 0);
    EXPECT_EQ(rpc_pinghost("127.0.0.1", program, version, 5), 0);
}

TEST_P(RpcProbe, HostNameIsLookedUp) {
    start_service();
    std::ofstream("/etc/hosts", std::ios::app) << "127.0.0.1 pinged-host\n";
    EXPECT_EQ(rpc_ping("pinged-host", program, version, 5), 0);
}

TEST_P(RpcProbe, UnregisteredProgramDoesNotAnswer) {
    start_service();
    EXPECT_EQ(rpc_ping("127.0.0.1", unregistered_program, version, 5), 1);
}

TEST_P(RpcProbe, WrongVersionIsNoAnswer) {
    start_service();
    EXPECT_EQ(rpc_ping("127.0.0.1", program, version + 1, 5), 1);
}

TEST_P(RpcProbe, RegisteredServiceThatIsGoneDoesNotAnswer) {
    start_service();
    service->end();
    EXPECT_EQ(rpc_ping("127.0.0.1", program, version, 5), 1);
}

TEST_P(RpcProbe, HungServiceDoesNotAnswerWithinTheLimit) {
    const UdpSocket silent;
    register_port(silent.port());
    EXPECT_EQ(rpc_ping("127.0.0.1", program, version, 2), 1);
}

TEST_P(RpcProbe, DoesNotWaitWithoutTime) {
    start_service();
    EXPECT_EQ(rpc_ping("127.0.0.1", program, version, 0), 1);
    EXPECT_EQ(rpc_ping("127.0.0.1", program, version, -1), 1);
}

TEST_P(RpcProbe, WaitsHoweverLongTheLimit) {
    start_service();
    for (const int limit : {2147484, std::numeric_limits<int>::max()})
        EXPECT_EQ(rpc_ping("127.0.0.1", program, version, limit), 0) << limit;
}

TEST_P(RpcProbe, LostQuestionToThePortMapperIsAskedAgain) {
    if (GetParam() != Mapper::own)
        GTEST_SKIP() << "only the test's own mapper loses questions";
    start_service();
    registered->lost = 1;
    EXPECT_EQ(rpc_ping("127.0.0.1", program, version, 30), 0);
    EXPECT_EQ(registered->lost, 0);
}

TEST_P(RpcProbe, MethodTellsWhetherAProgramAnswers) {
    start_service();
    const tests::Outcome answers = tests::hostadm("run host/ping_rpc host=127.0.0.1 program=536870913");
    EXPECT_EQ(answers.status, 0);
    EXPECT_EQ(answers.output, "program  536870913\nstate    answers\n");
    const tests::Outcome other =
        tests::hostadm("run host/ping_rpc host=127.0.0.1 program=536870914 version=3");
    EXPECT_EQ(other.status, 1);
    EXPECT_THAT(other.output, HasSubstr("program  536870914\nstate    silent\n"));
    EXPECT_THAT(other.output, HasSubstr("program 536870914 version 3 does not answer on 127.0.0.1"));
}

TEST_P(RpcProbe, KilledProbeIsMinusOne) {
    const UdpSocket silent;
    register_port(silent.port());
    Process killer([] { // kills its younger brother: the probe's child
        for (;;) {
            const pid_t probe = child_of(getppid(), getpid()); // its younger brother
            if (probe != 0)
                kill(probe, SIGKILL); // the RPC library holds every other signal back
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    });
    EXPECT_EQ(rpc_ping("127.0.0.1", program, version, 30), -1);
}

INSTANTIATE_TEST_SUITE_P(Through, RpcProbe, testing::Values(Mapper::own, Mapper::rpcbind),
                         [](const auto &mapper) {
                             return mapper.param == Mapper::own ? "OwnMapper" : "Rpcbind";
                         });

namespace {

bool client_is_never_made = false; // the stand-in for clntudp_create below

volatile sig_atomic_t alarms_of_the_test = 0;
void count_alarm(int) {
    alarms_of_the_test = alarms_of_the_test + 1;
}

// Seconds that a call took, in whole ones.
long seconds_of(const std::function<void()> &call) {
    const auto begin = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - begin).count();
}

class RpcProbeAlone : public testing::Test {
protected:
    void SetUp() override {
        if (!in_private_network())
            GTEST_SKIP() << "runs in a throwaway root only";
    }
    void TearDown() override {
        client_is_never_made = false;
        std::signal(SIGALRM, SIG_DFL);
    }
};

bool alarm_is_blocked() {
    sigset_t mask;
    sigprocmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, SIGALRM) == 1;
}

} // namespace

extern "C" CLIENT *clntudp_create(sockaddr_in *address, u_long number, u_long its_version, timeval wait,
                                  int *socket) {
    using Create = CLIENT *(sockaddr_in *, u_long, u_long, timeval, int *);
    while (client_is_never_made)
        pause();
    return reinterpret_cast<Create *>(dlsym(RTLD_NEXT, "clntudp_create"))(address, number, its_version, wait,
                                                                          socket);
}

TEST_F(RpcProbeAlone, NoPortMapperIsNoAnswer) {
    EXPECT_EQ(rpc_ping("127.0.0.1", program, version, 5), 1);
}

TEST_F(RpcProbeAlone, HungPortMapperIsThreeAfterTheLimit) {
    const UdpSocket silent(PMAPPORT);
    ASSERT_TRUE(silent.bound());
    const long seconds = seconds_of([] { EXPECT_EQ(rpc_ping("127.0.0.1", program, version, 1), 3); });
    EXPECT_LT(seconds, 15) << "the RPC library alone waits for a minute";
}

TEST_F(RpcProbeAlone, ProbeEndsWithItsCaller) {
    const UdpSocket silent(PMAPPORT);
    Process caller([] { rpc_ping("127.0.0.1", program, version, 600); });
    char question;
    ASSERT_EQ(recv(silent.descriptor(), &question, sizeof question, 0), 1);
    const pid_t probe = child_of(caller.id(), caller.id());
    EXPECT_TRUE(runs(probe));
    caller.end();
    EXPECT_TRUE(tests::eventually([&] { return !runs(probe); }));
}

// Both answer late: the port mapper's second answer comes when the service's is awaited.
TEST_F(RpcProbeAlone, LateSecondAnswerOfThePortMapperIsNotTheServices) {
    const UdpSocket mapper(PMAPPORT), service;
    ASSERT_TRUE(mapper.bound());
    // An answer to a call, with one number or none: only the call's own number is taken over.
    const auto answer = [](int descriptor, const std::array<std::uint32_t, 64> &question,
                           const sockaddr_in &asker, std::vector<std::uint32_t> result) {
        std::vector<std::uint32_t> words = {question[0], htonl(1), 0, 0, 0, 0};
        words.insert(words.end(), result.begin(), result.end());
        sendto(descriptor, words.data(), words.size() * sizeof words.front(), 0,
               reinterpret_cast<const sockaddr *>(&asker), sizeof asker);
    };
    const auto receive = [](int descriptor, std::array<std::uint32_t, 64> &question, sockaddr_in &asker) {
        socklen_t size = sizeof asker;
        return recvfrom(descriptor, question.data(), sizeof question, 0, reinterpret_cast<sockaddr *>(&asker),
                        &size) > 0;
    };
    const Process server([&] {
        std::array<std::uint32_t, 64> first{}, second{}, call{};
        sockaddr_in asker{}, again{}, caller{};
        // The mapper waits for the repeated question, and answers it once the service has been called.
        if (!receive(mapper.descriptor(), first, asker) || !receive(mapper.descriptor(), second, again))
            _exit(1);
        answer(mapper.descriptor(), first, asker, {htonl(service.port())});
        if (!receive(service.descriptor(), call, caller))
            _exit(1);
        call.swap(
            first); // an answer with the service's call number, from the mapper, that says "no such program"
        std::vector<std::uint32_t> refusal = {first[0], htonl(1), 0, 0, 0, htonl(1)};
        sendto(mapper.descriptor(), refusal.data(), refusal.size() * sizeof refusal.front(), 0,
               reinterpret_cast<const sockaddr *>(&asker), sizeof asker);
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        answer(service.descriptor(), first, caller, {});
        pause();
    });
    EXPECT_EQ(rpc_ping("127.0.0.1", program, version, 20), 0);
}

TEST_F(RpcProbeAlone, AlarmFromOutsideDuringThePortLookUpIsThree) {
    const UdpSocket silent(PMAPPORT);
    ASSERT_TRUE(silent.bound());
    const Process alarmer([&] {
        char question;
        if (recv(silent.descriptor(), &question, sizeof question, 0) != 1)
            _exit(1);
        kill(getppid(), SIGALRM);
        pause();
    });
    EXPECT_EQ(rpc_pinghost("127.0.0.1", program, version, 3), 3);
}

TEST_F(RpcProbeAlone, MethodTellsThatThePortMapperIsSilent) {
    const UdpSocket silent(PMAPPORT);
    const tests::Outcome run = tests::hostadm("run host/ping_rpc host=127.0.0.1 program=mountd timeout=1");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, HasSubstr("program  100005\nstate    mapper_silent\n"));
    EXPECT_THAT(run.output, HasSubstr("the port mapper of 127.0.0.1 does not answer within 1 second;"));
}

TEST_F(RpcProbeAlone, MethodRefusesNumbersThatAreNone) {
    for (const char *arguments :
         {"program=0", "program=4294967296", "program=99999999999999999999", "program=no-such-program",
          "program=100000 version=0", "program=100000 version=4294967296", "program=100000 timeout=0",
          "program=100000 timeout=3601"}) {
        const tests::Outcome run =
            tests::hostadm(std::string("run host/ping_rpc host=127.0.0.1 ") + arguments);
        EXPECT_EQ(run.status, 2) << arguments << ": " << run.output;
    }
}

TEST_F(RpcProbeAlone, SecondProbeOfAProcessKeepsItsLimit) {
    const UdpSocket silent(PMAPPORT);
    const long seconds = seconds_of([] {
        EXPECT_EQ(rpc_pinghost("127.0.0.1", program, version, 1), 3);
        EXPECT_EQ(rpc_pinghost("127.0.0.1", program, version, 1), 3);
    });
    EXPECT_LT(seconds, 30);
}

TEST_F(RpcProbeAlone, ClientThatIsNotMadeInTimeIsThreeEveryTime) {
    client_is_never_made = true;
    EXPECT_EQ(rpc_pinghost("127.0.0.1", program, version, 1), 3);
    EXPECT_FALSE(alarm_is_blocked());
    EXPECT_EQ(rpc_pinghost("127.0.0.1", program, version, 1), 3);
    EXPECT_EQ(rpc_ping("127.0.0.1", program, version, 1), 3);
}

TEST_F(RpcProbeAlone, AlarmHandlerOfTheCallerIsRestored) {
    std::signal(SIGALRM, count_alarm);
    EXPECT_EQ(rpc_pinghost("127.0.0.1", program, version, 5), 1);
    raise(SIGALRM);
    EXPECT_EQ(alarms_of_the_test, 1);
    client_is_never_made = true;
    EXPECT_EQ(rpc_pinghost("127.0.0.1", program, version, 1), 3);
    raise(SIGALRM);
    EXPECT_EQ(alarms_of_the_test, 2);
    EXPECT_EQ(alarm(0), 0u) << "no alarm is left running";
}

TEST_F(RpcProbeAlone, UnknownHostIsTwo) {
    EXPECT_EQ(rpc_ping("no-such-host.invalid", program, version, 1), 2);
}

TEST_F(RpcProbeAlone, DottedAddressSkipsTheNameLookup) {
    EXPECT_EQ(rpc_ping("192.0.2.1", program, version, 1), 1) << "there is no route to it here";
}
