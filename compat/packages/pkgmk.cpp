// SPDX-License-Identifier: MIT
// pkgmk: makes a package in the System V directory format from a tree.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <getopt.h>
#include <map>
#include <set>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <system_error>
#include <unistd.h>

#include "compat/packages/package.hpp"

namespace {

namespace fs = std::filesystem;
using compat::Failure;

constexpr const char *help = R"(usage: pkgmk [-ao] [-d DIRECTORY] [-e PATH]... -r TREE PACKAGE [KEY=VALUE]...
Makes the package PACKAGE below DIRECTORY (/var/spool/pkg) from everything in TREE, in the System V directory
format that pkgadd(8) installs. KEY=VALUE sets lines of pkginfo; NAME, ARCH, VERSION and CATEGORY have defaults.

  -a, --absolute      the files have absolute paths (root/); otherwise they are placed below the base directory
                      that is chosen at installation (reloc/)
  -o, --overwrite     replace an earlier package of this name
  -d, --device DIR    where the package is made
  -e, --editable PATH this file of TREE may be edited after the installation (type e)
  -r, --root TREE     what the package is made from
  -h, --help          this text
Exit status: 0 done, 1 failed, or wrong usage. See pkgmk(8).
)";

struct Settings {
    bool absolute = false;
    bool overwrite = false;
    std::string spool = "/var/spool/pkg";
    std::string tree;
    std::string package;
    std::vector<std::string> editable;
    std::map<std::string, std::string> info;
};

[[noreturn]] void usage(const std::string &text) {
    compat::print_complaint("pkgmk", text + "; try --help");
    std::exit(1);
}

Settings parse(int argc, char **argv) {
    static const option long_options[] = {{"absolute", no_argument, nullptr, 'a'},
                                          {"overwrite", no_argument, nullptr, 'o'},
                                          {"device", required_argument, nullptr, 'd'},
                                          {"root", required_argument, nullptr, 'r'},
                                          {"editable", required_argument, nullptr, 'e'},
                                          {"help", no_argument, nullptr, 'h'},
                                          {nullptr, 0, nullptr, 0}};
    Settings settings;
    for (int letter; (letter = getopt_long(argc, argv, "aod:r:e:h", long_options, nullptr)) != -1;) {
        if (letter == 'a')
            settings.absolute = true;
        else if (letter == 'o')
            settings.overwrite = true;
        else if (letter == 'd')
            settings.spool = optarg;
        else if (letter == 'r')
            settings.tree = optarg;
        else if (letter == 'e')
            settings.editable.push_back(fs::path(optarg).relative_path().lexically_normal());
        else if (letter == 'h') {
            std::fputs(help, stdout);
            std::exit(0);
        } else if (letter == '?')
            std::exit(1);
    }
    if (optind >= argc || settings.tree.empty())
        usage("give a tree and the package's name");
    settings.package = argv[optind];
    settings.info = {{"NAME", settings.package}, {"ARCH", "all"}, {"VERSION", "1.0"}, {"CATEGORY", "system"}};
    for (int index = optind + 1; index < argc; ++index) {
        const std::string word = argv[index];
        const size_t equals = word.find('=');
        if (equals == 0 || equals == std::string::npos || word.find('\n') != std::string::npos)
            usage("\"" + word + "\" is no KEY=VALUE");
        settings.info[word.substr(0, equals)] = word.substr(equals + 1);
    }
    settings.info["PKG"] = settings.package;
    settings.info.try_emplace("CLASSES", "none");
    return settings;
}

std::string octal(mode_t mode) {
    char text[16];
    std::snprintf(text, sizeof text, "%04o", mode & 07777U);
    return text;
}

// Numbers, because names may mean others on the client.
std::string owner_word(unsigned id) {
    return id == 0 ? "root" : std::to_string(id);
}

std::string measured(const std::string &path, const struct stat &info) {
    const compat::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file)
        compat::fail_with_errno(path);
    const compat::Measure found = compat::measure(file, path);
    return std::to_string(found.size) + " " + std::to_string(found.sum) + " " + std::to_string(info.st_mtime);
}

class Maker {
public:
    explicit Maker(Settings settings) : settings_(std::move(settings)) {}
    ~Maker() {
        std::error_code ignored;
        if (!fresh_.empty())
            fs::remove_all(fresh_, ignored);
    }
    Maker(const Maker &) = delete;
    Maker &operator=(const Maker &) = delete;

