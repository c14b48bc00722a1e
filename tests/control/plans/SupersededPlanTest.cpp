// Plans and counts of fans that a release superseded: what they are answered, and that they write,
// hold and publish nothing afterwards.
#include "HoldBench.h"

namespace airflow::control {
namespace {

using Answer = std::shared_ptr<std::optional<ControlResult>>;

class SupersededPlan : public testing::Test {
protected:
    /// Automatic control is asked for while the SMC has this write or this read in hand.
    void supersedeAtWrite(const std::string& key, double value) {
        atWrite(bench, key, value, 1, [this] { supersede(); });
    }
    void supersedeAtRead(const std::string& key) {
        const auto isOver = std::make_shared<bool>(false);
        watch(bench, [this, key, isOver](const simulation::SMCAccess& access) {
            const bool isRead = access.operation == Fault::Operation::read && access.key == key;
            if (isRead && !std::exchange(*isOver, true)) supersede();
        });
    }
    /// Nobody holds, watches or tells anything.
    void expectOver() {
        bench.advance(1s);
        EXPECT_EQ(*released, ControlResult::applied());
        EXPECT_EQ(told(bench.published).back(), "not holding");
        forget(bench);
        bench.mac().setHIDTemperature(steadyLabel, 99);
        bench.advance(120s);
        for (const std::size_t fan : {0U, 1U}) {
            EXPECT_EQ(bench.mac().fan(fan).mode, FanMode::automatic) << "fan " << fan;
        }
        EXPECT_THAT(bench.reads, IsEmpty());
        EXPECT_THAT(bench.writes, IsEmpty());
        EXPECT_THAT(bench.published, IsEmpty());
    }

    ControllerBench bench{steadyMachine(), withoutJitter};
    Answer released;

private:
    void supersede() {
        writesBefore = bench.writes;
        released = bench.start(bench.controller().automatic());
    }

protected:
    Texts writesBefore;
};

TEST_F(SupersededPlan, isAnswered255WhenItWasLookingForAModeKey) {
    slowDown(bench, 5ms);
    supersedeAtRead("F0Md");
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::rejected(255));
    expectOver();
    EXPECT_THAT(writesBefore, ElementsAre("Ftst=1"));
}

TEST_F(SupersededPlan, isAnswered255WhenItWasLookingForAModeKeyInVain) {
    bench.mac().smc().add(missing("F1md"));
    slowDown(bench, 5ms);
    supersedeAtRead("F0Md");
    EXPECT_EQ(bench.run(bench.controller().applyPlan(planOf({{5, rpm(3000)}, {0, rpm(3000)}}))),
              ControlResult::rejected(255));
    EXPECT_THAT(bench.writes, testing::Not(testing::Contains("F0Md=1")));
    expectOver();
}

TEST_F(SupersededPlan, isAnswered255WhenItWasGivingDroppedFansBack) {
    (void)bench.run(bench.controller().setManual(0, 3000));
    forget(bench);
    slowDown(bench, 5ms);
    supersedeAtWrite("F0Md", 0);
    EXPECT_EQ(bench.run(bench.controller().applyPlan(planOf({{1, rpm(4000)}}))),
              ControlResult::rejected(255));
    bench.advance(1s);
    EXPECT_THAT(bench.writes, testing::Not(testing::Contains("F1Md=1")));
    EXPECT_THAT(bench.reads, testing::Not(testing::Contains("F1Md")));  // nor is it looked for
    EXPECT_FALSE(bench.state().isHolding);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
}

TEST_F(SupersededPlan, isAnswered255AlsoWhenAllItsFansWereHeldAlready) {
    (void)bench.run(bench.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3000)}})));
    forget(bench);
    slowDown(bench, 5ms);
    supersedeAtWrite("F0Md", 0);
    EXPECT_EQ(bench.run(bench.controller().applyPlan(planOf({{1, rpm(4000)}}))),
              ControlResult::rejected(255));
    bench.advance(1s);
    EXPECT_FALSE(bench.state().isHolding);
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::automatic);
}

TEST_F(SupersededPlan, keepsItsResultWhenItWasTakingItsSnapshotAndTakesNoStep) {
    slowDown(bench, 5ms);
    supersedeAtRead("FNum");
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
    bench.advance(1s);
    EXPECT_THAT(bench.writes,
                ElementsAre("Ftst=1", "F0Md=1", "Ftst=1", "F0Md=0", "Ftst=0", "Ftst=0"));
    expectOver();
}

TEST_F(SupersededPlan, keepsAFailureWhenItWasTakingItsSnapshotAndDoesNotTellIt) {
    bench.mac().smc().add(refusal("F1Md", 1));
    slowDown(bench, 5ms);
    supersedeAtRead("FNum");
    EXPECT_EQ(bench.run(bench.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3000)}}))),
              ControlResult::rejected(134));
    EXPECT_THAT(told(bench.published), testing::Each("not holding"));
    expectOver();
}

