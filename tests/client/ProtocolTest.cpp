#include <gmock/gmock.h>

#include <limits>

#include "client/Protocol.h"

namespace airflow::client {
namespace {

using testing::HasSubstr;

TEST(Protocol, everyMethodIsOneLine) {
    const auto line = [](const Request& request) { return requestLine(1, request).value(); };
    EXPECT_EQ(line({.method = Method::helperVersion}), "{\"id\":1,\"method\":\"helperVersion\"}\n");
    EXPECT_EQ(line({.method = Method::shutdownForUpgrade}),
              "{\"id\":1,\"method\":\"shutdownForUpgrade\"}\n");
    EXPECT_EQ(line({.method = Method::setManualRPM, .fan = 1, .rpm = 3000}),
              "{\"id\":1,\"method\":\"setManualRPM\",\"fan\":1,\"rpm\":3000}\n");
    EXPECT_EQ(line({.method = Method::setPercent, .fan = 0, .percent = 55}),
              "{\"id\":1,\"method\":\"setPercent\",\"fan\":0,\"percent\":55}\n");
    EXPECT_EQ(line({.method = Method::fullBlast}), "{\"id\":1,\"method\":\"fullBlast\"}\n");
    EXPECT_EQ(line({.method = Method::automatic}), "{\"id\":1,\"method\":\"automatic\"}\n");
    EXPECT_EQ(line({.method = Method::applyConfig, .plan = "{\"fans\":[]}"}),
              "{\"id\":1,\"method\":\"applyConfig\",\"plan\":{\"fans\":[]}}\n");
    EXPECT_EQ(line({.method = Method::restoreAuto}), "{\"id\":1,\"method\":\"restoreAuto\"}\n");
    EXPECT_EQ(line({.method = Method::heartbeat}), "{\"id\":1,\"method\":\"heartbeat\"}\n");
    EXPECT_EQ(line({.method = Method::readState}), "{\"id\":1,\"method\":\"readState\"}\n");
}

TEST(Protocol, argumentsAreSentAsTheyAre) {
    EXPECT_EQ(requestLine(7, {.method = Method::setManualRPM,
                              .fan = -1,
                              .rpm = std::numeric_limits<std::int64_t>::min()}),
              "{\"id\":7,\"method\":\"setManualRPM\",\"fan\":-1,\"rpm\":-9223372036854775808}\n");
    EXPECT_EQ(requestLine(8, {.method = Method::setPercent, .fan = 9, .percent = 150.25}),
              "{\"id\":8,\"method\":\"setPercent\",\"fan\":9,\"percent\":150.25}\n");
}

TEST(Protocol, aNumberThatIsNotFiniteIsNotSent) {
    const auto infinite = std::numeric_limits<double>::infinity();
    EXPECT_EQ(requestLine(1, {.method = Method::setPercent, .percent = infinite}).error(),
              "percent: A number that is not finite has no JSON form.");
}

TEST(Protocol, aPlanIsPutOnOneLineAndItsNumbersAreNotTouched) {
    EXPECT_EQ(requestLine(1, {.method = Method::applyConfig,
                              .plan = "{\r\n  \"a\": 0.10,\n  \"b\": \"x\\ny\"\n}\n"}),
              "{\"id\":1,\"method\":\"applyConfig\",\"plan\":"
              "{    \"a\": 0.10,   \"b\": \"x\\ny\" } }\n");
}

TEST(Protocol, aPlanMayBeAnyJSONValue) {
    EXPECT_EQ(requestLine(1, {.method = Method::applyConfig, .plan = "null"}),
              "{\"id\":1,\"method\":\"applyConfig\",\"plan\":null}\n");
}

TEST(Protocol, aPlanThatIsNotJSONIsNotSent) {
    for (const std::string plan : {"", "{", "1,\"method\":\"fullBlast\"", "{}\n{}"}) {
        const auto line = requestLine(1, {.method = Method::applyConfig, .plan = plan});
        ASSERT_FALSE(line) << plan;
        EXPECT_THAT(line.error(), testing::StartsWith("the plan:")) << plan;
    }
}

TEST(Protocol, noLineIsLongerThanTheDaemonReads) {
    // The rest of this line has 40 bytes: 38 before the plan, a brace and a newline behind it.
    const auto ofSize = [](std::size_t size) {
        return requestLine(
            1, {.method = Method::applyConfig, .plan = "\"" + std::string(size - 2, 'x') + "\""});
    };
    const auto longest = ofSize(1048576 - 40);
    ASSERT_TRUE(longest) << longest.error();
    EXPECT_EQ(longest->size(), 1048576u);
    EXPECT_EQ(ofSize(1048576 - 39).error(), "the plan is too large to be sent");
}

TEST(Protocol, answersAreDecoded) {
    const auto code = decodeAnswer("{\"id\":1,\"code\":7}");
    ASSERT_TRUE(code);
    EXPECT_EQ(code->id, 1);
    EXPECT_EQ(code->body->code, 7);
    EXPECT_EQ(decodeAnswer("{\"id\":2,\"version\":\"1.0.3+6\"}")->body->version, "1.0.3+6");
    EXPECT_EQ(decodeAnswer("{\"id\":3}")->body.value(), AnswerBody{});
    const auto state = decodeAnswer(
        "{\"id\":4,\"state\":{\"perFanMode\":{\"0\":{\"manual\":{}}},"
        "\"targets\":{\"0\":2400},\"isHolding\":true}}");
    EXPECT_EQ(state->body->state->targets.at(0), 2400);
    EXPECT_TRUE(state->body->state->isHolding);
}

TEST(Protocol, anErrorMayHaveNoID) {
    const auto nullID = decodeAnswer("{\"id\":null,\"error\":\"not JSON\"}");
    EXPECT_EQ(nullID->id, std::nullopt);
    EXPECT_EQ(nullID->body->error, "not JSON");
    EXPECT_EQ(decodeAnswer("{\"error\":\"not JSON\"}")->id, std::nullopt);
}

TEST(Protocol, whatIsNoAnswerIsRefused) {
    for (const std::string line : {"", "hello", "[]", "1", "{\"id\":\"1\"}", "{\"id\":1.5}"}) {
        EXPECT_FALSE(decodeAnswer(line)) << line;
    }
}

TEST(Protocol, anAnswerWithAWrongBodyKeepsItsID) {
    const auto answer = decodeAnswer("{\"id\":5,\"state\":{\"targets\":{}}}");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->id, 5);
    ASSERT_FALSE(answer->body);
    EXPECT_THAT(answer->body.error(), HasSubstr("\"perFanMode\" is missing"));
}

}  // namespace
}  // namespace airflow::client
