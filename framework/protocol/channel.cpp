// SPDX-License-Identifier: MIT
#include "framework/protocol/channel.hpp"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/descriptor.hpp"
#include "framework/protocol/bytes.hpp"

namespace hostadm::framework {

namespace {

// Only a memory file knows seals: a descriptor 3 or 4 that a program opened itself is not mistaken for ours.
bool is_memory_file(int descriptor) {
    return fcntl(descriptor, F_GET_SEALS) != -1;
}

// The descriptors serve this process alone: the commands that a method starts have no business with them.
bool attach() {
    if (!is_memory_file(request_descriptor) || !is_memory_file(answer_descriptor))
        return false;
    fcntl(request_descriptor, F_SETFD, FD_CLOEXEC);
    fcntl(answer_descriptor, F_SETFD, FD_CLOEXEC);
    return true;
}

} // namespace

const std::string *Request::find(std::string_view name) const {
    for (const auto &[key, value] : arguments)
        if (key == name)
            return &value;
    return nullptr;
}

std::string to_text(const Request &request) {
    Json text = {{"hostadm", 1}, {"method", to_json(request.method)}, {"arguments", Json::object()}};
    Json &arguments = text["arguments"];
    for (const auto &[name, value] : request.arguments)
        arguments[name] = to_json(value);
    for (const auto &[name, value] : request.settings)
        text["settings"].push_back({to_json(name), to_json(value)});
    return text.dump();
}

namespace {

std::optional<Values> arguments_of(const Json &object) {
    if (!object.is_object())
        return std::nullopt;
    Values arguments;
    for (const auto &[name, value] : object.items()) {
        auto bytes = from_json(value);
        if (!bytes)
            return std::nullopt;
        arguments.emplace_back(name, std::move(*bytes));
    }
    return arguments;
}

// Pairs, since a setting may be there several times; nothing for what are none.
std::optional<Values> settings_of(const Json &pairs) {
    Values settings;
    for (const Json &pair : pairs) {
        auto name = pair.is_array() && pair.size() == 2 ? from_json(pair[0]) : std::nullopt;
        auto value = name ? from_json(pair[1]) : std::nullopt;
        if (!value)
            return std::nullopt;
        settings.emplace_back(std::move(*name), std::move(*value));
    }
    return settings;
}

} // namespace

std::optional<Values> parse_arguments(std::string_view text) {
    return arguments_of(parse_json(text));
}

std::optional<Request> parse_request(std::string_view text) {
    const Json parsed = parse_json(text);
    if (!parsed.is_object() || parsed.value("hostadm", Json()) != 1)
        return std::nullopt;
    const Json method = parsed.value("method", Json());
    auto arguments = arguments_of(parsed.value("arguments", Json()));
    auto settings = settings_of(parsed.value("settings", Json::array()));
    if (!method.is_string() || !arguments || !settings)
        return std::nullopt;
    return Request{.method = method.get<std::string>(),
                   .arguments = std::move(*arguments),
                   .settings = std::move(*settings)};
}

int sealed_file(std::string_view text) {
    base::Descriptor file(memfd_create("hostadm-request", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!file.is_open() || !base::write_all(file.get(), text) || lseek(file.get(), 0, SEEK_SET) == -1 ||
        fcntl(file.get(), F_ADD_SEALS, F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE) == -1)
        return -1;
    return file.release();
}

std::optional<Request> read_request() {
    if (!attach())
        return std::nullopt;
    const auto text = base::read_whole(request_descriptor);
    return text ? parse_request(*text) : std::nullopt;
}

bool append_answer(std::string_view lines) {
    // A method may answer with a hundred thousand rows: what has been prepared once stays so.
    static bool attached = false;
    attached = attached || attach();
    return attached && is_memory_file(answer_descriptor) && base::write_all(answer_descriptor, lines);
}

std::optional<std::string> read_answer() {
    return attach() ? base::read_whole(answer_descriptor) : std::nullopt;
}

} // namespace hostadm::framework
