// SPDX-License-Identifier: MIT
#include "core/rows.hpp"

namespace hostadm::framework {

std::vector<Rows::Field> Rows::Row::fields() const {
    std::vector<Field> all;
    for (const Field field : *this)
        all.push_back(field);
    return all;
}

void Rows::add(std::string_view name, std::string_view value) {
    Cell cell{text_.size(), text_.size() + name.size() + 1, text_.size() + name.size() + 1 + value.size()};
    text_.append(name).push_back('\0');
    text_.append(value).push_back('\0');
    cells_.push_back(cell);
}

void Rows::drop_last_row() {
    if (first_.back() < cells_.size())
        text_.resize(cells_[first_.back()].name);
    cells_.resize(first_.back());
    first_.pop_back();
}

std::size_t Rows::find(std::size_t row, std::string_view name) const {
    for (std::size_t at = first_[row]; at < end_of(row); ++at)
        if (name_of(cells_[at]) == name)
            return at;
    return none;
}

} // namespace hostadm::framework
