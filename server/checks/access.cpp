// SPDX-License-Identifier: MIT
#include "server/checks/access.hpp"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <filesystem>
#include <fnmatch.h>
#include <netdb.h>
#include <set>
#include <system_error>
#include <unistd.h>

#include "base/files.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "server/checks/system_tables.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> parts;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(separator), text.size());
        if (end > 0)
            parts.emplace_back(base::trimmed(text.substr(0, end)));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parts;
}

// "A.B.C.D/BITS", "A.B.C.D/MASK" or "A.B.C".
bool is_in_network(const std::string &network, std::uint32_t address) {
    const std::size_t slash = network.find('/');
    const std::string base_text = network.substr(0, slash);
    std::string full = base_text;
    std::size_t given = 8 * (1 + static_cast<std::size_t>(std::count(full.begin(), full.end(), '.')));
    for (std::size_t bits = given; bits < 32; bits += 8)
        full += ".0";
    const std::string value = ipv4_value(full);
    if (value.empty() || address == 0)
        return false;
    std::uint32_t mask = given >= 32 ? ~0u : ~(~0u >> given);
    if (slash != network.npos) {
        const std::string bits = network.substr(slash + 1);
        unsigned count = 0;
        if (const std::string dotted = ipv4_value(bits); !dotted.empty())
            mask = ipv4_number(dotted);
        else if (std::from_chars(bits.data(), bits.data() + bits.size(), count).ec == std::errc{} &&
                 count <= 32)
            mask = count == 0 ? 0 : ~0u << (32 - count);
    }
    return (ipv4_number(value) & mask) == (address & mask);
}

bool has_name(const Caller &caller, const std::string &name) {
    return std::find(caller.names.begin(), caller.names.end(), base::lower_case(name)) != caller.names.end();
}

// A word of an access list of share(8). A netgroup, which cannot be told from a host here, counts as meant
// only when it is no host's name.
bool share_word_means(const std::string &word, const Caller &caller) {
    if (word.starts_with('@'))
        return is_in_network(word.substr(1), caller.address);
    if (word.starts_with('.'))
        return std::any_of(caller.names.begin(), caller.names.end(),
                           [&](const std::string &name) { return name.ends_with(base::lower_case(word)); });
    if (const std::string value = ipv4_value(word); !value.empty())
        return ipv4_number(value) == caller.address;
    return has_name(caller, word);
}

// A word that an NFS server was told: an address, a network, a pattern, a name.
bool export_word_means(const std::string &word, const Caller &caller) {
    if (word == "*" || word == "0.0.0.0/0")
        return true;
    if (word.starts_with('@'))
        return true; // a netgroup: nobody knows here who is in it
    if (const std::string value = ipv4_value(word); !value.empty())
        return ipv4_number(value) == caller.address;
    if (std::isdigit(static_cast<unsigned char>(word[0])) != 0 && word.find('/') != word.npos)
        return is_in_network(word, caller.address);
    const std::string pattern = base::lower_case(word);
    return std::any_of(caller.names.begin(), caller.names.end(), [&](const std::string &name) {
        return fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
    });
}

// ---- nfs-ganesha's settings ----

struct Token {
    std::string text;
    std::string file;
    std::size_t line = 0;
    bool quoted = false;
    bool is(char symbol) const { return !quoted && text.size() == 1 && text[0] == symbol; }
};

class GaneshaReader {
public:
    void read(const std::string &file) {
        if (!seen_.insert(file).second || seen_.size() > 100)
            return;
        std::error_code error;
        if (!fs::is_regular_file(file, error) || access(file.c_str(), R_OK) != 0) {
            if (missing_.empty())
                missing_ = file;
            return;
        }
        tokens_of(base::file_contents(file), file);
    }
    const std::vector<Token> &tokens() const { return tokens_; }
    const std::string &missing() const { return missing_; }

private:
    static bool is_symbol(char c) { return std::string_view("{}=;,").find(c) != std::string_view::npos; }

