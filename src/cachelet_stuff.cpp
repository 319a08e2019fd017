// SPDX-License-Identifier: MIT
// Cache-only clients: which clients boot from this host, their mount tables and install profiles, and the
// packages that they and their server need.
#include <libintl.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <string>
#include <string_view>
#include <unordered_set>

#include "hostadm.h"
#include "hostadm/platform.h"
#include "hostadm/tables.h"
#include "support/text.hpp"

namespace {

using namespace hostadm;

client_node *list_of_hosts = nullptr;

// What keeps the enumeration linear: where the list ends, and the names that it holds. The nodes are never
// freed, so the names may be views of theirs.
class ListIndex {
public:
    bool holds(std::string_view name) {
        catch_up();
        return names_.count(name) != 0;
    }
    // To be called after holds(): the index then knows the true end.
    void append(client_node *node) {
        (last_ == nullptr ? list_of_hosts : last_->next) = node;
        catch_up();
    }

private:
    // Takes in what stands behind the end that we know: our new node, or nodes that a caller has appended.
    void catch_up() {
        client_node *node = last_ == nullptr ? list_of_hosts : last_->next;
        for (; node != nullptr; node = node->next) {
            if (node->name != nullptr)
                names_.insert(node->name);
            last_ = node;
        }
    }

    client_node *last_ = nullptr;
    std::unordered_set<std::string_view> names_;
};

ListIndex &list_index() {
    static ListIndex index;
    return index;
}

[[noreturn]] void out_of_memory(const char *what) {
    std::perror(gettext(what));
    std::exit(-1);
}

// The framework's keyword for a source of the name-service switch; NULL for a source that has no bootparams.
const char *nameservice_of(const char *source) {
    const std::string_view name = source == nullptr ? "" : source;
    if (name == "files")
        return "ufs";
    if (name == "nis")
        return "nis";
    if (name == "nisplus")
        return "nis_plus";
    return nullptr;
}

// The handles of one performed method, freed together.
struct PerformedMethod {
    PerformedMethod() = default;
    ~PerformedMethod() {
        if (input != nullptr)
            adm_args_freeh(input);
        if (output != nullptr)
            adm_args_freeh(output);
        if (error != nullptr)
            adm_err_freeh(error);
    }
    PerformedMethod(const PerformedMethod &) = delete;
    PerformedMethod &operator=(const PerformedMethod &) = delete;

    adm_args *input = nullptr;
    adm_args *output = nullptr;
    adm_error *error = nullptr;
};

// is_local_host, asked once for each server of one walk.
class LocalServers {
public:
    bool contain(const char *server) {
        auto known = known_.find(std::string_view(server));
        if (known == known_.end())
            known = known_.emplace(server, is_local_host(server) != 0).first;
        return known->second;
    }

private:
    std::map<std::string, bool, std::less<>> known_;
};

// The boot type of an item list; absent when the list holds no known item at all.
struct BootType {
    explicit BootType(const char *items)
        : parsed(parse_bootparams_entry(items, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                        &text, nullptr, nullptr, nullptr, nullptr, nullptr) == 0) {}
    ~BootType() { std::free(text); }
    BootType(const BootType &) = delete;
    BootType &operator=(const BootType &) = delete;

    char *text = nullptr;
    bool parsed;
};

// Adds the client of one row if its root is served by this host. The item list is cut up in place.
void add_if_local(const char *hostname, char *items, LocalServers &local) {
    const BootType boottype(items);
    if (!boottype.parsed)
        return;
    constexpr std::string_view root_key = "root=";
    char *server = std::strstr(items, root_key.data());
    if (server == nullptr)
        return;
    server += root_key.size();
    char *colon = std::strchr(server, ':');
    if (colon == nullptr)
        return;
    char *root_path = std::strchr(colon, '/');
    if (root_path == nullptr)
        return;
    *colon = '\0';
    if (!local.contain(server))
        return;
    root_path[std::strcspn(root_path, " \t\n")] = '\0';
    add_to_list(hostname, text_or(boottype.text, ""), root_path);
}

void walk_rows(adm_args *handle) {
    LocalServers local;
    adm_args_reset(handle);
    do {
        char *hostname = nullptr;
        char *items = nullptr;
        if (_get_returned_arg(handle, "hostname", "", &hostname) != 0)
            return;
        if (_get_returned_arg(handle, "filesystems", "", &items) == 0)
            add_if_local(hostname, items, local);
    } while (adm_args_nextr(handle) == 0);
}

} // namespace

client_node *do_bootparams(void) {
    const sysv_nsw_config *config = sysv_nsw_getconfig("bootparams");
    if (config == nullptr) {
        std::perror(gettext("__nsw_getconfig returned error"));
        return nullptr;
    }
    for (const sysv_nsw_lookup *lookup = config->lookups; lookup != nullptr; lookup = lookup->next)
        read_bootparams(lookup->service);
    return list_of_hosts;
}

void read_bootparams(const char *source) {
    const char *nameservice = nameservice_of(source);
    if (nameservice == nullptr)
        std::exit(-1);
    adm_init();
    adm_err_cleanup(nullptr, ADM_CLEAN);
    PerformedMethod call;
    if (adm_args_newh(&call.input) != 0)
        return;
    adm_args_puta(call.input, "nameservice", ADM_STRING, static_cast<unsigned int>(std::strlen(nameservice)),
                  nameservice);
    if (adm_perf_method("list_bootparams", call.input, &call.output, &call.error, ADM_CLASS, "database", 0) ==
        0)
        foreach_client(call.output);
}

void foreach_client(adm_args *handle) {
    if (handle == nullptr)
        return;
    try {
        walk_rows(handle);
    } catch (const std::bad_alloc &) {
        out_of_memory("Can't alloc space for struct");
    }
}

void add_to_list(const char *name, const char *boottype, const char *root_path) {
    if (name == nullptr)
        return;
    try {
        if (!list_index().holds(name))
            list_index().append(alloc_list(name, boottype, root_path));
    } catch (const std::bad_alloc &) {
        out_of_memory("Can't alloc space for struct");
    }
}

client_node *alloc_list(const char *name, const char *boottype, const char *root_path) {
    auto *node = static_cast<client_node *>(std::malloc(sizeof(client_node)));
    if (node == nullptr)
        out_of_memory("Can't alloc space for struct");
    node->name = duplicate(text_or(name, ""));
    if (node->name == nullptr)
        out_of_memory("Can't alloc space for name in struct");
    node->boottype = duplicate(text_or(boottype, "")); // a client without these two is better than none
    node->root_path = duplicate(text_or(root_path, ""));
    node->next = nullptr;
    return node;
}
