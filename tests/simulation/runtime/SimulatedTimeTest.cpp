#include <gmock/gmock.h>

#include <chrono>
#include <vector>

#include "simulation/runtime/SimulatedRuntime.h"

namespace airflow::simulation {
namespace {

using namespace std::chrono_literals;
using namespace concurrency;
using testing::ElementsAre;
using testing::IsEmpty;

class SimulatedTimeTest : public testing::Test {
protected:
    ~SimulatedTimeTest() override { runtime.abandon(); }

    /// Ticks at whole multiples of a second, however late it wakes.
    Task<void> tick(int times) {
        for (int i = 1; i <= times; ++i) {
            co_await runtime.sleepUntil(Instant(std::chrono::seconds(i)));
            ticks.push_back(runtime.now().time_since_epoch());
        }
    }

    SimulatedRuntime runtime;
    std::vector<Duration> ticks;
};

TEST_F(SimulatedTimeTest, standsStillWhileWorkSettles) {
    runtime.detach("ticking", tick(3));
    runtime.settle();
    EXPECT_THAT(ticks, IsEmpty());
    EXPECT_EQ(runtime.now(), Instant{});
}

TEST_F(SimulatedTimeTest, stopsAtEveryDeadlineWhenItAdvances) {
    runtime.detach("ticking", tick(3));
    runtime.advance(2500ms);
    EXPECT_THAT(ticks, ElementsAre(1s, 2s));
    EXPECT_EQ(runtime.now().time_since_epoch(), 2500ms);
}

TEST_F(SimulatedTimeTest, passesSeveralDeadlinesWhenItLeaps) {
    runtime.detach("ticking", tick(3));
    runtime.settle();
    runtime.leap(2500ms);
    EXPECT_THAT(ticks, ElementsAre(2500ms, 2500ms));
}

TEST_F(SimulatedTimeTest, movesOnlyAsFarAsARunNeeds) {
    runtime.detach("ticking", tick(10));
    runtime.run(tick(2));
    EXPECT_EQ(runtime.now().time_since_epoch(), 2s);
}

TEST_F(SimulatedTimeTest, costsNoRealTime) {
    runtime.run(tick(100'000), 48h);
    EXPECT_EQ(runtime.now().time_since_epoch(), 100'000s);
    EXPECT_EQ(ticks.size(), 100'000u);
}

TEST_F(SimulatedTimeTest, approachingAMomentLeavesWhatIsDueThenToTheTest) {
    runtime.detach("ticks", tick(3));
    runtime.approach(2s);
    EXPECT_EQ(runtime.now().time_since_epoch(), 2s);
    EXPECT_EQ(ticks, (std::vector<Duration>{1s}));
    runtime.settle();
    EXPECT_EQ(ticks, (std::vector<Duration>{1s, 2s}));
    runtime.approach(0s);
    EXPECT_EQ(runtime.now().time_since_epoch(), 2s);
}

TEST_F(SimulatedTimeTest, theDateGoesWithTime) {
    using namespace std::chrono;
    const Date start = sys_days(2026y / January / 1);
    EXPECT_EQ(runtime.date(), start);
    runtime.advance(1500ms);
    EXPECT_EQ(runtime.date(), start + Seconds(1.5));
    runtime.leap(1h);
    EXPECT_EQ(runtime.date(), start + Seconds(3601.5));
}

TEST_F(SimulatedTimeTest, theDateJumpsWithoutIt) {
    using namespace std::chrono;
    const Date start = sys_days(2026y / January / 1);
    runtime.advance(1s);
    runtime.jumpDate(Seconds(-3600));
    EXPECT_EQ(runtime.date(), start - Seconds(3599));
    runtime.setDate(start + Seconds(86'400));
    EXPECT_EQ(runtime.date(), start + Seconds(86'400));
    EXPECT_EQ(runtime.now().time_since_epoch(), 1s);
    runtime.advance(2s);
    EXPECT_EQ(runtime.date(), start + Seconds(86'402));
}

TEST_F(SimulatedTimeTest, neverGoesBack) {
    EXPECT_DEATH(runtime.leap(-1ns), "time never goes back");
}

Task<void> driveFromInside(SimulatedRuntime& runtime) {
    runtime.settle();
    co_return;
}

TEST_F(SimulatedTimeTest, isNotDrivenByAJob) {
    EXPECT_DEATH(runtime.run(driveFromInside(runtime)), "no job drives the runtime");
}

}  // namespace
}  // namespace airflow::simulation