    void tokens_of(const std::string &text, const std::string &file) {
        std::size_t line = 1;
        bool including = false;
        for (std::size_t at = 0; at < text.size();) {
            const char c = text[at];
            if (c == '\n' || std::isspace(static_cast<unsigned char>(c)) != 0) {
                line += c == '\n' ? 1 : 0;
                ++at;
                continue;
            }
            if (c == '#') {
                at = std::min(text.find('\n', at), text.size());
                continue;
            }
            Token token{{}, file, line, c == '"' || c == '\''};
            std::size_t end = at + 1;
            if (token.quoted) {
                end = std::min(text.find(c, at + 1), text.size());
                token.text = text.substr(at + 1, end - at - 1);
                ++end;
            } else if (!is_symbol(c)) {
                while (end < text.size() && std::isspace(static_cast<unsigned char>(text[end])) == 0 &&
                       !is_symbol(text[end]) && text[end] != '"')
                    ++end;
                token.text = text.substr(at, end - at);
            } else {
                token.text = c;
            }
            at = std::min(end, text.size());
            if (including) {
                read(fs::path(file).parent_path() / token.text); // which an absolute path replaces
                including = false;
            } else if (token.text == "%include") {
                including = true;
            } else {
                tokens_.push_back(std::move(token));
            }
        }
    }

    std::vector<Token> tokens_;
    std::set<std::string> seen_;
    std::string missing_;
};

struct Setting {
    std::string key; // in lower case
    std::vector<std::string> values;
};
struct Block {
    std::string name; // in lower case
    std::string file;
    std::size_t line = 0;
    std::vector<Setting> settings;
    std::vector<Block> blocks;

    const Setting *find(std::string_view key) const {
        const Setting *last = nullptr;
        for (const Setting &one : settings)
            if (one.key == key)
                last = &one;
        return last;
    }
    std::string value(std::string_view key) const {
        const Setting *setting = find(key);
        return setting == nullptr || setting->values.empty() ? "" : setting->values.front();
    }
};

void read_block(const std::vector<Token> &tokens, std::size_t &at, Block &block) {
    while (at < tokens.size() && !tokens[at].is('}')) {
        const Token &name = tokens[at++];
        if (at < tokens.size() && tokens[at].is('{')) {
            ++at;
            Block inner{base::lower_case(name.text), name.file, name.line, {}, {}};
            read_block(tokens, at, inner);
            if (at < tokens.size())
                ++at;
            block.blocks.push_back(std::move(inner));
        } else if (at < tokens.size() && tokens[at].is('=')) {
            Setting setting{base::lower_case(name.text), {}};
            for (++at; at < tokens.size() && !tokens[at].is(';') && !tokens[at].is('}'); ++at)
                if (!tokens[at].is(','))
                    setting.values.push_back(tokens[at].text);
            if (at < tokens.size() && tokens[at].is(';'))
                ++at;
            block.settings.push_back(std::move(setting));
        }
    }
}

bool has_version3(const Setting *protocols, bool otherwise) {
    if (protocols == nullptr)
        return otherwise;
    return std::any_of(protocols->values.begin(), protocols->values.end(), [](const std::string &one) {
        const std::string version = base::lower_case(one);
        return version == "3" || version == "v3" || version == "nfs3" || version == "nfsv3";
    });
}

// Settings of an export, or of one of its clients, over those that hold for all.
ExportClient client_settings(const Block &block, ExportClient base_settings) {
    const std::string access = base::lower_case(block.value("access_type"));
    if (!access.empty())
        base_settings.access.read = access == "rw" || access == "ro",
        base_settings.access.write = access == "rw";
    const std::string squash = base::lower_case(block.value("squash"));
    if (!squash.empty())
        base_settings.access.root = squash == "no_root_squash" || squash == "none" ||
                                    squash == "noidsquash" || squash == "no_all_squash";
    base_settings.version3 = has_version3(block.find("protocols"), base_settings.version3);
    if (const Setting *security = block.find("sectype");
        security != nullptr &&
        std::none_of(security->values.begin(), security->values.end(), [](const auto &one) {
            return base::lower_case(one) == "sys" || base::lower_case(one) == "none";
        }))
        base_settings.access = {};
    if (const Setting *hosts = block.find("clients"))
        base_settings.hosts = hosts->values;
    return base_settings;
}

