// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "../support/scratch.hpp"
#include "server/failure.hpp"
#include "server/files.hpp"

namespace {

using namespace hostadm::server;
using testing::HasSubstr;
using testing::ThrowsMessage;
namespace fs = std::filesystem;

const UndoContext context{.method = "test"};

class MadeFiles : public testing::Test {
protected:
    template <typename Entry> Entry last() const {
        const auto entry = read_entry<Entry>(journal_.entries().back());
        EXPECT_TRUE(entry);
        return entry.value_or(Entry{});
    }
    const tests::Scratch scratch_;
    Journal journal_;
};

} // namespace

TEST_F(MadeFiles, AreSparseAndForRootAlone) {
    const std::string path = scratch_.path("swap/c1/swap");
    EXPECT_TRUE(make_sparse_file(path, 1 << 30, journal_));
    struct stat file {};
    ASSERT_EQ(stat(path.c_str(), &file), 0);
    EXPECT_EQ(file.st_size, 1 << 30);
    EXPECT_LT(file.st_blocks, 100);
    EXPECT_EQ(file.st_mode & 07777, 0600u);
    EXPECT_FALSE(make_sparse_file(path, 1, journal_)) << "it is there";
    EXPECT_EQ(fs::file_size(path), 1u << 30);
}

TEST_F(MadeFiles, MayBeSwapAreasOfLinux) {
    const std::string path = scratch_.path("swap/pc1/swap");
    constexpr std::uint64_t size = (1 << 20) + 100; // not whole pages
    EXPECT_TRUE(make_linux_swap_file(path, size, journal_));
    struct stat file {};
    ASSERT_EQ(stat(path.c_str(), &file), 0);
    EXPECT_EQ(file.st_size, static_cast<off_t>(size));
    EXPECT_GE(file.st_blocks * 512, file.st_size) << "Linux refuses one with holes";
    EXPECT_EQ(file.st_mode & 07777, 0600u);
    const std::string header = tests::content(path).substr(0, 4096);
    EXPECT_EQ(header.substr(4086), "SWAPSPACE2");
    EXPECT_EQ(header.substr(1024, 12), std::string("\1\0\0\0\377\0\0\0\0\0\0\0", 12)); // 256 pages
    EXPECT_FALSE(make_linux_swap_file(path, 4096, journal_)) << "it is there";
    EXPECT_EQ(fs::file_size(path), size);
}

TEST_F(MadeFiles, ThatAreSwapAreasSayTheSizeThatTheyHave) {
    const std::string path = scratch_.write("swap", "no swap area" + std::string(8192, '.'));
    const hostadm::base::Descriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC));
    const std::string other = tests::content(path);
    mend_linux_swap_area(file, path, other.size());
    EXPECT_EQ(tests::content(path), other) << "any other file stays as it is";
    make_linux_swap_area(file, path, 1 << 20);
    ASSERT_EQ(ftruncate(file.get(), 1 << 16), 0);
    mend_linux_swap_area(file, path, 1 << 16);
    EXPECT_EQ(tests::content(path).substr(1028, 4), std::string("\17\0\0\0", 4)); // 16 pages
    const std::string labelled = tests::content(path).replace(1052, 4, "swap");
    tests::write(path, labelled);
    mend_linux_swap_area(file, path, 1 << 16);
    EXPECT_EQ(tests::content(path), labelled);
}

TEST_F(MadeFiles, AreTakenBackWithTheirDirectories) {
    make_sparse_file(scratch_.path("swap/c1/swap"), 10, journal_);
    const auto entries = journal_.entries();
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(take_back(*read_entry<MadeFile>(entries[2]), context), "");
    EXPECT_EQ(take_back(*read_entry<MadeDirectory>(entries[1]), context), "");
    EXPECT_EQ(take_back(*read_entry<MadeDirectory>(entries[0]), context), "");
    EXPECT_FALSE(exists(scratch_.path("swap")));
    EXPECT_EQ(take_back(*read_entry<MadeFile>(entries[2]), context), "") << "what is gone is no matter";
}

TEST_F(MadeFiles, StayWhenTheyAreSomebodyElsesByNow) {
    const std::string path = scratch_.path("swap");
    make_sparse_file(path, 10, journal_);
    fs::rename(path, path + ".aside");
    scratch_.write("swap", "another");
    EXPECT_EQ(take_back(last<MadeFile>(), context), "");
    EXPECT_EQ(tests::content(path), "another");
}

TEST_F(MadeFiles, ADirectoryInWhichSomebodyKeepsSomethingStays) {
    make_directories(scratch_.path("a"), journal_);
    scratch_.write("a/kept", "x");
    EXPECT_EQ(take_back(last<MadeDirectory>(), context), "");
    EXPECT_TRUE(exists(scratch_.path("a/kept")));
}

TEST_F(MadeFiles, DirectoriesThatAreThereAreNotNoted) {
    make_directories(scratch_.path("a/b"), journal_);
    make_directories(scratch_.path("a/b/c"), journal_);
    EXPECT_EQ(journal_.entries().size(), 3u);
    scratch_.write("file", "");
    EXPECT_THAT([&] { make_directories(scratch_.path("file/below"), journal_); },
                ThrowsMessage<Failure>(HasSubstr("cannot make " + scratch_.path("file"))));
}

TEST_F(MadeFiles, ATableThatWasMissingGoesAgainWhenItIsEmpty) {
    const std::string table = scratch_.path("table");
    note_new_table(table, journal_);
    scratch_.write("table", "a line\n");
    EXPECT_EQ(take_back(last<NewTable>(), context), "");
    EXPECT_TRUE(exists(table)) << "somebody's line is in it";
    scratch_.write("table", "");
    EXPECT_EQ(take_back(last<NewTable>(), context), "");
    EXPECT_FALSE(exists(table));
}

TEST(FileIdentities, TellFilesOfOneNameApart) {
    const tests::Scratch scratch;
    const std::string path = scratch.write("file", "1");
    const auto first = identity_of(path);
    ASSERT_TRUE(first);
    scratch.write("file", "2");
    EXPECT_EQ(identity_of(path), first) << "its text does not count";
    fs::remove(path);
    EXPECT_FALSE(identity_of(path));
    scratch.write("file", "1");
    EXPECT_NE(identity_of(path), first);
}

TEST(Flushing, NamesWhatCannotBeFlushed) {
    const tests::Scratch scratch;
    EXPECT_NO_THROW(flush_file_systems({scratch.path(), scratch.path()}));
    EXPECT_NO_THROW(flush_file_systems({scratch.path("none/below")}))
        << "what was removed has a folder above it";
    fs::create_symlink("none", scratch.path("link"));
    EXPECT_THAT([&] { flush_file_systems({scratch.path("link")}); },
                ThrowsMessage<Failure>(HasSubstr(scratch.path("link"))));
}
