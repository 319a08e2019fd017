// SPDX-License-Identifier: MIT
// Lets memory run out in a process of its own (the child of a death test).
#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>

// The address sanitizer reserves terabytes and cannot live under a limit.
#if defined(__SANITIZE_ADDRESS__)
#    define SKIP_WITHOUT_MEMORY_LIMIT()                                                                      \
        GTEST_SKIP() << "address space cannot be limited under the address sanitizer"
#else
#    define SKIP_WITHOUT_MEMORY_LIMIT() static_cast<void>(0)
#endif

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
