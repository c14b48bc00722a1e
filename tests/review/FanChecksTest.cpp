#include "Documents.h"

namespace airflow::review {
namespace {

using testing::ElementsAre;

TEST(FanChecks, aPlanThatLeavesEverythingToTheFirmwareIsGood) {
    EXPECT_EQ(found(planOf("")), nothing);
    EXPECT_EQ(found(planOf(fanWith(automaticMode))), nothing);
}

TEST(FanChecks, fansAreNumberedFromZeroToNine) {
    EXPECT_EQ(found(planOf(goodFan("0") + "," + goodFan("9"))), nothing);
    EXPECT_THAT(found(planOf(goodFan("-1") + "," + goodFan("10"))),
                ElementsAre("fan-out-of-range /fans/0/fanID", "fan-out-of-range /fans/1/fanID"));
}

TEST(FanChecks, everyEntryThatALaterOneReplacesIsAWarning) {
    EXPECT_THAT(
        found(planOf(goodFan("1") + "," + goodFan("0") + "," + goodFan("1") + "," + goodFan("1"))),
        ElementsAre("repeated-fan /fans/0", "repeated-fan /fans/2"));
    EXPECT_EQ(found(planOf(goodFan("1") + "," + goodFan("0"))), nothing);
}

TEST(FanChecks, aFixedPercentageIsFromZeroToAHundred) {
    EXPECT_EQ(foundInFan(percentMode("100")), nothing);
    EXPECT_THAT(foundInFan(percentMode("100.5")),
                ElementsAre("percent-out-of-range /fans/0/mode/fixedPercent/_0"));
}

TEST(FanChecks, aFixedPercentageAboveZeroKeepsTheFanTurning) {
    EXPECT_EQ(foundInFan(percentMode("0.1")), nothing);
    EXPECT_THAT(foundInFan(percentMode("0")),
                ElementsAre("fixed-zero /fans/0/mode/fixedPercent/_0"));
    EXPECT_THAT(foundInFan(percentMode("-1")),
                ElementsAre("percent-out-of-range /fans/0/mode/fixedPercent/_0",
                            "fixed-zero /fans/0/mode/fixedPercent/_0"));
}

TEST(FanChecks, aPercentageOutOfRangeIsToldWhatItCountsAs) {
    EXPECT_EQ(adviceIn(planOf(fanWith(percentMode("150")))), "Write 100.");
    EXPECT_EQ(adviceIn(planOf(fanWith(percentMode("-5")))), "Write 0.");
}

TEST(FanChecks, aFixedSpeedIsAboveZero) {
    EXPECT_EQ(foundInFan(rpmMode("1")), nothing);
    EXPECT_THAT(foundInFan(rpmMode("0")),
                ElementsAre("fixed-rpm-not-positive /fans/0/mode/fixedRPM/_0"));
    EXPECT_THAT(foundInFan(rpmMode("-1200")),
                ElementsAre("fixed-rpm-not-positive /fans/0/mode/fixedRPM/_0"));
}

}  // namespace
}  // namespace airflow::review
