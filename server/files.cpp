// SPDX-License-Identifier: MIT
#include "server/files.hpp"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

#include "base/beneath.hpp"
#include "base/descriptor.hpp"
#include "base/translation.hpp"
#include "hostadm/table_edit.hpp"
#include "server/client_root.hpp"
#include "server/failure.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

std::string complaint(const std::string &what) {
    return what + " (" + std::strerror(errno) + ")";
}

std::optional<FileIdentity> look_up(int directory, const char *path, int flags) {
    struct statx file {};
    if (statx(directory, path, flags | AT_SYMLINK_NOFOLLOW, STATX_INO | STATX_BTIME, &file) != 0)
        return std::nullopt;
    constexpr std::uint64_t second = 1'000'000'000;
    return FileIdentity{(std::uint64_t{file.stx_dev_major} << 32) | file.stx_dev_minor, file.stx_ino,
                        static_cast<std::uint64_t>(file.stx_btime.tv_sec) * second + file.stx_btime.tv_nsec};
}

std::string name_of(const std::string &path) {
    return fs::path(path).filename();
}

// False: it is there, or what it would lie in is not.
bool make_directory(const std::string &path, Journal &journal) {
    const Uninterrupted uninterrupted;
    const base::Beneath folder = folder_on_server(path);
    if (mkdirat(folder.descriptor(), name_of(path).c_str(), 0755) != 0)
        return false;
    journal.note_made(MadeDirectory{path, identity_of(path).value_or(FileIdentity{})});
    return true;
}

} // namespace

std::optional<FileIdentity> identity_of(const std::string &path) {
    return look_up(AT_FDCWD, path.c_str(), 0);
}

std::optional<FileIdentity> identity_of(const base::Descriptor &file) {
    return look_up(file.get(), "", AT_EMPTY_PATH);
}

std::optional<FileIdentity> identity_in(const base::Beneath &folder, const std::string &name) {
    return look_up(folder.descriptor(), name.c_str(), 0);
}

bool exists(const std::string &path) {
    struct stat file {};
    return lstat(path.c_str(), &file) == 0;
}

bool is_directory(const std::string &path) {
    std::error_code error;
    return fs::is_directory(path, error);
}

std::string parent_of(const std::string &path) {
    return fs::path(path).parent_path();
}

void make_directories(const std::string &path, Journal &journal) {
    // Another run may make, or take back, a directory above this one between two looks at it.
    constexpr int tries = 5;
    for (int i = 0; i < tries && !is_directory(path); ++i) {
        std::vector<std::string> missing;
        for (std::string directory = path; directory != "/" && !is_directory(directory);
             directory = parent_of(directory))
            missing.push_back(directory);
        bool made = true;
        for (auto directory = missing.rbegin(); made && directory != missing.rend(); ++directory) {
            made = make_directory(*directory, journal) || (errno == EEXIST && is_directory(*directory));
            if (!made && errno != ENOENT)
                fail_errno(base::tr("cannot make {1}", *directory));
        }
    }
    if (!is_directory(path))
        fail(Code::system, base::tr("cannot make {1}: no such directory", path));
}

