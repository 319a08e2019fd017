// SPDX-License-Identifier: MIT
// Safe edits of text files that others read and edit at the same time: lock, read, change, write as one call.
//
// The file is at every moment the whole old text or the whole new one, also after a
// power cut, a full disk or a killed editor. The new text goes to a fresh file beside
// the old one, which takes over mode, owner and extended attributes (ACLs and security
// labels among them), is flushed, and is renamed over it; then the folder is flushed.
//
// - Symbolic links are followed: the file that they lead to is edited and the links stay.
// - Editors exclude each other by flock(2), so that a lock ends with its holder, and wait in the order of their
//   coming. Root's editors lock a file in /run/hostadm/tables, a folder of root's own, that stands for the
//   folder which holds the table (by device and inode, so that the lock outlives the rename): whoever can read
//   a folder can lock that itself and would stop them. Other users lock the folder itself, and so does root
//   where /run/hostadm cannot be had (a read-only or foreign /run): there, readers of the folder can hold root
//   up until the time of waiting is over. Root and another user notice each other only by the next point.
// - Somebody who writes the file without that lock while the new text is on its way is noticed: the change is
//   then made again on what they wrote, so the callable may be called more than once.
// - A file with several hard links: the name that was edited gets the new text, the other names keep the old
//   one.
// - An editor killed half-way leaves at most a file ".hostadm-new-table" in the folder; the next edit of any
//   file in that folder removes it. A failed edit leaves nothing.
//
// Statuses: 0 done; otherwise minus an errno value, of which these are told apart:
//   -2 (-ENOENT)   the file, or a folder of its path, does not exist
//   -26            somebody else holds the lock; it was waited for as long as Options says
//   -EISDIR        the path is a folder
//   -ENOTSUP       it is neither a file nor a folder
//   -EACCES, -EROFS, -EPERM
//                  the file may not be written, the folder may not be changed, or owner or attributes could
//                  not be taken over
//   -EBUSY         the file is a mount point (a file bind-mounted in place), which cannot be replaced
//   -EAGAIN        others kept writing the file without the lock
//   -ENOSPC, -EDQUOT, -EFBIG (a limit on the size of files), -EIO, -ENOMEM ...
//                  the system's own
// After any of them the file holds its old text; only when
// flushing the folder fails (-EIO) is it already the new one.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace hostadm::tables {

inline constexpr int no_such_line = -2;
inline constexpr int table_locked = -26;

struct Options {
    // A file that does not exist: status -2, or made with mode 0644 once the change has given it a text. Its
    // folder is made with it (mode 0755), but not the folder's folder.
    bool create = false;
    std::chrono::milliseconds patience = std::chrono::seconds(30); // how long to wait for the lock
};

// Hands the whole text of the file to `change`, which edits it in place and returns 0, or a negative status
// that ends the edit. A text left as it was is not written: the file keeps its inode and its times. An
// exception of `change` passes through; the file is then untouched.
int edit_file(const std::string &path, const std::function<int(std::string &text)> &change,
              const Options &options = {});

// One run of a text and what takes its place.
struct Splice {
    std::size_t begin = 0;
    std::size_t length = 0;
    std::string replacement;
};

// As edit_file, for a change of one run of bytes in a large file, whose text is then never copied: `change`
// fills in `splice`, or leaves it empty when there is nothing to change.
int splice_file(const std::string &path,
                const std::function<int(std::string_view text, std::optional<Splice> &splice)> &change,
                const Options &options = {});

// The lock of a folder's tables, for work that is more than one edit.
// It is waited for like any editor's, and goes with the object.
class FolderLock {
public:
    explicit FolderLock(const std::string &folder, std::chrono::milliseconds patience = Options{}.patience);
    ~FolderLock();
    FolderLock(const FolderLock &) = delete;
    FolderLock &operator=(const FolderLock &) = delete;

    int status() const { return status_; } // 0: held; otherwise it is not

private:
    int held_ = -1; // the descriptor that holds the lock
    int status_ = 0;
};

// Reads the whole text. No lock is needed for one whole state of the file, and none is taken.
int read_file(const std::string &path, std::string &text);

} // namespace hostadm::tables
