#include "Documents.h"

namespace airflow::review {
namespace {

using testing::ElementsAre;

std::string both(const RuleText& first, const RuleText& second) {
    return std::string(first) + "," + std::string(second);
}

Found foundInRules(const RuleText& first, const RuleText& second) {
    return found(planOf(goodFan("0") + "," + goodFan("1"), both(first, second)));
}

TEST(RuleChecks, aRuleThatFiresInTimeIsGood) {
    EXPECT_EQ(foundInRule({}), nothing);
}

TEST(RuleChecks, rulesNeedAFanThatIsNotAutomatic) {
    EXPECT_THAT(found(planOf("", RuleText{})), ElementsAre("nothing-managed /rules"));
    EXPECT_THAT(found(planOf(fanWith(automaticMode), RuleText{})),
                ElementsAre("nothing-managed /rules"));
    EXPECT_EQ(found(planOf(fanWith(automaticMode) + "," + goodFan("1"), RuleText{})), nothing);
}

TEST(RuleChecks, disabledRulesNeedNoFan) {
    EXPECT_THAT(found(planOf("", RuleText{.enabled = false})),
                ElementsAre("rule-disabled /rules/0/enabled"));
}

TEST(RuleChecks, aRuleHasToFireBelowTheCeiling) {
    EXPECT_EQ(foundInRule({.above = 94.9, .dwell = 0}), nothing);
    EXPECT_THAT(foundInRule({.above = 95, .dwell = 0}),
                ElementsAre("rule-beyond-ceiling /rules/0/thresholdCelsius"));
}

TEST(RuleChecks, theReleaseLevelIsHalfADegreeBelowTheThreshold) {
    EXPECT_EQ(foundInRule({.above = 80, .releaseBelow = 79.5}), nothing);
    EXPECT_THAT(foundInRule({.above = 80, .releaseBelow = 79.6}),
                ElementsAre("rule-release-too-high /rules/0/releaseBelowCelsius"));
    EXPECT_THAT(foundInRule({.above = 80, .releaseBelow = 80}),
                ElementsAre("rule-release-too-high /rules/0/releaseBelowCelsius"));
    EXPECT_EQ(reasonIn(planOf(goodFan(), RuleText{.above = 80, .releaseBelow = 85})),
              "85 °C is not half a degree below the threshold: the rule lets go below 79.5 °C "
              "instead.");
}

TEST(RuleChecks, theDwellEndsBeforeAFastRiseReachesTheCeiling) {
    EXPECT_EQ(foundInRule({.above = 80, .dwell = 14.9}), nothing);
    EXPECT_THAT(foundInRule({.above = 80, .dwell = 15}),
                ElementsAre("rule-dwell-too-long /rules/0/dwellSeconds"));
    EXPECT_THAT(foundInRule({.above = 80, .dwell = 1e300}),
                ElementsAre("rule-dwell-too-long /rules/0/dwellSeconds"));
}

TEST(RuleChecks, aRuleThatNeverFiresIsNotToldOfItsDwell) {
    EXPECT_THAT(foundInRule({.above = 99, .dwell = 60}),
                ElementsAre("rule-beyond-ceiling /rules/0/thresholdCelsius"));
}

TEST(RuleChecks, aDwellIsNotNegative) {
    EXPECT_EQ(foundInRule({.dwell = 0}), nothing);
    EXPECT_THAT(foundInRule({.dwell = -0.1}),
                ElementsAre("rule-negative-dwell /rules/0/dwellSeconds"));
}

TEST(RuleChecks, aRuleMustNotStopItsFans) {
    EXPECT_EQ(foundInRule({.percent = 0.1}), nothing);
    EXPECT_THAT(foundInRule({.percent = 0}), ElementsAre("rule-stops-fans /rules/0/targetPercent"));
}

TEST(RuleChecks, aTargetIsFromZeroToAHundredPercent) {
    EXPECT_EQ(foundInRule({.percent = 100}), nothing);
    EXPECT_THAT(foundInRule({.percent = 101}),
                ElementsAre("percent-out-of-range /rules/0/targetPercent"));
}

TEST(RuleChecks, aRuleNeedsItsFanInThePlan) {
    EXPECT_EQ(foundInRule({.fan = "0"}), nothing);
    EXPECT_THAT(foundInRule({.fan = "1"}),
                ElementsAre("rule-for-unlisted-fan /rules/0/fanTarget/fan/_0"));
    EXPECT_EQ(found(planOf(goodFan() + "," + fanWith(automaticMode, "1"), RuleText{.fan = "1"})),
              nothing);
    EXPECT_EQ(adviceIn(planOf(goodFan(), RuleText{.fan = "7"})),
              R"(Add {"fanID": 7, "mode": {"automatic": {}}} to "fans": the rule then overrides )"
              "the firmware.");
}

TEST(RuleChecks, aDisabledRuleIsANote) {
    const auto review = reviewPlan(planOf(goodFan(), RuleText{.enabled = false}));
    ASSERT_EQ(review.findings.size(), 1u);
    EXPECT_EQ(review.findings[0].identifier(), "rule-disabled");
    EXPECT_EQ(review.findings[0].severity(), Severity::note);
}

TEST(RuleChecks, aSensorIsHIDOrSMC) {
    EXPECT_EQ(foundInRule({.sensor = "SMC-TG0D"}), nothing);
    EXPECT_THAT(foundInRule({.sensor = "CPU"}),
                ElementsAre("unknown-sensor-source /rules/0/sensorID"));
}

TEST(RuleChecks, twoRulesHaveTwoIds) {
    const RuleText warm{.id = 1, .above = 60, .releaseBelow = 50};
    EXPECT_THAT(foundInRules({.id = 1}, warm), ElementsAre("repeated-rule-id /rules/1/id"));
    EXPECT_EQ(foundInRules({.id = 2}, warm), nothing);
}

const RuleText hot{.id = 2, .above = 80, .releaseBelow = 70, .percent = 100, .dwell = 3};
const Found hidden{"rule-hidden /rules/1"};

TEST(RuleChecks, aRuleIsHiddenByAnEarlierOneThatLatchesNoLater) {
    EXPECT_EQ(foundInRules({.above = 80, .dwell = 3}, hot), hidden);
    EXPECT_EQ(foundInRules({.above = 60, .releaseBelow = 50}, hot), hidden);
    EXPECT_EQ(foundInRules({.above = 80.1}, hot), nothing);
    EXPECT_EQ(foundInRules({.dwell = 3.1}, hot), nothing);
}

TEST(RuleChecks, aRuleIsHiddenOnlyByOneThatLetsGoNoEarlier) {
    EXPECT_EQ(foundInRules({.above = 79, .releaseBelow = 70}, hot), hidden);
    EXPECT_EQ(foundInRules({.above = 79, .releaseBelow = 70.1}, hot), nothing);
}

TEST(RuleChecks, aRuleIsHiddenByOneForTheSameFansOrMore) {
    RuleText one = hot;
    one.fan = "1";
    EXPECT_EQ(foundInRules({}, one), hidden);
    EXPECT_EQ(foundInRules({.fan = "1"}, one), hidden);
    EXPECT_EQ(foundInRules({.fan = "0"}, one), nothing);
    EXPECT_EQ(foundInRules({.fan = "1"}, hot), nothing);
    EXPECT_EQ(found(planOf(goodFan("1"), both({.fan = "1"}, hot))), hidden);
}

TEST(RuleChecks, aRuleIsHiddenOnlyByOneForTheSameSensor) {
    RuleText graphics = hot;
    graphics.sensor = "SMC-TG0D";
    EXPECT_EQ(foundInRules({.sensor = "SMC-TG0D"}, graphics), hidden);
    EXPECT_EQ(foundInRules({}, graphics), nothing);
    EXPECT_EQ(foundInRules({.sensor = "SMC-TCMz"}, graphics), nothing);
}

TEST(RuleChecks, disabledRulesNeitherHideNorAreHidden) {
    RuleText disabled = hot;
    disabled.enabled = false;
    EXPECT_THAT(foundInRules({.enabled = false}, hot),
                ElementsAre("rule-disabled /rules/0/enabled"));
    EXPECT_THAT(foundInRules({}, disabled), ElementsAre("rule-disabled /rules/1/enabled"));
}

TEST(RuleChecks, aHiddenRuleIsToldOnce) {
    const std::string earlier = both({.id = 3}, {.id = 4, .above = 60, .releaseBelow = 50});
    EXPECT_THAT(found(planOf(goodFan(), earlier + "," + std::string(hot))),
                ElementsAre("rule-hidden /rules/2"));
}

TEST(RuleChecks, rulesWithOneIdHideNothingFromEachOther) {
    RuleText twin = hot;
    twin.id = 1;
    EXPECT_THAT(foundInRules({.id = 1}, twin), ElementsAre("repeated-rule-id /rules/1/id"));
}

TEST(RuleChecks, aRuleThatNeverFiresNeitherHidesNorIsHidden) {
    const RuleText never{.id = 1, .above = 96, .dwell = 0};
    RuleText neither = never;
    neither.id = 2;
    EXPECT_THAT(foundInRules(never, neither),
                ElementsAre("rule-beyond-ceiling /rules/0/thresholdCelsius",
                            "rule-beyond-ceiling /rules/1/thresholdCelsius"));
}

TEST(RuleChecks, aNegativeDwellHidesAsZeroDoes) {
    RuleText negative = hot;
    negative.dwell = -1;
    EXPECT_THAT(foundInRules({.dwell = 0}, negative),
                ElementsAre(hidden.front(), "rule-negative-dwell /rules/1/dwellSeconds"));
}

}  // namespace
}  // namespace airflow::review
