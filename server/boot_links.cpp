// SPDX-License-Identifier: MIT
#include "server/boot_links.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t digits_length = 8;

bool is_digits(std::string_view text) {
    return text.size() == digits_length && text.find_first_not_of("0123456789ABCDEF") == text.npos;
}

bool begins_with_digits(std::string_view name) {
    return name.size() >= digits_length && is_digits(name.substr(0, digits_length)) &&
           (name.size() == digits_length || name[digits_length] == '.');
}

BootLink read_link(const std::string &name) {
    const fs::path path = fs::path(tftpboot) / name;
    std::error_code error;
    BootLink link{name, fs::read_symlink(path, error).string()};
    struct stat file {};
    link.whole = stat(path.c_str(), &file) == 0 && S_ISREG(file.st_mode);
    return link;
}

// Every name in the boot directory that begins with some client's digits.
template <typename Use> void for_each_link(Use use) {
    std::error_code error;
    for (fs::directory_iterator entry(tftpboot, error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename();
        if (begins_with_digits(name))
            use(name);
    }
}

void sort(BootLinks &links) {
    std::sort(links.begin(), links.end(),
              [](const BootLink &one, const BootLink &other) { return one.name < other.name; });
}

} // namespace

std::string address_digits(const std::string &address) {
    in_addr parsed{};
    if (inet_pton(AF_INET, address.c_str(), &parsed) != 1)
        return {};
    char digits[digits_length + 1];
    std::snprintf(digits, sizeof digits, "%08X", static_cast<unsigned int>(ntohl(parsed.s_addr)));
    return digits;
}

std::unordered_map<std::string, BootLinks> all_boot_links() {
    std::unordered_map<std::string, BootLinks> links;
    for_each_link(
        [&](const std::string &name) { links[name.substr(0, digits_length)].push_back(read_link(name)); });
    for (auto &[digits, of_one] : links)
        sort(of_one);
    return links;
}

BootLinks boot_links_of(const std::string &address) {
    const std::string digits = address_digits(address);
    BootLinks links;
    for_each_link([&](const std::string &name) {
        if (name.starts_with(digits))
            links.push_back(read_link(name));
    });
    sort(links);
    return links;
}

std::string architecture_of(std::string_view boot_program) {
    for (const std::string_view prefix : {"inetboot.", "boot."}) {
        if (boot_program.starts_with(prefix)) {
            const std::string_view rest = boot_program.substr(prefix.size());
            return std::string(rest.substr(0, rest.find('.')));
        }
    }
    return {};
}

std::string boot_links_state(const std::string &digits, const BootLinks &links) {
    if (links.empty())
        return "no";
    if (links.front().name != digits)
        return "no " + digits;
    if (links.size() == 1)
        return "no " + digits + ".ARCH";
    for (const BootLink &link : links)
        if (!link.whole)
            return link.name + " leads nowhere";
    return "yes";
}

bool lead_to(const BootLinks &links, const std::string &digits, const std::string &architecture,
             const std::string &boot_program) {
    return links.size() == 2 && links[0].name == digits && links[1].name == digits + "." + architecture &&
           links[0].target == boot_program && links[1].target == boot_program;
}

} // namespace hostadm::server
