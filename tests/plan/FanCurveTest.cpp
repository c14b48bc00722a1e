// The documents of curves and their points; what a curve answers is tested beside this.
#include <gtest/gtest.h>

#include "plan/FanCurve.h"
#include "plan/RecordChecks.h"
#include "support/Doubles.h"

namespace airflow::plan {

namespace {

using airflow::tests::notANumber;

constexpr std::string_view first = "11111111-2222-3333-4444-55555555AAAA";

const std::vector<tests::Member> pointMembers = {
    {"id", "\"11111111-2222-3333-4444-55555555AAAA\"", "a string"},
    {"celsius", "45.5", "a number"},
    {"percent", "20", "a number"}};

const std::vector<tests::Member> curveMembers = {
    {"sourceSensorID", "\"smc-Tp09\"", "a string", true},
    {"points", "[" + tests::objectOf(pointMembers) + "]", "an array"},
    {"interpolation", "\"monotone\"", "a string"}};

const CurvePoint point{.id = tests::uuid(first), .celsius = 45.5, .percent = 20};
const FanCurve curve{
    .sourceSensorID = "smc-Tp09", .points = {point}, .interpolation = CurveInterpolation::monotone};

}  // namespace

TEST(CurvePoint, followsTheRulesOfRecords) {
    tests::expectRecordRules<CurvePoint>(pointMembers);
}

TEST(CurvePoint, everyKeyReachesItsField) {
    EXPECT_EQ(json::decode<CurvePoint>(tests::objectOf(pointMembers)), point);
}

TEST(CurvePoint, withAMalformedIdentifierIsRefused) {
    EXPECT_EQ(tests::errorOf<CurvePoint>(R"({"id":"1","celsius":1,"percent":1})"),
              (json::DecodingError{"id", "Expected a UUID of 36 characters.", std::nullopt}));
}

TEST(CurvePoint, isWrittenInDeclarationOrder) {
    EXPECT_EQ(json::encode(point),
              R"({"id":"11111111-2222-3333-4444-55555555AAAA","celsius":45.5,"percent":20})");
}

TEST(CurvePoint, everyFieldCountsForEquality) {
    tests::expectEveryFieldCounts(
        point, [](CurvePoint& other) { other.id = UUID{}; },
        [](CurvePoint& other) { other.celsius = 45; },
        [](CurvePoint& other) { other.percent = 21; });
}

TEST(FanCurve, followsTheRulesOfRecords) {
    tests::expectRecordRules<FanCurve>(curveMembers);
}

TEST(FanCurve, everyKeyReachesItsField) {
    EXPECT_EQ(json::decode<FanCurve>(tests::objectOf(curveMembers)), curve);
}

TEST(FanCurve, interpolationIsLinearOrMonotoneAndNothingElse) {
    const auto decoded = [](const std::string& text) {
        return json::decode<FanCurve>(R"({"points":[],"interpolation":)" + text + "}");
    };
    EXPECT_EQ(decoded("\"linear\"").value().interpolation, CurveInterpolation::linear);
    EXPECT_EQ(decoded("\"monotone\"").value().interpolation, CurveInterpolation::monotone);
    for (const std::string other : {"", "Linear", "MONOTONE", "linear ", "cubic", "0"}) {
        EXPECT_EQ(decoded("\"" + other + "\"").error(),
                  (json::DecodingError{"interpolation", "Expected \"linear\" or \"monotone\".",
                                       std::nullopt}));
    }
}

TEST(FanCurve, aWrongPointIsReportedWithItsPlace) {
    const std::string good = tests::objectOf(pointMembers);
    EXPECT_EQ(tests::errorOf<FanCurve>(R"({"points":[)" + good + "," + good +
                                       R"(,{"id":"11111111-2222-3333-4444-55555555AAAA",)"
                                       R"("celsius":"70","percent":1}],"interpolation":"linear"})"),
              (json::DecodingError{"points[2].celsius", "Expected a number but found a string.",
                                   std::nullopt}));
}

TEST(FanCurve, isWrittenInDeclarationOrder) {
    EXPECT_EQ(json::encode(curve),
              R"({"sourceSensorID":"smc-Tp09","points":[{"id":)"
              R"("11111111-2222-3333-4444-55555555AAAA","celsius":45.5,"percent":20}],)"
              R"("interpolation":"monotone"})");
}

TEST(FanCurve, withoutASourceSensorWritesNoKeyForIt) {
    EXPECT_EQ(json::encode(FanCurve{}), R"({"points":[],"interpolation":"linear"})");
}

TEST(FanCurve, anEmptySourceSensorIsNotAnAbsentOne) {
    const std::string text = R"({"sourceSensorID":"","points":[],"interpolation":"linear"})";
    const auto decoded = json::decode<FanCurve>(text);
    ASSERT_TRUE(decoded.has_value());
    EXPECT_EQ(decoded->sourceSensorID, "");
    EXPECT_EQ(json::encode(*decoded), text);
}

TEST(FanCurve, pointsKeepTheirOrderAndTheirDuplicates) {
    const std::string text =
        R"({"points":[{"id":"11111111-2222-3333-4444-55555555AAAA","celsius":90,"percent":-5},)"
        R"({"id":"11111111-2222-3333-4444-55555555AAAA","celsius":10,"percent":120},)"
        R"({"id":"11111111-2222-3333-4444-55555555AAAA","celsius":90,"percent":3}],)"
        R"("interpolation":"linear"})";
    EXPECT_EQ(json::encode(json::decode<FanCurve>(text).value()), text);
}

TEST(FanCurve, aPointThatIsNotFiniteHasNoJSONForm) {
    FanCurve broken = curve;
    broken.points.push_back({.id = {}, .celsius = notANumber, .percent = 0});
    EXPECT_EQ(json::encode(broken).error(),
              (json::EncodingError{"points[1].celsius",
                                   "A number that is not finite has no JSON form."}));
}

TEST(FanCurve, everyFieldCountsForEquality) {
    tests::expectEveryFieldCounts(
        curve, [](FanCurve& other) { other.sourceSensorID.reset(); },
        [](FanCurve& other) { other.sourceSensorID = "smc-Tp0T"; },
        [](FanCurve& other) { other.points[0].percent = 1; },
        [](FanCurve& other) { other.points.push_back(point); },
        [](FanCurve& other) { other.interpolation = CurveInterpolation::linear; });
}

}  // namespace airflow::plan
