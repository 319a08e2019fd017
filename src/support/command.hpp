// SPDX-License-Identifier: MIT
// Shell commands whose output is read.
#pragma once

#include <cstdio>
#include <optional>
#include <string>

#include "base/owners.hpp"

namespace hostadm {

// A running shell command and the stream of its output; closed (and waited for) when the object goes.
class CommandOutput {
public:
    explicit CommandOutput(const std::string &command);
    ~CommandOutput();
    CommandOutput(const CommandOutput &) = delete;
    CommandOutput &operator=(const CommandOutput &) = delete;

    bool started() const { return stream_ != nullptr; }
    // The next piece of output as fgets gives it:
    // a line with its newline, or size - 1 characters of a longer one.
    std::optional<std::string> piece(int size);
    // Output as it comes, into the caller's buffer; less than its size only at the end.
    std::size_t block(char *buffer, std::size_t size) { return std::fread(buffer, 1, size, stream_); }
    // The next line, whole and with its newline (the last one may lack it).
    std::optional<std::string> line();
    // Reads and forgets the rest, so that the command can end.
    void drain();
    // Waits for the command: what pclose returned.
    int close();

private:
    std::FILE *stream_;
    base::Allocated<char> line_;
    std::size_t line_size_ = 0;
};

// How a command that is silent on success fared.
struct Complaint {
    bool started = false;
    std::optional<std::string> first_line; // as read, newline included; absent when the command said nothing
    bool silent() const { return started && !first_line; }
    const char *text() const { return first_line ? first_line->c_str() : ""; }
};

// Runs a command, keeps its first line of output and discards the rest.
// Silence alone is success: the exit status is not looked at.
Complaint first_complaint(const std::string &command);

// Takes back what was done before a later step failed. The command has no output; when it fails, the
// framework is told that something is left half done.
void undo(const std::string &command);

} // namespace hostadm
