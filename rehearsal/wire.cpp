// SPDX-License-Identifier: MIT
#include "rehearsal/wire.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>

#include "base/translation.hpp"
#include "rehearsal/bootparams.hpp"
#include "rehearsal/reverse_arp.hpp"

namespace hostadm::rehearsal {

namespace {

using server::Stage;

constexpr std::size_t ethernet_head = 14, cooked_head = 16, cooked_2_head = 20, udp_head = 8;
constexpr std::uint16_t ip_type = 0x0800, tftp_port = 69;
constexpr std::size_t tftp_block = 512;
constexpr std::size_t most_pending = 10000; // of a wire on which nobody is answered

std::uint16_t two_bytes(std::string_view bytes, std::size_t at) {
    return static_cast<std::uint16_t>(static_cast<unsigned char>(bytes[at]) << 8 |
                                      static_cast<unsigned char>(bytes[at + 1]));
}

std::uint32_t four_bytes(std::string_view bytes, std::size_t at) {
    return static_cast<std::uint32_t>(two_bytes(bytes, at)) << 16 | two_bytes(bytes, at + 2);
}

std::string address_at(std::string_view bytes, std::size_t at) {
    std::array<std::uint8_t, 4> octets{};
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), 4, octets.begin());
    return in_dots(octets);
}

std::string ethernet_at(std::string_view bytes, std::size_t at) {
    std::array<std::uint8_t, 6> octets{};
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), 6, octets.begin());
    return in_colons(octets);
}

std::string end_of(const std::string &address, std::uint16_t port) {
    return address + ':' + std::to_string(port);
}

// Text up to a NUL, of which there must be one.
std::optional<std::string> text_at(std::string_view bytes, std::size_t at) {
    const std::size_t end = bytes.find('\0', at);
    if (at >= bytes.size() || end == bytes.npos)
        return std::nullopt;
    return std::string(bytes.substr(at, end - at));
}

// Words of a remote procedure call, one after another; what is not there reads as nothing.
class Words {
public:
    explicit Words(std::string_view bytes) : bytes_(bytes) {}
    std::optional<std::uint32_t> number() {
        if (at_ + 4 > bytes_.size())
            return std::nullopt;
        at_ += 4;
        return four_bytes(bytes_, at_ - 4);
    }
    std::optional<std::string> text() {
        const auto size = number();
        if (!size || *size > bytes_.size() - at_)
            return std::nullopt;
        std::string value(bytes_.substr(at_, *size));
        at_ += (*size + 3) / 4 * 4;
        at_ = std::min(at_, bytes_.size());
        return value;
    }
    bool skip_credentials() { return number() && text(); }
    std::string_view rest() const { return bytes_.substr(at_); }

private:
    std::string_view bytes_;
    std::size_t at_ = 0;
};

std::string program_name(std::uint32_t program) {
    switch (program) {
    case port_mapper_program:
        return base::tr("the port mapper");
    case bootparams_program:
        return base::tr("the boot-parameter service");
    case mount_program:
        return base::tr("the mount daemon");
    case nfs_program:
        return base::tr("the NFS server");
    default:
        return base::tr("RPC program {1}", program);
    }
}

bool is_boot_program(std::uint32_t program) {
    return program == bootparams_program || program == mount_program || program == nfs_program;
}

std::string nfs_failure(std::uint32_t status) {
    switch (status) {
    case 1:
    case 13:
        return base::tr("access denied");
    case 2:
        return base::tr("no such file");
    case 20:
        return base::tr("not a directory");
    case 28:
        return base::tr("no space left");
    case 30:
        return base::tr("read-only file system");
    case 70:
        return base::tr("stale handle: the root was moved, or exported anew, under the client");
    case 10008:
        return base::tr("try later: the server is in its grace period");
    default:
        return base::tr("error {1}", status);
    }
}

constexpr const char *nfs_procedures[] = {
    "nothing", "GETATTR",     "SETATTR", "LOOKUP", "ACCESS",   "READLINK", "READ",   "WRITE",
    "CREATE",  "MKDIR",       "SYMLINK", "MKNOD",  "REMOVE",   "RMDIR",    "RENAME", "LINK",
    "READDIR", "READDIRPLUS", "FSSTAT",  "FSINFO", "PATHCONF", "COMMIT"};

