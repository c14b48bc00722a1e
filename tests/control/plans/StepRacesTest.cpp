// Control steps: the moment that they are told, and what they give and publish when something else
// came while they were under way.
#include "HoldHarness.h"

namespace airflow::control {
namespace {

using Fans = std::vector<std::int64_t>;

/// Keeps the date that each step is told.
class DateKeeper final : public LocalFanController {
public:
    using LocalFanController::LocalFanController;
    concurrency::Task<Fans> assertPlanOnce(plan::FanControlPlan plan,
                                           sensors::SensorSnapshot snapshot,
                                           concurrency::Date now) override {
        dates.push_back(now);
        co_return co_await LocalFanController::assertPlanOnce(std::move(plan), std::move(snapshot),
                                                              now);
    }

    std::vector<concurrency::Date> dates;
};

/// A snapshot takes 80 ms, in which each of its temperatures is read twice.
class StepDate : public testing::Test {
protected:
    [[nodiscard]] concurrency::Date after(concurrency::Duration duration) const {
        return start + duration_cast<concurrency::Seconds>(duration);
    }

    ControllerHarness harness{steadyMachine(1), withoutJitter};
    std::shared_ptr<DateKeeper> controller = install<DateKeeper>(harness);
    concurrency::Date start = harness.system.runtime.date();
};

TEST_F(StepDate, ofAPlansStepIsTheEndOfItsClaimsNotThatOfTheSnapshot) {
    harness.mac().smc().add(refusal("F0Md", 1, 0x82, 0s, 450ms));
    (void)harness.run(controller->setManual(0_fan, 3000_rpm));
    EXPECT_EQ(harness.system.runtime.date(), after(580ms));
    EXPECT_THAT(controller->dates, ElementsAre(after(500ms)));
}

TEST_F(StepDate, ofATickIsTheEndOfItsSnapshot) {
    (void)harness.run(controller->setManual(0_fan, 3000_rpm));
    harness.advance(3500ms);
    EXPECT_THAT(controller->dates, ElementsAre(start, after(1580ms), after(3160ms)));
}

/// The last fan of a step reads 3, and a client asks for automatic control as its target is
/// written. What the step finds is the release's doing by then.
class StepSupersededAtItsLastFan : public testing::Test {
protected:
    StepSupersededAtItsLastFan() {
        (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
        harness.mac().smc().add(misreading("F0Md", 3));
        atWrite(harness, "F0Tg", 3000, 1,
                [this] { released = harness.start(harness.controller().automatic()); });
        forget(harness);
    }

    ControllerHarness harness{steadyMachine(1), withoutJitter};
    std::shared_ptr<std::optional<ControlResult>> released;
};

TEST_F(StepSupersededAtItsLastFan, reportsNothing) {
    const auto snapshot = harness.run(harness.system.sensors.snapshot());
    EXPECT_EQ(harness.run(harness.controller().assertPlanOnce(planOf({{0, rpm(3000)}}), snapshot,
                                                              harness.system.runtime.date())),
              Fans{});
    harness.settle();
    EXPECT_EQ(*released, ControlResult::applied());
}

TEST_F(StepSupersededAtItsLastFan, ofATickTellsNothing) {
    harness.advance(2s);
    EXPECT_EQ(*released, ControlResult::applied());
    EXPECT_THAT(told(harness.published), ElementsAre("not holding"));
    EXPECT_EQ(harness.mac().fan(0).mode, FanMode::automatic);
}

/// An SMC that lets others in while a reading takes its time.
class LateReadings final : public smc::SMCWriting {
public:
    LateReadings(concurrency::Runtime& clock, smc::SMCWriting& realSMC)
        : runtime(clock), real(realSMC) {}

