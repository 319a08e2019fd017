// SPDX-License-Identifier: MIT
// What the commands share and unshare understand and allow. The adapter serves by these rules, and a preview foresees
// with them what the adapter will say.
#pragma once

#include <string>
#include <vector>

#include "base/share_options.hpp"

namespace hostadm::base {

struct Share {
    std::string path;
    std::string options;
    std::string description;
    bool operator==(const Share &) const = default;
};

// Wrong words: the caller's mistake and not the directory's.
class ShareUsage : public ShareRefused {
public:
    using ShareRefused::ShareRefused;
};

struct ShareRequest {
    std::string type = "nfs";
    std::string options = "rw";
    std::string description;
    bool boot = false;
    bool help = false;
    std::vector<std::string> operands;
};

// The words of a command, its name first; `letters` as getopt has them. Throws a ShareUsage.
ShareRequest parse_share_words(std::vector<std::string> words, const char *letters);
inline constexpr const char *share_letters = "F:o:d:h";
inline constexpr const char *unshare_letters = "F:o:h";

// The share that is asked for, with its path resolved. Throws a ShareRefused.
Share wanted_share(const ShareRequest &request, bool files_too);

// Another file system below a shared directory is a share of its own right; any other directory above or below one that
// is shared is refused.
void check_neighbours(const std::vector<Share> &shares, const std::string &path);
// A line that the share of a directory around it makes good already.
bool is_served(const std::vector<Share> &shares, const Share &wanted);

// Takes the place of an earlier share of the same path.
void put_share(std::vector<Share> &shares, Share share);
// Takes away what is shared as this path, or as what it resolves to. Throws a ShareRefused when nothing is.
void withdraw_share(std::vector<Share> &shares, const ShareRequest &request);

} // namespace hostadm::base