std::string nfs_topic(std::uint32_t procedure, Words arguments) {
    if (procedure >= std::size(nfs_procedures))
        return "NFS";
    const std::string name = std::string("NFS ") + nfs_procedures[procedure];
    constexpr std::uint32_t lookup = 3, create = 8;
    if ((procedure == lookup || procedure == create) && arguments.text())
        if (const auto file = arguments.text())
            return name + " " + *file;
    return name;
}

std::vector<char> as_bytes(std::string_view text) {
    return {text.begin(), text.end()};
}

// What is asked of the boot-parameter service.
std::string bootparams_topic(std::uint32_t procedure, Words arguments) {
    constexpr std::uint32_t whoami = 1, getfile = 2;
    if (procedure == whoami)
        return base::tr("its name");
    if (procedure != getfile)
        return base::tr("something of the boot-parameter service");
    const auto client = arguments.text(), key = arguments.text();
    return client && key ? base::tr("the {1} of {2}", *key, *client) : base::tr("a file");
}

enum class Asked { direct, broadcast, port_mapper };

std::string question_text(std::uint32_t program, const std::string &topic, Asked how) {
    if (program == nfs_program)
        return base::tr("asks {1}", topic);
    if (program == mount_program)
        return base::tr("asks to mount {1}", topic);
    if (how == Asked::broadcast)
        return base::tr("asks for {1}, by broadcast", topic);
    return how == Asked::port_mapper ? base::tr("asks for {1}, through the port mapper", topic)
                                     : base::tr("asks for {1}", topic);
}

} // namespace

std::optional<Heard> Wire::read(std::string_view frame) {
    const std::size_t head = framing_ == Framing::ethernet ? ethernet_head
                             : framing_ == Framing::cooked ? cooked_head
                                                           : cooked_2_head;
    if (frame.size() < head)
        return std::nullopt;
    const std::size_t type_at = framing_ == Framing::ethernet ? 12 : framing_ == Framing::cooked ? 14 : 0;
    const std::size_t sender_at = framing_ == Framing::ethernet ? 6 : framing_ == Framing::cooked ? 6 : 12;
    const std::uint16_t type = two_bytes(frame, type_at);
    const std::string_view payload = frame.substr(head);
    if (type == reverse_arp_type)
        return read_reverse_arp(payload);
    if (type == ip_type)
        return read_packet(payload, ethernet_at(frame, sender_at));
    return std::nullopt;
}

std::optional<Heard> Wire::read_reverse_arp(std::string_view payload) const {
    const auto packet = ReverseArp::read(payload);
    if (!packet)
        return std::nullopt;
    Heard heard{.stage = Stage::address,
                .ethernet = in_colons(packet->target_ethernet),
                .topic = base::tr("its address")};
    if (packet->kind == ReverseArp::Kind::request) {
        heard.text = base::tr("asks for its address (reverse ARP)");
        return heard;
    }
    heard.kind = Heard::Kind::answer;
    heard.address = in_dots(packet->target_address);
    heard.text = base::tr("gets the address {1} from {2}", heard.address, in_dots(packet->sender_address));
    return heard;
}

std::optional<Heard> Wire::read_packet(std::string_view packet, const std::string &ethernet) {
    constexpr std::size_t shortest = 20;
    constexpr unsigned char udp = 17, tcp = 6;
    if (packet.size() < shortest || static_cast<unsigned char>(packet[0]) >> 4 != 4)
        return std::nullopt;
    const std::size_t head = static_cast<std::size_t>(packet[0] & 0x0f) * 4;
    const std::size_t total = two_bytes(packet, 2);
    const bool is_later_part = (two_bytes(packet, 6) & 0x1fff) != 0;
    if (head < shortest || packet.size() < head + udp_head || is_later_part)
        return std::nullopt;
    const auto protocol = static_cast<unsigned char>(packet[9]);
    Datagram datagram{.ethernet = ethernet,
                      .source = address_at(packet, 12),
                      .target = address_at(packet, 16),
                      .payload = {}};
    if (protocol != udp && protocol != tcp)
        return std::nullopt;
    std::string_view body = packet.substr(head, total > head ? total - head : 0);
    if (body.size() < udp_head)
        return std::nullopt;
    datagram.from = two_bytes(body, 0);
    datagram.to = two_bytes(body, 2);
    ethernets_[datagram.source] = ethernet;
    if (protocol == udp) {
        datagram.payload = body.substr(udp_head);
        return read_datagram(datagram);
    }
    constexpr std::size_t tcp_shortest = 20, record_mark = 4;
    if (body.size() < tcp_shortest)
        return std::nullopt;
    const std::size_t tcp_head = (static_cast<unsigned char>(body[12]) >> 4) * std::size_t{4};
    if (tcp_head < tcp_shortest || body.size() <= tcp_head + record_mark)
        return std::nullopt;
    // Calls are short: each begins its segment, behind the mark of its record.
    datagram.payload = body.substr(tcp_head + record_mark);
    return read_rpc(datagram);
}

