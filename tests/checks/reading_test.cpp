// SPDX-License-Identifier: MIT
// What the checks read: tables line by line, access lists, the NFS server's settings, packet filters, roots.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "server/checks/access.hpp"
#include "server/checks/file_systems.hpp"
#include "server/checks/packet_filter.hpp"
#include "server/checks/registry.hpp"
#include "support/scratch.hpp"

using namespace hostadm::server;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

KeyTable hosts(const std::string &text) {
    return parse_hosts({"/etc/hosts", 0, text});
}
const Caller client1{0xc0a8010a, {"client1", "client1.example.com"}};

Packet to_port(std::uint16_t port) {
    return {Packet::Direction::in, "udp", "eth0", 0xc0a8010a, 0xc0a80101, 1023, port, false, false};
}
// A chain of incoming packets with these rules, each a list of expressions.
PacketFilter filter(const std::string &policy, std::initializer_list<std::string> rules) {
    std::string json =
        R"({"nftables":[{"chain":{"family":"inet","table":"fw","name":"in","type":"filter","hook":"input",)"
        R"("prio":0,"policy":")" +
        policy + "\"}}";
    int handle = 0;
    for (const std::string &rule : rules)
        json += R"(,{"rule":{"family":"inet","table":"fw","chain":"in","handle":)" +
                std::to_string(++handle) + ",\"expr\":[" + rule + "]}}";
    return parse_packet_filter(json + "]}");
}
const std::string to_tftp =
    R"({"match":{"op":"==","left":{"payload":{"protocol":"udp","field":"dport"}},"right":69}})";
const std::string drop = R"({"drop":null})", accept = R"({"accept":null})";

} // namespace

TEST(HostsTable, ALineWithoutAnAddressIsPassedOver) {
    const KeyTable table =
        hosts("# all\n192.168.001.010 client1\n192.168.1.11\tclient2 c2 # the second\n::1 six\n");
    ASSERT_EQ(table.lines.size(), 3u);
    EXPECT_EQ(table.lines[0].value, "");
    EXPECT_THAT(table.with_name("client1"), IsEmpty());
    ASSERT_EQ(table.with_name("C2").size(), 1u);
    EXPECT_EQ(table.with_name("C2")[0]->line, 3u);
    EXPECT_FALSE(table.with_name("six")[0]->is_ipv4());
}

TEST(EthersTable, OnlyColonsPartTheBytes) {
    EXPECT_EQ(ethernet_value("8:0:20:a:b:c"), ethernet_value("08:00:20:0A:0B:0C"));
    for (const char *wrong : {"08-00-20-0a-0b-0c", "08:00:20:0a:0b", "08:00:20:0a:0b:0c:0d",
                              "08:00:20:0a:0b:0g", "080:0:20:0:0:1", ""})
        EXPECT_EQ(ethernet_value(wrong), "") << wrong;
}

TEST(Bootparams, EntriesKnowTheirLine) {
    const BootTable table =
        parse_bootparams({"/etc/bootparams", 0,
                          "# clients\n\nclient1 root=s:/r \\\n\tswap=s:/s\n+auto\nclient2 boottype=:in\n"});
    ASSERT_EQ(table.lines.size(), 2u);
    EXPECT_EQ(table.lines[0].line, 3u);
    EXPECT_EQ(table.lines[0].item("swap")->path, "/s");
    EXPECT_EQ(table.lines[1].line, 6u);
    EXPECT_TRUE(table.lines[1].item("boottype")->has_server);
    EXPECT_EQ(table.lines[1].item("root"), nullptr);
}

TEST(NameServiceSwitch, ActionsBelongToTheSourceBeforeThem) {
    const auto lines = parse_switch("hosts: files [NOTFOUND=return] dns # usual\nethers:db files\n");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_THAT(lines[0].sources, ElementsAre("files", "dns"));
    EXPECT_THAT(lines[0].actions, ElementsAre("[NOTFOUND=return]", ""));
    EXPECT_THAT(lines[1].sources, ElementsAre("db", "files"));
}

