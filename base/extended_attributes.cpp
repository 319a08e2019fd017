// SPDX-License-Identifier: MIT
#include "base/extended_attributes.hpp"

#include <cerrno>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <sys/xattr.h>
#include <system_error>

namespace hostadm::base {

namespace {

constexpr const char *access_list = "system.posix_acl_access";

[[noreturn]] void fail() {
    throw std::system_error(errno, std::generic_category());
}

// What a call of this kind puts into a buffer of the size that it asks for first, however that changes meanwhile;
// nothing where there is none.
template <typename Call> std::optional<std::string> whole(Call call) {
    std::string text;
    for (;;) {
        ssize_t size = call(nullptr, 0);
        if (size > 0) {
            text.resize(static_cast<std::size_t>(size));
            size = call(text.data(), text.size());
        }
        if (size >= 0) {
            text.resize(static_cast<std::size_t>(size));
            return text;
        }
        if (errno == ENODATA || errno == ENOTSUP)
            return std::nullopt;
        if (errno != EINTR && errno != ERANGE)
            fail();
    }
}

std::optional<std::string> attribute(int file, const char *name) {
    return whole([&](char *buffer, std::size_t size) { return fgetxattr(file, name, buffer, size); });
}

template <typename Call> void complete(Call call) {
    while (call() != 0)
        if (errno != EINTR)
            fail();
}

void copy(int from, int to) {
    const std::string names =
        whole([&](char *buffer, std::size_t size) { return flistxattr(from, buffer, size); }).value_or("");
    bool has_list = false;
    for (const char *name = names.c_str(); name < names.data() + names.size();
         name += std::string_view(name).size() + 1) {
        has_list = has_list || std::string_view(name) == access_list;
        const std::optional<std::string> value = attribute(from, name);
        // A label that the fresh file was born with need not be set, which might not be allowed.
        if (value && attribute(to, name) != value)
            complete([&] { return fsetxattr(to, name, value->data(), value->size(), 0); });
    }
    // A folder's default list gives the fresh file one that the old one never had.
    if (!has_list && attribute(to, access_list))
        complete([&] { return fremovexattr(to, access_list); });
}

} // namespace

int copy_extended_attributes(int from, int to) try {
    copy(from, to);
    return 0;
} catch (const std::system_error &error) {
    return error.code().value();
}

} // namespace hostadm::base
