// SPDX-License-Identifier: MIT
// What record files tell of OS services.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "server/services.hpp"

namespace {

using namespace hostadm::server;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;

const std::string templates = "/export/root/templates/Quorvel_2.5/";
const std::string kel4 = "OS_SERVICE=Quorvel 2.5 kel4 kel4c\n"
                         "OS_SERVICE=Quorvel 2.5 kel4 kel4m\n"
                         "SOURCE=kel4.all:/cd\n"
                         "SPOOLED_ROOT=kel4.all:" +
                         templates +
                         "KTVXa_1.0_kel4.all\n"
                         "ROOT=kel4.all:KTVXa,1.0\n"
                         "EXECUTABLES=kel4.all:/export/Quorvel_2.5/usr_kel4.all\n"
                         "BOOT_PROGRAM=kel4.all:all,/export/exec/kel4.Quorvel_2.5/lib/fs/nfs/inetboot\n"
                         "BOOT_PROGRAM=kel4.all:kel4m,/boot/of/kel4m\n"
                         "PATCH=kel4.all:100001-01\n"
                         "MADE_TREE=kel4.all:" +
                         templates + "KTVXa_1.0_kel4.all\n";
const std::string kel3 = "OS_SERVICE=Quorvel 2.5 kel3\nROOT=kel3.all:root,2.5\n";
const std::string foreign = "# a comment\nSPOOLED_ROOT=kel4.all:/elsewhere/KTVXb_1.0_kel4.all\n";

TEST(ServiceRecord, TellsOfEachInstructionSet) {
    const auto all = services_in(kel4 + kel3);
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].title(), "Quorvel 2.5 for kel4");
    EXPECT_THAT(all[0].architectures, ElementsAre("kel4c", "kel4m"));
    EXPECT_THAT(all[0].templates, ElementsAre(templates + "KTVXa_1.0_kel4.all"));
    EXPECT_THAT(all[0].patches, ElementsAre("100001-01"));
    EXPECT_EQ(all[0].executables, "/export/Quorvel_2.5/usr_kel4.all");
    EXPECT_EQ(all[0].source, "/cd");
    EXPECT_THAT(all[1].architectures, IsEmpty());
    EXPECT_THAT(all[1].packages, ElementsAre("root,2.5"));
}

TEST(ServiceRecord, IsReadAsItIsWritten) {
    const auto all = services_in(kel4);
    ASSERT_EQ(all.size(), 1U);
    std::string written;
    for (const std::string &line : record_lines(all.front()))
        written += line + "\n";
    EXPECT_EQ(written, kel4);
}

TEST(ServiceRecord, OfTemplatesAloneIsNoService) {
    EXPECT_THAT(services_in("SPOOLED_ROOT=kel4.all:/a\nROOT=kel4.all:KTVXa,1.0\n"), IsEmpty());
}

TEST(ServiceRecord, OfWhatNobodyWroteIsNoService) {
    for (const char *text :
         {"", "OS_SERVICE=", "OS_SERVICE=Quorvel 2.5\n", "OS_SERVICE=Quorvel 2.5 kel4 kel4m more\n",
          "ROOT=kel4.all\n", "=:\n", "MADE_TREE=.all:/\n"})
        EXPECT_THAT(services_in(text), IsEmpty()) << text;
}

TEST(ServiceRecord, WithoutAServiceKeepsEverythingElse) {
    const auto all = services_in(kel4 + kel3);
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(without_service(foreign + kel4 + kel3, all[0]), foreign + kel3);
    EXPECT_EQ(without_service(kel4 + kel3, all[1]), kel4 + "ROOT=kel3.all:root,2.5\n")
        << "of a template that it did not make";
}

TEST(Service, BootsAnArchitectureByItsOwnProgramOrThatOfAll) {
    const auto all = services_in(kel4);
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].boot_program_of("kel4m"), "/boot/of/kel4m");
    EXPECT_EQ(all[0].boot_program_of("kel4c"), "/export/exec/kel4.Quorvel_2.5/lib/fs/nfs/inetboot");
    EXPECT_EQ(services_in(kel3).front().boot_program_of("kel3x"), "");
}

TEST(Service, HoldsItsOwnPlacesOnly) {
    const Service service = services_in(kel4).front();
    EXPECT_TRUE(service.holds("/export/Quorvel_2.5/usr_kel4.all/bin"));
    EXPECT_TRUE(service.holds("/export/exec/kel4.Quorvel_2.5"));
    EXPECT_TRUE(service.holds(templates + "KTVXa_1.0_kel4.all"));
    EXPECT_FALSE(service.holds("/export/Quorvel_2.5"));
    EXPECT_FALSE(service.holds("/export/Quorvel_2.5/usr_kel4.all2"));
}

TEST(Service, IsNotNamedByWhatCannotBePartOfAPath) {
    EXPECT_NO_THROW(check_service_names("Quorvel", "kel4", ""));
    for (const char *name : {"..", ".hidden", "-x", "a:b", "a,b", "a/b", "a b"})
        EXPECT_THROW(check_service_names(name, "kel4", ""), std::exception) << name;
    EXPECT_THROW(check_service_names("Quorvel", "kel4", "kel4:m"), std::exception);
}

} // namespace
