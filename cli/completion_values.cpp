// SPDX-License-Identifier: MIT
#include "cli/completion_values.hpp"

#include <algorithm>
#include <dirent.h>
#include <net/if.h>
#include <sys/stat.h>

#include "base/encoding.hpp"
#include "base/owners.hpp"

namespace hostadm::cli {

namespace {

using framework::Rows;
using framework::Values;
using method::Argument;
using method::Description;
using method::Kind;
using method::Source;

// Who waits for a table longer than this types the value.
constexpr int time_limit = 2; // seconds

bool is_shown_as_it_is(std::string_view text) {
    return base::is_utf8(text) && std::none_of(text.begin(), text.end(), [](char c) {
               return static_cast<unsigned char>(c) < ' ' || c == 0x7f;
           });
}

const std::string *find(const Values &given, std::string_view name) {
    for (const auto &[key, value] : given)
        if (key == name && !value.empty())
            return &value;
    return nullptr;
}

// What was given for another argument must stand in the column of its name.
bool agrees(const Rows::Row &row, const std::string &column, const Values &given) {
    for (const auto &[name, value] : row)
        if (const std::string *other = name == column ? nullptr : find(given, name);
            other != nullptr && *other != value)
            return false;
    return true;
}

bool changes_nothing(const Description &description) {
    return description.edits.empty() && description.starts.empty() && description.shares.empty();
}

// The values of a source, each once.
std::vector<std::string> values_of(const Source &source, const Values &given) {
    const auto described = framework::describe(source.method);
    const auto *description = std::get_if<Description>(&described);
    if (description == nullptr || !changes_nothing(*description))
        return {};
    framework::Request request{.method = {}, .arguments = {}, .time_limit = time_limit};
    for (const Argument &argument : description->arguments)
        if (const std::string *value = find(given, argument.name);
            value != nullptr && framework::is_accepted(argument, *value))
            request.arguments.emplace_back(argument.name, *value);
    const framework::Outcome outcome = framework::perform("", source.method, std::move(request), "");
    // Where none agrees, what was given is to be new.
    std::vector<std::string> all, agreeing;
    for (const Rows::Row row : outcome.answer.rows)
        for (const auto &[name, value] : row)
            if (name == source.column && !value.empty()) {
                all.emplace_back(value);
                if (agrees(row, source.column, given))
                    agreeing.emplace_back(value);
            }
    std::vector<std::string> &values = agreeing.empty() ? all : agreeing;
    std::sort(values.begin(), values.end());
    values.erase(std::unique(values.begin(), values.end()), values.end());
    return values;
}

bool is_directory(const std::string &folder, const dirent &entry) {
    if (entry.d_type != DT_LNK && entry.d_type != DT_UNKNOWN)
        return entry.d_type == DT_DIR;
    struct stat file {};
    return stat((folder + entry.d_name).c_str(), &file) == 0 && S_ISDIR(file.st_mode);
}

// The files that a beginning of a path may mean, directories with a slash behind them.
std::vector<std::string> files_from(const std::string &typed) {
    const std::string folder = typed.substr(0, typed.rfind('/') + 1);
    const std::string name = typed.substr(folder.size());
    std::vector<std::string> paths;
    const base::Directory stream(opendir(folder.empty() ? "." : folder.c_str()));
    while (const dirent *entry = stream ? readdir(stream.get()) : nullptr) {
        const std::string_view found = entry->d_name;
        // A hidden file is meant only where its dot is typed.
        if (found != "." && found != ".." && found.starts_with(name) &&
            (name.starts_with('.') || !found.starts_with('.')))
            paths.push_back(folder + entry->d_name + (is_directory(folder, *entry) ? "/" : ""));
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

// As files, but only what the argument can be.
void offer_paths(Offers &offers, const Argument &argument) {
    if (offers.typed().empty())
        offers.add("/");
    for (const std::string &path :
         offers.typed().starts_with('/') ? files_from(offers.typed()) : std::vector<std::string>())
        if (framework::is_accepted(argument, path))
            offers.add(path);
}

} // namespace

Offers::Offers(std::string typed, std::string before)
    : typed_(std::move(typed)), before_(std::move(before)) {}

void Offers::add(std::string_view value, std::string_view meaning) {
    if (value.starts_with(typed_) && is_shown_as_it_is(value))
        offers_.push_back({before_ + std::string(value), std::string(meaning)});
}

void Offers::only_last_of(std::string_view marks) {
    const std::size_t last = typed_.find_last_of(marks) + 1; // 0 where there is none
    before_ += typed_.substr(0, last);
    typed_.erase(0, last);
}

void offer_column(Offers &offers, const std::string &method, const std::string &column) {
    for (const std::string &value : values_of({.argument = {}, .method = method, .column = column}, {}))
        if (!value.starts_with('-')) // it would be taken for an option
            offers.add(value);
}

void offer_files(Offers &offers) {
    for (const std::string &path : files_from(offers.typed()))
        if (!path.starts_with('-'))
            offers.add(path);
}

void offer_interfaces(Offers &offers) {
    if (struct if_nameindex *const list = if_nameindex()) {
        for (const struct if_nameindex *one = list; one->if_name != nullptr; ++one)
            offers.add(one->if_name);
        if_freenameindex(list);
    }
}

void offer_values(Offers &offers, const Description &description, const Argument &argument,
                  const Values &given, bool on_this_host) {
    if (argument.kind == Kind::hosts)
        offers.only_last_of(" ,");
    for (const std::string &choice : argument.choices)
        offers.add(choice);
    if (argument.kind == Kind::yes_no)
        for (const char *answer : {"yes", "no"})
            offers.add(answer);
    for (const Source &source : description.values)
        if (on_this_host && source.argument == argument.name)
            for (const std::string &value : values_of(source, given))
                if (framework::is_accepted(argument, value))
                    offers.add(value);
    if (offers.empty() && on_this_host && (argument.kind == Kind::path || argument.kind == Kind::device))
        offer_paths(offers, argument);
    if (offers.empty() && offers.typed().empty() && !argument.default_value.empty())
        offers.add(argument.default_value);
}

} // namespace hostadm::cli
