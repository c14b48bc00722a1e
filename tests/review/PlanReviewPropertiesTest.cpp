#include <rapidcheck/gtest.h>

#include "json/Places.h"
#include "review/PlanReview.h"
#include "support/PlanGenerators.h"

namespace airflow::review {
namespace {

const Machine machine{
    .name = "it", .fans = {{0, {.minRPM = 1200, .maxRPM = 6000}}}, .sensorIDs = {"SMC-TCMz"}};

void checkFindings(const std::string& text, const PlanReview& review) {
    json::Document document;
    const bool isJSON = document.parse(text).has_value();
    json::Places places(document, isJSON ? text : "");
    json::Position last;
    for (const Finding& finding : review.findings) {
        if (isJSON) RC_ASSERT(places.find(finding.pointer).has_value());
        if (isJSON) RC_ASSERT(finding.position.has_value());
        const auto position = finding.position.value_or(last);
        RC_ASSERT(std::pair(position.line, position.column) >= std::pair(last.line, last.column));
        last = position;
        RC_ASSERT(finding.reason.ends_with('.') || !review.plan);
        RC_ASSERT(finding.advice.ends_with('.') || finding.advice.ends_with('?'));
        RC_ASSERT(json::encode(finding).has_value());
    }
}

RC_GTEST_PROP(PlanReviewProperties, everyPlanIsReviewedAndEveryPointerNamesAValue,
              (const plan::FanControlPlan& plan)) {
    const std::string text = json::encode(plan).value();
    const PlanReview review = reviewPlan(text, &machine);
    RC_ASSERT(review.plan == plan);
    checkFindings(text, review);
}

RC_GTEST_PROP(PlanReviewProperties, aPlanWithForeignBytesIsReviewedToo,
              (const plan::FanControlPlan& plan)) {
    std::string text = json::encode(plan).value();
    const auto at = *rc::gen::inRange<std::size_t>(0, text.size());
    text[at] = *rc::gen::element('"', '{', ']', '0', 'x', '\n', '\\', '/', '~', '\0', '\xFF');
    checkFindings(text, reviewPlan(text, &machine));
}

RC_GTEST_PROP(PlanReviewProperties, aMachineOnlyAddsToWhatIsFound,
              (const plan::FanControlPlan& plan)) {
    const std::string text = json::encode(plan).value();
    const auto with = reviewPlan(text, &machine).findings;
    for (const Finding& finding : reviewPlan(text).findings) {
        RC_ASSERT(std::ranges::find(with, finding) != with.end());
    }
}

}  // namespace
}  // namespace airflow::review