TEST_F(SupersededPlan, keepsItsResultWhenItWasTakingItsStepAndPublishesNothing) {
    slowDown(bench, 5ms);
    supersedeAtWrite("F0Tg", 3000);
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::applied());
    bench.advance(1s);
    EXPECT_THAT(told(bench.published), ElementsAre("not holding"));
    expectOver();
}

/// The refusal is what a client is to be told, not that nothing is held.
TEST_F(SupersededPlan, doesNotEraseTheReleasesRefusalAtTheEndOfItsStep) {
    bench.mac().smc().add(refusal("F0Md", 0));
    slowDown(bench, 5ms);
    supersedeAtWrite("F0Tg", 3000);
    (void)bench.run(bench.controller().setManual(0, 3000));
    bench.advance(1s);
    const std::string refused = "holding: failed to restore Auto: F0Md=0 rejected (SMC 0x86)";
    EXPECT_THAT(told(bench.published), ElementsAre(refused));
}

TEST_F(SupersededPlan, doesNotWatchForAHeartbeatAfterwards) {
    bench.mac().smc().add(refusal("F0Md", 1, 0x82));
    const Answer plan = bench.start(bench.controller().setManual(0, 3000));
    bench.advance(1s);
    EXPECT_EQ(bench.run(bench.controller().automatic()), ControlResult::applied());
    bench.advance(60s);
    EXPECT_EQ(*plan, ControlResult::rejected(255));
    EXPECT_THAT(told(bench.published), ElementsAre("not holding"));
    EXPECT_EQ(bench.state().lastError, std::nullopt);
}

TEST_F(SupersededPlan, thatManagesNothingReleasesAllTheSame) {
    (void)bench.run(bench.controller().setManual(0, 3000));
    forget(bench);
    slowDown(bench, 5ms);
    supersedeAtWrite("F0Md", 0);
    EXPECT_EQ(bench.run(bench.controller().applyPlan({})), ControlResult::applied());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
}

TEST_F(SupersededPlan, letsTheNextPlanHold) {
    bench.mac().smc().add(refusal("F0Md", 1, 0x82, 0s, 2s));
    const Answer plan = bench.start(bench.controller().setManual(0, 3000));
    bench.advance(1s);
    (void)bench.run(bench.controller().automatic());
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 4000)), ControlResult::applied());
    EXPECT_EQ(*plan, ControlResult::rejected(255));
    EXPECT_EQ(bench.mac().fan(0).target, 4000);
    EXPECT_EQ(told(bench.published).back(), "holding");
}

TEST_F(SupersededPlan, ofFullBlastIsAnswered255WhenItWasCountingTheFans) {
    slowDown(bench, 5ms);
    supersedeAtRead("FNum");
    const auto controller = install<PlanKeeper>(bench);
    EXPECT_EQ(bench.run(controller->fullBlast()), ControlResult::rejected(255));
    EXPECT_THAT(controller->plans, IsEmpty());
    bench.advance(1s);
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=1", "Ftst=0"));
}

TEST_F(SupersededPlan, ofFullBlastFailsAsEverWhenTheFansCouldNotBeCounted) {
    bench.mac().smc().add(misreading("FNum", std::numeric_limits<double>::quiet_NaN()));
    bench.mac().smc().add(missing("FNum"));
    EXPECT_EQ(bench.run(bench.controller().fullBlast()),
              ControlResult::failed("could not read FNum"));
    EXPECT_THAT(bench.writes, IsEmpty());
}

/// A release that was over before a command came supersedes nothing of it.
TEST_F(SupersededPlan, isNoneThatComesAfterTheRelease) {
    EXPECT_EQ(bench.run(bench.controller().automatic()), ControlResult::applied());
    EXPECT_EQ(bench.run(bench.controller().fullBlast()), ControlResult::applied());
    EXPECT_EQ(bench.mac().fan(0).target, 6000);
    EXPECT_EQ(bench.mac().fan(1).target, 6000);
}

/// The hold loop's own word that it goes on, by which others know that fans are watched.
TEST_F(SupersededPlan, hasALoopThatDoesNotSayThatItGoesOn) {
    int checks = 0;
    bench.controller().checked = [&checks] { ++checks; };
    slowDown(bench, 5ms);
    (void)bench.run(bench.controller().setManual(0, 3000));
    bench.advance(1s);
    EXPECT_EQ(checks, 0);
    supersedeAtRead("FNum");
    bench.advance(5s);
    EXPECT_EQ(*released, ControlResult::applied());
    EXPECT_EQ(checks, 0);
}

TEST_F(SupersededPlan, unlikeOneInForceHasALoopThatSaysThatItGoesOnWithEachTick) {
    int checks = 0;
    bench.controller().checked = [&checks] { ++checks; };
    (void)bench.run(bench.controller().setManual(0, 3000));
    bench.advance(7s);  // four ticks
    EXPECT_EQ(checks, 4);
}

}  // namespace
}  // namespace airflow::control
