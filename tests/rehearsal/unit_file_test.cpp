// SPDX-License-Identifier: MIT
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>

#include "rehearsal/unit_file.hpp"

namespace {

namespace fs = std::filesystem;
using hostadm::rehearsal::assignments_in;
using hostadm::rehearsal::unit_command;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class UnitFile : public testing::Test {
protected:
    UnitFile() : root_(fs::temp_directory_path() / ("units-" + std::to_string(getpid()))) {}
    ~UnitFile() override { fs::remove_all(root_); }

    void write(const std::string &path, const std::string &text) const {
        fs::create_directories((root_ / path.substr(1)).parent_path());
        std::ofstream(root_ / path.substr(1)) << text;
    }
    std::vector<std::string> words(const std::string &name = "daemon") const {
        const auto command = unit_command(name, root_);
        return command ? command->words : std::vector<std::string>();
    }

    fs::path root_;
};

TEST_F(UnitFile, WordsAreThoseOfTheCommand) {
    write("/lib/systemd/system/daemon.service", "[Service]\nExecStart=/usr/sbin/daemon -a 'two words'\n");
    EXPECT_THAT(words(), ElementsAre("/usr/sbin/daemon", "-a", "two words"));
}

TEST_F(UnitFile, SettingsOfTheDefaultsFileComeBeforeThoseOfTheUnit) {
    write("/lib/systemd/system/daemon.service", "[Service]\nEnvironment=\"OPTIONS=-w\"\n"
                                                "ExecStart=-/sbin/daemon -f $OPTIONS\n"
                                                "EnvironmentFile=-/etc/default/daemon\n");
    EXPECT_THAT(words(), ElementsAre("/sbin/daemon", "-f", "-w"));
    write("/etc/default/daemon", "# comment\nOPTIONS=\"\"\nOPTIONS=\"-w -r\"\n");
    EXPECT_THAT(words(), ElementsAre("/sbin/daemon", "-f", "-w", "-r"));
}

TEST_F(UnitFile, AVariableInBracesStaysInItsWord) {
    write("/lib/systemd/system/daemon.service",
          "[Service]\nEnvironment=\"A=x y\"\nExecStart=/bin/sh -c \"${NONE} daemon ${A}\"\n");
    EXPECT_THAT(words(), ElementsAre("/bin/sh", "-c", " daemon x y"));
}

TEST_F(UnitFile, ADropInChangesTheCommand) {
    write("/lib/systemd/system/daemon.service", "[Service]\nExecStart=/sbin/daemon -s\n");
    write("/etc/systemd/system/daemon.service.d/router.conf",
          "[Service]\nExecStart=\nExecStart=/sbin/daemon -r 192.168.1.1\n");
    EXPECT_THAT(words(), ElementsAre("/sbin/daemon", "-r", "192.168.1.1"));
}

TEST_F(UnitFile, TheAdministratorsUnitHidesThePackages) {
    write("/lib/systemd/system/daemon.service", "[Service]\nExecStart=/sbin/daemon\n");
    write("/etc/systemd/system/daemon.service", "[Service]\nExecStart=/usr/local/sbin/daemon \\\n  -x\n");
    EXPECT_THAT(words(), ElementsAre("/usr/local/sbin/daemon", "-x"));
}

TEST_F(UnitFile, AMaskedUnitStartsNothing) {
    write("/lib/systemd/system/daemon.service", "[Service]\nExecStart=/sbin/daemon\n");
    fs::create_directories(root_ / "etc/systemd/system");
    fs::create_symlink("/dev/null", root_ / "etc/systemd/system/daemon.service");
    EXPECT_THAT(words(), IsEmpty());
}

TEST_F(UnitFile, NoUnitIsNoCommand) {
    EXPECT_THAT(words(), IsEmpty());
}

TEST(Assignments, AreThoseThatAShellWouldMake) {
    EXPECT_THAT(assignments_in("A=1\n#B=2\n C='3 4'\nexport D=\"5\"\nno assignment\nE F=6\nG=\n"),
                ElementsAre(Pair("A", "1"), Pair("C", "3 4"), Pair("D", "5"), Pair("G", "")));
}

} // namespace
