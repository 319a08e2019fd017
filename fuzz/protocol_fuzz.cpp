// SPDX-License-Identifier: MIT
// The reader of what methods answer. Oracles: whatever the bytes, what was read is written and read back the
// same; rows in the usual spelling are read as in any other; good lines are taken wherever rubbish stands; a
// request is read back as it was written.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "framework/protocol/answer.hpp"
#include "framework/protocol/channel.hpp"

namespace {

using namespace hostadm::framework;

void require(bool holds) {
    if (!holds)
        std::abort();
}

bool same(const Answer &one, const Answer &other) {
    return one.outputs == other.outputs && one.rows == other.rows && one.errors == other.errors &&
           one.dirty == other.dirty && one.left_undone == other.left_undone && one.invalid == other.invalid &&
           one.begun == other.begun && one.ended == other.ended;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    const Answer answer = parse_answer(bytes);
    const Answer again = parse_answer(to_lines(answer));
    require(again.defect.empty());
    require(same(answer, again));

    // A blank in front of each line takes the way through the JSON library.
    std::string spaced = " ";
    for (const char c : bytes)
        spaced += c == '\n' ? "\n " : std::string(1, c);
    require(same(parse_answer(spaced), answer));

    const Answer followed = parse_answer(std::string(bytes) + "\n" + output_line("added", bytes));
    require(followed.output("added") != nullptr && *followed.output("added") == bytes);
    require(followed.rows == answer.rows);

    const Request request{"class/name", {{"argument", std::string(bytes)}, {"other", ""}}};
    const auto read = parse_request(to_text(request));
    require(read && read->method == request.method && read->arguments == request.arguments);
    parse_request(bytes);
    return 0;
}
