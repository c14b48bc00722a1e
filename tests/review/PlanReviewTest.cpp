#include <set>

#include "Documents.h"

namespace airflow::review {
namespace {

using json::Position;

TEST(PlanReview, handsOutThePlanThatItDecoded) {
    const auto review = reviewPlan(planOf(fanWith(rpmMode("2400"), "3")));
    ASSERT_TRUE(review.plan);
    EXPECT_EQ(review.plan->fans.at(0).fanID, 3);
    EXPECT_TRUE(review.findings.empty());
}

TEST(PlanReview, ofATextThatIsNoJSONSaysWhereItBreaks) {
    const auto review = reviewPlan("{\"fans\": [],\n \"rules\": ]}");
    EXPECT_FALSE(review.plan);
    ASSERT_EQ(review.findings.size(), 1u);
    const Finding& finding = review.findings[0];
    EXPECT_EQ(finding.identifier(), "malformed-json");
    EXPECT_EQ(finding.severity(), Severity::error);
    EXPECT_EQ(finding.pointer, "");
    EXPECT_EQ(finding.position, (Position{2, 11}));
    EXPECT_THAT(finding.reason, testing::HasSubstr("unexpected ']'"));
}

TEST(PlanReview, ofATextThatIsTooLongHasNoPlace) {
    const auto review = reviewPlan(std::string(1024 * 1024 + 1, ' '));
    ASSERT_EQ(review.findings.size(), 1u);
    EXPECT_EQ(review.findings[0].identifier(), "malformed-json");
    EXPECT_EQ(review.findings[0].position, std::nullopt);
}

TEST(PlanReview, ofAValueThatIsWrongSaysWhichAndWhere) {
    const auto review = reviewPlan("{\"fans\": [\n  {\"fanID\": 0,\n   \"mode\": {}}]}");
    EXPECT_FALSE(review.plan);
    ASSERT_EQ(review.findings.size(), 1u);
    const Finding& finding = review.findings[0];
    EXPECT_EQ(finding.identifier(), "not-a-plan");
    EXPECT_EQ(finding.severity(), Severity::error);
    EXPECT_EQ(finding.pointer, "/fans/0/mode");
    EXPECT_EQ(finding.position, (Position{3, 12}));
    EXPECT_EQ(finding.reason, "fans[0].mode: Invalid number of keys found, expected one.");
}

TEST(PlanReview, ofADocumentThatIsNoObjectPointsToTheRoot) {
    const auto review = reviewPlan("\n [1]");
    ASSERT_EQ(review.findings.size(), 1u);
    EXPECT_EQ(review.findings[0].pointer, "");
    EXPECT_EQ(review.findings[0].position, (Position{2, 2}));
    EXPECT_EQ(review.findings[0].reason, "Expected an object but found an array.");
}

TEST(PlanReview, ofAMissingKeyPointsToTheObjectThatLacksIt) {
    const auto review = reviewPlan(planOf(R"({"mode":{"automatic":{}}})"));
    ASSERT_EQ(review.findings.size(), 1u);
    EXPECT_EQ(review.findings[0].pointer, "/fans/0");
    EXPECT_EQ(review.findings[0].position, (Position{1, 10}));
}

TEST(PlanReview, ofAPlanSaysEverythingInTheOrderOfTheText) {
    EXPECT_EQ(found(planOf(fanWith(percentMode("120"), "12"),
                           RuleText{.above = 99, .percent = 0, .enabled = false},
                           R"("emaAlpha":0,)"
                           R"("hysteresisCelsius":2,"maxDeltaRPMPerTick":0,"minDwellSeconds":3)")),
              (Found{"fan-out-of-range /fans/0/fanID",
                     "percent-out-of-range /fans/0/mode/fixedPercent/_0",
                     "rule-beyond-ceiling /rules/0/thresholdCelsius",
                     "rule-stops-fans /rules/0/targetPercent", "rule-disabled /rules/0/enabled",
                     "smoothing-not-positive /tuning/emaAlpha",
                     "rate-limit-not-positive /tuning/maxDeltaRPMPerTick"}));
}

TEST(PlanReview, aFindingStandsWhereItsValueDoes) {
    const auto review = reviewPlan(
        "{\"fans\": [],\n \"rules\": [],\n \"tuning\": {\"emaAlpha\": 0,"
        "\n  \"hysteresisCelsius\": 2, \"maxDeltaRPMPerTick\": 400,\n"
        "  \"minDwellSeconds\":\n   7}}");
    ASSERT_EQ(review.findings.size(), 2u);
    EXPECT_EQ(review.findings[0].position, (Position{3, 25}));
    EXPECT_EQ(review.findings[1].position, (Position{6, 4}));
}

TEST(PlanReview, aPlanOfManyEntriesIsReviewedInOneGo) {
    std::string fans = goodFan("10");
    for (int i = 1; i < 4000; ++i) fans += "," + goodFan("10");
    EXPECT_EQ(found(planOf(fans)).size(), 4000u + 3999u);
}

TEST(Findings, haveIdentifiersOfTheirOwn) {
    std::set<std::string_view> identifiers;
    for (const SubjectDescription& description : subjects()) {
        EXPECT_TRUE(identifiers.insert(description.identifier).second) << description.identifier;
        EXPECT_EQ(description.identifier.find_first_not_of("abcdefghijklmnopqrstuvwxyz-"),
                  std::string_view::npos)
            << description.identifier;
    }
}

TEST(Findings, ofTheDecoderAreErrorsAndHarmlessOnesNotes) {
    const auto severityOf = [](Subject subject) { return Finding{.subject = subject}.severity(); };
    EXPECT_EQ(severityOf(Subject::unreadableFile), Severity::error);
    EXPECT_EQ(severityOf(Subject::unknownKey), Severity::warning);
    EXPECT_EQ(severityOf(Subject::unreadValue), Severity::note);
    EXPECT_EQ(nameOf(Severity::error), "error");
    EXPECT_EQ(nameOf(Severity::warning), "warning");
    EXPECT_EQ(nameOf(Severity::note), "note");
}

TEST(Findings, haveAJSONForm) {
    const Finding finding{.subject = Subject::fixedZero,
                          .pointer = "/a",
                          .position = Position{3, 4},
                          .reason = "R.",
                          .advice = "A."};
    EXPECT_EQ(json::encode(finding).value(),
              R"({"severity":"warning","identifier":"fixed-zero","pointer":"/a","line":3,)"
              R"("column":4,"reason":"R.","advice":"A."})");
}

TEST(Findings, withoutAPlaceHaveNoLineInJSON) {
    const Finding finding{.subject = Subject::unreadableFile,
                          .pointer = "",
                          .position = {},
                          .reason = "R.",
                          .advice = "A."};
    EXPECT_EQ(json::encode(finding).value(),
              R"({"severity":"error","identifier":"unreadable-file","pointer":"","reason":"R.",)"
              R"("advice":"A."})");
}

}  // namespace
}  // namespace airflow::review
