// SPDX-License-Identifier: MIT
// Any bytes as a table, and an entry to add, change and remove. The input's first byte picks the layout of
// the columns; then come the key, the value and, behind a line break each, the table.
//
// What must hold: an edit changes at most one line and leaves all others byte for byte; the same edit again
// changes nothing; what was written is found again; removing what was added gives the old bytes.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "hostadm/table_edit.hpp"
#include "hostadm/tables.h"

namespace {

[[noreturn]] void broken(const char *promise) {
    std::fprintf(stderr, "broken: %s\n", promise);
    std::abort();
}

void require(bool kept, const char *promise) {
    if (!kept)
        broken(promise);
}

// A table in memory's file system, in a folder that goes with the process.
class Table {
public:
    Table() {
        require(mkdtemp(folder_.data()) != nullptr, "a temporary folder");
        path_ = folder_ + "/table";
    }
    ~Table() {
        unlink(path_.c_str());
        rmdir(folder_.c_str());
    }
    const char *path() const { return path_.c_str(); }
    void write(std::string_view text) {
        const int file = open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        require(file >= 0 && ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()),
                "a table");
        close(file);
    }
    std::string read() const {
        std::string text;
        require(hostadm::tables::read_file(path_, text) == 0, "the table can be read");
        return text;
    }

private:
    std::string folder_ = "/dev/shm/hostadm-fuzz-XXXXXX";
    std::string path_;
};

struct Entry {
    unsigned layout;
    std::string key, value;
};

// The columns of an entry: two fields, a name with the rest
// of the line, or a share line with and without description.
col_list *columns(const Entry &entry) {
    const char *key = entry.key.c_str();
    const char *value = entry.value.c_str();
    const bool share = entry.layout % 4 >= 2;
    col_list *list = nullptr;
    require(new_col_list(&list, share ? " \t" : "\t ", share ? nullptr : "#", nullptr) == 0, "a list");
    int status = 0;
    if (!share) {
        status |= new_column(list, 0, 0, 0, key, key, 0);
        status |= new_column(list, 1, 1, 1, nullptr, value, entry.layout % 4 == 1);
    } else {
        const bool described = entry.layout % 4 == 3;
        status |= new_column(list, 0, 0, 0, "share", "share", 0);
        if (described) {
            status |= new_column(list, 1, 1, 5, nullptr, "-d", 0);
            status |= new_column(list, 2, 2, 6, nullptr, value, 0);
        }
        status |= new_column(list, described ? 3 : 1, 1, 7, key, key, 0);
    }
    require(status == 0, "columns");
    return list;
}

// Each line with its line break; so their number and bytes are those of the text.
std::vector<std::string_view> lines_of(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::size_t length = std::min(text.find('\n'), text.size() - 1) + 1;
        lines.push_back(text.substr(0, length));
        text.remove_prefix(length);
    }
    return lines;
}

// How many lines of `after` stand where `before` had other ones,
// when the lines before and behind them are equal.
struct Difference {
    std::size_t gone, come;
};
Difference difference(std::string_view before, std::string_view after) {
    const auto old_lines = lines_of(before), new_lines = lines_of(after);
    std::size_t head = 0, tail = 0;
    const std::size_t shorter = std::min(old_lines.size(), new_lines.size());
    while (head < shorter && old_lines[head] == new_lines[head])
        ++head;
    while (tail < shorter - head &&
           old_lines[old_lines.size() - 1 - tail] == new_lines[new_lines.size() - 1 - tail])
        ++tail;
    return {old_lines.size() - head - tail, new_lines.size() - head - tail};
}

// The text with its last line ended, as an edit ends it before it adds a line behind it.
std::string closed(const std::string &text, std::string_view after) {
    if (text.empty() || text.back() == '\n')
        return text;
    return text + (after.starts_with(text + "\r\n") ? "\r\n" : "\n");
}

void check(Table &table, const std::string &text, const Entry &entry) {
    table.write(text);
    col_list *list = columns(entry);
    std::vector<char> line(text.size() + entry.key.size() + entry.value.size() + 64);
    const auto find = [&] {
        return get_db_entry(table.path(), list, line.data(), static_cast<int>(line.size()));
    };
    const bool was_there = find() != hostadm::tables::no_such_line;

    const int replaced = replace_db_entry(table.path(), list, 3);
    const std::string after = table.read();
    if (replaced != 0) {
        require(after == text, "a refused edit changes nothing");
        free_col_list(list);
        return;
    }
    const std::string base = was_there ? text : closed(text, after);
    const Difference added = difference(base, after);
    if (was_there)
        require(added.gone <= 1 && added.come == added.gone, "one line at most is replaced");
    else
        require(added.gone == 0 && added.come == 1 && after.starts_with(base),
                "one line is added, at the end");
    const int found = find();
    require(found == 0 || (was_there && found == -EILSEQ), "what was written is found");
    require(replace_db_entry(table.path(), list, 3) == 0 && table.read() == after,
            "the same again changes nothing");

    require(remove_db_entry(table.path(), list) == 0, "what was written can be removed");
    const std::string removed = table.read();
    if (was_there) {
        const Difference gone = difference(after, removed);
        require(gone.gone == 1 && gone.come == 0, "one line is removed");
    } else {
        require(removed == base, "removing what was added gives the old bytes");
    }
    free_col_list(list);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static Table table;
    std::string_view input(reinterpret_cast<const char *>(data), size);
    const std::size_t key_end = input.find('\n');
    if (input.empty() || key_end == std::string_view::npos || key_end == 0)
        return 0;
    const std::size_t value_end = input.find('\n', key_end + 1);
    if (value_end == std::string_view::npos)
        return 0;
    const Entry entry{static_cast<unsigned char>(input[0]), std::string(input.substr(1, key_end - 1)),
                      std::string(input.substr(key_end + 1, value_end - key_end - 1))};
    check(table, std::string(input.substr(value_end + 1)), entry);
    return 0;
}
