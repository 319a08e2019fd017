// SPDX-License-Identifier: MIT
// The texts of the error codes, and their translations.
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <libintl.h>
#include <map>
#include <string>

#include "hostadm/framework.h"

namespace {

// How many arguments each code is recorded with, the method's name among them; all are strings.
const std::map<int, int> recorded_arguments{
    {0, 0},  {1, 2},  {8, 3},  {10, 3}, {22, 1}, {23, 4}, {24, 4}, {26, 2}, {27, 4},
    {29, 5}, {30, 6}, {37, 3}, {40, 2}, {42, 3}, {44, 2}, {49, 4}, {53, 2}, {56, 4},
    {66, 6}, {67, 6}, {70, 4}, {91, 3}, {92, 3}, {96, 2}, {97, 3},
};
constexpr int codes = 98;

// The number of "%s" in a text; -1 when it holds any other conversion.
int arguments_of(const std::string &text) {
    int count = 0;
    for (std::size_t at = text.find('%'); at != text.npos; at = text.find('%', at + 2)) {
        if (text.compare(at, 2, "%s") != 0)
            return -1;
        ++count;
    }
    return count;
}

void expect_sound(const std::string &text, int code) {
    const auto recorded = recorded_arguments.find(code);
    EXPECT_EQ(arguments_of(text), recorded == recorded_arguments.end() ? 1 : recorded->second)
        << code << ": " << text;
    if (code != 0) {
        EXPECT_THAT(text, testing::StartsWith("%s: ")) << code;
    }
    EXPECT_FALSE(text.empty() || text.ends_with("\n") || text.ends_with(".")) << code << ": " << text;
}

TEST(Messages, TakeTheArgumentsTheyAreRecordedWith) {
    for (int code = 0; code < codes; ++code) {
        ASSERT_NE(system_msgs[code], nullptr) << code;
        expect_sound(system_msgs[code], code);
    }
}

TEST(Messages, RecordedCodesHaveTextsOfTheirOwn) {
    std::map<std::string, int> seen;
    for (const auto &[code, count] : recorded_arguments) {
        EXPECT_STRNE(system_msgs[code], system_msgs[2]) << code;
        EXPECT_TRUE(seen.emplace(system_msgs[code], code).second) << code;
    }
}

TEST(Messages, DetailsStandBehindOthers) {
    char detail[256];
    char text[512];
    std::snprintf(detail, sizeof detail, system_msgs[8], "", "/dev/sd0", "/etc/vfstab");
    std::snprintf(text, sizeof text, system_msgs[70], "mount", "/dev/sd0", "/etc/vfstab", detail);
    EXPECT_STREQ(text, "mount: cannot update the entry for /dev/sd0 in /etc/vfstab: there is no line for "
                       "/dev/sd0 in /etc/vfstab");
    std::snprintf(detail, sizeof detail, system_msgs[53], "", "/etc/vfstab");
    std::snprintf(text, sizeof text, system_msgs[70], "mount", "/dev/sd0", "/etc/vfstab", detail);
    EXPECT_STREQ(text, "mount: cannot update the entry for /dev/sd0 in /etc/vfstab: /etc/vfstab is locked by "
                       "another program; "
                       "try again when that has finished");
}

// gettext looks into catalogues only in a locale that is not "C"; LANGUAGE then chooses among them.
class Translations : public testing::Test {
protected:
    void SetUp() override {
        if (std::setlocale(LC_ALL, "C.UTF-8") == nullptr)
            GTEST_SKIP() << "this system has no locale C.UTF-8";
    }
    void TearDown() override {
        unsetenv("LANGUAGE");
        std::setlocale(LC_ALL, "C");
    }
};

// The text of every entry of a translation, as it stands in its source.
std::map<std::string, std::string> entries(const std::string &file) {
    std::map<std::string, std::string> read;
    std::ifstream stream(file);
    std::string *current = nullptr;
    std::string id;
    std::string text;
    const auto take = [&](const std::string &quoted) {
        for (std::size_t at = quoted.find('"') + 1; at < quoted.rfind('"'); ++at) {
            if (quoted[at] == '\\')
                ++at;
            *current += quoted[at];
        }
    };
    for (std::string line; std::getline(stream, line);) {
        if (line.starts_with("msgid ")) {
            if (current != nullptr)
                read[id] = text;
            id.clear();
            text.clear();
            current = &id;
            take(line);
        } else if (line.starts_with("msgstr ")) {
            current = &text;
            take(line);
        } else if (line.starts_with("\"") && current != nullptr) {
            take(line);
        }
    }
    read[id] = text;
    read.erase("");
    return read;
}

TEST(TranslationSources, AreCompleteAndTakeTheSameArguments) {
    int translations = 0;
    for (const auto &file : std::filesystem::directory_iterator(TRANSLATIONS)) {
        if (file.path().extension() != ".po")
            continue;
        ++translations;
        const auto texts = entries(file.path());
        for (int code = 0; code < codes; ++code) {
            const auto found = texts.find(system_msgs[code]);
            ASSERT_NE(found, texts.end()) << file.path() << " lacks " << system_msgs[code];
            expect_sound(found->second, code);
        }
    }
    EXPECT_GE(translations, 1);
}

TEST_F(Translations, AreFoundBesideTheFramework) {
    const std::string bound = bindtextdomain("system_msgs", nullptr);
    EXPECT_EQ(bound, std::string(TEST_ROOT) + "/share/locale");
    ASSERT_TRUE(std::filesystem::exists(bound + "/de/LC_MESSAGES/system_msgs.mo"));
    setenv("LANGUAGE", "de", 1);
    EXPECT_STREQ(
        dgettext("system_msgs", system_msgs[53]),
        "%s: %s ist von einem anderen Programm gesperrt; noch einmal versuchen, wenn dieses fertig ist");
}

} // namespace
