#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <limits>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "json/Decoder.h"
#include "support/Doubles.h"
#include "wire/Answer.h"
#include "wire/Request.h"

namespace airflow::wire {
namespace {

using tests::infinity;
using namespace std::string_literals;
namespace commands = daemon::commands;

Request accepted(std::string_view line) {
    auto request = parseRequest(line);
    EXPECT_TRUE(request) << line << ": " << (request ? "" : request.error().reason);
    return request.value_or(Request{});
}

Refusal refused(std::string_view line) {
    const auto request = parseRequest(line);
    EXPECT_FALSE(request) << line;
    return request ? Refusal{} : request.error();
}

std::string planOf(std::string_view line) {
    const Request request = accepted(line);
    const auto* const applied = std::get_if<commands::ApplyConfig>(&request.command);
    return applied ? applied->plan : "no plan";
}

TEST(Request, eachCommandIsOneLineWithItsNameAndItsArguments) {
    const std::vector<std::pair<std::string, Request>> messages{
        {R"({"id":1,"method":"helperVersion"})", {.id = 1, .command = commands::HelperVersion{}}},
        {R"({"id":2,"method":"shutdownForUpgrade"})",
         {.id = 2, .command = commands::ShutdownForUpgrade{}}},
        {R"({"id":3,"method":"setManualRPM","fan":1,"rpm":3000})",
         {.id = 3, .command = commands::SetManualRPM{.fan = 1, .rpm = 3000}}},
        {R"({"id":4,"method":"setPercent","fan":0,"percent":55.5})",
         {.id = 4, .command = commands::SetPercent{.fan = 0, .percent = 55.5}}},
        {R"({"id":5,"method":"fullBlast"})", {.id = 5, .command = commands::FullBlast{}}},
        {R"({"id":6,"method":"automatic"})", {.id = 6, .command = commands::Automatic{}}},
        {R"({"id":7,"method":"applyConfig","plan":"{}"})",
         {.id = 7, .command = commands::ApplyConfig{.plan = "{}"}}},
        {R"({"id":8,"method":"restoreAuto"})", {.id = 8, .command = commands::RestoreAuto{}}},
        {R"({"id":9,"method":"heartbeat"})", {.id = 9, .command = commands::Heartbeat{}}},
        {R"({"id":10,"method":"readState"})", {.id = 10, .command = commands::ReadState{}}},
    };
    for (const auto& [line, request] : messages) {
        EXPECT_EQ(accepted(line), request) << line;
        EXPECT_EQ(requestLine(*request.id, request.command), line + "\n");
    }
}

TEST(Request, membersStandInAnyOrderWithAnyWhitespaceBetweenThem) {
    EXPECT_EQ(
        accepted("\t{ \"percent\" : 1e1 ,\"fan\":1.0, \"method\":\"setPercent\", \"id\": 4 } \r"),
        (Request{.id = 4, .command = commands::SetPercent{.fan = 1, .percent = 10}}));
}

TEST(Request, argumentsAreTakenAsTheyComeWhateverTheyMean) {
    const std::string extremes =
        R"({"id":1,"method":"setManualRPM","fan":-9223372036854775808,"rpm":9223372036854775807})";
    const commands::SetManualRPM manual{.fan = std::numeric_limits<std::int64_t>::min(),
                                        .rpm = std::numeric_limits<std::int64_t>::max()};
    EXPECT_EQ(accepted(extremes).command, daemon::Command(manual));
    EXPECT_EQ(requestLine(1, manual), extremes + "\n");
    EXPECT_EQ(accepted(R"({"id":1,"method":"setPercent","fan":99,"percent":-1e300})").command,
              daemon::Command(commands::SetPercent{.fan = 99, .percent = -1e300}));
    EXPECT_EQ(requestLine(8, commands::SetPercent{.fan = 9, .percent = 150.25}),
              "{\"id\":8,\"method\":\"setPercent\",\"fan\":9,\"percent\":150.25}\n");
}

TEST(Request, aNumberThatIsNotFiniteIsNotSent) {
    EXPECT_EQ(requestLine(1, commands::SetPercent{.percent = infinity}).error(),
              "percent: A number that is not finite has no JSON form.");
}

TEST(Request, anIDIsAnyWholeNumberOf64Bits) {
    EXPECT_EQ(accepted(R"({"id":0,"method":"fullBlast"})").id, 0);
    EXPECT_EQ(accepted(R"({"id":-7,"method":"fullBlast"})").id, -7);
    EXPECT_EQ(accepted(R"({"id":2.0,"method":"fullBlast"})").id, 2);
    EXPECT_EQ(accepted(R"({"id":9223372036854775807,"method":"fullBlast"})").id,
              9223372036854775807);
    EXPECT_EQ(refused(R"({"id":9223372036854775808,"method":"fullBlast"})"),
              (Refusal{.id = {},
                       .reason = "id: The number 9223372036854775808 does not fit a signed 64-bit "
                                 "integer."}));
    EXPECT_EQ(refused(R"({"id":1.5,"method":"fullBlast"})"),
              (Refusal{.id = {}, .reason = "id: The number 1.5 is not whole."}));
}

TEST(Request, anIDThatIsNoNumberIsRefused) {
    EXPECT_EQ(refused(R"({"id":"1","method":"fullBlast"})"),
              (Refusal{.id = {}, .reason = "id: Expected a whole number but found a string."}));
    EXPECT_EQ(refused(R"({"id":null,"method":"fullBlast"})"),
              (Refusal{.id = {}, .reason = "id: Expected a whole number but found null."}));
    EXPECT_EQ(refused(R"({"id":"1","method":"heartbeat"})").reason,
              "id: Expected a whole number but found a string.");
}

TEST(Request, aCallThatHasAnAnswerNeedsAnID) {
    EXPECT_EQ(refused(R"({"method":"fullBlast"})"),
              (Refusal{.id = {}, .reason = "The required key \"id\" is missing."}));
}

TEST(Request, aHeartbeatNeedsNoIDAndMayHaveOne) {
    EXPECT_EQ(accepted(R"({"method":"heartbeat"})").id, std::nullopt);
    EXPECT_EQ(accepted(R"({"method":"heartbeat","id":null})").id, std::nullopt);
    EXPECT_EQ(accepted(R"({"id":9,"method":"heartbeat"})").id, 9);
}

TEST(Request, anUnknownOrMissingMethodIsRefused) {
    EXPECT_EQ(
        refused(R"({"id":1,"method":"FullBlast"})"),
        (Refusal{.id = 1,
                 .reason = "method: Unknown method. There are helperVersion, shutdownForUpgrade, "
                           "setManualRPM, setPercent, fullBlast, automatic, applyConfig, "
                           "restoreAuto, heartbeat, readState."}));
    EXPECT_EQ(refused(R"({"id":1})"),
              (Refusal{.id = 1, .reason = "The required key \"method\" is missing."}));
    EXPECT_EQ(refused(R"({"id":1,"method":4})"),
              (Refusal{.id = 1, .reason = "method: Expected a string but found a number."}));
}

TEST(Request, aMissingArgumentIsRefused) {
    const auto reasonOf = [](std::string_view line) {
        const Refusal refusal = refused(line);
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

TEST(Request, anArgumentOfTheWrongTypeIsRefused) {
    EXPECT_EQ(refused(R"({"id":1,"method":"setManualRPM","fan":0,"rpm":3000.5})").reason,
              "rpm: The number 3000.5 is not whole.");
    EXPECT_EQ(refused(R"({"id":1,"method":"setPercent","fan":"0","percent":3})").reason,
              "fan: Expected a whole number but found a string.");
    EXPECT_EQ(refused(R"({"id":1,"method":"setPercent","fan":0,"percent":null})").reason,
              "percent: Expected a number but found null.");
    EXPECT_EQ(refused(R"({"id":1,"method":"setPercent","fan":0,"percent":1e999})"),
              (Refusal{.id = {}, .reason = "column 49: number out of range of a 64-bit float"}));
}

TEST(Request, anArgumentThatTheMethodDoesNotHaveIsRefused) {
    EXPECT_EQ(refused(R"({"id":1,"method":"fullBlast","fan":0})"),
              (Refusal{.id = 1, .reason = "fan: Unknown key."}));
    EXPECT_EQ(refused(R"({"id":1,"method":"setPercent","fan":0,"rpm":1,"percent":3})").reason,
              "rpm: Unknown key.");
    EXPECT_EQ(refused(R"({"id":1,"method":"setManualRPM","fan":0,"rpm":1,"percent":3})").reason,
              "percent: Unknown key.");
    EXPECT_EQ(refused(R"({"id":1,"method":"applyConfig","plan":"{}","fan":0})").reason,
              "fan: Unknown key.");
    EXPECT_EQ(refused(R"({"method":"heartbeat","at":3})"),
              (Refusal{.id = {}, .reason = "at: Unknown key."}));
}

TEST(Request, aLineThatIsNoObjectIsRefused) {
    EXPECT_EQ(refused("5"),
              (Refusal{.id = {}, .reason = "Expected an object but found a number."}));
    EXPECT_EQ(refused("[]").reason, "Expected an object but found an array.");
}

TEST(Request, aLineThatIsNoJSONIsRefusedWithItsColumn) {
    EXPECT_EQ(refused(R"({"id":1,"method":fullBlast})"),
              (Refusal{.id = {},
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

TEST(Request, aLineMayHaveOneMebibyte) {
    const std::string message = R"({"id":1,"method":"fullBlast"})";
    EXPECT_EQ(accepted(message + std::string(1'048'576 - message.size(), ' ')).id, 1);
    EXPECT_EQ(refused(message + std::string(1'048'577 - message.size(), ' ')).reason,
              "the document has more than 1048576 bytes");
}

TEST(Request, ofAKeyThatStandsTwiceTheLastCounts) {
    const std::string line =
        R"({"id":1,"id":2,"method":"applyConfig","plan":"1","plan":"[2]","method":"applyConfig"})";
    EXPECT_EQ(accepted(line).id, 2);
    EXPECT_EQ(planOf(line), "[2]");
}

TEST(Request, aPlanIsTheTextOfADocumentByteForByte) {
    const std::vector<std::string> plans{
        "",
        "{}",
        "null",
        "no JSON",
        "-0.50e+1",
        R"({"a" : [1, 2.50 ,"}\"{,:\\"]})",
        "{\r\n\t\"a\": \"\u00e4\"\n}\n",
        std::string("\0\x1F\x7F", 3),
    };
    for (const std::string& plan : plans) {
        const auto line = requestLine(1, commands::ApplyConfig{.plan = plan});
        ASSERT_TRUE(line) << plan;
        EXPECT_EQ(line->find('\n'), line->size() - 1) << plan;
        EXPECT_EQ(planOf(std::string_view(*line).substr(0, line->size() - 1)), plan);
    }
}

TEST(Request, aPlanThatIsNoTextIsRefused) {
    EXPECT_EQ(refused(R"({"id":1,"method":"applyConfig","plan":{}})"),
              (Refusal{.id = 1, .reason = "plan: Expected a string but found an object."}));
}

TEST(Request, aPlanThatIsNotUTF8IsNotSent) {
    const auto line = requestLine(1, commands::ApplyConfig{.plan = "\xFF"});
    ASSERT_FALSE(line);
    EXPECT_THAT(line.error(), testing::StartsWith("plan: "));
}

TEST(Request, noLineIsLongerThanTheDaemonReads) {
    const std::size_t rest = requestLine(1, commands::ApplyConfig{})->size() - 1;
    const auto ofSize = [rest](std::size_t size) {
        return requestLine(1, commands::ApplyConfig{.plan = std::string(size - rest, 'x')});
    };
    const auto longest = ofSize(lineLimit);
    ASSERT_TRUE(longest) << longest.error();
    EXPECT_TRUE(parseRequest(std::string_view(*longest).substr(0, lineLimit)));
    EXPECT_EQ(ofSize(lineLimit + 1).error(), "the plan is too large to be sent");
}

/// A good message with some bytes replaced, cut out or put in.
std::string damaged() {
    const auto messages = std::vector<std::string>{
        R"({"id":1,"method":"setPercent","fan":0,"percent":55})",
        R"({"id":12,"method":"applyConfig","plan":"{\"a\":[1,{\"b\":\"c\"}],\"plan\":2}"})",
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

RC_GTEST_PROP(Request, whateverComesIsACommandOrHasAnAnswerThatIsALineOfJSON, ()) {
    const auto request = parseRequest(damaged());
    RC_CLASSIFY(request.has_value(), "still a command");
    if (request) {
        RC_ASSERT(requestLine(request->id.value_or(0), request->command).has_value());
        return;
    }
    const std::string answer = errorLine(request.error());
    RC_ASSERT(answer.find('\n') == answer.size() - 1);
    json::Document document;
    RC_ASSERT(document.parse(answer).has_value());
}

}  // namespace
}  // namespace airflow::wire
