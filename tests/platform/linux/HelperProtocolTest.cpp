#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "json/Decoder.h"
#include "platform/linux/HelperProtocol.h"

namespace airflow::platform {
namespace {

using namespace std::string_literals;

HelperCall accepted(std::string_view line) {
    const auto call = HelperProtocol::parse(line);
    EXPECT_TRUE(call) << line << ": " << (call ? "" : call.error().reason);
    return call.value_or(HelperCall{});
}

HelperRefusal refused(std::string_view line) {
    const auto call = HelperProtocol::parse(line);
    EXPECT_FALSE(call) << line;
    return call ? HelperRefusal{} : call.error();
}

TEST(HelperProtocol, eachMethodHasItsNameAndItsArguments) {
    const std::vector<std::pair<std::string, HelperCall>> messages{
        {R"({"id":1,"method":"helperVersion"})",
         {.id = 1, .method = HelperMethod::helperVersion, .plan = {}}},
        {R"({"id":2,"method":"shutdownForUpgrade"})",
         {.id = 2, .method = HelperMethod::shutdownForUpgrade, .plan = {}}},
        {R"({"id":3,"method":"setManualRPM","fan":1,"rpm":3000})",
         {.id = 3, .method = HelperMethod::setManualRPM, .fan = 1, .rpm = 3000, .plan = {}}},
        {R"({"id":4,"method":"setPercent","fan":0,"percent":55.5})",
         {.id = 4, .method = HelperMethod::setPercent, .fan = 0, .percent = 55.5, .plan = {}}},
        {R"({"id":5,"method":"fullBlast"})",
         {.id = 5, .method = HelperMethod::fullBlast, .plan = {}}},
        {R"({"id":6,"method":"automatic"})",
         {.id = 6, .method = HelperMethod::automatic, .plan = {}}},
        {R"({"id":7,"method":"applyConfig","plan":{}})",
         {.id = 7, .method = HelperMethod::applyConfig, .plan = "{}"}},
        {R"({"id":8,"method":"restoreAuto"})",
         {.id = 8, .method = HelperMethod::restoreAuto, .plan = {}}},
        {R"({"method":"heartbeat"})", {.id = {}, .method = HelperMethod::heartbeat, .plan = {}}},
        {R"({"id":10,"method":"readState"})",
         {.id = 10, .method = HelperMethod::readState, .plan = {}}},
    };
    for (const auto& [line, call] : messages) EXPECT_EQ(accepted(line), call) << line;
}

TEST(HelperProtocol, membersStandInAnyOrderWithAnyWhitespaceBetweenThem) {
    const HelperCall call =
        accepted("\t{ \"percent\" : 1e1 ,\"fan\":1.0, \"method\":\"setPercent\", \"id\": 4 } \r");
    EXPECT_EQ(
        call,
        (HelperCall{
            .id = 4, .method = HelperMethod::setPercent, .fan = 1, .percent = 10, .plan = {}}));
}

TEST(HelperProtocol, argumentsAreTakenAsTheyComeWhateverTheyMean) {
    const HelperCall call = accepted(
        R"({"id":1,"method":"setManualRPM","fan":-9223372036854775808,"rpm":9223372036854775807})");
    EXPECT_EQ(call.fan, -9223372036854775807 - 1);
    EXPECT_EQ(call.rpm, 9223372036854775807);
    EXPECT_EQ(accepted(R"({"id":1,"method":"setPercent","fan":99,"percent":-1e300})").percent,
              -1e300);
}

TEST(HelperProtocol, anIDIsAnyWholeNumberOf64Bits) {
    EXPECT_EQ(accepted(R"({"id":0,"method":"fullBlast"})").id, 0);
    EXPECT_EQ(accepted(R"({"id":-7,"method":"fullBlast"})").id, -7);
    EXPECT_EQ(accepted(R"({"id":2.0,"method":"fullBlast"})").id, 2);
    EXPECT_EQ(accepted(R"({"id":9223372036854775807,"method":"fullBlast"})").id,
              9223372036854775807);
    EXPECT_EQ(
        refused(R"({"id":9223372036854775808,"method":"fullBlast"})"),
        (HelperRefusal{.id = {},
                       .reason = "id: The number 9223372036854775808 does not fit a signed 64-bit "
                                 "integer."}));
    EXPECT_EQ(refused(R"({"id":1.5,"method":"fullBlast"})"),
              (HelperRefusal{.id = {}, .reason = "id: The number 1.5 is not whole."}));
}

TEST(HelperProtocol, anIDThatIsNoNumberIsRefused) {
    EXPECT_EQ(
        refused(R"({"id":"1","method":"fullBlast"})"),
        (HelperRefusal{.id = {}, .reason = "id: Expected a whole number but found a string."}));
    EXPECT_EQ(refused(R"({"id":null,"method":"fullBlast"})"),
              (HelperRefusal{.id = {}, .reason = "id: Expected a whole number but found null."}));
    EXPECT_EQ(refused(R"({"id":"1","method":"heartbeat"})").reason,
              "id: Expected a whole number but found a string.");
}

TEST(HelperProtocol, aCallThatHasAnAnswerNeedsAnID) {
    EXPECT_EQ(refused(R"({"method":"fullBlast"})"),
              (HelperRefusal{.id = {}, .reason = "The required key \"id\" is missing."}));
}

TEST(HelperProtocol, aHeartbeatNeedsNoIDAndMayHaveOne) {
    EXPECT_EQ(accepted(R"({"method":"heartbeat"})").id, std::nullopt);
    EXPECT_EQ(accepted(R"({"method":"heartbeat","id":null})").id, std::nullopt);
    EXPECT_EQ(accepted(R"({"id":9,"method":"heartbeat"})").id, 9);
}

TEST(HelperProtocol, anUnknownOrMissingMethodIsRefused) {
    EXPECT_EQ(refused(R"({"id":1,"method":"FullBlast"})"),
              (HelperRefusal{
                  .id = 1,
                  .reason = "method: Unknown method. There are helperVersion, shutdownForUpgrade, "
                            "setManualRPM, setPercent, fullBlast, automatic, applyConfig, "
                            "restoreAuto, heartbeat, readState."}));
    EXPECT_EQ(refused(R"({"id":1})"),
              (HelperRefusal{.id = 1, .reason = "The required key \"method\" is missing."}));
    EXPECT_EQ(refused(R"({"id":1,"method":4})"),
              (HelperRefusal{.id = 1, .reason = "method: Expected a string but found a number."}));
}

TEST(HelperProtocol, aMissingArgumentIsRefused) {
    const auto reasonOf = [](std::string_view line) {
        const HelperRefusal refusal = refused(line);
        EXPECT_EQ(refusal.id, 1) << line;
        return refusal.reason;
    };
    EXPECT_EQ(reasonOf(R"({"id":1,"method":"setManualRPM","rpm":3000})"),
              "The required key \"fan\" is missing.");
    EXPECT_EQ(reasonOf(R"({"id":1,"method":"setManualRPM","fan":0})"),
              "The required key \"rpm\" is missing.");
    EXPECT_EQ(reasonOf(R"({"id":1,"method":"setPercent","percent":3})"),
              "The required key \"fan\" is missing.");
    EXPECT_EQ(reasonOf(R"({"id":1,"method":"setPercent","fan":0})"),
              "The required key \"percent\" is missing.");
    EXPECT_EQ(reasonOf(R"({"id":1,"method":"applyConfig"})"),
              "The required key \"plan\" is missing.");
}

TEST(HelperProtocol, anArgumentOfTheWrongTypeIsRefused) {
    EXPECT_EQ(refused(R"({"id":1,"method":"setManualRPM","fan":0,"rpm":3000.5})").reason,
              "rpm: The number 3000.5 is not whole.");
    EXPECT_EQ(refused(R"({"id":1,"method":"setPercent","fan":"0","percent":3})").reason,
              "fan: Expected a whole number but found a string.");
    EXPECT_EQ(refused(R"({"id":1,"method":"setPercent","fan":0,"percent":null})").reason,
              "percent: Expected a number but found null.");
    EXPECT_EQ(
        refused(R"({"id":1,"method":"setPercent","fan":0,"percent":1e999})"),
        (HelperRefusal{.id = {}, .reason = "column 49: number out of range of a 64-bit float"}));
}

TEST(HelperProtocol, anArgumentThatTheMethodDoesNotHaveIsRefused) {
    EXPECT_EQ(refused(R"({"id":1,"method":"fullBlast","fan":0})"),
              (HelperRefusal{.id = 1, .reason = "fan: Unknown key."}));
    EXPECT_EQ(refused(R"({"id":1,"method":"setPercent","fan":0,"rpm":1,"percent":3})").reason,
              "rpm: Unknown key.");
    EXPECT_EQ(refused(R"({"id":1,"method":"setManualRPM","fan":0,"rpm":1,"percent":3})").reason,
              "percent: Unknown key.");
    EXPECT_EQ(refused(R"({"id":1,"method":"applyConfig","plan":{},"fan":0})").reason,
              "fan: Unknown key.");
    EXPECT_EQ(refused(R"({"method":"heartbeat","at":3})"),
              (HelperRefusal{.id = {}, .reason = "at: Unknown key."}));
}

TEST(HelperProtocol, aLineThatIsNoObjectIsRefused) {
    EXPECT_EQ(refused("5"),
              (HelperRefusal{.id = {}, .reason = "Expected an object but found a number."}));
    EXPECT_EQ(refused("[]").reason, "Expected an object but found an array.");
}

TEST(HelperProtocol, aLineThatIsNoJSONIsRefusedWithItsColumn) {
    EXPECT_EQ(
        refused(R"({"id":1,"method":fullBlast})"),
        (HelperRefusal{.id = {},
                       .reason = "column 19: syntax error while parsing value - invalid literal"}));
    EXPECT_EQ(refused("").reason, "column 1: the document is empty");
    EXPECT_EQ(refused("\r").reason, "column 1: the document is empty");
    EXPECT_EQ(refused("{\"id\":1,\0\"method\":\"fullBlast\"}"s).reason,
              "column 9: a NUL byte is not allowed");
    EXPECT_EQ(
        refused("{\"id\":1,\"method\":\"\xFF\"}").reason,
        "column 19: syntax error while parsing value - invalid string: ill-formed UTF-8 byte");
    EXPECT_EQ(refused("\xEF\xBB\xBF{\"id\":1,\"method\":\"fullBlast\"}").reason,
              "column 1: a byte-order mark is not allowed");
    EXPECT_EQ(refused(R"({"id":1,"method":"fullBlast"}{})").id, std::nullopt);
}

TEST(HelperProtocol, aLineMayHaveOneMebibyte) {
    const std::string message = R"({"id":1,"method":"fullBlast"})";
    EXPECT_EQ(accepted(message + std::string(1'048'576 - message.size(), ' ')).id, 1);
    EXPECT_EQ(refused(message + std::string(1'048'577 - message.size(), ' ')).reason,
              "the document has more than 1048576 bytes");
}

TEST(HelperProtocol, ofAKeyThatStandsTwiceTheLastCounts) {
    const HelperCall call = accepted(
        R"({"id":1,"id":2,"method":"applyConfig","plan":1,"plan":[2],"method":"applyConfig"})");
    EXPECT_EQ(call.id, 2);
    EXPECT_EQ(call.plan, "[2]");
}

TEST(HelperProtocol, aPlanIsPassedOnByteForByte) {
    const std::vector<std::string> plans{
        "{}",
        "null",
        "true",
        "-0.50e+1",
        R"("text")",
        "[ ]",
        R"({"a" : [1, 2.50 ,"}\"{,:\\"] , "plan":{"plan":1}})",
        R"("\u00e4\\")",
    };
    for (const std::string& plan : plans) {
        EXPECT_EQ(accepted(R"({"plan":)" + plan + R"(,"id":1,"method":"applyConfig"})").plan, plan);
        EXPECT_EQ(accepted(R"({"id":1,"plan": )" + plan + "\t,\"method\":\"applyConfig\"}").plan,
                  plan);
        EXPECT_EQ(accepted(R"({"id":1,"method":"applyConfig","pl\u0061n" :)" + plan + " \r}").plan,
                  plan);
    }
}

