// SPDX-License-Identifier: MIT
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <unistd.h>

#include "base/share_rules.hpp"

namespace {

using namespace hostadm::base;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Throws;
using testing::ThrowsMessage;

class ShareRules : public testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/share-rules-XXXXXX";
        folder = std::filesystem::canonical(mkdtemp(name));
        std::filesystem::create_directories(folder + "/home/one");
        std::filesystem::create_directories(folder + "/homes");
        std::ofstream(folder + "/file") << "text";
    }
    void TearDown() override { std::filesystem::remove_all(folder); }

    static ShareRequest request(std::vector<std::string> words) {
        words.insert(words.begin(), "share");
        return parse_share_words(words, share_letters);
    }
    Share wanted(const std::string &below, bool files_too = false) const {
        return wanted_share(request({folder + below}), files_too);
    }

    std::string folder;
};

TEST_F(ShareRules, WordsAreOptionsAndOneDirectory) {
    const ShareRequest all = request({"-F", "nfs", "-o", "ro", "-d", "two words", "/export"});
    EXPECT_EQ(all.options, "ro");
    EXPECT_EQ(all.description, "two words");
    EXPECT_THAT(all.operands, testing::ElementsAre("/export"));
    EXPECT_EQ(request({"/export"}).options, "rw");
}

TEST_F(ShareRules, WrongWordsAreTheCallersMistake) {
    EXPECT_THAT([] { request({"-x", "/export"}); }, ThrowsMessage<ShareUsage>(HasSubstr("try --help")));
    EXPECT_THAT([] { request({"-F", "ufs", "/export"}); }, ThrowsMessage<ShareUsage>(HasSubstr("ufs")));
    EXPECT_THAT([] { wanted_share(request({}), false); }, Throws<ShareUsage>());
    EXPECT_THAT([] { wanted_share(request({"/a", "/b"}), false); }, Throws<ShareUsage>());
}

TEST_F(ShareRules, OnlyADirectoryWithAnAbsolutePathIsShared) {
    EXPECT_EQ(wanted("/home").path, folder + "/home");
    EXPECT_THAT([] { wanted_share(request({"home"}), false); },
                ThrowsMessage<ShareRefused>(HasSubstr("not an absolute path")));
    EXPECT_THAT([] { wanted_share(request({""}), false); }, Throws<ShareRefused>());
    EXPECT_THAT([&] { wanted("/none"); }, ThrowsMessage<ShareRefused>(HasSubstr("No such file")));
    EXPECT_THAT([&] { wanted("/file"); }, ThrowsMessage<ShareRefused>(HasSubstr("directory of this file")));
    EXPECT_EQ(wanted("/file", true).path, folder + "/file");
}

TEST_F(ShareRules, ALinkIsSharedAsWhatItLeadsTo) {
    std::filesystem::create_symlink("home", folder + "/link");
    EXPECT_EQ(wanted("/link").path, folder + "/home");
}

TEST_F(ShareRules, DirectoriesAboveAndBelowAShareAreRefused) {
    const std::vector<Share> shares = {{folder + "/home", "rw", ""}};
    EXPECT_THAT([&] { check_neighbours(shares, folder); },
                ThrowsMessage<ShareRefused>(HasSubstr("sub-directory (" + folder + "/home) already shared")));
    EXPECT_THAT([&] { check_neighbours(shares, folder + "/home/one"); },
                ThrowsMessage<ShareRefused>(HasSubstr("parent (" + folder + "/home) already shared")));
    EXPECT_NO_THROW(check_neighbours(shares, folder + "/homes"));
    EXPECT_NO_THROW(check_neighbours(shares, folder + "/home"));
}

TEST_F(ShareRules, AShareOfTheSameOptionsServesWhatLiesBelow) {
    const std::vector<Share> shares = {{folder + "/home", "rw", ""}};
    EXPECT_TRUE(is_served(shares, {folder + "/home/one", "rw", ""}));
    EXPECT_FALSE(is_served(shares, {folder + "/home/one", "ro", ""}));
    EXPECT_FALSE(is_served(shares, {folder + "/homes", "rw", ""}));
}

TEST_F(ShareRules, ASecondShareOfAPathTakesThePlaceOfTheFirst) {
    std::vector<Share> shares = {{"/a", "rw", ""}, {"/b", "rw", ""}};
    put_share(shares, {"/a", "ro", "new"});
    put_share(shares, {"/c", "rw", ""});
    EXPECT_THAT(shares,
                testing::ElementsAre(Share{"/a", "ro", "new"}, Share{"/b", "rw", ""}, Share{"/c", "rw", ""}));
}

TEST_F(ShareRules, WithdrawnIsWhatThePathLeadsToAndWhatIsGone) {
    std::filesystem::create_symlink("home", folder + "/link");
    std::vector<Share> shares = {{folder + "/home", "rw", ""}, {"/gone", "rw", ""}};
    withdraw_share(shares, request({"/gone"}));
    withdraw_share(shares, request({folder + "/link"}));
    EXPECT_THAT(shares, IsEmpty());
    EXPECT_THAT([&] { withdraw_share(shares, request({"/gone"})); },
                ThrowsMessage<ShareRefused>("/gone: not shared"));
    EXPECT_THAT([&] { withdraw_share(shares, request({})); }, Throws<ShareUsage>());
}

} // namespace
