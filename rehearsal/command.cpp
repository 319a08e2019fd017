// SPDX-License-Identifier: MIT
#include "rehearsal/command.hpp"

#include <cstdlib>
#include <unistd.h>

namespace hostadm::rehearsal {

base::Answer ask(const std::vector<std::string> &words, const std::string &input) {
    constexpr int seconds = 10;
    return base::run_and_listen({.words = words, .search = true, .time_limit = seconds, .input = input});
}

bool is_installed(const std::string &program) {
    const char *path = std::getenv("PATH");
    std::string places = std::string(path == nullptr ? "" : path) + ":/usr/sbin:/sbin";
    while (!places.empty()) {
        const std::size_t end = places.find(':');
        const std::string place = places.substr(0, end);
        if (!place.empty() && access((place + '/' + program).c_str(), X_OK) == 0)
            return true;
        places.erase(0, end == places.npos ? places.size() : end + 1);
    }
    return false;
}

} // namespace hostadm::rehearsal