    concurrency::Task<WriteResult> writeUInt8(std::string key, std::uint8_t value) override {
        co_return co_await real.writeUInt8(std::move(key), value);
    }
    concurrency::Task<WriteResult> writeFloat(std::string key, double value) override {
        co_return co_await real.writeFloat(std::move(key), value);
    }
    concurrency::Task<std::optional<smc::SMCValue>> tryReadValue(std::string key) override {
        (void)co_await runtime.sleepFor(100ms);
        co_return co_await real.tryReadValue(std::move(key));
    }
    concurrency::Task<std::expected<smc::SMCValue, smc::SMCError>> readValue(
        std::string key) override {
        co_return co_await real.readValue(std::move(key));
    }

private:
    concurrency::Runtime& runtime;
    smc::SMCWriting& real;
};

TEST(StepRaces, aTickWhoseLastFanWasReleasedBeforeItWasReadTellsNothing) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    auto& system = harness.system;
    LateReadings smc(system.runtime, system.smc);
    system.controller = std::make_shared<LocalFanController>(system.runtime, smc, system.sensors,
                                                             [] { return std::uint32_t{0}; });
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    harness.mac().smc().add(misreading("F0Md", 3));
    std::shared_ptr<std::optional<ControlResult>> released;
    atWrite(harness, "F0Tg", 3000, 1,
            [&] { released = harness.start(harness.controller().automatic()); });
    forget(harness);
    harness.advance(2s);
    EXPECT_EQ(*released, ControlResult::applied());
    EXPECT_THAT(harness.writes,
                ElementsAre("Ftst=1", "F0Md=1", "F0Tg=3000", "Ftst=1", "F0Md=0", "Ftst=0"));
    EXPECT_THAT(told(harness.published), ElementsAre("not holding"));
}

/// The tick claims from 1.98 s on, the second plan from 2.5 s on; the SMC takes the fan at 3 s. The
/// plan has it first, and the tick 80 ms later.
TEST(StepRaces, aFanThatATickClaimsIsPublishedAsTheNewerPlanHasIt) {
    ControllerHarness harness(steadyMachine(1), withoutJitter);
    harness.mac().smc().add(refusal("F0Md", 1, 0x86, 0s, 1200ms));
    harness.mac().smc().add(refusal("F0Md", 1, 0x82, 1200ms, 3s));
    EXPECT_EQ(harness.run(harness.controller().setPercent(0_fan, 100_percent)),
              ControlResult::rejected(134));
    harness.advance(2500ms - harness.system.elapsed());
    EXPECT_EQ(harness.run(harness.controller().setManual(0_fan, 3000_rpm)),
              ControlResult::applied());
    harness.advance(4s - harness.system.elapsed());
    EXPECT_EQ(harness.state().perFanMode.at(0), ControlMode::manual);
    harness.advance(2s);
    EXPECT_EQ(harness.mac().fan(0).target, 3000);
}

/// A step that gives every fan back, while a newer plan arrives with the first one's release.
class StepThatGivesBack : public testing::Test {
protected:
    void stepUnder(plan::FanControlPlan newerPlan) {
        (void)harness.run(harness.controller().applyPlan(planOf({{0, rpm(3000)}, {1, rpm(3500)}})));
        const auto snapshot = harness.run(harness.system.sensors.snapshot());
        slowDown(harness, 5ms);
        forget(harness);
        std::shared_ptr<std::optional<ControlResult>> newer;
        atWrite(harness, "F0Md", 0, 1, [&, newerPlan = std::move(newerPlan)] {
            newer = harness.start(harness.controller().applyPlan(newerPlan));
        });
        (void)harness.run(harness.controller().assertPlanOnce(planOf({}), snapshot,
                                                              harness.system.runtime.date()));
        harness.advance(1s);
        EXPECT_EQ(*newer, ControlResult::applied());
    }

    ControllerHarness harness{steadyMachine(), withoutJitter};
};

TEST_F(StepThatGivesBack, leavesForceTestRaisedForANewerPlan) {
    stepUnder(planOf({{0, rpm(4000)}}));
    EXPECT_THAT(harness.writes, testing::Not(testing::Contains("Ftst=0")));
    EXPECT_TRUE(harness.mac().forceTest());
    EXPECT_EQ(harness.mac().fan(0).target, 4000);
    EXPECT_EQ(harness.mac().fan(1).mode, FanMode::automatic);
}

TEST_F(StepThatGivesBack, leavesAFanAloneThatANewerPlanManages) {
    stepUnder(planOf({{0, rpm(4000)}, {1, rpm(4500)}}));
    EXPECT_THAT(harness.writes, testing::Not(testing::Contains("F1Md=0")));
    EXPECT_EQ(harness.mac().fan(0).target, 4000);
    EXPECT_EQ(harness.mac().fan(1).target, 4500);
}

}  // namespace
}  // namespace airflow::control
