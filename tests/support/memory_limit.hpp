// SPDX-License-Identifier: MIT
// Lets memory run out in a process of its own (the child of a death test).
#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>

// There when the program runs under the address sanitizer, which reserves terabytes and cannot live under a limit.
extern "C" [[gnu::weak]] void __asan_init();
#define SKIP_WITHOUT_MEMORY_LIMIT()                                                                          \
    if (__asan_init != nullptr)                                                                              \
    GTEST_SKIP() << "address space cannot be limited under the address sanitizer"

namespace tests {

// From now on the process may use that many bytes more than it does.
inline void limit_memory_to(std::size_t more) {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlim_t limit = pages * 4096 + more;
    const rlimit both = {limit, limit};
    setrlimit(RLIMIT_AS, &both);
}

} // namespace tests
