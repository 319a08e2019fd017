// SPDX-License-Identifier: MIT
#include "server/services.hpp"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <sys/file.h>
#include <system_error>

#include "base/beneath.hpp"
#include "base/private_folder.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/table_edit.hpp"
#include "server/bootparams.hpp"
#include "server/clients.hpp"
#include "server/failure.hpp"
#include "server/patches.hpp"
#include "server/roots.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

constexpr std::pair<MadeForService::Kind, const char *> made_keys[] = {
    {MadeForService::Kind::tree, "MADE_TREE"},
    {MadeForService::Kind::directory, "MADE_DIRECTORY"},
    {MadeForService::Kind::file, "MADE_FILE"}};

const char *key_of(MadeForService::Kind kind) {
    return std::find_if(std::begin(made_keys), std::end(made_keys),
                        [&](const auto &known) { return known.first == kind; })
        ->second;
}

// The parameters of a service as they are handed from method to method: NAME VERSION INST_SET [IMPL_ARCH].
struct Parameters {
    std::string os_name, os_version, instruction_set, implementation_arch;
};

std::optional<Parameters> read_parameters(std::string_view text) {
    if (base::words_of(text).size() > 4) // the library stops reading there
        return std::nullopt;
    for (const int count : {4, 3}) {
        std::string value(text); // is taken apart in place
        adm_arg argument{"os_service", 9, static_cast<unsigned>(value.size()), value.data()};
        char *words[5] = {}; // in the order that the library gives them
        if (parse_os_service_par(&argument, words, count) == 0 && words[1] != nullptr)
            return Parameters{words[3], words[4], words[1], words[2] == nullptr ? "" : words[2]};
    }
    return std::nullopt;
}

// KEY=INST_SET.all:VALUE
struct RecordLine {
    std::string key, instruction_set, value;
};

std::optional<RecordLine> read_record_line(std::string_view line) {
    const std::size_t equals = line.find('='), colon = line.find(':', equals);
    constexpr std::string_view all = ".all";
    if (equals == line.npos || colon == line.npos)
        return std::nullopt;
    std::string_view owner = line.substr(equals + 1, colon - equals - 1);
    if (!owner.ends_with(all))
        return std::nullopt;
    owner.remove_suffix(all.size());
    return RecordLine{std::string(line.substr(0, equals)), std::string(owner),
                      std::string(line.substr(colon + 1))};
}

void take_line(Service &service, const RecordLine &line) {
    const std::size_t comma = line.value.find(',');
    if (line.key == "SPOOLED_ROOT")
        service.templates.push_back(line.value);
    else if (line.key == "ROOT")
        service.packages.push_back(line.value);
    else if (line.key == "SOURCE")
        service.source = line.value;
    else if (line.key == "EXECUTABLES")
        service.executables = line.value;
    else if (line.key == "PATCH")
        service.patches.push_back(line.value);
    else if (line.key == "BOOT_PROGRAM" && comma != std::string::npos)
        service.boot_programs.emplace_back(line.value.substr(0, comma), line.value.substr(comma + 1));
    else
        for (const auto &[kind, key] : made_keys)
            if (line.key == key)
                service.made.push_back({kind, line.value});
}

constexpr std::string_view parameters_key = "OS_SERVICE=";

std::string parameters_of(const Service &service) {
    return std::string(parameters_key) + service.os_name + " " + service.os_version + " " +
           service.instruction_set;
}

// Whether a boot program's name is that of the service; `others` are services of the same release.
bool boots_from(const std::string &program, const Service &service, const std::vector<Service> &others) {
    const auto is_of = [&](const Service &candidate) {
        return std::any_of(candidate.architectures.begin(), candidate.architectures.end(),
                           [&](const std::string &architecture) {
                               return program ==
                                      make_boot_name(candidate.os_version.c_str(), candidate.os_name.c_str(),
                                                     candidate.instruction_set.c_str(), architecture.c_str());
                           });
    };
    if (is_of(service))
        return true;
    const bool is_of_release = program.ends_with("." + service.directory_name()) ||
                               program.ends_with("." + service.os_name + "." + service.os_version);
    return is_of_release && std::none_of(others.begin(), others.end(), is_of);
}

bool names_something_of(const std::string &items, const Service &service) {
    for (const std::string_view item : base::words_of(items)) {
        const std::size_t path = item.find(":/");
        if (path != item.npos && service.holds(std::string(item.substr(path + 1))))
            return true;
    }
    return false;
}

} // namespace

std::string Service::area() const {
    return "/export/" + directory_name();
}

std::string Service::exec_directory() const {
    return "/export/exec/" + instruction_set + "." + directory_name();
}

