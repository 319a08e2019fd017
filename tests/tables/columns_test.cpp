// SPDX-License-Identifier: MIT
// Which line an edit finds, and what it writes: get, replace and remove on tables of the layouts that the
// library has.
#include <cerrno>
#include <gmock/gmock.h>
#include <initializer_list>
#include <string>
#include <utility>

#include "hostadm/tables.h"
#include "scratch.hpp"

namespace {

// A column list of a test, released with it.
class List {
public:
    List(const char *separators, const char *comment, const char *comment_text = nullptr) {
        EXPECT_EQ(new_col_list(&list_, separators, comment, comment_text), 0);
    }
    ~List() { free_col_list(list_); }
    List(List &&other) noexcept : list_(std::exchange(other.list_, nullptr)) {}
    List &operator=(List &&) = delete;

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
        fixed(0, address, nullptr).fixed(1, nullptr, names, 1);
    }
};

constexpr int add = 3;
constexpr int add_share = 11;

constexpr int no_such_line = -2;

class Columns : public scratch::Test {
protected:
    // The table's text after the entry was written to it.
    std::string replaced(const std::string &before, List &&list, int expected = 0) {
        const auto file = table(before);
        EXPECT_EQ(replace_db_entry(file.c_str(), list, add), expected);
        return tests::content(file);
    }
    // ... and after it was removed.
    std::string removed(const std::string &before, List &&list, int expected = 0) {
        const auto file = table(before);
        EXPECT_EQ(remove_db_entry(file.c_str(), list), expected);
        return tests::content(file);
    }
    // The line that is found, or its status as text.
    std::string found(const std::string &text, List &&list, int size = 200) {
        const auto file = table(text);
        std::string buffer(200, 'x');
        const int status = get_db_entry(file.c_str(), list, buffer.data(), size);
        if (status == 0)
            return buffer.c_str();
        EXPECT_EQ(buffer, std::string(200, 'x')) << "the buffer is touched on success only";
        return std::to_string(status);
    }
};

// Mount tables

TEST_F(Columns, MountEntryIsAddedAfterTheLastLine) {
    EXPECT_EQ(
        replaced("# comment\n\n/dev/sda1\t-\t/\text4\t1\tno\t-\n", Mount("server:/export", "/mnt", "rw")),
        "# comment\n\n/dev/sda1\t-\t/\text4\t1\tno\t-\nserver:/export\t-\t/mnt\tnfs\t-\tyes\trw\n");
}

TEST_F(Columns, MountEntryOfTheSameDeviceIsReplacedInPlace) {
    EXPECT_EQ(replaced("#  head\nhost:/a   -  /old nfs - yes ro\n\n  other  -\t/b x\n",
                       Mount("host:/a", "/new", "rw")),
              "#  head\nhost:/a\t-\t/new\tnfs\t-\tyes\trw\n\n  other  -\t/b x\n");
}

TEST_F(Columns, KeyIsComparedAsAWholeAndCaseSensitively) {
    const std::string table =
        "host:/a/b\t-\t/1 nfs - yes rw\nHOST:/a\t-\t/2 nfs - yes rw\n-\thost:/a\t/3 nfs - yes rw\n";
    EXPECT_EQ(replaced(table, Mount("host:/a", "/mnt", "rw")), table + "host:/a\t-\t/mnt\tnfs\t-\tyes\trw\n");
}

TEST_F(Columns, CommentedOutEntryIsNotReplaced) {
    const std::string table = "#host:/x - /mnt nfs - yes rw\n # host:/x - /mnt nfs - yes rw\n";
    EXPECT_EQ(replaced(table, Mount("host:/x", "/mnt", "ro")), table + "host:/x\t-\t/mnt\tnfs\t-\tyes\tro\n");
}

TEST_F(Columns, CommentIsNotMatchedByALaterField) {
    List by_mount_point("\t ", "#");
    by_mount_point.fixed(2, "/mnt", "/mnt");
    EXPECT_EQ(removed("#old - /mnt nfs\n# - /mnt\nnew - /mnt nfs\n", std::move(by_mount_point)),
              "#old - /mnt nfs\n# - /mnt\n");
}

