#include <gtest/gtest.h>

#include <limits>

#include "plan/FanRule.h"
#include "plan/RecordChecks.h"

namespace airflow::plan {

namespace {

const std::vector<tests::Member> members = {
    {"id", "\"11111111-2222-3333-4444-55555555AAAA\"", "a string"},
    {"name", "\"Hot spot\"", "a string"},
    {"sensorID", "\"smc-TC0P\"", "a string", true},
    {"thresholdCelsius", "95", "a number"},
    {"releaseBelowCelsius", "85.5", "a number"},
    {"targetPercent", "100", "a number"},
    {"fanTarget", R"({"fan":{"_0":1}})", "an object"},
    {"dwellSeconds", "5", "a number"},
    {"enabled", "true", "a boolean"}};

const FanRule rule{.id = tests::uuid("11111111-2222-3333-4444-55555555AAAA"),
                   .name = "Hot spot",
                   .sensorID = "smc-TC0P",
                   .thresholdCelsius = 95,
                   .releaseBelowCelsius = 85.5,
                   .targetPercent = 100,
                   .fanTarget = RuleFanTarget::fan(1),
                   .dwellSeconds = 5,
                   .enabled = true};

}  // namespace

TEST(RuleFanTarget, isOneFanOrAll) {
    EXPECT_EQ(json::decode<RuleFanTarget>(R"({"fan":{"_0":1}})"), RuleFanTarget::fan(1));
    EXPECT_EQ(json::decode<RuleFanTarget>(R"({"fan":{"_0":-3}})"), RuleFanTarget::fan(-3));
    EXPECT_EQ(json::decode<RuleFanTarget>(R"({"all":{}})"), RuleFanTarget::all());
    EXPECT_EQ(json::encode(RuleFanTarget::fan(1)), R"({"fan":{"_0":1}})");
    EXPECT_EQ(json::encode(RuleFanTarget::fan(0)), R"({"fan":{"_0":0}})");
    EXPECT_EQ(json::encode(RuleFanTarget::all()), R"({"all":{}})");
    EXPECT_NE(RuleFanTarget::fan(0), RuleFanTarget::all());
    EXPECT_NE(RuleFanTarget::fan(0), RuleFanTarget::fan(1));
}

TEST(RuleFanTarget, everyIndexOf64BitsIsCarried) {
    using Integers = std::numeric_limits<std::int64_t>;
    EXPECT_EQ(json::encode(RuleFanTarget::fan(Integers::max())),
              R"({"fan":{"_0":9223372036854775807}})");
    EXPECT_EQ(json::decode<RuleFanTarget>(R"({"fan":{"_0":-9223372036854775808}})"),
              RuleFanTarget::fan(Integers::min()));
}

TEST(RuleFanTarget, withAnyNumberOfCasesButOneIsRefused) {
    const json::DecodingError invalid{"", "Invalid number of keys found, expected one.",
                                      std::nullopt};
    EXPECT_EQ(tests::errorOf<RuleFanTarget>("{}"), invalid);
    EXPECT_EQ(tests::errorOf<RuleFanTarget>(R"({"fans":{"_0":1}})"), invalid);
    EXPECT_EQ(tests::errorOf<RuleFanTarget>(R"({"All":{}})"), invalid);
    EXPECT_EQ(tests::errorOf<RuleFanTarget>(R"({"fan":{"_0":1},"all":{}})"), invalid);
}

TEST(RuleFanTarget, unknownKeysAreIgnored) {
    EXPECT_EQ(json::decode<RuleFanTarget>(R"({"some":1,"fan":{"_1":2,"_0":1,"x":{}},"none":{}})"),
              RuleFanTarget::fan(1));
    EXPECT_EQ(json::decode<RuleFanTarget>(R"({"all":{"_0":7,"x":null}})"), RuleFanTarget::all());
}

TEST(RuleFanTarget, aWrongPayloadIsReported) {
    EXPECT_EQ(tests::errorOf<RuleFanTarget>(R"({"fan":{}})"),
              (json::DecodingError{"fan", "The required key \"_0\" is missing.", std::nullopt}));
    EXPECT_EQ(tests::errorOf<RuleFanTarget>(R"({"fan":1})"),
              (json::DecodingError{"fan", "Expected an object but found a number.", std::nullopt}));
    EXPECT_EQ(tests::errorOf<RuleFanTarget>(R"({"fan":null})"),
              (json::DecodingError{"fan", "Expected an object but found null.", std::nullopt}));
    EXPECT_EQ(
        tests::errorOf<RuleFanTarget>(R"({"fan":{"_0":null}})"),
        (json::DecodingError{"fan._0", "Expected a whole number but found null.", std::nullopt}));
    EXPECT_EQ(tests::errorOf<RuleFanTarget>(R"({"fan":{"_0":1.5}})"),
              (json::DecodingError{"fan._0", "The number 1.5 is not whole.", std::nullopt}));
    EXPECT_EQ(tests::errorOf<RuleFanTarget>(R"({"all":null})"),
              (json::DecodingError{"all", "Expected an object but found null.", std::nullopt}));
    EXPECT_EQ(tests::errorOf<RuleFanTarget>(R"({"all":[]})"),
              (json::DecodingError{"all", "Expected an object but found an array.", std::nullopt}));
}

TEST(RuleFanTarget, isAlwaysAnObject) {
    tests::expectOtherTypesAreNoRecord<RuleFanTarget>();
}

TEST(FanRule, followsTheRulesOfRecords) {
    tests::expectRecordRules<FanRule>(members);
}

TEST(FanRule, everyKeyReachesItsField) {
    EXPECT_EQ(json::decode<FanRule>(tests::objectOf(members)), rule);
}

TEST(FanRule, withAMalformedIdentifierIsRefused) {
    std::vector<tests::Member> malformed = members;
    malformed[0].value = "\"11111111-2222-3333-4444-55555555AAA\"";
    EXPECT_EQ(tests::errorOf<FanRule>(tests::objectOf(malformed)),
              (json::DecodingError{"id", "Expected a UUID of 36 characters.", std::nullopt}));
}

TEST(FanRule, withAnInvalidTargetIsReportedAtTheTarget) {
    std::vector<tests::Member> invalid = members;
    invalid[6].value = "{}";
    EXPECT_EQ(tests::errorOf<FanRule>(tests::objectOf(invalid)),
              (json::DecodingError{"fanTarget", "Invalid number of keys found, expected one.",
                                   std::nullopt}));
    invalid[6].value = R"({"fan":{"_0":"1"}})";
    EXPECT_EQ(tests::errorOf<FanRule>(tests::objectOf(invalid)),
              (json::DecodingError{"fanTarget.fan._0",
                                   "Expected a whole number but found a string.", std::nullopt}));
}

TEST(FanRule, isWrittenInDeclarationOrder) {
    EXPECT_EQ(json::encode(rule),
              R"({"id":"11111111-2222-3333-4444-55555555AAAA","name":"Hot spot",)"
              R"("sensorID":"smc-TC0P","thresholdCelsius":95,"releaseBelowCelsius":85.5,)"
              R"("targetPercent":100,"fanTarget":{"fan":{"_0":1}},"dwellSeconds":5,)"
              R"("enabled":true})");
}

TEST(FanRule, withoutASensorWritesNoKeyForIt) {
    EXPECT_EQ(json::encode(FanRule{}),
              R"({"id":"00000000-0000-0000-0000-000000000000","name":"","thresholdCelsius":0,)"
              R"("releaseBelowCelsius":0,"targetPercent":0,"fanTarget":{"all":{}},)"
              R"("dwellSeconds":0,"enabled":false})");
}

TEST(FanRule, valuesThatMakeNoSenseAreCarriedAsTheyAre) {
    const std::string text =
        R"({"id":"11111111-2222-3333-4444-55555555AAAA","name":"","sensorID":"",)"
        R"("thresholdCelsius":-400,"releaseBelowCelsius":1000,"targetPercent":-7.5,)"
        R"("fanTarget":{"fan":{"_0":-1}},"dwellSeconds":-60,"enabled":false})";
    EXPECT_EQ(json::encode(json::decode<FanRule>(text).value()), text);
}

TEST(FanRule, aNameMayBeAnyText) {
    FanRule named = rule;
    named.name = "\"Hei\xC3\x9F\" \\ \n \xF0\x9F\x94\xA5";
    const auto text = json::encode(named);
    ASSERT_TRUE(text.has_value());
    EXPECT_EQ(json::decode<FanRule>(*text), named);
    named.name = "\xC3";
    EXPECT_EQ(json::encode(named).error(),
              (json::EncodingError{"name", "A text that is not UTF-8 has no JSON form."}));
}

TEST(FanRule, everyFieldCountsForEquality) {
    tests::expectEveryFieldCounts(
        rule, [](FanRule& other) { other.id = UUID{}; }, [](FanRule& other) { other.name = ""; },
        [](FanRule& other) { other.sensorID.reset(); },
        [](FanRule& other) { other.thresholdCelsius = 1; },
        [](FanRule& other) { other.releaseBelowCelsius = 1; },
        [](FanRule& other) { other.targetPercent = 1; },
        [](FanRule& other) { other.fanTarget = RuleFanTarget::all(); },
        [](FanRule& other) { other.dwellSeconds = 1; },
        [](FanRule& other) { other.enabled = false; });
}

}  // namespace airflow::plan