std::optional<Heard> Wire::read_datagram(const Datagram &datagram) {
    if (datagram.to == tftp_port)
        return read_tftp_request(datagram);
    if (transfers_.contains(end_of(datagram.target, datagram.to)))
        return read_tftp_block(datagram);
    return read_rpc(datagram);
}

std::optional<Heard> Wire::read_tftp_request(const Datagram &datagram) {
    constexpr std::uint16_t read_request = 1;
    const auto file = text_at(datagram.payload, 2);
    if (datagram.payload.size() < 4 || two_bytes(datagram.payload, 0) != read_request || !file)
        return std::nullopt;
    transfers_[end_of(datagram.source, datagram.from)] = {*file};
    return Heard{.kind = Heard::Kind::question,
                 .stage = Stage::boot_program,
                 .ethernet = datagram.ethernet,
                 .address = datagram.source,
                 .topic = base::tr("the file {1}", *file),
                 .text = base::tr("asks for the file {1} (TFTP)", *file)};
}

std::optional<Heard> Wire::read_tftp_block(const Datagram &datagram) {
    constexpr std::uint16_t data = 3, error = 5;
    constexpr std::size_t block_head = 4;
    const std::string end = end_of(datagram.target, datagram.to);
    Transfer &transfer = transfers_[end];
    if (datagram.payload.size() < block_head)
        return std::nullopt;
    const auto ethernet = ethernets_.find(datagram.target);
    Heard heard{.kind = Heard::Kind::answer,
                .stage = Stage::boot_program,
                .ethernet = ethernet == ethernets_.end() ? "" : ethernet->second,
                .address = datagram.target,
                .topic = base::tr("the file {1}", transfer.file),
                .text = {}};
    const std::uint16_t operation = two_bytes(datagram.payload, 0);
    if (operation == error) {
        heard.kind = Heard::Kind::failure;
        heard.text = base::tr("is refused the file {1}: {2}", transfer.file,
                              text_at(datagram.payload, block_head).value_or(base::tr("no reason is given")));
        transfers_.erase(end);
        return heard;
    }
    if (operation != data)
        return std::nullopt;
    const std::size_t size = datagram.payload.size() - block_head;
    const bool is_first = two_bytes(datagram.payload, 2) == 1 && transfer.bytes == 0;
    transfer.bytes += size;
    if (size < tftp_block) {
        heard.text = base::tr("has the file {1}, {2} bytes", transfer.file, transfer.bytes);
        transfers_.erase(end);
        return heard;
    }
    if (!is_first)
        return std::nullopt;
    heard.text = base::tr("is sent the file {1}", transfer.file);
    heard.ends_topic = false;
    return heard;
}

std::optional<Heard> Wire::read_rpc(const Datagram &datagram) {
    constexpr std::size_t shortest = 24;
    constexpr std::uint32_t is_call = 0, is_reply = 1;
    if (datagram.payload.size() < shortest)
        return std::nullopt;
    const std::uint32_t direction = four_bytes(datagram.payload, 4);
    if (direction == is_call && four_bytes(datagram.payload, 8) == RPC_MSG_VERSION)
        return read_call(datagram, datagram.payload);
    if (direction == is_reply)
        return read_reply(datagram, datagram.payload);
    return std::nullopt;
}

