// SPDX-License-Identifier: MIT
#include "scratch.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace scratch {

namespace fs = std::filesystem;

void write(const std::string &path, const std::string &text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    ASSERT_TRUE(file.good()) << "cannot write " << path;
}

struct stat status(const std::string &path) {
    struct stat info {};
    EXPECT_EQ(lstat(path.c_str(), &info), 0) << path << ": " << std::strerror(errno);
    return info;
}

Test::Test() {
    const char *base = std::getenv("TMPDIR");
    std::string pattern = std::string(base == nullptr ? "/tmp" : base) + "/hostadm-tables-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("cannot make a temporary folder");
    folder_ = pattern;
}

Test::~Test() {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
}

std::string Test::table(const std::string &text, const std::string &name) const {
    write(path(name), text);
    return path(name);
}

std::vector<std::string> Test::names() const {
    std::vector<std::string> result;
    for (const auto &entry : fs::directory_iterator(folder_))
        result.push_back(entry.path().filename());
    std::sort(result.begin(), result.end());
    return result;
}

namespace {

// In a child: `prepare` says why the test cannot run here, `body` what went wrong.
void in_child(const std::function<std::string()> &prepare, const std::function<std::string()> &body) {
    int report[2];
    ASSERT_EQ(pipe(report), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        close(report[0]);
        std::string word = prepare();
        word = word.empty() ? body() : "skip:" + word;
        const ssize_t written = ::write(report[1], word.data(), word.size());
        _exit(written == static_cast<ssize_t>(word.size()) ? 0 : 1);
    }
    close(report[1]);
    std::string word;
    char buffer[512];
    for (ssize_t count; (count = ::read(report[0], buffer, sizeof buffer)) > 0;)
        word.append(buffer, static_cast<std::size_t>(count));
    close(report[0]);
    int outcome = 0;
    ASSERT_EQ(waitpid(child, &outcome, 0), child);
    ASSERT_TRUE(WIFEXITED(outcome) && WEXITSTATUS(outcome) == 0) << "the child died, status " << outcome;
    if (word.starts_with("skip:"))
        GTEST_SKIP() << word.substr(5);
    EXPECT_EQ(word, "");
}

} // namespace

void in_private_mounts(const std::function<std::string()> &body) {
    in_child(
        []() -> std::string {
            if (unshare(CLONE_NEWNS) != 0)
                return std::string("no private mount namespace: ") + std::strerror(errno);
            if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
                return std::string("mounts cannot be made private: ") + std::strerror(errno);
            return "";
        },
        body);
}

void as_ordinary_user(const std::function<std::string()> &body) {
    in_child(
        []() -> std::string {
            constexpr uid_t nobody = 65534;
            if (setgroups(0, nullptr) != 0 || setgid(nobody) != 0 || setuid(nobody) != 0)
                return std::string("cannot become an ordinary user: ") + std::strerror(errno);
            return "";
        },
        body);
}

} // namespace scratch