TEST(HelperProtocol, eachAnswerIsALine) {
    EXPECT_EQ(HelperProtocol::code(1, 0), "{\"id\":1,\"code\":0}\n");
    EXPECT_EQ(HelperProtocol::acknowledgement(-2), "{\"id\":-2}\n");
    EXPECT_EQ(HelperProtocol::version(3, "1.0.3+6"), "{\"id\":3,\"version\":\"1.0.3+6\"}\n");
    EXPECT_EQ(HelperProtocol::state(4, R"({"isHolding":false})"),
              "{\"id\":4,\"state\":{\"isHolding\":false}}\n");
    EXPECT_EQ(HelperProtocol::error({.id = 5, .reason = "a \"b\"\n"}),
              "{\"id\":5,\"error\":\"a \\\"b\\\"\\n\"}\n");
    EXPECT_EQ(HelperProtocol::error({.id = {}, .reason = "ä"}), "{\"id\":null,\"error\":\"ä\"}\n");
}

TEST(HelperProtocol, aStateThatHasNoJSONFormIsAnError) {
    EXPECT_EQ(HelperProtocol::state(4, ""),
              "{\"id\":4,\"error\":\"state: The daemon's state has no JSON form.\"}\n");
}

/// A good message with some bytes replaced, cut out or put in.
std::string damaged() {
    const auto messages = std::vector<std::string>{
        R"({"id":1,"method":"setPercent","fan":0,"percent":55})",
        R"({"id":12,"method":"applyConfig","plan":{"a":[1,{"b":"c\""}],"plan":2}})",
        R"({"method":"heartbeat","ключ":"значение"})",
    };
    std::string line = *rc::gen::elementOf(messages);
    const int damages = *rc::gen::inRange(1, 4);
    for (int i = 0; i < damages; ++i) {
        const auto at = *rc::gen::inRange<std::size_t>(0, line.size());
        const auto cut = *rc::gen::inRange<std::size_t>(0, 4);
        const auto more = *rc::gen::container<std::string>(
            rc::gen::oneOf(rc::gen::elementOf("{}[]\",:\\0id "s), rc::gen::arbitrary<char>()));
        line =
            line.substr(0, at) + more.substr(0, 3) + line.substr(std::min(at + cut, line.size()));
        if (line.empty()) break;
    }
    return line;
}

RC_GTEST_PROP(HelperProtocol, whateverComesIsAMessageOrHasAnAnswerThatIsALineOfJSON, ()) {
    const auto call = HelperProtocol::parse(damaged());
    RC_CLASSIFY(call.has_value(), "still a message");
    if (call) {
        if (call->method == HelperMethod::applyConfig) {
            json::Document plan;
            RC_ASSERT(plan.parse(call->plan).has_value());
        }
        return;
    }
    const std::string answer = HelperProtocol::error(call.error());
    RC_ASSERT(answer.find('\n') == answer.size() - 1);
    json::Document document;
    RC_ASSERT(document.parse(answer).has_value());
}

}  // namespace
}  // namespace airflow::platform
