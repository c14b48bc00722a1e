// An SMC that takes no forcing write any more: nobody is taken under control, whoever is held goes
// back.
#include "HoldHarness.h"
#include "ScriptedSMC.h"

namespace airflow::control {
namespace {

class WithheldForcing : public testing::Test {
protected:
    /// As the end of a process does it: from now on the writes of 1 do not reach the SMC.
    void withhold() {
        harness.smc.isForcingTaken = false;
        for (const char* key : {"F0Md", "F1Md"}) {
            harness.smc.answers[{key, 1}] = std::unexpected(smc::SMCError::withheld());
        }
    }
    [[nodiscard]] FanMode modeOf(std::size_t fan) { return harness.system.mac.fan(fan).mode; }
    /// Starts an operation without waiting for it.
    std::shared_ptr<std::optional<ControlResult>> start(concurrency::Task<ControlResult> task) {
        const auto result = std::make_shared<std::optional<ControlResult>>();
        harness.system.runtime.detach("operation", deliver(std::move(task), result));
        return result;
    }

    ScriptedHarness harness{steadyMachine()};
    LocalFanController& controller = *harness.controller;

private:
    static concurrency::Task<void> deliver(concurrency::Task<ControlResult> task,
                                           std::shared_ptr<std::optional<ControlResult>> result) {
        result->emplace(co_await std::move(task));
    }
};

TEST_F(WithheldForcing, answersAPlanWith255AndPutsItNotInForce) {
    withhold();
    EXPECT_EQ(harness.run(controller.setManual(0_fan, 3000_rpm)), ControlResult::rejected(255));
    EXPECT_THAT(harness.smc.reads, IsEmpty());
    EXPECT_FALSE(harness.system.mac.forceTest());
    harness.system.runtime.advance(60s);
    EXPECT_THAT(harness.smc.reads, IsEmpty());
    EXPECT_EQ(harness.run(controller.currentState()), ControlState::idle());
}

TEST_F(WithheldForcing, answersFullBlastWith255) {
    withhold();
    EXPECT_EQ(harness.run(controller.fullBlast()), ControlResult::rejected(255));
    EXPECT_THAT(harness.smc.reads, ElementsAre("FNum"));
}

TEST_F(WithheldForcing, stillAnswersAProcessThatIsNotRootThatItIsNotPrivileged) {
    withhold();
    const auto other = std::make_shared<LocalFanController>(harness.system.runtime, harness.smc,
                                                            harness.system.sensors,
                                                            [] { return std::uint32_t{501}; });
    EXPECT_EQ(harness.run(other->setManual(0_fan, 3000_rpm)), ControlResult::notPrivileged());
}

TEST_F(WithheldForcing, endsAClaimThatIsUnderWay) {
    harness.smc.answers[{"F0Md", 1}] = std::uint8_t{0x82};
    const auto plan = start(controller.setManual(0_fan, 3000_rpm));
    harness.system.runtime.advance(1s);
    EXPECT_EQ(*plan, std::nullopt);
    withhold();
    harness.system.runtime.advance(100ms);
    EXPECT_EQ(*plan, ControlResult::rejected(255));
    EXPECT_EQ(modeOf(0), FanMode::automatic);
}

TEST_F(WithheldForcing, letsEveryHeldFanGoBack) {
    EXPECT_EQ(harness.run(controller.fullBlast()), ControlResult::applied());
    withhold();
    EXPECT_EQ(harness.run(controller.restoreAuto()), std::nullopt);
    EXPECT_EQ(modeOf(0), FanMode::automatic);
    EXPECT_EQ(modeOf(1), FanMode::automatic);
}

TEST_F(WithheldForcing, letsTheWatchdogGiveAFanBackThatIsHeld) {
    EXPECT_EQ(harness.run(controller.setManual(0_fan, 3000_rpm)), ControlResult::applied());
    withhold();
    harness.system.runtime.advance(20s);
    EXPECT_EQ(modeOf(0), FanMode::automatic);
}

TEST_F(WithheldForcing, letsARetryGiveAFanBack) {
    EXPECT_EQ(harness.run(controller.setManual(0_fan, 3000_rpm)), ControlResult::applied());
    harness.smc.answers[{"F0Md", 0}] = std::uint8_t{0x86};
    EXPECT_NE(harness.run(controller.restoreAuto()), std::nullopt);
    withhold();
    harness.smc.answers.erase({"F0Md", 0});
    harness.system.runtime.advance(3s);
    EXPECT_EQ(modeOf(0), FanMode::automatic);
}

/// A signal during the start: what recovery had asked before is withheld, so that it misses a fan.
TEST_F(WithheldForcing, atTheStartLetsTheExitFindTheFanThatRecoveryCouldNotRead) {
    harness.system.mac.setMode(1, FanMode::forced);
    withhold();
    harness.smc.readings["F1Md"] = std::nullopt;
    EXPECT_EQ(harness.run(controller.restoreAllFansToAutomatic()), std::nullopt);
    EXPECT_EQ(modeOf(1), FanMode::forced);
    harness.smc.readings.clear();
    harness.run(controller.restoreAutoAtExit(false));
    EXPECT_EQ(modeOf(1), FanMode::automatic);
}

TEST_F(WithheldForcing, showsNoTargetThatWasWithheldBesideIt) {
    harness.smc.targetAnswer = std::unexpected(smc::SMCError::withheld());
    EXPECT_EQ(harness.run(controller.setManual(0_fan, 3000_rpm)), ControlResult::applied());
    EXPECT_THAT(harness.run(controller.currentState()).targets, IsEmpty());
}

TEST_F(WithheldForcing, isNoReasonNotToShowATargetThatWasRefused) {
    harness.smc.targetAnswer = std::uint8_t{0x86};
    EXPECT_EQ(harness.run(controller.setManual(0_fan, 3000_rpm)), ControlResult::applied());
    EXPECT_THAT(harness.run(controller.currentState()).targets,
                ElementsAre(testing::Pair(0, 3000)));
}

TEST_F(WithheldForcing, isOverForAPlanThatComesWhenForcingIsTakenAgain) {
    withhold();
    EXPECT_EQ(harness.run(controller.setManual(0_fan, 3000_rpm)), ControlResult::rejected(255));
    harness.smc.isForcingTaken = true;
    harness.smc.answers.clear();
    EXPECT_EQ(harness.run(controller.setManual(1_fan, 3000_rpm)), ControlResult::applied());
    EXPECT_EQ(modeOf(0), FanMode::automatic);  // the plan that was refused is forgotten
    EXPECT_EQ(modeOf(1), FanMode::forced);
}

}  // namespace
}  // namespace airflow::control