    void make() {
        if (!compat::is_package_name(settings_.package))
            throw Failure("\"" + settings_.package + "\" is no package name");
        if (!fs::is_directory(settings_.tree))
            throw Failure(settings_.tree + ": no such tree");
        const fs::path package = fs::path(settings_.spool) / settings_.package;
        if (fs::exists(package) && !settings_.overwrite)
            throw Failure(package.string() + " is there already; -o replaces it");
        fs::create_directories(settings_.spool);
        fresh_ = fs::path(settings_.spool) / ("." + settings_.package + ".new");
        fs::remove_all(fresh_);
        fs::create_directories(fresh_);
        write_info();
        // Sorted, so that the same tree gives the same package.
        std::set<fs::path> paths;
        for (const auto &each : fs::recursive_directory_iterator(settings_.tree))
            paths.insert(each.path());
        for (const fs::path &path : paths)
            add(path);
        if (!editable_.empty())
            throw Failure(*editable_.begin() + ": " + settings_.tree +
                          " has no such file that could be edited");
        std::sort(lines_.begin(), lines_.end());
        std::string map = ": 1 " + std::to_string(kilobytes_ * 2) + "\n" + information_line_;
        for (const auto &[path, line] : lines_)
            map += line + "\n";
        compat::replace_file(fresh_ / "pkgmap", map);
        compat::Package(fresh_, "").verify(); // as pkgadd will read it
        fs::remove_all(package);
        fs::rename(fresh_, package);
    }

private:
    void write_info() {
        std::string text;
        for (const auto &[key, value] : settings_.info)
            text += key + "=" + value + "\n";
        const std::string path = fresh_ / "pkginfo";
        compat::replace_file(path, text);
        struct stat info = {};
        if (stat(path.c_str(), &info) != 0)
            compat::fail_with_errno(path);
        information_line_ = "1 i pkginfo " + measured(path, info) + "\n";
    }

    void add(const fs::path &path) {
        struct stat info = {};
        if (lstat(path.c_str(), &info) != 0)
            compat::fail_with_errno(path);
        const std::string relative = path.lexically_relative(settings_.tree);
        const std::string written = settings_.absolute ? "/" + relative : relative;
        if (written.find_first_of(" \t\n=$") != std::string::npos)
            throw Failure(written + ": pkgmap cannot hold a path with a blank, \"=\" or \"$\"");
        const std::string rest =
            octal(info.st_mode) + " " + owner_word(info.st_uid) + " " + owner_word(info.st_gid);
        if (S_ISDIR(info.st_mode))
            put(written, "d none " + written + " " + rest);
        else if (S_ISLNK(info.st_mode))
            put(written, "s none " + written + "=" + fs::read_symlink(path).string());
        else if (S_ISBLK(info.st_mode) || S_ISCHR(info.st_mode))
            put(written, std::string(S_ISBLK(info.st_mode) ? "b" : "c") + " none " + written + " " +
                             std::to_string(major(info.st_rdev)) + " " + std::to_string(minor(info.st_rdev)) +
                             " " + rest);
        else if (S_ISFIFO(info.st_mode))
            put(written, "p none " + written + " " + rest);
        else if (S_ISREG(info.st_mode))
            add_file(path, relative, written, info, rest);
        else
            throw Failure(path.string() + ": a socket cannot be packaged");
    }

    void add_file(const fs::path &path, const std::string &relative, const std::string &written,
                  const struct stat &info, const std::string &rest) {
        const auto [first, is_first] = names_.try_emplace({info.st_dev, info.st_ino}, written);
        if (!is_first) {
            put(written, "l none " + written + "=" + first->second);
            return;
        }
        const bool editable = editable_.erase(relative) != 0;
        put(written,
            std::string(editable ? "e" : "f") + " none " + written + " " + rest + " " + measured(path, info));
        kilobytes_ += (static_cast<uint64_t>(info.st_size) + 1023) / 1024;
        const fs::path copy = fresh_ / (settings_.absolute ? "root" : "reloc") / relative;
        fs::create_directories(copy.parent_path());
        fs::copy_file(path, copy);
    }

    void put(const std::string &path, const std::string &line) { lines_.emplace_back(path, "1 " + line); }

    Settings settings_;
    std::set<std::string> editable_{settings_.editable.begin(), settings_.editable.end()}; // not found yet
    fs::path fresh_;
    std::string information_line_;
    std::vector<std::pair<std::string, std::string>> lines_;
    std::map<std::pair<dev_t, ino_t>, std::string> names_; // of files with several names
    uint64_t kilobytes_ = 0;
};

} // namespace

int main(int argc, char **argv) {
    const Settings settings = parse(argc, argv);
    return compat::guarded_main("pkgmk", 1, [&] {
        Maker(settings).make();
        return 0;
    });
}
