// SPDX-License-Identifier: MIT
// What a shell is told that can come next, in an installation whose methods list clients and other things.
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <vector>

#include "support/scratch.hpp"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;

// Lists clients; what it says of itself and does is what the test wants.
std::string client_list(const std::string &touched, const std::string &work) {
    return "#!/bin/sh\n"
           "[ \"$1\" = --describe ] || { " +
           work +
           "\nexit; }\n"
           R"(echo '{"name": "client/list_names", "purpose": "clients", "arguments": [{"name": "kind", "kind": "word"}], )" +
           touched + "\"columns\": []}'\n";
}

constexpr const char *three_clients = R"END(
    hostadm arg row name=alpha address=10.0.0.1 kind="$(hostadm arg get kind)"
    hostadm arg row name=alpine address=10.0.0.2
    hostadm arg row name=beta address=10.0.0.3
    hostadm arg row name=-x address=10.0.0.4
    hostadm arg row name="$(printf 'al\033[2J')" address=10.0.0.5
    hostadm arg row name='al b' address=10.0.0.6
    hostadm arg row name=beta address=10.0.0.3)END";

constexpr const char *site_take = R"END(#!/bin/sh
cat <<'END'
{"name": "site/take", "purpose": "take values", "arguments": [
   {"name": "client", "kind": "host"}, {"name": "clients", "kind": "hosts"}, {"name": "address", "kind": "address"},
   {"name": "kind", "kind": "word"}, {"name": "note", "kind": "text"}, {"name": "place", "kind": "path"},
   {"name": "size", "kind": "size", "default": "32m"}],
 "values": [{"argument": "client", "method": "client/list_names", "column": "name"},
            {"argument": "clients", "method": "client/list_names", "column": "name"},
            {"argument": "address", "method": "client/list_names", "column": "address"},
            {"argument": "note", "method": "client/list_names", "column": "name"},
            {"argument": "kind", "method": "client/list_names", "column": "kind"},
            {"argument": "kind", "method": "site/missing", "column": "kind"},
            {"argument": "place", "method": "site/missing", "column": "place"}]}
END
)END";

class Completion : public testing::Test {
protected:
    Completion() {
        std::filesystem::copy(TEST_ROOT, scratch.path("root"),
                              std::filesystem::copy_options::recursive |
                                  std::filesystem::copy_options::copy_symlinks);
        method("client/list_names", client_list("", three_clients));
        method("site/take", site_take);
    }
    void method(const std::string &name, const std::string &text) {
        const std::string path = scratch.write("root/libexec/hostadm/methods/" + name, text);
        std::filesystem::permissions(path, std::filesystem::perms(0755));
    }
    std::string said(const std::string &line) {
        const std::string out = scratch.path("out");
        const int status =
            std::system(("exec >" + out + " 2>&1; " + scratch.path("root/bin/hostadm") + " " + line).c_str());
        EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 0) << line;
        return tests::content(out);
    }
    std::vector<std::string> lines(const std::string &line) {
        std::istringstream stream(said(line));
        std::vector<std::string> found;
        for (std::string one; std::getline(stream, one);)
            found.push_back(one);
        return found;
    }
    // Behind these words, which the shell of the test takes apart.
    std::vector<std::string> offered(const std::string &words) {
        return lines("complete zsh hostadm " + words);
    }
    // To bash, for a line up to the cursor and the part of it that is replaced.
    std::vector<std::string> offered_to_bash(const std::string &line, const std::string &part) {
        const std::string one = scratch.write("line", line), two = scratch.write("part", part);
        return lines("complete bash \"$(cat " + one + ")\" \"$(cat " + two + ")\"");
    }

    tests::Scratch scratch;
};

