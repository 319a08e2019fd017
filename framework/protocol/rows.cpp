// SPDX-License-Identifier: MIT
// The rows of an answer.
#include "hostadm/runner.hpp"

namespace hostadm::framework {

std::vector<Rows::Field> Rows::Row::fields() const {
    std::vector<Field> all;
    for (const Field field : *this)
        all.push_back(field);
    return all;
}

void Rows::add(std::string_view name, std::string_view value) {
    fields_.push_back(text_.size());
    text_.append(name).push_back('\0');
    text_.append(value).push_back('\0');
}

void Rows::drop_last_row() {
    if (first_.back() < fields_.size())
        text_.resize(fields_[first_.back()]);
    fields_.resize(first_.back());
    first_.pop_back();
}

std::size_t Rows::find(std::size_t row, std::string_view name) const {
    for (std::size_t at = first_[row]; at < end_of(row); ++at)
        if (text_.compare(fields_[at], name.size(), name) == 0 && text_[fields_[at] + name.size()] == '\0')
            return at;
    return none;
}

Rows::Field Rows::field(std::size_t number) const {
    const std::string_view name = text_.data() + fields_[number];
    const char *value = name.data() + name.size() + 1;
    const std::size_t next = number + 1 < fields_.size() ? fields_[number + 1] : text_.size();
    return {name, std::string_view(value, text_.data() + next - 1)};
}

char *Rows::writable(std::size_t number) {
    return text_.data() + (field(number).second.data() - text_.data());
}

} // namespace hostadm::framework