TEST_F(Columns, MountEntryIsRemovedByItsMountPoint) {
    List by_mount_point("\t ", "#");
    by_mount_point.fixed(2, "/mnt", "/mnt");
    EXPECT_EQ(removed("/mnt - /other nfs\nhost:/a - /mnt nfs - yes rw\nhost:/b - /mnt2 nfs\n",
                      std::move(by_mount_point)),
              "/mnt - /other nfs\nhost:/b - /mnt2 nfs\n");
}

TEST_F(Columns, FieldsBehindTheDeclaredOnesGoWithTheReplacedLine) {
    EXPECT_EQ(replaced("host:/a - /mnt nfs - yes rw surplus\n", Mount("host:/a", "/mnt", "rw")),
              "host:/a\t-\t/mnt\tnfs\t-\tyes\trw\n");
}

TEST_F(Columns, OfSeveralEntriesWithOneKeyOnlyTheFirstIsEdited) {
    const std::string table = "swap - /tmp tmpfs - yes -\nswap - /run tmpfs - yes -\n";
    EXPECT_EQ(replaced(table, Mount("swap", "/x", "-")),
              "swap\t-\t/x\tnfs\t-\tyes\t-\nswap - /run tmpfs - yes -\n");
    List key("\t ", "#");
    key.fixed(0, "swap", nullptr);
    EXPECT_EQ(removed(table, std::move(key)), "swap - /run tmpfs - yes -\n");
}

TEST_F(Columns, OfSeveralEntriesWithOneKeyTheFirstIsRead) {
    List key("\t ", "#");
    key.fixed(0, "swap", nullptr);
    EXPECT_EQ(found("x swap\nswap - /tmp\nswap - /run\n", std::move(key)), "swap - /tmp");
}

TEST_F(Columns, ColumnsMayBeDeclaredInAnyOrder) {
    List list("\t ", "#");
    list.fixed(1, nullptr, "two").fixed(2, nullptr, "three").fixed(0, "one", "one");
    EXPECT_EQ(replaced("", std::move(list)), "one\ttwo\tthree\n");
}

TEST_F(Columns, MatchValueIsWrittenWhereThereIsNoValue) {
    List list("\t ", "#");
    list.fixed(0, "one", nullptr).fixed(1, nullptr, "two");
    EXPECT_EQ(replaced("one 1\n", std::move(list)), "one\ttwo\n");
}

TEST_F(Columns, KeyItselfCanBeReplaced) {
    List list("\t ", "#");
    list.fixed(0, "old", "new").fixed(1, nullptr, "value");
    EXPECT_EQ(replaced("old value\nnew 1\n", std::move(list)), "new\tvalue\nnew 1\n");
}

TEST_F(Columns, SeveralMatchValuesMustAllBeEqual) {
    const auto both = [] {
        List list("\t ", "#");
        list.fixed(0, "a", nullptr).fixed(2, "c", nullptr);
        return list;
    };
    EXPECT_EQ(found("a b x\nx b c\na c b\na\na b c d\n", both()), "a b c d");
}

// Share tables

TEST_F(Columns, ShareLineHasItsFieldsSeparatedByBlanks) {
    EXPECT_EQ(replaced("", Share("share", "rw", nullptr, "/export/home")),
              "share -F nfs -o rw /export/home\n");
    EXPECT_EQ(replaced("", Share("share", "ro", "homes", "/export/home")),
              "share -F nfs -o ro -d homes /export/home\n");
}

TEST_F(Columns, ShareIsFoundByItsLastWordWhateverOptionsItHas) {
    for (const char *old :
         {"share -F nfs /export\n", "share -F nfs -o rw /export\n", "share -F nfs -d x /export\n",
          "share\t-F  nfs -o ro,anon=0 -d several words here\t/export \n"}) {
        EXPECT_EQ(replaced(old, Share("share", "ro", nullptr, "/export")), "share -F nfs -o ro /export\n")
            << old;
        EXPECT_EQ(replaced(old, Share("share", "ro", "a b", "/export")),
                  "share -F nfs -o ro -d a b /export\n")
            << old;
        EXPECT_EQ(removed(old, Unshare("/export")), "") << old;
    }
}

