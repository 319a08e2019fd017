// SPDX-License-Identifier: MIT
// The reader of what methods answer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/protocol/answer.hpp"
#include "framework/protocol/bytes.hpp"

namespace {

using namespace hostadm::framework;
using testing::ElementsAre;
using testing::Pair;
using testing::StartsWith;

// Rows as fields to compare.
std::vector<std::vector<Rows::Field>> fields(const Rows &rows) {
    std::vector<std::vector<Rows::Field>> all;
    for (const Rows::Row row : rows)
        all.push_back(row.fields());
    return all;
}

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
    EXPECT_THAT(fields(answer.rows), ElementsAre(ElementsAre(Pair("b", "1"), Pair("a", "2"))));
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
    EXPECT_THAT(fields(parse_answer("{\"row\":{\"a\":12,\"b\":true,\"c\":1.5}}\n").rows),
                ElementsAre(ElementsAre(Pair("a", "12"), Pair("b", "true"), Pair("c", "1.5"))));
}

// Rows in the spelling that methods write are read by a shorter way; it must lead to the same place.
TEST(AnswerReader, TakesARowInAnySpelling) {
    const auto row_of = [](const std::string &text) {
        const Answer answer = parse_answer(text);
        EXPECT_EQ(answer.defect, "") << text;
        EXPECT_EQ(answer.rows.size(), 1u) << text;
        return answer.rows.empty() ? Rows() : answer.rows;
    };
    const Rows plain = row_of(R"({"row":{"a":"1","b":"two words"}})");
    EXPECT_THAT(fields(plain), ElementsAre(ElementsAre(Pair("a", "1"), Pair("b", "two words"))));
    for (const char *text :
         {R"({"row":{"a":"1","b":"two words"}} )", R"({ "row" : { "a" : "1" , "b" : "two words" } })",
          R"({"row":{"a":1,"b":"two words"}})", R"({"row":{"a":"\u0031","b":"two\u0020words"}})",
          R"({"row":{"a":{"base64":"MQ=="},"b":"two words"}})",
          R"({"row":{"a":"0","b":"two words","a":"1"}})"})
        EXPECT_EQ(row_of(text), plain) << text;
    EXPECT_THAT(fields(row_of(R"({"row":{}})")), ElementsAre(ElementsAre()));
    EXPECT_THAT(fields(row_of(R"({"row":{"a":"","b":"\"\\\n\u00e4"}})")),
                ElementsAre(ElementsAre(Pair("a", ""), Pair("b", "\"\\\n\u00e4"))));
}

TEST(AnswerReader, TakesNothingOfABadRow) {
    for (const char *row :
         {R"({"row":{"a":"1")", R"({"row":{"a":"1"})", R"({"row":{"a":"1",}})", R"({"row":{"a":"1"}}})",
          R"({"row":{"a":"1","b"}})", R"({"row":{"a":"1","b":}})", R"({"row":{"a":"1","b":"2})",
          R"({"row":{"a":"1","b":[]}})", R"({"row":{"a":"1","a b":"2"}})", R"({"row":{"a":"1",:"2"}})",
          "{\"row\":{\"a\":\"1\",\"b\":\"\xff\"}}", "{\"row\":{\"a\":\"1\",\"b\":\"\t\"}}"}) {
        const Answer answer = parse_answer(std::string(row) + "\n" + R"({"row":{"c":"3"}})");
        EXPECT_NE(answer.defect, "") << row;
        EXPECT_THAT(fields(answer.rows), ElementsAre(ElementsAre(Pair("c", "3")))) << row;
    }
}

TEST(AnswerReader, LivesThroughDeepNesting) {
    EXPECT_NE(parse_answer(std::string(1000000, '[') + "\n").defect, "");
    std::string closed = "{\"row\":{\"a\":" + std::string(200000, '[') + std::string(200000, ']') + "}}\n";
    EXPECT_NE(parse_answer(closed).defect, "");
}

TEST(AnswerWriter, WritesWhatTheReaderReads) {
    Answer answer;
    answer.outputs = {{"o", "v\n\"\\"}, {"p", std::string("\xff\0\x80", 3)}};
    answer.rows.begin_row();
    answer.rows.add("z", "");
    answer.rows.add("a", "\xc3\xa4");
    answer.rows.begin_row();
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

TEST(AnswerWriter, TakesTheLastOfSeveralValuesOfAColumn) {
    const std::vector<Rows::Field> row = {{"a", "1"}, {"b", "2"}, {"a", "3"}};
    EXPECT_EQ(row_line(row), "{\"row\":{\"a\":\"3\",\"b\":\"2\"}}\n");
    EXPECT_EQ(row_line({}), "{\"row\":{}}\n");
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

TEST(Names, AreLettersDigitsAndFewMarks) {
    for (const char *name : {"a", "_x", "Z9", "os_version", "a-b", "a.b"})
        EXPECT_TRUE(is_name(name)) << name;
    for (const char *name : {"", "1a", "-a", ".a", "a b", "a=", "\xc3\xa4", "a/b", "a\n"})
        EXPECT_FALSE(is_name(name)) << name;
}

} // namespace
