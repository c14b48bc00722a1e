// A cancelled hold loop that is still in its tick when the next plan starts another: the newer one
// is the only one from then on.
#include "HoldBench.h"

namespace airflow::control {
namespace {

using Answer = std::shared_ptr<std::optional<ControlResult>>;

class NewerHoldLoop : public testing::Test {
protected:
    NewerHoldLoop() {
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

TEST_F(NewerHoldLoop, goesOnAndItsWatchdogWithIt) {
    EXPECT_EQ(bench.mac().fan(0).target, 4000);
    EXPECT_EQ(snapshotsIn(7s), 4);
    bench.advance(12s);
    EXPECT_EQ(bench.state().lastError, "no heartbeat for >15s — released to Auto");
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
}

TEST_F(NewerHoldLoop, isFoundByTheNextPlanWhichStartsNoOther) {
    (void)bench.run(bench.controller().setManual(0, 5000));
    EXPECT_EQ(snapshotsIn(7s), 4);
    EXPECT_EQ(bench.mac().fan(0).target, 5000);
}

TEST_F(NewerHoldLoop, countsSnapshotsWithoutTemperaturesOnceForEachTick) {
    (void)bench.run(bench.controller().setManual(0, 5000));
    forget(bench);
    bench.mac().setHIDTemperature(steadyLabel, 1000);  // not plausible
    bench.advance(1700ms);
    EXPECT_THAT(told(bench.published), ElementsAre("holding: temperature data unavailable (1/2)"));
    bench.advance(1700ms);
    EXPECT_EQ(told(bench.published).back(),
              "not holding: temperature data unavailable — released to Auto");
}

TEST_F(NewerHoldLoop, goesOnTellingOfASafetyReleaseThatNoOtherLoopErases) {
    (void)bench.run(bench.controller().setManual(0, 5000));
    bench.mac().setHIDTemperature(steadyLabel, 99);
    bench.advance(2s);
    const std::string heat = "not holding: thermal ceiling 99°C exceeded — released to Auto";
    EXPECT_EQ(told(bench.published).back(), heat);
    forget(bench);
    bench.advance(60s);
    EXPECT_THAT(bench.published, IsEmpty());
}

TEST_F(NewerHoldLoop, isEndedByAutomaticAndSaysNothingAfterwards) {
    forget(bench);
    EXPECT_EQ(bench.run(bench.controller().automatic()), ControlResult::applied());
    EXPECT_EQ(bench.mac().fan(0).mode, FanMode::automatic);
    forget(bench);
    bench.advance(60s);
    EXPECT_THAT(bench.reads, IsEmpty());
    EXPECT_THAT(bench.writes, ElementsAre("Ftst=0"));
    EXPECT_THAT(bench.published, IsEmpty());
}

}  // namespace
}  // namespace airflow::control
