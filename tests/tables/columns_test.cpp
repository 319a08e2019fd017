// SPDX-License-Identifier: MIT
// Which line an edit finds, and what it writes: get, replace and remove on tables of the layouts that the
// library has.
#include "hostadm/tables.h"

#include <cerrno>
#include <initializer_list>
#include <optional>

#include "scratch.hpp"

namespace {

// A column list of a test, released with it.
class List {
public:
    List(const char *separators, const char *comment, const char *comment_text = nullptr) {
        EXPECT_EQ(new_col_list(&list_, separators, comment, comment_text), 0);
    }
    ~List() { free_col_list(list_); }
    List(const List &) = delete;
    List &operator=(const List &) = delete;

    List &fixed(int position, const char *match, const char *value, int flag = 0) {
        EXPECT_EQ(new_column(list_, position, position, position, match, value, flag), 0);
        return *this;
    }
    List &floating(int position, int a, int b, const char *match, const char *value) {
        EXPECT_EQ(new_column(list_, position, a, b, match, value, 0), 0);
        return *this;
    }
    operator col_list *() { return list_; }

private:
    col_list *list_ = nullptr;
};

// The seven columns of a mount table entry.
class Mount : public List {
public:
    Mount(const char *resource, const char *mountpt, const char *options) : List("\t ", "#") {
        fixed(0, resource, resource)
            .fixed(1, nullptr, "-")
            .fixed(2, nullptr, mountpt)
            .fixed(3, nullptr, "nfs");
        fixed(4, nullptr, "-").fixed(5, nullptr, "yes").fixed(6, nullptr, options);
    }
};

// The columns of a share line as they are declared for writing it.
class Share : public List {
public:
    Share(const char *word, const char *options, const char *description, const char *path)
        : List(" \t", description ? "#" : nullptr, description) {
        fixed(0, word, word).fixed(1, "-F", "-F").fixed(2, "nfs", "nfs");
        int next = 3;
        floating(next++, 1, 3, nullptr, "-o");
        floating(next++, 2, 4, nullptr, options);
        if (description != nullptr) {
            floating(next++, 1, 5, nullptr, "-d");
            floating(next++, 2, 6, nullptr, description);
        }
        floating(next, 1, 7, path, path);
    }
};

// ... and for removing it.
class Unshare : public List {
public:
    explicit Unshare(const char *path) : List(" \t", nullptr) {
        fixed(0, "share", nullptr).fixed(1, "-F", nullptr).fixed(2, "nfs", "nfs");
        floating(3, 1, 7, path, nullptr);
    }
};

// The two columns of a hosts entry.
class Host : public List {
public:
    Host(const char *address, const char *names) : List("\t ", "#") {
        fixed(0, address, address).fixed(1, nullptr, names, 1);
    }
};

constexpr int add = 3;
constexpr int add_share = 11;

class Columns : public scratch::Test {};

TEST_F(Columns, MountEntryIsAddedAfterTheLastLine) {
    const auto file = table("# comment\n\n/dev/sda1\t-\t/\text4\t1\tno\t-\n");
    EXPECT_EQ(replace_db_entry(file.c_str(), Mount("server:/export", "/mnt", "rw"), add), 0);
    EXPECT_EQ(scratch::read(file),
              "# comment\n\n/dev/sda1\t-\t/\text4\t1\tno\t-\nserver:/export\t-\t/mnt\tnfs\t-\tyes\trw\n");
}

TEST_F(Columns, ShareLineMatchesItsLastWord) {
    const auto file = table("share -F nfs -o rw -d all the homes /export/home\nshare -F nfs -o rw /export\n");
    EXPECT_EQ(replace_db_entry(file.c_str(), Share("share", "ro", nullptr, "/export/home"), add_share), 0);
    EXPECT_EQ(scratch::read(file), "share -F nfs -o ro /export/home\nshare -F nfs -o rw /export\n");
    EXPECT_EQ(remove_db_entry(file.c_str(), Unshare("/export")), 0);
    EXPECT_EQ(scratch::read(file), "share -F nfs -o ro /export/home\n");
}

TEST_F(Columns, HostEntryTakesTheRestOfTheLine) {
    const auto file = table("127.0.0.1\tlocalhost\n10.0.0.5  old alias   # printer room\n");
    EXPECT_EQ(replace_db_entry(file.c_str(), Host("10.0.0.5", "new other"), add), 0);
    EXPECT_EQ(scratch::read(file), "127.0.0.1\tlocalhost\n10.0.0.5\tnew other   # printer room\n");
}

} // namespace