std::string plain_path(std::string path) {
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    return path;
}

// ---- the kernel's tables ----

std::string unescaped(std::string_view text) {
    std::string plain;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const std::string_view digits = text.substr(at + 1, 3);
        unsigned value = 0;
        if (text[at] == '\\' && digits.size() == 3 &&
            std::from_chars(digits.begin(), digits.end(), value, 8).ptr == digits.end() && value <= 0xff) {
            plain += static_cast<char>(value);
            at += 3;
        } else if (text[at] != '"') {
            plain += text[at];
        }
    }
    return plain;
}

ExportClient kernel_client(std::string_view word) {
    const std::size_t open = word.find('(');
    ExportClient client;
    client.access = {.read = true, .write = false, .root = false};
    client.hosts = {open == 0 ? "*" : std::string(word.substr(0, open))};
    if (open == word.npos)
        return client;
    std::string_view options = word.substr(open + 1);
    options = options.substr(0, options.rfind(')'));
    for (const std::string &option : split(options, ',')) {
        if (option == "rw" || option == "ro")
            client.access.write = option == "rw";
        else if (option == "no_root_squash" || option == "root_squash")
            client.access.root = option == "no_root_squash";
        else if (option == "all_squash")
            client.access.root = false;
        else if (option.starts_with("sec=") && option.find("sys") == option.npos)
            client.access.read = client.access.write = false;
    }
    return client;
}

void read_exports_file(const std::string &file, NfsSettings &settings) {
    std::size_t number = 0;
    std::string joined;
    base::for_each_line(base::file_contents(file), [&](std::string_view line) {
        ++number;
        joined += line.substr(0, line.find('#'));
        if (joined.ends_with('\\')) {
            joined.back() = ' ';
            return;
        }
        const std::string whole = std::move(joined);
        joined.clear();
        const auto words = base::words_of(whole);
        if (words.empty() || words[0].starts_with('-'))
            return;
        Export shared{plain_path(unescaped(words[0])), file, number, {}, {}};
        for (std::size_t i = 1; i < words.size(); ++i)
            if (!words[i].starts_with('-'))
                shared.clients.push_back(kernel_client(words[i]));
        if (words.size() == 1)
            shared.clients.push_back(kernel_client("*"));
        // Of several lines for one path all clients count.
        const auto [known, fresh] = settings.by_path.try_emplace(shared.path, settings.exports.size());
        if (fresh)
            settings.exports.push_back(std::move(shared));
        else
            settings.exports[known->second].clients.insert(settings.exports[known->second].clients.end(),
                                                           shared.clients.begin(), shared.clients.end());
    });
}

void index_paths(NfsSettings &settings) {
    for (std::size_t at = 0; at < settings.exports.size(); ++at)
        settings.by_path.try_emplace(settings.exports[at].path, at);
}

} // namespace

Access access_by_options(std::string_view options, const Caller &caller) {
    bool everyone_writes = false, everyone_reads = false, listed = false;
    Access access;
    for (const std::string &word : split(options, ',')) {
        const std::size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        const bool has_list = equals != word.npos;
        const std::vector<std::string> list =
            has_list ? split(std::string_view(word).substr(equals + 1), ':') : std::vector<std::string>{};
        bool meant = false;
        for (const std::string &one : list) {
            if (one.starts_with('-') ? share_word_means(one.substr(1), caller)
                                     : share_word_means(one, caller)) {
                meant = !one.starts_with('-');
                break;
            }
        }
        if (name == "rw" && !has_list)
            everyone_writes = true;
        else if (name == "ro" && !has_list)
            everyone_reads = true;
        else if (name == "rw" || name == "ro") {
            listed = true;
            access.read = access.read || meant;
            access.write = access.write || (meant && name == "rw");
        } else if (name == "root") {
            access.root = access.root || meant;
        } else if (name == "anon" && has_list && word.substr(equals + 1) == "0") {
            access.root = true;
        }
    }
    if (access.write || (access.read && !everyone_writes))
        return access;
    access.write = everyone_writes || (!everyone_reads && !listed);
    access.read = access.read || access.write || everyone_reads;
    return access;
}

