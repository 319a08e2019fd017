// SPDX-License-Identifier: MIT
// One bootparams entry: parsing it and editing it, beside versions that compile the patterns at each call,
// and beside one pass over the text plus the copies that are handed out.
#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <string>
#include <string_view>

#include "../tests/support/bootparams_reference.hpp"
#include "hostadm.h"

namespace {

const std::string entry = "client17 root=server1:/export/root/client17 swap=server1:/export/swap/client17 "
                          "exec=server1:/export/exec/kel4_Quorvel_2.5 kvm=server1:/export/exec/kvm/kel4m "
                          "boottype=:in term=:xterm";

using Results = std::array<char *, 13>;

void release(Results &results) {
    for (char *&result : results) {
        std::free(result);
        result = nullptr;
    }
}

int parse(Results &r) {
    return parse_bootparams_entry(entry.c_str(), &r[0], &r[1], &r[2], &r[3], &r[4], &r[5], &r[6], &r[7],
                                  &r[8], &r[9], &r[10], &r[11], &r[12]);
}

void parse_hostadm(benchmark::State &state) {
    Results results{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(parse(results));
        release(results);
    }
}

// Every byte is looked at once, and the strings that the caller gets are copied.
void parse_floor(benchmark::State &state) {
    Results lengths_of{};
    parse(lengths_of);
    std::array<std::string, 13> values;
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = lengths_of[i];
    release(lengths_of);
    Results results{};
    for (auto _ : state) {
        std::size_t separators = 0;
        for (const char c : entry)
            separators += c == ' ' || c == '=' || c == ':';
        benchmark::DoNotOptimize(separators);
        for (std::size_t i = 0; i < values.size(); ++i) {
            results[i] = static_cast<char *>(std::malloc(values[i].size() + 1));
            std::memcpy(results[i], values[i].c_str(), values[i].size() + 1);
        }
        benchmark::DoNotOptimize(results);
        release(results);
    }
}

void parse_regcomp(benchmark::State &state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(
            reference::parse_by_patterns(entry.c_str(), reference::all_outputs, reference::search_compiling));
}

std::optional<std::string> search_std_regex(const std::string &pattern, const std::string &text) {
    std::smatch match;
    if (!std::regex_search(text, match, std::regex(pattern, std::regex::basic)))
        return std::nullopt;
    return match.size() > 1 ? match[1].str() : std::string();
}

void parse_std_regex(benchmark::State &state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(
            reference::parse_by_patterns(entry.c_str(), reference::all_outputs, search_std_regex));
}

// ---- editing: another swap server ----

void edit_hostadm(benchmark::State &state) {
    for (auto _ : state) {
        char *result = edit_bootparams_entry(entry.c_str(), "swap", "server2", "/export/swap/client17");
        benchmark::DoNotOptimize(result);
        std::free(result);
    }
}

void edit_floor(benchmark::State &state) {
    char *edited = edit_bootparams_entry(entry.c_str(), "swap", "server2", "/export/swap/client17");
    const std::string value = edited;
    std::free(edited);
    for (auto _ : state) {
        std::size_t separators = 0;
        for (const char c : entry)
            separators += c == ' ' || c == '=' || c == ':';
        benchmark::DoNotOptimize(separators);
        char *result = static_cast<char *>(std::malloc(value.size() + 1));
        std::memcpy(result, value.c_str(), value.size() + 1);
        benchmark::DoNotOptimize(result);
        std::free(result);
    }
}

constexpr const char *swap_item = "swap=[^ \t\n]*";
constexpr std::string_view new_swap = "swap=server2:/export/swap/client17";

void edit_regcomp(benchmark::State &state) {
    for (auto _ : state) {
        regex_t pattern;
        regmatch_t match;
        regcomp(&pattern, swap_item, 0);
        std::string result = entry;
        if (regexec(&pattern, entry.c_str(), 1, &match, 0) == 0)
            result.replace(static_cast<std::size_t>(match.rm_so),
                           static_cast<std::size_t>(match.rm_eo - match.rm_so), new_swap);
        regfree(&pattern);
        benchmark::DoNotOptimize(result);
    }
}

void edit_std_regex(benchmark::State &state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(std::regex_replace(entry, std::regex(swap_item), std::string(new_swap)));
}

} // namespace

BENCHMARK(parse_hostadm)->Name("parse one bootparams entry/hostadm");
BENCHMARK(parse_floor)->Name("parse one bootparams entry/floor");
BENCHMARK(parse_regcomp)->Name("parse one bootparams entry/regcomp at each call");
BENCHMARK(parse_std_regex)->Name("parse one bootparams entry/std::regex");
BENCHMARK(edit_hostadm)->Name("edit one bootparams entry/hostadm");
BENCHMARK(edit_floor)->Name("edit one bootparams entry/floor");
BENCHMARK(edit_regcomp)->Name("edit one bootparams entry/regcomp at each call");
BENCHMARK(edit_std_regex)->Name("edit one bootparams entry/std::regex");

BENCHMARK_MAIN();
