// SPDX-License-Identifier: MIT
// pkgmk: makes a package in the System V directory format from a tree.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <getopt.h>
#include <map>
#include <set>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <system_error>
#include <unistd.h>

#include "base/beneath.hpp"
#include "base/translation.hpp"
#include "compat/packages/package.hpp"
#include "compat/support/failure.hpp"
#include "compat/support/files.hpp"

namespace {

namespace fs = std::filesystem;
using compat::Failure;
using hostadm::base::Beneath;
using hostadm::base::Descriptor;

constexpr const char *help = hostadm::base::translatable(
    R"(usage: pkgmk [-ao] [-d DIRECTORY] [-e PATH]... -r TREE PACKAGE [KEY=VALUE]...
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
)");

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
    compat::print_complaint("pkgmk", hostadm::base::tr("{1}; try --help", text));
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
            std::fputs(hostadm::base::tr(help), stdout);
            std::exit(0);
        } else if (letter == '?')
            std::exit(1);
    }
    if (optind >= argc || settings.tree.empty())
        usage(hostadm::base::tr("give a tree and the package's name"));
    settings.package = argv[optind];
    settings.info = {{"NAME", settings.package}, {"ARCH", "all"}, {"VERSION", "1.0"}, {"CATEGORY", "system"}};
    for (int index = optind + 1; index < argc; ++index) {
        const std::string word = argv[index];
        const size_t equals = word.find('=');
        if (equals == 0 || equals == std::string::npos || word.find('\n') != std::string::npos)
            usage(hostadm::base::tr("\"{1}\" is no KEY=VALUE", word));
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

// Size, checksum and time as pkgmap tells them.
std::string told(uint64_t size, const compat::Checksum &sum, time_t modified) {
    return std::to_string(size) + " " + std::to_string(sum.value()) + " " + std::to_string(modified);
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
            throw Failure(hostadm::base::tr("\"{1}\" is no package name", settings_.package));
        if (!fs::is_directory(settings_.tree))
            throw Failure(hostadm::base::tr("{1}: no such tree", settings_.tree));
        const Beneath tree(settings_.tree);
        const fs::path package = fs::path(settings_.spool) / settings_.package;
        if (fs::exists(package) && !settings_.overwrite)
            throw Failure(hostadm::base::tr("{1} is there already; -o replaces it", package.string()));
        fs::create_directories(settings_.spool);
        begin();
        write_info();
        add_all(tree, "");
        if (!editable_.empty())
            throw Failure(hostadm::base::tr("{1}: {2} has no such file that could be edited",
                                            *editable_.begin(), settings_.tree));
        std::sort(lines_.begin(), lines_.end());
        std::string map = ": 1 " + std::to_string(kilobytes_ * 2) + "\n" + information_line_;
        for (const auto &[path, line] : lines_)
            map += line + "\n";
        compat::replace_file(fresh_ / "pkgmap", map);
        compat::Package(fresh_, "").verify(); // as pkgadd will read it
        put_in_place(package);
    }

private:
    // A folder that is there under this name was left by one that was killed, or is a trap.
    void begin() {
        const fs::path fresh = fs::path(settings_.spool) / ("." + settings_.package + ".new");
        fs::remove_all(fresh);
        if (mkdir(fresh.c_str(), 0755) != 0)
            compat::fail_with_errno(hostadm::base::tr("cannot make {1}", fresh.string()));
        fresh_ = fresh;
    }

    // The earlier package goes when the new one is on the disk.
    void put_in_place(const fs::path &package) {
        const Descriptor spool(open(settings_.spool.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!spool || syncfs(spool.get()) != 0)
            compat::fail_with_errno(hostadm::base::tr("cannot write to {1}", settings_.spool));
        if (renameat2(AT_FDCWD, fresh_.c_str(), AT_FDCWD, package.c_str(), RENAME_EXCHANGE) == 0) {
            fs::remove_all(fresh_);
        } else {
            fs::remove_all(package);
            fs::rename(fresh_, package);
        }
        if (fsync(spool.get()) != 0)
            compat::fail_with_errno(hostadm::base::tr("cannot write to {1}", settings_.spool));
    }

    void write_info() {
        std::string text;
        for (const auto &[key, value] : settings_.info)
            text += key + "=" + value + "\n";
        compat::replace_file(fresh_ / "pkginfo", text);
        compat::Checksum sum;
        sum.add(text);
        struct stat info = {};
        if (stat((fresh_ / "pkginfo").c_str(), &info) != 0)
            compat::fail_with_errno((fresh_ / "pkginfo").string());
        information_line_ = "1 i pkginfo " + told(text.size(), sum, info.st_mtime) + "\n";
    }

    // The tree may belong to somebody who changes it meanwhile: no link in it is followed.
    void add_all(const Beneath &directory, const std::string &above) {
        for (const std::string &name : directory.names())
            add(directory, name, above.empty() ? name : above + "/" + name);
    }

    void add(const Beneath &directory, const std::string &name, const std::string &relative) {
        const auto present = directory.status(name);
        if (!present)
            throw Failure(hostadm::base::tr("{1} has gone while it was packaged", directory.path_of(name)));
        const struct stat &info = *present;
        const std::string written = settings_.absolute ? "/" + relative : relative;
        if (written.find_first_of(" \t\n=$") != std::string::npos)
            throw Failure(
                hostadm::base::tr("{1}: pkgmap cannot hold a path with a blank, \"=\" or \"$\"", written));
        const std::string rest =
            octal(info.st_mode) + " " + owner_word(info.st_uid) + " " + owner_word(info.st_gid);
        if (S_ISDIR(info.st_mode)) {
            put(written, "d none " + written + " " + rest);
            add_all(directory.directory(name), relative);
        } else if (S_ISLNK(info.st_mode))
            put(written, "s none " + written + "=" + directory.link_target(name));
        else if (S_ISBLK(info.st_mode) || S_ISCHR(info.st_mode))
            put(written, std::string(S_ISBLK(info.st_mode) ? "b" : "c") + " none " + written + " " +
                             std::to_string(major(info.st_rdev)) + " " + std::to_string(minor(info.st_rdev)) +
                             " " + rest);
        else if (S_ISFIFO(info.st_mode))
            put(written, "p none " + written + " " + rest);
        else if (S_ISREG(info.st_mode))
            add_file(directory.open_file(name), relative, written, rest);
        else
            throw Failure(hostadm::base::tr("{1}: a socket cannot be packaged", directory.path_of(name)));
    }

    void add_file(const Descriptor &source, const std::string &relative, const std::string &written,
                  const std::string &rest) {
        struct stat info = {};
        if (fstat(source.get(), &info) != 0)
            compat::fail_with_errno(written);
        const auto [first, is_first] = names_.try_emplace({info.st_dev, info.st_ino}, written);
        if (!is_first) {
            put(written, "l none " + written + "=" + first->second);
            return;
        }
        const bool editable = editable_.erase(relative) != 0;
        const auto size = static_cast<uint64_t>(info.st_size);
        const compat::Checksum sum = copy(source, relative, size, info.st_mode & 0777U);
        put(written, std::string(editable ? "e" : "f") + " none " + written + " " + rest + " " +
                         told(size, sum, info.st_mtime));
        kilobytes_ += (size + 1023) / 1024;
    }

    // Copies the file into the package, as long as it was said to be.
    compat::Checksum copy(const Descriptor &source, const std::string &relative, uint64_t size, mode_t mode) {
        const std::string path = settings_.tree + "/" + relative;
        const fs::path copy = fresh_ / (settings_.absolute ? "root" : "reloc") / relative;
        fs::create_directories(copy.parent_path());
        const Descriptor target(open(copy.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        struct statvfs room = {};
        if (!target || fstatvfs(target.get(), &room) != 0)
            compat::fail_with_errno(hostadm::base::tr("cannot make {1}", copy.string()));
        if (size / std::max<uint64_t>(room.f_frsize, 1) >= room.f_bavail)
            throw Failure(
                hostadm::base::tr("{1}: no space for its {2} KB in {3}", path, size >> 10U, settings_.spool));
        compat::Checksum sum;
        uint64_t copied = 0;
        char piece[65536];
        for (ssize_t count; copied <= size && (count = read(source.get(), piece, sizeof piece)) != 0;) {
            if (count < 0 && errno != EINTR)
                compat::fail_with_errno(path);
            if (count < 0)
                continue;
            sum.add({piece, static_cast<size_t>(count)});
            copied += static_cast<size_t>(count);
            compat::write_all(target, {piece, static_cast<size_t>(count)}, copy);
        }
        if (copied != size)
            throw Failure(hostadm::base::tr("{1} has changed while it was packaged", path));
        if (fchmod(target.get(), mode) != 0)
            compat::fail_with_errno(hostadm::base::tr("cannot set the mode of {1}", copy.string()));
        return sum;
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
    hostadm::base::speak_the_users_language();
    const Settings settings = parse(argc, argv);
    return compat::guarded_main("pkgmk", 1, [&] {
        Maker(settings).make();
        return 0;
    });
}
