// SPDX-License-Identifier: MIT
// What this server would lose by booting: daemons that are not started, other options, mounts that are not made.
#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <system_error>
#include <unistd.h>

#include "base/files.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/checks/subjects.hpp"
#include "server/pc_area.hpp"
#include "server/roots.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

enum class AtBoot { unknown, started, disabled, masked };

bool is_masked(const std::string &service) {
    std::error_code error;
    const std::string own = "/etc/systemd/system/" + service + ".service";
    return fs::is_symlink(own, error) && fs::read_symlink(own, error) == "/dev/null";
}

// A unit or start script of one of these names.
AtBoot state_of(const std::vector<std::string> &services) {
    bool known = false, started = false, masked = false;
    std::error_code error;
    for (const std::string &service : services) {
        const bool shut = is_masked(service);
        masked = masked || shut;
        for (const std::string folder :
             {"/etc/systemd/system/", "/usr/lib/systemd/system/", "/lib/systemd/system/", "/etc/init.d/"})
            known =
                known || fs::exists(folder + service + (folder == "/etc/init.d/" ? "" : ".service"), error);
        if (shut)
            continue;
        for (const std::string target : {"multi-user", "default", "network-online", "nfs-ganesha", "rpcbind",
                                         "sysinit", "remote-fs", "basic"})
            for (const std::string kind : {".target", ".service"})
                started = started || fs::is_symlink("/etc/systemd/system/" + target + kind + ".wants/" +
                                                        service + ".service",
                                                    error);
        for (fs::directory_iterator entry("/etc/rc2.d", error), end; !error && entry != end;
             entry.increment(error)) {
            const std::string name = entry->path().filename();
            started = started || (name.size() > 3 && name[0] == 'S' && name.substr(3) == service);
        }
        for (fs::directory_iterator entry("/etc/rcS.d", error), end; !error && entry != end;
             entry.increment(error)) {
            const std::string name = entry->path().filename();
            started = started || (name.size() > 3 && name[0] == 'S' && name.substr(3) == service);
        }
    }
    if (started)
        return AtBoot::started;
    return masked ? AtBoot::masked : known ? AtBoot::disabled : AtBoot::unknown;
}

struct Service {
    const char *what; // for a client
    std::vector<std::string> programs;
    std::vector<std::string> services;
};

const std::vector<Service> services{
    {base::translatable("reverse ARP"), {"in.rarpd", "rarpd"}, {"rarpd", "in.rarpd", "hostadm-rarpd"}},
    {"TFTP",
     {"in.tftpd", "inetd"},
     {"tftpd-hpa", "openbsd-inetd", "inetutils-inetd", "tftpd", "hostadm-tftpd"}},
    {base::translatable("the RPC port mapper"), {"rpcbind"}, {"rpcbind"}},
    {base::translatable("boot parameters"), {"rpc.bootparamd"}, {"bootparamd", "hostadm-bootparamd"}},
    {"NFS", {"ganesha.nfsd", "nfsd"}, {"hostadm-nfsd", "nfs-ganesha", "nfs-server", "nfs-kernel-server"}},
};
// Where PCs are set up.
const Service dhcp{"DHCP", {"dnsmasq"}, {"dnsmasq", "hostadm-dnsmasq"}};

// The request that switches all of it on, where the services are there that it switches on.
std::string switch_on(const Service &service) {
    for (const std::string &name : service.services)
        if (name.starts_with("hostadm-") && fs::exists("/usr/lib/systemd/system/" + name + ".service") &&
            !is_masked(name))
            return "hostadm run host/enable_boot_services";
    return "systemctl unmask " + service.services.front() + "; systemctl enable " + service.services.front();
}

