// SPDX-License-Identifier: MIT
#include "base/tree_state.hpp"

namespace hostadm::base {

namespace {

std::string attributes(const struct stat &status) {
    std::string text;
    for (const unsigned long long number :
         {0ULL + status.st_mode, 0ULL + status.st_uid, 0ULL + status.st_gid, 0ULL + status.st_rdev})
        text += " " + std::to_string(number);
    if (S_ISREG(status.st_mode))
        for (const long long number :
             {0LL + status.st_size, 0LL + status.st_mtim.tv_sec, 0LL + status.st_mtim.tv_nsec})
            text += " " + std::to_string(number);
    return text;
}

void add_state(const Beneath &directory, const std::string &above, std::vector<std::string> &lines) {
    for (const std::string &name : directory.names()) {
        const std::string path = above + name;
        try {
            const auto status = directory.status(name);
            if (!status)
                continue;
            lines.push_back(path + attributes(*status));
            if (S_ISLNK(status->st_mode))
                lines.back() += " " + directory.link_target(name);
            if (S_ISDIR(status->st_mode))
                add_state(directory.directory(name), path + "/", lines);
        } catch (const BeneathError &) {
            lines.push_back(path + " ?");
        }
    }
}

} // namespace

std::vector<std::string> state_of_tree(const Beneath &directory) {
    std::vector<std::string> lines;
    add_state(directory, "", lines);
    return lines;
}

} // namespace hostadm::base
