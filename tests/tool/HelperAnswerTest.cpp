#include <gtest/gtest.h>

#include "tool/client/HelperAnswer.h"

namespace airflow::tool {
namespace {

using client::Answer;
using control::ControlMode;
using control::ControlResult;
using control::ControlState;
using daemon::Method;

ControlState heldState() {
    return {.perFanMode = {{0, ControlMode::curve},
                           {1, ControlMode::manual},
                           {2, ControlMode::automatic},
                           {10, ControlMode::fullBlast}},
            .targets = {{0, 0}, {1, 2400}, {10, 6000}},
            .isHolding = true,
            .lastError = {},
            .stoppedFans = {{0}}};
}

TEST(HelperAnswer, aHeldStateIsATable) {
    EXPECT_EQ(stateText(heldState()),
              "held\n"
              "fan  mode         target\n"
              "  0  curve       stopped\n"
              "  1  manual     2400 RPM\n"
              "  2  automatic\n"
              " 10  fullBlast  6000 RPM\n");
}

TEST(HelperAnswer, anIdleStateIsALineAndItsErrorAnother) {
    EXPECT_EQ(stateText(ControlState::idle()), "not held\n");
    ControlState state;
    state.lastError = "no fan 9\x1B";
    EXPECT_EQ(stateText(state), "not held\nlast error: no fan 9\uFFFD\n");
}

TEST(HelperAnswer, aTargetOfZeroIsNoStopByItself) {
    ControlState state = heldState();
    state.stoppedFans.reset();
    EXPECT_EQ(targetText(state, 0), "0 RPM");
    EXPECT_EQ(targetText(heldState(), 0), "stopped");
    EXPECT_EQ(targetText(heldState(), 2), "");
}

TEST(HelperAnswer, successIsNamedAsTheMethodsAnswerIs) {
    const auto text = [](Method method) {
        return answerText({.method = method, .answer = {.result = ControlResult::applied()}});
    };
    EXPECT_EQ(text(Method::setPercent), "applied\n");
    EXPECT_EQ(text(Method::restoreAuto), "acknowledged\n");
    EXPECT_EQ(text(Method::shutdownForUpgrade), "acknowledged\n");
    EXPECT_EQ(text(Method::heartbeat), "sent\n");
    EXPECT_EQ(answerText({.method = Method::helperVersion,
                          .answer = {.result = ControlResult::applied(), .version = "1.0.3+6"}}),
              "1.0.3+6\n");
    EXPECT_EQ(
        answerText({.method = Method::readState,
                    .answer = {.result = ControlResult::applied(), .state = ControlState::idle()}}),
        "not held\n");
}

TEST(HelperAnswer, everyOtherResultIsNamed) {
    const auto text = [](std::int64_t code) {
        return answerText(
            {.method = Method::setPercent, .answer = {.result = ControlResult::fromXPCCode(code)}});
    };
    EXPECT_EQ(text(1), "acquiring\n");
    EXPECT_EQ(text(2), "timedOut\n");
    EXPECT_EQ(text(3), "reclaimed\n");
    EXPECT_EQ(text(4), "rejected\n");
    EXPECT_EQ(text(5), "notPrivileged\n");
    EXPECT_EQ(text(6), "noHelper\n");
    EXPECT_EQ(text(7), "failed\n");
}

TEST(HelperAnswer, theReasonIsOfWhoKnowsBest) {
    CallOutcome outcome{.method = Method::applyConfig,
                        .answer = {.result = ControlResult::fromXPCCode(7)}};
    outcome.after = ControlState{};
    outcome.after->lastError = "an older error";
    EXPECT_EQ(answerText(outcome), "failed: an older error\n");
    outcome.ownReason = "plan.json: no fans";
    EXPECT_EQ(answerText(outcome), "failed: plan.json: no fans\n");
    outcome.answer.reason = "no answer within 30 s";
    EXPECT_EQ(answerText(outcome), "failed: no answer within 30 s\n");
}

TEST(HelperAnswer, theJSONFormHasWhatThereIs) {
    EXPECT_EQ(
        answerJSON({.method = Method::heartbeat, .answer = {.result = ControlResult::applied()}}),
        "{\"method\":\"heartbeat\",\"result\":\"applied\"}\n");
    CallOutcome held{.method = Method::setPercent,
                     .answer = {.result = ControlResult::applied()},
                     .after = heldState()};
    EXPECT_EQ(answerJSON(held),
              "{\"method\":\"setPercent\",\"result\":\"applied\",\"endsHold\":true}\n");
    CallOutcome refused{.method = Method::setPercent,
                        .answer = {.result = ControlResult::rejected(0)},
                        .after = ControlState{}};
    refused.after->lastError = "F0Md";
    EXPECT_EQ(answerJSON(refused),
              "{\"method\":\"setPercent\",\"result\":\"rejected\",\"reason\":\"F0Md\","
              "\"lastError\":\"F0Md\",\"endsHold\":false}\n");
    EXPECT_EQ(answerJSON({.method = Method::helperVersion,
                          .answer = {.result = ControlResult::applied(), .version = "1"}}),
              "{\"method\":\"helperVersion\",\"result\":\"applied\",\"version\":\"1\"}\n");
    EXPECT_EQ(
        answerJSON({.method = Method::readState,
                    .answer = {.result = ControlResult::applied(), .state = ControlState::idle()},
                    .after = ControlState::idle()}),
        "{\"method\":\"readState\",\"result\":\"applied\",\"state\":{\"perFanMode\":{},"
        "\"targets\":{},\"isHolding\":false},\"endsHold\":false}\n");
}

TEST(HelperAnswer, aReasonThatIsNotUTF8StillGivesJSON) {
    EXPECT_EQ(answerJSON({.method = Method::fullBlast,
                          .answer = {.result = ControlResult::noHelper(), .reason = "\xFF"}}),
              "{\"result\":\"noHelper\"}\n");
}

TEST(HelperAnswer, anErrorThatOnlyRepeatsTheResultIsLeftOut) {
    ControlState state;
    state.lastError = "applyPlan: " + ControlResult::timedOut().description();
    CallOutcome outcome{.method = Method::applyConfig,
                        .answer = {.result = ControlResult::timedOut()},
                        .after = state};
    EXPECT_EQ(answerText(outcome), "timedOut\n");
    outcome.after->lastError = "applyPlan: rejected(\"F0Md=1\")";
    EXPECT_EQ(answerText(outcome), "timedOut: applyPlan: rejected(\"F0Md=1\")\n");
}

}  // namespace
}  // namespace airflow::tool
