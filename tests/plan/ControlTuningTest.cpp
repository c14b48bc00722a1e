#include <gtest/gtest.h>

#include "plan/ControlTuning.h"
#include "plan/RecordChecks.h"

namespace airflow::plan {

namespace {

const std::vector<tests::Member> members = {{"emaAlpha", "0.25", "a number"},
                                            {"hysteresisCelsius", "1.5", "a number"},
                                            {"maxDeltaRPMPerTick", "250", "a number"},
                                            {"minDwellSeconds", "7", "a number"}};

}  // namespace

TEST(ControlTuning, standardValuesAreWrittenOut) {
    const ControlTuning tuning = ControlTuning::defaults();
    EXPECT_EQ(tuning.emaAlpha, 0.3);
    EXPECT_EQ(tuning.hysteresisCelsius, 2.0);
    EXPECT_EQ(tuning.maxDeltaRPMPerTick, 400.0);
    EXPECT_EQ(tuning.minDwellSeconds, 3.0);
}

TEST(ControlTuning, followsTheRulesOfRecords) {
    tests::expectRecordRules<ControlTuning>(members);
}

TEST(ControlTuning, everyKeyReachesItsField) {
    EXPECT_EQ(json::decode<ControlTuning>(tests::objectOf(members)),
              (ControlTuning{.emaAlpha = 0.25,
                             .hysteresisCelsius = 1.5,
                             .maxDeltaRPMPerTick = 250,
                             .minDwellSeconds = 7}));
}

TEST(ControlTuning, noKeyIsFilledInFromTheStandardValues) {
    EXPECT_EQ(tests::errorOf<ControlTuning>("{}").description,
              "The required key \"emaAlpha\" is missing.");
}

TEST(ControlTuning, isWrittenInDeclarationOrder) {
    EXPECT_EQ(json::encode(ControlTuning::defaults()),
              R"({"emaAlpha":0.3,"hysteresisCelsius":2,"maxDeltaRPMPerTick":400,)"
              R"("minDwellSeconds":3})");
}

TEST(ControlTuning, whatNothingReadsSurvivesUnchanged) {
    const std::string text =
        R"({"emaAlpha":0,"hysteresisCelsius":-17.25,"maxDeltaRPMPerTick":-1,"minDwellSeconds":1e+30})";
    const auto tuning = json::decode<ControlTuning>(text);
    ASSERT_TRUE(tuning.has_value());
    EXPECT_EQ(tuning->hysteresisCelsius, -17.25);
    EXPECT_EQ(tuning->minDwellSeconds, 1e30);
    EXPECT_EQ(json::encode(*tuning), text);
}

TEST(ControlTuning, everyFieldCountsForEquality) {
    tests::expectEveryFieldCounts(
        ControlTuning::defaults(), [](ControlTuning& tuning) { tuning.emaAlpha = 9; },
        [](ControlTuning& tuning) { tuning.hysteresisCelsius = 9; },
        [](ControlTuning& tuning) { tuning.maxDeltaRPMPerTick = 9; },
        [](ControlTuning& tuning) { tuning.minDwellSeconds = 9; });
}

}  // namespace airflow::plan
