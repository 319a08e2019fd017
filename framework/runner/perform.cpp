// SPDX-License-Identifier: MIT
#include "framework/runner/perform.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/descriptor.hpp"
#include "base/environment.hpp"
#include "base/nearest.hpp"
#include "base/owners.hpp"
#include "base/program.hpp"
#include "base/this_host.hpp"
#include "base/translation.hpp"
#include "framework/protocol/answer.hpp"
#include "framework/protocol/description.hpp"
#include "framework/protocol/kinds.hpp"
#include "framework/runner/layout.hpp"
#include "framework/runner/other_hosts.hpp"

namespace hostadm::framework {

namespace {

using Status = Outcome::Status;

// A description is a text: it takes no work, and what goes on for ever must not fill the memory.
constexpr int describe_time_limit = 5; // seconds
constexpr std::size_t describe_size_limit = 1 << 20;

// Names of classes and methods; with no dot and no slash a name cannot lead out of the folder.
bool is_method_word(std::string_view word) {
    return is_name(word) && word.find('.') == word.npos;
}

std::vector<std::string> folder_entries(const std::string &folder) {
    std::vector<std::string> names;
    const base::Directory stream(opendir(folder.c_str()));
    if (stream)
        while (const dirent *entry = readdir(stream.get()))
            if (is_method_word(entry->d_name))
                names.emplace_back(entry->d_name);
    std::sort(names.begin(), names.end());
    return names;
}

bool is_file(const std::string &path) {
    struct stat file {};
    return stat(path.c_str(), &file) == 0 && S_ISREG(file.st_mode);
}

// The installation's methods come before those of the site.
std::string path_of(const std::string &method) {
    for (const std::string &folder : layout().method_folders)
        if (is_file(folder + "/" + method))
            return folder + "/" + method;
    return layout().method_folders.front() + "/" + method;
}

std::vector<std::string> methods_in(const std::string &folder) {
    std::vector<std::string> methods;
    for (const std::string &method_class : folder_entries(folder))
        for (const std::string &name : folder_entries(folder + "/" + method_class))
            if (is_file(folder + "/" + method_class + "/" + name))
                methods.push_back(method_class + "/" + name);
    return methods;
}

// A compiled method checks its own arguments before it does anything; for a script the framework does it.
bool is_script(const std::string &path) {
    const base::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    char start[2] = {};
    return file.is_open() && pread(file.get(), start, sizeof start, 0) == 2 && start[0] == '#' &&
           start[1] == '!';
}

std::string unknown_method(const std::vector<std::string> &methods, const std::string &wanted) {
    std::vector<std::string> names;
    for (const std::string &method : methods)
        names.push_back(method.substr(method.find('/') + 1));
    // A class may be wrong, or a name, or the class may have been left out.
    std::string meant = base::nearest(methods, wanted);
    const std::string name = meant.empty() ? base::nearest(names, wanted.substr(wanted.find('/') + 1)) : "";
    for (std::size_t at = 0; at < names.size() && !name.empty(); ++at)
        if (names[at] == name)
            meant = meant.empty() ? methods[at] : base::tr("{1} or {2}", meant, methods[at]);
    return meant.empty() ? base::tr("there is no method {1}; `hostadm list` shows them all", wanted)
                         : base::tr("there is no method {1}; did you mean {2}?", wanted, meant);
}

base::Descriptor answer_file() {
    base::Descriptor file(memfd_create("hostadm-answer", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (file.is_open() && fcntl(file.get(), F_SETFL, O_APPEND) == -1)
        return base::Descriptor();
    return file;
}

Outcome failed(std::string reason) {
    return {Status::failed, {}, std::move(reason)};
}

// What a run amounts to, from how its process ended and what it answered.
Outcome judge(Answer answer, const base::Ending &ending,
              const std::optional<method::Description> &description) {
    Outcome outcome{Status::failed, std::move(answer), ""};
    if (ending.start_error == EACCES)
        outcome.reason = base::tr("it is not executable, or you may not run it; is root needed?");
    else if (ending.start_error == ENOEXEC)
        outcome.reason = base::tr("it is no program that this host can run");
    else if (ending.start_error != 0)
        outcome.reason = base::tr("it {1}", base::in_words(ending));
    else if (ending.signal != 0) {
        outcome.reason = base::tr("it {1}", base::in_words(ending));
        outcome.answer.dirty = true; // it could not say how far it had come
    } else if (outcome.answer.invalid) {
        outcome.status = Status::invalid;
        outcome.reason = *outcome.answer.invalid;
    } else if (!outcome.answer.defect.empty())
        outcome.reason = outcome.answer.defect;
    else if (ending.exit_status != 0) {
        // Having recorded why, a method may end with any status.
        if (outcome.answer.errors.empty())
            outcome.reason = base::tr("it {1} and recorded no error", base::in_words(ending));
    } else if (outcome.answer.begun && !outcome.answer.ended) {
        outcome.reason = base::tr("it ended before its work was done");
        outcome.answer.dirty = true;
    } else if (const auto missing = description ? missing_output(*description, outcome.answer) : std::nullopt)
        outcome.reason = base::tr("it did not return the output {1}", *missing);
    else
        outcome.status = Status::done;
    return outcome;
}

} // namespace

std::vector<std::string> list_methods() {
    std::vector<std::string> methods;
    for (const std::string &folder : layout().method_folders)
        for (std::string &method : methods_in(folder))
            methods.push_back(std::move(method));
    std::sort(methods.begin(), methods.end());
    methods.erase(std::unique(methods.begin(), methods.end()), methods.end());
    return methods;
}

std::vector<std::string> hidden_methods() {
    std::vector<std::string> paths;
    for (const std::string &folder : layout().method_folders)
        for (const std::string &method : methods_in(folder))
            if (path_of(method) != folder + "/" + method)
                paths.push_back(folder + "/" + method);
    return paths;
}

std::variant<std::string, Unknown> find_method(std::string_view method_class, std::string_view name) {
    std::string wanted(name);
    if (!method_class.empty())
        wanted = std::string(method_class) + "/" + wanted;
    const std::size_t slash = wanted.find('/');
    if (slash != wanted.npos && is_method_word(std::string_view(wanted).substr(0, slash)) &&
        is_method_word(std::string_view(wanted).substr(slash + 1)) && is_file(path_of(wanted)))
        return wanted;
    const std::vector<std::string> methods = list_methods();
    std::string found;
    if (slash == wanted.npos) {
        for (const std::string &method : methods) {
            if (!method.ends_with("/" + wanted))
                continue;
            if (!found.empty())
                return Unknown{base::tr("there are several methods {1}: {2} and {3}; give the class too",
                                        wanted, found, method)};
            found = method;
        }
        if (!found.empty())
            return found;
    }
    if (methods.empty())
        return Unknown{base::tr("there are no methods in {1}", layout().method_folders.front())};
    return Unknown{unknown_method(methods, wanted)};
}

std::variant<method::Description, std::string> describe(const std::string &name) {
    const base::Descriptor output(memfd_create("hostadm-description", MFD_CLOEXEC));
    if (!output.is_open())
        return base::tr("no memory file for its description: {1}", std::strerror(errno));
    const base::Ending ending = base::run({.words = {path_of(name), "--describe"},
                                           .descriptors = {{STDOUT_FILENO, output.get()}},
                                           .path_prefix = layout().programs,
                                           .time_limit = describe_time_limit,
                                           .fresh_start = true,
                                           .size_limit = describe_size_limit,
                                           .environment = base::clean_environment()});
    struct stat printed {};
    if (fstat(output.get(), &printed) == 0 && printed.st_size >= off_t{describe_size_limit})
        return base::tr("asked to describe itself, it prints more than a megabyte");
    if (!ending.well())
        return base::tr("asked to describe itself, it {1}", base::in_words(ending));
    const auto text = base::read_whole(output.get());
    auto parsed = parse_description(text.value_or(""));
    if (const auto *defect = std::get_if<std::string>(&parsed))
        return base::tr("its description of itself cannot be used: {1}", *defect);
    // It is run by the name of its file, whatever name a copy of another has kept.
    std::get<method::Description>(parsed).name = name;
    return parsed;
}

Outcome perform_here(Request request) {
    const std::string path = path_of(request.method);
    base::Program program{.words = {path}, .time_limit = request.time_limit, .fresh_start = true};
    // What a caller has in the environment is none of the method's business, least of all what a shell, a
    // linker or a translation makes of it.
    program.environment = base::clean_environment();
    program.path_prefix = layout().programs;
    std::optional<method::Description> description;
    if (is_script(path)) {
        auto described = describe(request.method);
        if (const auto *defect = std::get_if<std::string>(&described))
            return failed(*defect);
        description = std::move(std::get<method::Description>(described));
        if (auto wrong = check(*description, request))
            return {Status::invalid, {}, std::move(*wrong)};
    }
    const base::Descriptor input(sealed_file(to_text(request)));
    const base::Descriptor output = answer_file();
    if (!input.is_open() || !output.is_open())
        return failed(base::tr("no memory file for its arguments: {1}", std::strerror(errno)));
    // What a method prints is for people, like what it says on standard error; results go to the answer.
    program.descriptors = {
        {STDOUT_FILENO, STDERR_FILENO}, {request_descriptor, input.get()}, {answer_descriptor, output.get()}};
    const base::Ending ending = base::run(program);
    const base::MemoryFileText answer(output.get());
    if (answer.error() != 0)
        return failed(base::tr("its answer cannot be read: {1}", std::strerror(answer.error())));
    return judge(parse_answer(answer.text()), ending, description);
}

Outcome perform(std::string_view method_class, std::string_view name, Request request,
                const std::string &host) {
    request.method = method_class.empty() ? name : std::string(method_class) + "/" + std::string(name);
    const method::Argument host_argument{.name = "host", .kind = method::Kind::host};
    if (!host.empty() && !is_accepted(host_argument, host))
        return {Status::invalid,
                {},
                base::tr("the host cannot be \"{1}\"; it must be {2}", host, accepted(host_argument))};
    if (!base::is_this_host(host, base::Lookup::name_services, base::EmptyName::is_this_host)) {
        OtherHosts how;
        Outcome outcome;
        how.say = [](const std::string &, const std::string &line) {
            base::write_all(STDERR_FILENO, line + "\n");
        };
        how.done = [&](std::size_t, Outcome there) { outcome = std::move(there); };
        perform_there({{.user = "", .host = host}}, request, how);
        return outcome;
    }
    auto found = find_method(method_class, name);
    if (const auto *unknown = std::get_if<Unknown>(&found))
        return {Status::invalid, {}, unknown->reason};
    request.method = std::get<std::string>(found);
    return perform_here(std::move(request));
}

} // namespace hostadm::framework
