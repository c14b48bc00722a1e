// When the guard looks at a fan, and what it does about what it finds.
#include "FanWatchHarness.h"

namespace airflow::guard {
namespace {

using Finding = FanWatch::Finding;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

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

TEST(FanWatch, looksAtAFanThatIsReadAsForcedAndThatNobodyForced) {
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

TEST(FanWatch, looksAlsoWhenReleaseFollowsRelease) {
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

TEST(FanWatch, findsByItsOwnLookThatAFanWentBackThatHadRefused) {
    FanWatch watch;
    watch.wrote(givingBack(0, false));
    pass(watch, 10s, {});
    EXPECT_FALSE(watch.note(dueLooks(watch).at(0), Finding::notForced));
    EXPECT_FALSE(watch.isNeeded());
    EXPECT_THAT(watch.mayBeForced(), IsEmpty());
}

}  // namespace
}  // namespace airflow::guard