TEST(ShareOptions, AClientIsMeantByNameAddressNetworkAndDomain) {
    for (const char *options :
         {"rw=client1,root=client1", "rw=CLIENT1:other,root=192.168.1.10", "rw=@192.168.1.0/24,anon=0",
          "rw=.example.com,root=@192.168.1", "anon=0", "rw,root=client1"}) {
        const Access access = access_by_options(options, client1);
        EXPECT_TRUE(access.read && access.write && access.root) << options;
    }
    EXPECT_FALSE(access_by_options("rw=client2", client1).read);
    EXPECT_FALSE(access_by_options("ro,root=client1", client1).write);
    EXPECT_TRUE(access_by_options("ro,root=client1", client1).read);
    EXPECT_FALSE(access_by_options("rw=client1", client1).root);
    EXPECT_FALSE(access_by_options("rw=-client1:@192.168.1.0/24", client1).read);
}

TEST(GaneshaSettings, IncludedFilesAndClientBlocksCount) {
    tests::Scratch scratch;
    scratch.write(
        "exports.conf",
        "EXPORT { Export_Id = 1; Path = \"/export/root/client1/\"; Access_Type = None; Squash = "
        "root_squash;\n"
        "  CLIENT { Clients = 192.168.1.10, 192.168.1.11; Access_Type = RW; Squash = No_Root_Squash; }\n}\n");
    scratch.write(
        "ganesha.conf",
        "# all\nNFS_CORE_PARAM { Protocols = 4; Bind_addr = 10.0.0.1; }\nNFSv4 { Graceless = true; }\n"
        "%include \"exports.conf\"\n");
    const NfsSettings settings = read_ganesha(scratch.path("ganesha.conf"));
    EXPECT_EQ(settings.defect, "");
    EXPECT_FALSE(settings.version3);
    EXPECT_FALSE(settings.waits);
    EXPECT_EQ(settings.bound_to, "10.0.0.1");
    const Export *shared = export_of(settings, "/export/root/client1/etc");
    ASSERT_NE(shared, nullptr);
    EXPECT_TRUE(access_by_export(*shared, client1).root);
    EXPECT_FALSE(access_by_export(*shared, {0xc0a801ff, {"stranger"}}).read);
    EXPECT_EQ(export_of(settings, "/export/root"), nullptr);
    std::filesystem::remove(scratch.path("exports.conf"));
    EXPECT_NE(read_ganesha(scratch.path("ganesha.conf")).defect, "");
}

TEST(KernelExports, SeveralLinesOfAPathAllCount) {
    tests::Scratch scratch;
    scratch.write("etab",
                  "/export/root client2(rw,no_root_squash)\n/export/root\t192.168.1.0/24(ro)\n/a\\040b "
                  "*(rw,root_squash)\n");
    const NfsSettings settings = read_exports_now(scratch.path("etab"));
    const Export *shared = export_of(settings, "/export/root/client1");
    ASSERT_NE(shared, nullptr);
    EXPECT_TRUE(access_by_export(*shared, client1).read);
    EXPECT_FALSE(access_by_export(*shared, client1).write);
    EXPECT_NE(export_of(settings, "/a b"), nullptr);
    scratch.write("etab", "/a\\840b *(rw)\n/a\\04 *(rw)\n/a\\777 *(rw)\n");
    EXPECT_EQ(read_exports_now(scratch.path("etab")).exports.size(), 3u) << "no octal numbers of a byte";
}

TEST(PacketFilter, ARuleThatDropsIsNamed) {
    const auto dropped = filter("accept", {to_tftp + "," + drop}).drops(to_port(69));
    ASSERT_TRUE(dropped);
    EXPECT_EQ(dropped->repair, "nft delete rule inet fw in handle 1");
    EXPECT_FALSE(filter("accept", {to_tftp + "," + drop}).drops(to_port(111)));
}

