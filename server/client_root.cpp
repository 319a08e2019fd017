// SPDX-License-Identifier: MIT
#include "server/client_root.hpp"

#include <filesystem>
#include <optional>
#include <set>
#include <sys/stat.h>
#include <tuple>
#include <utility>
#include <vector>

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

using Place = std::pair<dev_t, ino_t>;

std::optional<Place> place_of(const std::string &path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        return std::nullopt;
    return Place(status.st_dev, status.st_ino);
}

// Where the clients' roots are. Of ten thousand clients it takes a while to look at each, and a run asks a dozen times:
// only a table that has changed is read anew, and only roots that were missing are looked for again.
class RootsOfTable {
public:
    const std::set<Place> &places() {
        read();
        std::erase_if(missing_, [&](const std::string &root) { return note(root); });
        return places_;
    }

private:
    using Stamp = std::tuple<dev_t, ino_t, off_t, time_t, long, time_t, long>;

    void read() {
        struct stat table {};
        const bool is_there = stat(bootparams_path, &table) == 0;
        const Stamp now(table.st_dev, table.st_ino, table.st_size, table.st_mtim.tv_sec,
                        table.st_mtim.tv_nsec, table.st_ctim.tv_sec, table.st_ctim.tv_nsec);
        if (is_there && read_at_ == now)
            return;
        places_.clear();
        missing_.clear();
        for (const BootparamsClient &client : client_entries())
            if (const std::string root = path_of_item(client.items, "root"); !note(root))
                missing_.push_back(root);
        read_at_ = is_there ? std::optional(now) : std::nullopt;
    }

    bool note(const std::string &root) {
        const std::optional<Place> place = place_of(root);
        if (place)
            places_.insert(*place);
        return place.has_value();
    }

    std::optional<Stamp> read_at_;
    std::set<Place> places_;
    std::vector<std::string> missing_;
};

std::string root_above(const std::string &place, const std::string &new_root) {
    static RootsOfTable table;
    const std::set<Place> &roots = table.places();
    const std::optional<Place> fresh = place_of(new_root);
    // Down from the top, which is the server's: whatever spelling led to the root, no client could choose it.
    for (std::size_t end = place.find('/', 1); end != place.npos; end = place.find('/', end + 1)) {
        const std::string above = place.substr(0, end);
        if (above.starts_with(usual_place))
            return above;
        if (const auto here = place_of(above); here && (here == fresh || roots.contains(*here)))
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
