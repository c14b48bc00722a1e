#include <gtest/gtest.h>

#include "plan/FanControlPlan.h"
#include "plan/RecordChecks.h"
#include "support/Doubles.h"

namespace airflow::plan {

namespace {

using airflow::tests::infinity;
using airflow::tests::notANumber;

const std::vector<tests::Member> fanMembers = {
    {"fanID", "1", "a whole number"}, {"mode", R"({"fixedPercent":{"_0":30}})", "an object"}};

const std::vector<tests::Member> planMembers = {
    {"fans", "[" + tests::objectOf(fanMembers) + "]", "an array"},
    {"rules", "[]", "an array"},
    {"tuning",
     R"({"emaAlpha":0.3,"hysteresisCelsius":2,"maxDeltaRPMPerTick":400,"minDwellSeconds":3})",
     "an object"}};

/// Two fans and a rule, laid out as a person would.
constexpr std::string_view document = R"({
  "fans": [
    {"fanID": 0, "mode": {"curve": {"_0": {
      "points": [
        {"id": "A1B2C3D4-0001-4A00-8B00-00000000C001", "celsius": 45, "percent": 0},
        {"id": "a1b2c3d4-0002-4a00-8b00-00000000c002", "celsius": 70, "percent": 40},
        {"id": "A1B2C3D4-0003-4A00-8B00-00000000C003", "celsius": 90, "percent": 100}],
      "interpolation": "linear"}}}},
    {"fanID": 1, "mode": {"fixedPercent": {"_0": 30}}}
  ],
  "rules": [
    {"id": "A1B2C3D4-0004-4A00-8B00-00000000C004", "name": "Hot spike",
     "thresholdCelsius": 95, "releaseBelowCelsius": 85, "targetPercent": 100,
     "fanTarget": {"all": {}}, "dwellSeconds": 5, "enabled": true}
  ],
  "tuning": {"emaAlpha": 0.3, "hysteresisCelsius": 2, "maxDeltaRPMPerTick": 400,
             "minDwellSeconds": 3}
})";

constexpr std::string_view documentAsWritten =
    R"({"fans":[{"fanID":0,"mode":{"curve":{"_0":{"points":[)"
    R"({"id":"A1B2C3D4-0001-4A00-8B00-00000000C001","celsius":45,"percent":0},)"
    R"({"id":"A1B2C3D4-0002-4A00-8B00-00000000C002","celsius":70,"percent":40},)"
    R"({"id":"A1B2C3D4-0003-4A00-8B00-00000000C003","celsius":90,"percent":100}],)"
    R"("interpolation":"linear"}}}},{"fanID":1,"mode":{"fixedPercent":{"_0":30}}}],)"
    R"("rules":[{"id":"A1B2C3D4-0004-4A00-8B00-00000000C004","name":"Hot spike",)"
    R"("thresholdCelsius":95,"releaseBelowCelsius":85,"targetPercent":100,)"
    R"("fanTarget":{"all":{}},"dwellSeconds":5,"enabled":true}],)"
    R"("tuning":{"emaAlpha":0.3,"hysteresisCelsius":2,"maxDeltaRPMPerTick":400,)"
    R"("minDwellSeconds":3}})";

FanControlPlan documentPlan() {
    return json::decode<FanControlPlan>(document).value();
}

/// The document with one part of it replaced.
std::string with(std::string_view part, std::string_view replacement) {
    std::string text(document);
    const auto at = text.find(part);
    EXPECT_NE(at, std::string::npos) << part;
    return text.replace(at, part.size(), replacement);
}

json::DecodingError errorWith(std::string_view part, std::string_view replacement) {
    return tests::errorOf<FanControlPlan>(with(part, replacement));
}

}  // namespace

TEST(FanPlan, followsTheRulesOfRecords) {
    tests::expectRecordRules<FanPlan>(fanMembers);
}

TEST(FanPlan, everyKeyReachesItsField) {
    EXPECT_EQ(json::decode<FanPlan>(tests::objectOf(fanMembers)),
              (FanPlan{.fanID = 1, .mode = FanControlModePlan::fixedPercent(30)}));
}

TEST(FanPlan, isWrittenInDeclarationOrder) {
    EXPECT_EQ(json::encode(FanPlan{.fanID = -4, .mode = {}}),
              R"({"fanID":-4,"mode":{"automatic":{}}})");
}

