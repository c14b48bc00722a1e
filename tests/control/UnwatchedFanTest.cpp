// Where a fan stays or gets forced after a release, because the release came while the fan was
// being claimed; and who still watches it then.
#include "HoldBench.h"

namespace airflow::control {
namespace {

using Answer = std::shared_ptr<std::optional<ControlResult>>;
using Failure = std::shared_ptr<std::optional<std::optional<std::string>>>;

/// Fan 0 is refused for 1.2 s, which ends the claims of a plan that is applied at the start, and
/// is busy from then on, up to 3 s: the claim of the first tick takes from about 2.1 s to 3.1 s.
void letTheFirstTickClaim(ControllerBench& bench) {
    bench.mac().smc().add(refusal("F0Md", 1, 0x86, 0s, 1200ms));
    bench.mac().smc().add(refusal("F0Md", 1, 0x82, 1200ms, 3s));
    EXPECT_EQ(bench.run(bench.controller().setManual(0, 3000)), ControlResult::rejected(134));
    bench.advance(2500ms - bench.system.elapsed());
    EXPECT_EQ(bench.writes.back(), "F0Md=1 (0x82)");
    forget(bench);
}

Texts withoutBusyWrites(const Texts& writes) {
    Texts result;
    std::ranges::remove_copy(writes, std::back_inserter(result), "F0Md=1 (0x82)");
    return result;
}

/// Nothing bounds this: the loop has been cancelled and ends, and no other begins.
TEST(UnwatchedFan, aClaimOfTheLoopThatSucceedsAfterAReleaseLeavesTheFanForced) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    letTheFirstTickClaim(bench);
    EXPECT_EQ(bench.run(bench.controller().automatic()), ControlResult::applied());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_THAT(told(bench.published), ElementsAre("not holding"));

    bench.advance(1s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_THAT(withoutBusyWrites(bench.writes),
                ElementsAre("Ftst=1", "F0Md=0", "Ftst=0", "F0Md=1"));
    EXPECT_THAT(told(bench.published), ElementsAre("not holding", "holding"));

    forget(bench);
    bench.mac().setHIDTemperature(steadyLabel, 99);
    bench.advance(3600s);
    EXPECT_THAT(bench.reads, IsEmpty());
    EXPECT_THAT(bench.writes, IsEmpty());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);

    EXPECT_EQ(bench.run(bench.controller().automatic()), ControlResult::applied());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);  // the next command finds it
}

TEST(UnwatchedFan, soDoesARestore) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    letTheFirstTickClaim(bench);
    EXPECT_EQ(bench.run(bench.controller().restoreAuto()), std::nullopt);
    bench.advance(60s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_TRUE(bench.state().isHolding);
}

TEST(UnwatchedFan, soDoesAPlanThatManagesNothing) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    letTheFirstTickClaim(bench);
    EXPECT_EQ(bench.run(bench.controller().applyPlan({})), ControlResult::applied());
    EXPECT_THAT(told(bench.published), ElementsAre("not holding"));
    bench.advance(60s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_TRUE(bench.state().isHolding);
}

/// The step of a plan claims again what the plan itself could not claim. A safety release of the
/// loop in that time ends the loop, and the plan starts no other.
TEST(UnwatchedFan, aClaimOfAPlansStepThatSucceedsAfterASafetyReleaseLeavesTheFanForcedInTheHeat) {
    ControllerBench bench(steadyMachine(2), withoutJitter);
    bench.mac().smc().add(refusal("F0Md", 1, 0x86, 0s, 450ms));
    bench.mac().smc().add(refusal("F0Md", 1, 0x82, 450ms, 5s));
    const Answer plan =
        bench.start(bench.controller().applyPlan(planOf({{0, rpm(6000)}, {1, rpm(6000)}})));
    bench.mac().setHIDTemperature(steadyLabel, 97);
    bench.advance(10s);
    EXPECT_EQ(*plan, ControlResult::rejected(134));
    EXPECT_THAT(
        told(bench.published),
        ElementsAre("not holding", "not holding: thermal ceiling 97°C exceeded — released to Auto",
                    "holding: applyPlan: rejected(code: 134)"));
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(bench.mac().fan(0).target, 1200);  // the target was never written
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::automatic);
    forget(bench);
    bench.advance(3600s);
    EXPECT_THAT(bench.reads, IsEmpty());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
}

