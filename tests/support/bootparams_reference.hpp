// SPDX-License-Identifier: MIT
// The rules of bootparams entries rendered plainly, with the C library's regular expressions. Slow, and
// therefore easy to believe: tests, fuzz targets and benchmarks compare the library with it.
#pragma once

#include <array>
#include <cstdlib>
#include <map>
#include <optional>
#include <ostream>
#include <regex.h>
#include <stdexcept>
#include <string>
#include <utility>

#include "hostadm.h"

namespace reference {

constexpr std::size_t output_count = 13;

// What parse_bootparams_entry stores, in the order of its parameters.
enum Output {
    server,
    exec_server,
    root_path,
    swap_path,
    dump_path,
    exec_path,
    kvm_path,
    boottype,
    swapsize,
    install_server,
    install_path,
    install_config_server,
    install_config_path
};

struct Parsed {
    int status = 0;
    std::array<std::optional<std::string>, output_count> outputs; // absent: nothing was stored
    bool operator==(const Parsed &) const = default;
    friend std::ostream &operator<<(std::ostream &out, const Parsed &parsed) {
        out << parsed.status << ":";
        for (const auto &output : parsed.outputs)
            out << " [" << output.value_or("(not stored)") << "]";
        return out;
    }
};

constexpr unsigned all_outputs = (1u << output_count) - 1;

inline bool wants(unsigned wanted, std::size_t output) {
    return (wanted >> output & 1u) != 0;
}

// The library's answer. `wanted` has a bit for each output.
inline Parsed parse(const char *entry, unsigned wanted = all_outputs) {
    std::array<char *, output_count> stored{};
    const auto place = [&](std::size_t output) { return wants(wanted, output) ? &stored[output] : nullptr; };
    Parsed parsed;
    parsed.status = parse_bootparams_entry(
        entry, place(server), place(exec_server), place(root_path), place(swap_path), place(dump_path),
        place(exec_path), place(kvm_path), place(boottype), place(swapsize), place(install_server),
        place(install_path), place(install_config_server), place(install_config_path));
    for (std::size_t i = 0; i < output_count; ++i) {
        if (stored[i] != nullptr)
            parsed.outputs[i] = stored[i];
        std::free(stored[i]);
    }
    return parsed;
}

class Pattern {
public:
    explicit Pattern(const std::string &text) {
        if (regcomp(&compiled_, text.c_str(), 0) != 0)
            throw std::invalid_argument(text);
    }
    ~Pattern() { regfree(&compiled_); }
    Pattern(const Pattern &) = delete;
    Pattern &operator=(const Pattern &) = delete;

    // The bracketed part of the leftmost match; the empty string if the pattern has none.
    std::optional<std::string> search(const std::string &text) const {
        regmatch_t matches[2];
        if (regexec(&compiled_, text.c_str(), 2, matches, 0) != 0)
            return std::nullopt;
        if (matches[1].rm_so < 0)
            return std::string();
        return text.substr(static_cast<std::size_t>(matches[1].rm_so),
                           static_cast<std::size_t>(matches[1].rm_eo - matches[1].rm_so));
    }

private:
    regex_t compiled_;
};

// Compiles each pattern anew.
inline std::optional<std::string> search_compiling(const std::string &pattern, const std::string &text) {
    return Pattern(pattern).search(text);
}

// Compiles each pattern once.
inline std::optional<std::string> search_remembering(const std::string &pattern, const std::string &text) {
    static std::map<std::string, Pattern> known;
    return known.try_emplace(pattern, pattern).first->second.search(text);
}

template <typename Search>
Parsed parse_by_patterns(const char *entry_text, unsigned wanted, const Search &search) {
    Parsed parsed;
    if (entry_text == nullptr || *entry_text == '\0') {
        parsed.status = -1;
        return parsed;
    }
    const std::string entry = entry_text;
    struct Row {
        const char *key;
        std::string server = {};
        std::string path = {};
    };
    std::array<Row, 10> rows = {{{"root"},
                                 {"swap"},
                                 {"dump"},
                                 {"exec"},
                                 {"kvm"},
                                 {"boottype"},
                                 {"swapsize"},
                                 {"install"},
                                 {"install_config"},
                                 {"term"}}};
    auto &[root, swap, dump, exec, kvm, boot, size, install, config, term] = rows;
    int found = 0;
    for (Row &row : rows)
        row.server = search(std::string(row.key) + "=\\([^: \t\n]*\\):", entry).value_or("");
    for (Row &row : rows) {
        auto path = search(std::string(row.key) + "=[^: \t\n]*:\\([^ \t\n]*\\)", entry);
        if (!path)
            path = search(std::string(row.key) + "=\\([^: \t\n]*\\)", entry);
        found += path ? 1 : 0;
        row.path = path.value_or("");
    }
    const auto store = [&](Output output, const std::string &value) {
        if (wants(wanted, output))
            parsed.outputs[output] = value;
    };
    const auto first = [](const std::string &one, const std::string &other) {
        return one.empty() ? other : one;
    };
    const std::string client_server = first(root.server, first(swap.server, dump.server));
    store(server, client_server);
    if (wants(wanted, server) && client_server.empty())
        parsed.status = 1;
    const std::string program_server = first(exec.server, kvm.server);
    store(exec_server, program_server);
    if (wants(wanted, exec_server) && program_server.empty())
        parsed.status = 1;
    if (install.server.empty() && search("../export/exec/kvm/..", root.path))
        install.server = root.server;
    store(root_path, root.path);
    store(swap_path, swap.path);
    store(dump_path, dump.path);
    store(exec_path, exec.path);
    store(kvm_path, kvm.path);
    store(boottype, boot.path);
    store(swapsize, size.path);
    store(install_server, install.server);
    store(install_path, install.path);
    store(install_config_server, config.server);
    store(install_config_path, config.path);
    if (found == 0)
        parsed.status = -1;
    return parsed;
}

} // namespace reference
