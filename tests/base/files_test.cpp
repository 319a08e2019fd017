// SPDX-License-Identifier: MIT
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/files.hpp"
#include "support/scratch.hpp"

using namespace hostadm::base;
namespace fs = std::filesystem;

namespace {

class Files : public testing::Test {
protected:
    tests::Scratch scratch_;

    std::size_t names() const {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(scratch_.path()), {}));
    }
};

} // namespace

TEST_F(Files, AreReadWhole) {
    const std::string text = std::string(200'000, 'x') + '\0' + "end";
    const FileText read = read_file(scratch_.write("file", text));
    EXPECT_TRUE(read);
    EXPECT_EQ(read.text, text);
}

TEST_F(Files, ThatAreMissingAreToldApartFromThoseThatCannotBeRead) {
    EXPECT_TRUE(read_file(scratch_.path("none")).is_missing());
    EXPECT_TRUE(read_file(scratch_.write("file", "x") + "/below").is_missing());
    EXPECT_EQ(read_file(scratch_.path()).error, EISDIR);
    EXPECT_FALSE(read_file(scratch_.path()).is_missing());
}

TEST_F(Files, BeyondTheLimitAreRefused) {
    const std::string path = scratch_.write("file", "12345");
    EXPECT_EQ(read_file(path, 5).text, "12345");
    EXPECT_EQ(read_file(path, 4).error, EFBIG);
    EXPECT_EQ(read_file(path, 4).text, "");
}

TEST_F(Files, ThatWouldMakeAReaderWaitAreRefused) {
    const std::string fifo = scratch_.path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(read_file(fifo).error, ENOTSUP);
    EXPECT_EQ(read_file("/dev/zero").error, ENOTSUP);
}

TEST_F(Files, OfTheKernelAreReadAlthoughTheyHaveNoSize) {
    EXPECT_NE(file_contents("/proc/self/stat"), "");
}

TEST_F(Files, AreWrittenWithTheirModeAndLeaveNothingElse) {
    const std::string path = scratch_.path("new");
    const mode_t before = umask(077);
    EXPECT_EQ(write_file(path, "one\n", 0640), 0);
    umask(before);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    EXPECT_EQ(write_file(path, "two\n"), 0);
    EXPECT_EQ(file_contents(path), "two\n");
    EXPECT_EQ(names(), 1u);
}

TEST_F(Files, KeepTheirOldTextWhenTheNewOneDoesNotFit) {
    const std::string path = scratch_.write("file", "old");
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{10, 10};
        setrlimit(RLIMIT_FSIZE, &limit);
        _exit(write_file(path, std::string(1000, 'x')) == EFBIG ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(file_contents(path), "old");
    EXPECT_EQ(names(), 1u);
}

TEST_F(Files, CannotBeWrittenWhereThereIsNoFolder) {
    EXPECT_EQ(write_file(scratch_.path("none/file"), "x"), ENOENT);
}
