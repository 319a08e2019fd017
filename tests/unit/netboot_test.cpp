// SPDX-License-Identifier: MIT
// The boot areas lie at fixed paths, so what touches files is played by the functions below: they note each
// call in one list and answer as the test says. Nothing reaches the file system.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

#include "hostadm.h"
#include "support/fake_commands.hpp"
#include "support/fake_framework.hpp"
#include "support/fake_platform.hpp"

using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::IsEmpty;

namespace {

std::vector<std::string> done;
std::set<std::string> present;       // paths that access finds
std::map<std::string, int> statuses; // of a call noted under this text; otherwise 0
std::string boot_name;               // what make_boot_name puts together
bool aloud;                          // also tell stderr of each call, for functions that exit

int note(const std::string &what) {
    done.push_back(what);
    if (aloud)
        std::fprintf(stderr, "%s\n", what.c_str());
    const auto found = statuses.find(what);
    return found == statuses.end() ? 0 : found->second;
}

std::string shown(const char *text) {
    return text == nullptr ? "(null)" : text;
}

} // namespace

extern "C" {

int mkdir_path(char *path) {
    return note("mkdir " + shown(path));
}
int mklink(const char *target, const char *link_path) {
    return note("link " + shown(link_path) + " -> " + shown(target));
}
int copyfile(const char *destination, const char *source) {
    return note("copy " + shown(source) + " to " + shown(destination));
}
int unlink(const char *path) noexcept {
    return note("unlink " + shown(path));
}
int access(const char *path, int) noexcept {
    return present.count(path) != 0 ? 0 : -1;
}
const char *make_boot_name(const char *os_version, const char *os_name, const char *, const char *impl_arch) {
    if (statuses.count("no boot name") != 0)
        return nullptr;
    boot_name = "inetboot." + shown(impl_arch) + "." + shown(os_name) + "_" + shown(os_version);
    return boot_name.c_str();
}
char *install_bootprog_location(const char *method, const char *host, const char *dirpath,
                                const char *inst_set, const char *impl_arch, const char *os_name,
                                const char *os_version) {
    static std::string location;
    location = shown(dirpath) + "/boot";
    note("ask " + shown(method) + " " + shown(host) + " " + shown(dirpath) + " " + shown(inst_set) + " " +
         shown(impl_arch) + " " + shown(os_name) + " " + shown(os_version));
    return statuses.count("no boot program") != 0 ? nullptr : location.data();
}
}

namespace {

class Netboot : public testing::Test {
protected:
    void SetUp() override {
        fakes::reset_all();
        fakes::framework().announce_errors = true;
        done.clear();
        present.clear();
        statuses.clear();
        aloud = false;
    }
    static std::vector<std::string> &commands() { return fakes::commands().lines; }

    int setup() {
        return setup_tftpboot_dir("add", "srv", "10.0.0.1", arch, "/cd", "kel4", "Quorvel", "2.5");
    }
    const char *init_rpl() {
        return init_rplboot_dir("add", "key", "i86pc", "/os", "i386", "Quorvel", "2.5");
    }

    void init_rpl_with_everything() {
        present = {"/rplboot/inetboot.i86pc.Quorvel_2.5", "/rplboot/gluecode.com", "/rplboot/smc.com"};
        init_rpl();
    }

    char arch[8] = "kel4m";
};

using NetbootExits = Netboot;

const std::string image = "/os/export/exec/i386.Quorvel_2.5";
const std::string platform_part = image + "/platform/i86pc/lib/fs/nfs";
const std::string plain_part = image + "/lib/fs/nfs";

} // namespace

TEST_F(Netboot, TftpbootIsMadeWithALinkToItself) {
    make_tftpboot_dir("add");
    EXPECT_THAT(done, ElementsAre("mkdir /tftpboot", "link /tftpboot/tftpboot -> ."));
    EXPECT_TRUE(fakes::framework().errors.empty());
}

TEST_F(Netboot, ATftpbootThatIsThereIsTakenAsItIs) {
    statuses["mkdir /tftpboot"] = -3;
    make_tftpboot_dir("add");
    EXPECT_THAT(done, ElementsAre("mkdir /tftpboot", "link /tftpboot/tftpboot -> ."));
    EXPECT_TRUE(fakes::framework().errors.empty());
}

TEST_F(NetbootExits, WhenTftpbootCannotBeMade) {
    for (const int status : {-1, 13, 30}) {
        statuses["mkdir /tftpboot"] = status;
        EXPECT_EXIT(make_tftpboot_dir("add"), ExitedWithCode(1), "^recorded 40: 40\\|add\\|/tftpboot\n$");
    }
}

