// SPDX-License-Identifier: MIT
#include <filesystem>
#include <fstream>
#include <functional>
#include <sys/wait.h>
#include <vector>

#include "hostadm.h"
#include "hostadm/method.hpp"
#include "server/packages.hpp"
#include "server/page.hpp"

namespace {

using namespace hostadm::method;
using namespace hostadm::server;
namespace fs = std::filesystem;

constexpr const char *patch_store = HOSTADM_DATAADMIN "/Patches";

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

// The directories of patched packages in the store: STORE/PATCH/PACKAGE with a package map.
std::vector<fs::path> patched_packages() {
    std::vector<fs::path> found;
    std::error_code error;
    for (fs::directory_iterator patch(patch_store, error), end; !error && patch != end;
         patch.increment(error)) {
        std::error_code inner;
        for (fs::directory_iterator package(patch->path(), inner); !inner && package != end;
             package.increment(inner))
            if (fs::exists(package->path() / "pkgmap", inner))
                found.push_back(package->path());
    }
    return found;
}

bool has_line(const fs::path &path, const std::function<bool(const std::string &)> &wanted) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        if (wanted(line))
            return true;
    return false;
}

// In a store of one package the library finds nothing:
// its grep tells no file name when it searches one file only.
bool delivers(const fs::path &package, const std::string &arch, const std::string &file) {
    return has_line(package / "pkgmap",
                    [&](const std::string &line) { return line.find(file) != line.npos; }) &&
           has_line(package / "pkginfo",
                    [&](const std::string &line) { return line.starts_with("ARCH=" + arch); });
}

int work(Call &call) {
    const std::string file = call.get("file");
    if (!is_file_name(file))
        return call.refuse("file: \"" + file +
                           "\" is no name of a file: letters, digits and + - _ . / : , @ % = only");
    const std::string arch = call.given("arch") ? call.get("arch") : server_architecture();
    const std::vector<fs::path> packages = patched_packages();
    if (packages.size() < 2) {
        call.set("found", !packages.empty() && delivers(packages.front(), arch, file) ? "yes" : "no");
        return 0;
    }
    const int status = file_in_patches(arch.c_str(), file.c_str());
    if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) > 1)
        fail(Code::system, "the patches in " + std::string(patch_store) + " could not be searched");
    call.set("found", status == 0 ? "no" : "yes");
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return run_page(argc, argv, description, work);
}
