// SPDX-License-Identifier: MIT
// preview-share LIST share|unshare WORDS...: what these commands would make of the list of the live system's shares, in
// a preview. By the rules of the real ones.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/file.h>
#include <unistd.h>
#include <vector>

#include "base/descriptor.hpp"
#include "base/files.hpp"
#include "base/share_rules.hpp"
#include "base/text.hpp"

namespace {

using namespace hostadm::base;

// Only the kernel's server shares single files.
constexpr const char *kernel_server = "/usr/sbin/exportfs";
constexpr const char *other_server = "/usr/bin/ganesha.nfsd";

// A line is RESOURCE PATH OPTIONS "DESCRIPTION".
std::vector<Share> parse_list(const std::string &text) {
    std::vector<Share> shares;
    for_each_line(text, [&](std::string_view line) {
        std::vector<std::string> fields;
        std::string description;
        std::size_t at = 0;
        while (fields.size() < 3) {
            const std::size_t begin = line.find_first_not_of(" \t", at);
            if (begin == line.npos)
                return;
            at = std::min(line.find_first_of(" \t", begin), line.size());
            fields.emplace_back(line.substr(begin, at - begin));
        }
        if (const std::size_t quote = line.find('"', at); quote != line.npos && line.ends_with('"'))
            description = line.substr(quote + 1, line.size() - std::min(line.size(), quote + 2));
        shares.push_back({fields[1], fields[2], description});
    });
    return shares;
}

std::string list_of(const std::vector<Share> &shares) {
    std::string text;
    for (const Share &share : shares)
        text += "-  " + share.path + "  " + share.options + "  \"" + share.description + "\"\n";
    return text;
}

void change(std::vector<Share> &shares, const std::vector<std::string> &words) {
    if (words.front() == "unshare") {
        withdraw_share(shares, parse_share_words(words, unshare_letters));
        return;
    }
    const bool files_too = access(kernel_server, X_OK) == 0 && access(other_server, X_OK) != 0;
    const Share wanted = wanted_share(parse_share_words(words, share_letters), files_too);
    check_neighbours(shares, wanted.path);
    put_share(shares, wanted);
}

void work(const std::string &path, const std::vector<std::string> &words) {
    const Descriptor list(open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (!list || flock(list.get(), LOCK_EX) != 0)
        throw std::runtime_error(path + ": " + std::strerror(errno));
    std::vector<Share> shares = parse_list(read_whole(list.get()).value_or(""));
    change(shares, words);
    if (ftruncate(list.get(), 0) != 0 || lseek(list.get(), 0, SEEK_SET) != 0 ||
        !write_all(list.get(), list_of(shares)))
        throw std::runtime_error(path + ": " + std::strerror(errno));
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 3)
        return 2;
    const std::vector<std::string> words(argv + 2, argv + argc);
    try {
        work(argv[1], words);
        return 0;
    } catch (const std::exception &refused) {
        std::fprintf(stderr, "%s: %s\n", words.front().c_str(), refused.what());
        return dynamic_cast<const ShareUsage *>(&refused) != nullptr ? 2 : 1;
    }
}
