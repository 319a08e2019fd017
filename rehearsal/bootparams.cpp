// SPDX-License-Identifier: MIT
#include "rehearsal/bootparams.hpp"

#include <arpa/inet.h>
#include <array>
#include <netinet/in.h>
#include <rpc/pmap_prot.h> // behind rpc.h, whose types it needs

#include "base/translation.hpp"

namespace hostadm::rehearsal {

namespace {

constexpr std::uint32_t version = 1, whoami = 1, getfile = 2;
constexpr u_int longest_name = 255, longest_path = 1024;

// An address travels as a type and four characters, each in a word of its own.
bool pass_address(XDR *xdr, std::array<char, 4> &octets) {
    int type = 1;
    if (!xdr_int(xdr, &type) || type != 1)
        return false;
    for (char &octet : octets)
        if (!xdr_char(xdr, &octet))
            return false;
    return true;
}

bool read_address(XDR *xdr, std::string &text) {
    std::array<char, 4> octets{};
    if (!pass_address(xdr, octets))
        return false;
    char dots[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, octets.data(), dots, sizeof dots);
    text = dots;
    return true;
}

bool read_string(XDR *xdr, std::string &text, u_int longest) {
    std::vector<char> buffer(longest + 1);
    char *bytes = buffer.data();
    if (!xdr_string(xdr, &bytes, longest))
        return false;
    text = bytes;
    return true;
}

bool write_string(XDR *xdr, std::string text) {
    char *bytes = text.data();
    return xdr_string(xdr, &bytes, static_cast<u_int>(text.size())) != FALSE;
}

// What the port mapper is asked to hand on: which procedure, and its arguments.
std::vector<char> handed_on(std::uint32_t procedure, std::vector<char> arguments) {
    return encoded([&](XDR *xdr) {
        std::uint32_t program = bootparams_program, its_version = version;
        char *bytes = arguments.data();
        u_int size = static_cast<u_int>(arguments.size());
        return xdr_u_int32_t(xdr, &program) && xdr_u_int32_t(xdr, &its_version) &&
               xdr_u_int32_t(xdr, &procedure) && xdr_bytes(xdr, &bytes, &size, size);
    });
}

// Its answer: the port of the service, and the results.
std::optional<std::vector<char>> handed_back(const std::vector<char> &results) {
    std::vector<char> inner(results.size() + 1);
    u_int size = 0;
    const bool fits = decode(results, [&](XDR *xdr) {
        std::uint32_t port = 0;
        char *bytes = inner.data();
        return xdr_u_int32_t(xdr, &port) && xdr_bytes(xdr, &bytes, &size, static_cast<u_int>(inner.size()));
    });
    if (!fits)
        return std::nullopt;
    inner.resize(size);
    return inner;
}

Reply ask(const Way &way, std::uint32_t procedure, std::vector<char> arguments) {
    Call question{.address = way.address,
                  .port = port_mapper_port,
                  .program = port_mapper_program,
                  .version = 2,
                  .procedure = PMAPPROC_CALLIT,
                  .arguments = {},
                  .interface = way.interface,
                  .patience = way.patience,
                  .tries = way.tries,
                  .from_anywhere = true};
    if (way.directly) {
        const auto port = registered_port(way.address, bootparams_program, version, IPPROTO_UDP);
        if (!port)
            return {.kind = Reply::Kind::silence, .reason = base::tr("the port mapper does not answer")};
        if (*port == 0)
            return {.kind = Reply::Kind::refused, .reason = base::tr("the service is not registered")};
        question.port = *port;
        question.from_anywhere = false;
        question.program = bootparams_program;
        question.version = version;
        question.procedure = procedure;
        question.arguments = std::move(arguments);
        return call(question);
    }
    question.arguments = handed_on(procedure, std::move(arguments));
    Reply reply = call(question);
    if (reply.well()) {
        if (auto results = handed_back(reply.results))
            reply.results = std::move(*results);
        else
            reply = {.kind = Reply::Kind::refused,
                     .reason = base::tr("the port mapper's answer makes no sense")};
    }
    return reply;
}

} // namespace

std::optional<WhoAmI> read_who_am_i(const std::vector<char> &results) {
    WhoAmI answer;
    if (!decode(results, [&](XDR *xdr) {
            return read_string(xdr, answer.name, longest_name) &&
                   read_string(xdr, answer.domain, longest_name) && read_address(xdr, answer.router);
        }))
        return std::nullopt;
    return answer;
}

std::optional<FileOfClient> read_file_of_client(const std::vector<char> &results) {
    FileOfClient answer;
    if (!decode(results, [&](XDR *xdr) {
            return read_string(xdr, answer.server, longest_name) && read_address(xdr, answer.address) &&
                   read_string(xdr, answer.path, longest_path);
        }))
        return std::nullopt;
    return answer;
}

Answer<WhoAmI> who_am_i(const Way &way, const std::string &client_address) {
    std::array<char, 4> octets{};
    inet_pton(AF_INET, client_address.c_str(), octets.data());
    Answer<WhoAmI> answer{ask(way, whoami, encoded([&](XDR *xdr) { return pass_address(xdr, octets); })), {}};
    if (answer.reply.well())
        answer.result = read_who_am_i(answer.reply.results);
    return answer;
}

Answer<FileOfClient> get_file(const Way &way, const std::string &client, const std::string &key) {
    Answer<FileOfClient> answer{ask(way, getfile, encoded([&](XDR *xdr) {
                                        return write_string(xdr, client) && write_string(xdr, key);
                                    })),
                                {}};
    if (answer.reply.well())
        answer.result = read_file_of_client(answer.reply.results);
    return answer;
}

} // namespace hostadm::rehearsal
