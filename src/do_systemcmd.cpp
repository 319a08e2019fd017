// SPDX-License-Identifier: MIT
// Runs a shell command for a method and reports what the command said.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

#include "base/boundary.hpp"
#include "hostadm.h"
#include "src/support/command.hpp"
#include "src/support/error.hpp"

namespace {

// A line of output with its newline, or this much of a longer one, is a piece.
constexpr std::size_t longest_piece = 511;

// Memory that grows by moving its pages, so that its content is never held twice.
class Pages {
public:
    Pages() = default;
    ~Pages() {
        if (start_ != MAP_FAILED)
            munmap(start_, size_);
    }
    Pages(Pages &&other) noexcept
        : start_(std::exchange(other.start_, MAP_FAILED)), size_(std::exchange(other.size_, 0)) {}
    Pages &operator=(Pages &&) = delete;

    bool grow_to(std::size_t size) {
        void *grown = start_ == MAP_FAILED
                          ? mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)
                          : mremap(start_, size_, size, MREMAP_MAYMOVE);
        if (grown == MAP_FAILED)
            return false;
        start_ = grown;
        size_ = size;
        // What is touched for the first time by the megabyte costs least in pages of that size.
        constexpr std::size_t large = 16 << 20;
        if (size >= large)
            madvise(start_, size_, MADV_HUGEPAGE);
        return true;
    }
    char *get() const { return static_cast<char *>(start_); }
    std::size_t size() const { return size_; }

private:
    void *start_ = MAP_FAILED;
    std::size_t size_ = 0;
};

// What a command printed. It is read to the place where it stays.
class CollectedOutput {
public:
    // Reads the next block and keeps its pieces.
    // False when memory is out; at the end of the output nothing more comes.
    bool read_block(hostadm::CommandOutput &command) {
        if (!make_room())
            return false;
        const std::size_t size = command.block(text_.get() + read_, block_size);
        read_ += size;
        ended_ = size < block_size;
        keep_pieces();
        return true;
    }
    bool ended() const { return ended_; }
    bool seen() const { return seen_; }
    const char *text() const { return text_.get(); }

private:
    static constexpr std::size_t block_size = 65536;

    bool make_room() {
        const std::size_t needed = read_ + block_size + 1;
        if (needed <= text_.size())
            return true;
        if (!text_.grow_to(needed + needed / 8))
            return false;
        if (kept_ == 0) {
            *text_.get() = '\n'; // the output stands on lines of its own in the error record
            kept_ = read_ = 1;
        }
        return true;
    }

    // Moves every whole piece up to the text, without its leading blanks. It ends at its first NUL.
    void keep_pieces() {
        char *piece = text_.get() + kept_;
        char *const end = text_.get() + read_;
        seen_ = seen_ || piece != end;
        const bool has_nul = std::memchr(piece, '\0', static_cast<std::size_t>(end - piece)) != nullptr;
        while (char *next = end_of_piece(piece, end)) {
            while (piece != next && *piece == ' ')
                ++piece;
            std::size_t length = static_cast<std::size_t>(next - piece);
            if (has_nul)
                length = strnlen(piece, length);
            move_up(piece, length);
            kept_ += length;
            piece = next;
        }
        const std::size_t rest = static_cast<std::size_t>(end - piece);
        move_up(piece, rest);
        read_ = kept_ + rest;
        text_.get()[read_] = '\0';
    }
    // NULL when the rest is no whole piece yet.
    char *end_of_piece(char *piece, char *end) const {
        const std::size_t size = std::min(static_cast<std::size_t>(end - piece), longest_piece);
        if (size == 0)
            return nullptr;
        if (void *newline = std::memchr(piece, '\n', size))
            return static_cast<char *>(newline) + 1;
        return size == longest_piece || ended_ ? piece + size : nullptr;
    }
    void move_up(const char *piece, std::size_t length) {
        if (char *place = text_.get() + kept_; place != piece)
            std::memmove(place, piece, length);
    }

    Pages text_;
    std::size_t kept_ = 0; // length of the text
    std::size_t read_ = 0; // and of that together with the start of a piece, whose end is yet to come
    bool seen_ = false;
    bool ended_ = false;
};

// popen speaks of memory when the kernel refuses a line for its length.
int why_not_started(const std::string &line, int error) {
    const std::size_t longest = 32 * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return line.size() >= longest ? E2BIG : error;
}

// Nothing when memory ran out; the output has then been read to its end and forgotten.
std::optional<CollectedOutput> collect(hostadm::CommandOutput &command) {
    CollectedOutput output;
    while (!output.ended()) {
        if (!output.read_block(command)) {
            command.drain();
            return std::nullopt;
        }
    }
    return output;
}

} // namespace

int do_systemcmd(const char *command, const char *method) {
    return hostadm::base::at_boundary(1, [&] {
        const std::string line = "(set -f ; " + std::string(command) + ") 2>&1";
        hostadm::CommandOutput running(line);
        if (!running.started()) {
            const std::string reason = std::strerror(why_not_started(line, errno));
            hostadm::record<hostadm::command_not_started>(method, command, reason.c_str());
            return 1;
        }
        const std::optional<CollectedOutput> output = collect(running);
        if (!output) {
            hostadm::record<hostadm::command_said>(method, command, std::strerror(ENOMEM));
            return 1;
        }
        const int status = running.close();
        if (status == -1) {
            const std::string reason = std::strerror(errno);
            hostadm::record<hostadm::command_said>(method, command, reason.c_str());
        }
        // A command that fails in silence leaves no record.
        if (status != 0 && output->seen())
            hostadm::record<hostadm::command_said>(method, command, output->text());
        // What a successful one said is handed on as well, in a bare format: it is no failure.
        if (status == 0 && output->seen())
            adm_err_setf(nullptr, hostadm::command_said, "%s:: %s", method, output->text());
        return status == 0 ? 0 : 1;
    });
}
