// SPDX-License-Identifier: MIT
#include "server/checks/questions.hpp"

#include <algorithm>
#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <rpc/rpc.h>
// Behind rpc.h, on which it depends.
#include <rpc/pmap_prot.h>
#include <sys/socket.h>

#include "base/descriptor.hpp"

namespace hostadm::server {

namespace {

constexpr timeval patience{1, 0};
constexpr int patience_in_milliseconds = 1000;

sockaddr_in here(std::uint16_t port, std::uint32_t address = INADDR_LOOPBACK) {
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(port);
    place.sin_addr.s_addr = htonl(address);
    return place;
}

bool_t nothing(XDR *, void *) {
    return TRUE;
}
const auto no_value = reinterpret_cast<xdrproc_t>(nothing);

// A handle for a port that is known, so that the port mapper, which may hang for a minute, is not asked. Its
// socket has a limit of its own, since TCP would wait for ever for a daemon that accepts nobody.
class RpcCall {
public:
    RpcCall(std::uint32_t program, std::uint32_t version, bool tcp, std::uint16_t port)
        : socket_(socket(AF_INET, (tcp ? SOCK_STREAM : SOCK_DGRAM) | SOCK_CLOEXEC, 0)) {
        sockaddr_in place = here(port);
        setsockopt(socket_.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
        if (!socket_.is_open() ||
            connect(socket_.get(), reinterpret_cast<const sockaddr *>(&place), sizeof place) != 0)
            return;
        int descriptor = socket_.get();
        constexpr timeval again{0, 300'000};
        client_ = tcp ? clnttcp_create(&place, program, version, &descriptor, 0, 0)
                      : clntudp_create(&place, program, version, again, &descriptor);
    }
    ~RpcCall() {
        if (client_ != nullptr)
            clnt_destroy(client_);
    }
    RpcCall(const RpcCall &) = delete;
    RpcCall &operator=(const RpcCall &) = delete;

    template <typename Result>
    clnt_stat perform(std::uint32_t procedure, xdrproc_t decode, Result *result) const {
        if (client_ == nullptr)
            return RPC_CANTSEND;
        return clnt_call(client_, procedure, no_value, nullptr, decode, reinterpret_cast<caddr_t>(result),
                         patience);
    }

private:
    base::Descriptor socket_;
    CLIENT *client_ = nullptr;
};

} // namespace

std::optional<std::uint16_t> RpcAnswers::port_of(std::uint32_t program, std::uint32_t version,
                                                 bool tcp) const {
    for (const Registration &one : registrations)
        if (one.program == program && one.version == version && one.tcp == tcp)
            return one.port;
    return std::nullopt;
}

bool RpcAnswers::has(std::uint32_t program) const {
    return std::any_of(registrations.begin(), registrations.end(),
                       [&](const Registration &one) { return one.program == program; });
}

RpcAnswers ask_port_mapper() {
    RpcAnswers answers;
    const RpcCall call(PMAPPROG, PMAPVERS, true, PMAPPORT);
    pmaplist *list = nullptr;
    const clnt_stat status =
        call.perform(PMAPPROC_DUMP, reinterpret_cast<xdrproc_t>(xdr_pmaplist_ptr), &list);
    if (status == RPC_TIMEDOUT || status == RPC_CANTRECV)
        answers.mapper = RpcAnswers::Mapper::silent;
    if (status != RPC_SUCCESS)
        return answers;
    answers.mapper = RpcAnswers::Mapper::answered;
    for (const pmaplist *one = list; one != nullptr; one = one->pml_next)
        answers.registrations.push_back({static_cast<std::uint32_t>(one->pml_map.pm_prog),
                                         static_cast<std::uint32_t>(one->pml_map.pm_vers),
                                         one->pml_map.pm_prot == IPPROTO_TCP,
                                         static_cast<std::uint16_t>(one->pml_map.pm_port)});
    xdr_free(reinterpret_cast<xdrproc_t>(xdr_pmaplist_ptr), reinterpret_cast<char *>(&list));
    return answers;
}

Answer ask_null_procedure(std::uint32_t program, std::uint32_t version, bool tcp, std::uint16_t port) {
    const RpcCall call(program, version, tcp, port);
    switch (call.perform(NULLPROC, no_value, static_cast<char *>(nullptr))) {
    case RPC_SUCCESS:
    case RPC_PROGVERSMISMATCH: // it lives, and a client may ask for another version
        return Answer::answered;
    case RPC_TIMEDOUT:
        return Answer::silent;
    default:
        return Answer::refused;
    }
}

TftpAnswer ask_tftp(std::uint32_t address, const std::string &name) {
    constexpr std::uint16_t tftp_port = 69;
    const base::Descriptor wire(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_in place = here(tftp_port, address);
    // Operation 1, name, mode, each text with its NUL.
    std::string request("\0\1", 2);
    request.append(name).push_back('\0');
    request.append("octet").push_back('\0');
    TftpAnswer answer;
    if (!wire.is_open() || sendto(wire.get(), request.data(), request.size(), 0,
                                  reinterpret_cast<const sockaddr *>(&place), sizeof place) < 0)
        return answer;
    pollfd readable{wire.get(), POLLIN, 0};
    if (poll(&readable, 1, patience_in_milliseconds) <= 0)
        return answer;
    char packet[1024];
    sockaddr_in from{};
    socklen_t size = sizeof from;
    const ssize_t got =
        recvfrom(wire.get(), packet, sizeof packet, MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&from), &size);
    constexpr ssize_t head = 4;
    constexpr char data = 3;
    if (got < head) {
        answer.answer = got < 0 ? Answer::refused : Answer::silent;
        return answer;
    }
    if (packet[1] != data) {
        answer.answer = Answer::refused;
        answer.error.assign(packet + head, static_cast<std::size_t>(got - head));
        answer.error.resize(answer.error.find('\0') == std::string::npos ? answer.error.size()
                                                                         : answer.error.find('\0'));
        return answer;
    }
    answer.answer = Answer::answered;
    answer.block.assign(packet + head, static_cast<std::size_t>(got - head));
    // Enough: tell it to stop, or it would repeat the block for a while.
    const std::string stop("\0\5\0\0enough\0", 11);
    sendto(wire.get(), stop.data(), stop.size(), 0, reinterpret_cast<const sockaddr *>(&from), size);
    return answer;
}

} // namespace hostadm::server
