// SPDX-License-Identifier: MIT
#include "compat/support/debian_program.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "compat/support/file.hpp"

namespace compat {

void DebianProgram::fail_to_run() const {
    if (errno == ENOENT)
        throw Failure(path_ + " is missing; install the package " + package_);
    fail_with_errno("cannot run " + path_);
}

// Where both directories are one, this program would start itself for ever.
void DebianProgram::require_other_than_this() const {
    struct stat ours = {}, theirs = {};
    if (stat("/proc/self/exe", &ours) == 0 && stat(path_.c_str(), &theirs) == 0 &&
        ours.st_dev == theirs.st_dev && ours.st_ino == theirs.st_ino)
        throw Failure(path_ + " is this adapter; put Debian's back: apt-get install --reinstall " + package_);
}

void DebianProgram::take_over(char **argv) const {
    require_other_than_this();
    execv(path_.c_str(), argv);
    fail_to_run();
}

int DebianProgram::run_silently(const std::vector<std::string> &words, const std::string &hint) const {
    require_other_than_this();
    // Not a pipe: a mount that goes on in the background would hold its end.
    const Descriptor said(memfd_create("said", MFD_CLOEXEC));
    if (!said)
        fail_with_errno("cannot keep what mount says");

    std::string name = path_.substr(path_.rfind('/') + 1);
    std::vector<char *> arguments = {name.data()};
    for (const std::string &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, said.get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, said.get(), STDERR_FILENO);
    pid_t child = 0;
    errno = posix_spawn(&child, path_.c_str(), &actions, nullptr, arguments.data(), environ);
    const int error = errno;
    posix_spawn_file_actions_destroy(&actions);
    errno = error;
    if (error != 0)
        fail_to_run();

    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            fail_with_errno("cannot wait for " + path_);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
        return 0;
    if (!hint.empty())
        print_complaint(name.c_str(), hint);
    lseek(said.get(), 0, SEEK_SET);
    const std::string text = read_all(said.get(), "what " + path_ + " said");
    write_all(STDERR_FILENO, text, "standard error");
    if (WIFSIGNALED(status)) {
        print_complaint(name.c_str(), path_ + " was ended by signal " + std::to_string(WTERMSIG(status)));
        return 128 + WTERMSIG(status);
    }
    if (text.empty())
        print_complaint(name.c_str(), path_ + " failed with status " + std::to_string(WEXITSTATUS(status)));
    return WEXITSTATUS(status);
}

} // namespace compat
