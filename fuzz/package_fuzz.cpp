// SPDX-License-Identifier: MIT
// Any text as a package directory: the input is pkginfo, a line "%%", and pkgmap. The package has one file.
//
// What must hold: it is refused with a reason, or it is one whose objects all lie inside the root, each
// once, with modes and sizes that a file can have, and without a script; and reading it again gives the
// same.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <string_view>
#include <unistd.h>

#include "compat/packages/package.hpp"
#include "compat/support/failure.hpp"

namespace {

using namespace compat;

void require(bool kept, const char *promise) {
    if (!kept) {
        std::fprintf(stderr, "broken: %s\n", promise);
        std::abort();
    }
}

// A package directory in memory, used for one input after the other.
class Directory {
public:
    Directory() {
        std::string pattern =
            (std::filesystem::exists("/dev/shm") ? "/dev/shm" : "/tmp") + std::string("/hostadm-fuzz-XXXXXX");
        require(mkdtemp(pattern.data()) != nullptr, "there is a folder for the package");
        path_ = pattern;
        std::filesystem::create_directories(path_ + "/reloc/etc");
        write("reloc/etc/file", "content\n");
    }
    ~Directory() { std::filesystem::remove_all(path_); }
    Directory(const Directory &) = delete;
    Directory &operator=(const Directory &) = delete;

    const std::string &path() const { return path_; }
    void write(const std::string &name, std::string_view text) const {
        std::ofstream(path_ + "/" + name, std::ios::binary) << text;
    }

private:
    std::string path_;
};

void check_place(const std::string &path) {
    require(path.starts_with('/'), "a place is absolute");
    require(("/" + path + "/").find("/../") == std::string::npos, "no place leads upwards");
    require(path.find('\n') == std::string::npos, "no place holds a line break");
}

void check_entries(const Package &package) {
    std::set<std::string> places;
    for (const Entry &entry : package.entries()) {
        check_place(entry.path);
        require(places.insert(entry.path).second, "each place is taken once");
        require(entry.path != "/" || entry.is_directory(), "the root is a directory");
        require(!entry.mode || *entry.mode <= 07777, "a mode is one");
        if (entry.type == 'l')
            check_place(entry.target);
    }
    for (const Entry &entry : package.information())
        require(entry.written.find('/') == std::string::npos, "information files have no directory");
    require(is_package_name(package.name()), "the name is one");
    check_place(package.base());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const Directory directory;
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    const std::size_t parting = input.find("\n%%\n");
    if (parting == input.npos)
        return 0;
    directory.write("pkginfo", input.substr(0, parting + 1));
    directory.write("pkgmap", input.substr(parting + 4));
    try {
        const Package package(directory.path(), "");
        check_entries(package);
        const Package again(directory.path(), "");
        require(again.entries().size() == package.entries().size() && again.base() == package.base(),
                "reading it again gives the same");
        for (const std::string &name : package.prerequisites())
            require(name.find_first_of(" \t\n") == name.npos, "a prerequisite is one word");
        package.verify();
    } catch (const Failure &refused) {
        require(*refused.what() != '\0', "a refusal says why");
    }
    return 0;
}