TEST_F(NetbootExits, WhenTftpbootCannotBeLinkedToItself) {
    statuses["link /tftpboot/tftpboot -> ."] = -1;
    EXPECT_EXIT(make_tftpboot_dir("add"), ExitedWithCode(1),
                "^recorded 40: 40\\|add\\|/tftpboot/tftpboot\n$");
}

TEST_F(Netboot, TheBootProgramIsCopiedOnceUnderItsName) {
    EXPECT_STREQ(init_tftpboot_dir("add", "srv", nullptr, arch, "/cd", "kel4", "Quorvel", "2.5"),
                 "inetboot.kel4m.Quorvel_2.5");
    EXPECT_THAT(done, ElementsAre("mkdir /tftpboot", "link /tftpboot/tftpboot -> .",
                                  "ask add srv /cd kel4 kel4m Quorvel 2.5",
                                  "copy /cd/boot to /tftpboot/inetboot.kel4m.Quorvel_2.5"));
}

TEST_F(Netboot, ABootProgramThatIsThereIsNeitherLookedForNorCopied) {
    present = {"/tftpboot/inetboot.kel4m.Quorvel_2.5"};
    EXPECT_STREQ(init_tftpboot_dir("add", "srv", "10.0.0.1", arch, "/cd", "kel4", "Quorvel", "2.5"),
                 "inetboot.kel4m.Quorvel_2.5");
    EXPECT_THAT(done, ElementsAre("mkdir /tftpboot", "link /tftpboot/tftpboot -> ."));
}

TEST_F(NetbootExits, WhenTheBootProgramCannotBeCopied) {
    statuses["copy /cd/boot to /tftpboot/inetboot.kel4m.Quorvel_2.5"] = 256;
    EXPECT_EXIT(setup(), ExitedWithCode(1), "^recorded 67: 67\\|add\\|srv\\|kel4\\|kel4m\\|Quorvel\\|2.5\n$");
}

TEST_F(NetbootExits, WhenThereIsNoBootProgram) {
    statuses["no boot program"] = 1;
    statuses["copy (null) to /tftpboot/inetboot.kel4m.Quorvel_2.5"] = -1;
    EXPECT_EXIT(setup(), ExitedWithCode(1), "^recorded 67: 67\\|add\\|srv\\|kel4\\|kel4m\\|Quorvel\\|2.5\n$");
}

TEST_F(NetbootExits, WithoutARecordWhenMemoryIsOut) {
    statuses["no boot name"] = 1;
    EXPECT_EXIT(setup(), ExitedWithCode(1), "^$");
    EXPECT_EXIT(init_rpl(), ExitedWithCode(1), "^$");
}

TEST_F(Netboot, SettingAClientUpMakesTheAreaThenItsLinks) {
    EXPECT_EQ(setup(), 0);
    EXPECT_THAT(done, ElementsAre("mkdir /tftpboot", "link /tftpboot/tftpboot -> .",
                                  "ask add srv /cd kel4 kel4m Quorvel 2.5",
                                  "copy /cd/boot to /tftpboot/inetboot.kel4m.Quorvel_2.5",
                                  "link /tftpboot/0A000001 -> inetboot.kel4m.Quorvel_2.5",
                                  "link /tftpboot/0A000001.KEL4M -> inetboot.kel4m.Quorvel_2.5"));
    EXPECT_THAT(commands(), ElementsAre("rm /tftpboot/0A000001*"));
}

TEST_F(Netboot, AddingAClientUpperCasesTheCallersArchitecture) {
    EXPECT_EQ(add_tftpboot_dir_client("add", "boot", "10.0.0.1", arch), 0);
    EXPECT_STREQ(arch, "KEL4M");
}

TEST_F(Netboot, AddingAClientTwiceRemovesItsLinksBeforeMakingThemAfresh) {
    add_tftpboot_dir_client("add", "boot", "192.168.1.10", arch);
    add_tftpboot_dir_client("add", "boot", "192.168.1.10", arch);
    EXPECT_THAT(commands(), ElementsAre("rm /tftpboot/C0A8010A*", "rm /tftpboot/C0A8010A*"));
    EXPECT_THAT(done,
                ElementsAre("link /tftpboot/C0A8010A -> boot", "link /tftpboot/C0A8010A.KEL4M -> boot",
                            "link /tftpboot/C0A8010A -> boot", "link /tftpboot/C0A8010A.KEL4M -> boot"));
}

TEST_F(Netboot, TheSecondLinkDecidesHowAddingAClientEnded) {
    statuses["link /tftpboot/0A000001 -> boot"] = -1;
    EXPECT_EQ(add_tftpboot_dir_client("add", "boot", "10.0.0.1", arch), 0);
    statuses.clear();
    statuses["link /tftpboot/0A000001.KEL4M -> boot"] = -1;
    EXPECT_EQ(add_tftpboot_dir_client("add", "boot", "10.0.0.1", arch), -1);
    EXPECT_TRUE(fakes::framework().errors.empty());
}