TEST_F(Completion, OffersCommandsAndTheirOptions) {
    EXPECT_THAT(offered("pre"), ElementsAre("preview"));
    EXPECT_THAT(offered("''"), Contains("rehearse"));
    EXPECT_THAT(offered("''"), Not(Contains("serve")));
    EXPECT_THAT(offered("''"), Not(Contains("complete")));
    EXPECT_THAT(offered("--v"), ElementsAre("--version"));
    EXPECT_THAT(offered("run --"),
                UnorderedElementsAre("--json", "--from", "--host", "--sudo", "--connect-timeout",
                                     "--answer-timeout", "--at-once", "--help"));
    EXPECT_THAT(offered("preview --json --"), Not(Contains("--json"))) << "it is given already";
    EXPECT_THAT(offered("preview --then status --th"), ElementsAre("--then"));
    EXPECT_THAT(offered("preview --then st"), ElementsAre("status"));
    EXPECT_THAT(offered("preview --then=st"), ElementsAre("--then=status"));
    EXPECT_THAT(offered("preview --time-limit ''"), IsEmpty());
    EXPECT_THAT(offered("arg u"), ElementsAre("undone"));
    EXPECT_THAT(offered("arg get ''"), IsEmpty());
    EXPECT_THAT(offered("bogus ''"), IsEmpty());
}

TEST_F(Completion, OffersMethodsAndClasses) {
    EXPECT_THAT(offered("run test/ec"), ElementsAre("test/echo"));
    EXPECT_THAT(offered("run --host localhost test/ec"), ElementsAre("test/echo"));
    EXPECT_THAT(offered("list ot"), ElementsAre("other"));
    EXPECT_THAT(offered("list other ''"), IsEmpty());
    EXPECT_THAT(offered("help ot"), ElementsAre("other", "other/echo"));
    EXPECT_THAT(offered("help ch"), ElementsAre("check", "checks"));
}

TEST_F(Completion, OffersArgumentsThatAreNotGivenYet) {
    EXPECT_THAT(offered("run test/echo ''"), ElementsAre("text=", "times=", "rows="));
    EXPECT_THAT(offered("preview echo text=x ro"), IsEmpty()) << "there are two methods echo";
    EXPECT_THAT(offered("preview kinds yes"), ElementsAre("yes_no="));
    EXPECT_THAT(offered("run test/echo text=x ''"), ElementsAre("times=", "rows="));
    EXPECT_THAT(offered("run no/such ''"), IsEmpty());
}

TEST_F(Completion, OffersChoicesAndDefaults) {
    EXPECT_THAT(offered("run test/echo rows="), ElementsAre("rows=yes", "rows=no"));
    EXPECT_THAT(offered("run test/kinds choice=gr"), ElementsAre("choice=green"));
    EXPECT_THAT(offered("run site/take size="), ElementsAre("size=32m"));
    EXPECT_THAT(offered("run site/take size=6"), IsEmpty());
}

TEST_F(Completion, OffersWhatTheTablesHold) {
    EXPECT_THAT(offered("run site/take client=al"), ElementsAre("client=alpha", "client=alpine"));
    EXPECT_THAT(offered("run site/take clients=beta,alpi"), ElementsAre("clients=beta,alpine"));
    EXPECT_THAT(offered("run --host elsewhere site/take client=al"), IsEmpty());
    for (const char *command : {"check", "rehearse", "watch"})
        EXPECT_THAT(offered(std::string(command) + " bet"), ElementsAre("beta")) << command;
    EXPECT_THAT(offered("check alpha bet"), ElementsAre("beta"));
    EXPECT_THAT(offered("rehearse alpha bet"), IsEmpty()) << "it takes one";
}

TEST_F(Completion, IsNarrowedByWhatIsGiven) {
    EXPECT_THAT(offered("run site/take kind=wide kind="), ElementsAre("kind=wide"))
        << "the method that is asked gets the argument";
    method("client/list_names", client_list("", "hostadm arg row name=alpha address=10.0.0.1 client=c1\n"
                                                "hostadm arg row name=alpha address=10.0.0.2 client=c2"));
    EXPECT_THAT(offered("run site/take client=c2 address="), ElementsAre("address=10.0.0.2"));
    EXPECT_THAT(offered("run site/take client=new address="),
                ElementsAre("address=10.0.0.1", "address=10.0.0.2"));
}

TEST_F(Completion, OffersOnlyWhatCanBeAcceptedAndShown) {
    EXPECT_THAT(offered("run site/take client="),
                ElementsAre("client=alpha", "client=alpine", "client=beta"));
    EXPECT_THAT(offered("run site/take note=al"), ElementsAre("note=al b", "note=alpha", "note=alpine"));
    EXPECT_THAT(offered("check ''"), ElementsAre("al b", "alpha", "alpine", "beta"));
}

