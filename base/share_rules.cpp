// SPDX-License-Identifier: MIT
#include "base/share_rules.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <optional>
#include <sys/stat.h>
#include <utility>

#include "base/translation.hpp"

namespace hostadm::base {
namespace {

bool has_blank_or_control(const std::string &text, bool blanks_allowed) {
    return std::any_of(text.begin(), text.end(), [&](char letter) {
        const auto code = static_cast<unsigned char>(letter);
        return std::iscntrl(code) || (!blanks_allowed && std::isspace(code));
    });
}

[[noreturn]] void refuse_with_errno(const std::string &path) {
    throw ShareRefused(path + ": " + std::strerror(errno));
}

std::optional<std::string> resolved(const std::string &path) {
    char buffer[PATH_MAX];
    if (realpath(path.c_str(), buffer) == nullptr)
        return std::nullopt;
    return buffer;
}

bool is_below(const std::string &path, const std::string &parent) {
    return parent == "/" ? path != "/" : path.starts_with(parent + "/");
}

// A directory that is gone counts as part of the same one, since nothing can be said for it.
bool same_file_system(const std::string &one, const std::string &other) {
    struct stat first = {};
    struct stat second = {};
    return stat(one.c_str(), &first) != 0 || stat(other.c_str(), &second) != 0 ||
           first.st_dev == second.st_dev;
}

bool remove_share(std::vector<Share> &shares, const std::string &path) {
    return std::erase_if(shares, [&](const Share &share) { return share.path == path; }) > 0;
}

} // namespace

ShareRequest parse_share_words(std::vector<std::string> words, const char *letters) {
    static const option long_options[] = {{"type", required_argument, nullptr, 'F'},
                                          {"options", required_argument, nullptr, 'o'},
                                          {"description", required_argument, nullptr, 'd'},
                                          {"boot", no_argument, nullptr, 'B'},
                                          {"help", no_argument, nullptr, 'h'},
                                          {nullptr, 0, nullptr, 0}};
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);

    ShareRequest request;
    optind = 0; // lines of a file are parsed one after another
    opterr = 0;
    for (;;) {
        const int letter =
            getopt_long(static_cast<int>(words.size()), arguments.data(), letters, long_options, nullptr);
        if (letter == -1)
            break;
        const bool allowed = letter == 'h' || std::strchr(letters, letter) != nullptr;
        if (letter == '?' || letter == ':' || !allowed)
            throw ShareUsage(base::tr("unknown option or missing value; try --help"));
        if (letter == 'F')
            request.type = optarg;
        else if (letter == 'o')
            request.options = optarg;
        else if (letter == 'd')
            request.description = optarg;
        else if (letter == 'B')
            request.boot = true;
        else
            request.help = true;
    }
    for (auto index = static_cast<std::size_t>(optind); index < words.size(); ++index)
        request.operands.emplace_back(arguments[index]);
    if (request.type != "nfs")
        throw ShareUsage(base::tr("unknown file system type \"{1}\"; only nfs can be shared", request.type));
    return request;
}

Share wanted_share(const ShareRequest &request, bool files_too) {
    if (request.operands.size() != 1)
        throw ShareUsage(base::tr("give one directory; a path or description with blanks must be quoted"));
    if (request.operands[0].empty() || request.operands[0][0] != '/')
        throw ShareRefused(base::tr("{1}: not an absolute path", request.operands[0]));
    const auto path = resolved(request.operands[0]);
    if (!path)
        refuse_with_errno(request.operands[0]);
    struct stat info = {};
    if (stat(path->c_str(), &info) != 0)
        refuse_with_errno(*path);
    if (!S_ISDIR(info.st_mode) && !(S_ISREG(info.st_mode) && files_too))
        throw ShareRefused(
            S_ISREG(info.st_mode)
                ? base::tr("{1}: the NFS server shares directories only; share the directory of this file",
                           *path)
                : base::tr("{1}: not a directory", *path));
    // The list of shares, the tables and the server's file are all split at blanks; complaints at parentheses.
    if (has_blank_or_control(*path, false) || path->find_first_of("\"'();{}#,=\\") != std::string::npos)
        throw ShareRefused(
            base::tr("{1}: a share cannot have a blank or one of \"'();{}#,=\\ in its path", *path));
    if (has_blank_or_control(request.description, true))
        throw ShareRefused(base::tr("the description contains a control character"));
    parse_share_options(request.options);
    return {*path, request.options, request.description};
}

// The kind of the neighbour comes first: whoever reads the complaint looks for that word, which the path may hold.
// It is a program that looks, so these two are not translated, nor is that something is not shared.
void check_neighbours(const std::vector<Share> &shares, const std::string &path) {
    for (const Share &other : shares) {
        if (is_below(other.path, path) && same_file_system(other.path, path))
            throw ShareRefused("sub-directory (" + other.path + ") already shared, in " + path);
        if (is_below(path, other.path) && same_file_system(other.path, path))
            throw ShareRefused("parent (" + other.path + ") already shared, of " + path);
    }
}

bool is_served(const std::vector<Share> &shares, const Share &wanted) {
    return std::any_of(shares.begin(), shares.end(), [&](const Share &other) {
        return is_below(wanted.path, other.path) && same_file_system(other.path, wanted.path) &&
               other.options == wanted.options;
    });
}

void put_share(std::vector<Share> &shares, Share share) {
    const auto found = std::find_if(shares.begin(), shares.end(),
                                    [&](const Share &other) { return other.path == share.path; });
    if (found == shares.end())
        shares.push_back(std::move(share));
    else
        *found = std::move(share);
}

void withdraw_share(std::vector<Share> &shares, const ShareRequest &request) {
    if (request.operands.size() != 1)
        throw ShareUsage(base::tr("give one directory"));
    const std::string &path = request.operands[0];
    if (remove_share(shares, path))
        return;
    const auto real = resolved(path);
    if (!real || !remove_share(shares, *real))
        throw ShareRefused(path + ": not shared");
}

} // namespace hostadm::base
