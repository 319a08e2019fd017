// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../support/scratch.hpp"
#include "server/boot_area.hpp"

namespace {

using namespace hostadm::server;

} // namespace

TEST(BootLinkNames, AnAddressIsEightUpperCaseDigits) {
    EXPECT_EQ(address_digits("192.168.1.10"), "C0A8010A");
    EXPECT_EQ(address_digits("10.0.0.1"), "0A000001");
    EXPECT_EQ(address_digits("client1"), "");
}

TEST(BootLinkNames, TheArchitectureStandsInTheProgramsName) {
    EXPECT_EQ(architecture_of("inetboot.kel4m.Quorvel_2.5"), "kel4m");
    EXPECT_EQ(architecture_of("boot.kel4c.Quorvel.4.1.3"), "kel4c");
    EXPECT_EQ(architecture_of("pxelinux.0"), "");
    EXPECT_EQ(architecture_of(""), "");
}

TEST(BootLinkNames, LinksLeadToAProgramWhenBothDoAndNoOtherNameIsThere) {
    const BootLink plain{"0A000001", "boot", true}, named{"0A000001.KEL4M", "boot", true};
    EXPECT_TRUE(lead_to({plain, named}, "0A000001", "KEL4M", "boot"));
    EXPECT_FALSE(lead_to({plain, named}, "0A000001", "KEL4M", "other"));
    EXPECT_FALSE(lead_to({plain, named}, "0A000001", "KEL4C", "boot"));
    EXPECT_FALSE(lead_to({plain}, "0A000001", "KEL4M", "boot"));
    EXPECT_FALSE(lead_to({plain, named, {"0A000001.OLD", "boot", true}}, "0A000001", "KEL4M", "boot"));
    EXPECT_FALSE(lead_to({}, "0A000001", "KEL4M", "boot"));
}

TEST(BootLinkNames, TheStateSaysWhatIsWrong) {
    const BootLink plain{"0A000001", "boot", true}, named{"0A000001.KEL4M", "boot", true};
    EXPECT_EQ(boot_links_state("0A000001", {}), "no");
    EXPECT_EQ(boot_links_state("0A000001", {plain, named}), "yes");
    EXPECT_EQ(boot_links_state("0A000001", {plain}), "no 0A000001.ARCH");
    EXPECT_EQ(boot_links_state("0A000001", {named}), "no 0A000001");
    EXPECT_EQ(boot_links_state("0A000001", {plain, {"0A000001.KEL4M", "boot", false}}),
              "0A000001.KEL4M leads nowhere");
}

TEST(BootPrograms, AreTheSameWhenEveryByteIs) {
    const tests::Scratch scratch;
    const std::string one = scratch.write("one", "boot"), same = scratch.write("same", "boot"),
                      longer = scratch.write("longer", "boots"), empty = scratch.write("empty", "");
    EXPECT_TRUE(same_content(one, same));
    EXPECT_FALSE(same_content(one, longer));
    EXPECT_FALSE(same_content(longer, one));
    EXPECT_FALSE(same_content(one, empty));
}

TEST(BootPrograms, ThatAreNoLongerTheOneThatWasMadeStay) {
    const tests::Scratch scratch;
    const std::string program = scratch.write("inetboot", "ours");
    const MadeBootProgram made{program, *identity_of(program)};
    std::filesystem::rename(program, program + ".aside");
    scratch.write("inetboot", "somebody else's");
    EXPECT_EQ(remove_if_same(made.path, made.identity), "");
    EXPECT_EQ(tests::content(program), "somebody else's");
}
