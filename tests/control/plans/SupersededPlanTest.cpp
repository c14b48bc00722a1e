// Plans and counts of fans that a release superseded: what they are answered, and that they write,
// hold and publish nothing afterwards.
#include "HoldHarness.h"
#include "support/Doubles.h"

namespace airflow::control {
namespace {

using tests::notANumber;
using Answer = std::shared_ptr<std::optional<ControlResult>>;

class SupersededPlan : public testing::Test {
protected:
    /// Automatic control is asked for while the SMC has this write or this read in hand.
    void supersedeAtWrite(const std::string& key, double value) {
        atWrite(harness, key, value, 1, [this] { supersede(); });
    }
    void supersedeAtRead(const std::string& key) {
        const auto isOver = std::make_shared<bool>(false);
        watch(harness, [this, key, isOver](const simulation::SMCAccess& access) {
            const bool isRead = access.operation == Fault::Operation::read && access.key == key;
            if (isRead && !std::exchange(*isOver, true)) supersede();
        });
    }
    /// Nobody holds, watches or tells anything.
    void expectOver() {
        harness.advance(1s);
        EXPECT_EQ(*released, ControlResult::applied());
        EXPECT_EQ(told(harness.published).back(), "not holding");
        forget(harness);
        harness.mac().setHIDTemperature(steadyLabel, 99);
        harness.advance(120s);
        for (const std::size_t fan : {0U, 1U}) {
            EXPECT_EQ(harness.mac().fan(fan).mode, FanMode::automatic) << "fan " << fan;
        }
        EXPECT_THAT(harness.reads, IsEmpty());
        EXPECT_THAT(harness.writes, IsEmpty());
        EXPECT_THAT(harness.published, IsEmpty());
    }

    ControllerHarness harness{steadyMachine(), withoutJitter};
    Answer released;

private:
    void supersede() {
        writesBefore = harness.writes;
        released = harness.start(harness.controller().automatic());
    }

protected:
    Texts writesBefore;
};

TEST_F(SupersededPlan, isAnswered255WhenItWasLookingForAModeKey) {
    slowDown(harness, 5ms);
    supersedeAtRead("F0Md");
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::rejected(255));
    expectOver();
    EXPECT_THAT(writesBefore, ElementsAre("Ftst=1"));
}

TEST_F(SupersededPlan, isAnswered255WhenItWasLookingForAModeKeyInVain) {
    harness.mac().smc().add(missing("F1md"));
    slowDown(harness, 5ms);
    supersedeAtRead("F0Md");
    EXPECT_EQ(harness.run(harness.controller().applyPlan(planOf({{5, rpm(3000)}, {0, rpm(3000)}}))),
              ControlResult::rejected(255));
    EXPECT_THAT(harness.writes, testing::Not(testing::Contains("F0Md=1")));
    expectOver();
}

TEST_F(SupersededPlan, isAnswered255WhenItWasGivingDroppedFansBack) {
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    forget(harness);
    slowDown(harness, 5ms);
    supersedeAtWrite("F0Md", 0);
    EXPECT_EQ(harness.run(harness.controller().applyPlan(planOf({{1, rpm(4000)}}))),
              ControlResult::rejected(255));
    harness.advance(1s);
    EXPECT_THAT(harness.writes, testing::Not(testing::Contains("F1Md=1")));
    EXPECT_THAT(harness.reads, testing::Not(testing::Contains("F1Md")));  // nor is it looked for
    EXPECT_FALSE(harness.state().isHolding);
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
}

TEST_F(SupersededPlan, isAnswered255AlsoWhenAllItsFansWereHeldAlready) {
    (void)harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3000)}})));
    forget(harness);
    slowDown(harness, 5ms);
    supersedeAtWrite("F0Md", 0);
    EXPECT_EQ(harness.run(harness.controller().applyPlan(planOf({{1, rpm(4000)}}))),
              ControlResult::rejected(255));
    harness.advance(1s);
    EXPECT_FALSE(harness.state().isHolding);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::automatic);
}

TEST_F(SupersededPlan, keepsItsResultWhenItWasTakingItsSnapshotAndTakesNoStep) {
    slowDown(harness, 5ms);
    supersedeAtRead("FNum");
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
    harness.advance(1s);
    EXPECT_THAT(harness.writes,
                ElementsAre("Ftst=1", "F0Md=1", "Ftst=1", "F0Md=0", "Ftst=0", "Ftst=0"));
    expectOver();
}

TEST_F(SupersededPlan, keepsAFailureWhenItWasTakingItsSnapshotAndDoesNotTellIt) {
    harness.mac().smc().add(refusal("F1Md", 1));
    slowDown(harness, 5ms);
    supersedeAtRead("FNum");
    EXPECT_EQ(harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3000)}}))),
              ControlResult::rejected(134));
    EXPECT_THAT(told(harness.published), testing::Each("not holding"));
    expectOver();
}

