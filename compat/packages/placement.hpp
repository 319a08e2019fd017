// SPDX-License-Identifier: MIT
// Puts the objects of one package in place, all of them or none: everything is first laid beside its place
// under another name, then renamed; whatever fails before the end is taken back. Once it is committed it stays,
// also after a power cut.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "compat/packages/package.hpp"
#include "compat/packages/root.hpp"

namespace compat {

class Placement {
public:
    // An exception of `working`, which is called now and then, ends the staging like any failure.
    Placement(const Root &root, const Accounts &accounts, std::function<void()> working)
        : root_(root), accounts_(accounts), working_(std::move(working)) {}
    Placement(const Placement &) = delete;
    Placement &operator=(const Placement &) = delete;
    ~Placement();

    // Takes away what a killed installation has left beside the objects of this package: the old file too,
    // which may be one with its owner's rights.
    void clear_remains(const Package &package) const;
    void stage(const Package &package, const Entry &entry);
    // A text of the record of what is installed. It comes behind the objects, and gets its place only when they
    // have theirs on the disk: who finds the record may believe it.
    void stage_record(const std::string &path, const std::string &text);
    // Renames everything into place.
    void commit();

private:
    struct Pending {
        std::string path;
        std::string fresh; // name beside it
        std::string saved; // name of what was there before
        bool record = false;
        bool renamed = false;
        bool had_before = false;
        dev_t device = 0; // which object it is that was laid there
        ino_t inode = 0;
    };

    void make_parents(const std::string &path);
    void place_directory(const Entry &entry);
    void stage_file(const Package &package, const Entry &entry);
    void stage_link(const Entry &entry);
    void stage_hard_link(const Entry &entry);
    void stage_special(const Entry &entry);
    // Opens the directory of `path` and clears the name beside it; the object is to be made there.
    hostadm::base::Beneath begin(const std::string &path, Pending &pending);
    // The object is there, and nothing is to take its place.
    void staged(Pending pending, const struct stat &object);
    void put_in_place(Pending &pending);
    void flush() const;
    void roll_back() noexcept;
    void drop_saved() noexcept;

    const Root &root_;
    const Accounts &accounts_;
    std::function<void()> working_;
    std::vector<Pending> pending_;
    std::vector<std::function<void()>> undo_; // what was done at once: directories and their attributes
    std::set<std::string> changed_;           // directories
    bool committed_ = false;
};

} // namespace compat
