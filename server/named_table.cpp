// SPDX-License-Identifier: MIT
#include "server/named_table.hpp"

#include <cerrno>
#include <filesystem>

#include "base/beneath.hpp"
#include "hostadm/table_edit.hpp"
#include "server/client_root.hpp"
#include "server/failure.hpp"
#include "server/mount_tables.hpp"

namespace hostadm::server {

namespace {

namespace fs = std::filesystem;
using Edit = std::function<int(const std::string &path)>;

// Only what lies in the server's own /etc is sure to be nobody else's.
bool is_servers_own(const std::string &table) {
    return fs::path(table).lexically_normal().parent_path() == "/etc";
}

std::string read_own(const std::string &table) {
    std::string text;
    const int status = tables::read_file(table, text);
    if (status != 0 && status != tables::no_such_line)
        fail_reading(table, status);
    return text;
}

bool edit_own(const std::string &table, const Edit &edit) {
    std::string before, after;
    const int there = tables::read_file(table, before); // one that cannot be read is told by its edit
    if (const int status = edit(table); status != 0)
        fail_edit(table, status);
    return tables::read_file(table, after) != there || after != before;
}

// The status of the edit, or of what kept its result from taking the table's place.
int edit_copy(const std::string &table, const Edit &edit, bool &changed) try {
    const std::string name = fs::path(table).filename();
    const base::Beneath folder = folder_that_holds(table);
    const tables::FolderLock lock(folder.path());
    if (lock.status() != 0)
        return lock.status();
    const bool is_there = folder.status(name).has_value();
    const std::string before = is_there ? folder.read(name) : "";
    std::string after = before;
    if (const int status = edit_table_copy(after, edit); status != 0)
        return status;
    changed = after != before;
    if (changed && !is_there)
        folder.write(name, after);
    else if (changed)
        folder.rewrite(name, after);
    return 0;
} catch (const base::BeneathError &failure) {
    switch (failure.error()) {
    case ENOENT:
    case ENOSPC:
    case EACCES:
    case EROFS:
        return -failure.error();
    default:
        throw;
    }
}

} // namespace

std::string read_named_table(const std::string &table) {
    if (is_servers_own(table))
        return read_own(table);
    try {
        const std::string name = fs::path(table).filename();
        const base::Beneath folder = folder_that_holds(table);
        return folder.status(name) ? folder.read(name) : "";
    } catch (const base::BeneathError &failure) {
        if (failure.error() == ENOENT)
            return "";
        throw Failure(Code::table, failure.what());
    }
}

bool edit_named_table(const std::string &table, const Edit &edit) {
    if (is_servers_own(table))
        return edit_own(table, edit);
    bool changed = false;
    if (const int status = edit_copy(table, edit, changed); status != 0)
        fail_edit(table, status);
    return changed;
}

int operate_on_named_table(
    const std::string &table, const std::string &effect,
    const std::function<int(const std::string &effect, const std::string &path)> &operate) {
    if (effect == "nowonly" || client_root_of(table).empty())
        return operate(effect, table);
    if (effect == "nowandboot")
        if (const int status = operate("nowonly", table); status != 0)
            return status;
    edit_named_table(table,
                     [&](const std::string &path) { return operate("bootonly", path) == 0 ? 0 : -EIO; });
    return 0;
}

bool change_named_table(const std::string &table, const std::function<void(std::string &text)> &change) {
    return edit_named_table(table, [&](const std::string &path) {
        const int status = tables::edit_file(path, [&](std::string &text) {
            change(text);
            return 0;
        });
        return status == tables::no_such_line ? 0 : status; // nothing to change where there is no table
    });
}

} // namespace hostadm::server
