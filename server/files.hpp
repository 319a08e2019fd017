// SPDX-License-Identifier: MIT
// Files and directories of the server that a run makes, and knows again when it takes them back.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "base/beneath.hpp"
#include "base/descriptor.hpp"
#include "server/journal.hpp"
#include "server/undo_context.hpp"

namespace hostadm::server {

// Which file it is, whatever its name: its number is used again after it, its time of birth is not.
struct FileIdentity {
    std::uint64_t device = 0, inode = 0, born = 0;
    // A disk may be another device after a boot. Where it does not know when files were made, they are told apart by it.
    bool operator==(const FileIdentity &other) const {
        return inode == other.inode && born == other.born && (born != 0 || device == other.device);
    }
};
std::optional<FileIdentity> identity_of(const std::string &path); // of a link itself
std::optional<FileIdentity> identity_of(const base::Descriptor &file);
std::optional<FileIdentity> identity_in(const base::Beneath &folder, const std::string &name);

// Also a link that leads nowhere.
bool exists(const std::string &path);
bool is_directory(const std::string &path);
std::string parent_of(const std::string &path);
// The path itself or the lowest folder above it that is there.
std::string nearest_existing(std::string path);

struct MadeDirectory {
    static constexpr std::string_view kind = "made directory";
    std::string path;
    FileIdentity identity;
    static auto fields(auto &self) {
        return std::tie(self.path, self.identity.device, self.identity.inode, self.identity.born);
    }
};
// It stays if somebody keeps something in it by now.
std::string take_back(const MadeDirectory &made, const UndoContext &context);

struct MadeFile {
    static constexpr std::string_view kind = "made file";
    std::string path;
    FileIdentity identity;
    static auto fields(auto &self) {
        return std::tie(self.path, self.identity.device, self.identity.inode, self.identity.born);
    }
};
std::string take_back(const MadeFile &made, const UndoContext &context);

// A table that was missing and is about to get its first line.
struct NewTable {
    static constexpr std::string_view kind = "new table";
    std::string path;
    static auto fields(auto &self) { return std::tie(self.path); }
};
std::string take_back(const NewTable &table, const UndoContext &context);

// Makes the directories of a path that are missing.
void make_directories(const std::string &path, Journal &journal);
// Makes a sparse file that only root may touch. False: there is a file.
bool make_sparse_file(const std::string &path, std::uint64_t size, Journal &journal);
// As a swap area of Linux on a PC: with its signature, and without holes, which Linux refuses over NFS. The latter as
// above.
void make_linux_swap_area(const base::Descriptor &file, const std::string &path, std::uint64_t size);
// The same where it says of itself that it has another size; any other file stays as it is.
void mend_linux_swap_area(const base::Descriptor &file, const std::string &path, std::uint64_t size);
bool make_linux_swap_file(const std::string &path, std::uint64_t size, Journal &journal);
// Makes a file with a text, flushed. False: there is a file.
bool make_text_file(const std::string &path, const std::string &text, Journal &journal);
void note_new_table(const std::string &path, Journal &journal);

// Returns when all that was written to the file systems of these paths, or of the nearest folders above those that
// are gone, is on its disk. Throws Failure.
void flush_file_systems(const std::vector<std::string> &paths);

// Removes the file if it is that one still. What had to stay, in words, or nothing.
std::string remove_if_same(const std::string &path, const FileIdentity &identity);

} // namespace hostadm::server