// The text of a service's unit with all its settings, in the order in which they count.
std::string unit_text(const std::string &service) {
    std::string text;
    std::error_code error;
    for (const std::string folder :
         {"/etc/systemd/system/", "/usr/lib/systemd/system/", "/lib/systemd/system/"})
        if (const std::string path = folder + service + ".service"; fs::is_regular_file(path, error)) {
            text = base::file_contents(path);
            break;
        }
    std::set<std::string> settings;
    for (fs::directory_iterator entry("/etc/systemd/system/" + service + ".service.d", error), end;
         !error && entry != end; entry.increment(error))
        settings.insert(entry->path());
    for (const std::string &path : settings)
        text += "\n" + base::file_contents(path);
    return text;
}

// What the service manager starts for a service; empty: nothing is known.
std::string command_at_boot(const std::string &service) {
    std::string command;
    base::for_each_line(unit_text(service), [&](std::string_view line) {
        constexpr std::string_view key = "ExecStart=";
        if (line.starts_with(key) && line.size() > key.size())
            command = line.substr(key.size());
    });
    return command;
}

bool runs(const Snapshot &server, const Service &service) {
    return std::any_of(
        server.daemons.daemons.begin(), server.daemons.daemons.end(), [&](const Daemon &daemon) {
            return !daemon.defunct() && std::find(service.programs.begin(), service.programs.end(),
                                                  daemon.program) != service.programs.end();
        });
}

// The last value of a shell variable in a file of settings, without its quotes; nothing: it does not set it.
std::optional<std::string> setting(const std::string &file, std::string_view variable) {
    std::optional<std::string> value;
    base::for_each_line(base::file_contents(file), [&](std::string_view line) {
        line = base::trimmed(line);
        if (!line.starts_with(std::string(variable) + "="))
            return;
        std::string_view text = line.substr(variable.size() + 1);
        if (!text.empty() && (text[0] == '"' || text[0] == '\''))
            text = text.substr(1, text.find(text[0], 1) - 1);
        else
            text = base::first_word(text);
        value = text;
    });
    return value;
}

bool has_flag(const std::string &options, char flag) {
    for (const std::string_view word : base::words_of(options))
        if (word.size() > 1 && word[0] == '-' && word[1] != '-' && word.find(flag) != word.npos)
            return true;
    return false;
}

Finding lost(const std::string &where, const std::string &what, const std::string &why,
             const std::string &repair) {
    return {.severity = Severity::warning,
            .stage = Stage::reboot,
            .where = where,
            .what = what,
            .why = base::tr("{1} after this server has booted", why),
            .repair = repair};
}

// A daemon that runs with the right options by hand, and is started with others at boot.
void check_defaults(Findings &found, const Snapshot &server) {
    const auto mapper = server.daemons.named({"rpcbind"});
    const auto options = setting("/etc/default/rpcbind", "OPTIONS");
    if (!mapper.empty() && mapper.front()->has_flag('r') && options && !has_flag(*options, 'r') &&
        !has_flag(command_at_boot("rpcbind"), 'r') && state_of({"rpcbind"}) == AtBoot::started)
        found.push_back(lost("/etc/default/rpcbind",
                             base::tr("rpcbind runs with -r now, and is started without it at boot"),
                             base::tr("no client gets an answer when it asks for its name"),
                             "echo 'OPTIONS=\"-w -r\"' >>/etc/default/rpcbind"));
    const auto directory = setting("/etc/default/tftpd-hpa", "TFTP_DIRECTORY");
    const auto tftp_options = setting("/etc/default/tftpd-hpa", "TFTP_OPTIONS");
    if (server.tftp.daemon != nullptr && !server.tftp.on_demand &&
        state_of({"tftpd-hpa"}) == AtBoot::started) {
        if (directory && !server.tftp.directory.empty() && *directory != server.tftp.directory)
            found.push_back(
                lost("/etc/default/tftpd-hpa",
                     base::tr("in.tftpd serves {1} now, and {2} at boot", server.tftp.directory, *directory),
                     base::tr("no client gets its boot program"),
                     "sed -i 's,^TFTP_DIRECTORY=.*,TFTP_DIRECTORY=\"" + server.tftp.directory +
                         "\",' /etc/default/tftpd-hpa"));
        if (tftp_options && server.tftp.confined && tftp_options->find("--secure") == std::string::npos &&
            !has_flag(*tftp_options, 's'))
            found.push_back(
                lost("/etc/default/tftpd-hpa",
                     base::tr("in.tftpd runs with --secure now, and is started without it at boot"),
                     base::tr("no client gets its boot program"),
                     "sed -i 's,^TFTP_OPTIONS=.*,TFTP_OPTIONS=\"--secure\",' /etc/default/tftpd-hpa"));
    }
}

