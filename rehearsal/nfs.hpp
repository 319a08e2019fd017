// SPDX-License-Identifier: MIT
// An NFS server's directory, mounted as a client's root user does. Every step has a time limit; a failure is
// thrown as NfsFailure.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace hostadm::rehearsal {

struct NfsFailure : std::runtime_error {
    NfsFailure(int number, const std::string &text) : std::runtime_error(text), error(number) {}
    int error; // errno of the server's answer; ETIMEDOUT when there was none
};

struct NfsFile {
    std::uint32_t mode = 0; // with the type
    std::uint32_t owner = 0;
    std::uint64_t size = 0;
    std::uint64_t device = 0;
};

class NfsDirectory {
public:
    NfsDirectory(const std::string &server, const std::string &path);
    ~NfsDirectory();
    NfsDirectory(NfsDirectory &&) noexcept;
    NfsDirectory &operator=(NfsDirectory &&) noexcept;

    // Where a path leads when the directory is the root: every link in it is followed, none leads out. Nothing
    // when there is no such file.
    std::optional<std::string> resolved(const std::string &path);
    NfsFile look(const std::string &path); // at a path that is resolved
    std::string read(const std::string &path, std::size_t at_most);
    // Makes a new file, writes into it, reads it back, looks at it and removes it.
    NfsFile try_writing(const std::string &path, const std::string &content);
    // Writes to what is there; without a content it is only asked whether that is allowed.
    void write_into(const std::string &path, const std::string &content);
    bool may_write(const std::string &path);

private:
    struct Context;
    std::unique_ptr<Context> context_;
};

} // namespace hostadm::rehearsal
