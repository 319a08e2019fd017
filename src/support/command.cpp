// SPDX-License-Identifier: MIT
#include "src/support/command.hpp"

#include <cstdlib>
#include <vector>

#include "hostadm/framework.h"

namespace hostadm {

CommandOutput::CommandOutput(const std::string &command) : stream_(popen(command.c_str(), "r")) {}

CommandOutput::~CommandOutput() {
    if (stream_ != nullptr)
        pclose(stream_);
}

std::optional<std::string> CommandOutput::piece(int size) {
    std::vector<char> buffer(static_cast<std::size_t>(size));
    if (stream_ == nullptr || std::fgets(buffer.data(), size, stream_) == nullptr)
        return std::nullopt;
    return std::string(buffer.data());
}

std::optional<std::string> CommandOutput::line() {
    if (stream_ == nullptr)
        return std::nullopt;
    char *buffer = line_.release();
    const ssize_t size = getline(&buffer, &line_size_, stream_);
    line_.reset(buffer);
    if (size < 0)
        return std::nullopt;
    return std::string(buffer, static_cast<std::size_t>(size));
}

void CommandOutput::drain() {
    char rest[4096];
    while (stream_ != nullptr && std::fread(rest, 1, sizeof rest, stream_) > 0) {
    }
}

int CommandOutput::close() {
    std::FILE *stream = stream_;
    stream_ = nullptr;
    return stream == nullptr ? -1 : pclose(stream);
}

Complaint first_complaint(const std::string &command) {
    constexpr int line_buffer = 1024;
    Complaint complaint;
    CommandOutput output(command);
    complaint.started = output.started();
    complaint.first_line = output.piece(line_buffer);
    output.drain();
    return complaint;
}

void undo(const std::string &command) {
    if (system(command.c_str()) != 0)
        adm_err_cleanup(nullptr, ADM_DIRTY);
}

} // namespace hostadm
