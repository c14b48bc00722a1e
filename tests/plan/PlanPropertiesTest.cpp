// What holds for every plan document, whatever it says, and for every text that is none.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>

#include "json/Texts.h"
#include "support/PlanGenerators.h"

namespace airflow::plan {

namespace {

/// Read back, a record is the same; written again, so is its text.
template <typename Record>
void checkRoundTrip(const Record& record) {
    const auto text = json::encode(record);
    RC_ASSERT(text.has_value());
    const auto decoded = json::decode<Record>(*text);
    RC_ASSERT(decoded.has_value());
    RC_ASSERT(*decoded == record);
    RC_ASSERT(json::encode(*decoded).value() == *text);
}

/// A text is a plan, which survives, or is refused with a place and a short reason.
void checkAnswer(const std::string& text) {
    const auto plan = json::decode<FanControlPlan>(text);
    RC_TAG(plan ? "a plan" : plan.error().position ? "malformed" : "not a plan");
    if (plan) return checkRoundTrip(*plan);
    const json::DecodingError& error = plan.error();
    RC_ASSERT(!error.description.empty());
    RC_ASSERT(error.description.size() < 200u);
    RC_ASSERT(error.codingPath.size() < 200u);
    RC_ASSERT(json::tests::isUTF8(error.describe("plan.json")));
    if (!error.position) return;
    const auto lines = static_cast<std::size_t>(std::ranges::count(text, '\n')) + 1;
    RC_ASSERT(error.codingPath.empty());
    RC_ASSERT(error.position->line >= 1u && error.position->line <= lines);
    RC_ASSERT(error.position->column >= 1u && error.position->column <= text.size() + 1);
}

struct Edit {
    std::size_t at = 0;
    std::size_t length = 0;
    std::string replacement;
};

/// Replaces a few bytes anywhere by nothing, a byte, a piece of JSON, or a piece of the text
/// itself.
void apply(const Edit& edit, std::string& text) {
    const std::size_t at = text.empty() ? 0 : edit.at % (text.size() + 1);
    text.replace(at, std::min(edit.length, text.size() - at), edit.replacement);
}

rc::Gen<std::string> replacements() {
    return rc::gen::oneOf(
        rc::gen::just(std::string()),
        rc::gen::map(rc::gen::resize(rc::kNominalSize, rc::gen::arbitrary<std::uint8_t>()),
                     [](std::uint8_t byte) { return std::string(1, static_cast<char>(byte)); }),
        rc::gen::element<std::string>("{", "}", "[", "]", ",", ":", "\"", "\\", "-", ".", "e9",
                                      "null", "true", "{}", "[]", "\"\"", "0", "1.5", "1e400",
                                      "\"_0\":", "\"id\":", "\"all\":{},", "\\u0000", "\\uD800"));
}

rc::Gen<Edit> edits() {
    return rc::gen::map(
        rc::gen::tuple(rc::gen::inRange<std::size_t>(0, 4000),
                       rc::gen::element<std::size_t>(0, 0, 1, 1, 2, 5, 40), replacements()),
        [](const std::tuple<std::size_t, std::size_t, std::string>& parts) {
            return Edit{std::get<0>(parts), std::get<1>(parts), std::get<2>(parts)};
        });
}

}  // namespace

RC_GTEST_PROP(PlanProperties, aUUIDSurvives, (const UUID& uuid)) {
    checkRoundTrip(uuid);
    RC_ASSERT(UUID::parse(uuid.text()) == std::optional(uuid));
}

RC_GTEST_PROP(PlanProperties, aCurvePointSurvives, (const CurvePoint& point)) {
    checkRoundTrip(point);
}

RC_GTEST_PROP(PlanProperties, aFanCurveSurvives, (const FanCurve& curve)) {
    checkRoundTrip(curve);
}

RC_GTEST_PROP(PlanProperties, aModeSurvives, (const FanControlModePlan& mode)) {
    checkRoundTrip(mode);
}

RC_GTEST_PROP(PlanProperties, aFanPlanSurvives, (const FanPlan& fan)) {
    checkRoundTrip(fan);
}

RC_GTEST_PROP(PlanProperties, aRuleTargetSurvives, (const RuleFanTarget& target)) {
    checkRoundTrip(target);
}

RC_GTEST_PROP(PlanProperties, aFanRuleSurvives, (const FanRule& rule)) {
    checkRoundTrip(rule);
}

RC_GTEST_PROP(PlanProperties, aTuningSurvives, (const ControlTuning& tuning)) {
    checkRoundTrip(tuning);
}

RC_GTEST_PROP(PlanProperties, aPlanSurvives, (const FanControlPlan& plan)) {
    checkRoundTrip(plan);
}

RC_GTEST_PROP(PlanProperties, aPresetSurvives, (const FanPreset& preset)) {
    checkRoundTrip(preset);
}

RC_GTEST_PROP(PlanProperties, autoSwitchSettingsSurvive, (const AutoSwitchSettings& settings)) {
    checkRoundTrip(settings);
}

RC_GTEST_PROP(PlanProperties, randomBytesAreRefusedWithAPlace,
              (const std::vector<std::uint8_t>& bytes)) {
    checkAnswer(std::string(bytes.begin(), bytes.end()));
}

RC_GTEST_PROP(PlanProperties, aChangedDocumentIsAPlanOrRefusedWithAPlace,
              (const FanControlPlan& plan)) {
    std::string text = json::encode(plan).value();
    for (const Edit& edit : *airflow::tests::fewOf(edits())) apply(edit, text);
    checkAnswer(text);
}

RC_GTEST_PROP(PlanProperties, aDocumentCutShortIsRefusedAtItsEnd, (const FanControlPlan& plan)) {
    const std::string text = json::encode(plan).value();
    const std::string cut = text.substr(0, *rc::gen::inRange<std::size_t>(0, text.size()));
    const auto result = json::decode<FanControlPlan>(cut);
    RC_ASSERT(!result.has_value());
    RC_ASSERT(result.error().position.has_value());
    RC_ASSERT(result.error().position->line == 1u);  // documents are written on one line
    RC_ASSERT(result.error().position->column == cut.size() + 1);
}

}  // namespace airflow::plan
