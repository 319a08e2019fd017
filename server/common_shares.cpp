// SPDX-License-Identifier: MIT
#include "server/common_shares.hpp"

#include <filesystem>
#include <functional>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "base/text.hpp"
#include "hostadm/table_edit.hpp"
#include "server/failure.hpp"
#include "server/files.hpp"
#include "server/host_tables.hpp"
#include "server/shares.hpp"

namespace hostadm::server {

namespace {

const std::string folder = "/var/lib/hostadm", table = folder + "/common_shares"; // a path in each line

bool has_line(std::string_view text, std::string_view path) {
    bool found = false;
    base::for_each_line(text, [&](std::string_view line) { found = found || line == path; });
    return found;
}

void edit(const std::function<void(std::string &text)> &change, bool create) {
    const auto changing = [&](std::string &text) {
        change(text);
        return 0;
    };
    if (const int status = tables::edit_file(table, changing, {.create = create});
        status != 0 && (create || status != tables::no_such_line))
        fail_edit(table, status);
}

void put_down(const std::string &path, Journal &journal) {
    std::error_code error;
    std::filesystem::create_directories(folder, error); // the edit says what is wrong
    note_new_table(table, journal);
    journal.note(AddedLine{table, path + "\n"});
    edit(
        [&](std::string &text) {
            if (!has_line(text, path))
                text += path + "\n";
        },
        true);
}

} // namespace

bool is_common_share(const std::string &path) {
    std::string text;
    const int status = tables::read_file(table, text);
    if (status != 0 && status != tables::no_such_line)
        fail_reading(table, status);
    return has_line(text, path);
}

bool ensure_common_share(const std::string &method, const std::string &path, const std::string &options,
                         Journal &journal) {
    const ShareState before = share_state(path);
    if (!before.now && !before.at_boot && !is_common_share(path))
        put_down(path, journal);
    return ensure_share(method, path, options, journal);
}

void withdraw_common_share(const std::string &method, const std::string &path) {
    const ShareState now = share_state(path);
    if (now.now || now.at_boot)
        withdraw_share(method, path);
    edit(
        [&](std::string &text) {
            std::string rest;
            base::for_each_line(text, [&](std::string_view line) {
                if (line != path)
                    rest += std::string(line) + "\n";
            });
            text = rest;
        },
        false);
    const tables::FolderLock lock(folder);
    struct stat file {};
    if (lock.status() == 0 && stat(table.c_str(), &file) == 0 && file.st_size == 0)
        unlink(table.c_str());
}

} // namespace hostadm::server
