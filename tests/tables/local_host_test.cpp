// SPDX-License-Identifier: MIT
// Which names mean this host. The host's name and its hosts table are those of a private namespace.
#include <cerrno>
#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include "hostadm/tables.h"
#include "scratch.hpp"

namespace {

constexpr const char *hosts = "127.0.0.1\tlocalhost\n"
                              "127.0.1.1\tLoopName\n"
                              "#10.9.8.7 commented\n"
                              "10.9.8.7  main.example.org alias1\talias2 # alias3\n"
                              "10.9.8.8  neighbour\n"
                              "::1 ip6name\n"
                              "nonsense broken\n"
                              "\n"
                              "10.9.8.7";

class LocalHost : public scratch::Test {
protected:
    // The names that are not answered as expected, in a host
    // called server.example.org with the address 10.9.8.7.
    void expect(int answer, const std::vector<const char *> &names,
                const char *host_name = "server.example.org") {
        const auto table_path = table(hosts, "hosts");
        scratch::in_private_mounts([&]() -> std::string {
            if (unshare(CLONE_NEWUTS | CLONE_NEWNET) != 0 ||
                sethostname(host_name, std::strlen(host_name)) != 0 ||
                mount(table_path.c_str(), "/etc/hosts", nullptr, MS_BIND, nullptr) != 0 || !give_address())
                return std::string("the host cannot be arranged: ") + std::strerror(errno);
            std::string wrong;
            for (const char *name : names)
                if (is_local_host(name) != answer)
                    wrong += std::string(name) + "; ";
            return wrong;
        });
    }

private:
    // 10.9.8.7 for the loopback interface of the private network.
    static bool give_address() {
        const int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ifreq request{};
        std::strcpy(request.ifr_name, "lo");
        auto &address = reinterpret_cast<sockaddr_in &>(request.ifr_addr);
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(0x0a090807);
        const bool given = ioctl(any, SIOCSIFADDR, &request) == 0;
        close(any);
        return given;
    }
};

TEST_F(LocalHost, IsItsHostNameInFullAndShort) {
    expect(1, {"server.example.org", "server", "SERVER", "server.example.org."});
}

TEST_F(LocalHost, IsLocalhostAndEveryLoopbackAddress) {
    expect(1, {"localhost", "LocalHost", "127.0.0.1", "127.0.1.1", "127.255.255.254", "::1",
               "::ffff:127.0.0.1"});
}

TEST_F(LocalHost, IsTheAddressesOfItsInterfaces) {
    expect(1, {"10.9.8.7", "::ffff:10.9.8.7"});
}

TEST_F(LocalHost, IsTheNamesThatTheHostsTableGivesToItsAddresses) {
    expect(1, {"main.example.org", "alias1", "alias2", "Alias1", "loopname", "ip6name"});
}

TEST_F(LocalHost, IsNobodyElse) {
    expect(0, {"neighbour", "10.9.8.8", "commented", "alias3", "alias", "broken", "nonsense",
               "server.example.com", "server2", "example.org", ".", " ", "10.9.8", "126.255.255.255",
               "128.0.0.1", "::2", "fe80::1"});
}

TEST_F(LocalHost, FullNameIsNotThisHostWhenOnlyTheShortOneIsKnown) {
    expect(0, {"server.elsewhere.org"}, "server");
}

TEST_F(LocalHost, NoNameIsNotThisHost) {
    EXPECT_EQ(is_local_host(nullptr), 0);
    EXPECT_EQ(is_local_host(""), 0);
}

TEST_F(LocalHost, NameOfAnyLengthIsAnswered) {
    EXPECT_EQ(is_local_host(std::string(100'000, 'h').c_str()), 0);
}

} // namespace
