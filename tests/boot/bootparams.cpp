// SPDX-License-Identifier: MIT
// bootparams [OPTION]... SERVER whoami ADDRESS
// bootparams [OPTION]... SERVER getfile CLIENT KEY
//
// Asks the boot-parameter service the two questions of a client that boots: who am I, and where is my root
// (or swap, ...). Directly, after asking rpcbind for the port; or, as boot programs do it, in one datagram
// that rpcbind hands on: -i to one host, -b to a broadcast address. -t MILLISECONDS is how long to wait
// (1000). Prints "name N domain D router R" or "server S address A path P". Exit status: 0 answered, 1 no
// answer, 2 cannot ask.
#include <arpa/inet.h>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <rpc/rpc.h>
// After rpc.h, whose types it needs.
#include <rpc/pmap_prot.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr rpcprog_t program = 100026;
constexpr rpcvers_t version = 1;
constexpr rpcproc_t whoami = 1;
constexpr rpcproc_t getfile = 2;

struct Address {
    int type = 1; // IPv4
    std::array<char, 4> octets = {};
};

// Everything that travels: the questions and the answers.
struct Message {
    Address address;
    char *first = nullptr;  // client name; name; server
    char *second = nullptr; // key; domain; path
};

// Its strings come from the decoder.
struct Answer : Message {
    Answer() = default;
    Answer(const Answer &) = delete;
    Answer &operator=(const Answer &) = delete;
    ~Answer() {
        std::free(first);
        std::free(second);
    }
};

extern "C" {

// Each octet travels as a character of its own.
static bool_t xdr_address(XDR *stream, Address *address) {
    if (!xdr_int(stream, &address->type) || address->type != 1)
        return FALSE;
    for (char &octet : address->octets)
        if (!xdr_char(stream, &octet))
            return FALSE;
    return TRUE;
}

static bool_t xdr_whoami_question(XDR *stream, Message *message) {
    return xdr_address(stream, &message->address);
}
static bool_t xdr_whoami_answer(XDR *stream, Message *message) {
    return xdr_string(stream, &message->first, 255) && xdr_string(stream, &message->second, 255) &&
           xdr_address(stream, &message->address);
}
static bool_t xdr_getfile_question(XDR *stream, Message *message) {
    return xdr_string(stream, &message->first, 255) && xdr_string(stream, &message->second, 32);
}
static bool_t xdr_getfile_answer(XDR *stream, Message *message) {
    return xdr_string(stream, &message->first, 255) && xdr_address(stream, &message->address) &&
           xdr_string(stream, &message->second, 1024);
}
}

using Coder = bool_t (*)(XDR *, Message *);

struct Question {
    rpcproc_t procedure;
    Coder encode;
    Coder decode;
    Message message;
};

void print(const Question &question, const Message &answer) {
    char address[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, answer.address.octets.data(), address, sizeof address);
    const char *const first = answer.first != nullptr ? answer.first : "";
    const char *const second = answer.second != nullptr ? answer.second : "";
    if (question.procedure == whoami)
        std::printf("name %s domain %s router %s\n", first, second, address);
    else
        std::printf("server %s address %s path %s\n", first, address, second);
}

struct DestroyClient {
    void operator()(CLIENT *client) const { clnt_destroy(client); }
};

int no_answer(const char *why) {
    std::fprintf(stderr, "no answer: %s\n", why);
    return 1;
}

int ask_directly(sockaddr_in server, Question &question, timeval patience) {
    server.sin_port = 0; // ask rpcbind
    int wire = RPC_ANYSOCK;
    const std::unique_ptr<CLIENT, DestroyClient> client(
        clntudp_create(&server, program, version, patience, &wire));
    if (client == nullptr)
        return no_answer(clnt_spcreateerror("rpcbind"));
    Answer answer;
    const clnt_stat status = clnt_call(
        client.get(), question.procedure, reinterpret_cast<xdrproc_t>(question.encode), &question.message,
        reinterpret_cast<xdrproc_t>(question.decode), static_cast<Message *>(&answer), patience);
    if (status != RPC_SUCCESS)
        return no_answer(clnt_sperrno(status));
    print(question, answer);
    return 0;
}

bool_t no_data(XDR *, void *) {
    return TRUE;
}

