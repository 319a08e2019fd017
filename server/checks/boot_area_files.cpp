// SPDX-License-Identifier: MIT
// /tftpboot: the links by which clients ask, and the boot programs that they lead to.
#include <algorithm>
#include <cctype>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <system_error>
#include <unistd.h>

#include "base/descriptor.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/boot_area.hpp"
#include "server/checks/subjects.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

std::string upper_case(std::string text) {
    for (char &c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

// The program that the client's other link leads to, or the only one that there is.
std::string likely_program(const Snapshot &server, const CheckedClient &client) {
    std::string only;
    for (const auto &[name, link] : server.boot_area.names)
        if (link.is_link && link.file && S_ISREG(link.file->st_mode) &&
            link.target.find('/') == link.target.npos && (name.starts_with(client.digits) || only.empty())) {
            only = link.target;
            if (name.starts_with(client.digits))
                return only;
        }
    if (only.empty())
        for (const auto &[name, file] : server.boot_area.programs)
            if (file.st_size > 0 && (only.empty() || name.starts_with("inetboot.")))
                only = name;
    return only.empty() ? "BOOT-PROGRAM" : only;
}

std::string make_link(const Snapshot &server, const std::string &name, const std::string &program) {
    return "ln -sfn " + program + " " + server.boot_area.path + "/" + name;
}

constexpr std::size_t largest_compared = 64 << 20;

std::string contents(const std::string &path) {
    const base::Descriptor file(
        open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC));
    struct stat found {};
    if (!file.is_open() || fstat(file.get(), &found) != 0 || !S_ISREG(found.st_mode) ||
        static_cast<std::size_t>(found.st_size) > largest_compared)
        return {};
    return base::read_whole(file.get()).value_or("");
}

// Where the service keeps the program of this name: inetboot.ARCH.OS_VERSION.
std::vector<std::string> originals_of(const std::string &program) {
    std::vector<std::string> places;
    const std::string architecture = architecture_of(program);
    const std::size_t dot = program.find('.', program.find('.') + 1);
    if (architecture.empty() || dot == program.npos)
        return places;
    const std::string release = program.substr(dot + 1);
    std::error_code error;
    for (fs::directory_iterator entry("/export/exec", error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename();
        if (!name.ends_with("." + release))
            continue;
        for (const std::string &below :
             {"platform/" + architecture + "/lib/fs/nfs/inetboot",
              "usr/platform/" + architecture + "/lib/fs/nfs/inetboot", std::string("lib/fs/nfs/inetboot")}) {
            const std::string path = entry->path() / below;
            if (access(path.c_str(), R_OK) == 0) {
                places.push_back(path);
                break;
            }
        }
    }
    return places;
}

// What is wrong with a file that somebody is to load, and the command against it.
struct Defect {
    std::string what, repair;
};

bool readable_by_daemon(const Snapshot &server, const struct stat &file) {
    const auto has_permissive = [&] {
        return std::any_of(
            server.tftp.arguments.begin(), server.tftp.arguments.end(), [](const std::string &word) {
                return word == "--permissive" ||
                       (word.size() > 1 && word[0] == '-' && word[1] != '-' && word.find('p') != word.npos);
            });
    };
    return (file.st_mode & S_IROTH) != 0 || (has_permissive() && (file.st_mode & S_IRUSR) != 0);
}

Defect defect_of_program(const Snapshot &server, const std::string &path, const struct stat &file) {
    if (S_ISDIR(file.st_mode) || !S_ISREG(file.st_mode))
        return {base::tr("is no plain file"), "rm -r " + path};
    if (file.st_size == 0)
        return {base::tr("is empty"), "cp BOOT-PROGRAM " + path};
    if (!readable_by_daemon(server, file))
        return {base::tr("may not be read by everybody, without which the TFTP daemon does not hand it out"),
                "chmod a+r " + path};
    return {};
}

std::string target_path(const Snapshot &server, const std::string &name, const BootName &link) {
    const std::string &area = server.boot_area.path;
    if (!link.is_link)
        return area + "/" + name;
    return link.target.starts_with('/') ? link.target
                                        : fs::path(area + "/" + link.target).lexically_normal().string();
}

void check_name(Findings &found, const Snapshot &server, const CheckedClient &client, const std::string &name,
                const BootName &link) {
    const std::string place = server.boot_area.path + "/" + name;
    const std::string why = base::tr("{1} gets no boot program when it asks for {2}", client.name, name);
    const auto add = [&](const std::string &what, const std::string &repair) {
        found.push_back({.stage = Stage::boot_program,
                         .client = client.name,
                         .where = place,
                         .what = what,
                         .why = why,
                         .repair = repair});
    };
    const bool leads_out = link.is_link && (link.target.starts_with('/') || link.target.starts_with("../"));
    if (!link.file) {
        const std::string seen_outside = leads_out ? target_path(server, name, link) : "";
        std::error_code error;
        if (leads_out && fs::exists(seen_outside, error))
            add(base::tr("the link leads to {1}, out of the directory that the TFTP daemon serves",
                         link.target),
                seen_outside.starts_with(server.boot_area.path + "/")
                    ? make_link(server, name, seen_outside.substr(server.boot_area.path.size() + 1))
                    : "cp " + seen_outside + " " + server.boot_area.path + "/ && " +
                          make_link(server, name, fs::path(seen_outside).filename()));
        else
            add(base::tr("the link leads to {1}, which is not there", link.target),
                make_link(server, name, likely_program(server, client)));
        return;
    }
    const std::string path = target_path(server, name, link);
    Defect defect = defect_of_program(server, path, *link.file);
    if (link.file->st_size == 0)
        for (const std::string &original : originals_of(fs::path(path).filename()))
            defect.repair = "cp " + original + " " + path;
    if (!defect.what.empty())
        add(link.is_link ? base::tr("the boot program {1} {2}", link.target, defect.what)
                         : base::tr("the boot program {1}", defect.what),
            defect.repair);
}

// The architecture in a link's name must be that of the program.
void check_architecture(Findings &found, const Snapshot &server, const CheckedClient &client,
                        const std::string &name, const BootName &link) {
    const std::string wanted = name.size() > 9 ? name.substr(9) : "";
    const std::string has = upper_case(architecture_of(link.target));
    if (wanted.empty() || has.empty() || wanted == has || !link.is_link)
        return;
    std::string right;
    for (const auto &[program, file] : server.boot_area.programs)
        if (upper_case(architecture_of(program)) == wanted)
            right = program;
    if (right.empty())
        return; // a name of another kind
    found.push_back(
        {.stage = Stage::boot_program,
         .client = client.name,
         .where = server.boot_area.path + "/" + name,
         .what = base::tr("the link leads to a program of another architecture, {1}", link.target),
         .why = base::tr("{1} loads a boot program that it cannot run", client.name),
         .repair = make_link(server, name, right)});
}

bool has_link_of_same_client(const Snapshot &server, const CheckedClient &client, const std::string &name) {
    for (auto at = server.boot_area.names.lower_bound(client.digits);
         at != server.boot_area.names.end() && at->first.starts_with(client.digits); ++at)
        if (at->first != name && at->second.is_link && at->second.file)
            return true;
    return false;
}

// A copy in the place of a link is not renewed with its program.
void check_copy(Findings &found, const Snapshot &server, const CheckedClient &client, const std::string &name,
                const BootName &copy) {
    if (copy.is_link || !copy.file || !S_ISREG(copy.file->st_mode) || copy.file->st_size == 0)
        return;
    const std::string program = likely_program(server, client);
    const auto known = server.boot_area.programs.find(program);
    if (known == server.boot_area.programs.end() || known->second.st_ino == copy.file->st_ino)
        return;
    const std::string path = server.boot_area.path + "/" + name;
    if (known->second.st_size == copy.file->st_size &&
        contents(path) == contents(server.boot_area.path + "/" + program))
        return;
    // What belongs to no program that is laid out here may be a program of its own.
    const std::string begins = contents(path);
    const bool is_part = contents(server.boot_area.path + "/" + program).starts_with(begins);
    if (!is_part && !has_link_of_same_client(server, client, name))
        return;
    found.push_back({.severity = is_part ? Severity::error : Severity::warning,
                     .stage = Stage::boot_program,
                     .client = client.name,
                     .where = path,
                     .what = is_part
                                 ? base::tr("it is a part of the boot program {1}, not a link to it", program)
                                 : base::tr("it is a copy and differs from the boot program {1}, to which "
                                            "the client's other link leads",
                                            program),
                     .why = base::tr("{1} loads another program than it should, or half of one", client.name),
                     .repair = make_link(server, name, program)});
}

} // namespace

Findings boot_area_of_server(const Snapshot &server) {
    Findings found;
    const BootArea &area = server.boot_area;
    if (server.clients.empty())
        return found;
    struct stat directory {};
    if (stat(area.path.c_str(), &directory) != 0 || !S_ISDIR(directory.st_mode))
        return {{.stage = Stage::boot_program,
                 .where = area.path,
                 .what = area.error == ENOTDIR ? base::tr("it is no directory")
                                               : base::tr("the directory is missing"),
                 .why = base::tr("no client gets an address or a boot program"),
                 .repair = "mkdir -p " + area.path}};
    if ((directory.st_mode & S_IXOTH) == 0)
        found.push_back({.stage = Stage::boot_program,
                         .where = area.path,
                         .what = base::tr("others than its owner may not search the directory"),
                         .why = base::tr("the TFTP daemon runs as another user and hands out nothing"),
                         .repair = "chmod 755 " + area.path});
    std::set<std::string> digits;
    for (const CheckedClient &client : server.clients)
        digits.insert(client.digits);
    for (const auto &[name, link] : area.names) {
        const std::string own = upper_case(name.substr(0, 8));
        std::string value;
        for (std::size_t at = 0; at < 8; at += 2)
            value += static_cast<char>(std::stoi(own.substr(at, 2), nullptr, 16));
        if (digits.contains(own) || !server.hosts.with_value(value).empty() || !link.is_link)
            continue;
        found.push_back(
            {.severity = Severity::warning,
             .stage = Stage::boot_program,
             .where = area.path + "/" + name,
             .what =
                 base::tr("the link belongs to {1}, which is no host here", ipv4_text(ipv4_number(value))),
             .why =
                 base::tr("it is left over from an earlier address; whoever gets that address boots from it"),
             .repair = "rm " + area.path + "/" + name});
    }
    // Programs that lost their contents, compared with those of the service.
    std::set<std::string> used;
    for (const auto &[name, link] : area.names)
        if (link.is_link && digits.contains(name.substr(0, 8)))
            used.insert(link.target);
    for (const std::string &program : used) {
        const auto file = area.programs.find(program);
        if (file == area.programs.end() || file->second.st_size == 0)
            continue;
        const auto originals = originals_of(program);
        if (originals.empty())
            continue;
        const std::string path = area.path + "/" + program, has = contents(path);
        if (has.empty() || std::any_of(originals.begin(), originals.end(), [&](const std::string &original) {
                return contents(original) == has;
            }))
            continue;
        found.push_back(
            {.severity = Severity::error,
             .stage = Stage::boot_program,
             .where = path,
             .what = base::tr("the boot program differs from that of its service, {1}", originals.front()),
             .why = base::tr("its clients load another program, or half of one"),
             .repair = "cp " + originals.front() + " " + path});
    }
    return found;
}

Findings boot_area_of_client(const Snapshot &server, const CheckedClient &client) {
    Findings found;
    const BootArea &area = server.boot_area;
    struct stat directory {};
    if (client.digits.empty() || client.kind == ClientKind::rpl || client.kind == ClientKind::pc ||
        stat(area.path.c_str(), &directory) != 0 || !S_ISDIR(directory.st_mode))
        return found;
    bool plain = false, with_architecture = false;
    std::string program, lower;
    for (auto at = area.names.lower_bound(client.digits);
         at != area.names.end() && at->first.starts_with(client.digits); ++at) {
        const auto &[name, link] = *at;
        plain = plain || name == client.digits;
        with_architecture = with_architecture || name.size() > 9;
        if (link.is_link && link.file)
            program = link.target;
        check_name(found, server, client, name, link);
        check_architecture(found, server, client, name, link);
        check_copy(found, server, client, name, link);
    }
    const std::string low = base::lower_case(client.digits);
    if (const auto at = area.names.find(low); at != area.names.end() && low != client.digits)
        lower = low;
    const std::string architecture = upper_case(architecture_of(program));
    if (!plain)
        found.push_back(
            {.stage = Stage::boot_program,
             .client = client.name,
             .where = area.path,
             .what = lower.empty() ? base::tr("there is no link {1}", client.digits)
                                   : base::tr("the link {1} is written in small letters; clients ask for {2}",
                                              lower, client.digits),
             .why = base::tr("{1} gets no boot program, and by default not even an address: rarpd answers "
                             "only whom a boot program is laid out for",
                             client.name),
             .repair = lower.empty()
                           ? make_link(server, client.digits, likely_program(server, client))
                           : "mv " + area.path + "/" + lower + " " + area.path + "/" + client.digits});
    else if (!with_architecture && !architecture.empty())
        found.push_back(
            {.stage = Stage::boot_program,
             .client = client.name,
             .where = area.path,
             .what = base::tr("there is no link {1}.{2}", client.digits, architecture),
             .why = base::tr("{1} gets no boot program if it asks with its architecture", client.name),
             .repair = make_link(server, client.digits + "." + architecture, program)});
    // Both links are one client's: they lead to one program.
    const auto first = area.names.find(client.digits);
    if (first == area.names.end() || !first->second.is_link)
        return found;
    for (auto at = std::next(first); at != area.names.end() && at->first.starts_with(client.digits); ++at)
        if (at->second.is_link && at->second.target != first->second.target && at->second.file &&
            first->second.file &&
            (at->second.file->st_ino != first->second.file->st_ino ||
             at->second.file->st_dev != first->second.file->st_dev) &&
            upper_case(architecture_of(at->second.target)) == at->first.substr(9))
            found.push_back(
                {.severity = Severity::warning,
                 .stage = Stage::boot_program,
                 .client = client.name,
                 .where = area.path + "/" + first->first,
                 .what = base::tr("it leads to {1}, and {2} to {3}", first->second.target, at->first,
                                  at->second.target),
                 .why = base::tr("{1} loads one or the other, depending on how it asks", client.name),
                 .repair = make_link(server, first->first, at->second.target)});
    return found;
}

} // namespace hostadm::server
