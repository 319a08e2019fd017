// SPDX-License-Identifier: MIT
#include "rehearsal/rpc.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/descriptor.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"

namespace hostadm::rehearsal {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t largest_datagram = 65536;

std::uint32_t next_transaction() {
    static std::atomic<std::uint32_t> last{static_cast<std::uint32_t>(getpid()) * 2654435761U};
    return ++last;
}

bool_t nothing(XDR *, void *) {
    return TRUE;
}

std::vector<char> message(const Call &call, std::uint32_t transaction) {
    return encoded([&](XDR *xdr) {
        rpc_msg head{};
        head.rm_xid = transaction;
        head.rm_direction = CALL;
        head.rm_call.cb_rpcvers = RPC_MSG_VERSION;
        head.rm_call.cb_prog = call.program;
        head.rm_call.cb_vers = call.version;
        head.rm_call.cb_proc = call.procedure;
        head.rm_call.cb_cred = _null_auth;
        head.rm_call.cb_verf = _null_auth;
        if (!xdr_callmsg(xdr, &head))
            return false;
        return xdr_opaque(xdr, const_cast<char *>(call.arguments.data()),
                          static_cast<u_int>(call.arguments.size())) != FALSE;
    });
}

const char *in_words(accept_stat state) {
    switch (state) {
    case PROG_UNAVAIL:
        return base::tr("the program is not there");
    case PROG_MISMATCH:
        return base::tr("it speaks other versions");
    case PROC_UNAVAIL:
        return base::tr("it does not know the procedure");
    case GARBAGE_ARGS:
        return base::tr("it did not understand the question");
    default:
        return base::tr("it reports an error of its system");
    }
}

// Nothing: the datagram is no reply to this call.
std::optional<Reply> read_reply(const std::vector<char> &datagram, std::uint32_t transaction) {
    Reply reply;
    std::size_t used = 0;
    const bool fits = decode(datagram, [&](XDR *xdr) {
        rpc_msg head{};
        char verifier[MAX_AUTH_BYTES];
        head.acpted_rply.ar_verf.oa_base = verifier;
        head.acpted_rply.ar_results.proc = reinterpret_cast<xdrproc_t>(nothing);
        if (!xdr_replymsg(xdr, &head) || head.rm_xid != transaction)
            return false;
        used = xdr_getpos(xdr);
        if (head.rm_reply.rp_stat != MSG_ACCEPTED) {
            reply.kind = Reply::Kind::refused;
            reply.reason = base::tr("it does not accept the caller");
        } else if (head.acpted_rply.ar_stat != SUCCESS) {
            reply.kind = Reply::Kind::refused;
            reply.reason = in_words(head.acpted_rply.ar_stat);
        } else {
            reply.kind = Reply::Kind::results;
        }
        return true;
    });
    if (!fits)
        return std::nullopt;
    if (reply.well())
        reply.results.assign(datagram.begin() + static_cast<std::ptrdiff_t>(used), datagram.end());
    return reply;
}

std::optional<Reply> wait_for_reply(int socket, std::uint32_t transaction,
                                    std::chrono::milliseconds patience) {
    const auto end = Clock::now() + patience;
    std::vector<char> datagram;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd readable{socket, POLLIN, 0};
        if (left <= 0 || poll(&readable, 1, static_cast<int>(left)) <= 0)
            return std::nullopt;
        datagram.resize(largest_datagram);
        sockaddr_in from{};
        socklen_t size = sizeof from;
        const ssize_t length =
            recvfrom(socket, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr *>(&from), &size);
        if (length < 0)
            return Reply{.kind = Reply::Kind::unreachable, .reason = std::strerror(errno)};
        datagram.resize(static_cast<std::size_t>(length));
        if (auto reply = read_reply(datagram, transaction)) {
            char text[INET_ADDRSTRLEN] = "";
            inet_ntop(AF_INET, &from.sin_addr, text, sizeof text);
            reply->from = text;
            return reply;
        }
    }
}

} // namespace

std::vector<char> encoded(const std::function<bool(XDR *)> &encode) {
    std::vector<char> bytes(largest_datagram);
    XDR xdr;
    xdrmem_create(&xdr, bytes.data(), static_cast<u_int>(bytes.size()), XDR_ENCODE);
    bytes.resize(encode(&xdr) ? xdr_getpos(&xdr) : 0);
    return bytes;
}

bool decode(const std::vector<char> &bytes, const std::function<bool(XDR *)> &decode) {
    XDR xdr;
    xdrmem_create(&xdr, const_cast<char *>(bytes.data()), static_cast<u_int>(bytes.size()), XDR_DECODE);
    return decode(&xdr);
}

