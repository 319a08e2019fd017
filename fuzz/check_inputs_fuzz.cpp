// SPDX-License-Identifier: MIT
// Any bytes as what the checks of a server read: tables, the name-service switch, access lists, the rules of the packet
// filter, the settings of an NFS server, a line of a process. The parts of the input are parted by NUL bytes, in the
// order in which they are taken below.
//
// What must hold: nothing crashes or hangs; each line that is told of is one of the table; a finding says where it is,
// what is wrong and how to mend it, in text that a terminal bears; a filter without rules drops nothing.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "base/processes.hpp"
#include "base/text.hpp"
#include "server/checks/access.hpp"
#include "server/checks/packet_filter.hpp"
#include "server/checks/snapshot.hpp"
#include "server/checks/subjects.hpp"
#include "server/checks/system_tables.hpp"

namespace {

using namespace hostadm::server;

void require(bool kept, const char *promise) {
    if (!kept) {
        std::fprintf(stderr, "broken: %s\n", promise);
        std::abort();
    }
}

class Parts {
public:
    explicit Parts(std::string_view text) : rest_(text) {}
    std::string next() {
        const std::size_t end = std::min(rest_.find('\0'), rest_.size());
        std::string part(rest_.substr(0, end));
        rest_.remove_prefix(std::min(end + 1, rest_.size()));
        return part;
    }

private:
    std::string_view rest_;
};

std::size_t lines_in(const std::string &text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
}

// Some readers take a path.
class File {
public:
    explicit File(const std::string &text) {
        const int file = mkostemp(path_.data(), O_CLOEXEC);
        require(file >= 0 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()),
                "a file");
        close(file);
    }
    ~File() { unlink(path_.c_str()); }
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    const std::string &path() const { return path_; }

private:
    std::string path_ = "/dev/shm/hostadm-fuzz-XXXXXX";
};

void check_table(const KeyTable &table, std::size_t size_of_key) {
    for (const KeyLine &line : table.lines) {
        require(line.line >= 1 && line.line <= lines_in(table.file.text), "a line is one of the table");
        require(line.value.empty() || line.value.size() == size_of_key || line.value.size() == 16,
                "a key has its size");
        for (const std::string &name : line.names)
            require(!name.empty(), "a name is not empty");
    }
    for (const auto &[name, places] : table.by_name)
        for (const std::size_t place : places)
            require(place < table.lines.size(), "a name leads to a line");
}

void check_findings(const Findings &findings) {
    for (const Finding &finding : findings) {
        require(!finding.where.empty() && !finding.what.empty(), "a finding says where and what");
        require(!finding.repair.empty(), "a finding says how to mend it");
        require(finding.repair.find('\n') == finding.repair.npos, "a repair is one line");
    }
}

// The clients of bootparams, as they are joined with the other tables.
void add_clients(Snapshot &server) {
    for (std::size_t entry = 0; entry < server.bootparams.lines.size(); ++entry) {
        CheckedClient client;
        client.name = server.bootparams.lines[entry].name;
        client.entry = entry;
        for (const KeyLine *line : server.hosts.with_name(client.name))
            if (line->is_ipv4() && client.address.empty()) {
                client.address = line->key;
                client.number = ipv4_number(line->value);
            }
        if (const auto lines = server.ethers.with_name(client.name); !lines.empty())
            client.ethernet = lines.front()->key;
        client.caller = {client.number, {client.name}};
        server.client_places.emplace(hostadm::base::lower_case(client.name), server.clients.size());
        server.clients.push_back(client);
    }
}

void check_filter(const PacketFilter &filter) {
    for (const char *protocol : {"udp", "tcp", "rarp"})
        for (const auto direction : {Packet::Direction::in, Packet::Direction::out})
            for (const std::uint16_t port : {std::uint16_t{69}, std::uint16_t{111}})
                if (const auto dropped = filter.drops(
                        {direction, protocol, "eth0", 0xc0a8010a, 0xc0a80101, 1023, port, false, false})) {
                    require(!filter.empty(), "no rules drop nothing");
                    require(!dropped->where.empty() && !dropped->what.empty(),
                            "it is told where a packet ends");
                }
}

void check_exports(const NfsSettings &settings) {
    const Caller caller{0xc0a8010a, {"client1"}};
    for (const char *path : {"/", "/export/root/client1", "export"})
        if (const Export *found = export_of(settings, path))
            access_by_export(*found, caller);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    Parts parts(std::string_view(reinterpret_cast<const char *>(data), size));
    Snapshot server;
    server.hosts = parse_hosts({"/etc/hosts", 0, parts.next()});
    server.ethers = parse_ethers({"/etc/ethers", 0, parts.next()});
    server.bootparams = parse_bootparams({"/etc/bootparams", 0, parts.next()});
    server.name_switch = {"/etc/nsswitch.conf", 0, parts.next()};
    server.sources = parse_switch(server.name_switch.text);
    server.allowed_hosts = parts.next();
    server.denied_hosts = parts.next();
    server.filter = parse_packet_filter(parts.next());
    check_table(server.hosts, 4);
    check_table(server.ethers, 6);
    for (const BootLine &line : server.bootparams.lines)
        require(line.line >= 1 && line.line <= lines_in(server.bootparams.file.text) && !line.name.empty(),
                "an entry is one of the table");
    add_clients(server);
    check_filter(server.filter);
    check_findings(hosts_table_of_server(server));
    check_findings(ethers_table_of_server(server));
    check_findings(name_service_of_server(server));
    constexpr std::size_t enough = 8;
    for (std::size_t i = 0; i < std::min(server.clients.size(), enough); ++i) {
        check_findings(hosts_table_of_client(server, server.clients[i]));
        check_findings(ethers_table_of_client(server, server.clients[i]));
        check_findings(access_control_of_client(server, server.clients[i]));
        check_findings(packet_filter_of_client(server, server.clients[i]));
    }
    const File ganesha(parts.next()), exports(parts.next());
    check_exports(read_ganesha(ganesha.path()));
    check_exports(read_exports_now(exports.path()));
    const std::string process = parts.next();
    if (const auto stat = hostadm::base::parse_process_stat(process))
        require(stat->pid > 0, "a process has a number");
    return 0;
}
