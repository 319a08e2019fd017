// SPDX-License-Identifier: MIT
// The rows of an answer. A hundred thousand are no rarity, so all their names and values lie in one text,
// each with a NUL behind it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace hostadm::framework {

class Rows {
    // Walks over what a container finds by number.
    template <typename Container> class Iterator {
    public:
        Iterator(const Container &container, std::size_t at) : container_(&container), at_(at) {}
        auto operator*() const { return (*container_)[at_]; }
        Iterator &operator++() {
            ++at_;
            return *this;
        }
        bool operator==(const Iterator &other) const { return at_ == other.at_; }

    private:
        const Container *container_;
        std::size_t at_;
    };

public:
    using Field = std::pair<std::string_view, std::string_view>; // name, value

    // One row, good as long as its rows live and do not grow.
    class Row {
    public:
        Row(const Rows &rows, std::size_t first, std::size_t last)
            : rows_(&rows), first_(first), size_(last - first) {}
        Iterator<Row> begin() const { return {*this, 0}; }
        Iterator<Row> end() const { return {*this, size_}; }
        Field operator[](std::size_t at) const { return rows_->field(first_ + at); }
        std::vector<Field> fields() const;

    private:
        const Rows *rows_;
        std::size_t first_, size_;
    };

    bool empty() const { return first_.empty(); }
    std::size_t size() const { return first_.size(); }
    Iterator<Rows> begin() const { return {*this, 0}; }
    Iterator<Rows> end() const { return {*this, size()}; }
    Row operator[](std::size_t row) const { return {*this, first_[row], end_of(row)}; }

    // So that rows whose lines take so many bytes come without
    // growing pains. What is not needed is not touched.
    void reserve(std::size_t bytes) {
        text_.reserve(bytes);
        fields_.reserve(bytes / 8);
        first_.reserve(bytes / 16);
    }
    // Begins a row; what is added goes into the row that was begun last.
    void begin_row() { first_.push_back(fields_.size()); }
    void add(std::string_view name, std::string_view value);
    void drop_last_row();

    // The number of a row's field, or `none`; by it the field is found again.
    static constexpr std::size_t none = static_cast<std::size_t>(-1);
    std::size_t find(std::size_t row, std::string_view name) const;
    Field field(std::size_t number) const;
    // The value, to be written over in its length.
    char *writable(std::size_t number);

    bool operator==(const Rows &) const = default;

private:
    std::size_t end_of(std::size_t row) const {
        return row + 1 < first_.size() ? first_[row + 1] : fields_.size();
    }

    std::string text_;
    std::vector<std::size_t> fields_; // where each one's name begins; its value follows
    std::vector<std::size_t> first_;  // each row's first field
};

} // namespace hostadm::framework