// A daemon that was started by hand with other options than its service has.
void check_commands(Findings &found, const Snapshot &server) {
    const auto rarpd = server.daemons.named({"in.rarpd"});
    const bool needs_no_links =
        std::any_of(server.clients.begin(), server.clients.end(), [](const CheckedClient &client) {
            return client.kind == ClientKind::dataless || client.kind == ClientKind::rpl;
        });
    if (needs_no_links && !rarpd.empty() && rarpd.front()->has_flag('e') &&
        state_of({"hostadm-rarpd"}) == AtBoot::started && !has_flag(command_at_boot("hostadm-rarpd"), 'e'))
        found.push_back(lost("hostadm-rarpd",
                             base::tr("in.rarpd runs with -e now, and is started without it at boot"),
                             base::tr("no dataless client, and none that boots by RPL, gets its address"),
                             "hostadm run host/enable_boot_services"));
    const auto bootparamd = server.daemons.named({"rpc.bootparamd"});
    const auto router = bootparamd.empty() ? std::nullopt : bootparamd.front()->value_of('r');
    if (router && *router != "127.0.0.1" && state_of({"hostadm-bootparamd"}) == AtBoot::started &&
        unit_text("hostadm-bootparamd").find("-r " + *router) == std::string::npos)
        found.push_back(
            lost("hostadm-bootparamd",
                 base::tr("rpc.bootparamd tells clients the router {1} now, and not at boot", *router),
                 base::tr("clients are told another router, or none,"),
                 "hostadm run host/enable_boot_services router=" + *router));
}

// Only where something of all this is started at boot can it be told what is missing there.
void check_services(Findings &found, const Snapshot &server) {
    const bool by_services = access("/run/systemd/system", F_OK) == 0;
    std::vector<Service> wanted = services;
    if (std::error_code error; fs::exists(dhcp_settings_path, error))
        wanted.push_back(dhcp);
    for (const Service &service : wanted) {
        const AtBoot state = state_of(service.services);
        if (!runs(server, service))
            continue;
        const bool lost_it = state == AtBoot::masked || (by_services && state == AtBoot::disabled);
        if (lost_it)
            found.push_back(
                lost(service.services.front(),
                     state == AtBoot::masked
                         ? base::tr("{1} is served now, and masked at boot", base::tr(service.what))
                         : base::tr("{1} is served now, and not started at boot", base::tr(service.what)),
                     base::tr("no client is served"), switch_on(service)));
    }
    const AtBoot shares = state_of({"hostadm-shareall"});
    if (!server.boot_share_places.empty() &&
        (shares == AtBoot::masked || (by_services && shares == AtBoot::disabled)))
        found.push_back(lost("hostadm-shareall",
                             shares == AtBoot::masked
                                 ? base::tr("/etc/dfs/dfstab is not read at boot: the service is masked")
                                 : base::tr("/etc/dfs/dfstab is not read at boot: the service is disabled"),
                             base::tr("nothing is shared"), switch_on({"", {}, {"hostadm-shareall"}})));
}

