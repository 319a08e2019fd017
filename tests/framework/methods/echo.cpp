// SPDX-License-Identifier: MIT
// Says its argument back, as an output and letter by letter in rows.
#include "hostadm/method.hpp"

using namespace hostadm::method;

namespace {

const Description description{
    .name = "test/echo",
    .purpose = "say a text back",
    .arguments =
        {{.name = "text", .kind = Kind::text, .purpose = "what to say", .required = true},
         {.name = "times", .kind = Kind::number, .purpose = "how often", .default_value = "1"},
         {.name = "rows", .kind = Kind::yes_no, .purpose = "a row for each time", .default_value = "no"}},
    .outputs = {{.name = "said", .purpose = "the text, as often as wanted", .required = true}},
    .columns = {{.name = "time", .purpose = "a number"}, {.name = "text", .purpose = "the text"}},
};

int work(Call &call) {
    std::string said;
    for (int time = 1; time <= std::stoi(call.get("times")); ++time) {
        said += call.get("text");
        if (call.get("rows") == "yes")
            call.row({{"time", std::to_string(time)}, {"text", call.get("text")}});
    }
    call.set("said", said);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
