#include "Documents.h"
#include "plan/FanCurve.h"

namespace airflow::review {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const std::string points = "/fans/0/mode/curve/_0/points";

Found foundInCurve(const Points& curve) {
    return foundInFan(curveMode(curve));
}

TEST(CurveChecks, aCurveThatRisesToFullSpeedBelowTheCeilingIsGood) {
    EXPECT_EQ(foundInCurve({{50, 0}, {94.9, 100}}), nothing);
    EXPECT_EQ(foundInCurve({{50, 100}}), nothing);
}

TEST(CurveChecks, aCurveWithoutPointsIsAWarning) {
    EXPECT_THAT(foundInCurve({}), ElementsAre("curve-without-points " + points));
}

TEST(CurveChecks, theLastPointMayStandAtTheCeilingButNotAboveIt) {
    EXPECT_EQ(foundInCurve({{50, 0}, {95, 100}}), nothing);
    EXPECT_THAT(foundInCurve({{50, 0}, {95.1, 100}}),
                ElementsAre("curve-beyond-ceiling " + points + "/1/celsius"));
}

TEST(CurveChecks, theHottestPointIsTheLastWhereverItStands) {
    EXPECT_THAT(
        foundInCurve({{100, 100}, {50, 0}}),
        ElementsAre("curve-unsorted " + points, "curve-beyond-ceiling " + points + "/0/celsius"));
}

TEST(CurveChecks, aCurveBeyondTheCeilingIsToldWhatItAsksForThere) {
    EXPECT_EQ(reasonIn(planOf(fanWith(curveMode({{75, 0}, {115, 100}})))),
              "The curve ends at 115 °C, but all fans are given back at 95 °C, where it asks for "
              "50 %.");
}

TEST(CurveChecks, aCurveMayStayLevelButNotFall) {
    EXPECT_EQ(foundInCurve({{40, 20}, {60, 20}, {90, 100}}), nothing);
    EXPECT_THAT(foundInCurve({{40, 20}, {60, 19.9}, {90, 100}}),
                ElementsAre("curve-falls " + points + "/1/percent"));
}

TEST(CurveChecks, aCurveFallsByWhatCountsOfItsPercentages) {
    EXPECT_THAT(foundInCurve({{40, 120}, {60, 110}}),
                ElementsAre("percent-out-of-range " + points + "/0/percent",
                            "percent-out-of-range " + points + "/1/percent"));
}

TEST(CurveChecks, aCurveFallsInTheOrderOfItsTemperatures) {
    EXPECT_THAT(foundInCurve({{90, 100}, {40, 20}}), ElementsAre("curve-unsorted " + points));
}

TEST(CurveChecks, twoPointsAtOneTemperatureAreAWarning) {
    EXPECT_THAT(foundInCurve({{40, 10}, {60, 20}, {60, 40}, {90, 100}}),
                ElementsAre("curve-repeated-temperature " + points + "/2/celsius"));
    EXPECT_EQ(foundInCurve({{40, 10}, {60, 20}, {60.1, 40}, {90, 100}}), nothing);
}

TEST(CurveChecks, threePointsAtOneTemperatureAreOneWarningOfTheTwoThatCount) {
    const Points curve{{40, 10}, {60, 20}, {60, 90}, {60, 40}, {90, 100}};
    EXPECT_THAT(foundInCurve(curve),
                ElementsAre("curve-repeated-temperature " + points + "/3/celsius"));
    EXPECT_EQ(reasonIn(planOf(fanWith(curveMode(curve)))),
              "Two points or more stand at 60 °C. The curve leads to the first of them in the "
              "document (20 %) and goes on from the last (40 %).");
}

TEST(CurveChecks, ofPointsAtOneTemperatureTheFirstCountsBelowItAndTheLastAboveIt) {
    plan::FanCurve curve{.sourceSensorID = {}, .points = {}};
    for (const auto& [celsius, percent] :
         Points{{50, 0}, {60, 20}, {60, 90}, {60, 40}, {90, 100}}) {
        curve.points.push_back({.id = {}, .celsius = celsius, .percent = percent});
    }
    EXPECT_NEAR(curve.percentAt(59.999999), 20, 1e-3);
    EXPECT_NEAR(curve.percentAt(60.000001), 40, 1e-3);
}

TEST(CurveChecks, aCurveHasToReachFullSpeedBelowTheCeiling) {
    EXPECT_THAT(foundInCurve({{50, 5}, {90, 99.9}}),
                ElementsAre("curve-not-full " + points + "/1/percent"));
    EXPECT_EQ(foundInCurve({{50, 5}, {90, 100}}), nothing);
}

TEST(CurveChecks, aRuleMayTakeTheCurveToFullSpeed) {
    const std::string fan = fanWith(curveMode({{50, 5}, {90, 80}}));
    const Found notFull{"curve-not-full " + points + "/1/percent"};
    const auto foundWith = [&](const RuleText& rule) { return found(planOf(fan, rule)); };
    EXPECT_EQ(foundWith({.percent = 100}), nothing);
    EXPECT_EQ(foundWith({.percent = 100, .fan = "0"}), nothing);
    EXPECT_EQ(foundWith({.percent = 99}), notFull);
    EXPECT_EQ(found(planOf(fan + "," + goodFan("1"), RuleText{.percent = 100, .fan = "1"})),
              notFull);
    EXPECT_EQ(foundWith({.sensor = "SMC-TG0D", .percent = 100}), notFull);
    EXPECT_THAT(foundWith({.percent = 100, .enabled = false}), testing::Contains(notFull.front()));
    EXPECT_THAT(foundWith({.above = 95, .percent = 100}), testing::Contains(notFull.front()));
    EXPECT_THAT(foundWith({.percent = 100, .dwell = 15}), testing::Contains(notFull.front()));
}

TEST(CurveChecks, aRuleForTheCurvesOwnSensorMayTakeItToFullSpeed) {
    const std::string fan =
        fanWith(curveMode({{50, 5}, {90, 80}}, R"("sourceSensorID":"SMC-TG0D",)"));
    EXPECT_EQ(found(planOf(fan, RuleText{.sensor = "SMC-TG0D", .percent = 100})), nothing);
    EXPECT_THAT(found(planOf(fan, RuleText{.sensor = "SMC-TCMz", .percent = 100})),
                ElementsAre("curve-not-full " + points + "/1/percent"));
}

TEST(CurveChecks, aCurveThatStopsItsFanHasToReachWhatStartsItAgain) {
    EXPECT_THAT(foundInCurve({{50, 0}, {90, 2.9}}), ElementsAre("curve-never-restarts " + points));
    EXPECT_THAT(foundInCurve({{50, 0}, {90, 3}}),
                ElementsAre("curve-not-full " + points + "/1/percent"));
    EXPECT_THAT(foundInCurve({{50, 1}, {90, 2}}),
                ElementsAre("curve-not-full " + points + "/1/percent"));
}

TEST(CurveChecks, aCurveThatIsSteepOnlyBeyondTheCeilingNeverRestartsItsFan) {
    EXPECT_THAT(foundInCurve({{94.9, 0}, {120, 100}}),
                ElementsAre("curve-never-restarts " + points,
                            "curve-beyond-ceiling " + points + "/1/celsius"));
}

TEST(CurveChecks, anOrderThatDoesNotRiseIsANote) {
    const auto review = reviewPlan(planOf(fanWith(curveMode({{90, 100}, {50, 5}}))));
    ASSERT_EQ(review.findings.size(), 1u);
    EXPECT_EQ(review.findings[0].severity(), Severity::note);
    EXPECT_THAT(review.findings[0].reason, HasSubstr("sorted when the curve is evaluated"));
}

TEST(CurveChecks, anInterpolationThatNothingReadsIsANote) {
    std::string mode = curveMode({{50, 5}, {90, 100}});
    mode.replace(mode.find("linear"), 6, "monotone");
    EXPECT_THAT(foundInFan(mode), ElementsAre("unread-value /fans/0/mode/curve/_0/interpolation"));
}

TEST(CurveChecks, percentagesOfPointsAreFromZeroToAHundred) {
    EXPECT_THAT(foundInCurve({{50, -0.1}, {90, 100.1}}),
                ElementsAre("percent-out-of-range " + points + "/0/percent",
                            "percent-out-of-range " + points + "/1/percent"));
    EXPECT_EQ(foundInCurve({{50, 0}, {90, 100}}), nothing);
}

TEST(CurveChecks, aSourceIsHIDOrSMC) {
    const auto foundWith = [](const std::string& sensor) {
        return foundInFan(
            curveMode({{50, 5}, {90, 100}}, R"("sourceSensorID":")" + sensor + R"(",)"));
    };
    const Found unknown{"unknown-sensor-source /fans/0/mode/curve/_0/sourceSensorID"};
    EXPECT_EQ(foundWith("SMC-TCMz"), nothing);
    EXPECT_EQ(foundWith("HID-PMU tdie1"), nothing);
    EXPECT_EQ(foundWith("TCMz"), unknown);
    EXPECT_EQ(foundWith("smc-TCMz"), unknown);
    EXPECT_EQ(foundWith(""), unknown);
}

}  // namespace
}  // namespace airflow::review