/// Two control steps at once, here a plan's and its loop's: each goes on with its own claim.
TEST(UnwatchedFan, soDoTheClaimsOfTwoStepsThatOneReleaseOvertakes) {
    ControllerBench bench(steadyMachine(2), withoutJitter);
    bench.mac().smc().add(refusal("F0Md", 1, 0x86, 0s, 2600ms));
    bench.mac().smc().add(refusal("F1Md", 1, 0x86, 0s, 1s));
    bench.mac().smc().add(refusal("F1Md", 1, 0x82, 1s, 2600ms));
    const Answer plan =
        bench.start(bench.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3000)}})));
    bench.advance(2500ms);
    EXPECT_EQ(bench.run(bench.controller().automatic()), ControlResult::applied());
    bench.advance(60s);
    EXPECT_EQ(*plan, ControlResult::rejected(134));
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::forced);
    EXPECT_TRUE(bench.state().isHolding);
}

/// Bounded by the rest of the plan's claims, ten seconds each: the plan's own step releases what
/// no plan in force wants. A process that ends before leaves the fan to the next start's recovery.
TEST(UnwatchedFan, aClaimOfAPlanThatSucceedsAfterARestoreIsUndoneByThePlansStep) {
    ControllerBench bench(steadyMachine(1), withoutJitter);
    bench.mac().smc().add(refusal("F0Md", 1, 0x82, 0s, 3s));
    const Answer plan = bench.start(bench.controller().setManual(0, 3000));
    bench.advance(1s);
    forget(bench);
    EXPECT_EQ(bench.run(bench.controller().restoreAuto()), std::nullopt);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    bench.advance(3s);
    EXPECT_EQ(*plan, ControlResult::applied());
    EXPECT_THAT(withoutBusyWrites(bench.writes),
                ElementsAre("Ftst=1", "F0Md=0", "Ftst=0", "Ftst=1", "F0Md=1", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(bench.published), ElementsAre("not holding", "not holding"));
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
}

TEST(UnwatchedFan, aClaimOfAPlanThatSucceedsAfterASafetyReleaseIsUndoneByThePlansStep) {
    ControllerBench bench(steadyMachine(), withoutJitter);
    (void)bench.run(bench.controller().setManual(1, 3000));
    bench.mac().smc().add(refusal("F0Md", 1, 0x82, 0s, 5s));
    bench.mac().setHIDTemperature(steadyLabel, 97);
    const Answer plan = bench.start(bench.controller().setManual(0, 3000));
    bench.advance(7s);
    EXPECT_EQ(*plan, ControlResult::applied());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::automatic);
    EXPECT_FALSE(bench.state().isHolding);
}

/// The release forgets, at its end, every fan that did not refuse, also one that was claimed behind
/// it. No plan names that fan, so only the next release finds it: the plan's loop releases for
/// heat, or once heartbeats are missing, but not while a client sends them.
TEST(UnwatchedFan, aClaimThatEndsWhileAReleaseRunsIsForgottenByThatRelease) {
    ControllerBench bench(steadyMachine(), withoutJitter);
    slowDown(bench, 5ms);
    Answer released;
    atWrite(bench, "F0Md", 1, 1, [&] { released = bench.start(bench.controller().automatic()); });
    EXPECT_EQ(bench.run(bench.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(4000)}}))),
              ControlResult::applied());
    EXPECT_EQ(*released, ControlResult::applied());
    EXPECT_THAT(bench.writes,
                ElementsAre("Ftst=1", "F0Md=1", "Ftst=1", "F0Md=0", "F1Md=1", "Ftst=0", "Ftst=0"));
    EXPECT_THAT(told(bench.published), ElementsAre("not holding", "not holding"));
    EXPECT_THAT(bench.state().perFanMode, IsEmpty());
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::forced);
    for (int beat = 0; beat < 6; ++beat) {
        bench.run(bench.controller().heartbeat());
        bench.advance(10s);
    }
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::forced);
    bench.advance(7s);
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::automatic);
}