TEST_F(Columns, ShareOfAnotherPathTypeOrWordIsLeftAlone) {
    const std::string table =
        "share -F nfs -o rw /export/home\nshare -F ufs -o rw /export\nshare -o rw /export\n"
        "unshare -F nfs /export\nshare -F nfs -d /export /other\nshare -F /export\n";
    EXPECT_EQ(replaced(table, Share("share", "rw", nullptr, "/export")),
              table + "share -F nfs -o rw /export\n");
    EXPECT_EQ(removed(table, Unshare("/export"), no_such_line), table);
}

TEST_F(Columns, PathOfAShareIsNotTakenFromTheFixedFields) {
    EXPECT_EQ(removed("share -F nfs\n", Unshare("nfs"), no_such_line), "share -F nfs\n");
}

TEST_F(Columns, CommentedOutShareMatchesOnlyItsLike) {
    for (const char *description : {static_cast<const char *>(nullptr), "homes"}) {
        const std::string words = description ? " -d homes" : "";
        EXPECT_EQ(replaced("share -F nfs -o rw /x\n# share -F nfs /x\n#share -F nfs -o ro /x\n",
                           Share("#share", "rw", description, "/x")),
                  "share -F nfs -o rw /x\n# share -F nfs /x\n#share -F nfs -o rw" + words + " /x\n");
        EXPECT_EQ(replaced("#share -F nfs -o ro /x\n", Share("share", "rw", description, "/x")),
                  "#share -F nfs -o ro /x\nshare -F nfs -o rw" + words + " /x\n");
    }
    EXPECT_EQ(removed("#share -F nfs -o rw /x\n", Unshare("/x"), no_such_line), "#share -F nfs -o rw /x\n");
}

TEST_F(Columns, CommentMarkWithinAQuotedDescriptionBeginsNoComment) {
    const std::string line = "share -F nfs -o rw -d \"room #5 on /export #6\" /export/home\n";
    EXPECT_EQ(replaced("", Share("share", "rw", "\"room #5 on /export #6\"", "/export/home")), line);
    EXPECT_EQ(removed(line, Unshare("/export"), no_such_line), line);
    EXPECT_EQ(removed(line, Unshare("/export/home")), "");
}

TEST_F(Columns, CommentBehindAShareIsNoneOfItsFieldsAndStays) {
    EXPECT_EQ(replaced("share -F nfs -o rw /export  # was /old\n", Share("share", "ro", nullptr, "/export")),
              "share -F nfs -o ro /export  # was /old\n");
    EXPECT_EQ(removed("share -F nfs -o rw /export  # was /old\n", Unshare("/old"), no_such_line),
              "share -F nfs -o rw /export  # was /old\n");
}

TEST_F(Columns, QuoteLeftOpenBeforeAKeptCommentIsRefused) {
    const std::string table = "share -F nfs -o rw /export # was /old\n";
    EXPECT_EQ(replaced(table, Share("share", "rw", "\"open", "/export"), -EINVAL), table);
}

// Hosts tables

TEST_F(Columns, HostEntryTakesTheRestOfTheLine) {
    EXPECT_EQ(replaced("127.0.0.1\tlocalhost\n10.0.0.5  old alias\n", Host("10.0.0.5", "new other third")),
              "127.0.0.1\tlocalhost\n10.0.0.5\tnew other third\n");
}

TEST_F(Columns, HostEntryWithOneNameReplacesAllNames) {
    EXPECT_EQ(replaced("10.0.0.5 old alias more\n", Host("10.0.0.5", "new")), "10.0.0.5\tnew\n");
}

TEST_F(Columns, CommentBehindAReplacedEntryStays) {
    EXPECT_EQ(replaced("10.0.0.5 old   # printer, bob's room\n", Host("10.0.0.5", "new")),
              "10.0.0.5\tnew   # printer, bob's room\n");
}

TEST_F(Columns, NewCommentReplacesTheOldOne) {
    EXPECT_EQ(replaced("10.0.0.5 old # old words\n", Host("10.0.0.5", "new # new words")),
              "10.0.0.5\tnew # new words\n");
}

