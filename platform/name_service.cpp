// SPDX-License-Identifier: MIT
// The name-service switch.
#include "platform/name_service.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "base/boundary.hpp"
#include "base/immortal.hpp"
#include "base/owners.hpp"
#include "hostadm/platform.h"

namespace hostadm::platform {

namespace {

constexpr std::string_view blanks = " \t\r\n\f\v";

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

} // namespace

std::optional<std::vector<std::string>> sources_in_line(std::string_view line, std::string_view database) {
    line = line.substr(0, line.find('#'));
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || trimmed(line.substr(0, colon)) != database)
        return std::nullopt;
    std::vector<std::string> sources;
    std::string_view rest = line.substr(colon + 1);
    while (!(rest = trimmed(rest)).empty()) {
        if (rest.front() == '[') {
            const std::size_t close = rest.find(']');
            rest = close == std::string_view::npos ? std::string_view() : rest.substr(close + 1);
            continue;
        }
        const std::size_t end = std::min(rest.find_first_of(blanks), rest.find('['));
        sources.emplace_back(rest.substr(0, end));
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end);
    }
    return sources;
}

std::optional<std::vector<std::string>> sources_of(const std::string &path, std::string_view database) {
    const base::Stream file(std::fopen(path.c_str(), "re"));
    if (!file)
        return std::nullopt;
    base::Allocated<char> buffer;
    std::size_t capacity = 0;
    for (;;) {
        char *line = buffer.release();
        errno = 0;
        const ssize_t size = getline(&line, &capacity, file.get());
        buffer.reset(line);
        if (size < 0)
            break;
        if (auto sources = sources_in_line({line, static_cast<std::size_t>(size)}, database))
            return sources;
    }
    if (std::ferror(file.get()))
        return std::nullopt;
    return std::vector<std::string>{"files"};
}

} // namespace hostadm::platform

namespace {

// One configuration with the texts that it points to.
struct Configuration {
    std::vector<std::string> sources;
    std::vector<sysv_nsw_lookup> lookups;
    sysv_nsw_config config{};

    explicit Configuration(std::vector<std::string> names)
        : sources(std::move(names)), lookups(sources.size()) {
        for (std::size_t i = 0; i < sources.size(); ++i)
            lookups[i] = {sources[i].c_str(), i + 1 < sources.size() ? &lookups[i + 1] : nullptr};
        config.lookups = lookups.empty() ? nullptr : lookups.data();
    }
};

} // namespace

struct sysv_nsw_config *sysv_nsw_getconfig(const char *database) {
    return hostadm::base::errno_at_boundary(nullptr, [&]() -> sysv_nsw_config * {
        static hostadm::base::Immortal<std::unique_ptr<Configuration>> last;
        if (database == nullptr || *database == '\0') {
            errno = EINVAL;
            return nullptr;
        }
        auto sources = hostadm::platform::sources_of("/etc/nsswitch.conf", database);
        if (!sources)
            return nullptr;
        last.get() = std::make_unique<Configuration>(std::move(*sources));
        return &last.get()->config;
    });
}