TEST_F(Netboot, EveryOctetOfAnAddressIsWrittenInUpperCase) {
    delete_tftpboot_dir_client("remove", "0.0.0.0");
    delete_tftpboot_dir_client("remove", "1.2.3.4");
    delete_tftpboot_dir_client("remove", "222.173.190.239");
    EXPECT_THAT(commands(),
                ElementsAre("rm /tftpboot/00000000*", "rm /tftpboot/01020304*", "rm /tftpboot/DEADBEEF*"));
}

TEST_F(Netboot, AMalformedAddressGivesTheAllOnesName) {
    EXPECT_EQ(add_tftpboot_dir_client("add", "boot", "client1", arch), 0);
    EXPECT_THAT(commands(), ElementsAre("rm /tftpboot/FFFFFFFF*"));
    EXPECT_THAT(done,
                ElementsAre("link /tftpboot/FFFFFFFF -> boot", "link /tftpboot/FFFFFFFF.KEL4M -> boot"));
}

TEST_F(Netboot, RemovingAClientReturnsTheCommandsStatusAndRecordsNothing) {
    EXPECT_EQ(cleanup_tftpboot_dir("remove", "10.0.0.1"), 0);
    fakes::commands().answers = {{.contains = "rm /tftpboot/0A000002*", .status = 256}};
    EXPECT_EQ(cleanup_tftpboot_dir("remove", "10.0.0.2"), 256);
    EXPECT_EQ(delete_tftpboot_dir_client(nullptr, "10.0.0.2"), 256);
    EXPECT_TRUE(fakes::framework().errors.empty());
}

TEST_F(Netboot, NamesMuchLongerThanAPathBufferStayWhole) {
    const std::string name(3000, 'n');
    EXPECT_EQ(add_tftpboot_dir_client("add", name.c_str(), "10.0.0.1", arch), 0);
    EXPECT_EQ(done.back(), "link /tftpboot/0A000001.KEL4M -> " + name);
    EXPECT_EQ(add_rplboot_dir_client("add", "boot", name.c_str()), 0);
    EXPECT_EQ(done.back(), "link /rplboot/" + name + ".inetboot -> boot");
    delete_rplboot_dir_client("remove", name.c_str());
    EXPECT_EQ(commands().back(), "rm /rplboot/" + name + "*");
}

TEST_F(Netboot, RplbootTakesItsProgramsFromThePlatformPartFirst) {
    for (const char *name : {"/inetboot", "/gluecode.com", "/smc.com"})
        present.insert(platform_part + name);
    present.insert({plain_part + "/inetboot", plain_part + "/drv.i86pc/gluecode.com"});
    EXPECT_STREQ(init_rpl(), "inetboot.i86pc.Quorvel_2.5");
    EXPECT_THAT(done,
                ElementsAre("mkdir /rplboot",
                            "copy " + platform_part + "/inetboot to /rplboot/inetboot.i86pc.Quorvel_2.5",
                            "copy " + platform_part + "/gluecode.com to /rplboot/gluecode.com",
                            "copy " + platform_part + "/smc.com to /rplboot/smc.com"));
}

TEST_F(Netboot, RplbootFallsBackToThePlainPartAndItsDriverFolder) {
    present = {plain_part + "/inetboot", plain_part + "/drv.i86pc/gluecode.com",
               plain_part + "/drv.i86pc/smc.com"};
    statuses["mkdir /rplboot"] = -3;
    init_rpl();
    EXPECT_THAT(done, ElementsAre("mkdir /rplboot",
                                  "copy " + plain_part + "/inetboot to /rplboot/inetboot.i86pc.Quorvel_2.5",
                                  "copy " + plain_part + "/drv.i86pc/gluecode.com to /rplboot/gluecode.com",
                                  "copy " + plain_part + "/drv.i86pc/smc.com to /rplboot/smc.com"));
}

TEST_F(Netboot, RplbootProgramsThatAreThereAreNotCopiedAgain) {
    present = {"/rplboot/inetboot.i86pc.Quorvel_2.5", "/rplboot/gluecode.com", "/rplboot/smc.com"};
    EXPECT_STREQ(init_rpl(), "inetboot.i86pc.Quorvel_2.5");
    EXPECT_THAT(done, ElementsAre("mkdir /rplboot"));
}

TEST_F(Netboot, AFailedCopyIntoRplbootIsNotNoticed) {
    present = {plain_part + "/inetboot", "/rplboot/gluecode.com", "/rplboot/smc.com"};
    statuses["copy " + plain_part + "/inetboot to /rplboot/inetboot.i86pc.Quorvel_2.5"] = 256;
    EXPECT_STREQ(init_rpl(), "inetboot.i86pc.Quorvel_2.5");
    EXPECT_TRUE(fakes::framework().errors.empty());
}

