// SPDX-License-Identifier: MIT
// Puts the objects of one package in place, all of them or none: everything is first laid beside its place
// under another name, then renamed; whatever fails before the end is taken back.
#pragma once

#include <functional>
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
    void stage_text(const std::string &path, const std::string &text, mode_t mode);
    // Renames everything into place.
    void commit();

private:
    struct Pending {
        std::string path;
        std::string fresh; // name beside it
        std::string saved; // name of what was there before
        bool renamed = false;
        bool had_before = false;
    };

    void make_parents(const std::string &path);
    void place_directory(const Entry &entry);
    void stage_file(const Package &package, const Entry &entry);
    void stage_link(const Entry &entry);
    void stage_hard_link(const Entry &entry);
    void stage_special(const Entry &entry);
    // Opens the directory of `path` and clears the name beside it; the object is to be made there.
    Descriptor begin(const std::string &path, Pending &pending);
    void set_attributes(int directory, const std::string &name, const Entry &entry, mode_t otherwise) const;
    void roll_back() noexcept;
    void drop_saved() noexcept;

    const Root &root_;
    const Accounts &accounts_;
    std::function<void()> working_;
    std::vector<Pending> pending_;
    std::vector<std::function<void()>> undo_; // what was done at once: directories and their attributes
    bool committed_ = false;
};

} // namespace compat