Reply call(const Call &call) {
    const base::Descriptor wire(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(call.port);
    if (!wire.is_open() || inet_pton(AF_INET, call.address.c_str(), &to.sin_addr) != 1)
        return {.kind = Reply::Kind::unreachable, .reason = base::tr("{1} is no address", call.address)};
    const int on = 1;
    setsockopt(wire.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    const bool is_open = call.from_anywhere || !call.interface.empty();
    if (!call.interface.empty())
        setsockopt(wire.get(), SOL_SOCKET, SO_BINDTODEVICE, call.interface.c_str(),
                   static_cast<socklen_t>(call.interface.size()));
    // One that is connected hears that nobody listens there.
    if (!is_open && connect(wire.get(), reinterpret_cast<const sockaddr *>(&to), sizeof to) != 0)
        return {.kind = Reply::Kind::unreachable, .reason = std::strerror(errno)};
    const std::uint32_t transaction = next_transaction();
    const std::vector<char> bytes = message(call, transaction);
    Reply last;
    for (int tries = 0; tries < call.tries; ++tries) {
        if (sendto(wire.get(), bytes.data(), bytes.size(), 0,
                   is_open ? reinterpret_cast<const sockaddr *>(&to) : nullptr,
                   is_open ? sizeof to : 0) < 0) {
            last = {.kind = Reply::Kind::unreachable, .reason = std::strerror(errno)};
            continue;
        }
        if (auto reply = wait_for_reply(wire.get(), transaction, call.patience)) {
            last = std::move(*reply);
            if (last.kind != Reply::Kind::unreachable)
                return last;
        }
    }
    return last;
}

std::optional<std::uint16_t> registered_port(const std::string &address, std::uint32_t program,
                                             std::uint32_t version, std::uint32_t protocol) {
    constexpr std::uint32_t get_port = 3;
    const Reply reply =
        call({.address = address,
              .port = port_mapper_port,
              .program = port_mapper_program,
              .version = 2,
              .procedure = get_port,
              .arguments = encoded([&](XDR *xdr) {
                  std::uint32_t words[] = {program, version, protocol, 0};
                  return std::all_of(std::begin(words), std::end(words),
                                     [&](std::uint32_t &word) { return xdr_u_int32_t(xdr, &word) != FALSE; });
              })});
    std::uint32_t port = 0;
    if (!reply.well() || !decode(reply.results, [&](XDR *xdr) { return xdr_u_int32_t(xdr, &port) != FALSE; }))
        return std::nullopt;
    return static_cast<std::uint16_t>(port);
}

bool answers(const std::string &address, std::uint32_t program, std::uint32_t version) {
    const std::uint16_t port = program == port_mapper_program
                                   ? port_mapper_port
                                   : registered_port(address, program, version, IPPROTO_UDP).value_or(0);
    return port != 0 &&
           call({.address = address, .port = port, .program = program, .version = version}).well();
}

std::optional<std::vector<Exported>> export_list(const std::string &address) {
    constexpr std::uint32_t version = 3, exports = 5;
    constexpr u_int longest_path = 1024, longest_name = 255;
    const auto port = registered_port(address, mount_program, version, IPPROTO_UDP);
    if (!port || *port == 0)
        return std::nullopt;
    const Reply reply = call({.address = address,
                              .port = *port,
                              .program = mount_program,
                              .version = version,
                              .procedure = exports});
    if (!reply.well())
        return std::nullopt;
    std::vector<Exported> list;
    const auto text = [](XDR *xdr, u_int longest, std::string &value) {
        std::vector<char> buffer(longest + 1);
        char *bytes = buffer.data();
        const bool fits = xdr_string(xdr, &bytes, longest) != FALSE;
        value = fits ? bytes : "";
        return fits;
    };
    const bool whole = decode(reply.results, [&](XDR *xdr) {
        bool_t more = FALSE;
        while (xdr_bool(xdr, &more) && more) {
            Exported each;
            if (!text(xdr, longest_path, each.path))
                return false;
            bool_t client = FALSE;
            while (xdr_bool(xdr, &client) && client)
                if (!text(xdr, longest_name, each.clients.emplace_back()))
                    return false;
            list.push_back(std::move(each));
        }
        return true;
    });
    if (!whole)
        return std::nullopt;
    return list;
}

std::string in_one_line(std::vector<Exported> list) {
    for (Exported &each : list)
        std::sort(each.clients.begin(), each.clients.end());
    std::sort(list.begin(), list.end(),
              [](const Exported &one, const Exported &other) { return one.path < other.path; });
    std::string line;
    for (const Exported &each : list) {
        line += (line.empty() ? "" : "; ") +
                (each.clients.empty() ? base::tr("{1} to everybody", each.path)
                                      : base::tr("{1} to {2}", each.path, base::joined(each.clients, " ")));
    }
    return line.empty() ? base::tr("nothing") : line;
}

} // namespace hostadm::rehearsal