TEST_F(Columns, MarkUpToTheLastDeclaredColumnBeginsNoComment) {
    const std::string table = "10.0.0.5 name # alias\n10.0.0.6 # alias\n";
    EXPECT_EQ(found(table, std::move(List("\t ", "#").fixed(2, "alias", nullptr))), "10.0.0.6 # alias");
    EXPECT_EQ(found(table, std::move(List("\t ", "#").fixed(1, "alias", nullptr))), "-2");
    const std::string mounts = "/dev/a #x /mnt ufs 2 yes rw\n";
    EXPECT_EQ(removed(mounts, std::move(List("\t ", "#").fixed(2, "/mnt", nullptr))), "");
    EXPECT_EQ(removed(mounts, std::move(List("\t ", "#").fixed(1, "/mnt", nullptr)), no_such_line), mounts);
}

TEST_F(Columns, MarkBehindTheLastDeclaredColumnBeginsAComment) {
    EXPECT_EQ(replaced("host:/a - /old nfs - yes rw # of the lab\n", Mount("host:/a", "/mnt", "rw")),
              "host:/a\t-\t/mnt\tnfs\t-\tyes\trw # of the lab\n");
}

// Texts of every shape

TEST_F(Columns, EmptyTableGetsItsFirstLine) {
    EXPECT_EQ(replaced("", Host("10.0.0.5", "name")), "10.0.0.5\tname\n");
}

TEST_F(Columns, LastLineWithoutAnEndingGetsOneBeforeALineIsAdded) {
    EXPECT_EQ(replaced("10.0.0.1 a", Host("10.0.0.5", "name")), "10.0.0.1 a\n10.0.0.5\tname\n");
}

TEST_F(Columns, LastLineWithoutAnEndingIsFoundReplacedAndRemoved) {
    EXPECT_EQ(found("10.0.0.1 a\n10.0.0.5 b", Host("10.0.0.5", nullptr)), "10.0.0.5 b");
    EXPECT_EQ(replaced("10.0.0.1 a\n10.0.0.5 b", Host("10.0.0.5", "c")), "10.0.0.1 a\n10.0.0.5\tc\n");
    EXPECT_EQ(removed("10.0.0.1 a\n10.0.0.5 b", Host("10.0.0.5", nullptr)), "10.0.0.1 a\n");
}

TEST_F(Columns, CarriageReturnBelongsToTheLineEnding) {
    const std::string table = "10.0.0.1 a\r\n10.0.0.5 b\r\n";
    EXPECT_EQ(found(table, Host("10.0.0.5", nullptr)), "10.0.0.5 b");
    EXPECT_EQ(replaced(table, Host("10.0.0.1", "c")), "10.0.0.1\tc\r\n10.0.0.5 b\r\n");
    EXPECT_EQ(replaced(table, Host("10.0.0.9", "c")), table + "10.0.0.9\tc\r\n");
    EXPECT_EQ(removed(table, Host("10.0.0.1", nullptr)), "10.0.0.5 b\r\n");
    EXPECT_EQ(replaced("share -F nfs /x\r\n", Share("share", "rw", nullptr, "/x")),
              "share -F nfs -o rw /x\r\n");
}

TEST_F(Columns, NulBytesOfOtherLinesAreKept) {
    const std::string other("a\0b\n\0\0\n", 7);
    EXPECT_EQ(replaced(other + "10.0.0.5 x\n" + other, Host("10.0.0.5", "y")),
              other + "10.0.0.5\ty\n" + other);
}

TEST_F(Columns, FieldWithANulByteEqualsNoShorterValue) {
    const std::string table("10.0.0.5\0x name\n", 16);
    EXPECT_EQ(found(table, Host("10.0.0.5", nullptr)), "-2");
}

TEST_F(Columns, LineWithANulByteIsNotHandedOutCutShort) {
    EXPECT_EQ(found(std::string("10.0.0.5 na\0me\n", 15), Host("10.0.0.5", nullptr)),
              std::to_string(-EILSEQ));
}