std::string Service::executables_base() const {
    return "/usr_" + instruction_set + ".all";
}

std::string Service::executables_place() const {
    return area() + executables_base();
}

std::string Service::template_place(const std::string &name, const std::string &version) const {
    return "/export/root/templates/" + directory_name() + "/" + name + "_" + version + "_" + instruction_set +
           ".all";
}

std::string Service::record_file() const {
    return service_record_folder() + "/" + directory_name();
}

std::string Service::patch_place(const std::string &patch) {
    return std::string(patch_store) + "/" + patch;
}

std::string Service::package_of(const std::string &template_path) const {
    for (const std::string &package : packages) {
        const std::size_t comma = package.find(',');
        if (comma != package.npos &&
            template_place(package.substr(0, comma), package.substr(comma + 1)) == template_path)
            return package;
    }
    return "";
}

bool Service::holds(const std::string &path) const {
    std::vector<std::string> places = templates;
    places.push_back(executables_place());
    places.push_back(exec_directory());
    return std::any_of(places.begin(), places.end(),
                       [&](const std::string &place) { return is_at_or_below(path, place); });
}

bool Service::made_itself(const std::string &path) const {
    return std::any_of(made.begin(), made.end(), [&](const MadeForService &each) {
        return each.kind == MadeForService::Kind::tree && is_at_or_below(path, each.path);
    });
}

RootSource Service::root_source() const {
    if (!templates.empty() && !holds_packages(templates.front()))
        return {.tree = templates.front(), .packages = {}};
    return {.tree = "", .packages = templates};
}

std::string Service::boot_program_of(const std::string &architecture) const {
    for (const std::string &wanted : {architecture, std::string("all")})
        for (const auto &[implementation, file] : boot_programs)
            if (implementation == wanted)
                return file;
    return "";
}

std::vector<Service> services_in(std::string_view record) {
    std::vector<Service> all;
    const auto find = [&](const std::string &instruction_set) {
        return std::find_if(all.begin(), all.end(), [&](const Service &service) {
            return service.instruction_set == instruction_set;
        });
    };
    base::for_each_line(record, [&](std::string_view line) {
        if (!line.starts_with(parameters_key))
            return;
        const auto parameters = read_parameters(line.substr(parameters_key.size()));
        if (!parameters)
            return;
        if (find(parameters->instruction_set) == all.end())
            all.push_back({parameters->os_name, parameters->os_version, parameters->instruction_set});
        if (!parameters->implementation_arch.empty())
            find(parameters->instruction_set)->architectures.push_back(parameters->implementation_arch);
    });
    base::for_each_line(record, [&](std::string_view line) {
        const auto known = read_record_line(line);
        if (!known)
            return;
        if (const auto service = find(known->instruction_set); service != all.end())
            take_line(*service, *known);
    });
    return all;
}

std::vector<Service> all_services() {
    const std::string folder = service_record_folder();
    std::vector<std::string> files;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
        if (std::error_code ignored; entry->is_regular_file(ignored))
            files.push_back(entry->path());
    if (error && error != std::errc::no_such_file_or_directory)
        fail(Code::table, base::tr("cannot look through {1}: {2}", folder, error.message()));
    std::sort(files.begin(), files.end());
    std::vector<Service> all;
    for (const std::string &file : files) {
        std::string text;
        if (const int status = tables::read_file(file, text); status != 0 && status != tables::no_such_line)
            fail_reading(file, status);
        for (Service &service : services_in(text))
            if (service.record_file() == file)
                all.push_back(std::move(service));
    }
    return all;
}

std::optional<Service> find_service(const std::string &os_name, const std::string &os_version,
                                    const std::string &instruction_set) {
    for (Service &service : all_services())
        if (service.os_name == os_name && service.os_version == os_version &&
            service.instruction_set == instruction_set)
            return std::move(service);
    return std::nullopt;
}

std::vector<std::string> record_lines(const Service &service) {
    const std::string owner = service.instruction_set + ".all:";
    const std::string parameters = parameters_of(service);
    std::vector<std::string> lines;
    for (const std::string &architecture : service.architectures)
        lines.push_back(parameters + " " + architecture);
    if (service.architectures.empty())
        lines.push_back(parameters);
    const auto add = [&](const std::string &key, const std::string &value) {
        if (!value.empty())
            lines.push_back(key + "=" + owner + value);
    };
    add("SOURCE", service.source);
    for (const std::string &each : service.templates)
        add("SPOOLED_ROOT", each);
    for (const std::string &each : service.packages)
        add("ROOT", each);
    add("EXECUTABLES", service.executables);
    for (const auto &[architecture, file] : service.boot_programs)
        add("BOOT_PROGRAM", architecture + "," + file);
    for (const std::string &each : service.patches)
        add("PATCH", each);
    for (const MadeForService &each : service.made)
        lines.push_back(record_line_of(each, service));
    return lines;
}