// The call to rpcbind that carries the question in it.
std::optional<u_int> encode_request(std::array<char, 1024> &out, Question &question) {
    std::array<char, 512> inner;
    XDR stream;
    xdrmem_create(&stream, inner.data(), inner.size(), XDR_ENCODE);
    if (!question.encode(&stream, &question.message))
        return std::nullopt;
    u_int length = xdr_getpos(&stream);
    char *const data = inner.data();

    rpc_msg call = {};
    call.rm_xid = static_cast<uint32_t>(getpid());
    call.rm_direction = CALL;
    call.rm_call.cb_rpcvers = RPC_MSG_VERSION;
    call.rm_call.cb_prog = PMAPPROG;
    call.rm_call.cb_vers = PMAPVERS;
    call.rm_call.cb_proc = PMAPPROC_CALLIT;
    call.rm_call.cb_cred = _null_auth;
    call.rm_call.cb_verf = _null_auth;
    u_int32_t numbers[] = {program, version, question.procedure};
    xdrmem_create(&stream, out.data(), out.size(), XDR_ENCODE);
    if (!xdr_callmsg(&stream, &call))
        return std::nullopt;
    for (u_int32_t &number : numbers)
        if (!xdr_u_int32_t(&stream, &number))
            return std::nullopt;
    char *bytes = data;
    if (!xdr_bytes(&stream, &bytes, &length, inner.size()))
        return std::nullopt;
    return xdr_getpos(&stream);
}

bool decode_reply(char *in, u_int size, Question &question, Message &answer) {
    rpc_msg reply = {};
    reply.acpted_rply.ar_verf = _null_auth;
    reply.acpted_rply.ar_results.proc = reinterpret_cast<xdrproc_t>(no_data);
    XDR stream;
    xdrmem_create(&stream, in, size, XDR_DECODE);
    std::array<char, 4096> inner;
    char *bytes = inner.data();
    u_int length = 0;
    u_int32_t port = 0;
    if (!xdr_replymsg(&stream, &reply) || reply.rm_xid != static_cast<uint32_t>(getpid()) ||
        reply.rm_reply.rp_stat != MSG_ACCEPTED || reply.acpted_rply.ar_stat != SUCCESS ||
        !xdr_u_int32_t(&stream, &port) || !xdr_bytes(&stream, &bytes, &length, inner.size()))
        return false;
    xdrmem_create(&stream, inner.data(), length, XDR_DECODE);
    return question.decode(&stream, &answer);
}

int ask_through_rpcbind(sockaddr_in server, Question &question, int milliseconds, bool broadcast) {
    server.sin_port = htons(PMAPPORT);
    const int wire = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    if (wire < 0 || (broadcast && setsockopt(wire, SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0)) {
        std::perror("socket");
        return 2;
    }
    std::array<char, 1024> out;
    const auto length = encode_request(out, question);
    if (!length)
        return 2;
    if (sendto(wire, out.data(), *length, 0, reinterpret_cast<const sockaddr *>(&server), sizeof server) <
        0) {
        std::perror("sendto");
        return 2;
    }
    pollfd readable = {wire, POLLIN, 0};
    if (poll(&readable, 1, milliseconds) <= 0)
        return no_answer("silence");
    std::array<char, 8192> in;
    const ssize_t size = recv(wire, in.data(), in.size(), 0);
    Answer answer;
    if (size < 0 || !decode_reply(in.data(), static_cast<u_int>(size), question, answer))
        return no_answer("refused");
    print(question, answer);
    return 0;
}

int usage() {
    std::fputs("usage: bootparams [-i | -b] [-t MILLISECONDS] SERVER {whoami ADDRESS | getfile CLIENT KEY}\n",
               stderr);
    return 2;
}

} // namespace

int main(int argc, char **argv) {
    char way = 'd';
    int milliseconds = 1000;
    for (int letter; (letter = getopt(argc, argv, "+ibt:")) != -1;) {
        if (letter == '?')
            return usage();
        if (letter == 't')
            milliseconds = std::atoi(optarg);
        else
            way = static_cast<char>(letter);
    }
    argc -= optind;
    argv += optind;
    sockaddr_in server = {};
    server.sin_family = AF_INET;
    if (argc < 3 || inet_pton(AF_INET, argv[0], &server.sin_addr) != 1)
        return usage();
    Question question = {};
    if (std::string(argv[1]) == "whoami" && argc == 3) {
        question = {whoami, xdr_whoami_question, xdr_whoami_answer, {}};
        if (inet_pton(AF_INET, argv[2], question.message.address.octets.data()) != 1)
            return usage();
    } else if (std::string(argv[1]) == "getfile" && argc == 4)
        question = {getfile, xdr_getfile_question, xdr_getfile_answer, {{}, argv[2], argv[3]}};
    else
        return usage();
    if (way == 'd')
        return ask_directly(server, question, {milliseconds / 1000, milliseconds % 1000 * 1000});
    return ask_through_rpcbind(server, question, milliseconds, way == 'b');
}
