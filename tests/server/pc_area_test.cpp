// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "server/failure.hpp"
#include "server/pc_area.hpp"

namespace {

using namespace hostadm::server;

const PcMenu menu{.hostname = "pc1",
                  .address = "192.168.1.10",
                  .netmask = "255.255.255.0",
                  .router = "192.168.1.254",
                  .server_address = "192.168.1.1",
                  .root = "/export/root/pc1",
                  .system = "Debian_12",
                  .extra_words = "quiet console=ttyS0"};

TEST(PcMenu, BootsOneEntryWithoutWaiting) {
    EXPECT_EQ(pc_menu_text(menu),
              "# pc1, written by hostadm\n"
              "set timeout=0\n"
              "linux (tftp)/linux/Debian_12/vmlinuz boot=nfs nfsroot=192.168.1.1:/export/root/pc1 "
              "ip=192.168.1.10:192.168.1.1:192.168.1.254:255.255.255.0:pc1::off rw quiet console=ttyS0\n"
              "initrd (tftp)/linux/Debian_12/initrd.img\n"
              "boot\n");
}

TEST(PcMenu, NamesTheVersionOfNfsThatWasAskedFor) {
    PcMenu with = menu;
    with.nfs4 = true;
    EXPECT_THAT(pc_menu_text(with), testing::HasSubstr("nfsroot=192.168.1.1:/export/root/pc1,nfsvers=4 "));
    EXPECT_TRUE(read_pc_menu(pc_menu_text(with)).nfs4);
}

TEST(PcMenu, IsReadBackAsItWasWritten) {
    const PcMenu read = read_pc_menu(pc_menu_text(menu));
    EXPECT_EQ(pc_menu_text(read), pc_menu_text(menu));
    EXPECT_FALSE(read.nfs4);
}

TEST(PcMenu, OfAnotherHandIsReadAsFarAsItGoes) {
    EXPECT_EQ(read_pc_menu("").root, "");
    EXPECT_EQ(read_pc_menu("linux\n").root, "");
    EXPECT_EQ(read_pc_menu("linux /vmlinuz root=/dev/sda1 ip=dhcp\n").address, "");
    EXPECT_EQ(read_pc_menu("linux (tftp)/linux/x/vmlinuz nfsroot=10.0.0.1:/r\n").root, "/r");
}

TEST(PcMenu, LiesUnderTheAddressInUpperCaseHexadecimal) {
    EXPECT_EQ(pc_menu_path("192.168.1.10"), "/tftpboot/grub/grub.cfg-C0A8010A");
}

const std::vector<PcNetwork> two_networks = {
    {"eth0", "192.168.1.1", "255.255.255.0", "192.168.1.0", "192.168.1.254"},
    {"eth1", "10.0.0.1", "255.0.0.0", "10.0.0.0"}};

TEST(DhcpSettings, AnswerKnownClientsOnly) {
    const std::string text = dhcp_settings(two_networks);
    EXPECT_THAT(text, testing::HasSubstr("interface=eth0\n"));
    EXPECT_THAT(text, testing::HasSubstr("dhcp-range=192.168.1.0,static,255.255.255.0\n"));
    EXPECT_THAT(text, testing::HasSubstr("interface=eth1\n"));
    EXPECT_THAT(text, testing::HasSubstr("dhcp-range=10.0.0.0,static,255.0.0.0\n"));
    EXPECT_THAT(text, testing::HasSubstr("read-ethers\n"));
    EXPECT_THAT(text, testing::HasSubstr("port=53053\n"));
}

TEST(DhcpSettings, TellEachNetworkItsOwnRouterOrNone) {
    const std::string text = dhcp_settings(two_networks);
    EXPECT_THAT(text, testing::HasSubstr("dhcp-option=option:router\n"));
    EXPECT_THAT(text, testing::HasSubstr("dhcp-option=tag:eth0,option:router,192.168.1.254\n"));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("tag:eth1,option:router")));
}

TEST(DhcpSettings, LeaveNamesAndInterfacesToAnAdministratorWhoServesThem) {
    const std::string text = dhcp_settings(two_networks, {.any = true});
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("port=")));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("interface=")));
    EXPECT_THAT(dhcp_settings(two_networks, {.any = true, .name_interfaces = true}),
                testing::HasSubstr("interface=eth0\n"));
}

TEST(DhcpSettings, AreKnownAgain) {
    EXPECT_TRUE(is_own_dhcp_settings(dhcp_settings(two_networks)));
    EXPECT_FALSE(is_own_dhcp_settings(""));
    EXPECT_FALSE(is_own_dhcp_settings("# mine\nport=53\n"));
}

TEST(PcNetworks, ThatDoNotExistAreRefused) {
    EXPECT_THROW(pc_networks({"no-such-interface"}, ""), Failure);
    EXPECT_THROW(pc_networks({"lo"}, ""), Failure);
}

} // namespace
