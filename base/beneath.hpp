// SPDX-License-Identifier: MIT
// Files below a directory in which somebody else may change anything at any moment, such as a client's root.
//
// Whatever is found there is reached through descriptors that cannot leave the directory; only regular files
// are opened, and no fifo or device ever is; what is read is bounded; what is written takes its name when it
// is whole. A path below the directory may begin with slashes: "/etc/vfstab" is what the directory's owner
// means by that. The entry at the end of a path is never followed if it is a symbolic link.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

#include "base/descriptor.hpp"

namespace hostadm::base {

// What could not be done below the directory, in words with the path and the reason.
class BeneathError : public std::runtime_error {
public:
    BeneathError(const std::string &text, int error) : std::runtime_error(text), error_(error) {}
    int error() const { return error_; } // errno

private:
    int error_;
};

struct Attributes {
    mode_t mode = 0644;
    uid_t owner = 0;
    gid_t group = 0;
};
Attributes attributes_of(const struct stat &status);

// What symbolic links on the way to an entry do.
enum class Links {
    refused, // there is none, or the path is an error
    inside,  // they are followed as the directory's owner sees them, with the directory as "/"
};

class Beneath {
public:
    static constexpr std::size_t usual_limit = 16U << 20U; // bytes of a table, generously

    // The directory itself is reached by a path of the server's own, as usual.
    explicit Beneath(const std::string &directory, Links links = Links::refused);
    // Has been opened already; the path is for messages.
    Beneath(Descriptor directory, std::string path, Links links = Links::refused);

    const std::string &path() const { return path_; }
    int descriptor() const { return directory_.get(); }
    std::string path_of(std::string_view below) const; // for messages only: never open it

    // Everything below throws BeneathError when it cannot be done.

    // Of the entry itself; nothing: there is none, nor perhaps a directory above it.
    std::optional<struct stat> status(std::string_view below) const;
    bool is_directory(std::string_view below) const;
    bool is_file(std::string_view below) const; // a regular one
    std::string read(std::string_view below, std::size_t limit = usual_limit) const;
    std::string link_target(std::string_view below) const;
    std::vector<std::string> names(std::string_view below = ".") const; // sorted
    // A regular file, for reading or, with O_WRONLY, for writing what it holds.
    Descriptor open_file(std::string_view below, int access = 0) const;
    Beneath directory(std::string_view below) const;

    // Takes its name, flushed and with these attributes, in place of whatever file or link stood there.
    void write(std::string_view below, std::string_view text, Attributes attributes = {}) const;
    // The same, where a file stands already: it keeps its attributes, extended ones too.
    void rewrite(std::string_view below, std::string_view text) const;
    // False: it is there already. A parent that is missing gets the same attributes.
    bool make_directory(std::string_view below, Attributes attributes = {.mode = 0755}) const;
    bool make_directories(std::string_view below, Attributes attributes = {.mode = 0755}) const;
    // Whatever file or link stands there is replaced.
    void make_link(const std::string &target, std::string_view below) const;
    // A device, fifo or socket; the type is in the mode. Whatever file or link stands there is replaced.
    void make_node(std::string_view below, Attributes attributes, dev_t device = 0) const;
    void set_attributes(std::string_view below, Attributes attributes) const; // not of a link
    // With the flags of renameat2, such as RENAME_NOREPLACE.
    void rename(std::string_view from, std::string_view to, unsigned flags = 0) const;
    // A file, link, or empty directory. False: nothing was there.
    bool remove(std::string_view below) const;
    // With all that is in it; no mount is entered. False: nothing was there.
    bool remove_tree(std::string_view below) const;
    void remove_contents() const;
    void flush() const; // everything written to the file system so far

private:
    friend class NewFile;
    struct Place {
        Descriptor parent;
        std::string name;
    };

    [[noreturn]] void fail(const char *what, std::string_view below, int error) const;
    Descriptor open(std::string_view below, std::uint64_t flags, const char *what) const;
    Place place_of(std::string_view below, const char *what) const;
    void put_in_place(std::string_view below, const char *what,
                      const std::function<int(int parent, const char *name)> &make) const;

    Descriptor directory_;
    std::string path_;
    Links links_;
};

// A file that is written aside and takes its name when it is whole; gone if it never does.
class NewFile {
public:
    NewFile(const Beneath &directory, std::string_view below);
    ~NewFile();
    NewFile(const NewFile &) = delete;
    NewFile &operator=(const NewFile &) = delete;

    int descriptor() const { return file_.get(); }
    void write(std::string_view text);
    // Flushes it unless the caller flushes many at once. `like`: an open file whose extended attributes it gets.
    void take_place(Attributes attributes, bool flushed = true, int like = -1);

private:
    const Beneath &directory_;
    std::string below_;
    Beneath::Place place_;
    std::string aside_;
    Descriptor file_;
    bool is_aside_ = false;
};

} // namespace hostadm::base
