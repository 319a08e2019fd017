// SPDX-License-Identifier: MIT
#include "support/command.hpp"

#include <vector>

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

} // namespace hostadm
