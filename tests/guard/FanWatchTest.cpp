// When the guard acts, and when it does not: every bound on both sides.
#include "FanWatchHarness.h"

namespace airflow::guard {
namespace {

using testing::ElementsAre;
using testing::Pair;

TEST(FanWatch, ofNoFanNeedsNoWatching) {
    FanWatch watch;
    EXPECT_FALSE(watch.isNeeded());
    pass(watch, 3600s, {});
    EXPECT_EQ(watch.overdue(), std::nullopt);
}

TEST_F(FanWatchOfAForcedFan, isQuietWhileClientAndHoldLoopDoTheirPart) {
    pass(watch, 3600s, {.isHeard = true, .isChecked = true, .isAsserted = true});
    EXPECT_EQ(watch.overdue(), std::nullopt);
    EXPECT_TRUE(watch.isNeeded());
}

TEST_F(FanWatchOfAForcedFan, letsChecksBeLateForEightSeconds) {
    pass(watch, 8s, {.isHeard = true, .isAsserted = true});
    EXPECT_EQ(watch.overdue(), std::nullopt);
    pass(watch, 1ms, {.isHeard = true, .isAsserted = true});
    EXPECT_EQ(watch.overdue(), control::ControlError(control::ChecksOverdue{}));
}

TEST_F(FanWatchOfAForcedFan, countsTheChecksFromTheFirstForcedFan) {
    watch.wrote(givingBack());
    pass(watch, 100s, {.isHeard = true});
    watch.wrote(forcing());
    pass(watch, 8s, {.isHeard = true, .isAsserted = true});
    EXPECT_EQ(watch.overdue(), std::nullopt);
}

TEST_F(FanWatchOfAForcedFan, doesNotCountTheChecksAnewFromAnotherForcedFan) {
    pass(watch, 5s, {.isHeard = true, .isAsserted = true});
    watch.wrote(forcing(1));
    pass(watch, 3001ms, {.isHeard = true, .isAsserted = true});
    EXPECT_EQ(watch.overdue(), control::ControlError(control::ChecksOverdue{}));
}

TEST_F(FanWatchOfAForcedFan, inSilenceLetsChecksBeLateForFiveSeconds) {
    pass(watch, 11s, {.isChecked = true, .isAsserted = true});  // the last check a second ago
    pass(watch, 4s, {.isAsserted = true});
    EXPECT_EQ(watch.overdue(), std::nullopt);
    pass(watch, 1ms, {.isAsserted = true});
    EXPECT_EQ(watch.overdue(), control::ControlError(control::HeartbeatLost{}));
}

TEST_F(FanWatchOfAForcedFan, isNotSilentBeforeFifteenSecondsAreOver) {
    pass(watch, 8s, {.isChecked = true, .isAsserted = true});
    pass(watch, 7s, {.isAsserted = true});
    EXPECT_EQ(watch.overdue(), std::nullopt);
    pass(watch, 1ms, {.isAsserted = true});
    EXPECT_EQ(watch.overdue(), control::ControlError(control::HeartbeatLost{}));
}

TEST_F(FanWatchOfAForcedFan, endsASilenceThatTheHoldLoopOverlooksAfterTwentyOneSeconds) {
    pass(watch, 21s, {.isChecked = true, .isAsserted = true});
    EXPECT_EQ(watch.overdue(), std::nullopt);
    pass(watch, 1ms, {.isChecked = true, .isAsserted = true});
    EXPECT_EQ(watch.overdue(), control::ControlError(control::HeartbeatLost{}));
}

TEST_F(FanWatchOfAForcedFan, findsAFanThatNobodyHoldsForTenSeconds) {
    pass(watch, 10s, {.isHeard = true, .isChecked = true});
    EXPECT_EQ(watch.overdue(), std::nullopt);
    pass(watch, 1ms, {.isHeard = true, .isChecked = true});
    EXPECT_EQ(watch.overdue(), control::ControlError(control::FanUnattended{}));
}

TEST_F(FanWatchOfAForcedFan, leavesOutTheTimeOfTheDriver) {
    for (int second = 0; second < 100; ++second) watch.elapsed(1s, 1s);
    EXPECT_EQ(watch.overdue(), std::nullopt);
}

TEST_F(FanWatchOfAForcedFan, leavesOutThePausesOfAClaimForTenSecondsAFan) {
    // Two fans have been asked, so twenty seconds of claims are explained.
    for (int poll = 0; poll < 200; ++poll) {
        watch.heard();
        watch.wrote(forcing());
        watch.wrote(forcing(1, false));
        watch.elapsed(100ms, Duration::zero());
    }
    EXPECT_EQ(watch.overdue(), std::nullopt);
    for (int poll = 0; poll < 80; ++poll) {
        watch.wrote(forcing());
        watch.wrote(forcing(1, false));
        watch.elapsed(100ms, Duration::zero());
    }
    EXPECT_EQ(watch.overdue(), std::nullopt);
    watch.wrote(forcing(1, false));
    watch.elapsed(1ms, Duration::zero());
    EXPECT_EQ(watch.overdue(), control::ControlError(control::ChecksOverdue{}));
}

/// Time passes in steps of half a second; in each so many temperatures are read.
void sample(FanWatch& watch, Duration time, int temperatures) {
    for (Duration left = time; left > Duration::zero(); left -= 500ms) {
        watch.heard();
        for (int read = 0; read < temperatures; ++read) watch.readTemperature();
        watch.elapsed(500ms, Duration::zero());
    }
}

TEST_F(FanWatchOfAForcedFan, leavesOutTwentyMillisecondsForEachTemperatureThatASnapshotReads) {
    sample(watch, 10s, 5);  // explains 2 s
    EXPECT_EQ(watch.overdue(), std::nullopt);
    watch.elapsed(1ms, Duration::zero());
    EXPECT_EQ(watch.overdue(), control::ControlError(control::ChecksOverdue{}));
}

TEST_F(FanWatchOfAForcedFan, leavesOutTwentySecondsOfASnapshotAtMost) {
    sample(watch, 28s, 25);
    EXPECT_EQ(watch.overdue(), std::nullopt);
    watch.readTemperature();
    watch.elapsed(1ms, Duration::zero());
    EXPECT_EQ(watch.overdue(), control::ControlError(control::ChecksOverdue{}));
}

TEST_F(FanWatchOfAForcedFan, leavesOutAnotherTwentySecondsAfterTheNextCheck) {
    for (int snapshot = 0; snapshot < 3; ++snapshot) {
        sample(watch, 20s, 25);
        watch.wrote(forcing());
        watch.checked();
    }
    sample(watch, 28s, 25);
    EXPECT_EQ(watch.overdue(), std::nullopt);
}

TEST_F(FanWatchOfAForcedFan, leavesOutNoMoreThanTheTimeThatWentBy) {
    for (int read = 0; read < 1000; ++read) watch.readTemperature();
    watch.elapsed(500ms, Duration::zero());
    pass(watch, 8s, {.isHeard = true, .isAsserted = true});
    EXPECT_EQ(watch.overdue(), std::nullopt);
    pass(watch, 1ms, {.isHeard = true, .isAsserted = true});
    EXPECT_EQ(watch.overdue(), control::ControlError(control::ChecksOverdue{}));
}

TEST_F(FanWatchOfAForcedFan, doesNotTakeTheFanForUnattendedDuringALongSnapshot) {
    for (int second = 0; second < 18; ++second) {
        watch.checked();
        sample(watch, 1s, 25);
    }
    EXPECT_EQ(watch.overdue(), std::nullopt);
}

TEST_F(FanWatchOfAForcedFan, countsASilenceThroughALongSnapshot) {
    for (int second = 0; second < 21; ++second) {
        watch.checked();
        watch.wrote(forcing());
        for (int read = 0; read < 50; ++read) watch.readTemperature();
        watch.elapsed(1s, Duration::zero());
    }
    EXPECT_EQ(watch.overdue(), std::nullopt);
    watch.readTemperature();
    watch.elapsed(1ms, Duration::zero());
    EXPECT_EQ(watch.overdue(), control::ControlError(control::HeartbeatLost{}));
}

TEST_F(FanWatchOfAForcedFan, countsASleepOfTheMachineAsTwoSeconds) {
    watch.elapsed(std::chrono::hours(8), Duration::zero());
    pass(watch, 6s, {.isHeard = true, .isAsserted = true});
    EXPECT_EQ(watch.overdue(), std::nullopt);
    pass(watch, 1ms, {.isHeard = true, .isAsserted = true});
    EXPECT_EQ(watch.overdue(), control::ControlError(control::ChecksOverdue{}));
}

TEST_F(FanWatchOfAForcedFan, countsAnewOnceItHasActed) {
    pass(watch, 30s, {});
    EXPECT_NE(watch.overdue(), std::nullopt);
    watch.acted();
    EXPECT_EQ(watch.overdue(), std::nullopt);
}

TEST_F(FanWatchOfAForcedFan, stillCountsAsForcedWhenForcingItAgainIsRefused) {
    watch.wrote(forcing(0, false));
    EXPECT_THAT(watch.mayBeForced(), ElementsAre(Pair(0, "F0Md")));
}

}  // namespace
}  // namespace airflow::guard
