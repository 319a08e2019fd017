// SPDX-License-Identifier: MIT
#include <filesystem>
#include <system_error>

#include "hostadm.h"
#include "hostadm/method.hpp"

namespace {

using namespace hostadm::method;

const Description description{
    .name = "netboot/cleanup_rplboot",
    .purpose = "remove every file in /rplboot whose name begins with a client's key",
    .arguments = {{"client_key", Kind::word, "the name under which the client asks, whole", true}},
};

bool has_files(const std::string &key) {
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator("/rplboot", error))
        if (entry.path().filename().string().starts_with(key))
            return true;
    return false;
}

int work(Call &call) {
    const std::string key = call.get("client_key");
    if (!has_files(key)) // rm would complain of it
        return 0;
    if (cleanup_rplboot_dir(call.method().c_str(), key.c_str()) != 0)
        return call.fail("cannot remove the files of " + key + " from /rplboot");
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run(argc, argv, description, work);
}
