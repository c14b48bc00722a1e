// When the guard acts, and when it does not: every bound on both sides.
#include <gmock/gmock.h>

#include <chrono>

#include "control/FanWatch.h"

namespace airflow::control {
namespace {

using namespace std::chrono_literals;
using Finding = FanWatch::Finding;
using concurrency::Duration;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

ModeWrite forcing(std::int64_t fan = 0, bool isTaken = true) {
    return {.fan = fan, .key = "F0Md", .isForcing = true, .isTaken = isTaken};
}
ModeWrite givingBack(std::int64_t fan = 0, bool isTaken = true) {
    return {.fan = fan, .key = "F0Md", .isForcing = false, .isTaken = isTaken};
}

/// Looks once a second for so long, with the fan held meanwhile, or a client heard.
struct Course {
    bool isHeard = false;
    bool isChecked = false;
    bool isAsserted = false;
};
void pass(FanWatch& watch, Duration time, Course course) {
    for (Duration left = time; left > Duration::zero(); left -= std::min(left, Duration(1s))) {
        if (course.isHeard) watch.heard();
        if (course.isChecked) watch.checked();
        if (course.isAsserted) watch.wrote(forcing());
        watch.elapsed(std::min(left, Duration(1s)), Duration::zero());
    }
}

/// The looks at fans that were written to. A release asks for one at all others, too: they are not
/// there.
std::vector<FanWatch::Look> dueLooks(FanWatch& watch) {
    std::vector<FanWatch::Look> known;
    for (const auto& look : watch.dueLooks()) {
        if (look.keys.size() == 1)
            known.push_back(look);
        else
            EXPECT_FALSE(watch.note(look, Finding::absent));
    }
    return known;
}

class FanWatchOfAForcedFan : public testing::Test {
protected:
    FanWatchOfAForcedFan() {
        watch.heard();
        watch.wrote(forcing());
    }
    FanWatch watch;
};

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
    EXPECT_EQ(watch.overdue(), ControlError(ChecksOverdue{}));
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
    EXPECT_EQ(watch.overdue(), ControlError(ChecksOverdue{}));
}

TEST_F(FanWatchOfAForcedFan, inSilenceLetsChecksBeLateForFiveSeconds) {
    pass(watch, 11s, {.isChecked = true, .isAsserted = true});  // the last check a second ago
    pass(watch, 4s, {.isAsserted = true});
    EXPECT_EQ(watch.overdue(), std::nullopt);
    pass(watch, 1ms, {.isAsserted = true});
    EXPECT_EQ(watch.overdue(), ControlError(HeartbeatLost{}));
}

TEST_F(FanWatchOfAForcedFan, isNotSilentBeforeFifteenSecondsAreOver) {
    pass(watch, 8s, {.isChecked = true, .isAsserted = true});
    pass(watch, 7s, {.isAsserted = true});
    EXPECT_EQ(watch.overdue(), std::nullopt);
    pass(watch, 1ms, {.isAsserted = true});
    EXPECT_EQ(watch.overdue(), ControlError(HeartbeatLost{}));
}

TEST_F(FanWatchOfAForcedFan, endsASilenceThatTheHoldLoopOverlooksAfterTwentyOneSeconds) {
    pass(watch, 21s, {.isChecked = true, .isAsserted = true});
    EXPECT_EQ(watch.overdue(), std::nullopt);
    pass(watch, 1ms, {.isChecked = true, .isAsserted = true});
    EXPECT_EQ(watch.overdue(), ControlError(HeartbeatLost{}));
}

TEST_F(FanWatchOfAForcedFan, findsAFanThatNobodyHoldsForTenSeconds) {
    pass(watch, 10s, {.isHeard = true, .isChecked = true});
    EXPECT_EQ(watch.overdue(), std::nullopt);
    pass(watch, 1ms, {.isHeard = true, .isChecked = true});
    EXPECT_EQ(watch.overdue(), ControlError(FanUnattended{}));
}

TEST_F(FanWatchOfAForcedFan, looksAtOneThatNobodyAsksAgainToGoBack) {
    watch.wrote(givingBack(0, false));
    for (int retry = 0; retry < 100; ++retry) {
        pass(watch, 9999ms, {});
        EXPECT_THAT(dueLooks(watch), IsEmpty());
        watch.wrote(givingBack(0, false));
    }
    pass(watch, 10s, {});
    EXPECT_EQ(watch.overdue(), std::nullopt);
    EXPECT_THAT(watch.mayBeForced(), ElementsAre(Pair(0, "F0Md")));
    EXPECT_TRUE(watch.note(dueLooks(watch).at(0), Finding::forced));
}

TEST(FanWatch, believesItsOwnEyesOfAFanThatRefusedToGoBack) {
    FanWatch watch;
    watch.wrote(givingBack(0, false));
    pass(watch, 10s, {});
    EXPECT_FALSE(watch.note(dueLooks(watch).at(0), Finding::notForced));
    EXPECT_FALSE(watch.isNeeded());
    EXPECT_THAT(watch.mayBeForced(), IsEmpty());
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
    EXPECT_EQ(watch.overdue(), ControlError(ChecksOverdue{}));
}

TEST_F(FanWatchOfAForcedFan, countsASleepOfTheMachineAsTwoSeconds) {
    watch.elapsed(std::chrono::hours(8), Duration::zero());
    pass(watch, 6s, {.isHeard = true, .isAsserted = true});
    EXPECT_EQ(watch.overdue(), std::nullopt);
    pass(watch, 1ms, {.isHeard = true, .isAsserted = true});
    EXPECT_EQ(watch.overdue(), ControlError(ChecksOverdue{}));
}

TEST_F(FanWatchOfAForcedFan, countsAnewOnceItHasActed) {
    pass(watch, 30s, {});
    EXPECT_NE(watch.overdue(), std::nullopt);
    watch.acted();
    EXPECT_EQ(watch.overdue(), std::nullopt);
}

TEST(FanWatch, looksTwoSecondsAfterAReleaseWhetherTheFanWentBack) {
    FanWatch watch;
    watch.wrote(forcing());
    watch.wrote(givingBack());
    pass(watch, 1999ms, {});
    EXPECT_THAT(dueLooks(watch), IsEmpty());
    pass(watch, 1ms, {});
    const auto looks = dueLooks(watch);
    ASSERT_EQ(looks.size(), 1U);
    EXPECT_THAT(looks[0].keys, ElementsAre("F0Md"));
    EXPECT_FALSE(watch.note(looks[0], Finding::notForced));
    EXPECT_FALSE(watch.isNeeded());
}

TEST(FanWatch, givesBackAFanThatALookFindsForced) {
    FanWatch watch;
    watch.wrote(givingBack());
    pass(watch, 2s, {});
    EXPECT_TRUE(watch.note(dueLooks(watch).at(0), Finding::forced));
}

TEST(FanWatch, leavesAFanAloneThatIsWrittenToDuringALook) {
    FanWatch watch;
    watch.wrote(givingBack());
    pass(watch, 2s, {});
    const auto look = dueLooks(watch).at(0);
    watch.wrote(forcing());
    EXPECT_FALSE(watch.note(look, Finding::forced));
}

TEST(FanWatch, looksAgainAtAFanThatCannotBeReadOrHasVanished) {
    for (const Finding finding : {Finding::unreadable, Finding::absent}) {
        FanWatch watch;
        watch.wrote(givingBack());
        pass(watch, 2s, {});
        EXPECT_FALSE(watch.note(dueLooks(watch).at(0), finding));
        EXPECT_THAT(dueLooks(watch), IsEmpty());
        pass(watch, 2s, {});
        EXPECT_EQ(dueLooks(watch).size(), 1U);
    }
}

TEST(FanWatch, looksFiveSecondsAfterTheLastRefusalOfForcedMode) {
    FanWatch watch;
    watch.wrote(forcing(0, false));
    pass(watch, 4s, {});
    watch.wrote(forcing(0, false));
    pass(watch, 5s, {});
    EXPECT_THAT(dueLooks(watch), IsEmpty());
    pass(watch, 100ms, {});  // the pause of the last refused claim
    EXPECT_EQ(dueLooks(watch).size(), 1U);
    EXPECT_EQ(watch.overdue(), std::nullopt);
}

TEST(FanWatch, looksAtAllFansThatKeysCanNameUnderBothNames) {
    FanWatch watch;
    watch.lookAtUnknown();
    pass(watch, 2s, {});
    const auto looks = watch.dueLooks();
    ASSERT_EQ(looks.size(), 10U);
    EXPECT_THAT(looks[9].keys, ElementsAre("F9Md", "F9md"));
    for (const auto& look : looks) EXPECT_FALSE(watch.note(look, Finding::absent));
    EXPECT_FALSE(watch.isNeeded());
}

TEST(FanWatch, looksAgainAfterAReleaseAtFansThatWereNotThere) {
    FanWatch watch;
    watch.lookAtUnknown();
    pass(watch, 2s, {});
    EXPECT_THAT(dueLooks(watch), IsEmpty());
    EXPECT_FALSE(watch.isNeeded());
    watch.wrote(givingBack());
    pass(watch, 2s, {});
    EXPECT_EQ(watch.dueLooks().size(), 10U);
}

TEST(FanWatch, looksAtAFanThatSomebodySawForcedWithoutBeingTold) {
    FanWatch watch;
    watch.sawForced(3, "F3md");
    pass(watch, 1s, {});
    watch.sawForced(3, "F3md");
    pass(watch, 1s, {});
    EXPECT_THAT(watch.dueLooks().at(0).keys, ElementsAre("F3md"));
}

TEST_F(FanWatchOfAForcedFan, doesNotLookAtItBecauseItIsSeenForced) {
    watch.sawForced(0, "F0Md");
    pass(watch, 5s, {.isHeard = true, .isChecked = true});
    EXPECT_THAT(watch.dueLooks(), IsEmpty());
}

TEST(FanWatch, isNotKeptFromLookingByReleaseUponRelease) {
    FanWatch watch;
    watch.lookAtUnknown();
    pass(watch, 1s, {});
    watch.wrote(givingBack());
    pass(watch, 1s, {});
    EXPECT_EQ(watch.dueLooks().size(), 9U);
}

TEST(FanWatch, asksAFanThatItFoundItselfAgainInsteadOfReleasingEverything) {
    FanWatch watch;
    watch.lookAtUnknown();
    pass(watch, 2s, {});
    EXPECT_TRUE(watch.note(watch.dueLooks().at(0), Finding::forced));
    watch.wrote(givingBack(0, false));
    watch.noteOwn(0);
    pass(watch, 2s, {});
    EXPECT_EQ(watch.dueLooks().front().fan, 0);
    pass(watch, 60s, {});
    EXPECT_EQ(watch.overdue(), std::nullopt);
}

TEST_F(FanWatchOfAForcedFan, stillCountsAsForcedWhenForcingItAgainIsRefused) {
    watch.wrote(forcing(0, false));
    EXPECT_THAT(watch.mayBeForced(), ElementsAre(Pair(0, "F0Md")));
}

}  // namespace
}  // namespace airflow::control