// What is mounted below clients' files now, and not mounted by the tables at boot.
void check_mounts(Findings &found, const Snapshot &server) {
    struct Line {
        std::string file, place, options, source;
        std::size_t number = 0;
        bool at_boot = true;
    };
    std::map<std::string, Line> lines;
    const auto read = [&](const std::string &file, bool seven) {
        std::size_t number = 0;
        base::for_each_line(base::file_contents(file), [&](std::string_view line) {
            ++number;
            const auto words = base::words_of(line.substr(0, line.find('#')));
            if (words.size() < (seven ? 7u : 4u))
                return;
            const std::string point(words[seven ? 2 : 1]);
            const std::string options(words[seven ? 6 : 3]);
            const bool at_boot =
                seven ? words[5] != "no" : ("," + options + ",").find(",noauto,") == std::string::npos;
            lines[point] = {
                file, file + ":" + std::to_string(number), options, std::string(words[0]), number, at_boot};
        });
    };
    read("/etc/fstab", false);
    read("/etc/vfstab", true);
    std::set<std::string> told;
    for (const CheckedClient &client : server.clients) {
        const Mount *mount = client.root.empty() ? nullptr : mount_of(server.mounts, client.root);
        if (mount == nullptr || mount->point == "/" || !told.insert(mount->point).second)
            continue;
        const auto line = lines.find(mount->point);
        if (line != lines.end() && !line->second.at_boot)
            found.push_back(
                lost(line->second.place, base::tr("{1} is mounted now, and not at boot", mount->point),
                     base::tr("the roots of {1} and others are missing", client.name),
                     line->second.file == "/etc/fstab"
                         ? "sed -i '" + std::to_string(line->second.number) + "s/,*noauto,*//' /etc/fstab"
                         : "sed -i '" + std::to_string(line->second.number) +
                               "s/[[:blank:]]no\\([[:blank:]]\\)/\\tyes\\1/' /etc/vfstab"));
        else if (line == lines.end() && mount->source.starts_with("/dev/"))
            found.push_back(lost("/etc/fstab", base::tr("{1} is mounted now, and in no table", mount->point),
                                 base::tr("the roots of {1} and others are missing", client.name),
                                 "printf '" + mount->source + " " + mount->point + " " + mount->type +
                                     " defaults 0 2\\n' >>/etc/fstab"));
        else if (line != lines.end() && ("," + line->second.options + ",").find(",ro,") != std::string::npos)
            found.push_back(lost(
                line->second.place, base::tr("{1} is mounted read-only at boot", mount->point),
                base::tr("no client can write"),
                "sed -i '" + std::to_string(line->second.number) + "s/\\bro\\b/rw/' " + line->second.file));
    }
    // A file system of the tables that is not mounted hides the roots in it.
    for (const auto &[point, line] : lines) {
        const bool mounted =
            std::any_of(server.mounts.begin(), server.mounts.end(),
                        [&point = point](const Mount &mount) { return mount.point == point; });
        if (mounted || !line.at_boot || point.size() < 2 || !point.starts_with('/'))
            continue;
        for (const CheckedClient &client : server.clients)
            if (!client.root.empty() && is_at_or_below(client.root, point)) {
                found.push_back(
                    {.severity = Severity::error,
                     .stage = Stage::root,
                     .where = line.place,
                     .what = base::tr("{1} is to be mounted, and is not", point),
                     .why = base::tr("the root of {1} lies there", client.name),
                     .repair = "mount " + (line.file == "/etc/fstab" ? point : line.source + " " + point)});
                break;
            }
    }
}

// Folders that are emptied when this server boots.
void check_places(Findings &found, const Snapshot &server) {
    std::error_code error;
    for (const std::string &file :
         {server.hosts.file.path, server.ethers.file.path, server.bootparams.file.path,
          std::string("/etc/dfs/dfstab"), server.boot_area.path}) {
        const std::string real = fs::canonical(file, error);
        if (error)
            continue;
        for (const char *folder : {"/tmp", "/run", "/dev/shm"})
            if (is_at_or_below(real, folder))
                found.push_back(lost(file, base::tr("it is kept in {1}, which is emptied at boot", real),
                                     base::tr("it is missing"),
                                     "cp -a --remove-destination " + real + " " + file));
    }
}

