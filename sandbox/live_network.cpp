// SPDX-License-Identifier: MIT
#include "sandbox/live_network.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <string_view>
#include <sys/socket.h>

#include "base/descriptor.hpp"
#include "base/translation.hpp"
#include "sandbox/tree.hpp"

namespace hostadm::sandbox {

namespace {

constexpr int loopback = 1; // its number in every network

// One request to the kernel, put together attribute by attribute.
class Request {
public:
    template <typename Head> Request(std::uint16_t type, std::uint16_t flags, const Head &head) {
        message_.resize(NLMSG_SPACE(sizeof head));
        std::memcpy(NLMSG_DATA(start()), &head, sizeof head);
        start()->nlmsg_type = type;
        start()->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
    }
    void add(unsigned short type, const void *data, std::size_t size) {
        const std::size_t at = message_.size();
        message_.resize(at + RTA_SPACE(size));
        const rtattr head{static_cast<unsigned short>(RTA_LENGTH(size)), type};
        std::memcpy(message_.data() + at, &head, sizeof head);
        if (size > 0)
            std::memcpy(message_.data() + at + RTA_LENGTH(0), data, size);
    }
    // An attribute that holds others: what is added before it is closed.
    std::size_t open(unsigned short type) {
        add(type, nullptr, 0);
        return message_.size() - RTA_SPACE(0);
    }
    void close(std::size_t opened) {
        const auto size = static_cast<unsigned short>(message_.size() - opened);
        std::memcpy(message_.data() + opened, &size, sizeof size);
    }
    const std::vector<char> &finished() {
        start()->nlmsg_len = static_cast<std::uint32_t>(message_.size());
        return message_;
    }

private:
    nlmsghdr *start() { return reinterpret_cast<nlmsghdr *>(message_.data()); }
    std::vector<char> message_;
};

class Kernel {
public:
    Kernel() : socket_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)) {
        if (!socket_.is_open())
            fail(base::tr("ask the kernel about the network"));
    }

    // All messages of an answer, one behind the other.
    std::vector<char> all(std::uint16_t type) const {
        const rtgenmsg any{AF_UNSPEC};
        Request request(type, NLM_F_DUMP, any);
        send(request.finished());
        std::vector<char> messages;
        for (;;) {
            const std::vector<char> piece = receive();
            auto left = static_cast<unsigned int>(piece.size());
            for (auto *one = reinterpret_cast<const nlmsghdr *>(piece.data()); NLMSG_OK(one, left);
                 one = NLMSG_NEXT(one, left)) {
                if (one->nlmsg_type == NLMSG_DONE)
                    return messages;
                if (one->nlmsg_type == NLMSG_ERROR) {
                    errno = -static_cast<const nlmsgerr *>(NLMSG_DATA(one))->error;
                    fail(base::tr("ask the kernel about the network"));
                }
                const char *begin = reinterpret_cast<const char *>(one);
                messages.insert(messages.end(), begin, begin + NLMSG_ALIGN(one->nlmsg_len));
            }
        }
    }

    // 0 or an errno value.
    int change(Request &request) const {
        send(request.finished());
        const std::vector<char> answer = receive();
        const auto *head = reinterpret_cast<const nlmsghdr *>(answer.data());
        if (answer.size() < NLMSG_LENGTH(sizeof(nlmsgerr)) || head->nlmsg_type != NLMSG_ERROR)
            return EPROTO;
        return -static_cast<const nlmsgerr *>(NLMSG_DATA(head))->error;
    }

private:
    void send(const std::vector<char> &message) const {
        if (::send(socket_.get(), message.data(), message.size(), 0) != static_cast<ssize_t>(message.size()))
            fail(base::tr("talk to the kernel about the network"));
    }
    std::vector<char> receive() const {
        std::vector<char> piece(1 << 17);
        const ssize_t size = recv(socket_.get(), piece.data(), piece.size(), 0);
        if (size <= 0)
            fail(base::tr("hear the kernel about the network"));
        piece.resize(static_cast<std::size_t>(size));
        return piece;
    }

    Descriptor socket_;
};

// Calls use(head, attributes) for each message.
template <typename Head, typename Use> void for_each_message(const std::vector<char> &messages, Use use) {
    auto left = static_cast<unsigned int>(messages.size());
    for (auto *one = reinterpret_cast<const nlmsghdr *>(messages.data()); NLMSG_OK(one, left);
         one = NLMSG_NEXT(one, left)) {
        const auto *head = static_cast<const Head *>(NLMSG_DATA(one));
        const char *first = reinterpret_cast<const char *>(head) + NLMSG_ALIGN(sizeof *head);
        const char *end = reinterpret_cast<const char *>(one) + one->nlmsg_len;
        std::vector<const rtattr *> attributes;
        int size = static_cast<int>(end - first);
        for (auto *attribute = reinterpret_cast<const rtattr *>(first); RTA_OK(attribute, size);
             attribute = RTA_NEXT(attribute, size))
            attributes.push_back(attribute);
        use(*head, attributes);
    }
}