namespace {

base::Descriptor make_new_file(const std::string &path, mode_t mode, Journal &journal) {
    const Uninterrupted uninterrupted;
    const base::Beneath folder = folder_on_server(path);
    base::Descriptor file(openat(folder.descriptor(), name_of(path).c_str(),
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (!file.is_open())
        fail_errno(base::tr("cannot make {1}", path));
    journal.note_made(MadeFile{path, identity_of(file).value_or(FileIdentity{})});
    return file;
}

constexpr std::size_t swap_page = 4096, version_place = 1024, last_page_place = 1028;
constexpr std::string_view swap_signature = "SWAPSPACE2";

// The first page of a swap area, of pages of 4096 bytes, least significant byte first.
std::string linux_swap_header(std::uint64_t size) {
    std::string header(swap_page, '\0');
    header[version_place] = 1;
    const std::uint64_t last_page = size / swap_page - 1;
    for (std::size_t byte = 0; byte < 4; ++byte)
        header[last_page_place + byte] = static_cast<char>(last_page >> (8 * byte) & 0xff);
    return header.replace(swap_page - swap_signature.size(), swap_signature.size(), swap_signature);
}

} // namespace

void make_linux_swap_area(const base::Descriptor &file, const std::string &path, std::uint64_t size) {
    if (const int error = posix_fallocate(file.get(), 0, static_cast<off_t>(size)); error != 0) {
        errno = error;
        fail_errno(base::tr("cannot make {1} {2} bytes long", path, size));
    }
    const std::string header = linux_swap_header(size);
    if (pwrite(file.get(), header.data(), header.size(), 0) != static_cast<ssize_t>(header.size()) ||
        fsync(file.get()) != 0)
        fail_errno(base::tr("cannot write {1}", path));
}

void mend_linux_swap_area(const base::Descriptor &file, const std::string &path, std::uint64_t size) {
    std::string header(swap_page, '\0');
    if (pread(file.get(), header.data(), header.size(), 0) != static_cast<ssize_t>(header.size()) ||
        !header.ends_with(swap_signature))
        return;
    if (header.compare(last_page_place, 4, linux_swap_header(size), last_page_place, 4) != 0)
        make_linux_swap_area(file, path, size);
}

bool make_linux_swap_file(const std::string &path, std::uint64_t size, Journal &journal) {
    if (exists(path))
        return false;
    make_directories(parent_of(path), journal);
    make_linux_swap_area(make_new_file(path, 0600, journal), path, size);
    return true;
}

bool make_sparse_file(const std::string &path, std::uint64_t size, Journal &journal) {
    if (exists(path))
        return false;
    make_directories(parent_of(path), journal);
    const base::Descriptor file = make_new_file(path, 0600, journal);
    if (ftruncate(file.get(), static_cast<off_t>(size)) != 0)
        fail_errno(base::tr("cannot make {1} {2} bytes long", path, size));
    if (fsync(file.get()) != 0)
        fail_errno(base::tr("cannot write {1}", path));
    return true;
}

bool make_text_file(const std::string &path, const std::string &text, Journal &journal) {
    if (exists(path))
        return false;
    make_directories(parent_of(path), journal);
    const base::Descriptor file = make_new_file(path, 0644, journal);
    if (!base::write_all(file.get(), text) || fsync(file.get()) != 0)
        fail_errno(base::tr("cannot write {1}", path));
    return true;
}

void note_new_table(const std::string &path, Journal &journal) {
    if (!exists(path))
        journal.note(NewTable{path});
}

std::string nearest_existing(std::string path) {
    while (path != "/" && !exists(path))
        path = parent_of(path);
    return path;
}

void flush_file_systems(const std::vector<std::string> &paths) {
    std::set<std::uint64_t> flushed;
    for (const std::string &wanted : paths) {
        const std::string path = nearest_existing(wanted);
        const base::Descriptor place(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
        if (!place.is_open())
            fail_errno(base::tr("cannot flush {1}", path));
        struct stat state {};
        if (fstat(place.get(), &state) == 0 && !flushed.insert(state.st_dev).second)
            continue;
        if (syncfs(place.get()) != 0)
            fail_errno(base::tr("not everything could be written to the disk that holds {1}", path));
    }
}

// A read-only file system refuses to remove even what is not there, so it is looked for first.
std::string remove_if_same(const std::string &path, const FileIdentity &identity) {
    if (identity_of(path) != identity)
        return "";
    const base::Beneath folder = folder_on_server(path);
    const std::string name = name_of(path);
    return identity_in(folder, name) != identity || unlinkat(folder.descriptor(), name.c_str(), 0) == 0 ||
                   errno == ENOENT
               ? ""
               : complaint(path);
}

std::string take_back(const MadeFile &made, const UndoContext &) {
    return remove_if_same(made.path, made.identity);
}

std::string take_back(const MadeDirectory &made, const UndoContext &) {
    if (identity_of(made.path) != made.identity)
        return "";
    const base::Beneath folder = folder_on_server(made.path);
    if (unlinkat(folder.descriptor(), name_of(made.path).c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT)
        return "";
    return errno == ENOTEMPTY || errno == EEXIST ? "" : complaint(made.path);
}

std::string take_back(const NewTable &table, const UndoContext &) {
    // With the lock that editors of the table take, so that nobody's first line goes with it.
    const tables::FolderLock lock(parent_of(table.path));
    struct stat file {};
    if (stat(table.path.c_str(), &file) != 0 || file.st_size != 0)
        return "";
    if (lock.status() != 0)
        return base::tr("the empty table {1} (its folder is locked)", table.path);
    return unlink(table.path.c_str()) == 0 || errno == ENOENT ? "" : complaint(table.path);
}

} // namespace hostadm::server