TEST(PacketFilter, AnEarlierAcceptWins) {
    EXPECT_FALSE(filter("drop", {to_tftp + "," + accept}).drops(to_port(69)));
    EXPECT_TRUE(filter("drop", {to_tftp + "," + accept}).drops(to_port(111)));
}

TEST(PacketFilter, WhatCannotBeToldCountsAsPassing) {
    const std::string unknown = R"({"xt":{"type":"match","name":"time"}})";
    EXPECT_FALSE(filter("accept", {unknown + "," + drop}).drops(to_port(69)));
    EXPECT_FALSE(filter("drop", {unknown + "," + accept}).drops(to_port(69)));
}

TEST(PacketFilter, SetsRangesAndStatesAreUnderstood) {
    const std::string ports =
        R"({"match":{"op":"==","left":{"payload":{"protocol":"udp","field":"dport"}},"right":{"set":[53,{"range":[60,70]}]}}})";
    EXPECT_TRUE(filter("accept", {ports + "," + drop}).drops(to_port(69)));
    EXPECT_FALSE(filter("accept", {ports + "," + drop}).drops(to_port(71)));
    const std::string established =
        R"({"match":{"op":"in","left":{"ct":{"key":"state"}},"right":["established","related"]}})";
    Packet answer = to_port(40000);
    EXPECT_TRUE(filter("drop", {established + "," + accept}).drops(answer));
    answer.established = true;
    EXPECT_FALSE(filter("drop", {established + "," + accept}).drops(answer));
}

TEST(PacketFilter, NothingIsDroppedByNoRules) {
    EXPECT_FALSE(parse_packet_filter("").drops(to_port(69)));
    EXPECT_FALSE(PacketFilter().drops(to_port(69)));
}

TEST(RootView, LinksStayInsideTheRoot) {
    tests::Scratch scratch;
    scratch.write("root/etc/motd", "inside");
    scratch.write("motd", "outside");
    std::filesystem::create_symlink("/etc/motd", scratch.path("root/absolute"));
    std::filesystem::create_symlink("../../../../motd", scratch.path("root/upwards"));
    const RootView view(scratch.path("root"));
    EXPECT_EQ(view.read("absolute", 100), "inside");
    EXPECT_EQ(view.read("upwards", 100), std::nullopt);
    EXPECT_EQ(view.read("etc/motd", 3), "ins");
    EXPECT_EQ(view.target_of("absolute"), "/etc/motd");
}

TEST(RootView, NeitherAFifoNorADirectoryIsRead) {
    tests::Scratch scratch;
    std::filesystem::create_directory(scratch.path("root"));
    ASSERT_EQ(mkfifo(scratch.path("root/fifo").c_str(), 0600), 0);
    const RootView view(scratch.path("root"));
    EXPECT_EQ(view.read("fifo", 100), std::nullopt);
    EXPECT_EQ(view.read(".", 100), std::nullopt);
    EXPECT_EQ(RootView(scratch.path("nowhere")).error(), ENOENT);
}

TEST(NearestClients, AreThoseOfFewestDifferences) {
    Snapshot server;
    for (const char *name : {"client1", "client2", "printer", "clienta"})
        server.clients.emplace_back().name = name;
    EXPECT_EQ(nearest_clients(server, "cleint1").front(), "client1");
    EXPECT_THAT(nearest_clients(server, "zzzzzzzzzzzzzzzzzzzzzzz"), IsEmpty());
}

TEST(Checks, EachHasANameAndSaysWhatItLooksAt) {
    for (const Check &check : all_checks()) {
        EXPECT_NE(check.name, "");
        EXPECT_NE(check.looks_at, "");
        EXPECT_TRUE(check.of_server != nullptr || check.of_client != nullptr) << check.name;
    }
}
