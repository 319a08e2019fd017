// SPDX-License-Identifier: MIT
#include "compat/share/nfs_server.hpp"

#include <arpa/inet.h>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <netdb.h>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "base/translation.hpp"
#include "compat/share/share_table.hpp"
#include "compat/support/failure.hpp"
#include "compat/support/files.hpp"
#include "compat/support/processes.hpp"

namespace compat {

namespace base = hostadm::base;

namespace {

constexpr const char *exportfs_program = "/usr/sbin/exportfs";

bool is_program(const char *path) {
    return access(path, X_OK) == 0;
}

// How both servers write one client of an access list: an address, a network or a domain pattern. Addresses
// and not names, because one name without an address makes a server refuse the whole share.
class Clients {
public:
    Clients() {
        // Names are looked up under the lock of the shares, and a name server that is silent, as for a client
        // that is not yet in the hosts table, would hold up each share for ten seconds and more.
        setenv("RES_OPTIONS", "timeout:1 attempts:2", 0);
    }

    const std::vector<std::string> &words_for(const std::string &client) {
        const auto known = words_.find(client);
        return known != words_.end() ? known->second : words_.emplace(client, look_up(client)).first->second;
    }

private:
    static std::vector<std::string> look_up(const std::string &client) {
        if (client.starts_with('@'))
            return {client.substr(1)};
        if (client.starts_with('.'))
            return {"*" + client};
        addrinfo wanted = {};
        wanted.ai_socktype = SOCK_STREAM;
        addrinfo *found = nullptr;
        if (getaddrinfo(client.c_str(), nullptr, &wanted, &found) != 0)
            return {};
        const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
        std::vector<std::string> addresses;
        for (const addrinfo *each = found; each != nullptr; each = each->ai_next) {
            char text[NI_MAXHOST];
            if (getnameinfo(each->ai_addr, each->ai_addrlen, text, sizeof text, nullptr, 0, NI_NUMERICHOST) ==
                0)
                addresses.emplace_back(text);
        }
        return addresses;
    }

    std::map<std::string, std::vector<std::string>> words_;
};

class Ganesha : public NfsServer {
public:
    bool is_kernel() const override { return false; }
    std::string exports_path() const override { return ganesha_exports; }

    std::string exports_text(const std::vector<Export> &exports) const override {
        std::string text = "# Written by share and unshare; changes are lost.\n";
        Clients clients;
        for (const Export &each : exports)
            text += export_block(each, clients);
        return text;
    }

    void reload() const override {
        for (const base::Process &process : daemons_named(ganesha_process))
            reread(process.pid);
    }

private:
    static std::string setting(const char *name, const std::string &value) {
        return std::string("    ") + name + " = " + value + ";\n";
    }

    static std::string access_settings(base::Access access, bool root, std::optional<unsigned> anonymous) {
        const char *const word = access == base::Access::write  ? "RW"
                                 : access == base::Access::read ? "RO"
                                                                : "None";
        return setting("Access_Type", word) + setting("Squash", root ? "no_root_squash" : "root_squash") +
               setting("Protocols", "3, 4") +
               (anonymous ? setting("Anonymous_Uid", std::to_string(*anonymous)) : "");
    }

    static std::string export_block(const Export &each, Clients &clients) {
        const base::ShareOptions &options = each.options;
        const std::string quoted = '"' + each.path + '"';
        std::string text = "\nEXPORT {\n" + setting("Export_Id", std::to_string(each.number)) +
                           setting("Path", quoted) + setting("Pseudo", quoted) +
                           access_settings(options.everyone, options.anonymous == 0U, options.anonymous) +
                           setting("SecType", "sys") + "    FSAL { Name = VFS; }\n";
        for (const base::ClientRule &rule : base::client_rules(options))
            text += client_block(rule, options.anonymous, clients);
        return text + "}\n";
    }

