// SPDX-License-Identifier: MIT
// Creates a directory with all its missing parents.
#include <cerrno>
#include <cstring>
#include <sys/stat.h>

#include "hostadm.h"

namespace {

constexpr int already_there = -3;
constexpr int no_parent = -1;
constexpr mode_t directory_mode = 02755;

// 0 or the errno of mkdir. The mode is set a second time because the file-creation mask narrows the first.
int make_directory(const char *path) {
    if (mkdir(path, directory_mode) != 0)
        return errno;
    chmod(path, directory_mode);
    return 0;
}

} // namespace

int mkdir_path(char *path) {
    const int failure = make_directory(path);
    if (failure == EEXIST)
        return already_there;
    if (failure != ENOENT)
        return failure;

    char *slash = std::strrchr(path, '/');
    if (slash == nullptr)
        return no_parent;
    *slash = '\0';
    mkdir_path(path);
    *slash = '/';
    return make_directory(path);
}
