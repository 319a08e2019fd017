// SPDX-License-Identifier: MIT
// Benchmarks in a throwaway root; their results outlive it.
#pragma once

#include <filesystem>
#include <functional>
#include <iostream>
#include <string_view>
#include <utility>

#include "hostadm/sandbox.hpp"

namespace bench {

inline int in_throwaway_root(int argc, char **argv, const std::function<int()> &measure,
                             hostadm::sandbox::Options options = {}) {
    options.work = measure;
    constexpr std::string_view out = "--benchmark_out=";
    for (int i = 1; i < argc; ++i)
        if (const std::string_view word = argv[i]; word.starts_with(out))
            options.binds.push_back(std::filesystem::absolute(word.substr(out.size())).parent_path());
    try {
        return hostadm::sandbox::run(options).exit_status;
    } catch (const std::exception &error) {
        std::cerr << argv[0] << ": " << error.what() << "\n";
        return 1;
    }
}

} // namespace bench