std::optional<Heard> Wire::read_call(const Datagram &datagram, std::string_view message) {
    constexpr std::uint32_t get_port = 3, hand_on = 5, mount = 1;
    Words words(message);
    const std::uint32_t number = words.number().value_or(0);
    words.number(); // a call
    words.number(); // of this version of the protocol
    std::uint32_t program = words.number().value_or(0);
    words.number(); // its version
    std::uint32_t procedure = words.number().value_or(0);
    if (!words.skip_credentials() || !words.skip_credentials() || procedure == 0)
        return std::nullopt;
    PendingCall call{.program = program, .procedure = procedure, .topic = {}};
    Asked how = Asked::direct;
    if (program == port_mapper_program && procedure == hand_on) {
        program = words.number().value_or(0);
        words.number();
        procedure = words.number().value_or(0);
        words.number(); // how long the arguments are
        call = {.program = program, .procedure = procedure, .topic = {}, .handed_on = true};
        how = datagram.target.ends_with(".255") ? Asked::broadcast : Asked::port_mapper;
    }
    if (program == port_mapper_program && procedure == get_port) {
        const std::uint32_t wanted = words.number().value_or(0);
        if (!is_boot_program(wanted))
            return std::nullopt;
        call.topic = base::tr("the port of {1}", program_name(wanted));
        call.stage = wanted == bootparams_program ? Stage::name : Stage::root;
    } else if (program == bootparams_program) {
        call.topic = bootparams_topic(procedure, words);
        call.stage = procedure == 1 ? Stage::name : Stage::parameters;
    } else if (program == mount_program && procedure == mount) {
        call.topic = words.text().value_or(base::tr("something"));
        call.stage = Stage::root;
    } else if (program == nfs_program) {
        call.topic = nfs_topic(procedure, words);
        call.stage = Stage::start;
    } else {
        return std::nullopt;
    }
    if (calls_.size() > most_pending)
        calls_.clear();
    calls_[end_of(datagram.source, datagram.from) + '#' + std::to_string(number)] = call;
    return Heard{.kind = Heard::Kind::question,
                 .stage = call.stage,
                 .ethernet = datagram.ethernet,
                 .address = datagram.source,
                 .topic = call.topic,
                 .text = question_text(program, call.topic, how)};
}

std::optional<Heard> Wire::read_reply(const Datagram &datagram, std::string_view message) {
    Words words(message);
    const std::uint32_t number = words.number().value_or(0);
    const auto found = calls_.find(end_of(datagram.target, datagram.to) + '#' + std::to_string(number));
    if (found == calls_.end())
        return std::nullopt;
    const PendingCall call = found->second;
    calls_.erase(found);
    const auto ethernet = ethernets_.find(datagram.target);
    Heard heard{.kind = Heard::Kind::answer,
                .stage = call.stage,
                .ethernet = ethernet == ethernets_.end() ? "" : ethernet->second,
                .address = datagram.target,
                .topic = call.topic,
                .text = {}};
    const auto refused = [&](const std::string &why) {
        heard.kind = Heard::Kind::failure;
        heard.text = call.program == mount_program ? base::tr("may not mount {1}: {2}", call.topic, why)
                                                   : base::tr("does not get {1}: {2}", call.topic, why);
        return heard;
    };
    words.number(); // a reply
    if (words.number().value_or(1) != 0)
        return refused(base::tr("the server does not accept the caller"));
    if (!words.skip_credentials() || words.number().value_or(1) != 0)
        return refused(base::tr("the server does not serve that"));
    if (call.handed_on) {
        words.number(); // the port of the service
        words.number(); // how long the results are
    }
    if (call.program == bootparams_program && call.procedure == 1) {
        const auto result = read_who_am_i(as_bytes(words.rest()));
        if (!result)
            return refused(base::tr("the answer makes no sense"));
        heard.text = base::tr("learns that it is {1}, router {2}", result->name, result->router);
    } else if (call.program == bootparams_program) {
        const auto result = read_file_of_client(as_bytes(words.rest()));
        if (!result)
            return refused(base::tr("the answer makes no sense"));
        heard.text = base::tr("learns where {1} is: {2} ({3}):{4}", call.topic, result->server,
                              result->address, result->path);
    } else if (call.program == port_mapper_program) {
        const std::uint32_t port = words.number().value_or(0);
        if (port == 0)
            return refused(base::tr("it is not registered with the port mapper"));
        heard.text = base::tr("gets {1}: {2}", call.topic, port);
    } else {
        const std::uint32_t status = words.number().value_or(0);
        if (status != 0) {
            // Programs look for many files that need not be there.
            constexpr std::uint32_t no_such_file = 2;
            heard.is_usual = call.program == nfs_program && status == no_such_file;
            return refused(nfs_failure(status));
        }
        heard.text = call.program == mount_program ? base::tr("mounts {1}", call.topic)
                                                   : base::tr("gets {1}", call.topic);
    }
    return heard;
}

} // namespace hostadm::rehearsal
