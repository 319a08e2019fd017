// SPDX-License-Identifier: MIT
// Copies, entries of the hosts and mount tables, and the text of bootparams entries.
#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

#include "base/boundary.hpp"
#include "base/owners.hpp"
#include "hostadm.h"
#include "hostadm/platform.h"
#include "src/support/table.hpp"
#include "src/support/text.hpp"

namespace {

using hostadm::ColumnList;
using hostadm::is_empty;
using hostadm::replace_or_add;
using hostadm::text_or;

constexpr const char *field_separators = "\t ";
constexpr const char *comment_mark = "#";

// ---- copies ----

bool is_absolute(const char *path) {
    return path != nullptr && *path == '/';
}

void make_directory_of(const char *path) {
    std::string directory(path);
    directory.erase(directory.rfind('/') + 1);
    mkdir_path(directory.data());
}

int run_copy(const char *copy_command, const char *source, const char *destination) {
    return system((std::string("set -f ; ") + copy_command + " " + source + " " + destination).c_str());
}

// ---- mount tables ----

// The host of HOST:PATH counts in lower case.
// The caller's own text is changed, and sees what the table holds.
void lower_case_host(char *resource) {
    const char *colon = std::strchr(resource, ':');
    if (colon == nullptr)
        return;
    std::string host(resource, static_cast<std::size_t>(colon - resource));
    sysv_strlwr(host.data());
    std::copy(host.begin(), host.end(), resource);
}

int replace_mount_entry(const char *vfstab, char *resource,
                        std::initializer_list<const char *> further_columns) {
    ColumnList columns;
    if (const int status = columns.create(field_separators, comment_mark, nullptr); status != 0)
        return status;

    if (!is_empty(resource))
        lower_case_host(resource);
    const char *key = text_or(resource, "-");
    if (const int status = columns.add(0, key, key); status != 0)
        return status;

    int position = 0;
    for (const char *value : further_columns)
        if (const int status = columns.add(++position, nullptr, text_or(value, "-")); status != 0)
            return status;
    return replace_db_entry(vfstab, columns.get(), replace_or_add);
}

// ---- bootparams entries ----

enum Key { root, swap, dump, exec, kvm, boottype, swapsize, install, install_config, term, key_count };

constexpr std::array<std::string_view, key_count> key_names = {
    "root", "swap", "dump", "exec", "kvm", "boottype", "swapsize", "install", "install_config", "term"};

constexpr bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\n';
}

// What an entry says under one key: KEY=SERVER:PATH, or KEY=VALUE without a server.
struct Item {
    bool found = false;
    bool has_server = false;
    std::string_view server;
    std::string_view path;
};

using Items = std::array<Item, key_count>;

// The known key that ends right before an equals sign.
// No known key ends in another one, so it is the only one.
std::optional<Key> key_before(std::string_view text) {
    for (int key = 0; key < key_count; ++key) {
        const std::string_view name = key_names[static_cast<std::size_t>(key)];
        if (text.ends_with(name.back()) && text.ends_with(name)) // most are told apart by the last letter
            return static_cast<Key>(key);
    }
    return std::nullopt;
}

// Finds every known key in one pass. A key counts wherever it stands, also at the end of a longer word. Its
// first item with a server wins; without any, its first item.
Items items_of(std::string_view entry) {
    Items items;
    std::size_t value_end = 0; // of the value looked at last: keys inside it need no second look for its end
    for (std::size_t equals = entry.find('='); equals != entry.npos; equals = entry.find('=', equals + 1)) {
        const std::optional<Key> key = key_before(entry.substr(0, equals));
        if (!key || items[*key].has_server)
            continue;
        Item &item = items[*key];
        const std::size_t value = equals + 1;
        if (value_end < value) {
            value_end = value;
            while (value_end < entry.size() && entry[value_end] != ':' && !is_blank(entry[value_end]))
                ++value_end;
        }
        const std::string_view word = entry.substr(value, value_end - value);
        if (value_end < entry.size() && entry[value_end] == ':') {
            const char *path = entry.data() + value_end + 1;
            const char *path_end = std::find_if(path, entry.data() + entry.size(), is_blank);
            item = {true, true, word, std::string_view(path, static_cast<std::size_t>(path_end - path))};
        } else if (!item.found) {
            item = {true, false, {}, word};
        }
    }
    return items;
}

std::string_view first_server(const Items &items, std::initializer_list<Key> keys) {
    for (const Key key : keys)
        if (!items[key].server.empty())
            return items[key].server;
    return {};
}

// The pattern "../export/exec/kvm/..", deliberately loose: two characters of any kind on each side will do.
bool holds_kvm_directory(std::string_view path) {
    constexpr std::string_view middle = "/export/exec/kvm/";
    const std::size_t found = path.find(middle, 2);
    return found != path.npos && path.size() - found >= middle.size() + 2;
}

using OwnedText = hostadm::base::Allocated<char>;

OwnedText joined(std::initializer_list<std::string_view> parts) {
    std::size_t size = 1;
    for (const std::string_view part : parts)
        size += part.size();
    OwnedText text(static_cast<char *>(std::malloc(size)));
    if (text == nullptr)
        return text;
    char *end = text.get();
    for (const std::string_view part : parts)
        end = std::copy(part.begin(), part.end(), end);
    *end = '\0';
    return text;
}

// Never removes the first character.
void trim_end(char *text) {
    std::size_t length = std::strlen(text);
    while (length > 1 && std::isspace(static_cast<unsigned char>(text[length - 1])) != 0)
        text[--length] = '\0';
}

} // namespace

int copyfile(const char *destination, const char *source) {
    return hostadm::base::at_boundary(-1, [&] {
        if (!is_absolute(destination) || !is_absolute(source))
            return -1;
        make_directory_of(destination);
        return run_copy("cp", source, destination);
    });
}

