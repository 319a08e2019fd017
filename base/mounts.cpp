// SPDX-License-Identifier: MIT
#include "base/mounts.hpp"

#include <algorithm>
#include <cerrno>
#include <dlfcn.h>
#include <fcntl.h>
#include <libmount/libmount.h>
#include <memory>
#include <sys/stat.h>
#include <system_error>

#include "base/text.hpp"
#include "base/translation.hpp"

namespace hostadm::base {

namespace {

[[noreturn]] void fail(int error, const std::string &what) {
    throw std::system_error(error, std::generic_category(), what);
}

// The few functions of libmount that are needed here.
class Library {
public:
    static const Library &loaded() {
        static const Library library;
        return library;
    }

    decltype(&mnt_new_table_from_file) new_table_from_file;
    decltype(&mnt_unref_table) unref_table;
    decltype(&mnt_new_iter) new_iter;
    decltype(&mnt_free_iter) free_iter;
    decltype(&mnt_table_next_fs) table_next_fs;
    decltype(&mnt_fs_get_id) fs_get_id;
    decltype(&mnt_fs_get_source) fs_get_source;
    decltype(&mnt_fs_get_target) fs_get_target;
    decltype(&mnt_fs_get_root) fs_get_root;
    decltype(&mnt_fs_get_fstype) fs_get_fstype;
    decltype(&mnt_fs_get_vfs_options) fs_get_vfs_options;
    decltype(&mnt_fs_get_fs_options) fs_get_fs_options;

private:
    Library() : handle_(dlopen("libmount.so.1", RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE)) {
        if (handle_ == nullptr)
            fail(ELIBACC,
                 base::tr(
                     "libmount.so.1, which reads the table of mounts, cannot be loaded (package libmount1)"));
        find(new_table_from_file, "mnt_new_table_from_file");
        find(unref_table, "mnt_unref_table");
        find(new_iter, "mnt_new_iter");
        find(free_iter, "mnt_free_iter");
        find(table_next_fs, "mnt_table_next_fs");
        find(fs_get_id, "mnt_fs_get_id");
        find(fs_get_source, "mnt_fs_get_source");
        find(fs_get_target, "mnt_fs_get_target");
        find(fs_get_root, "mnt_fs_get_root");
        find(fs_get_fstype, "mnt_fs_get_fstype");
        find(fs_get_vfs_options, "mnt_fs_get_vfs_options");
        find(fs_get_fs_options, "mnt_fs_get_fs_options");
    }

    template <typename Function> void find(Function &function, const char *name) {
        function = reinterpret_cast<Function>(dlsym(handle_, name));
        if (function == nullptr)
            fail(ELIBBAD, base::tr("libmount.so.1 has no {1}", name));
    }

    void *handle_;
};

constexpr std::string_view layer_mark = "layer-over:";

bool is_layer(const Mount &mount) {
    return mount.type == "overlay" && mount.source.starts_with(layer_mark);
}

std::string text_of(const char *text) {
    return text == nullptr ? "" : text;
}

} // namespace

std::vector<Mount> all_mounts(const std::string &table) {
    const Library &library = Library::loaded();
    errno = 0;
    const std::unique_ptr<libmnt_table, decltype(&mnt_unref_table)> read(
        library.new_table_from_file(table.c_str()), library.unref_table);
    const std::unique_ptr<libmnt_iter, decltype(&mnt_free_iter)> place(library.new_iter(MNT_ITER_FORWARD),
                                                                       library.free_iter);
    if (read == nullptr || place == nullptr)
        fail(errno != 0 ? errno : EINVAL, base::tr("the table of mounts, {1}, cannot be read", table));
    std::vector<Mount> mounts;
    libmnt_fs *mount = nullptr;
    while (library.table_next_fs(read.get(), place.get(), &mount) == 0)
        mounts.push_back({.id = static_cast<std::uint64_t>(std::max(library.fs_get_id(mount), 0)),
                          .source = text_of(library.fs_get_source(mount)),
                          .point = text_of(library.fs_get_target(mount)),
                          .root = text_of(library.fs_get_root(mount)),
                          .type = text_of(library.fs_get_fstype(mount)),
                          .options = text_of(library.fs_get_vfs_options(mount)),
                          .system_options = text_of(library.fs_get_fs_options(mount))});
    return mounts;
}

std::optional<Mount> mount_of(const std::string &path) {
    struct statx status {};
    if (statx(AT_FDCWD, path.c_str(), AT_STATX_DONT_SYNC, STATX_MNT_ID, &status) != 0)
        return std::nullopt;
    errno = ENODATA; // unless it is found
    if ((status.stx_mask & STATX_MNT_ID) == 0)
        return std::nullopt;
    for (Mount &mount : all_mounts())
        if (mount.id == status.stx_mnt_id)
            return std::move(mount);
    errno = ENODATA;
    return std::nullopt;
}

std::vector<Mount> mounts_within(const std::string &directory) {
    std::vector<Mount> mounts = all_mounts();
    std::erase_if(mounts, [&](const Mount &mount) { return !is_within(mount.point, directory); });
    return mounts;
}

std::string layer_source(const Mount &below) {
    return std::string(layer_mark) + shown_type(below) + ":" + shown_source(below);
}

std::string shown_type(const Mount &mount) {
    if (!is_layer(mount))
        return mount.type;
    const std::string shown = mount.source.substr(layer_mark.size());
    return shown.substr(0, shown.find(':'));
}

std::string shown_source(const Mount &mount) {
    const std::size_t colon = is_layer(mount) ? mount.source.find(':', layer_mark.size()) : mount.source.npos;
    return colon == mount.source.npos ? mount.source : mount.source.substr(colon + 1);
}

bool is_within(std::string_view path, std::string_view directory) {
    return path == directory || directory == "/" ||
           (path.starts_with(directory) && path.size() > directory.size() && path[directory.size()] == '/');
}

bool has_option(std::string_view options, std::string_view wanted) {
    const auto all = split(options, ',');
    return std::find(all.begin(), all.end(), wanted) != all.end();
}

std::string all_options(const Mount &mount) {
    std::string all = mount.options;
    for (const std::string_view option : split(mount.system_options, ','))
        if (!option.empty() && !has_option(all, option))
            all.append(all.empty() ? "" : ",").append(option);
    return all;
}

} // namespace hostadm::base
