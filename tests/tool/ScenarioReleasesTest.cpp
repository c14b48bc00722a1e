#include <gmock/gmock.h>

#include <chrono>

#include "tool/simulation/ScenarioReleases.h"

namespace airflow::tool {
namespace {

using namespace std::chrono_literals;
using control::ControlError;
using simulation::Call;
using simulation::FanMode;
using simulation::Fault;
using testing::ElementsAre;
using testing::Pair;

class ScenarioReleasesTest : public testing::Test {
protected:
    /// Fan 0 is forced at 1 s by a command that is over then.
    ScenarioReleasesTest() {
        releases.called(1s, Call::Method::setManualRPM);
        write(1s, 1, FanMode::forced);
        releases.replied(1s, Call::Method::setManualRPM);
    }

    void write(concurrency::Duration time, double value, FanMode mode) {
        releases.modeChanged(time, 0, mode);
        releases.access(
            {.time = time, .operation = Fault::Operation::write, .key = "F0Md", .value = value});
    }
    void refuse(concurrency::Duration time) {
        releases.access({.time = time,
                         .operation = Fault::Operation::write,
                         .key = "F0Md",
                         .value = 0,
                         .result = 0x86});
    }
    /// The text says something else than the cause: it is the cause that counts.
    void publish(concurrency::Duration time, std::optional<ControlError> cause) {
        control::ControlState state;
        state.lastError = "failed to restore Auto: this is only a text — released to Auto";
        state.cause = std::move(cause);
        releases.published(time, state);
    }
    std::map<std::string, int> causeOf(std::optional<ControlError> cause) {
        write(20s, 0, FanMode::automatic);
        publish(20s, std::nullopt);
        publish(20s, std::move(cause));
        return releases.finish();
    }

    ScenarioReleases releases;
};

TEST_F(ScenarioReleasesTest, aFanThatGoesBackWithoutAReasonIsThePlansOwn) {
    EXPECT_THAT(causeOf(std::nullopt), ElementsAre(Pair("the plan itself", 1)));
}

TEST_F(ScenarioReleasesTest, theCeilingIsTheReasonThatTheStateGives) {
    EXPECT_THAT(causeOf(control::CeilingExceeded{.celsius = 97.9}),
                ElementsAre(Pair("thermal ceiling 97°C exceeded", 1)));
}

TEST_F(ScenarioReleasesTest, missingTemperaturesAreTheReasonThatTheStateGives) {
    EXPECT_THAT(causeOf(control::TemperaturesMissing{.snapshots = 2, .limit = 2}),
                ElementsAre(Pair("temperature data unavailable", 1)));
}

TEST_F(ScenarioReleasesTest, aLostHeartbeatIsTheReasonThatTheStateGives) {
    EXPECT_THAT(causeOf(control::HeartbeatLost{}), ElementsAre(Pair("no heartbeat for >15s", 1)));
}

TEST_F(ScenarioReleasesTest, aReasonOfTheGuardIsTheReasonThatTheStateGives) {
    EXPECT_THAT(causeOf(control::ChecksOverdue{}), ElementsAre(Pair("safety checks overdue", 1)));
}

TEST_F(ScenarioReleasesTest, aFanThatNobodyHeldIsTheReasonThatTheStateGives) {
    EXPECT_THAT(causeOf(control::FanUnattended{}),
                ElementsAre(Pair("a fan was forced unattended", 1)));
}

TEST_F(ScenarioReleasesTest, anotherFanThatRefusesHidesWhichCheckItWas) {
    EXPECT_THAT(causeOf(control::NotRestored{.refusals = {{.key = "F1Md", .answer = 0x86}}}),
                ElementsAre(Pair("a safety check", 1)));
}

TEST_F(ScenarioReleasesTest, whatReleasesNoFanIsNoReason) {
    EXPECT_THAT(causeOf(control::TemperaturesMissing{.snapshots = 1, .limit = 2}),
                ElementsAre(Pair("the plan itself", 1)));
}

TEST_F(ScenarioReleasesTest, aFanThatTheFirmwareTookIsNoReason) {
    EXPECT_THAT(causeOf(control::Reclaimed{.fans = {1}}), ElementsAre(Pair("the plan itself", 1)));
}

TEST_F(ScenarioReleasesTest, aFanThatRefusedAtFirstGoesBackInARetry) {
    refuse(10s);
    EXPECT_THAT(causeOf(control::NotRestored{.refusals = {{.key = "F1Md", .answer = 0x86}}}),
                ElementsAre(Pair("retry", 1)));
}

TEST_F(ScenarioReleasesTest, aCommandThatGivesAllFansBackIsTheReasonWhateverTheStateSays) {
    releases.called(20s, Call::Method::restoreAuto);
    EXPECT_THAT(causeOf(control::HeartbeatLost{}), ElementsAre(Pair("restoreAuto", 1)));
}

TEST_F(ScenarioReleasesTest, aReasonThatIsPublishedLaterBelongsToAnotherRelease) {
    write(20s, 0, FanMode::automatic);
    publish(20s, std::nullopt);
    publish(21s, control::HeartbeatLost{});
    EXPECT_THAT(releases.finish(), ElementsAre(Pair("the plan itself", 1)));
}

}  // namespace
}  // namespace airflow::tool
