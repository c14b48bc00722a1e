#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "control/ControlState.h"

namespace rc {

template <>
struct Arbitrary<airflow::control::ControlMode> {
    static Gen<airflow::control::ControlMode> arbitrary() {
        using airflow::control::ControlMode;
        return gen::map(gen::element(ControlMode::automatic, ControlMode::fullBlast,
                                     ControlMode::manual, ControlMode::curve),
                        [](ControlMode::Case mode) { return ControlMode(mode); });
    }
};

}  // namespace rc

namespace airflow::control {
namespace {

using Indices = std::vector<std::int64_t>;

ControlState decoded(const std::string& text) {
    const auto state = json::decode<ControlState>(text);
    EXPECT_TRUE(state) << text << ": " << (state ? "" : state.error().description);
    return state.value_or(ControlState());
}

/// What `text` was refused for, as a tool prints it.
std::string refusal(const std::string& text) {
    const auto state = json::decode<ControlState>(text);
    EXPECT_FALSE(state) << text;
    return state ? "accepted" : state.error().describe("state");
}

ControlState held() {
    return {.perFanMode = {{0, ControlMode::curve}, {1, ControlMode::curve}},
            .targets = {{0, 2100}, {1, 0}},
            .isHolding = true,
            .lastError = {},
            .stoppedFans = Indices{1}};
}

TEST(ControlState, idleHoldsNothing) {
    const ControlState& idle = ControlState::idle();
    EXPECT_TRUE(idle.perFanMode.empty());
    EXPECT_TRUE(idle.targets.empty());
    EXPECT_FALSE(idle.isHolding);
    EXPECT_EQ(idle.lastError, std::nullopt);
    EXPECT_EQ(idle.stoppedFans, std::nullopt);
}

TEST(ControlState, idleIsSharedByAll) {
    EXPECT_EQ(&ControlState::idle(), &ControlState::idle());
    EXPECT_EQ(ControlState(), ControlState::idle());
}

TEST(ControlState, idleIsWrittenWithoutErrorAndStoppedFans) {
    EXPECT_EQ(json::encode(ControlState::idle()),
              R"({"perFanMode":{},"targets":{},"isHolding":false})");
}

TEST(ControlState, aHeldStateIsWrittenWithItsStoppedFans) {
    EXPECT_EQ(json::encode(held()),
              R"({"perFanMode":{"0":{"curve":{}},"1":{"curve":{}}},)"
              R"("targets":{"0":2100,"1":0},"isHolding":true,"stoppedFans":[1]})");
}

TEST(ControlState, aHeldStateIsReadBack) {
    EXPECT_EQ(decoded(R"({"perFanMode":{"0":{"curve":{}},"1":{"curve":{}}},)"
                      R"("targets":{"0":2100,"1":0},"isHolding":true,"stoppedFans":[1]})"),
              held());
}

TEST(ControlState, everyFieldIsWrittenWhenPresent) {
    const ControlState state{.perFanMode = {{-1, ControlMode::automatic},
                                            {0, ControlMode::fullBlast},
                                            {10, ControlMode::manual}},
                             .targets = {{10, -5}},
                             .isHolding = false,
                             .lastError = "applyPlan: failed(\"no fan\")",
                             .stoppedFans = Indices{0, 10}};
    EXPECT_EQ(json::encode(state),
              R"({"perFanMode":{"-1":{"automatic":{}},"0":{"fullBlast":{}},"10":{"manual":{}}},)"
              R"("targets":{"10":-5},"isHolding":false,)"
              R"~("lastError":"applyPlan: failed(\"no fan\")","stoppedFans":[0,10]})~");
}

TEST(ControlState, anErrorThatIsNoTextHasNoJSONForm) {
    ControlState state;
    state.lastError = "\xFF";
    EXPECT_EQ(json::encode(state).error(),
              (json::EncodingError{.codingPath = "lastError",
                                   .description = "A text that is not UTF-8 has no JSON form."}));
}

TEST(ControlState, errorAndStoppedFansMayBeMissingOrNull) {
    EXPECT_EQ(decoded(R"({"perFanMode":{},"targets":{},"isHolding":false})"), ControlState::idle());
    EXPECT_EQ(decoded(R"({"perFanMode":{},"targets":{},"isHolding":false,)"
                      R"("lastError":null,"stoppedFans":null})"),
              ControlState::idle());
}

TEST(ControlState, anEmptyListOfStoppedFansIsNotAnAbsentOne) {
    const auto state =
        decoded(R"({"perFanMode":{},"targets":{},"isHolding":true,"stoppedFans":[]})");
    EXPECT_EQ(state.stoppedFans, Indices{});
    EXPECT_EQ(json::encode(state),
              R"({"perFanMode":{},"targets":{},"isHolding":true,"stoppedFans":[]})");
}

TEST(ControlState, unknownMembersAndTheirOrderDoNotMatter) {
    EXPECT_EQ(decoded(R"({"stoppedFans":[1],"isHolding":true,"later":[],)"
                      R"("targets":{"1":0,"0":2100},)"
                      R"("perFanMode":{"1":{"curve":{}},"0":{"curve":{}}}})"),
              held());
}

TEST(ControlState, aStateWithoutARequiredMemberIsRefused) {
    EXPECT_EQ(refusal(R"({"targets":{},"isHolding":false})"),
              R"(state: The required key "perFanMode" is missing.)");
    EXPECT_EQ(refusal(R"({"perFanMode":{},"isHolding":false})"),
              R"(state: The required key "targets" is missing.)");
    EXPECT_EQ(refusal(R"({"perFanMode":{},"targets":{}})"),
              R"(state: The required key "isHolding" is missing.)");
}

TEST(ControlState, aValueThatIsNoObjectIsRefused) {
    EXPECT_EQ(refusal("[]"), "state: Expected an object but found an array.");
}

TEST(ControlState, aWrongModeIsRefusedAtItsFan) {
    EXPECT_EQ(refusal(R"({"perFanMode":{"0":{"curve":{}},"1":{}},"targets":{},"isHolding":true})"),
              "state: perFanMode.1: Invalid number of keys found, expected one.");
    EXPECT_EQ(refusal(R"({"perFanMode":{"3":{"manual":1}},"targets":{},"isHolding":true})"),
              "state: perFanMode.3.manual: Expected an object but found a number.");
    EXPECT_EQ(refusal(R"({"perFanMode":[],"targets":{},"isHolding":true})"),
              "state: perFanMode: Expected an object but found an array.");
}

TEST(ControlState, aWrongTargetIsRefusedAtItsFan) {
    EXPECT_EQ(refusal(R"({"perFanMode":{},"targets":{"1":"fast"},"isHolding":true})"),
              "state: targets.1: Expected a whole number but found a string.");
    EXPECT_EQ(refusal(R"({"perFanMode":{},"targets":{"1":2100.5},"isHolding":true})"),
              "state: targets.1: The number 2100.5 is not whole.");
    EXPECT_EQ(refusal(R"({"perFanMode":{},"targets":null,"isHolding":true})"),
              "state: targets: Expected an object but found null.");
}

TEST(ControlState, aKeyThatIsNoFanIndexIsRefused) {
    EXPECT_EQ(refusal(R"({"perFanMode":{"left":{"curve":{}}},"targets":{},"isHolding":true})"),
              "state: perFanMode.left: "
              R"(Expected a whole number as the key but found "left".)");
    EXPECT_EQ(refusal(R"({"perFanMode":{},"targets":{"0x1":1},"isHolding":true})"),
              R"(state: targets.0x1: Expected a whole number as the key but found "0x1".)");
}

TEST(ControlState, otherFieldsOfAWrongKindAreRefused) {
    EXPECT_EQ(refusal(R"({"perFanMode":{},"targets":{},"isHolding":1})"),
              "state: isHolding: Expected a boolean but found a number.");
    EXPECT_EQ(refusal(R"({"perFanMode":{},"targets":{},"isHolding":null})"),
              "state: isHolding: Expected a boolean but found null.");
    EXPECT_EQ(refusal(R"({"perFanMode":{},"targets":{},"isHolding":true,"lastError":7})"),
              "state: lastError: Expected a string but found a number.");
    EXPECT_EQ(refusal(R"({"perFanMode":{},"targets":{},"isHolding":true,"stoppedFans":1})"),
              "state: stoppedFans: Expected an array but found a number.");
    EXPECT_EQ(refusal(R"({"perFanMode":{},"targets":{},"isHolding":true,"stoppedFans":[0,"1"]})"),
              "state: stoppedFans[1]: Expected a whole number but found a string.");
}

TEST(ControlState, everyFieldTakesPartInEquality) {
    const ControlState state = held();
    ControlState other = state;
    EXPECT_EQ(state, other);
    other.perFanMode[1] = ControlMode::manual;
    EXPECT_NE(state, other);
    other = state;
    other.targets[0] = 2101;
    EXPECT_NE(state, other);
    other = state;
    other.isHolding = false;
    EXPECT_NE(state, other);
    other = state;
    other.lastError = "";
    EXPECT_NE(state, other);
    other = state;
    other.stoppedFans = Indices{};
    EXPECT_NE(state, other);
}

RC_GTEST_PROP(ControlState, everyStateIsReadBackAsItWasWritten,
              (const std::map<std::int64_t, ControlMode>& perFanMode,
               const std::map<std::int64_t, std::int64_t>& targets, bool isHolding,
               const std::vector<std::int64_t>& stoppedFans, bool isStopped, bool hasFailed)) {
    const auto anyText = rc::gen::container<std::string>(rc::gen::inRange('\0', '\x7F'));
    ControlState state{.perFanMode = perFanMode,
                       .targets = targets,
                       .isHolding = isHolding,
                       .lastError = {},
                       .stoppedFans = {}};
    if (hasFailed) state.lastError = *anyText + "°";
    if (isStopped) state.stoppedFans = stoppedFans;

    const auto text = json::encode(state);
    RC_ASSERT(text.has_value());
    const auto read = json::decode<ControlState>(*text);
    RC_ASSERT(read.has_value());
    RC_ASSERT(*read == state);
}

}  // namespace
}  // namespace airflow::control
