// SPDX-License-Identifier: MIT
#include "server/remembered.hpp"

#include <utility>

namespace hostadm::server {

Remembered::Remembered(const base::Beneath &root, std::string below)
    : root_(root), below_(std::move(below)), before_(root_.status(below_)) {
    if (before_ && S_ISLNK(before_->st_mode))
        text_ = root_.link_target(below_);
    else if (before_ && S_ISREG(before_->st_mode))
        text_ = root_.read(below_);
}

void Remembered::put_back_nothing() const {
    if (root_.is_directory(below_) && !root_.names(below_).empty())
        return;
    root_.remove(below_);
}

void Remembered::put_back_link() const {
    const auto now = root_.status(below_);
    if (!now || !S_ISLNK(now->st_mode) || root_.link_target(below_) != text_)
        root_.make_link(text_, below_);
}

void Remembered::put_back_file() const {
    const auto now = root_.status(below_);
    if (!now || !S_ISREG(now->st_mode) || now->st_size != before_->st_size || root_.read(below_) != text_)
        root_.write(below_, text_, base::attributes_of(*before_));
    else if (now->st_mode != before_->st_mode || now->st_uid != before_->st_uid ||
             now->st_gid != before_->st_gid)
        root_.set_attributes(below_, base::attributes_of(*before_));
}

std::string Remembered::put_back() const try {
    if (!before_)
        put_back_nothing();
    else if (S_ISLNK(before_->st_mode))
        put_back_link();
    else if (S_ISREG(before_->st_mode))
        put_back_file();
    return "";
} catch (const base::BeneathError &failure) {
    return root_.path_of(below_) + " (" + failure.what() + ")";
}

} // namespace hostadm::server