// What ifupdown gives the interfaces at boot.
struct Configured {
    std::string place; // of its first line
    bool is_static = false, comes_up = false;
    std::vector<std::string> addresses;
};

std::vector<std::string> network_files() {
    std::vector<std::string> files{"/etc/network/interfaces"};
    std::error_code error;
    for (fs::directory_iterator entry("/etc/network/interfaces.d", error), end; !error && entry != end;
         entry.increment(error))
        files.push_back(entry->path());
    return files;
}

std::map<std::string, Configured> configured_interfaces() {
    std::map<std::string, Configured> all;
    for (const std::string &file : network_files()) {
        std::size_t number = 0;
        Configured *current = nullptr;
        base::for_each_line(base::file_contents(file), [&](std::string_view line) {
            ++number;
            const auto words = base::words_of(line.substr(0, line.find('#')));
            if (words.empty())
                return;
            if (words[0] == "auto" || words[0].starts_with("allow-")) {
                for (std::size_t i = 1; i < words.size(); ++i)
                    all[std::string(words[i])].comes_up = true;
                current = nullptr;
            } else if (words[0] == "iface" && words.size() > 3) {
                current = words[2] == "inet" ? &all[std::string(words[1])] : nullptr;
                if (current != nullptr && current->place.empty())
                    current->place = file + ":" + std::to_string(number);
                if (current != nullptr)
                    current->is_static = words[3] == "static";
            } else if (words[0] == "mapping" || words[0] == "source" || words[0] == "source-directory") {
                current = nullptr;
            } else if (current != nullptr && words[0] == "address" && words.size() > 1) {
                current->addresses.emplace_back(words[1].substr(0, words[1].find('/')));
            }
        });
    }
    return all;
}

// An interface that serves clients now and is set up otherwise at boot. What is not named there is set up by
// something else.
void check_interfaces(Findings &found, const Snapshot &server) {
    std::set<std::string> told;
    const auto configured = configured_interfaces();
    for (const CheckedClient &client : server.clients) {
        const Interface *interface = server.network.in_network_of(client.number);
        const auto at_boot = interface == nullptr ? configured.end() : configured.find(interface->name);
        if (at_boot == configured.end() || !at_boot->second.is_static || !told.insert(interface->name).second)
            continue;
        std::string now;
        for (const Subnet &net : interface->addresses)
            if (net.holds(client.number))
                now = ipv4_text(net.address);
        const auto &addresses = at_boot->second.addresses;
        const std::size_t colon = at_boot->second.place.rfind(':');
        const std::string file = at_boot->second.place.substr(0, colon);
        if (std::find(addresses.begin(), addresses.end(), now) == addresses.end() && !addresses.empty())
            found.push_back(
                lost(at_boot->second.place,
                     base::tr("{1} has the address {2} now, and {3} at boot", interface->name, now,
                              addresses.front()),
                     base::tr("no client in the network of {1} is answered", client.name),
                     "sed -i '/^[[:blank:]]*address/s/" + addresses.front() + "/" + now + "/' " + file));
        else if (!at_boot->second.comes_up)
            found.push_back(lost(at_boot->second.place,
                                 base::tr("{1} is up now, and not set up at boot", interface->name),
                                 base::tr("no client in the network of {1} is answered", client.name),
                                 "sed -i '1i auto " + interface->name + "' " + file));
    }
}

} // namespace

Findings reboot_of_server(const Snapshot &server) {
    Findings found;
    if (server.clients.empty())
        return found;
    check_services(found, server);
    check_defaults(found, server);
    check_commands(found, server);
    check_mounts(found, server);
    check_places(found, server);
    check_interfaces(found, server);
    return found;
}

} // namespace hostadm::server
