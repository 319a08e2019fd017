// SPDX-License-Identifier: MIT
// The daemon that hands out boot programs.
#include <algorithm>
#include <arpa/inet.h>
#include <fcntl.h>
#include <filesystem>
#include <netdb.h>
#include <pwd.h>
#include <system_error>
#include <unistd.h>

#include "base/descriptor.hpp"
#include "base/files.hpp"
#include "base/program.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/boot_area.hpp"
#include "server/checks/daemon_findings.hpp"
#include "server/checks/subjects.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

constexpr std::uint16_t tftp_port = 69;
constexpr const char *start = "in.tftpd --listen --ipv4 --secure /tftpboot";
const char *nothing() {
    return base::tr("no client gets its boot program");
}

std::string value_of(const std::vector<std::string> &arguments, char flag, std::string_view long_name) {
    Daemon daemon;
    daemon.process.arguments = arguments;
    return daemon.value_of(flag, long_name).value_or("");
}

// A line of inetd's table is changed, or the daemon started anew with other options.
std::string start_anew(const Snapshot &server) {
    if (server.tftp.on_demand)
        return "sed -i '" + std::to_string(server.tftp.line) +
               "s,.*,tftp dgram udp wait root /usr/sbin/in.tftpd in.tftpd --ipv4 --secure /tftpboot,' "
               "/etc/inetd.conf && kill -HUP " +
               std::to_string(server.tftp.daemon->process.pid);
    return "kill " + std::to_string(server.tftp.daemon->process.pid) + "; sleep 1; " + start;
}

Finding wrong(const Snapshot &server, const std::string &what, const std::string &why = nothing()) {
    return {.stage = Stage::boot_program,
            .where = server.tftp.on_demand
                         ? "/etc/inetd.conf:" + std::to_string(server.tftp.line)
                         : base::tr("in.tftpd, process {1}", server.tftp.daemon->process.pid),
            .what = what,
            .why = why,
            .repair = start_anew(server)};
}

// A line of inetd's table that is there but asleep.
Finding none_runs(const Snapshot &server) {
    const Wanted wanted{.found = {},
                        .name = "in.tftpd",
                        .programs = {"/usr/sbin/in.tftpd", "/usr/sbin/atftpd"},
                        .package = "tftpd-hpa",
                        .stage = Stage::boot_program,
                        .why = nothing(),
                        .start = start};
    Finding finding = *defect_of_daemon(wanted);
    std::size_t number = 0;
    base::for_each_line(base::file_contents("/etc/inetd.conf"), [&](std::string_view line) {
        ++number;
        const std::string_view plain = line.substr(std::min(line.find_first_not_of("# \t"), line.size()));
        if (base::first_word(plain) != "tftp" || base::words_of(plain).size() < 6)
            return;
        const auto inetd = server.daemons.named({"inetd", "inetutils-inetd"});
        const std::string place = std::to_string(number);
        finding.where = "/etc/inetd.conf:" + place;
        if (line.starts_with('#') && !inetd.empty()) {
            finding.what = base::tr("the line of tftp is a comment, and no TFTP daemon runs");
            finding.repair = "sed -i '" + place + "s/^[# \\t]*//' /etc/inetd.conf && kill -HUP " +
                             std::to_string(inetd.front()->process.pid);
        } else if (!line.starts_with('#')) {
            finding.what = base::tr("TFTP is to be started by inetd, which does not run");
            finding.repair = "inetd";
        }
    });
    return finding;
}

// Whether the daemon's user may enter the directory and everything above it.
std::string shut_directory(const std::string &path) {
    struct stat found {};
    for (fs::path part = path; part != part.root_path(); part = part.parent_path())
        if (stat(part.c_str(), &found) == 0 && (found.st_mode & S_IXOTH) == 0)
            return part;
    return {};
}

// "HOST:PORT", "HOST", ":PORT"
struct BoundTo {
    std::string host;
    std::uint16_t port = tftp_port;
};
BoundTo bound_to(const std::string &text) {
    BoundTo place{text};
    const std::size_t colon = text.rfind(':');
    if (colon == text.npos || text.find(']', colon) != text.npos)
        return place;
    const std::string port = text.substr(colon + 1);
    place.host = text.substr(0, colon);
    if (const servent *service = getservbyname(port.c_str(), "udp"))
        place.port = ntohs(static_cast<std::uint16_t>(service->s_port));
    else
        place.port = static_cast<std::uint16_t>(std::atoi(port.c_str()));
    return place;
}

