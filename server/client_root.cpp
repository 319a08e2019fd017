// SPDX-License-Identifier: MIT
#include "server/client_root.hpp"

#include <filesystem>
#include <set>
#include <sys/stat.h>
#include <utility>

#include "server/bootparams.hpp"
#include "server/roots.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;
using base::Beneath;

namespace {

const std::string usual_place = "/export/root/";

std::string plain(const std::string &path) {
    std::string text = fs::path(path).lexically_normal();
    while (text.size() > 1 && text.ends_with('/'))
        text.pop_back();
    return text;
}

std::string root_above(const std::string &place, const std::string &new_root) {
    std::set<std::pair<dev_t, ino_t>> roots;
    struct stat status {};
    const auto note = [&](const std::string &root) {
        if (stat(root.c_str(), &status) == 0)
            roots.emplace(status.st_dev, status.st_ino);
    };
    note(new_root);
    for (const BootparamsClient &client : client_entries())
        note(path_of_item(client.items, "root"));
    // Down from the top, which is the server's: whatever spelling led to the root, no client could choose it.
    for (std::size_t end = place.find('/', 1); end != place.npos; end = place.find('/', end + 1)) {
        const std::string above = place.substr(0, end);
        if (above.starts_with(usual_place) ||
            (stat(above.c_str(), &status) == 0 && roots.count({status.st_dev, status.st_ino}) != 0))
            return above;
    }
    return "";
}

} // namespace

std::string client_root_of(const std::string &path) {
    return root_above(plain(path), "");
}

std::string path_on_server(const std::string &path, const std::string &new_root) {
    const std::string place = plain(path), root = root_above(place, new_root);
    return root.empty() ? real_path_of(path) : real_path_of(root) + place.substr(root.size());
}

Beneath folder_at(const std::string &path) {
    const std::string place = plain(path), root = client_root_of(place);
    if (root.empty())
        return Beneath("/").directory(place);
    const Beneath files(root, base::Links::inside);
    return files.directory(place.substr(root.size()) + "/.");
}

Beneath folder_on_server(const std::string &path) {
    const std::string place = plain(path);
    return client_root_of(place).empty() ? Beneath(fs::path(place).parent_path().native())
                                         : folder_that_holds(place);
}

Beneath folder_that_holds(const std::string &path) {
    return folder_at(fs::path(plain(path)).parent_path());
}

} // namespace hostadm::server
