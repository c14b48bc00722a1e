#include <gtest/gtest.h>

#include "plan/FanPreset.h"
#include "plan/RecordChecks.h"

namespace airflow::plan {

namespace {

const std::vector<tests::Member> members = {
    {"id", "\"11111111-2222-3333-4444-55555555AAAA\"", "a string"},
    {"name", "\"Quiet\"", "a string"},
    {"isBuiltIn", "true", "a boolean"},
    {"plan",
     R"({"fans":[],"rules":[],"tuning":{"emaAlpha":0.3,"hysteresisCelsius":2,)"
     R"("maxDeltaRPMPerTick":400,"minDwellSeconds":3}})",
     "an object"}};

const FanPreset preset{.id = tests::uuid("11111111-2222-3333-4444-55555555AAAA"),
                       .name = "Quiet",
                       .isBuiltIn = true,
                       .plan = FanControlPlan::allAutomatic()};

}  // namespace

TEST(FanPreset, followsTheRulesOfRecords) {
    tests::expectRecordRules<FanPreset>(members);
}

TEST(FanPreset, everyKeyReachesItsField) {
    EXPECT_EQ(json::decode<FanPreset>(tests::objectOf(members)), preset);
}

TEST(FanPreset, isWrittenInDeclarationOrder) {
    EXPECT_EQ(json::encode(preset),
              R"({"id":"11111111-2222-3333-4444-55555555AAAA","name":"Quiet","isBuiltIn":true,)"
              R"("plan":{"fans":[],"rules":[],"tuning":{"emaAlpha":0.3,"hysteresisCelsius":2,)"
              R"("maxDeltaRPMPerTick":400,"minDwellSeconds":3}}})");
}

TEST(FanPreset, withAWrongPlanIsReportedWithinThePlan) {
    std::vector<tests::Member> wrong = members;
    wrong[3].value = R"({"fans":[],"rules":[]})";
    EXPECT_EQ(
        tests::errorOf<FanPreset>(tests::objectOf(wrong)),
        (json::DecodingError{"plan", "The required key \"tuning\" is missing.", std::nullopt}));
}

TEST(FanPreset, withAMalformedIdentifierIsRefused) {
    std::vector<tests::Member> wrong = members;
    wrong[0].value = "\"\"";
    EXPECT_EQ(tests::errorOf<FanPreset>(tests::objectOf(wrong)),
              (json::DecodingError{"id", "Expected a UUID of 36 characters.", std::nullopt}));
}

TEST(FanPreset, everyFieldCountsForEquality) {
    tests::expectEveryFieldCounts(
        preset, [](FanPreset& other) { other.id = UUID{}; },
        [](FanPreset& other) { other.name = "Loud"; },
        [](FanPreset& other) { other.isBuiltIn = false; },
        [](FanPreset& other) { other.plan.tuning.emaAlpha = 1; });
}

}  // namespace airflow::plan