void check_options(Findings &found, const Snapshot &server) {
    const TftpService &tftp = server.tftp;
    const std::string address = value_of(tftp.arguments, 'a', "address");
    if (!address.empty() && !tftp.on_demand) {
        const BoundTo place = bound_to(address);
        if (place.port != tftp_port) {
            found.push_back(
                wrong(server, base::tr("it listens on port {1}, and clients ask port 69", place.port)));
            return;
        }
        const auto number =
            place.host.empty() || place.host == "0.0.0.0" || place.host == "::" || place.host == "[::]"
                ? std::optional<std::uint32_t>(0)
                : server.address_of(place.host);
        for (const CheckedClient &client : server.clients) {
            const Interface *interface = server.network.in_network_of(client.number);
            if (number == 0u || interface == nullptr)
                continue;
            if (!number || server.network.in_network_of(*number) != interface ||
                !server.network.is_own(*number)) {
                found.push_back(wrong(server,
                                      base::tr("it listens at {1} only, where no question of {2} arrives",
                                               address, client.name),
                                      base::tr("{1} gets no boot program", client.name)));
                found.back().client = client.name;
            }
        }
    }
    const auto has_word = [&](std::initializer_list<std::string_view> words) {
        return std::any_of(tftp.arguments.begin(), tftp.arguments.end(), [&](const std::string &word) {
            return std::find(words.begin(), words.end(), word) != words.end();
        });
    };
    if (has_word({"-6", "--ipv6"}) && !has_word({"-4", "--ipv4"}))
        found.push_back(wrong(server, base::tr("it serves IPv6 only")));
    if (const std::string user = value_of(tftp.arguments, 'u', "user");
        !user.empty() && getpwnam(user.c_str()) == nullptr)
        found.push_back(wrong(server, base::tr("its user {1} does not exist", user)));
    if (const std::string map = value_of(tftp.arguments, 'm', "map-file");
        !map.empty() && access(map.c_str(), R_OK) != 0)
        found.push_back(wrong(server, base::tr("its map file {1} cannot be read", map)));
    if (const std::string refused = value_of(tftp.arguments, 'r', "refuse"); refused == "octet")
        found.push_back(wrong(server, base::tr("it was told to refuse transfers of mode octet")));
    const bool our_daemon = tftp.on_demand
                                ? !tftp.arguments.empty() && (tftp.arguments[0].ends_with("in.tftpd") ||
                                                              tftp.arguments[0].ends_with("/in.tftpd"))
                                : tftp.daemon->program == "in.tftpd";
    if (!our_daemon)
        return;
    if (!tftp.confined)
        found.push_back(wrong(
            server,
            base::tr("it runs without --secure, and hands out nothing that is asked for by a bare name")));
    if (tftp.directory.empty())
        found.push_back(wrong(server, base::tr("it was given no directory")));
}

void check_directory(Findings &found, const Snapshot &server) {
    const TftpService &tftp = server.tftp;
    std::error_code error;
    const fs::path directory = tftp.directory;
    if (tftp.directory.empty())
        return;
    if (!fs::is_directory(directory, error)) {
        found.push_back(
            wrong(server, base::tr("the directory that it serves, {1}, is not there", tftp.directory)));
        return;
    }
    if (const std::string shut = shut_directory(directory); !shut.empty() && shut != server.boot_area.path) {
        found.push_back(wrong(server, base::tr("its user may not search {1}", shut)));
        found.back().repair = "chmod a+x " + shut;
    }
    if (fs::equivalent(directory, tftpboot, error) || error)
        return;
    // Another directory is as good, if the clients' programs are there.
    for (const CheckedClient &client : server.clients)
        if (!client.digits.empty() && !fs::exists(directory / client.digits, error) &&
            fs::is_symlink(fs::path(tftpboot) / client.digits, error)) {
            found.push_back(wrong(server, base::tr("it serves {1}, and the clients' boot programs are in {2}",
                                                   tftp.directory, tftpboot)));
            return;
        }
}

std::string first_block(const BootArea &area, const std::string &name) {
    const auto link = area.names.find(name);
    if (link == area.names.end())
        return {};
    std::error_code error;
    const fs::path real = fs::canonical(area.path, error);
    const RootView view(error ? area.path : real.string());
    return view.read(name, 512).value_or("");
}

