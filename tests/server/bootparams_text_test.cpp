// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <vector>

#include "server/bootparams_text.hpp"
#include "server/failure.hpp"

namespace {

using namespace hostadm::server;

std::string listed(const std::string &file) {
    std::string text;
    for (const auto &[name, items] : clients_in(file))
        text += "<" + name + "|" + items + ">";
    return text;
}

// The file after an edit that must say `changed`; the same edit again must change nothing.
template <typename Edit> std::string after(std::string file, bool changed, const Edit &edit) {
    const std::string before = file;
    EXPECT_EQ(edit(file), changed);
    if (!changed) {
        EXPECT_EQ(file, before);
    }
    std::string again = file;
    EXPECT_FALSE(edit(again));
    EXPECT_EQ(again, file);
    return file;
}

std::string set(const std::string &file, const std::string &client, const std::vector<BootparamsItem> &items,
                bool changed = true) {
    return after(file, changed, [&](std::string &text) { return set_items(text, client, items); });
}
std::string without_items(const std::string &file, const std::string &client,
                          const std::vector<std::string> &keys, bool changed = true) {
    return after(file, changed, [&](std::string &text) { return remove_items(text, client, keys); });
}
std::string without_client(const std::string &file, const std::string &client, bool changed = true) {
    return after(file, changed, [&](std::string &text) { return remove_client(text, client); });
}

const std::vector<BootparamsItem> root_item = {{"root", "srv", "/r"}};

// ---- reading ----

TEST(BootparamsFile, ListsNamesAndItems) {
    EXPECT_EQ(listed("c1 root=a:/r swap=a:/s\nc2\tboottype=:in  \n"),
              "<c1|root=a:/r swap=a:/s><c2|boottype=:in>");
    EXPECT_EQ(listed("c1"), "<c1|>");
    EXPECT_EQ(listed(""), "");
}

TEST(BootparamsFile, PassesOverCommentsAndBlankLines) {
    EXPECT_EQ(listed("# c0 root=a:/r\n\n   \n \t# more\nc1 root=a:/r # old: swap=a:/s\n#"), "<c1|root=a:/r>");
}

TEST(BootparamsFile, HashInsideAWordIsNoComment) {
    EXPECT_EQ(listed("c1 root=a:/r#1 swap=#x\n"), "<c1|root=a:/r#1 swap=#x>");
}

TEST(BootparamsFile, JoinsContinuedLinesWithABlank) {
    EXPECT_EQ(listed("c1 root=a:/r \\\n\t swap=a:/s\\\ndump=a:/d\nc2 root=b:/r\n"),
              "<c1|root=a:/r swap=a:/s dump=a:/d><c2|root=b:/r>");
}

TEST(BootparamsFile, CommentIsNeverContinued) {
    EXPECT_EQ(listed("# comment \\\nc1 root=a:/r # more \\\nc2 root=b:/r\n"), "<c1|root=a:/r><c2|root=b:/r>");
}

TEST(BootparamsFile, BackslashAtTheEndOfTheFileContinuesNothing) {
    EXPECT_EQ(listed("c1 root=a:/r \\\n"), "<c1|root=a:/r>");
    EXPECT_EQ(listed("c1 root=a:/r \\"), "<c1|root=a:/r>");
    EXPECT_EQ(listed("\\\n\\\n"), "");
}

TEST(BootparamsFile, BlankLineEndsAContinuedEntry) {
    EXPECT_EQ(listed("c1 root=a:/r \\\n\nc2 root=b:/r\n"), "<c1|root=a:/r><c2|root=b:/r>");
}

TEST(BootparamsFile, CarriageReturnsAreBlanks) {
    EXPECT_EQ(listed("c1 root=a:/r\r\nc2 root=b:/r \\\r\n swap=b:/s\r\n"),
              "<c1|root=a:/r><c2|root=b:/r swap=b:/s>");
}

TEST(BootparamsFile, KeepsEveryEntryOfAName) {
    EXPECT_EQ(listed("c1 root=a:/r\nc1 root=b:/r\n"), "<c1|root=a:/r><c1|root=b:/r>");
}

TEST(BootparamsFile, LinesOfTheNameServiceSwitchAreNoClients) {
    EXPECT_EQ(listed("+\n+@group\n-c3\n* boottype=:in\n"), "<*|boottype=:in>");
}

// ---- setting ----

TEST(BootparamsFile, AddsAClientAtTheEnd) {
    EXPECT_EQ(set("", "c1", root_item), "c1 root=srv:/r\n");
    EXPECT_EQ(set("# head\nc0 root=a:/r\n", "c1", {{"root", "srv", "/r"}, {"swapsize", "", "24"}}),
              "# head\nc0 root=a:/r\nc1 root=srv:/r swapsize=:24\n");
}

TEST(BootparamsFile, ClosesTheLastLineFirst) {
    EXPECT_EQ(set("c0 root=a:/r", "c1", root_item), "c0 root=a:/r\nc1 root=srv:/r\n");
    EXPECT_EQ(set("c0 root=a:/r \\\n", "c1", root_item), "c0 root=a:/r \\\n\nc1 root=srv:/r\n");
    EXPECT_EQ(set("c0 root=a:/r \\", "c1", root_item), "c0 root=a:/r \\\n\nc1 root=srv:/r\n");
    EXPECT_EQ(set("\\", "c1", root_item), "\\\n\nc1 root=srv:/r\n");
    EXPECT_EQ(set("# note \\", "c1", root_item), "# note \\\nc1 root=srv:/r\n");
}

TEST(BootparamsFile, ReplacesAnItemInItsPlace) {
    EXPECT_EQ(set("c0 root=x:/y\nc1 root=a:/q swap=a:/s\nc2 root=z:/z\n", "c1", root_item),
              "c0 root=x:/y\nc1 root=srv:/r swap=a:/s\nc2 root=z:/z\n");
}

TEST(BootparamsFile, AddsAnItemToAnEntry) {
    EXPECT_EQ(set("c1 swap=a:/s  # note\n", "c1", root_item), "c1 swap=a:/s root=srv:/r  # note\n");
    EXPECT_EQ(set("c1\n", "c1", root_item), "c1 root=srv:/r\n");
    EXPECT_EQ(set("c1", "c1", root_item), "c1 root=srv:/r");
}

TEST(BootparamsFile, SameValueAgainChangesNothing) {
    set("c1\troot=srv:/r\t\tswap=a:/s # note\n", "c1", root_item, false);
    set("c1 \\\n root=srv:/r \\\n swap=a:/s\n", "c1", root_item, false);
}

TEST(BootparamsFile, ChangedEntryBecomesOneLine) {
    EXPECT_EQ(set("# head\nc1 root=a:/q \\\n\tswap=a:/s \\\n\tdump=a:/d # note\nc2\n", "c1", root_item),
              "# head\nc1 root=srv:/r swap=a:/s dump=a:/d # note\nc2\n");
}

TEST(BootparamsFile, LineEndingsStay) {
    EXPECT_EQ(set("c0\r\nc1 root=a:/q\r\nc2\r\n", "c1", root_item), "c0\r\nc1 root=srv:/r\r\nc2\r\n");
}

TEST(BootparamsFile, LineEndingStaysBehindABackslashThatContinuesNothing) {
    EXPECT_EQ(set("c1 root=a:/q \\\n", "c1", root_item), "c1 root=srv:/r\n");
    EXPECT_EQ(set("c1 root=a:/q \\\r\n", "c1", root_item), "c1 root=srv:/r\r\n");
    EXPECT_EQ(set("c1 root=a:/q \\", "c1", root_item), "c1 root=srv:/r");
    EXPECT_EQ(set("c1 swap=a:/s \\\n\nc2\n", "c1", root_item), "c1 swap=a:/s root=srv:/r\nc2\n");
}

TEST(BootparamsFile, KeyThatEndsAnotherKeyIsApart) {
    EXPECT_EQ(set("c1 swapsize=16\n", "c1", {{"size", "", "24"}}), "c1 swapsize=16 size=:24\n");
    EXPECT_EQ(set("c1 myroot=a:/r\n", "c1", root_item), "c1 myroot=a:/r root=srv:/r\n");
}

TEST(BootparamsFile, FirstEntryOfANameIsEdited) {
    EXPECT_EQ(set("c1 root=a:/1\nc1 root=a:/2\n", "c1", root_item), "c1 root=srv:/r\nc1 root=a:/2\n");
}

TEST(BootparamsFile, NamesMustBeEqual) {
    EXPECT_EQ(set("c10 root=a:/q\nC1 root=a:/q\n", "c1", root_item),
              "c10 root=a:/q\nC1 root=a:/q\nc1 root=srv:/r\n");
}

TEST(BootparamsFile, SeveralItemsAtOnce) {
    EXPECT_EQ(set("c1 swap=a:/s dump=a:/d\n", "c1", {{"dump", "b", "/e"}, {"root", "srv", "/r"}}),
              "c1 swap=a:/s dump=b:/e root=srv:/r\n");
}

TEST(BootparamsFile, EntryWithANulIsRefused) {
    std::string file("c1 root=a:/r\0x swap=a:/s\n", 25);
    EXPECT_THROW(set_items(file, "c1", root_item), Failure);
    EXPECT_THROW(remove_items(file, "c1", {"root"}), Failure);
    EXPECT_EQ(file.size(), 25u);
    EXPECT_TRUE(set_items(file, "c2", root_item));
}

// ---- removing ----

TEST(BootparamsFile, RemovesAnItem) {
    EXPECT_EQ(without_items("c0\nc1 root=a:/r swap=a:/s # note\nc2\n", "c1", {"root"}),
              "c0\nc1 swap=a:/s # note\nc2\n");
    EXPECT_EQ(without_items("c1 root=a:/r swap=a:/s\n", "c1", {"swap"}), "c1 root=a:/r\n");
    EXPECT_EQ(without_items("c1 root=a:/r swap=a:/s dump=a:/d\n", "c1", {"swap", "root"}), "c1 dump=a:/d\n");
}

TEST(BootparamsFile, RemovesARepeatedItemAltogether) {
    EXPECT_EQ(without_items("c1 root=a:/r swap=a:/s root=b:/r\n", "c1", {"root"}), "c1 swap=a:/s\n");
}

TEST(BootparamsFile, LastItemTakesTheEntryAlong) {
    EXPECT_EQ(without_items("c0\nc1 root=a:/r # note\nc2\n", "c1", {"root"}), "c0\nc2\n");
    EXPECT_EQ(without_items("c1 \\\n root=a:/r\n", "c1", {"root"}), "");
}

TEST(BootparamsFile, NothingToRemove) {
    without_items("c1 swapsize=16 myroot=a:/r\n", "c1", {"root", "size"}, false);
    without_items("c1 root=a:/r\n", "c2", {"root"}, false);
    without_items("c1\n", "c1", {"root"}, false);
    without_client("c1 root=a:/r\n# c2\n", "c2", false);
    without_client("", "c1", false);
}

TEST(BootparamsFile, RemovesEveryEntryOfAClient) {
    EXPECT_EQ(without_client("# head\nc1 root=a:/r \\\n swap=a:/s\n\nc2 root=b:/r\nc1\n", "c1"),
              "# head\n\nc2 root=b:/r\n");
    EXPECT_EQ(without_client("c0\nc1 root=a:/r\nc2 root=b:/r # note", "c1"), "c0\nc2 root=b:/r # note");
    EXPECT_EQ(without_client("c1 root=a:/r", "c1"), "");
}

// ---- items as an administrator writes them ----

std::string read(std::string_view text) {
    const auto parsed = parse_items(text);
    if (const auto *defect = std::get_if<std::string>(&parsed))
        return *defect;
    std::string all;
    for (const auto &[key, server, path] : std::get<std::vector<BootparamsItem>>(parsed))
        all += "<" + key + "|" + server + "|" + path + ">";
    return all;
}

TEST(BootparamsFile, ReadsItems) {
    EXPECT_EQ(read(" root=srv:/x  swap=srv:/y\tswapsize=24 boottype=:in "),
              "<root|srv|/x><swap|srv|/y><swapsize||24><boottype||in>");
    EXPECT_EQ(read(""), "");
    EXPECT_EQ(read("root=srv:"), "<root|srv|>");
    EXPECT_EQ(read("ns=srv:nis(255.255.255.0) rootopts=:vers=2,rsize=8192"),
              "<ns|srv|nis(255.255.255.0)><rootopts||vers=2,rsize=8192>");
    EXPECT_EQ(read("root=srv:/export/..x/x../\xc3\xbc"), "<root|srv|/export/..x/x../\xc3\xbc>");
}

TEST(BootparamsFile, RefusesPathsThatTheShellTakesApart) {
    for (const char c : std::string("\"'`$\\|&;()<>*?[]{}!#~^\x7f\x01"))
        EXPECT_NE(read(std::string("root=srv:/a") + c + "b").find("the path of root must not hold"),
                  std::string::npos)
            << c;
    for (const char *path : {"/..", "/../etc", "/export/../etc", "/export/.."})
        EXPECT_EQ(read(std::string("root=srv:") + path), "the path of root must not hold \"..\"");
}

TEST(BootparamsFile, RefusesWhatIsNoItem) {
    EXPECT_NE(read("root").find("root is no item"), std::string::npos);
    EXPECT_NE(read("=x:/y").find("the key"), std::string::npos);
    EXPECT_NE(read("ro:ot=x").find("the key"), std::string::npos);
    EXPECT_NE(read("root=").find("database/remove_bootparams"), std::string::npos);
    EXPECT_NE(read("root=:").find("database/remove_bootparams"), std::string::npos);
    EXPECT_NE(read("root=s/v:/x").find("host name"), std::string::npos);
    EXPECT_NE(read("root=srv:/a:b").find("colons"), std::string::npos);
    EXPECT_NE(read("root=srv:/a\\").find("backslashes"), std::string::npos);
    EXPECT_NE(read("root=a:/x root=b:/y").find("twice"), std::string::npos);
}

} // namespace