std::string record_line_of(const MadeForService &made, const Service &service) {
    return std::string(key_of(made.kind)) + "=" + service.instruction_set + ".all:" + made.path;
}

std::string without_service(std::string_view record, const Service &service) {
    Service own = service;
    std::erase_if(own.templates, [&](const std::string &place) { return !service.made_itself(place); });
    own.packages.clear();
    for (const std::string &place : own.templates)
        own.packages.push_back(service.package_of(place));
    const std::vector<std::string> lines = record_lines(own);
    const std::string plain_parameters = parameters_of(service);
    std::string rest;
    base::for_each_line(record, [&](std::string_view line) {
        if (line != plain_parameters && std::find(lines.begin(), lines.end(), line) == lines.end())
            rest += std::string(line) + "\n";
    });
    return rest;
}

std::vector<std::string> clients_of(const Service &service) {
    std::vector<Service> others;
    for (Service &other : all_services())
        if (other.directory_name() == service.directory_name() &&
            other.instruction_set != service.instruction_set)
            others.push_back(std::move(other));
    std::map<std::string, Client> known;
    for (Client &client : all_clients())
        known.emplace(base::lower_case(client.name), std::move(client));
    std::vector<std::string> names;
    for (const BootparamsClient &entry : client_entries()) {
        const auto found = known.find(base::lower_case(entry.name));
        const Client client = found != known.end() ? found->second : find_client(entry.name);
        if (boots_from(client.boot_program(), service, others) ||
            names_something_of(std::string(entry.items), service))
            names.emplace_back(entry.name);
    }
    return names;
}

void check_service_names(const std::string &os_name, const std::string &instruction_set,
                         const std::string &implementation_arch) {
    constexpr const char *plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+-_.";
    for (const auto &[argument, value] : {std::pair<const char *, const std::string &>("os_name", os_name),
                                          {"instruction_set", instruction_set},
                                          {"implementation_arch", implementation_arch}})
        if (value.find_first_not_of(plain) != value.npos || value.starts_with('.') || value.starts_with('-'))
            refuse(base::tr(
                "{1}: \"{2}\" cannot be part of a directory's name; letters, digits and + - _ . only",
                argument, value));
}

ServiceLock::ServiceLock(const Service &service, For use) {
    const std::string folder = std::string(base::run_folder) + "/services";
    base::Descriptor place = base::private_folder(base::run_folder);
    if (place.is_open())
        place = base::private_folder(folder);
    if (!place.is_open())
        fail_errno(base::tr("cannot keep locks in {1}", folder));
    const std::string name = service.directory_name() + "." + service.instruction_set;
    file_ =
        base::Descriptor(openat(place.get(), name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file_.is_open())
        fail_errno(base::tr("cannot make {1}/{2}", folder, name));
    if (flock(file_.get(), (use == For::client ? LOCK_SH : LOCK_EX) | LOCK_NB) == 0)
        return;
    if (errno != EWOULDBLOCK)
        fail_errno(base::tr("cannot lock {1}/{2}", folder, name));
    fail(Code::busy,
         use == For::client
             ? base::tr("the service {1} is being added or removed at the moment; try again when it is done",
                        service.title())
             : base::tr("a client of the service {1} is being added, or the service changed, at the moment; "
                        "try again when it is done",
                        service.title()));
}

void forget_installed(const std::string &area, const std::string &base_directory) {
    const std::string records = "/var/sadm/pkg", contents = "/var/sadm/install/contents";
    const base::Beneath files(area);
    if (files.is_directory(records))
        for (const std::string &name : files.names(records)) {
            const std::string info = records + "/" + name + "/pkginfo";
            if (!files.is_file(info))
                continue;
            bool is_its_own = false;
            base::for_each_line(files.read(info), [&](std::string_view line) {
                is_its_own = is_its_own || line == "BASEDIR=" + base_directory;
            });
            if (is_its_own)
                files.remove_tree(records + "/" + name);
        }
    if (!files.is_file(contents))
        return;
    const std::string before = files.read(contents);
    std::string after;
    base::for_each_line(before, [&](std::string_view line) {
        const std::string_view word = base::first_word(line);
        const std::string path(word.substr(0, word.find('=')));
        if (!is_at_or_below(path, base_directory))
            after += std::string(line) + "\n";
    });
    if (after != before)
        files.rewrite(contents, after);
}

std::string take_back(const InstalledPackages &installed, const UndoContext &) {
    if (is_directory(installed.area))
        forget_installed(installed.area, installed.base);
    return "";
}

} // namespace hostadm::server