using Attributes = std::vector<const rtattr *>;

void copy(Request &request, const Attributes &attributes, std::initializer_list<unsigned short> types) {
    for (const rtattr *attribute : attributes)
        for (const unsigned short type : types)
            if (attribute->rta_type == type)
                request.add(type, RTA_DATA(attribute), RTA_PAYLOAD(attribute));
}

constexpr std::uint16_t make_it = NLM_F_CREATE | NLM_F_REPLACE | NLM_F_ACK;

// An interface of the same number, name and hardware address that drops what it is given.
bool make_link(const Kernel &kernel, const ifinfomsg &live, const Attributes &attributes,
               std::string_view kind) {
    ifinfomsg head{};
    head.ifi_index = live.ifi_index;
    head.ifi_flags = live.ifi_flags & IFF_UP;
    head.ifi_change = IFF_UP;
    Request request(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL | NLM_F_ACK, head);
    copy(request, attributes, {IFLA_IFNAME, IFLA_MTU});
    if (live.ifi_type == 1) // Ethernet
        copy(request, attributes, {IFLA_ADDRESS});
    const std::size_t info = request.open(IFLA_LINKINFO);
    request.add(IFLA_INFO_KIND, kind.data(), kind.size());
    request.close(info);
    return kernel.change(request) == 0;
}

void set_up(const Kernel &kernel, int index) {
    ifinfomsg head{};
    head.ifi_index = index;
    head.ifi_flags = head.ifi_change = IFF_UP;
    Request request(RTM_NEWLINK, NLM_F_ACK, head);
    if ((errno = kernel.change(request)) != 0)
        fail(base::tr("bring up the loopback interface"));
}

} // namespace

LiveNetwork LiveNetwork::seen() {
    const Kernel kernel;
    LiveNetwork live;
    live.links_ = kernel.all(RTM_GETLINK);
    live.addresses_ = kernel.all(RTM_GETADDR);
    live.routes_ = kernel.all(RTM_GETROUTE);
    return live;
}

void LiveNetwork::rebuild() const {
    const Kernel kernel;
    set_up(kernel, loopback);
    std::vector<int> made{loopback};
    for_each_message<ifinfomsg>(links_, [&](const ifinfomsg &live, const Attributes &attributes) {
        // Not every kernel has the one that is made for this.
        if (live.ifi_index != loopback &&
            (make_link(kernel, live, attributes, "dummy") || make_link(kernel, live, attributes, "bridge")))
            made.push_back(live.ifi_index);
    });
    const auto is_made = [&](int index) { return std::find(made.begin(), made.end(), index) != made.end(); };
    for_each_message<ifaddrmsg>(addresses_, [&](ifaddrmsg head, const Attributes &attributes) {
        if (!is_made(static_cast<int>(head.ifa_index))) {
            head.ifa_index = loopback;
            head.ifa_prefixlen = head.ifa_family == AF_INET ? 32 : 128;
        }
        // Nobody else has it there: it need not be asked for.
        head.ifa_flags = head.ifa_family == AF_INET6 ? IFA_F_NODAD : 0;
        Request request(RTM_NEWADDR, make_it, head);
        copy(request, attributes, {IFA_LOCAL, IFA_ADDRESS, IFA_BROADCAST});
        kernel.change(request);
    });
    // A route by way of another host is known only when that host's network is: those come second.
    for (const bool by_way : {false, true})
        for_each_message<rtmsg>(routes_, [&](rtmsg head, const Attributes &attributes) {
            const bool is_by_way = std::any_of(attributes.begin(), attributes.end(), [](const rtattr *one) {
                return one->rta_type == RTA_GATEWAY;
            });
            // Those of its own addresses the kernel has made itself.
            if (is_by_way != by_way || head.rtm_table != RT_TABLE_MAIN ||
                (head.rtm_flags & RTM_F_CLONED) != 0)
                return;
            head.rtm_flags = 0;
            Request request(RTM_NEWROUTE, make_it, head);
            copy(request, attributes, {RTA_DST, RTA_OIF, RTA_GATEWAY, RTA_PREFSRC, RTA_PRIORITY});
            kernel.change(request);
        });
}

} // namespace hostadm::sandbox
