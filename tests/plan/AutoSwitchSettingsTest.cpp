#include <gtest/gtest.h>

#include "plan/AutoSwitchSettings.h"
#include "plan/RecordChecks.h"

namespace airflow::plan {

namespace {

const std::vector<tests::Member> members = {
    {"enabled", "true", "a boolean"},
    {"onBatteryPresetID", "\"11111111-2222-3333-4444-55555555AAAA\"", "a string", true},
    {"onACPresetID", "\"11111111-2222-3333-4444-55555555BBBB\"", "a string", true}};

const AutoSwitchSettings settings{
    .enabled = true,
    .onBatteryPresetID = tests::uuid("11111111-2222-3333-4444-55555555AAAA"),
    .onACPresetID = tests::uuid("11111111-2222-3333-4444-55555555BBBB")};

}  // namespace

TEST(AutoSwitchSettings, offIsDisabledAndChoosesNothing) {
    const AutoSwitchSettings off = AutoSwitchSettings::off();
    EXPECT_FALSE(off.enabled);
    EXPECT_EQ(off.onBatteryPresetID, std::nullopt);
    EXPECT_EQ(off.onACPresetID, std::nullopt);
}

TEST(AutoSwitchSettings, followsTheRulesOfRecords) {
    tests::expectRecordRules<AutoSwitchSettings>(members);
}

TEST(AutoSwitchSettings, everyKeyReachesItsField) {
    EXPECT_EQ(json::decode<AutoSwitchSettings>(tests::objectOf(members)), settings);
}

TEST(AutoSwitchSettings, isWrittenInDeclarationOrder) {
    EXPECT_EQ(json::encode(settings),
              R"({"enabled":true,"onBatteryPresetID":"11111111-2222-3333-4444-55555555AAAA",)"
              R"("onACPresetID":"11111111-2222-3333-4444-55555555BBBB"})");
}

TEST(AutoSwitchSettings, whatIsAbsentIsNotWritten) {
    EXPECT_EQ(json::encode(AutoSwitchSettings::off()), R"({"enabled":false})");
    AutoSwitchSettings mains = settings;
    mains.onBatteryPresetID.reset();
    EXPECT_EQ(json::encode(mains),
              R"({"enabled":true,"onACPresetID":"11111111-2222-3333-4444-55555555BBBB"})");
}

TEST(AutoSwitchSettings, nullIsAbsent) {
    EXPECT_EQ(json::decode<AutoSwitchSettings>(
                  R"({"enabled":false,"onBatteryPresetID":null,"onACPresetID":null})"),
              AutoSwitchSettings::off());
}

TEST(AutoSwitchSettings, withAMalformedIdentifierIsRefused) {
    EXPECT_EQ(
        tests::errorOf<AutoSwitchSettings>(R"({"enabled":true,"onACPresetID":"none"})"),
        (json::DecodingError{"onACPresetID", "Expected a UUID of 36 characters.", std::nullopt}));
}

TEST(AutoSwitchSettings, everyFieldCountsForEquality) {
    tests::expectEveryFieldCounts(
        settings, [](AutoSwitchSettings& other) { other.enabled = false; },
        [](AutoSwitchSettings& other) { other.onBatteryPresetID.reset(); },
        [](AutoSwitchSettings& other) { other.onACPresetID.reset(); },
        [](AutoSwitchSettings& other) { other.onACPresetID = other.onBatteryPresetID; });
}

}  // namespace airflow::plan
