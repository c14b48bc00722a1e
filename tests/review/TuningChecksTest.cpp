#include "Documents.h"

namespace airflow::review {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::string tuned(const std::string& alpha, const std::string& limit = "400",
                  const std::string& hysteresis = "2", const std::string& dwell = "3") {
    return planOf(goodFan(), "",
                  R"("emaAlpha":)" + alpha + R"(,"hysteresisCelsius":)" + hysteresis +
                      R"(,"maxDeltaRPMPerTick":)" + limit + R"(,"minDwellSeconds":)" + dwell);
}

TEST(TuningChecks, smoothingWeighsTheNewestReadingAboveZeroAndUpToOne) {
    EXPECT_EQ(found(tuned("0.01")), nothing);
    EXPECT_EQ(found(tuned("1")), nothing);
    EXPECT_THAT(found(tuned("0")), ElementsAre("smoothing-not-positive /tuning/emaAlpha"));
    EXPECT_THAT(found(tuned("-0.1")), ElementsAre("smoothing-not-positive /tuning/emaAlpha"));
    EXPECT_THAT(found(tuned("1.01")), ElementsAre("smoothing-above-one /tuning/emaAlpha"));
}

TEST(TuningChecks, whatWrongSmoothingDoesDependsOnTheWeight) {
    EXPECT_THAT(reasonIn(tuned("0")), HasSubstr("stay at their first reading"));
    EXPECT_THAT(reasonIn(tuned("-0.5")), HasSubstr("run away from the sensors"));
    EXPECT_THAT(reasonIn(tuned("1.9")), HasSubstr("overshoot"));
    EXPECT_THAT(reasonIn(tuned("2")), HasSubstr("for ever"));
    EXPECT_THAT(reasonIn(tuned("2.1")), HasSubstr("ever more widely"));
}

TEST(TuningChecks, theLimitOfACurvesStepsIsAboveZero) {
    EXPECT_EQ(found(tuned("0.3", "0.1")), nothing);
    EXPECT_THAT(found(tuned("0.3", "0")),
                ElementsAre("rate-limit-not-positive /tuning/maxDeltaRPMPerTick"));
    EXPECT_THAT(found(tuned("0.3", "-1")),
                ElementsAre("rate-limit-not-positive /tuning/maxDeltaRPMPerTick"));
    EXPECT_THAT(reasonIn(tuned("0.3", "0")), HasSubstr("stays where it begins"));
    EXPECT_THAT(reasonIn(tuned("0.3", "-1")), HasSubstr("lowers a curve's speed"));
}

TEST(TuningChecks, valuesThatNothingReadsAreNotesOnceTheyAreChanged) {
    EXPECT_THAT(found(tuned("0.3", "400", "2.5", "4")),
                ElementsAre("unread-value /tuning/hysteresisCelsius",
                            "unread-value /tuning/minDwellSeconds"));
    const auto review = reviewPlan(tuned("0.3", "400", "2.5"));
    ASSERT_EQ(review.findings.size(), 1u);
    EXPECT_EQ(review.findings[0].severity(), Severity::note);
}

}  // namespace
}  // namespace airflow::review