TEST_F(NetbootExits, WhenRplbootCannotBeMade) {
    statuses["mkdir /rplboot"] = 28;
    EXPECT_EXIT(init_rpl(), ExitedWithCode(1), "^recorded 40: 40\\|add\\|/rplboot\n$");
}

TEST_F(NetbootExits, WhenAnImageLacksARplbootProgram) {
    const std::string records = "^recorded 67: 67\\|add\\|server1\\|i386\\|i86pc\\|Quorvel\\|2.5\n$";
    EXPECT_EXIT(init_rpl(), ExitedWithCode(1), records) << "boot program";
    present.insert(plain_part + "/inetboot");
    // Beside the boot program is not where the modules lie.
    present.insert({plain_part + "/gluecode.com", plain_part + "/smc.com"});
    EXPECT_EXIT(init_rpl(), ExitedWithCode(1), records) << "gluecode.com";
}

TEST_F(NetbootExits, OnlyAfterTheRplbootProgramsBeforeTheMissingOneWereCopied) {
    present = {plain_part + "/inetboot", platform_part + "/gluecode.com"};
    aloud = true;
    EXPECT_EXIT(init_rpl(), ExitedWithCode(1),
                "^mkdir /rplboot\ncopy .*/inetboot to .*\ncopy .*/gluecode.com to .*\nrecorded 67: .*\n$");
}

TEST_F(NetbootExits, NamingNoHostWhenTheSystemGivesNone) {
    init_rpl_with_everything();
    present.clear();
    fakes::platform().sysinfo.erase(2);
    for (const long answer : {-1, 0}) {
        fakes::platform().no_sysinfo = answer;
        EXPECT_EXIT(init_rpl(), ExitedWithCode(1),
                    "^recorded 67: 67\\|add\\|\\|i386\\|i86pc\\|Quorvel\\|2.5\n");
    }
}

TEST_F(NetbootExits, NamingTheHostAsItIsCalledAtTheTime) {
    init_rpl_with_everything();
    fakes::platform().sysinfo[2] = "renamed";
    present.clear();
    EXPECT_EXIT(init_rpl(), ExitedWithCode(1), "^recorded 67: 67\\|add\\|renamed\\|");
}

TEST_F(Netboot, AddingARplClientReplacesItsThreeLinks) {
    EXPECT_EQ(add_rplboot_dir_client("add", "boot", "10005A010203"), 0);
    EXPECT_THAT(done, ElementsAre("unlink /rplboot/10005A010203.hw.com",
                                  "link /rplboot/10005A010203.hw.com -> ./smc.com",
                                  "unlink /rplboot/10005A010203.glue.com",
                                  "link /rplboot/10005A010203.glue.com -> ./gluecode.com",
                                  "unlink /rplboot/10005A010203.inetboot",
                                  "link /rplboot/10005A010203.inetboot -> boot"));
}

TEST_F(Netboot, TheThirdLinkDecidesHowAddingARplClientEnded) {
    statuses["link /rplboot/k.hw.com -> ./smc.com"] = -1;
    statuses["link /rplboot/k.glue.com -> ./gluecode.com"] = -1;
    statuses["unlink /rplboot/k.inetboot"] = -1;
    EXPECT_EQ(add_rplboot_dir_client("add", "boot", "k"), 0);
    statuses["link /rplboot/k.inetboot -> boot"] = -1;
    EXPECT_EQ(add_rplboot_dir_client("add", "boot", "k"), -1);
}

TEST_F(Netboot, SettingARplClientUpMakesTheAreaThenItsLinks) {
    present = {"/rplboot/inetboot.i86pc.Quorvel_2.5", "/rplboot/gluecode.com", "/rplboot/smc.com"};
    EXPECT_EQ(setup_rplboot_dir("add", "key", "i86pc", "/os", "i386", "Quorvel", "2.5"), 0);
    EXPECT_EQ(done.front(), "mkdir /rplboot");
    EXPECT_EQ(done.back(), "link /rplboot/key.inetboot -> inetboot.i86pc.Quorvel_2.5");
}

TEST_F(Netboot, RemovingARplClientRemovesWhateverBeginsWithItsKey) {
    fakes::commands().answers = {{.contains = "key2", .status = 256}};
    EXPECT_EQ(cleanup_rplboot_dir("remove", "key"), 0);
    EXPECT_EQ(cleanup_rplboot_dir("remove", "key2"), 256);
    EXPECT_THAT(commands(), ElementsAre("rm /rplboot/key*", "rm /rplboot/key2*"));
    EXPECT_TRUE(fakes::framework().errors.empty());
}