    static std::string client_block(const base::ClientRule &rule, std::optional<unsigned> anonymous,
                                    Clients &clients) {
        std::string words;
        for (const std::string &word : clients.words_for(rule.client))
            words += (words.empty() ? "" : ", ") + word;
        if (words.empty())
            return "    # " + rule.client + " has no address yet\n";
        return "    CLIENT { # " + rule.client + "\n" + setting("Clients", words) +
               access_settings(rule.access, rule.root, anonymous) + "    }\n";
    }

    // A server that is just starting dies of the signal until it has blocked it for its signal thread; by
    // then it has not yet read the exports, or it finds the signal waiting.
    static void reread(pid_t process) {
        for (int tries = 0; tries < 200; ++tries) {
            const std::string status = read_file("/proc/" + std::to_string(process) + "/status").value_or("");
            const size_t blocked = status.find("SigBlk:");
            if (blocked == std::string::npos)
                return; // it has ended
            const unsigned long long mask = std::strtoull(status.c_str() + blocked + 7, nullptr, 16);
            if ((mask >> (SIGHUP - 1) & 1U) != 0) {
                kill(process, SIGHUP);
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
};

class KernelServer : public NfsServer {
public:
    bool is_kernel() const override { return true; }
    std::string exports_path() const override { return "/etc/exports.d/share.exports"; }

    std::string exports_text(const std::vector<Export> &exports) const override {
        std::string text = "# Written by share and unshare; changes are lost.\n";
        Clients clients;
        for (const Export &each : exports) {
            const base::ShareOptions &options = each.options;
            std::string words;
            for (const base::ClientRule &rule : base::client_rules(options))
                for (const std::string &word : clients.words_for(rule.client))
                    words += " " + word + option_words(rule.access, rule.root, options.anonymous);
            if (options.everyone != base::Access::none)
                words += " *" + option_words(options.everyone, options.anonymous == 0U, options.anonymous);
            // A path without clients would be open to everyone.
            if (!words.empty())
                text += each.path + words + "\n";
        }
        return text;
    }

    void reload() const override { run_or_fail({exportfs_program, "-ra"}); }

private:
    static std::string option_words(base::Access access, bool root, std::optional<unsigned> anonymous) {
        std::string text = access == base::Access::write ? "(rw" : "(ro";
        text += root ? ",no_root_squash" : ",root_squash";
        text += ",no_subtree_check,sync";
        if (anonymous)
            text += ",anonuid=" + std::to_string(*anonymous);
        return text + ")";
    }
};

bool kernel_server_runs() {
    const auto threads = read_file("/proc/fs/nfsd/threads");
    return threads && std::atoi(threads->c_str()) > 0;
}

} // namespace

std::unique_ptr<NfsServer> installed_nfs_server() {
    const bool ganesha = is_program(ganesha_program);
    const bool kernel = is_program(exportfs_program);
    if (kernel && kernel_server_runs() && daemons_named(ganesha_process).empty())
        return std::make_unique<KernelServer>();
    if (ganesha)
        return std::make_unique<Ganesha>();
    if (kernel)
        return std::make_unique<KernelServer>();
    return nullptr;
}

std::unique_ptr<NfsServer> find_nfs_server() {
    if (auto server = installed_nfs_server())
        return server;
    throw Failure(base::tr("no NFS server is installed; install the packages nfs-ganesha and "
                           "nfs-ganesha-vfs, or nfs-kernel-server"));
}

bool publish_shares(const NfsServer &server) {
    const ShareTable table = ShareTable::load();
    ExportNumbers numbers = ExportNumbers::load();
    std::vector<Export> exports;
    for (const base::Share &share : table.shares)
        exports.push_back(
            {numbers.number_of(share.path, table), share.path, base::parse_share_options(share.options)});
    // The numbers first: an interrupted run may leave a number without an export, never the reverse.
    if (numbers.changed())
        numbers.save();
    const std::string text = server.exports_text(exports);
    if (read_file(server.exports_path()) == text)
        return false;
    make_directories(std::filesystem::path(server.exports_path()).parent_path());
    replace_file(server.exports_path(), text);
    return true;
}

} // namespace compat