void check_answer(Findings &found, const Snapshot &server) {
    if (!server.tftp_question || !found.empty())
        return;
    const TftpQuestion &question = *server.tftp_question;
    const std::string asked = base::tr("{1}, asked for at {2}", question.name, ipv4_text(question.address));
    if (question.answer.answer == Answer::silent &&
        (is_denied(server, "in.tftpd", question.address) ||
         is_filtered_here(server, "udp", tftp_port, question.address)))
        return; // the question never came to it, which is told where it is stopped
    if (question.answer.answer == Answer::silent)
        found.push_back(wrong(server, base::tr("it does not answer: {1}", asked)));
    else if (question.answer.answer == Answer::refused)
        found.push_back(wrong(server, question.answer.error.empty()
                                          ? base::tr("it refuses {1}", asked)
                                          : base::tr("it refuses {1}: {2}", asked, question.answer.error)));
    else if (server.tftp.confined && question.answer.block != first_block(server.boot_area, question.name))
        found.push_back(wrong(server, base::tr("it hands out something else than {1} holds for {2}",
                                               server.boot_area.path, question.name)));
}

// "process N (NAME)" that holds the port; looked for among all processes, and only when something is wrong.
std::string holder_of_port() {
    const base::Answer answer =
        base::run_and_listen({.words = {"ss", "-Hlunp", "sport = :69"}, .search = true, .time_limit = 2});
    const std::size_t name = answer.output.find("((\""), end = answer.output.find('"', name + 3),
                      pid = answer.output.find("pid=", end);
    if (name == std::string::npos || end == std::string::npos || pid == std::string::npos)
        return {};
    return answer.output.substr(pid + 4, answer.output.find_first_not_of("0123456789", pid + 4) - pid - 4) +
           " " + answer.output.substr(name + 3, end - name - 3);
}

// A program that is not known here may serve as well as another.
Findings by_stranger(const Snapshot &server) {
    if (!server.tftp_question || server.tftp_question->answer.answer == Answer::answered)
        return {};
    const std::string holder = holder_of_port(), pid = holder.substr(0, holder.find(' '));
    return {
        {.stage = Stage::boot_program,
         .where = "port 69",
         .what = holder.empty()
                     ? base::tr("it is held by a program that is no TFTP daemon, which does not hand out {1}",
                                server.tftp_question->name)
                     : base::tr("it is held by process {1}, {2}, which does not hand out {3}", pid,
                                holder.substr(pid.size() + 1), server.tftp_question->name),
         .why = nothing(),
         .repair = (holder.empty() ? "ss -lunp 'sport = :69'; " : "kill " + pid + "; sleep 1; ") + start}};
}

} // namespace

Findings tftp_of_server(const Snapshot &server) {
    if (server.clients.empty())
        return {};
    const TftpService &tftp = server.tftp;
    if (tftp.daemon == nullptr) {
        if (server.daemons.is_open(Socket::Kind::udp, tftp_port, 0))
            return by_stranger(server);
        return {none_runs(server)};
    }
    std::vector<const Daemon *> running{tftp.daemon};
    for (const Daemon *other : server.daemons.named({"in.tftpd", "tftpd", "atftpd"}))
        if (other != tftp.daemon)
            running.push_back(other);
    const Wanted wanted{.found = running,
                        .name = tftp.daemon->program,
                        .programs = {},
                        .package = {},
                        .stage = Stage::boot_program,
                        .why = nothing(),
                        .start = start};
    if (auto defect = defect_of_daemon(wanted))
        return {*defect};
    Findings found;
    if (tftp.on_demand && access(tftp.program.c_str(), X_OK) != 0 && tftp.program != "internal")
        found.push_back(wrong(server, base::tr("its program, {1}, is not there", tftp.program)));
    if (tftp.on_demand && tftp.confined && tftp.user != "root")
        found.push_back(
            wrong(server, base::tr("it is started as {1}, who may not confine it with -s", tftp.user)));
    if (tftp.on_demand && !tftp.waits)
        found.push_back(
            wrong(server, base::tr("the line says nowait, so that inetd starts one daemon after another")));
    if (!found.empty())
        return found;
    check_options(found, server);
    check_directory(found, server);
    const auto sockets = server.daemons.on_port(Socket::Kind::udp, tftp_port);
    if (found.empty() && sockets.empty())
        found.push_back(
            wrong(server, tftp.on_demand
                              ? base::tr("inetd does not listen on port 69: it has not read the line yet")
                              : base::tr("nobody listens on port 69")));
    check_answer(found, server);
    return found;
}

} // namespace hostadm::server
