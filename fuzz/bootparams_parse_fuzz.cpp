// SPDX-License-Identifier: MIT
// Any text as a bootparams entry. The first two bytes say which results are wanted. The library and a plain
// rendering with regular expressions must give the same.
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>

#include "../tests/support/bootparams_reference.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size < 2)
        return 0;
    const unsigned wanted = (data[0] | static_cast<unsigned>(data[1]) << 8) & reference::all_outputs;
    const std::string entry(reinterpret_cast<const char *>(data) + 2, size - 2);
    const reference::Parsed ours = reference::parse(entry.c_str(), wanted);
    const reference::Parsed theirs =
        reference::parse_by_patterns(entry.c_str(), wanted, reference::search_remembering);
    if (ours != theirs) {
        std::cerr << "entry: " << entry << "\nours:     " << ours << "\npatterns: " << theirs << "\n";
        std::abort();
    }
    return 0;
}
