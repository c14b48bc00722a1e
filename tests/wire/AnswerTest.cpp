#include <gmock/gmock.h>

#include "wire/Answer.h"

namespace airflow::wire {
namespace {

using testing::HasSubstr;

TEST(Answer, toEachKindOfCommandIsALine) {
    EXPECT_EQ(answerLine(1, daemon::CodeReply{0}), "{\"id\":1,\"code\":0}\n");
    EXPECT_EQ(answerLine(-2, daemon::Acknowledgement{}), "{\"id\":-2}\n");
    EXPECT_EQ(answerLine(3, daemon::VersionReply{"1.0.3+6"}),
              "{\"id\":3,\"version\":\"1.0.3+6\"}\n");
    EXPECT_EQ(answerLine(4, daemon::StateReply{R"({"isHolding":false})"}),
              "{\"id\":4,\"state\":{\"isHolding\":false}}\n");
    EXPECT_EQ(errorLine({.id = 5, .reason = "a \"b\"\n"}),
              "{\"id\":5,\"error\":\"a \\\"b\\\"\\n\"}\n");
    EXPECT_EQ(errorLine({.id = {}, .reason = "ä"}), "{\"id\":null,\"error\":\"ä\"}\n");
}

TEST(Answer, ofAStateThatHasNoJSONFormIsAnError) {
    EXPECT_EQ(answerLine(4, daemon::StateReply{}),
              "{\"id\":4,\"error\":\"state: The daemon's state has no JSON form.\"}\n");
}

TEST(Answer, isReadAsItWasWritten) {
    const auto code = parseAnswer("{\"id\":1,\"code\":7}");
    ASSERT_TRUE(code);
    EXPECT_EQ(code->id, 1);
    EXPECT_EQ(code->body->code, 7);
    EXPECT_EQ(parseAnswer("{\"id\":2,\"version\":\"1.0.3+6\"}")->body->version, "1.0.3+6");
    EXPECT_EQ(parseAnswer("{\"id\":3}")->body.value(), AnswerBody{});
    const auto state = parseAnswer(
        "{\"id\":4,\"state\":{\"perFanMode\":{\"0\":{\"manual\":{}}},"
        "\"targets\":{\"0\":2400},\"isHolding\":true}}");
    EXPECT_EQ(state->body->state->targets.at(0), 2400);
    EXPECT_TRUE(state->body->state->isHolding);
}

TEST(Answer, thatIsAnErrorMayHaveNoID) {
    const auto nullID = parseAnswer("{\"id\":null,\"error\":\"not JSON\"}");
    EXPECT_EQ(nullID->id, std::nullopt);
    EXPECT_EQ(nullID->body->error, "not JSON");
    EXPECT_EQ(parseAnswer("{\"error\":\"not JSON\"}")->id, std::nullopt);
}

TEST(Answer, isNotWhatHasNoUsableID) {
    for (const std::string line : {"", "hello", "[]", "1", "{\"id\":\"1\"}", "{\"id\":1.5}"}) {
        EXPECT_FALSE(parseAnswer(line)) << line;
    }
}

TEST(Answer, withAWrongBodyKeepsItsID) {
    const auto answer = parseAnswer("{\"id\":5,\"state\":{\"targets\":{}}}");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->id, 5);
    ASSERT_FALSE(answer->body);
    EXPECT_THAT(answer->body.error(), HasSubstr("\"perFanMode\" is missing"));
}

}  // namespace
}  // namespace airflow::wire
