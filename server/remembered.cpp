// SPDX-License-Identifier: MIT
#include "server/remembered.hpp"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <unistd.h>

#include "hostadm/table_edit.hpp"

namespace hostadm::server {

namespace fs = std::filesystem;

namespace {

std::string complaint(const std::string &path, int error) {
    return path + " (" + std::strerror(error) + ")";
}

std::string target_of(const std::string &link) {
    std::error_code ignored;
    return fs::read_symlink(link, ignored);
}

} // namespace

Remembered::Remembered(std::string path) : path_(std::move(path)) {
    if (lstat(path_.c_str(), &before_) != 0) {
        if (errno != ENOENT && errno != ENOTDIR)
            throw std::runtime_error("cannot look at " + complaint(path_, errno));
        before_ = {};
    } else if (S_ISLNK(before_.st_mode)) {
        text_ = target_of(path_);
    } else if (S_ISREG(before_.st_mode)) {
        if (const int status = tables::read_file(path_, text_); status != 0)
            throw std::runtime_error("cannot read " + complaint(path_, -status));
    }
}

std::string Remembered::put_back_nothing() const {
    if (unlink(path_.c_str()) == 0 || errno == ENOENT || errno == ENOTDIR)
        return "";
    if (errno == EISDIR && (rmdir(path_.c_str()) == 0 || errno == ENOTEMPTY || errno == EEXIST))
        return "";
    return complaint(path_, errno);
}

std::string Remembered::put_back_link() const {
    if (target_of(path_) == text_)
        return "";
    if (const std::string left = put_back_nothing(); !left.empty())
        return left;
    return symlink(text_.c_str(), path_.c_str()) == 0 ? "" : complaint("without its link " + path_, errno);
}

std::string Remembered::put_back_file() const {
    const auto restore = [&](std::string &text) {
        text = text_;
        return 0;
    };
    if (const int status = tables::edit_file(path_, restore, {.create = true}); status != 0)
        return complaint(path_ + ", which is not as it was", -status);
    struct stat now {};
    if (lstat(path_.c_str(), &now) == 0 && now.st_mode == before_.st_mode && now.st_uid == before_.st_uid &&
        now.st_gid == before_.st_gid)
        return "";
    const bool restored = lchown(path_.c_str(), before_.st_uid, before_.st_gid) == 0 &&
                          chmod(path_.c_str(), before_.st_mode & 07777) == 0;
    return restored ? "" : complaint("the owner and mode of " + path_, errno);
}

std::string Remembered::put_back() const {
    if (before_.st_mode == 0)
        return put_back_nothing();
    if (S_ISLNK(before_.st_mode))
        return put_back_link();
    return S_ISREG(before_.st_mode) ? put_back_file() : "";
}

} // namespace hostadm::server
