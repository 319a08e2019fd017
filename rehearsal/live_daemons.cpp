// SPDX-License-Identifier: MIT
// What the live daemons do, asked as far as it goes without disturbing them.
#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <net/if.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/files.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "rehearsal/rehearsal.hpp"
#include "rehearsal/tftp.hpp"
#include "server/boot_area.hpp"

namespace hostadm::rehearsal {

namespace {

using namespace std::chrono_literals;
using server::Finding;
using server::Findings;
using server::Severity;
using server::Stage;

constexpr auto patience = 400ms;

struct Live {
    const BootingClient &client;
    const Network &network;
    const Walked &walked;
    std::vector<DaemonStart> daemons;
    std::string server; // this server's address, as the client sees it
    Findings findings = {};

    const DaemonStart &daemon(Service service) const {
        return *std::find_if(daemons.begin(), daemons.end(),
                             [&](const DaemonStart &each) { return each.service == service; });
    }
    void find(Stage stage, const DaemonStart &daemon, const std::string &what, const std::string &why,
              const std::string &repair) {
        const std::string where =
            daemon.pid == 0 ? daemon.name : base::tr("{1}, process {2}", daemon.name, daemon.pid);
        findings.push_back({.check = "live daemons",
                            .severity = Severity::error,
                            .stage = stage,
                            .client = client.name,
                            .where = where,
                            .what = what,
                            .why = why,
                            .repair = repair});
    }
    std::string seen(const std::string &what) const {
        const auto found = walked.seen.find(what);
        return found == walked.seen.end() ? "" : found->second;
    }
};

Stage stage_of(Service service) {
    switch (service) {
    case Service::reverse_arp:
    case Service::dhcp:
        return Stage::address;
    case Service::tftp:
        return Stage::boot_program;
    case Service::port_mapper:
        return Stage::name;
    case Service::boot_parameters:
        return Stage::name;
    case Service::nfs:
        return Stage::root;
    }
    return Stage::address;
}

std::string start_command(const DaemonStart &daemon) {
    switch (daemon.service) {
    case Service::reverse_arp:
        return "hostadm run host/start_daemon path=/usr/sbin/in.rarpd";
    case Service::dhcp:
        return "service dnsmasq restart";
    case Service::nfs:
        return "hostadm run host/start_daemon path=/usr/lib/nfs/nfsd";
    case Service::port_mapper:
        return "service rpcbind restart";
    case Service::boot_parameters:
        return "service bootparamd restart";
    case Service::tftp:
        return "service tftpd-hpa restart";
    }
    return {};
}

std::string restart_command(const DaemonStart &daemon) {
    return "kill -KILL " + std::to_string(daemon.pid) + "; " + start_command(daemon);
}

// The state letter of a process: T is stopped, D waits for a device for ever.
char state_of(int pid) {
    const std::string stat = base::file_contents("/proc/" + std::to_string(pid) + "/stat");
    const std::size_t close = stat.rfind(')');
    return close == stat.npos || close + 2 >= stat.size() ? ' ' : stat[close + 2];
}

bool is_missing_or_stopped(Live &live, const DaemonStart &daemon) {
    const Stage stage = stage_of(daemon.service);
    if (!daemon.runs) {
        live.find(stage, daemon, base::tr("it does not run"),
                  base::tr("{1} gets no answer from it", live.client.name),
                  daemon.program.empty() ? "apt-get install " + daemon.package : start_command(daemon));
        return true;
    }
    if (daemon.pid != 0 && state_of(daemon.pid) == 'T') {
        live.find(stage, daemon, base::tr("it is stopped, and answers nothing until it goes on"),
                  base::tr("{1} gets no answer from it", live.client.name),
                  "kill -CONT " + std::to_string(daemon.pid));
        return true;
    }
    return false;
}

// Packet sockets for reverse ARP: of all interfaces, or of one.
void compare_reverse_arp(Live &live) {
    const DaemonStart &daemon = live.daemon(Service::reverse_arp);
    if (is_missing_or_stopped(live, daemon))
        return;
    const Interface *interface = interface_towards(live.network, live.client.address);
    if (interface == nullptr)
        return;
    const unsigned int index = if_nametoindex(interface->name.c_str());
    bool listens = false, elsewhere = false;
    base::for_each_line(base::file_contents("/proc/net/packet"), [&](std::string_view line) {
        const auto words = base::words_of(line);
        if (words.size() < 5 || words[3] != "8035")
            return;
        const bool here = words[4] == "0" || words[4] == std::to_string(index);
        (here ? listens : elsewhere) = true;
    });
    if (!listens)
        live.find(Stage::address, daemon,
                  elsewhere ? base::tr("it listens on another interface than {1}: it was started for that "
                                       "one, or before {2} was there",
                                       interface->name, interface->name)
                            : base::tr("it does not listen for reverse ARP"),
                  base::tr("{1} gets no address", live.client.name), restart_command(daemon));
}

void compare_tftp(Live &live) {
    const DaemonStart &daemon = live.daemon(Service::tftp);
    if (is_missing_or_stopped(live, daemon))
        return;
    for (const std::string &file : live.client.boot_files) {
        const std::string rehearsed = live.seen("tftp " + file);
        if (rehearsed.empty() || rehearsed == "refused")
            continue;
        const Fetched fetched = fetch_by_tftp(live.server, file, "", 1200ms);
        if (fetched.silent) {
            live.find(Stage::boot_program, daemon,
                      base::tr("it does not answer on {1}, where the same daemon in the rehearsal did",
                               live.server),
                      base::tr("{1} loads no boot program", live.client.name), restart_command(daemon));
            return;
        }
        if (!fetched.whole || fingerprint(fetched.content) != rehearsed) {
            live.find(Stage::boot_program, daemon,
                      fetched.whole
                          ? base::tr("it does not give {1} as it did in the rehearsal: the file is another "
                                     "one; it was started with other settings or in another directory",
                                     file)
                          : base::tr("it does not give {1} as it did in the rehearsal: {2}; it was started "
                                     "with other settings or in another directory",
                                     file, fetched.reason),
                      base::tr("{1} loads no boot program, or a wrong one", live.client.name),
                      restart_command(daemon));
            return;
        }
    }
}

void compare_names(Live &live) {
    const DaemonStart &mapper = live.daemon(Service::port_mapper),
                      &daemon = live.daemon(Service::boot_parameters);
    const bool mapper_missing = is_missing_or_stopped(live, mapper);
    if (is_missing_or_stopped(live, daemon) || mapper_missing)
        return;
    if (!answers(live.server, port_mapper_program, 2)) {
        live.find(Stage::name, mapper, base::tr("it does not answer on {1}", live.server),
                  base::tr("no client finds any service of this server"), restart_command(mapper));
        return;
    }
    const std::string rehearsed = live.seen("whoami");
    if (rehearsed.empty())
        return;
    const auto answer =
        who_am_i({.address = live.server, .patience = patience, .tries = 3}, live.client.address);
    if (!answer.result) {
        const auto direct =
            who_am_i({.address = live.server, .directly = true, .patience = patience, .tries = 2},
                     live.client.address);
        const DaemonStart &silent = direct.result ? mapper : daemon;
        live.find(Stage::name, silent,
                  direct.result ? base::tr("it does not hand WHOAMI on, as it did in the rehearsal")
                                : base::tr("it does not answer WHOAMI, as it did in the rehearsal"),
                  base::tr("{1} does not learn its name", live.client.name), restart_command(silent));
        return;
    }
    if (answer.result->name + ' ' + answer.result->router != rehearsed)
        live.find(Stage::name, daemon,
                  base::tr("it tells {1} the name and router {2}{3}{4}, and in the rehearsal {5}: it was "
                           "started with other settings",
                           live.client.name, answer.result->name, ' ', answer.result->router, rehearsed),
                  base::tr("{1} boots with these", live.client.name), restart_command(daemon));
    for (const server::BootparamsItem &item : live.client.items) {
        const std::string expected = live.seen("getfile " + item.key);
        if (expected.empty())
            continue;
        const auto file = get_file({.address = live.server, .patience = patience, .tries = 3},
                                   answer.result->name, item.key);
        const std::string told = file.result ? file.result->address + ':' + file.result->path : "nothing";
        if (told == expected)
            continue;
        live.find(Stage::parameters, daemon,
                  base::tr("it tells {1} for the {2} of {3}, and in the rehearsal {4}", told, item.key,
                           live.client.name, expected),
                  base::tr("{1} does not find its {2}", live.client.name, item.key), restart_command(daemon));
        return;
    }
}

// Whether the server names the path, or a directory above it, and lets this client mount it.
bool exports(const std::vector<Exported> &list, const std::string &path, const BootingClient &client,
             bool &to_others) {
    for (const Exported &each : list) {
        const std::string at = each.path == "/" ? "/" : each.path + "/";
        if (path != each.path && !path.starts_with(at))
            continue;
        to_others = true;
        if (each.clients.empty())
            return true;
        for (const std::string &word : each.clients) {
            const std::size_t slash = word.find('/');
            const std::string network = word.substr(0, slash);
            if (base::lower_case(word) == base::lower_case(client.name) || network == client.address ||
                word == "*" || word == "(everyone)" || word.find_first_of("*?@") != word.npos)
                return true;
            // A network; of one that is written with a mask, the mount in the rehearsal has shown enough.
            if (slash != word.npos &&
                (word.find('.', slash) != word.npos ||
                 is_in_network(client.address, {network, {}, std::atoi(word.c_str() + slash + 1)})))
                return true;
            if (base::lower_case(word).starts_with(base::lower_case(client.name) + "."))
                return true;
        }
    }
    return false;
}

// The word behind an option, or a default.
std::string option_of(const DaemonStart &daemon, const std::string &option, const std::string &usual) {
    const auto found = std::find(daemon.words.begin(), daemon.words.end(), option);
    return found == daemon.words.end() || found + 1 == daemon.words.end() ? usual : found[1];
}

std::time_t change_of(const std::string &file) {
    struct stat status {};
    return stat(file.c_str(), &status) == 0 ? status.st_mtime : 0;
}

// The settings file that was changed last, of all that are read.
std::string newest_of(const std::string &settings) {
    std::string newest = settings;
    base::for_each_line(base::file_contents(settings), [&](std::string_view line) {
        line = base::trimmed(line);
        const std::size_t begin = line.find('"'), end = line.rfind('"');
        if (!line.starts_with("%include") || end == line.npos || end <= begin)
            return;
        const std::string included(line.substr(begin + 1, end - begin - 1));
        if (change_of(included) > change_of(newest))
            newest = included;
    });
    return newest;
}

// When the server last said that it reads its settings again, by the seconds of its log; 0: never.
std::time_t last_reading(const std::string &log) {
    std::time_t last = 0;
    base::for_each_line(base::file_contents(log), [&](std::string_view line) {
        std::tm time{};
        if (line.find("SIGHUP_HANDLER") == line.npos ||
            strptime(std::string(line.substr(0, line.find(" :"))).c_str(), "%d/%m/%Y %H:%M:%S", &time) ==
                nullptr)
            return;
        time.tm_isdst = -1;
        last = std::mktime(&time);
    });
    return last;
}

std::time_t start_of_process(int pid) {
    const std::string stat = base::file_contents("/proc/" + std::to_string(pid) + "/stat");
    const std::string all = base::file_contents("/proc/stat");
    const std::size_t close = stat.rfind(')'), boot = all.find("\nbtime ");
    if (close == stat.npos || boot == all.npos)
        return 0;
    constexpr std::size_t start_time = 19; // words behind the name
    const std::string rest = stat.substr(close + 1);
    const auto words = base::words_of(rest);
    if (words.size() <= start_time)
        return 0;
    return std::atoll(all.c_str() + boot + 7) +
           std::atoll(std::string(words[start_time]).c_str()) / sysconf(_SC_CLK_TCK);
}

// This server tells others' exports to nobody, so whether it has read its settings is asked of its log.
void compare_settings_of_nfs_server(Live &live, const DaemonStart &daemon) {
    if (daemon.name != "ganesha.nfsd" || daemon.pid == 0)
        return;
    constexpr std::time_t clocks_differ = 2;
    const std::string log = option_of(daemon, "-L", "/var/log/ganesha/ganesha.log");
    const std::string settings = newest_of(option_of(daemon, "-f", "/etc/ganesha/ganesha.conf"));
    const std::time_t read = std::max(start_of_process(daemon.pid), last_reading(log));
    if (base::file_contents(log).empty() || read == 0 || change_of(settings) <= read + clocks_differ)
        return;
    live.find(Stage::root, daemon, base::tr("it has not read {1} since that was changed", settings),
              base::tr("{1} is served by the old settings", live.client.name),
              "kill -HUP " + std::to_string(daemon.pid));
}

void compare_exports(Live &live) {
    const DaemonStart &daemon = live.daemon(Service::nfs);
    if (is_missing_or_stopped(live, daemon))
        return;
    for (const auto &[program, what] : {std::pair(mount_program, base::tr("the mount daemon")),
                                        std::pair(nfs_program, base::tr("the NFS server"))})
        if (!answers(live.server, program, 3)) {
            live.find(Stage::root, daemon, base::tr("{1} does not answer on {2}", what, live.server),
                      base::tr("{1} cannot mount its root", live.client.name), restart_command(daemon));
            return;
        }
    compare_settings_of_nfs_server(live, daemon);
    const auto list = export_list(live.server);
    const server::BootparamsItem *root = live.client.item("root");
    if (!list || root == nullptr)
        return;
    // What is not for this server itself, some servers do not tell it; so the two lists are compared.
    if (const std::string rehearsed = live.seen("exports"); !rehearsed.empty()) {
        if (in_one_line(*list) != rehearsed)
            live.find(Stage::root, daemon,
                      base::tr("it exports {1}, and in the rehearsal {2}: it has not read its settings since "
                               "they were changed",
                               in_one_line(*list), rehearsed),
                      base::tr("{1} is served by the old settings", live.client.name),
                      daemon.pid == 0 ? "exportfs -ra" : "kill -HUP " + std::to_string(daemon.pid));
        return;
    }
    // Its list alone says nothing: what is the client's is not for this server.
    if (daemon.name == "ganesha.nfsd")
        return;
    bool to_others = false;
    if (!exports(*list, root->path, live.client, to_others))
        live.find(Stage::root, daemon,
                  to_others ? base::tr("it exports {1}, but not to {2}", root->path, live.client.name)
                            : base::tr("it does not export {1}", root->path),
                  base::tr("{1} cannot mount its root", live.client.name),
                  "hostadm run filesystem/share path=" + root->path + " options=rw=" + live.client.name +
                      ",root=" + live.client.name);
}

} // namespace

Findings differences_of_live_daemons(const BootingClient &client, const Network &network,
                                     const Walked &walked) {
    Live live{client, network, walked, daemons_of_this_server(Settings::of_processes, client.kind),
              own_address_towards(network, client.address)};
    if (live.server.empty())
        live.server = "127.0.0.1";
    if (client.kind == server::ClientKind::pc) {
        is_missing_or_stopped(live,
                              live.daemon(Service::dhcp)); // what it has read is told by the check of PCs
    } else {
        compare_reverse_arp(live);
        compare_names(live);
    }
    compare_tftp(live);
    compare_exports(live);
    return std::move(live.findings);
}

} // namespace hostadm::rehearsal
