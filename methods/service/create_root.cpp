// SPDX-License-Identifier: MIT
#include "support/roots.hpp"

#include "hostadm/method.hpp"

namespace {

using namespace hostadm::method;

const Description description{
    .name = "service/create_root",
    .purpose = "fill a client's root from packages, or for a 4.x release from ready-made trees",
    .arguments = {{"rootpath", Kind::path, "the root to fill, an existing directory", true},
                  {"os_name", Kind::word, "name of the operating system", true},
                  {"os_version", Kind::release, "its version; 4.x copies, any other installs packages", true},
                  {"sources", Kind::path,
                   "directories of packages, or trees, with commas between them, taken in this order", true}},
};

int work(Call &call) {
    using namespace hostadm::support;
    call.progress("filling " + call.get("rootpath"));
    return fill_root(call, call.get("rootpath"), call.get("os_name"), call.get("os_version"),
                     split_paths(call.get("sources")));
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
