// SPDX-License-Identifier: MIT
#include "server/mount_tables.hpp"

#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include "base/text.hpp"
#include "hostadm/table_edit.hpp"
#include "server/client_root.hpp"
#include "server/confined.hpp"
#include "server/line_edits.hpp"
#include "server/named_table.hpp"

namespace hostadm::server {

namespace {

constexpr std::array system_folders{"/proc", "/sys", "/dev", "/run"};

// Nothing: no line of a mount.
std::optional<MountLine> mount_line(std::string_view line, MountLayout layout) {
    const auto words = base::words_of(line);
    if (words.size() < 3 || words[0].starts_with('#'))
        return std::nullopt;
    const auto column = [&](std::size_t at) { return std::string(at < words.size() ? words[at] : ""); };
    if (layout == MountLayout::six_columns)
        return MountLine{.resource = column(0),
                         .fsckdev = "",
                         .mount_point = column(1),
                         .type = column(2),
                         .options = column(3),
                         .freq = column(4),
                         .pass = column(5),
                         .at_boot = ""};
    return MountLine{.resource = column(0),
                     .fsckdev = column(1),
                     .mount_point = column(2),
                     .type = column(3),
                     .options = column(6),
                     .freq = "",
                     .pass = column(4),
                     .at_boot = column(5)};
}

// A table has the host of HOST:PATH in lower case, whatever was given.
std::string as_written(const std::string &resource) {
    const std::size_t colon = resource.find(":/");
    return colon == resource.npos ? resource
                                  : base::lower_case(resource.substr(0, colon)) + resource.substr(colon);
}

bool is_meant(const std::optional<MountLine> &line, const std::string &resource,
              const std::string &mount_point) {
    return line && (resource.empty() || as_written(line->resource) == as_written(resource)) &&
           (mount_point.empty() || line->mount_point == mount_point);
}

std::string real_path(const std::string &path) {
    std::error_code error;
    const std::string real = std::filesystem::weakly_canonical(path, error);
    return error || path.empty() || path.front() != '/' ? path : real;
}

// What is on top there.
std::optional<base::Mount> mount_at(const std::string &directory) {
    const std::string point = real_path(directory);
    std::optional<base::Mount> found;
    for (base::Mount &mount : base::all_mounts())
        if (mount.point == point)
            found = std::move(mount);
    return found;
}

} // namespace

MountLayout mount_layout(const method::Call &call, const std::string &table) {
    const bool six = call.given(mount_layout_argument.name) ? call.get(mount_layout_argument.name) != "vfstab"
                                                            : base::last_component(table) == "fstab";
    return six ? MountLayout::six_columns : MountLayout::seven_columns;
}

std::vector<MountLine> mount_lines(std::string_view text, MountLayout layout) {
    return mount_lines_of(text, layout, "", "");
}

std::vector<MountLine> mount_lines_of(std::string_view text, MountLayout layout, const std::string &resource,
                                      const std::string &mount_point) {
    std::vector<MountLine> lines;
    base::for_each_line(text, [&](std::string_view whole) {
        if (auto line = mount_line(whole, layout); is_meant(line, resource, mount_point))
            lines.push_back(std::move(*line));
    });
    return lines;
}

std::string without_mount_lines(std::string_view text, MountLayout layout, const std::string &resource,
                                const std::string &mount_point) {
    return without_lines(text, [&](std::string_view line) {
        return is_meant(mount_line(line, layout), resource, mount_point);
    });
}

std::string read_mount_table(const std::string &table) {
    if (!client_root_of(table).empty())
        return read_named_table(table);
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

int edit_table_copy(std::string &text, const std::function<int(const std::string &table)> &edit) {
    const std::string name = "table";
    const Stage stage;
    stage.files().write(name, text);
    const int status = stage.run([&] { return edit(std::string(Stage::nowhere) + "/" + name); });
    if (status == 0)
        text = stage.files().read(name);
    return status;
}

std::vector<base::Mount> mounts_now(SystemMounts system) {
    const auto is_of_the_system = [](const base::Mount &mount) {
        return mount.point == "/" || std::ranges::any_of(system_folders, [&](const char *folder) {
                   return base::is_within(mount.point, folder);
               });
    };
    std::vector<base::Mount> mounts = base::all_mounts();
    if (system == SystemMounts::left_out)
        std::erase_if(mounts, is_of_the_system);
    return mounts;
}

bool is_mount_point(const std::string &directory) {
    return mount_at(directory).has_value();
}

bool is_mounted_so(const std::string &resource, const std::string &directory, const std::string &options) {
    const auto mount = mount_at(directory);
    return mount && (mount->source == resource || real_path(mount->source) == real_path(resource)) &&
           base::has_option(base::all_options(*mount), "ro") == base::has_option(options, "ro");
}

} // namespace hostadm::server
