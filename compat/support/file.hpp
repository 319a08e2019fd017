// SPDX-License-Identifier: MIT
// Files, locks and processes as the adapters need them. Failures are exceptions whose text is for the user.
#pragma once

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace compat {

// What went wrong, worded for the administrator; main prints it after the command's name.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Throws "WHAT: text of errno".
[[noreturn]] void fail_with_errno(const std::string &what);

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor &&other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept;
    ~Descriptor() { reset(); }

    int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }
    int release() { return std::exchange(number_, -1); }
    void reset();

private:
    int number_ = -1;
};

std::string read_all(int descriptor, const std::string &path);
void write_all(int descriptor, std::string_view text, const std::string &path);

// Nothing when there is no such file.
std::optional<std::string> read_file(const std::string &path);

// The new text appears whole or not at all; it is on the disk when this returns. Callers exclude each other
// with a FileLock, so what an interrupted writer left behind is simply written over.
void replace_file(const std::string &path, std::string_view text, mode_t mode = 0644);

void make_directories(const std::string &path);

// Held until the object goes away. Lives in /run, because a lock beside the table would be litter there.
class FileLock {
public:
    // Waits at most `patience`, then throws.
    FileLock(const std::string &path, std::chrono::milliseconds patience);
    // Nothing when another process holds it.
    static std::optional<FileLock> try_take(const std::string &path);
    // Makes it the descriptor with this number, which the programs that this process turns into inherit.
    void hand_over(int number);

private:
    explicit FileLock(Descriptor descriptor) : descriptor_(std::move(descriptor)) {}
    Descriptor descriptor_;
};

// Processes whose short name is `name` and that see the same root directory as this one.
std::vector<pid_t> processes_named(std::string_view name);

struct Outcome {
    int status = 0; // exit status; 128 + signal when killed; 127 when it could not be started
    std::string output;
};
// Runs a program without a shell; standard output and standard error come back together.
Outcome run(const std::vector<std::string> &words);

std::vector<std::string> split(std::string_view text, char separator);

// Runs `body`; a Failure is printed as "NAME: text" on standard error and gives `failed`.
template <typename Body> int guarded_main(const char *name, int failed, Body body);

void print_complaint(const char *name, const std::string &text);

template <typename Body> int guarded_main(const char *name, int failed, Body body) {
    try {
        return body();
    } catch (const std::exception &error) {
        print_complaint(name, error.what());
        return failed;
    }
}

} // namespace compat