/// The same with a tick's claim, which takes the fan when the release has written its mode key and
/// still has to write the other's and lower force-test. The tick, which the release has overtaken,
/// counts the fan and says so; the release forgets it, and the loop, which is cancelled, ends.
TEST(UnwatchedFan, aTicksClaimThatEndsWhileAReleaseRunsIsForgottenAndWatchedByNobody) {
    ControllerBench bench(steadyMachine(2), withoutJitter);
    bench.mac().smc().add(refusal("F0Md", 1, 0x86, 0s, 1200ms));
    bench.mac().smc().add(refusal("F0Md", 1, 0x82, 1200ms, 3s));
    EXPECT_EQ(bench.run(bench.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(4000)}}))),
              ControlResult::rejected(134));
    bench.advance(2500ms - bench.system.elapsed());
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::forced);
    // The release asks for fan 0 before the SMC would take it at 3 s, and for fan 1 after that.
    slowDown(bench, 150ms);
    bench.advance(2800ms - bench.system.elapsed());
    forget(bench);
    const Answer released = bench.start(bench.controller().automatic());
    bench.advance(2s);
    EXPECT_EQ(*released, ControlResult::applied());
    EXPECT_THAT(withoutBusyWrites(bench.writes),
                ElementsAre("Ftst=1", "F0Md=0", "F0Md=1", "F1Md=0", "Ftst=0"));
    EXPECT_THAT(told(bench.published), ElementsAre("holding", "not holding"));
    EXPECT_THAT(bench.state().perFanMode, IsEmpty());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);
    EXPECT_EQ(bench.mac().fan(1).mode, FanMode::automatic);

    forget(bench);
    bench.mac().setHIDTemperature(steadyLabel, 99);
    bench.advance(3600s);
    EXPECT_THAT(bench.reads, IsEmpty());
    EXPECT_THAT(bench.writes, IsEmpty());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);

    EXPECT_EQ(bench.run(bench.controller().automatic()), ControlResult::applied());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);  // the next full release finds it
}

/// A tick claims one fan after the other, up to ten seconds each, and looks at nothing meanwhile.
TEST(UnwatchedFan, theChecksWaitForTheClaimsOfTheirOwnTick) {
    ControllerBench bench(steadyMachine(), withoutJitter);
    bench.mac().smc().add(refusal("F1Md", 1, 0x82));
    (void)bench.run(bench.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3000)}})));
    // Claims of fan 1 fail from 0 s to 10 s for the plan, from 10 s to 20 s for its own step, and
    // from 11.6 s to 21.7 s for the first tick.
    bench.advance(20500ms - bench.system.elapsed());
    bench.mac().setHIDTemperature(steadyLabel, 99);
    bench.advance(2500ms);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::forced);  // 2.5 s, more than a tick, after the heat
    bench.advance(1s);
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
}

/// A cancelled loop that is still in its tick when the next plan starts another clears the handle
/// of that one as it ends.
class ReplacedHandle : public testing::Test {
protected:
    ReplacedHandle() {
        slowDown(bench, 10ms);
        (void)bench.run(bench.controller().setManual(0, 3000));
        atRead("FNum", [this] { restart = bench.start(restarted(bench.controller())); });
        bench.advance(3s);
        EXPECT_EQ(*restart, ControlResult::applied());
        bench.run(bench.controller().heartbeat());
    }

    static concurrency::Task<ControlResult> restarted(LocalFanController& controller) {
        (void)co_await controller.automatic();
        co_return co_await controller.setManual(0, 4000);
    }
    void atRead(const std::string& key, std::function<void()> arrive) {
        const auto isOver = std::make_shared<bool>(false);
        watch(bench, [=](const simulation::SMCAccess& access) {
            if (access.key == key && !std::exchange(*isOver, true)) arrive();
        });
    }
    /// Snapshots in this time, to which each loop adds its own.
    std::ptrdiff_t snapshotsIn(concurrency::Duration duration) {
        bench.reads.clear();
        bench.advance(duration);
        return std::ranges::count(bench.reads, "FNum");
    }

    ControllerBench bench{steadyMachine(1), withoutJitter};
    Answer restart;
};

TEST_F(ReplacedHandle, theNewLoopGoesOnAndItsWatchdogWithIt) {
    EXPECT_EQ(bench.mac().fan(0).target, 4000);
    EXPECT_EQ(snapshotsIn(7s), 4);
    bench.advance(12s);
    EXPECT_EQ(bench.state().lastError, "no heartbeat for >15s — released to Auto");
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
}

TEST_F(ReplacedHandle, theNextPlanStartsASecondLoopBesideIt) {
    (void)bench.run(bench.controller().setManual(0, 5000));
    EXPECT_EQ(snapshotsIn(7s), 8);
    EXPECT_EQ(bench.mac().fan(0).target, 5000);
    bench.advance(12s);  // the release of one does not end the other, which finds nothing to hold
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
}

TEST_F(ReplacedHandle, automaticDoesNotEndTheLoopWhichIdlesUntilItMissesAHeartbeat) {
    forget(bench);
    EXPECT_EQ(bench.run(bench.controller().automatic()), ControlResult::applied());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    forget(bench);
    EXPECT_EQ(snapshotsIn(7s), 4);
    EXPECT_THAT(bench.writes, testing::Each("Ftst=0"));
    EXPECT_THAT(told(bench.published), testing::Each("not holding"));
    bench.advance(12s);
    EXPECT_EQ(bench.state().lastError, "no heartbeat for >15s — released to Auto");
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    EXPECT_EQ(snapshotsIn(60s), 0);
}

}  // namespace
}  // namespace airflow::control
