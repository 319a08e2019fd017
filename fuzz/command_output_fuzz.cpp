// SPDX-License-Identifier: MIT
// Any bytes as what a command prints. What do_systemcmd collects must be what a plain model of its rules
// gives.
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "hostadm.h"

#pragma GCC visibility push(default)

namespace {

std::string output;                // what the command prints
std::vector<std::string> recorded; // the records, formatted

} // namespace

extern "C" {

FILE *popen(const char *, const char *) {
    // fmemopen would end a stream of text at its first NUL; an empty one it does not open.
    FILE *stream = std::tmpfile();
    std::fwrite(output.data(), 1, output.size(), stream);
    std::rewind(stream);
    return stream;
}

int pclose(FILE *stream) {
    std::fclose(stream);
    return 0;
}

int adm_err_setf(adm_error *, int code, const char *format, ...) {
    va_list args;
    va_start(args, format);
    char *text = nullptr;
    const int length = vasprintf(&text, format, args);
    va_end(args);
    recorded.push_back(std::to_string(code) + " " + std::string(text, static_cast<std::size_t>(length)));
    std::free(text);
    return 0;
}
}

#pragma GCC visibility pop

namespace {

// Pieces of at most 511 characters, ended by their newline;
// of each what follows its leading blanks, up to a NUL.
std::string model(const std::string &text) {
    std::string collected;
    for (std::size_t at = 0; at < text.size();) {
        std::string piece;
        while (at < text.size() && piece.size() < 511) {
            piece += text[at++];
            if (piece.back() == '\n')
                break;
        }
        piece.erase(0, std::min(piece.find_first_not_of(' '), piece.size()));
        collected += piece.c_str();
    }
    return collected;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    output.assign(reinterpret_cast<const char *>(data), size);
    recorded.clear();
    const int status = do_systemcmd("command", "method");
    std::vector<std::string> expected;
    if (!output.empty())
        expected.push_back("92 method:: \n" + model(output));
    if (status != 0 || recorded != expected)
        std::abort();
    return 0;
}
