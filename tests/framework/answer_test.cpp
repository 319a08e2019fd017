// SPDX-License-Identifier: MIT
// The reader of what methods answer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/answer.hpp"

namespace {

using namespace hostadm::framework;
using testing::StartsWith;

TEST(AnswerReader, TakesEveryLine) {
    const Answer answer = parse_answer("{\"begin\": \"a/b\"}\n"
                                       "{\"output\": \"o\", \"value\": \"v\"}\n"
                                       "{\"row\": {\"b\": \"1\", \"a\": \"2\"}}\n"
                                       "{\"error\": 23, \"text\": \"t\"}\n"
                                       "{\"mark\": 2, \"text\": \"half\"}\n"
                                       "{\"mark\": 2}\n"
                                       "{\"end\": 1}\n");
    EXPECT_EQ(answer.defect, "");
    EXPECT_TRUE(answer.begun);
    EXPECT_EQ(answer.outputs, (Values{{"o", "v"}}));
    EXPECT_EQ(answer.rows, (std::vector<Values>{{{"b", "1"}, {"a", "2"}}}));
    EXPECT_EQ(answer.errors, (std::vector<ErrorRecord>{{23, "t"}}));
    EXPECT_EQ(answer.left_undone, std::vector<std::string>{"half"});
    EXPECT_TRUE(answer.dirty);
    EXPECT_EQ(answer.ended, 1);
}

TEST(AnswerReader, TakesNothingFromNothing) {
    for (const char *text : {"", "\n", "\n\n\n"}) {
        const Answer answer = parse_answer(text);
        EXPECT_EQ(answer.defect, "");
        EXPECT_FALSE(answer.begun);
        EXPECT_TRUE(answer.outputs.empty());
    }
}

TEST(AnswerReader, TakesAWholeObjectWithoutItsNewline) {
    EXPECT_EQ(parse_answer("{\"end\": 0}").defect, "");
    EXPECT_EQ(parse_answer("{\"end\": 0}").ended, 0);
}

TEST(AnswerReader, RefusesWhatIsNoLineOfItsOwn) {
    for (const char *text : {"rubbish",
                             "1",
                             "null",
                             "[]",
                             "{}",
                             "\"output\"",
                             "{\"output\": \"o\"}",
                             "{\"value\": \"v\"}",
                             "{\"output\": 1, \"value\": 2}x",
                             "{\"output\": \"a b\", \"value\": \"v\"}",
                             "{\"output\": \"\", \"value\": \"v\"}",
                             "{\"output\": \"o\", \"value\": null}",
                             "{\"output\": \"o\", \"value\": [1]}",
                             "{\"output\": \"o\", \"value\": {\"base64\": \"?\"}}",
                             "{\"row\": 1}",
                             "{\"row\": {\"a b\": \"1\"}}",
                             "{\"row\": {\"a\": {}}}",
                             "{\"error\": \"1\", \"text\": \"t\"}",
                             "{\"error\": 1}",
                             "{\"error\": 1.5, \"text\": \"t\"}",
                             "{\"error\": 99999999999, \"text\": \"t\"}",
                             "{\"mark\": 3}",
                             "{\"mark\": \"2\"}",
                             "{\"invalid\": 1e}",
                             "{\"invalid\": []}",
                             "{\"end\": \"x\"}",
                             "{\"outcome\": null}",
                             "{\"something\": 1}",
                             "\xff\xfe"}) {
        const Answer answer = parse_answer(std::string(text) + "\n{\"mark\": 1}\n");
        EXPECT_THAT(answer.defect, StartsWith("line 1 of its answer cannot be understood: ")) << text;
        EXPECT_TRUE(answer.outputs.empty() && answer.rows.empty() && answer.errors.empty()) << text;
    }
}

TEST(AnswerReader, NamesTheFirstDefectAndGoesOn) {
    const Answer answer =
        parse_answer("{\"end\": 0}\nfirst\nsecond\n{\"output\": \"o\", \"value\": \"v\"}\n");
    EXPECT_EQ(answer.defect, "line 2 of its answer cannot be understood: first");
    EXPECT_EQ(answer.outputs.size(), 1u);
}

TEST(AnswerReader, ShowsOnlyTheBeginningOfRubbish) {
    EXPECT_EQ(parse_answer(std::string(1000, 'x') + "\n").defect,
              "line 1 of its answer cannot be understood: " + std::string(60, 'x') + "...");
    EXPECT_EQ(parse_answer("a\x1b[2Jb\n").defect, "line 1 of its answer cannot be understood: a?[2Jb");
}

TEST(AnswerReader, LaterOutputsReplaceEarlier) {
    EXPECT_EQ(
        parse_answer("{\"output\":\"o\",\"value\":\"1\"}\n{\"output\":\"o\",\"value\":\"2\"}\n").outputs,
        (Values{{"o", "2"}}));
}

TEST(AnswerReader, CodeZeroWithdrawsEarlierErrors) {
    const Answer answer = parse_answer(
        "{\"error\":1,\"text\":\"a\"}\n{\"error\":0,\"text\":\"\"}\n{\"error\":2,\"text\":\"b\"}\n");
    EXPECT_EQ(answer.errors, (std::vector<ErrorRecord>{{2, "b"}}));
}

TEST(AnswerReader, MarkOfCleanlinessKeepsWhatIsSaidToBeUndone) {
    const Answer answer = parse_answer("{\"mark\":2,\"text\":\"x\"}\n{\"mark\":2}\n{\"mark\":1}\n");
    EXPECT_FALSE(answer.dirty);
    EXPECT_TRUE(answer.half_done());
}

TEST(AnswerReader, TakesNumbersAndTruthAsText) {
    EXPECT_EQ(parse_answer("{\"row\":{\"a\":12,\"b\":true,\"c\":1.5}}\n").rows,
              (std::vector<Values>{{{"a", "12"}, {"b", "true"}, {"c", "1.5"}}}));
}

TEST(AnswerReader, LivesThroughDeepNesting) {
    EXPECT_NE(parse_answer(std::string(1000000, '[') + "\n").defect, "");
    std::string closed = "{\"row\":{\"a\":" + std::string(200000, '[') + std::string(200000, ']') + "}}\n";
    EXPECT_NE(parse_answer(closed).defect, "");
}

TEST(AnswerWriter, WritesWhatTheReaderReads) {
    Answer answer;
    answer.outputs = {{"o", "v\n\"\\"}, {"p", std::string("\xff\0\x80", 3)}};
    answer.rows = {{{"z", ""}, {"a", "\xc3\xa4"}}, {}};
    answer.errors = {{1, "one"}, {-5, "minus"}};
    answer.left_undone = {"this", "that"};
    answer.invalid = "no";
    answer.begun = true;
    answer.ended = 3;
    const Answer read = parse_answer(to_lines(answer));
    EXPECT_EQ(read.defect, "");
    EXPECT_EQ(read.outputs, answer.outputs);
    EXPECT_EQ(read.rows, answer.rows);
    EXPECT_EQ(read.errors, answer.errors);
    EXPECT_EQ(read.left_undone, answer.left_undone);
    EXPECT_EQ(read.dirty, answer.dirty);
    EXPECT_EQ(read.invalid, answer.invalid);
    EXPECT_EQ(read.begun, answer.begun);
    EXPECT_EQ(read.ended, answer.ended);
}

TEST(Bytes, CrossUnchanged) {
    for (int length = 0; length < 8; ++length) {
        std::string bytes(static_cast<std::size_t>(length), '\xfe');
        for (std::size_t at = 0; at < bytes.size(); ++at)
            bytes[at] = static_cast<char>(0xfe - 37 * at);
        EXPECT_EQ(from_json(Json::parse(to_json(bytes).dump())), bytes);
    }
    for (int byte = 0; byte < 256; ++byte)
        EXPECT_EQ(from_json(Json::parse(to_json(std::string(1, static_cast<char>(byte))).dump())),
                  std::string(1, static_cast<char>(byte)));
}

TEST(Bytes, KnowsUtf8) {
    for (const char *text :
         {"", "abc", "\xc3\xa4", "\xe2\x82\xac", "\xf0\x9f\x98\x80", "\xf4\x8f\xbf\xbf", "\xef\xbf\xbd"})
        EXPECT_TRUE(is_utf8(text)) << text;
    for (const char *text :
         {"\x80", "\xc3", "\xc0\x80", "\xc1\xbf", "\xe0\x80\x80", "\xed\xa0\x80", "\xf0\x80\x80\x80",
          "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xff", "a\xc3(", "\xe2\x82"})
        EXPECT_FALSE(is_utf8(text));
}

TEST(Names, AreLettersDigitsAndFewMarks) {
    for (const char *name : {"a", "_x", "Z9", "os_version", "a-b", "a.b"})
        EXPECT_TRUE(is_name(name)) << name;
    for (const char *name : {"", "1a", "-a", ".a", "a b", "a=", "\xc3\xa4", "a/b", "a\n"})
        EXPECT_FALSE(is_name(name)) << name;
}

} // namespace