TEST_F(SupersededPlan, keepsItsResultWhenItWasTakingItsStepAndPublishesNothing) {
    slowDown(harness, 5ms);
    supersedeAtWrite("F0Tg", 3000);
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
    harness.advance(1s);
    EXPECT_THAT(told(harness.published), ElementsAre("not holding"));
    expectOver();
}

/// The refusal is what a client is to be told, not that nothing is held.
TEST_F(SupersededPlan, doesNotEraseTheReleasesRefusalAtTheEndOfItsStep) {
    harness.mac().smc().add(refusal("F0Md", 0));
    slowDown(harness, 5ms);
    supersedeAtWrite("F0Tg", 3000);
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    harness.advance(1s);
    const std::string refused = "holding: failed to restore Auto: F0Md=0 rejected (SMC 0x86)";
    EXPECT_THAT(told(harness.published), ElementsAre(refused));
}

TEST_F(SupersededPlan, doesNotWatchForAHeartbeatAfterwards) {
    harness.mac().smc().add(refusal("F0Md", 1, 0x82));
    const Answer plan = harness.start(harness.controller().setManual(0_fan, 3000_rpm));
    harness.advance(1s);
    EXPECT_EQ(harness.run(harness.controller().automatic()), ControlResult::applied());
    harness.advance(60s);
    EXPECT_EQ(*plan, ControlResult::rejected(255));
    EXPECT_THAT(told(harness.published), ElementsAre("not holding"));
    EXPECT_EQ(harness.state().lastError, std::nullopt);
}

TEST_F(SupersededPlan, thatManagesNothingReleasesAllTheSame) {
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    forget(harness);
    slowDown(harness, 5ms);
    supersedeAtWrite("F0Md", 0);
    EXPECT_EQ(harness.run(harness.controller().applyPlan({})), ControlResult::applied());
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
}

TEST_F(SupersededPlan, letsTheNextPlanHold) {
    harness.mac().smc().add(refusal("F0Md", 1, 0x82, 0s, 2s));
    const Answer plan = harness.start(harness.controller().setManual(0_fan, 3000_rpm));
    harness.advance(1s);
    (void)harness.run(harness.controller().automatic());
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 4000_rpm)),
              ControlResult::applied());
    EXPECT_EQ(*plan, ControlResult::rejected(255));
    EXPECT_EQ(harness.mac().fan(0).target, 4000);
    EXPECT_EQ(told(harness.published).back(), "holding");
}

TEST_F(SupersededPlan, ofFullBlastIsAnswered255WhenItWasCountingTheFans) {
    slowDown(harness, 5ms);
    supersedeAtRead("FNum");
    const auto controller = install<PlanKeeper>(harness);
    EXPECT_EQ(harness.run(controller->fullBlast()), ControlResult::rejected(255));
    EXPECT_THAT(controller->plans, IsEmpty());
    harness.advance(1s);
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=1", "Ftst=0"));
}

TEST_F(SupersededPlan, ofFullBlastFailsAsEverWhenTheFansCouldNotBeCounted) {
    harness.mac().smc().add(misreading("FNum", notANumber));
    harness.mac().smc().add(missing("FNum"));
    EXPECT_EQ(harness.run(harness.controller().fullBlast()),
              ControlResult::failed("could not read FNum"));
    EXPECT_THAT(harness.writes, IsEmpty());
}

/// A release that was over before a command came supersedes nothing of it.
TEST_F(SupersededPlan, isNoneThatComesAfterTheRelease) {
    EXPECT_EQ(harness.run(harness.controller().automatic()), ControlResult::applied());
    EXPECT_EQ(harness.run(harness.controller().fullBlast()), ControlResult::applied());
    EXPECT_EQ(harness.mac().fan(0).target, 6000);
    EXPECT_EQ(harness.mac().fan(1).target, 6000);
}

/// The hold loop's own word that it goes on, by which others know that fans are watched.
TEST_F(SupersededPlan, hasALoopThatDoesNotSayThatItGoesOn) {
    int checks = 0;
    harness.controller().checked = [&checks] { ++checks; };
    slowDown(harness, 5ms);
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    harness.advance(1s);
    EXPECT_EQ(checks, 0);
    supersedeAtRead("FNum");
    harness.advance(5s);
    EXPECT_EQ(*released, ControlResult::applied());
    EXPECT_EQ(checks, 0);
}

TEST_F(SupersededPlan, unlikeOneInForceHasALoopThatSaysThatItGoesOnWithEachTick) {
    int checks = 0;
    harness.controller().checked = [&checks] { ++checks; };
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    harness.advance(7s);  // four ticks
    EXPECT_EQ(checks, 4);
}

}  // namespace
}  // namespace airflow::control