TEST_F(Columns, LinesMayBeOfAnyLength) {
    const std::string longest(3'000'000, 'y');
    const std::string table = "10.0.0.4 " + longest + "\n10.0.0.5 x\n";
    EXPECT_EQ(replaced(table, Host("10.0.0.5", longest.c_str())),
              "10.0.0.4 " + longest + "\n10.0.0.5\t" + longest + "\n");
    EXPECT_EQ(removed(table, Host("10.0.0.4", nullptr)), "10.0.0.5 x\n");
}

TEST_F(Columns, TablesMayHaveManyLines) {
    std::string before, after;
    for (int number = 0; number < 120'000; ++number)
        before += "10." + std::to_string(number / 250) + ".0." + std::to_string(number % 250) + " host\n";
    after = before;
    const std::string last = "10.479.0.249 host\n";
    ASSERT_TRUE(after.ends_with(last));
    after.replace(after.size() - last.size(), last.size(), "10.479.0.249\tother\n");
    EXPECT_EQ(replaced(before, Host("10.479.0.249", "other")), after);
}

TEST_F(Columns, BlankLinesAndSeparatorsAtTheBeginningOfALineAreSkippedOver) {
    EXPECT_EQ(found("\n \t \n  10.0.0.5\t a  \n", Host("10.0.0.5", nullptr)), "  10.0.0.5\t a  ");
}

// What is not there

TEST_F(Columns, EntryThatIsNotThereIsNoSuchLine) {
    EXPECT_EQ(found("10.0.0.1 a\n", Host("10.0.0.5", nullptr)), "-2");
    EXPECT_EQ(found("", Host("10.0.0.5", nullptr)), "-2");
    EXPECT_EQ(removed("10.0.0.1 a\n", Host("10.0.0.5", nullptr), no_such_line), "10.0.0.1 a\n");
}

TEST_F(Columns, EmptyMatchValueFindsNothing) {
    EXPECT_EQ(found("a\n\n \n", Host("", nullptr)), "-2");
    EXPECT_EQ(removed("a\n\n \n", Host("", nullptr), no_such_line), "a\n\n \n");
}

TEST_F(Columns, TableThatIsNotThereHasNoSuchLine) {
    char buffer[10];
    EXPECT_EQ(get_db_entry(path().c_str(), Host("10.0.0.5", nullptr), buffer, sizeof buffer), no_such_line);
    EXPECT_EQ(remove_db_entry(path().c_str(), Host("10.0.0.5", nullptr)), no_such_line);
    EXPECT_THAT(names(), testing::IsEmpty());
}

TEST_F(Columns, TableThatIsNotThereIsMadeForItsFirstEntry) {
    const mode_t mask = umask(0077);
    EXPECT_EQ(replace_db_entry(path().c_str(), Host("10.0.0.5", "name"), add), 0);
    umask(mask);
    EXPECT_EQ(tests::content(path()), "10.0.0.5\tname\n");
    EXPECT_EQ(scratch::status(path()).st_mode, S_IFREG | 0644u);
}

TEST_F(Columns, FolderOfATableIsMadeWithIt) {
    const mode_t mask = umask(0077);
    EXPECT_EQ(replace_db_entry(path("dfs/dfstab").c_str(), Share("share", "rw", nullptr, "/x"), add_share),
              0);
    umask(mask);
    EXPECT_EQ(tests::content(path("dfs/dfstab")), "share -F nfs -o rw /x\n");
    EXPECT_EQ(scratch::status(path("dfs")).st_mode, S_IFDIR | 0755u);
}

TEST_F(Columns, FolderOfAFolderIsNotMade) {
    EXPECT_EQ(replace_db_entry(path("no/such/table").c_str(), Host("10.0.0.5", "name"), add), -ENOENT);
    EXPECT_THAT(names(), testing::IsEmpty());
}

// Buffers of get_db_entry

TEST_F(Columns, LineFitsABufferOfItsLengthAndOneMore) {
    EXPECT_EQ(found("10.0.0.5 name\n", Host("10.0.0.5", nullptr), 14), "10.0.0.5 name");
    EXPECT_EQ(found("10.0.0.5 name\n", Host("10.0.0.5", nullptr), 13), std::to_string(-ERANGE));
    EXPECT_EQ(found("10.0.0.5 name\n", Host("10.0.0.5", nullptr), 1), std::to_string(-ERANGE));
    EXPECT_EQ(found("10.0.0.5 name\n", Host("10.0.0.5", nullptr), 0), std::to_string(-EINVAL));
    EXPECT_EQ(found("10.0.0.5 name\n", Host("10.0.0.5", nullptr), -1), std::to_string(-EINVAL));
}

// Values that would not read back

class RefusedValue : public Columns, public testing::WithParamInterface<const char *> {};

TEST_P(RefusedValue, WritesNothing) {
    const std::string before = "host:/a - /mnt nfs - yes rw\n";
    EXPECT_EQ(replaced(before, Mount("host:/a", GetParam(), "rw"), -EINVAL), before) << "as a field";
    EXPECT_EQ(replaced(before, Mount("host:/a", "/mnt", GetParam()), -EINVAL), before) << "as the last field";
    EXPECT_EQ(replaced(before, Mount(GetParam(), "/mnt", "rw"), -EINVAL), before) << "as the key";
    EXPECT_EQ(replaced(before, Share("share", "rw", nullptr, GetParam()), -EINVAL), before) << "as a path";
}

INSTANTIATE_TEST_SUITE_P(Columns, RefusedValue,
                         testing::Values("", " ", "\t", "a b", "a\tb", " a", "a ", "a\nb", "a\n", "\n", "a\r",
                                         "\r", "a\rb"));

TEST_F(Columns, ValueThatReadsAsACommentIsRefused) {
    EXPECT_EQ(replaced("", Mount("#host:/a", "/mnt", "#rw")), "#host:/a\t-\t/mnt\tnfs\t-\tyes\t#rw\n")
        << "a key that begins with the mark matches its like; a later field may begin with it";
    EXPECT_EQ(replaced("", Share("share", "rw", "room #5 right", "/x"), -EINVAL), "");
    List list("\t ", "#");
    list.fixed(0, "name", "#name").fixed(1, nullptr, "value");
    EXPECT_EQ(replaced("name value\n", std::move(list), -EINVAL), "name value\n");
}

TEST_F(Columns, RestOfTheLineMustHoldAField) {
    for (const char *rest : {"", " ", "# only words", "a\nb"})
        EXPECT_EQ(replaced("10.0.0.5 x\n", Host("10.0.0.5", rest), -EINVAL), "10.0.0.5 x\n") << rest;
}

TEST_F(Columns, DescriptionMustHoldAWord) {
    for (const char *description : {"", "  ", "a\nb"})
        EXPECT_EQ(replaced("", Share("share", "rw", description, "/x"), -EINVAL), "") << description;
}

TEST_F(Columns, TableWithoutCommentsHasNone) {
    List list("\t ", "");
    list.fixed(0, "#a", "#a").fixed(1, nullptr, "#b");
    EXPECT_EQ(replaced("x y\n#a 1\n", std::move(list)), "x y\n#a\t#b\n");
}

TEST_F(Columns, CommentMarkMayHaveSeveralCharacters) {
    List list("\t ", "//");
    list.fixed(0, "a", "a").fixed(1, nullptr, "b");
    EXPECT_EQ(replaced("//a 1\n/ 2\na 3 // kept\n", std::move(list)), "//a 1\n/ 2\na\tb // kept\n");
}

// Lists and arguments

TEST_F(Columns, ReplacingNeedsPositionsWithoutGaps) {
    List gap("\t ", "#");
    gap.fixed(0, "a", "a").fixed(2, nullptr, "c");
    EXPECT_EQ(replaced("a b d\n", std::move(gap), -EINVAL), "a b d\n");
}

TEST_F(Columns, ReplacingNeedsAValueForEachColumn) {
    List list("\t ", "#");
    list.fixed(0, "a", "a").fixed(1, nullptr, nullptr);
    EXPECT_EQ(replaced("a b\n", std::move(list), -EINVAL), "a b\n");
}

TEST_F(Columns, OnlyTheLastColumnMayTakeTheRest) {
    List list("\t ", "#");
    list.fixed(0, "a", "a").fixed(1, nullptr, "b c", 1).fixed(2, nullptr, "d");
    EXPECT_EQ(replaced("", std::move(list), -EINVAL), "");
}

TEST_F(Columns, EditWithoutAKeyIsRefused) {
    const auto keyless = [] {
        List list("\t ", "#");
        list.fixed(0, nullptr, "a");
        return list;
    };
    EXPECT_EQ(replaced("a\n", keyless(), -EINVAL), "a\n");
    EXPECT_EQ(removed("a\n", keyless(), -EINVAL), "a\n");
    EXPECT_EQ(removed("a\n", List("\t ", "#"), -EINVAL), "a\n");
    EXPECT_EQ(replaced("a\n", List("\t ", "#"), -EINVAL), "a\n");
    EXPECT_EQ(found("a\n", keyless()), std::to_string(-EINVAL));
}

TEST_F(Columns, PositionsAreDeclaredOnceAndNotNegative) {
    List list("\t ", "#");
    list.fixed(0, "a", "a");
    EXPECT_EQ(new_column(list, 0, 0, 0, "b", "b", 0), -EINVAL);
    EXPECT_EQ(new_column(list, -1, -1, -1, "b", "b", 0), -EINVAL);
    EXPECT_EQ(replaced("b\n", std::move(list)), "b\na\n");
}

TEST_F(Columns, NullArgumentsAreRefused) {
    const auto file = table("a b\n");
    char buffer[10];
    col_list *list = nullptr;
    EXPECT_EQ(new_col_list(nullptr, "\t ", "#", nullptr), -EINVAL);
    EXPECT_EQ(new_col_list(&list, nullptr, "#", nullptr), -EINVAL);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(new_column(nullptr, 0, 0, 0, "a", "a", 0), -EINVAL);
    EXPECT_EQ(get_db_entry(nullptr, Host("a", "b"), buffer, sizeof buffer), -EINVAL);
    EXPECT_EQ(get_db_entry(file.c_str(), nullptr, buffer, sizeof buffer), -EINVAL);
    EXPECT_EQ(get_db_entry(file.c_str(), Host("a", "b"), nullptr, 10), -EINVAL);
    EXPECT_EQ(replace_db_entry(nullptr, Host("a", "b"), add), -EINVAL);
    EXPECT_EQ(replace_db_entry(file.c_str(), nullptr, add), -EINVAL);
    EXPECT_EQ(remove_db_entry(nullptr, Host("a", "b")), -EINVAL);
    EXPECT_EQ(remove_db_entry(file.c_str(), nullptr), -EINVAL);
    EXPECT_EQ(replace_db_entry("", Host("a", "b"), add), -EINVAL);
    EXPECT_EQ(remove_db_entry("", Host("a", "b")), -EINVAL);
    free_col_list(nullptr);
}

TEST_F(Columns, SeparatorsMustSeparateFieldsNotLines) {
    col_list *list = nullptr;
    for (const char *separators : {"", "\n", " \n", "\r"})
        EXPECT_EQ(new_col_list(&list, separators, "#", nullptr), -EINVAL);
}

TEST_F(Columns, UnknownModesAreRefused) {
    const auto file = table("a b\n");
    for (const int mode : {-1, 0, 1, 2, 4, 8, 12})
        EXPECT_EQ(replace_db_entry(file.c_str(), Host("a", "c"), mode), -EINVAL) << mode;
    EXPECT_EQ(tests::content(file), "a b\n");
}

TEST_F(Columns, ListServesSeveralEdits) {
    Host list("10.0.0.5", "name");
    const auto one = table("", "one"), other = table("10.0.0.5 x\n", "other");
    EXPECT_EQ(replace_db_entry(one.c_str(), list, add), 0);
    EXPECT_EQ(replace_db_entry(other.c_str(), list, add), 0);
    EXPECT_EQ(tests::content(one), tests::content(other));
    EXPECT_EQ(remove_db_entry(one.c_str(), list), 0);
    EXPECT_EQ(tests::content(one), "");
}

TEST_F(Columns, DescriptionGivenWithTheListIsNotWritten) {
    List list("\t ", "#", "some words");
    list.fixed(0, "a", "a").fixed(1, nullptr, "b");
    EXPECT_EQ(replaced("", std::move(list)), "a\tb\n");
}

} // namespace
