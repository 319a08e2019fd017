// SPDX-License-Identifier: MIT
// Runs a fuzz target on inputs kept in files, without a fuzzer: each argument is a file or a folder of files.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

namespace fs = std::filesystem;

void replay(const fs::path &path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> input{std::istreambuf_iterator<char>(file), {}};
    std::fprintf(stderr, "%s\n", path.c_str()); // the last one named is the one that failed
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(input.data()), input.size());
}

} // namespace

int main(int count, char **arguments) {
    std::size_t replayed = 0;
    for (const std::string &argument : std::vector<std::string>(arguments + 1, arguments + count)) {
        if (!fs::is_directory(argument)) {
            replay(argument);
            ++replayed;
            continue;
        }
        for (const fs::directory_entry &entry : fs::directory_iterator(argument)) {
            replay(entry.path());
            ++replayed;
        }
    }
    if (replayed == 0) {
        std::fprintf(stderr, "no input to replay\n");
        return 1;
    }
    std::printf("%zu inputs replayed\n", replayed);
    return 0;
}