std::vector<std::string> clients_in_options(std::string_view options) {
    std::vector<std::string> clients;
    for (const std::string &word : split(options, ','))
        for (const std::string_view name : {"rw=", "ro=", "root="})
            if (word.starts_with(name))
                for (std::string &one : split(std::string_view(word).substr(name.size()), ':'))
                    clients.push_back(std::move(one));
    return clients;
}

NfsSettings read_ganesha(const std::string &file) {
    GaneshaReader reader;
    reader.read(file);
    NfsSettings settings;
    if (!reader.missing().empty()) {
        settings.defect = reader.missing() == file
                              ? base::tr("{1} cannot be read, which nfs-ganesha needs", reader.missing())
                              : base::tr("{1} cannot be read, which {2} needs", reader.missing(), file);
        settings.place = reader.missing();
    }
    Block all;
    std::size_t at = 0;
    while (at < reader.tokens().size()) {
        read_block(reader.tokens(), at, all);
        ++at;
    }
    ExportClient usual;
    bool lock_manager = true, graceless = false;
    for (const Block &block : all.blocks) {
        if (block.name == "nfs_core_param" || block.name == "nfs_core") {
            settings.version3 = has_version3(block.find("protocols"), true);
            settings.bound_to = block.value("bind_addr");
            unsigned port = 0;
            const std::string text = block.value("nfs_port");
            if (std::from_chars(text.data(), text.data() + text.size(), port).ec == std::errc{})
                settings.nfs_port = static_cast<std::uint16_t>(port);
            lock_manager = base::lower_case(block.value("enable_nlm")) != "false";
        } else if (block.name == "nfsv4") {
            graceless = base::lower_case(block.value("graceless")) == "true";
        } else if (block.name == "export_defaults") {
            usual = client_settings(block, usual);
        }
    }
    settings.waits = lock_manager && !graceless;
    for (const Block &block : all.blocks) {
        if (block.name != "export")
            continue;
        Export shared{
            plain_path(block.value("path")), block.file, block.line, {}, client_settings(block, usual)};
        shared.others.hosts.clear();
        for (const Block &inner : block.blocks)
            if (inner.name == "client")
                shared.clients.push_back(client_settings(inner, shared.others));
        settings.exports.push_back(std::move(shared));
    }
    index_paths(settings);
    return settings;
}

NfsSettings read_exports_now(const std::string &table) {
    NfsSettings settings;
    read_exports_file(table, settings);
    return settings;
}

NfsSettings read_exports_at_boot() {
    NfsSettings settings;
    read_exports_file("/etc/exports", settings);
    std::vector<std::string> files;
    std::error_code error;
    for (fs::directory_iterator entry("/etc/exports.d", error), end; !error && entry != end;
         entry.increment(error))
        if (entry->path().extension() == ".exports")
            files.push_back(entry->path());
    std::sort(files.begin(), files.end());
    for (const std::string &file : files)
        read_exports_file(file, settings);
    return settings;
}

const Export *export_of(const NfsSettings &settings, const std::string &path) {
    for (std::string above = path; !above.empty();) {
        if (const auto found = settings.by_path.find(above); found != settings.by_path.end())
            return &settings.exports[found->second];
        above = above == "/" ? "" : fs::path(above).parent_path().string();
    }
    return nullptr;
}

Access access_by_export(const Export &shared, const Caller &caller) {
    for (const ExportClient &client : shared.clients)
        if (std::any_of(client.hosts.begin(), client.hosts.end(),
                        [&](const std::string &word) { return export_word_means(word, caller); }))
            return client.version3 ? client.access : Access{};
    return shared.others.version3 ? shared.others.access : Access{};
}

} // namespace hostadm::server
