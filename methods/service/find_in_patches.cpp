// SPDX-License-Identifier: MIT
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <vector>

#include "base/translation.hpp"
#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/packages.hpp"
#include "server/page.hpp"
#include "server/patches.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;

const Description description{
    .name = "service/find_in_patches",
    .purpose = "tell whether any stored patch for an architecture delivers a file",
    .arguments = {{.name = "file",
                   .kind = Kind::text,
                   .purpose = "path of the file, or a part of it, as package maps have it",
                   .required = true},
                  {.name = "arch",
                   .kind = Kind::word,
                   .purpose = "instruction-set architecture (this server's)"}},
    .outputs = {{"found", "yes or no"}},
};

// The name becomes a word of a shell script.
bool is_file_name(const std::string &name) {
    constexpr const char *plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+-_./:,@%=";
    return !name.empty() && name.front() != '-' && name.find_first_not_of(plain) == name.npos;
}

// In a store of one package the library finds nothing:
// its grep tells no file name when it searches one file only.
bool delivers(const std::string &package, const std::string &arch, const std::string &file) {
    std::ifstream map(package + "/pkgmap");
    for (std::string line; std::getline(map, line);)
        if (line.find(file) != line.npos)
            return is_patch_for(package, arch);
    return false;
}

int work(Call &call) {
    const std::string file = call.get("file");
    if (!is_file_name(file))
        return call.refuse(hostadm::base::tr(
            "file: \"{1}\" is no name of a file: letters, digits and + - _ . / : , @ % = only", file));
    const std::string arch = call.given("arch") ? call.get("arch") : server_architecture();
    const std::vector<std::string> packages = patched_packages();
    if (packages.size() < 2) {
        call.set("found", !packages.empty() && delivers(packages.front(), arch, file) ? "yes" : "no");
        return 0;
    }
    const int status = file_in_patches(arch.c_str(), file.c_str());
    if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) > 1)
        fail(Code::system, hostadm::base::tr("the patches in {1} could not be searched", patch_store));
    call.set("found", status == 0 ? "no" : "yes");
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
