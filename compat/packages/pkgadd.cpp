// SPDX-License-Identifier: MIT
// pkgadd: installs packages in the System V directory format.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <getopt.h>
#include <sys/stat.h>

#include "base/translation.hpp"
#include "compat/packages/install.hpp"
#include "compat/support/failure.hpp"
#include "compat/support/files.hpp"

namespace {

volatile std::sig_atomic_t interrupted = 0;

constexpr const char *help =
    hostadm::base::translatable(R"(usage: pkgadd [-Sn] [-R ROOT] [-a ADMIN] [-d DIRECTORY] {PACKAGE... | all}
Installs packages in the System V directory format from DIRECTORY (/var/spool/pkg). Each one is installed whole
or not at all: sizes, checksums and space are checked first, and a failure takes back what was done.

  -S                 say nothing about what succeeds
  -n                 ask nothing (this program never asks)
  -R, --root ROOT    install into the tree ROOT instead of /
  -a, --admin FILE   settings: basedir, instance, space, conflict, setuid, idepend; a name without "/" is looked
                     up in /var/sadm/install/admin
  -d, --device DIR   directory of package directories
  -h, --help         this text
Exit status: 0 done; 1 failed, or wrong usage; 3 interrupted; 4 forbidden by the admin file; 5 the admin file
wants questions asked. See pkgadd(8).
)");

struct Settings {
    bool quiet = false;
    std::string root = "/";
    std::string admin;
    std::string spool = "/var/spool/pkg";
    std::vector<std::string> names;
};

[[noreturn]] void usage(const std::string &text) {
    compat::print_complaint("pkgadd", hostadm::base::tr("{1}; try --help", text));
    std::exit(compat::pkgadd_failed);
}

Settings parse(int argc, char **argv) {
    static const option long_options[] = {{"root", required_argument, nullptr, 'R'},
                                          {"admin", required_argument, nullptr, 'a'},
                                          {"device", required_argument, nullptr, 'd'},
                                          {"help", no_argument, nullptr, 'h'},
                                          {nullptr, 0, nullptr, 0}};
    Settings settings;
    for (int letter; (letter = getopt_long(argc, argv, "SnR:a:d:h", long_options, nullptr)) != -1;) {
        if (letter == 'S')
            settings.quiet = true;
        else if (letter == 'R')
            settings.root = optarg;
        else if (letter == 'a')
            settings.admin = optarg;
        else if (letter == 'd')
            settings.spool = optarg;
        else if (letter == 'h') {
            std::fputs(hostadm::base::tr(help), stdout);
            std::exit(compat::pkgadd_done);
        } else if (letter == '?')
            std::exit(compat::pkgadd_failed);
    }
    settings.names.assign(argv + optind, argv + argc);
    if (settings.names.empty())
        usage(hostadm::base::tr("name the packages, or all"));
    if (!settings.root.starts_with('/'))
        usage(hostadm::base::tr("the root {1} is not absolute", settings.root));
    return settings;
}

compat::Admin read_admin(const std::string &name) {
    if (name.empty())
        return {};
    const std::string path = name.find('/') == std::string::npos ? "/var/sadm/install/admin/" + name : name;
    const auto text = compat::read_file(path);
    if (!text)
        throw compat::Failure(hostadm::base::tr("there is no admin file {1}", path));
    return compat::Admin::parse(*text);
}

std::vector<std::string> selected(const Settings &settings) {
    struct stat info = {};
    if (stat(settings.spool.c_str(), &info) != 0)
        compat::fail_with_errno(settings.spool);
    if (!S_ISDIR(info.st_mode))
        throw compat::Failure(
            hostadm::base::tr("{1} is no directory; packages in one file are not supported", settings.spool));
    if (settings.names != std::vector<std::string>{"all"}) {
        for (const std::string &name : settings.names)
            if (name.empty() || name.find('/') != std::string::npos || name.front() == '.')
                throw compat::Failure(hostadm::base::tr("\"{1}\" is no package name", name));
        return settings.names;
    }
    std::vector<std::string> names;
    for (const auto &each : std::filesystem::directory_iterator(settings.spool))
        if (each.path().filename().native().front() != '.' && // one that is being made
            std::filesystem::exists(each.path() / "pkginfo"))
            names.push_back(each.path().filename());
    if (names.empty())
        throw compat::Failure(hostadm::base::tr("{1} holds no package", settings.spool));
    std::sort(names.begin(), names.end());
    return names;
}

int add(const Settings &settings) {
    const compat::Admin admin = read_admin(settings.admin);
    std::vector<compat::Package> packages;
    for (const std::string &name : selected(settings))
        packages.emplace_back(settings.spool + "/" + name, admin.base);
    const compat::Root root(settings.root);
    compat::Installer(root, admin, interrupted).install(packages, settings.quiet);
    return compat::pkgadd_done;
}

} // namespace

int main(int argc, char **argv) {
    hostadm::base::speak_the_users_language();
    const Settings settings = parse(argc, argv);
    struct sigaction action = {};
    action.sa_handler = [](int) { interrupted = 1; };
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        sigaction(number, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    return compat::guarded_main("pkgadd", compat::pkgadd_failed, [&]() -> int {
        try {
            return add(settings);
        } catch (const compat::Refusal &refusal) {
            compat::print_complaint("pkgadd", refusal.what());
            return refusal.status();
        }
    });
}
