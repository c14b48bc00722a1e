// A cancelled hold loop that is still in its tick when the next plan starts another: the newer one
// is the only one from then on.
#include "HoldHarness.h"

namespace airflow::control {
namespace {

using Answer = std::shared_ptr<std::optional<ControlResult>>;

class NewerHoldLoop : public testing::Test {
protected:
    NewerHoldLoop() {
        slowDown(harness, 10ms);
        (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
        atRead("FNum", [this] { restart = harness.start(restarted(harness.controller())); });
        harness.advance(3s);
        EXPECT_EQ(*restart, ControlResult::applied());
        harness.run(harness.controller().heartbeat());
    }

    static concurrency::Task<ControlResult> restarted(LocalFanController& controller) {
        (void)co_await controller.automatic();
        co_return co_await controller.setManual(0_fan, 4000_rpm);
    }
    void atRead(const std::string& key, std::function<void()> arrive) {
        const auto isOver = std::make_shared<bool>(false);
        watch(harness, [=](const simulation::SMCAccess& access) {
            if (access.key == key && !std::exchange(*isOver, true)) arrive();
        });
    }
    /// Snapshots in this time, to which each loop adds its own.
    std::ptrdiff_t snapshotsIn(concurrency::Duration duration) {
        harness.reads.clear();
        harness.advance(duration);
        return std::ranges::count(harness.reads, "FNum");
    }

    ControllerHarness harness{steadyMachine(1), withoutJitter};
    Answer restart;
};

TEST_F(NewerHoldLoop, goesOnAndItsWatchdogWithIt) {
    EXPECT_EQ(harness.mac().fan(0).target, 4000);
    EXPECT_EQ(snapshotsIn(7s), 4);
    harness.advance(12s);
    EXPECT_EQ(harness.state().lastError, "no heartbeat for >15s — released to Auto");
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
}

TEST_F(NewerHoldLoop, isFoundByTheNextPlanWhichStartsNoOther) {
    (void)harness.run(harness.controller().setManual(0_fan, 5000_rpm));
    EXPECT_EQ(snapshotsIn(7s), 4);
    EXPECT_EQ(harness.mac().fan(0).target, 5000);
}

TEST_F(NewerHoldLoop, countsSnapshotsWithoutTemperaturesOnceForEachTick) {
    (void)harness.run(harness.controller().setManual(0_fan, 5000_rpm));
    forget(harness);
    harness.mac().setHIDTemperature(steadyLabel, 1000);  // not plausible
    harness.advance(1700ms);
    EXPECT_THAT(told(harness.published),
                ElementsAre("holding: temperature data unavailable (1/2)"));
    harness.advance(1700ms);
    EXPECT_EQ(told(harness.published).back(),
              "not holding: temperature data unavailable — released to Auto");
}

TEST_F(NewerHoldLoop, goesOnTellingOfASafetyReleaseThatNoOtherLoopErases) {
    (void)harness.run(harness.controller().setManual(0_fan, 5000_rpm));
    harness.mac().setHIDTemperature(steadyLabel, 99);
    harness.advance(2s);
    const std::string heat = "not holding: thermal ceiling 99°C exceeded — released to Auto";
    EXPECT_EQ(told(harness.published).back(), heat);
    forget(harness);
    harness.advance(60s);
    EXPECT_THAT(harness.published, IsEmpty());
}

TEST_F(NewerHoldLoop, isEndedByAutomaticAndSaysNothingAfterwards) {
    forget(harness);
    EXPECT_EQ(harness.run(harness.controller().automatic()), ControlResult::applied());
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
    forget(harness);
    harness.advance(60s);
    EXPECT_THAT(harness.reads, IsEmpty());
    EXPECT_THAT(harness.writes, ElementsAre("Ftst=0"));
    EXPECT_THAT(harness.published, IsEmpty());
}

}  // namespace
}  // namespace airflow::control
