#include <rapidcheck/gtest.h>

#include "Documents.h"
#include "review/Nearest.h"
#include "support/PlanGenerators.h"

namespace airflow::review {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST(KeyChecks, anUnknownKeyIsAWarningWhereverItStands) {
    EXPECT_THAT(found(R"({"fans":[{"fanID":0,"mode":{"curve":{"_0":{"points":[
              {"id":"E7A90C52-1D38-4F6B-A2C4-58B3D6E1F701","celsius":90,"percent":100,"x":1}],
              "interpolation":"linear","y":2},"z":3}, "turbo":{}},"a":{"b":1}}],
              "rules":[{"id":"8A2F6C14-5E93-4B0D-A7C8-E1D49B3F2C01","name":"Hot",
              "thresholdCelsius":80,"releaseBelowCelsius":70,"targetPercent":100,
              "fanTarget":{"all":{"c":1}},"dwellSeconds":0,"enabled":true,"d":1}],
              "tuning":{"emaAlpha":0.3,"hysteresisCelsius":2,"maxDeltaRPMPerTick":400,
              "minDwellSeconds":3,"e":1},"f":[]})"),
                ElementsAre("unknown-key /fans/0/mode/curve/_0/points/0/x",
                            "unknown-key /fans/0/mode/curve/_0/y",
                            "unknown-key /fans/0/mode/curve/z", "unknown-key /fans/0/mode/turbo",
                            "unknown-key /fans/0/a", "unknown-key /rules/0/fanTarget/all/c",
                            "unknown-key /rules/0/d", "unknown-key /tuning/e", "unknown-key /f"));
}

TEST(KeyChecks, everyElementIsSearched) {
    EXPECT_THAT(found(planOf(goodFan("0") + R"(,{"fanID":1,"mode":{"automatic":{}},"x":1})")),
                ElementsAre("unknown-key /fans/1/x"));
}

TEST(KeyChecks, anUnknownKeyStandsWhereTheKeyDoes) {
    const auto review = reviewPlan("{\n  \"colour\": 1,\n" + planOf("").substr(1));
    ASSERT_EQ(review.findings.size(), 1u);
    EXPECT_EQ(review.findings[0].position, (json::Position{2, 3}));
}

TEST(KeyChecks, aKeyThatIsNearlyKnownIsAsked) {
    const auto adviceFor = [](const std::string& key) {
        return adviceIn(planOf(goodFan(), "",
                               R"("emaAlpha":0.3,"hysteresisCelsius":2,)" + ("\"" + key + "\":1") +
                                   R"(,"maxDeltaRPMPerTick":400,)" + R"("minDwellSeconds":3)"));
    };
    EXPECT_EQ(adviceFor("emaAlfa"), R"(Did you mean "emaAlpha"?)");
    EXPECT_EQ(adviceFor("MINDWELLSECONDS"), R"(Did you mean "minDwellSeconds"?)");
    EXPECT_EQ(adviceFor("comment"),
              "Remove it; the keys here are emaAlpha, hysteresisCelsius, maxDeltaRPMPerTick, "
              "minDwellSeconds.");
}

TEST(KeyChecks, theOptionalSensorIsSuggestedToo) {
    std::string rule = RuleText{.sensor = "SMC-TG0D"};
    rule.replace(rule.find("sensorID"), 8, "sensorId");
    EXPECT_EQ(adviceIn(planOf(goodFan(), rule)), R"(Did you mean "sensorID"?)");
    EXPECT_EQ(adviceIn(planOf(
                  fanWith(curveMode({{50, 5}, {90, 100}}, R"("sourceSensorId":"SMC-TG0D",)")))),
              R"(Did you mean "sourceSensorID"?)");
}

TEST(KeyChecks, whereNoKeyIsKnownNoneIsSuggested) {
    EXPECT_EQ(adviceIn(planOf(fanWith(R"({"automatic":{"all":1}})"))),
              "Remove it: nothing has a key here.");
}

TEST(KeyChecks, aKeyThatStandsTwiceIsAWarningAtTheOneThatCounts) {
    const auto review = reviewPlan(planOf(R"({"fanID":1,"mode":{"automatic":{}},"fanID":2})"));
    ASSERT_EQ(review.findings.size(), 1u);
    EXPECT_EQ(review.findings[0].identifier(), "repeated-key");
    EXPECT_EQ(review.findings[0].pointer, "/fans/0/fanID");
    EXPECT_EQ(review.findings[0].position, (json::Position{1, 45}));
    EXPECT_THAT(review.findings[0].reason, HasSubstr("stands 2 times"));
}

TEST(KeyChecks, ofAKeyThatStandsTwiceOnlyTheLastValueIsSearched) {
    EXPECT_THAT(
        found(planOf(R"({"fanID":1,"mode":{"x":1,"automatic":{}},"mode":{"automatic":{}}})")),
        ElementsAre("repeated-key /fans/0/mode"));
}

TEST(KeyChecks, slashesOfAnUnknownKeyAreEscapedInItsPointer) {
    EXPECT_THAT(found(planOf(R"({"fanID":1,"mode":{"automatic":{}},"a/b~c":2})")),
                ElementsAre("unknown-key /fans/0/a~1b~0c"));
}

RC_GTEST_PROP(KeyCheckProperties, noKeyThatPlansAreWrittenWithIsUnknown,
              (const plan::FanControlPlan& plan)) {
    for (const Finding& finding : reviewPlan(json::encode(plan).value()).findings) {
        RC_ASSERT(finding.subject != Subject::unknownKey);
        RC_ASSERT(finding.subject != Subject::repeatedKey);
    }
}

TEST(Nearest, countsInsertedLeftOutAndReplacedCharacters) {
    EXPECT_EQ(editDistance("", ""), 0u);
    EXPECT_EQ(editDistance("fan", ""), 3u);
    EXPECT_EQ(editDistance("", "fan"), 3u);
    EXPECT_EQ(editDistance("fans", "fan"), 1u);
    EXPECT_EQ(editDistance("fan", "fans"), 1u);
    EXPECT_EQ(editDistance("fan", "fin"), 1u);
    EXPECT_EQ(editDistance("kitten", "sitting"), 3u);
    EXPECT_EQ(editDistance("FanID", "fanid"), 0u);
}

TEST(Nearest, isWithinAThirdOfTheWord) {
    const std::vector<std::string> candidates{"rules", "tuning"};
    EXPECT_EQ(nearest("rulez", candidates), "rules");
    EXPECT_EQ(nearest("ruezz", candidates), std::nullopt);
    EXPECT_EQ(nearest("tunnin", candidates), "tuning");
    EXPECT_EQ(nearest("", candidates), std::nullopt);
    EXPECT_EQ(nearest(std::string(65, 'r'), candidates), std::nullopt);
}

TEST(Nearest, isTheLeastDistant) {
    EXPECT_EQ(nearest("SMC-TG0E", std::vector<std::string>{"SMC-TC0E0", "SMC-TG0D"}), "SMC-TG0D");
}

}  // namespace
}  // namespace airflow::review
