// SPDX-License-Identifier: MIT
// Runs a shell command for a method and reports what the command said.
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "hostadm.h"
#include "support/boundary.hpp"
#include "support/command.hpp"
#include "support/error.hpp"

namespace {

constexpr int not_started = 91;
constexpr int command_said = 92;

// A line of output, or 511 characters of a longer one, with the NUL behind them.
constexpr int piece_size = 512;

// What a command printed. The text grows where it lies (realloc moves large blocks by their pages), so that
// even an enormous output is never held twice.
class CollectedOutput {
public:
    // A place behind the text for one piece; NULL when memory is out.
    char *room() {
        if (capacity_ - length_ < piece_size && !grow())
            return nullptr;
        return text_.get() + length_;
    }
    // Keeps the piece written there, without its leading blanks. It ends at its first NUL.
    void keep_piece() {
        char *place = text_.get() + length_;
        const char *start = place + std::strspn(place, " ");
        const std::size_t length = std::strlen(start);
        if (start != place)
            std::memmove(place, start, length + 1);
        length_ += length;
        seen_ = true;
    }
    bool seen() const { return seen_; }
    const char *text() const { return text_.get(); }

private:
    struct Free {
        void operator()(char *text) const { std::free(text); }
    };

    bool grow() {
        const std::size_t capacity = capacity_ + capacity_ / 8 + 8 * piece_size;
        char *moved = static_cast<char *>(std::realloc(text_.get(), capacity));
        if (moved == nullptr)
            return false;
        static_cast<void>(text_.release());
        text_.reset(moved);
        capacity_ = capacity;
        if (length_ == 0)
            text_.get()[length_++] = '\n'; // the text starts on a line of its own in the error record
        return true;
    }

    std::unique_ptr<char, Free> text_;
    std::size_t length_ = 0;
    std::size_t capacity_ = 0;
    bool seen_ = false;
};

// popen speaks of memory when the kernel refuses a line for its length.
int why_not_started(const std::string &line, int error) {
    const std::size_t longest = 32 * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return line.size() >= longest ? E2BIG : error;
}

// Nothing when memory ran out; the output has then been read to its end and forgotten.
std::optional<CollectedOutput> collect(hostadm::CommandOutput &command) {
    CollectedOutput output;
    char *room = output.room();
    while (room != nullptr && command.read(room, piece_size)) {
        output.keep_piece();
        room = output.room();
    }
    if (room != nullptr)
        return output;
    command.drain();
    return std::nullopt;
}

} // namespace

int do_systemcmd(const char *command, const char *method) {
    return hostadm::at_boundary(1, [&] {
        const std::string line = "(set -f ; " + std::string(command) + ") 2>&1";
        hostadm::CommandOutput running(line);
        if (!running.started()) {
            const std::string reason = std::strerror(why_not_started(line, errno));
            hostadm::record(not_started, method, command, reason.c_str());
            return 1;
        }
        const std::optional<CollectedOutput> output = collect(running);
        if (!output) {
            hostadm::record(command_said, method, command, std::strerror(ENOMEM));
            return 1;
        }
        const int status = running.close();
        if (status == -1) {
            const std::string reason = std::strerror(errno);
            hostadm::record(command_said, method, command, reason.c_str());
        }
        // A command that fails in silence leaves no record.
        if (status != 0 && output->seen())
            hostadm::record(command_said, method, command, output->text());
        // What a successful one said is handed on as well, in a bare format: it is no failure.
        if (status == 0 && output->seen())
            adm_err_setf(nullptr, command_said, "%s:: %s", method, output->text());
        return status == 0 ? 0 : 1;
    });
}
