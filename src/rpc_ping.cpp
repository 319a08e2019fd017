// SPDX-License-Identifier: MIT
// Does an RPC program on a host answer within a time limit?
#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <csetjmp>
#include <csignal>
#include <cstring>
#include <limits>
#include <netdb.h>
#include <netinet/in.h>
#include <optional>
#include <rpc/rpc.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hostadm.h"
#include "src/support/text.hpp"

namespace {

using namespace hostadm;

enum Result { answered = 0, no_answer = 1, unknown_host = 2, no_client_in_time = 3, bad_arguments = -1 };

// The RPC library keeps a time limit as milliseconds in an int, and would not wait at all for a longer one.
constexpr int longest_timeout = std::numeric_limits<int>::max() / 1000;

sigjmp_buf env_alrm;

// xdr_void with the type that a call wants.
bool_t nothing(XDR *, ...) {
    return xdr_void();
}

// The clients of one probe. That of the port mapper stays until the end: its socket's port is then not that of the
// service's, where a late second answer of the port mapper would be taken for the service's.
struct Clients {
    Clients() = default;
    ~Clients() {
        for (CLIENT *client : {service, mapper})
            if (client != nullptr)
                clnt_destroy(client);
    }
    Clients(const Clients &) = delete;
    Clients &operator=(const Clients &) = delete;

    CLIENT *mapper = nullptr;
    CLIENT *service = nullptr;
};

// Calls a procedure; how that went is what the client's error record says.
template <typename Argument, typename Answer>
rpc_err call(CLIENT *client, rpcproc_t procedure, xdrproc_t encode, Argument *argument, xdrproc_t decode,
             Answer *answer, timeval limit) {
    rpc_err error = {};
    clnt_call(client, procedure, encode, reinterpret_cast<char *>(argument), decode,
              reinterpret_cast<char *>(answer), limit);
    clnt_geterr(client, &error);
    return error;
}

// Absent when the host is neither a dotted address nor known by name.
std::optional<sockaddr_in> address_of(const char *host) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr(host);
    if (address.sin_addr.s_addr != INADDR_NONE)
        return address;
    const hostent *found = gethostbyname(host);
    if (found == nullptr)
        return std::nullopt;
    if (found->h_addrtype == AF_INET && found->h_addr_list[0] != nullptr)
        std::memcpy(&address.sin_addr, found->h_addr_list[0], sizeof address.sin_addr);
    else
        address.sin_family = AF_UNSPEC;
    return address;
}

// Asks the host's port mapper for the program's UDP port and puts it into the address. The RPC library would
// do that itself for a port of 0, but it waits a minute for a silent port mapper. As it would, this asks again when
// nothing comes back: one lost packet is no silent mapper.
Result find_port(sockaddr_in *address, unsigned long program, unsigned long version, timeval limit,
                 Clients *clients) {
    sockaddr_in mapper_address = *address;
    mapper_address.sin_port = htons(PMAPPORT);
    int socket = RPC_ANYSOCK;
    const timeval ask_again = {1, 0};
    clients->mapper =
        clntudp_bufcreate(&mapper_address, PMAPPROG, PMAPVERS, ask_again, &socket, UDPMSGSIZE, UDPMSGSIZE);
    if (clients->mapper == nullptr)
        return no_answer;
    pmap wanted = {program, version, IPPROTO_UDP, 0};
    unsigned short port = 0;
    const rpc_err error = call(clients->mapper, PMAPPROC_GETPORT, reinterpret_cast<xdrproc_t>(xdr_pmap),
                               &wanted, reinterpret_cast<xdrproc_t>(xdr_u_short), &port, limit);
    if (error.re_status == RPC_TIMEDOUT)
        return no_client_in_time;
    address->sin_port = htons(port);
    const bool no_mapper = error.re_status != RPC_SUCCESS && error.re_errno == ECONNREFUSED;
    return port != 0 || no_mapper ? answered
                                  : no_answer; // without a mapper the library gives up at once, too
}

volatile std::sig_atomic_t alarmed = 0;
void note_alarm(int) {
    alarmed = 1;
}

// An alarm from outside during the look-up ends the probe as one during the making of the client does. But the RPC
// library holds a lock of its own where it lets signals through again: there nothing may jump.
Result find_port_unless_alarmed(sockaddr_in *address, unsigned long program, unsigned long version,
                                timeval limit, Clients *clients) {
    struct sigaction ours = {};
    struct sigaction previous;
    ours.sa_handler = note_alarm;
    ours.sa_flags = SA_RESTART;
    alarmed = 0;
    sigaction(SIGALRM, &ours, &previous);
    const Result found = find_port(address, program, version, limit, clients);
    sigaction(SIGALRM, &previous, nullptr);
    return alarmed != 0 ? no_client_in_time : found;
}

// Makes the client of the service within the time limit. Nothing here may need a destructor: the alarm jumps over it.
Result create_client(sockaddr_in *address, unsigned long program, unsigned long version, timeval limit,
                     Clients *clients) {
    struct sigaction ours = {};
    struct sigaction previous;
    ours.sa_handler = tmo_routine;
    sigaction(SIGALRM, &ours, &previous);
    if (sigsetjmp(env_alrm, 1) != 0) { // with the signal mask, in which SIGALRM is blocked during its handler
        sigaction(SIGALRM, &previous, nullptr);
        return no_client_in_time;
    }
    int socket = RPC_ANYSOCK;
    alarm(static_cast<unsigned int>(limit.tv_sec));
    clients->service = clntudp_create(address, program, version, limit, &socket);
    alarm(0);
    sigaction(SIGALRM, &previous, nullptr);
    return clients->service == nullptr ? no_answer : answered;
}

} // namespace

int rpc_ping(const char *host, unsigned long program, unsigned long version, int timeout) {
    const pid_t child = fork();
    if (child == -1)
        return -1;
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // ends with its caller: the RPC library holds other signals back
        _exit(rpc_pinghost(host, program, version, timeout));
    }
    int status = 0;
    pid_t ended;
    do
        ended = wait(&status); // for whichever child ends first: another one's end hides the answer
    while (ended == -1 && errno == EINTR);
    if (ended != child || (status & 0xff) != 0)
        return -1;
    return (status >> 8) & 0xff;
}

int rpc_pinghost(const char *host, unsigned long program, unsigned long version, int timeout) {
    if (is_empty(host) || program == 0 || version == 0)
        return bad_arguments;
    std::optional<sockaddr_in> address = address_of(host);
    if (!address)
        return unknown_host;
    if (address->sin_family != AF_INET || timeout <= 0) // without any time nobody can answer
        return no_answer;
    const timeval limit = {std::min(timeout, longest_timeout), 0};
    Clients clients;
    if (const Result found = find_port_unless_alarmed(&*address, program, version, limit, &clients);
        found != answered)
        return found;
    if (const Result made = create_client(&*address, program, version, limit, &clients); made != answered)
        return made;
    const rpc_err error = call(clients.service, NULLPROC, nothing, static_cast<char *>(nullptr), nothing,
                               static_cast<char *>(nullptr), limit);
    return error.re_status == RPC_SUCCESS ? answered : no_answer;
}

void tmo_routine(int) {
    siglongjmp(env_alrm, 1);
}