int copytree(char *destination, const char *source) {
    return hostadm::base::at_boundary(-1, [&] {
        if (!is_absolute(destination) || !is_absolute(source))
            return -1;
        // Under the same last name the copy goes into the parent:
        // copied onto itself it would land one too deep.
        char *last_name = std::strrchr(destination, '/');
        if (std::strcmp(last_name, std::strrchr(source, '/')) == 0)
            last_name[1] = '\0';
        make_directory_of(destination);
        return run_copy("cp -r", source, destination);
    });
}

int set_hosts(const char *table, const char *key, const char *value) {
    ColumnList columns;
    if (const int status = columns.create(field_separators, comment_mark, nullptr); status != 0)
        return status;
    if (const int status = columns.add(0, key, key); status != 0)
        return status;
    if (const int status = columns.add(1, nullptr, value, 1); status != 0)
        return status;
    return replace_db_entry(table, columns.get(), replace_or_add);
}

int mntadd(const char *vfstab, char *resource, const char *fsckdev, const char *mountpt, const char *fstype,
           const char *fsckpass, const char *mountatboot, const char *mntopts) {
    return hostadm::base::at_boundary(-ENOMEM, [&] {
        return replace_mount_entry(vfstab, resource,
                                   {fsckdev, mountpt, fstype, fsckpass, mountatboot, mntopts});
    });
}

int mntadd4x(const char *vfstab, char *col0, const char *col1, const char *col2, const char *col3,
             const char *col4, const char *col5) {
    return hostadm::base::at_boundary(-ENOMEM, [&] {
        return replace_mount_entry(vfstab, col0, {col1, col2, col3, col4, col5});
    });
}

int get_client_index(const char *kind, int *index) {
    struct Kind {
        std::string_view keyword;
        int number;
    };
    constexpr Kind kinds[] = {{"DISKLESS", HOSTADM_DISKLESS},   {"CACHELET", HOSTADM_CACHELET},
                              {"DATALESS", HOSTADM_DATALESS},   {"DISKFULL", HOSTADM_DISKFULL},
                              {"OS_SERVER", HOSTADM_OS_SERVER}, {"UNKNOWN", HOSTADM_UNKNOWN}};
    for (const Kind &known : kinds) {
        if (known.keyword == kind) {
            *index = known.number;
            return 1;
        }
    }
    return 0;
}

int parse_bootparams_entry(const char *entry, char **server, char **exec_server, char **root_path,
                           char **swap_path, char **dump_path, char **exec_path, char **kvm_path,
                           char **boottype_out, char **swapsize_out, char **install_server,
                           char **install_path, char **install_config_server, char **install_config_path) {
    if (is_empty(entry))
        return -1;
    const Items items = items_of(entry);
    const std::string_view client_server = first_server(items, {root, swap, dump});
    const std::string_view client_exec_server = first_server(items, {exec, kvm});
    std::string_view install_from = items[install].server;
    if (install_from.empty() && holds_kvm_directory(items[root].path))
        install_from = items[root].server;

    struct Output {
        char **place;
        std::string_view value;
    };
    const std::array<Output, 13> outputs = {{{server, client_server},
                                             {exec_server, client_exec_server},
                                             {root_path, items[root].path},
                                             {swap_path, items[swap].path},
                                             {dump_path, items[dump].path},
                                             {exec_path, items[exec].path},
                                             {kvm_path, items[kvm].path},
                                             {boottype_out, items[boottype].path},
                                             {swapsize_out, items[swapsize].path},
                                             {install_server, install_from},
                                             {install_path, items[install].path},
                                             {install_config_server, items[install_config].server},
                                             {install_config_path, items[install_config].path}}};
    std::array<OwnedText, outputs.size()> copies;
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        if (outputs[i].place != nullptr) {
            copies[i].reset(hostadm::duplicate(outputs[i].value));
            if (copies[i] == nullptr)
                return -1;
        }
    }
    for (std::size_t i = 0; i < outputs.size(); ++i)
        if (outputs[i].place != nullptr)
            *outputs[i].place = copies[i].release();

    if (std::none_of(items.begin(), items.end(), [](const Item &item) { return item.found; }))
        return -1;
    const bool server_missing = server != nullptr && client_server.empty();
    const bool exec_server_missing = exec_server != nullptr && client_exec_server.empty();
    return server_missing || exec_server_missing ? 1 : 0;
}

char *edit_bootparams_entry(const char *entry, const char *key, const char *server, const char *path) {
    return hostadm::base::at_boundary(static_cast<char *>(nullptr), [&] {
        const bool has_value = !is_empty(server) || !is_empty(path);
        const std::string_view new_server = text_or(server, "");
        const std::string_view new_path = text_or(path, "");
        const char *item = std::strstr(entry, (std::string(key) + "=").c_str());
        if (item == nullptr && !has_value)
            return hostadm::duplicate(entry);

        OwnedText result;
        if (item == nullptr) {
            result = joined({entry, " ", key, "=", new_server, ":", new_path});
        } else {
            const std::string_view prefix(entry, static_cast<std::size_t>(item - entry));
            const char *blank = std::strpbrk(item, " \t\n");
            const std::string_view suffix = blank == nullptr ? "" : blank + 1;
            if (has_value)
                result = joined({prefix, key, "=", new_server, ":", new_path, " ", suffix});
            else if (!prefix.empty() && !suffix.empty())
                result =
                    joined({prefix, " ", suffix}); // with the prefix's own blank two stand here, harmlessly
            else
                result = joined({prefix, suffix});
        }
        if (result != nullptr)
            trim_end(result.get());
        return result.release();
    });
}