TEST_F(Completion, NeverRunsAMethodThatTouchesSomething) {
    method("client/list_names",
           client_list("\"edits\": [\"/etc/hosts\"], ", "touch " + scratch.path("gone")));
    EXPECT_THAT(offered("run site/take client="), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(scratch.path("gone")));
}

TEST_F(Completion, SaysNothingOfWhatGoesWrong) {
    method("client/list_names",
           client_list("", "echo broken; echo broken >&2; hostadm arg error 1 broken; exit 1"));
    EXPECT_THAT(offered("run site/take client="), IsEmpty());
    method("client/list_names", client_list("", "sleep 60"));
    EXPECT_THAT(offered("check ''"), IsEmpty()) << "and ends in time";
    std::filesystem::remove_all(scratch.path("root/libexec/hostadm/methods"));
    EXPECT_EQ(said("complete zsh hostadm run ''"), "");
    EXPECT_EQ(said("complete"), "");
    EXPECT_EQ(said("complete tcsh hostadm run ''"), "");
    EXPECT_EQ(said("complete bash"), "");
    EXPECT_NE(said("complete zsh"), "");
}

TEST_F(Completion, OffersFiles) {
    scratch.write("files/trace.pcap", "");
    scratch.write("files/folder/inner", "");
    scratch.write("files/.hidden", "");
    scratch.write("files/two words", "");
    const std::string files = scratch.path("files/");
    EXPECT_THAT(offered("run site/take place="), ElementsAre("place=/"));
    EXPECT_THAT(offered("run site/take place=" + files),
                ElementsAre("place=" + files + "folder/", "place=" + files + "trace.pcap"));
    EXPECT_THAT(offered("run site/take place=" + files + ".h"), ElementsAre("place=" + files + ".hidden"));
    EXPECT_THAT(offered("watch --read " + files + "t"),
                ElementsAre(files + "trace.pcap", files + "two words"));
    EXPECT_THAT(offered("watch --record=" + files + "f"), ElementsAre("--record=" + files + "folder/"));
}

TEST_F(Completion, TellsFishWhatTheyMean) {
    EXPECT_THAT(lines("complete fish hostadm run test/echo ti"), ElementsAre("times=\thow often"));
    EXPECT_THAT(lines("complete fish hostadm pre"),
                ElementsAre(testing::StartsWith("preview\tshow what a method would change")));
    EXPECT_THAT(lines("complete fish hostadm run test/ec"), ElementsAre("test/echo"));
}

TEST_F(Completion, GivesBashTheRestQuotedAsThePlaceWants) {
    scratch.write("files/a b$(c)'d!e\"f", "");
    const std::string file = scratch.path("files/a");
    EXPECT_THAT(offered_to_bash("hostadm pre", "pre"), ElementsAre("preview"));
    EXPECT_THAT(offered_to_bash("A=1 B=2 hostadm pre", "pre"), ElementsAre("preview"));
    EXPECT_THAT(offered_to_bash("hostadm run site/take client=al", "al"), ElementsAre("alpha", "alpine"));
    EXPECT_THAT(offered_to_bash("hostadm run site/take client=", ""), ElementsAre("alpha", "alpine", "beta"));
    EXPECT_THAT(offered_to_bash("hostadm run site/take clients=beta,alpi", "beta,alpi"),
                ElementsAre("beta,alpine"));
    EXPECT_THAT(offered_to_bash("hostadm run site/take 'note=al ", "note=al "), ElementsAre("note=al b"));
    EXPECT_THAT(offered_to_bash("hostadm run site/take note=al\\ ", "al\\ "), ElementsAre("al\\ b"));
    EXPECT_THAT(offered_to_bash("hostadm watch --read " + file, file),
                ElementsAre(file + "\\ b\\$\\(c\\)\\'d\\!e\\\"f"));
    EXPECT_THAT(offered_to_bash("hostadm watch --read '" + file, file),
                ElementsAre(file + " b$(c)'\\''d!e\"f"));
    EXPECT_THAT(offered_to_bash("hostadm watch --read '" + file, "'" + file),
                ElementsAre("'" + file + " b$(c)'\\''d!e\"f"));
    EXPECT_THAT(offered_to_bash("hostadm watch --read \"" + file, file),
                ElementsAre(file + " b\\$(c)'d\"'!'\"e\\\"f"));
}

} // namespace
