// SPDX-License-Identifier: MIT
#include "server/filling.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "hostadm/table_edit.hpp"
#include "server/failure.hpp"
#include "server/roots.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

const std::string folder = "/var/lib/hostadm", table = folder + "/filling"; // ROOT<tab>CLIENT, and <tab>whole
constexpr std::string_view whole = "\twhole";

std::string line_of(const Filling &filling) {
    return filling.root + "\t" + filling.client + (filling.is_whole ? std::string(whole) : "") + "\n";
}

std::vector<Filling> fillings_in(std::string_view text) {
    std::vector<Filling> all;
    base::for_each_line(text, [&](std::string_view line) {
        const std::size_t tab = line.find('\t');
        if (tab == line.npos)
            return;
        const bool is_whole = line.ends_with(whole) && line.size() - whole.size() > tab;
        const std::string_view client =
            line.substr(tab + 1, line.size() - tab - 1 - (is_whole ? whole.size() : 0));
        all.push_back({std::string(line.substr(0, tab)), std::string(client), is_whole});
    });
    return all;
}

void edit_table(const std::string &root, const std::string &added) {
    std::error_code error;
    fs::create_directories(folder, error); // the edit says what is wrong
    const auto change = [&](std::string &text) {
        std::string rest;
        for (const Filling &filling : fillings_in(text))
            if (filling.root != root)
                rest += line_of(filling);
        text = rest + added;
        return 0;
    };
    if (const int status = tables::edit_file(table, change, {.create = !added.empty()});
        status != 0 && (status != tables::no_such_line || !added.empty()))
        fail_edit(table, status);
}

void remove_empty_table() {
    const tables::FolderLock lock(folder);
    struct stat file {};
    if (lock.status() == 0 && stat(table.c_str(), &file) == 0 && file.st_size == 0)
        unlink(table.c_str());
}

// Makes the directory, or takes the one that is there.
void prepare(const std::string &root, Journal &journal) {
    struct stat before {};
    if (stat(root.c_str(), &before) == 0) {
        journal.note(FilledRoot{root, identity_of(root).value_or(FileIdentity{}), before.st_mode & 07777,
                                before.st_uid, before.st_gid});
    } else {
        make_directories(parent_of(root), journal);
        const Uninterrupted uninterrupted;
        if (mkdir(root.c_str(), 0755) != 0)
            fail_errno(base::tr("cannot make {1}", root));
        journal.note_made(MadeRoot{root, identity_of(root).value_or(FileIdentity{})});
        before.st_mode = 0755;
    }
    // Or every copied directory would inherit its set-group-ID bit.
    if (chmod(root.c_str(), before.st_mode & 01777) != 0)
        fail_errno(base::tr("cannot set the mode of {1}", root));
}

void fill(method::Call &call, const std::string &root, const Identity &identity, const RootSource &source) {
    int status = 0;
    const bool is_release_4 = identity.os_version.starts_with("4.");
    if (source.tree.empty()) {
        call.progress(base::tr("installing packages in {1}", root));
        status = fill_root(call, root, identity.os_name, identity.os_version, source.packages);
    } else {
        call.progress(base::tr("copying {1} to {2}", source.tree, root));
        status = is_release_4 && !source.of_client
                     ? fill_root(call, root, identity.os_name, identity.os_version, {source.tree})
                     : copy_tree(call, source.tree, root, source.of_client);
    }
    if (status != 0)
        throw Recorded();
    if (fs::is_empty(root))
        fail(Code::no_effect, base::tr("{1} is empty, although it was filled without a complaint", root));
}

} // namespace

std::vector<Filling> roots_being_filled() {
    std::string text;
    const int status = tables::read_file(table, text);
    if (status != 0 && status != tables::no_such_line)
        fail_reading(table, status);
    return fillings_in(text);
}

bool is_being_filled(const std::string &root) {
    const std::vector<Filling> all = roots_being_filled();
    return std::any_of(all.begin(), all.end(),
                       [&](const Filling &filling) { return filling.root == root && !filling.is_whole; });
}

bool is_filled_for(const std::string &root, const std::string &client) {
    const std::vector<Filling> all = roots_being_filled();
    return std::any_of(all.begin(), all.end(), [&](const Filling &filling) {
        return filling.root == root && filling.is_whole &&
               base::lower_case(filling.client) == base::lower_case(client);
    });
}

void begin_filling(const std::string &root, const std::string &client) {
    edit_table(root, line_of({root, client}));
}

void end_filling(const std::string &root) {
    const std::vector<Filling> all = roots_being_filled();
    if (std::none_of(all.begin(), all.end(), [&](const Filling &filling) { return filling.root == root; }))
        return;
    edit_table(root, "");
    remove_empty_table();
}

void prepare_filling(const method::Call &call, const std::string &root, const std::string &owner,
                     Journal &journal) {
    if (is_being_filled(root) && exists(root)) {
        call.progress(base::tr("removing what a run that was cut off has left in {1}", root));
        remove_tree(root);
    }
    prepare(root, journal);
    begin_filling(root, owner);
}

void make_root(method::Call &call, const std::string &root, const std::string &client,
               const Identity &identity, const RootSource &source, Journal &journal) {
    prepare_filling(call, root, client, journal);
    fill(call, root, identity, source);
}

void root_is_filled(const std::string &root, const std::string &client) {
    flush_file_systems({root}); // or after a power cut its files would be there, and empty
    edit_table(root, line_of({root, client, true}));
}

std::string take_back(const MadeRoot &made, const UndoContext &) {
    if (identity_of(made.path) == made.identity)
        remove_tree(made.path);
    end_filling(made.path);
    return "";
}

std::string take_back(const FilledRoot &filled, const UndoContext &) {
    if (identity_of(filled.path) != filled.identity)
        return "";
    remove_contents(filled.path);
    end_filling(filled.path);
    const bool restored =
        chown(filled.path.c_str(), static_cast<uid_t>(filled.owner), static_cast<gid_t>(filled.group)) == 0 &&
        chmod(filled.path.c_str(), static_cast<mode_t>(filled.mode)) == 0;
    return restored ? "" : base::tr("the owner and mode of {1} ({2})", filled.path, std::strerror(errno));
}

} // namespace hostadm::server
