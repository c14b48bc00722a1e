#include <gtest/gtest.h>

#include "plan/FanControlModePlan.h"
#include "plan/RecordChecks.h"

namespace airflow::plan {

namespace {

using Mode = FanControlModePlan;

const FanCurve emptyCurve{};
constexpr std::string_view emptyCurveText = R"({"points":[],"interpolation":"linear"})";

std::string curveText(std::string_view payload) {
    return R"({"curve":{"_0":)" + std::string(payload) + "}}";
}

}  // namespace

TEST(FanControlModePlan, everyCaseIsRead) {
    EXPECT_EQ(json::decode<Mode>(R"({"fixedRPM":{"_0":1800}})"), Mode::fixedRPM(1800));
    EXPECT_EQ(json::decode<Mode>(R"({"fixedPercent":{"_0":55}})"), Mode::fixedPercent(55));
    EXPECT_EQ(json::decode<Mode>(curveText(emptyCurveText)), Mode::curve(emptyCurve));
    EXPECT_EQ(json::decode<Mode>(R"({"automatic":{}})"), Mode::automatic());
}

TEST(FanControlModePlan, everyCaseIsWritten) {
    EXPECT_EQ(json::encode(Mode::fixedRPM(1800)), R"({"fixedRPM":{"_0":1800}})");
    EXPECT_EQ(json::encode(Mode::fixedPercent(55)), R"({"fixedPercent":{"_0":55}})");
    EXPECT_EQ(json::encode(Mode::curve(emptyCurve)), curveText(emptyCurveText));
    EXPECT_EQ(json::encode(Mode::automatic()), R"({"automatic":{}})");
}

TEST(FanControlModePlan, casesAreDeclaredInTheOrderOfTheDocument) {
    EXPECT_EQ(Mode::fixedRPM(1).mode.index(), 0u);
    EXPECT_EQ(Mode::fixedPercent(1).mode.index(), 1u);
    EXPECT_EQ(Mode::curve({}).mode.index(), 2u);
    EXPECT_EQ(Mode::automatic().mode.index(), 3u);
}

TEST(FanControlModePlan, onlyTheAutomaticCaseIsAutomatic) {
    EXPECT_TRUE(Mode::automatic().isAutomatic());
    EXPECT_TRUE(Mode{}.isAutomatic());
    EXPECT_FALSE(Mode::fixedRPM(0).isAutomatic());
    EXPECT_FALSE(Mode::fixedPercent(0).isAutomatic());
    EXPECT_FALSE(Mode::curve({}).isAutomatic());
}

TEST(FanControlModePlan, withAnyNumberOfCasesButOneIsRefused) {
    const json::DecodingError invalid{"", "Invalid number of keys found, expected one.",
                                      std::nullopt};
    EXPECT_EQ(tests::errorOf<Mode>("{}"), invalid);
    EXPECT_EQ(tests::errorOf<Mode>(R"({"automatic":{},"fixedRPM":{"_0":1}})"), invalid);
    EXPECT_EQ(tests::errorOf<Mode>(R"({"fixedPercent":{"_0":1},"fixedRPM":{"_0":1}})"), invalid);
    EXPECT_EQ(tests::errorOf<Mode>(R"({"automatic":{},"fixedRPM":{"_0":1},"curve":{}})"), invalid);
    EXPECT_EQ(tests::errorOf<Mode>(R"({"turbo":{}})"), invalid);
    EXPECT_EQ(tests::errorOf<Mode>(R"({"fixedRpm":{"_0":1}})"), invalid);
    EXPECT_EQ(tests::errorOf<Mode>(R"({"Automatic":{}})"), invalid);
    EXPECT_EQ(tests::errorOf<Mode>(R"({"":{}})"), invalid);
}

TEST(FanControlModePlan, casesAreCountedWhateverTheyHold) {
    EXPECT_EQ(tests::errorOf<Mode>(R"({"automatic":null,"fixedRPM":{"_0":1}})").description,
              "Invalid number of keys found, expected one.");
}

TEST(FanControlModePlan, keysThatAreNoCaseNamesAreNotCounted) {
    EXPECT_EQ(json::decode<Mode>(R"({"note":"x","fixedRPM":{"_0":1},"turbo":{}})"),
              Mode::fixedRPM(1));
}

TEST(FanControlModePlan, unknownKeysInsideACaseAreIgnored) {
    EXPECT_EQ(json::decode<Mode>(R"({"fixedRPM":{"_1":2,"_0":1,"note":[]}})"), Mode::fixedRPM(1));
    EXPECT_EQ(json::decode<Mode>(R"({"automatic":{"_0":1}})"), Mode::automatic());
}

TEST(FanControlModePlan, theLastOfTwoEqualCasesCounts) {
    EXPECT_EQ(json::decode<Mode>(R"({"fixedRPM":{"_0":1},"fixedRPM":{"_0":2}})"),
              Mode::fixedRPM(2));
}

TEST(FanControlModePlan, everyCaseHoldsAnObject) {
    for (const std::string name : {"fixedRPM", "fixedPercent", "curve", "automatic"}) {
        for (const tests::Kind& kind : tests::kinds()) {
            if (kind.name == "an object") continue;
            const std::string reason = "Expected an object but found " + kind.name + ".";
            EXPECT_EQ(tests::errorOf<Mode>("{\"" + name + "\":" + kind.value + "}"),
                      (json::DecodingError{name, reason, std::nullopt}));
        }
    }
}

TEST(FanControlModePlan, everyPayloadIsRequired) {
    for (const std::string name : {"fixedRPM", "fixedPercent", "curve"}) {
        EXPECT_EQ(tests::errorOf<Mode>("{\"" + name + "\":{\"_1\":1}}"),
                  (json::DecodingError{name, "The required key \"_0\" is missing.", std::nullopt}));
    }
}

TEST(FanControlModePlan, everyPayloadOfAnotherTypeIsRefused) {
    for (const tests::Kind& kind : tests::kinds()) {
        const std::string found = " but found " + kind.name + ".";
        for (const std::string name : {"fixedRPM", "fixedPercent"}) {
            if (kind.name == "a number") continue;
            EXPECT_EQ(
                tests::errorOf<Mode>("{\"" + name + "\":{\"_0\":" + kind.value + "}}"),
                (json::DecodingError{name + "._0", "Expected a number" + found, std::nullopt}));
        }
        if (kind.name == "an object") continue;
        EXPECT_EQ(tests::errorOf<Mode>(curveText(kind.value)),
                  (json::DecodingError{"curve._0", "Expected an object" + found, std::nullopt}));
    }
    EXPECT_EQ(
        tests::errorOf<Mode>(curveText("{}")),
        (json::DecodingError{"curve._0", "The required key \"points\" is missing.", std::nullopt}));
}

TEST(FanControlModePlan, isAlwaysAnObject) {
    tests::expectOtherTypesAreNoRecord<Mode>();
}

TEST(FanControlModePlan, numbersOutsideTheFansRangeAreCarriedAsTheyAre) {
    for (const std::string text :
         {R"({"fixedPercent":{"_0":150}})", R"({"fixedPercent":{"_0":-20.5}})",
          R"({"fixedRPM":{"_0":-1}})", R"({"fixedRPM":{"_0":1e+100}})"}) {
        EXPECT_EQ(json::encode(json::decode<Mode>(text).value()), text);
    }
}

TEST(FanControlModePlan, caseAndPayloadCountForEquality) {
    EXPECT_EQ(Mode::fixedRPM(1), Mode::fixedRPM(1));
    EXPECT_NE(Mode::fixedRPM(1), Mode::fixedRPM(2));
    EXPECT_NE(Mode::fixedRPM(1), Mode::fixedPercent(1));
    EXPECT_NE(Mode::fixedPercent(1), Mode::fixedPercent(2));
    EXPECT_NE(Mode::curve({}), Mode::automatic());
    EXPECT_NE(Mode::curve({}), Mode::curve({.sourceSensorID = "x", .points = {}}));
    EXPECT_EQ(Mode::automatic(), Mode::automatic());
}

}  // namespace airflow::plan
