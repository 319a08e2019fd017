// SPDX-License-Identifier: MIT
#include "server/mount_tables.hpp"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "base/mounts.hpp"
#include "base/text.hpp"
#include "hostadm/table_edit.hpp"
#include "server/confined.hpp"

namespace hostadm::server {

std::string read_mount_table(const std::string &table) {
    std::string text;
    tables::read_file(table, text); // one that cannot be read is told by its edit
    return text;
}

bool has_mount_line(const std::string &text, const std::string &resource, const std::string &mount_point) {
    bool found = false;
    base::for_each_line(text, [&](std::string_view line) {
        const auto words = base::words_of(line);
        if (words.size() > 2 && !words[0].starts_with('#') && (resource.empty() || words[0] == resource) &&
            (mount_point.empty() || words[2] == mount_point))
            found = true;
    });
    return found;
}

int edit_mount_table_copy(std::string &text, const std::function<int(const std::string &table)> &edit) {
    const std::string name = "table";
    const Stage stage;
    stage.files().write(name, text);
    const int status = stage.run([&] { return edit(std::string(Stage::nowhere) + "/" + name); });
    if (status == 0)
        text = stage.files().read(name);
    return status;
}

bool is_mount_point(const std::string &directory) {
    std::error_code error;
    const std::string real = std::filesystem::weakly_canonical(directory, error);
    const auto mounts = base::all_mounts();
    return std::any_of(mounts.begin(), mounts.end(),
                       [&](const base::Mount &mount) { return mount.point == (error ? directory : real); });
}

} // namespace hostadm::server
