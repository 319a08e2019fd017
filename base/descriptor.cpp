// SPDX-License-Identifier: MIT
#include "base/descriptor.hpp"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

namespace hostadm::base {

MemoryFileText::MemoryFileText(int descriptor) {
    struct stat file {};
    if (fcntl(descriptor, F_ADD_SEALS, F_SEAL_SHRINK) != 0 || fstat(descriptor, &file) != 0) {
        error_ = errno;
        return;
    }
    if (file.st_size == 0)
        return;
    size_ = static_cast<std::size_t>(file.st_size);
    start_ = mmap(nullptr, size_, PROT_READ, MAP_PRIVATE | MAP_POPULATE, descriptor, 0);
    if (start_ == MAP_FAILED) {
        error_ = errno;
        start_ = nullptr;
        size_ = 0;
    }
}

MemoryFileText::~MemoryFileText() {
    if (start_ != nullptr)
        munmap(start_, size_);
}

std::optional<std::string> read_whole(int descriptor) {
    struct stat file {};
    if (fstat(descriptor, &file) != 0)
        return std::nullopt;
    std::string text(static_cast<std::size_t>(file.st_size), '\0');
    std::size_t have = 0;
    while (have < text.size()) {
        const ssize_t got =
            pread(descriptor, text.data() + have, text.size() - have, static_cast<off_t>(have));
        if (got == -1 && errno == EINTR)
            continue;
        if (got == -1)
            return std::nullopt;
        if (got == 0)
            break;
        have += static_cast<std::size_t>(got);
    }
    text.resize(have);
    return text;
}

std::optional<std::string> read_stream(int descriptor) {
    std::string text;
    char piece[65536];
    for (;;) {
        const ssize_t got = read(descriptor, piece, sizeof piece);
        if (got == -1 && errno == EINTR)
            continue;
        if (got == -1)
            return std::nullopt;
        if (got == 0)
            return text;
        text.append(piece, static_cast<std::size_t>(got));
    }
}

bool write_all(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t put = write(descriptor, text.data(), text.size());
        if (put == -1 && errno == EINTR)
            continue;
        if (put == -1)
            return false;
        text.remove_prefix(static_cast<std::size_t>(put));
    }
    return true;
}

} // namespace hostadm::base