TEST(FanPlan, aFanIsNumberedByAWholeNumberOf64Bits) {
    const auto text = [](const std::string& number) {
        return R"({"fanID":)" + number + R"(,"mode":{"automatic":{}}})";
    };
    const auto fanID = [&text](const std::string& number) {
        return json::decode<FanPlan>(text(number)).value().fanID;
    };
    const auto refusal = [&text](const std::string& number) {
        const json::DecodingError error = tests::errorOf<FanPlan>(text(number));
        EXPECT_EQ(error.codingPath, "fanID");
        return error.description;
    };
    EXPECT_EQ(fanID("2.0"), 2);
    EXPECT_EQ(fanID("1e2"), 100);
    EXPECT_EQ(fanID("9223372036854775807"), 9223372036854775807);
    EXPECT_EQ(refusal("1.5"), "The number 1.5 is not whole.");
    EXPECT_EQ(refusal("9223372036854775808"),
              "The number 9223372036854775808 does not fit a signed 64-bit integer.");
    EXPECT_EQ(refusal("\"1\""), "Expected a whole number but found a string.");
}

TEST(FanPlan, everyFieldCountsForEquality) {
    tests::expectEveryFieldCounts(
        FanPlan{.fanID = 1, .mode = FanControlModePlan::fixedRPM(2000)},
        [](FanPlan& other) { other.fanID = 2; },
        [](FanPlan& other) { other.mode = FanControlModePlan::automatic(); });
}

TEST(FanControlPlan, followsTheRulesOfRecords) {
    tests::expectRecordRules<FanControlPlan>(planMembers);
}

TEST(FanControlPlan, aDocumentIsReadFieldByField) {
    const FanControlPlan plan = documentPlan();
    ASSERT_EQ(plan.fans.size(), 2u);
    EXPECT_EQ(plan.fans[0].fanID, 0);
    const auto* curve = std::get_if<FanCurve>(&plan.fans[0].mode.mode);
    ASSERT_NE(curve, nullptr);
    EXPECT_EQ(curve->sourceSensorID, std::nullopt);
    EXPECT_EQ(curve->interpolation, CurveInterpolation::linear);
    ASSERT_EQ(curve->points.size(), 3u);
    EXPECT_EQ(curve->points[0].id, tests::uuid("A1B2C3D4-0001-4A00-8B00-00000000C001"));
    EXPECT_EQ(curve->points[0].celsius, 45);
    EXPECT_EQ(curve->points[0].percent, 0);
    EXPECT_EQ(curve->points[1].id, tests::uuid("A1B2C3D4-0002-4A00-8B00-00000000C002"));
    EXPECT_EQ(curve->points[1].celsius, 70);
    EXPECT_EQ(curve->points[1].percent, 40);
    EXPECT_EQ(curve->points[2].id, tests::uuid("A1B2C3D4-0003-4A00-8B00-00000000C003"));
    EXPECT_EQ(curve->points[2].celsius, 90);
    EXPECT_EQ(curve->points[2].percent, 100);
    EXPECT_EQ(plan.fans[1].fanID, 1);
    EXPECT_EQ(plan.fans[1].mode, FanControlModePlan::fixedPercent(30));
    ASSERT_EQ(plan.rules.size(), 1u);
    const FanRule& rule = plan.rules[0];
    EXPECT_EQ(rule.id, tests::uuid("A1B2C3D4-0004-4A00-8B00-00000000C004"));
    EXPECT_EQ(rule.name, "Hot spike");
    EXPECT_EQ(rule.sensorID, std::nullopt);
    EXPECT_EQ(rule.thresholdCelsius, 95);
    EXPECT_EQ(rule.releaseBelowCelsius, 85);
    EXPECT_EQ(rule.targetPercent, 100);
    EXPECT_EQ(rule.fanTarget, RuleFanTarget::all());
    EXPECT_EQ(rule.dwellSeconds, 5);
    EXPECT_TRUE(rule.enabled);
    EXPECT_EQ(plan.tuning, ControlTuning::defaults());
}

TEST(FanControlPlan, aDocumentIsWrittenInDeclarationOrder) {
    EXPECT_EQ(json::encode(documentPlan()), documentAsWritten);
    EXPECT_EQ(json::decode<FanControlPlan>(documentAsWritten), documentPlan());
}

TEST(FanControlPlan, withoutFansAndRulesIsThePlanThatAsksForNothing) {
    std::vector<tests::Member> members = planMembers;
    members[0].value = "[]";
    const auto plan = json::decode<FanControlPlan>(tests::objectOf(members));
    EXPECT_EQ(plan, FanControlPlan::allAutomatic());
    EXPECT_TRUE(FanControlPlan::allAutomatic().fans.empty());
    EXPECT_TRUE(FanControlPlan::allAutomatic().rules.empty());
    EXPECT_EQ(FanControlPlan::allAutomatic().tuning, (ControlTuning{0.3, 2.0, 400.0, 3.0}));
    EXPECT_EQ(json::encode(FanControlPlan::allAutomatic()),
              R"({"fans":[],"rules":[],"tuning":{"emaAlpha":0.3,"hysteresisCelsius":2,)"
              R"("maxDeltaRPMPerTick":400,"minDwellSeconds":3}})");
}

