// SPDX-License-Identifier: MIT
#include "sandbox/channel.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <sys/socket.h>

namespace hostadm::sandbox {

namespace {

constexpr std::size_t most_descriptors = 4;

struct Head {
    Message::Kind kind;
    int number;
};

} // namespace

bool send(int socket, const Message &message) {
    Head head{message.kind, message.number};
    std::array<iovec, 2> parts = {
        {{&head, sizeof head}, {const_cast<char *>(message.text.data()), message.text.size()}}};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(most_descriptors * sizeof(int))> control{};
    msghdr header{};
    header.msg_iov = parts.data();
    header.msg_iovlen = parts.size();
    if (!message.descriptors.empty()) {
        std::array<int, most_descriptors> numbers{};
        const std::size_t count = std::min(message.descriptors.size(), numbers.size());
        for (std::size_t i = 0; i < count; ++i)
            numbers[i] = message.descriptors[i].get();
        header.msg_control = control.data();
        header.msg_controllen = CMSG_SPACE(count * sizeof(int));
        cmsghdr *item = CMSG_FIRSTHDR(&header);
        item->cmsg_level = SOL_SOCKET;
        item->cmsg_type = SCM_RIGHTS;
        item->cmsg_len = CMSG_LEN(count * sizeof(int));
        std::memcpy(CMSG_DATA(item), numbers.data(), count * sizeof(int));
    }
    return sendmsg(socket, &header, MSG_NOSIGNAL) >= 0;
}

std::optional<Message> receive(int socket) {
    Head head{};
    std::array<char, 65536> text;
    std::array<iovec, 2> parts = {{{&head, sizeof head}, {text.data(), text.size()}}};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(most_descriptors * sizeof(int))> control{};
    msghdr header{};
    header.msg_iov = parts.data();
    header.msg_iovlen = parts.size();
    header.msg_control = control.data();
    header.msg_controllen = control.size();
    const ssize_t size = recvmsg(socket, &header, MSG_CMSG_CLOEXEC);
    if (size < static_cast<ssize_t>(sizeof head))
        return std::nullopt;
    Message message;
    message.kind = head.kind;
    message.number = head.number;
    message.text.assign(text.data(), static_cast<std::size_t>(size) - sizeof head);
    for (cmsghdr *item = CMSG_FIRSTHDR(&header); item != nullptr; item = CMSG_NXTHDR(&header, item)) {
        if (item->cmsg_level != SOL_SOCKET || item->cmsg_type != SCM_RIGHTS)
            continue;
        const std::size_t count = (item->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count; ++i) {
            int fd = -1;
            std::memcpy(&fd, CMSG_DATA(item) + i * sizeof fd, sizeof fd);
            message.descriptors.emplace_back(fd);
        }
    }
    return message;
}

} // namespace hostadm::sandbox
