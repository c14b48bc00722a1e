// What findings say of the evaluator is what the evaluator does.
#include <rapidcheck/gtest.h>

#include "Documents.h"
#include "evaluation/PlanEvaluator.h"

namespace airflow::review {
namespace {

using evaluation::FanDecision;
using evaluation::IdleStopped;
using evaluation::PlanEvaluator;
using evaluation::Target;

using Decisions = std::map<std::int64_t, FanDecision>;

/// The decisions of a fan of 1000 to 5000 RPM for one temperature after the other.
std::vector<Decisions> decided(const plan::FanControlPlan& plan,
                               const std::vector<double>& temperatures) {
    PlanEvaluator evaluator;
    std::vector<Decisions> all;
    double seconds = 0;
    for (const double celsius : temperatures) {
        sensors::SensorSnapshot snapshot;
        snapshot.fans = {
            {.id = 0, .name = "", .currentRPM = 0, .minRPM = 1000, .maxRPM = 5000, .mode = {}}};
        snapshot.temps = {{.key = "TCMz", .name = "", .celsius = celsius}};
        const concurrency::Date now{concurrency::Seconds(seconds)};
        all.push_back(evaluator.evaluate(plan, snapshot, now));
        seconds += 1.5;
    }
    return all;
}

plan::FanControlPlan decoded(const std::string& document) {
    return reviewPlan(document).plan.value();
}

std::vector<FanDecision> ofTheFan(const std::string& document,
                                  const std::vector<double>& temperatures) {
    std::vector<FanDecision> decisions;
    for (const Decisions& all : decided(decoded(document), temperatures)) {
        decisions.push_back(all.at(0));
    }
    return decisions;
}

std::string tuning(const std::string& alpha, const std::string& limit) {
    return R"("emaAlpha":)" + alpha + R"(,"hysteresisCelsius":2,"maxDeltaRPMPerTick":)" + limit +
           R"(,"minDwellSeconds":3)";
}

TEST(EvaluatedFindings, theLastOfTwoEntriesDecidesFromWhatTheFirstLeaves) {
    const std::string twice = fanWith(rpmMode("2000")) + "," + goodFan();
    const FanDecision step = Target{2400};
    EXPECT_EQ(ofTheFan(planOf(twice), {90, 90, 90}), (std::vector<FanDecision>{step, step, step}));
}

TEST(EvaluatedFindings, aNegativeLimitLowersACurve) {
    EXPECT_EQ(ofTheFan(planOf(goodFan(), "", tuning("1", "-1500")), {90, 90, 90, 90}),
              (std::vector<FanDecision>{Target{5000}, Target{3500}, Target{2000}, Target{1000}}));
}

TEST(EvaluatedFindings, aLimitOfZeroHoldsACurve) {
    EXPECT_EQ(ofTheFan(planOf(goodFan(), "", tuning("1", "0")), {90, 50, 70}),
              (std::vector<FanDecision>{Target{5000}, Target{5000}, Target{5000}}));
}

TEST(EvaluatedFindings, aCurveBelowThreePercentStaysStopped) {
    const std::string slow = fanWith(curveMode({{50, 0}, {90, 2.9}}));
    std::vector<double> temperatures(8, 40);
    temperatures.insert(temperatures.end(), 20, 94);
    EXPECT_EQ(ofTheFan(planOf(slow, "", tuning("1", "400")), temperatures).back(),
              FanDecision(IdleStopped{}));
}

TEST(EvaluatedFindings, twoRulesWithOneIdShareOneLatch) {
    const std::string rules =
        std::string(RuleText{.percent = 100, .dwell = 0}) + "," +
        std::string(RuleText{.above = 60, .releaseBelow = 50, .percent = 50, .dwell = 0});
    // At 75 °C only the second has a reason to fire, and its latch is the first one's.
    const auto decisions =
        ofTheFan(planOf(fanWith(rpmMode("2000")), rules, tuning("1", "400")), {75, 75});
    EXPECT_EQ(decisions, (std::vector<FanDecision>{Target{3000}, Target{5000}}));
}

rc::Gen<plan::FanRule> rulesNearby() {
    const auto few = [](std::initializer_list<double> numbers) {
        return rc::gen::elementOf(std::vector<double>(numbers));
    };
    return rc::gen::map(rc::gen::tuple(few({70, 75, 80}), few({60, 65, 74.5, 90}),
                                       few({-1, 0, 1.5, 3}), rc::gen::inRange(1, 100)),
                        [](const auto& drawn) {
                            const auto& [threshold, release, dwell, id] = drawn;
                            return plan::FanRule{.id = {.bytes = {static_cast<std::uint8_t>(id)}},
                                                 .name = "Hot",
                                                 .sensorID = {},
                                                 .thresholdCelsius = threshold,
                                                 .releaseBelowCelsius = release,
                                                 .targetPercent = static_cast<double>(id),
                                                 .fanTarget = plan::RuleFanTarget::all(),
                                                 .dwellSeconds = dwell,
                                                 .enabled = true};
                        });
}

RC_GTEST_PROP(EvaluatedFindingsProperties, aRuleThatIsHiddenMakesNoDifference, ()) {
    auto plan = decoded(planOf(goodFan(), "", tuning("1", "400")));
    plan.rules = {*rulesNearby(), *rulesNearby()};
    const auto findings = reviewPlan(json::encode(plan).value()).findings;
    const bool isHidden = std::ranges::any_of(
        findings, [](const Finding& finding) { return finding.subject == Subject::ruleHidden; });
    RC_PRE(isHidden);
    auto without = plan;
    without.rules.pop_back();
    const auto temperatures = *rc::gen::container<std::vector<double>>(
        30, rc::gen::map(rc::gen::inRange(110, 170), [](int halves) { return halves / 2.0; }));
    RC_ASSERT(decided(plan, temperatures) == decided(without, temperatures));
}

}  // namespace
}  // namespace airflow::review