TEST(FanControlPlan, withoutTuningIsRefused) {
    EXPECT_EQ(tests::errorOf<FanControlPlan>(R"({"fans":[],"rules":[]})"),
              (json::DecodingError{"", "The required key \"tuning\" is missing.", std::nullopt}));
    EXPECT_EQ(errorWith(R"("hysteresisCelsius": 2, )", ""),
              (json::DecodingError{"tuning", "The required key \"hysteresisCelsius\" is missing.",
                                   std::nullopt}));
}

TEST(FanControlPlan, aModeWithoutOrWithTwoCasesIsRefused) {
    const json::DecodingError invalid{"fans[1].mode", "Invalid number of keys found, expected one.",
                                      std::nullopt};
    EXPECT_EQ(errorWith(R"({"fixedPercent": {"_0": 30}})", "{}"), invalid);
    EXPECT_EQ(
        errorWith(R"({"fixedPercent": {"_0": 30}})", R"({"automatic": {}, "fixedRPM": {"_0": 1}})"),
        invalid);
    EXPECT_EQ(errorWith(R"({"fixedPercent": {"_0": 30}})", R"({"other": {}})"), invalid);
}

TEST(FanControlPlan, aWrongValueIsReportedWithItsWholePath) {
    EXPECT_EQ(errorWith("\"celsius\": 90", "\"celsius\": \"90\""),
              (json::DecodingError{"fans[0].mode.curve._0.points[2].celsius",
                                   "Expected a number but found a string.", std::nullopt}));
    EXPECT_EQ(errorWith("a1b2c3d4-0002-4a00", "a1b2c3d4-0002_4a00"),
              (json::DecodingError{"fans[0].mode.curve._0.points[1].id",
                                   "Expected a UUID of 36 characters.", std::nullopt}));
    EXPECT_EQ(errorWith("\"linear\"", "\"smooth\""),
              (json::DecodingError{"fans[0].mode.curve._0.interpolation",
                                   "Expected \"linear\" or \"monotone\".", std::nullopt}));
    EXPECT_EQ(errorWith(R"({"all": {}})", R"({"fan": {"_0": 0.5}})"),
              (json::DecodingError{"rules[0].fanTarget.fan._0", "The number 0.5 is not whole.",
                                   std::nullopt}));
    EXPECT_EQ(errorWith("\"enabled\": true", "\"enabled\": 1"),
              (json::DecodingError{"rules[0].enabled", "Expected a boolean but found a number.",
                                   std::nullopt}));
}

TEST(FanControlPlan, aMalformedDocumentIsReportedWithItsPlace) {
    EXPECT_EQ(errorWith("\"rules\": [", "\"rules\" ["),
              (json::DecodingError{"",
                                   "syntax error while parsing object separator - unexpected '['; "
                                   "expected ':'",
                                   json::Position{11, 11}}));
    EXPECT_EQ(
        errorWith("\"emaAlpha\": 0.3", "\"emaAlpha\": 3e999"),
        (json::DecodingError{"", "number out of range of a 64-bit float", json::Position{16, 26}}));
}

TEST(FanControlPlan, fansMayBeNamedTwiceAndByAnyNumber) {
    const std::string text =
        R"({"fans":[{"fanID":3,"mode":{"automatic":{}}},{"fanID":-9,"mode":{"automatic":{}}},)"
        R"({"fanID":3,"mode":{"fixedRPM":{"_0":1}}}],"rules":[],"tuning":{"emaAlpha":0,)"
        R"("hysteresisCelsius":0,"maxDeltaRPMPerTick":0,"minDwellSeconds":0}})";
    EXPECT_EQ(json::encode(json::decode<FanControlPlan>(text).value()), text);
}

TEST(FanControlPlan, whatIsNotFiniteHasNoJSONForm) {
    FanControlPlan plan = documentPlan();
    plan.rules[0].dwellSeconds = infinity;
    EXPECT_EQ(json::encode(plan).error(),
              (json::EncodingError{"rules[0].dwellSeconds",
                                   "A number that is not finite has no JSON form."}));
    plan.fans[1].mode = FanControlModePlan::fixedRPM(notANumber);
    EXPECT_EQ(json::encode(plan).error().codingPath, "fans[1].mode.fixedRPM._0");
}

TEST(FanControlPlan, everyFieldCountsForEquality) {
    tests::expectEveryFieldCounts(
        documentPlan(), [](FanControlPlan& other) { other.fans.pop_back(); },
        [](FanControlPlan& other) { std::swap(other.fans[0], other.fans[1]); },
        [](FanControlPlan& other) { other.rules.clear(); },
        [](FanControlPlan& other) { other.tuning.minDwellSeconds = 4; });
}

}  // namespace airflow::plan
