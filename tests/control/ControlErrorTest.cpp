#include <gtest/gtest.h>

#include <ostream>

#include "control/ControlError.h"

namespace airflow::control {
namespace {

struct Told {
    const char* name;
    ControlError error;
    std::string text;
    bool isSafetyRelease;

    friend void PrintTo(const Told& told, std::ostream* out) { *out << told.name; }
};

NotRestored refused(const std::string& key, std::uint8_t code) {
    return {{{.key = key, .answer = code}}};
}
NotRestored failedWith(const std::string& key, const smc::SMCError& error) {
    return {{{.key = key, .answer = std::unexpected(error)}}};
}

const Told all[]{
    {"aRefusal", refused("F0Md", 0x86), "failed to restore Auto: F0Md=0 rejected (SMC 0x86)",
     false},
    {"theLowestRefusal", refused("F9md", 1), "failed to restore Auto: F9md=0 rejected (SMC 0x1)",
     false},
    {"theHighestRefusal", refused("Ftst", 255),
     "failed to restore Auto: Ftst=0 rejected (SMC 0xff)", false},
    {"aFailedCall", failedWith("F1Md", smc::SMCError::ioReturn("IOConnectCall", 0xE00002BC)),
     "failed to restore Auto: F1Md=0 failed (IOConnectCall failed: kern_return_t=0xe00002bc)",
     false},
    {"aMissingPrivilege", failedWith("F1Md", smc::SMCError::notPrivileged()),
     "failed to restore Auto: F1Md=0 failed (not privileged (root required) for this SMC call)",
     false},
    {"aWithheldWrite", failedWith("F1Md", smc::SMCError::withheld()),
     "failed to restore Auto: F1Md=0 failed (withheld while the fans are given back)", false},
    {"severalRefusals",
     NotRestored{{{.key = "F1Md", .answer = std::uint8_t{0x82}},
                  {.key = "F0Md", .answer = std::uint8_t{0x86}}}},
     "failed to restore Auto: F1Md=0 rejected (SMC 0x82); F0Md=0 rejected (SMC 0x86)", false},
    {"heat", CeilingExceeded{95.0}, "thermal ceiling 95°C exceeded — released to Auto", true},
    {"heatWithAFraction", CeilingExceeded{96.999},
     "thermal ceiling 96°C exceeded — released to Auto", true},
    {"heatBeyondReason", CeilingExceeded{1e6},
     "thermal ceiling 1000000°C exceeded — released to Auto", true},
    {"noTemperaturesOnce", TemperaturesMissing{.snapshots = 1, .limit = 2},
     "temperature data unavailable (1/2)", false},
    {"noTemperaturesShortOfTheLimit", TemperaturesMissing{.snapshots = 4, .limit = 5},
     "temperature data unavailable (4/5)", false},
    {"noTemperaturesAtTheLimit", TemperaturesMissing{.snapshots = 2, .limit = 2},
     "temperature data unavailable — released to Auto", true},
    {"noTemperaturesBeyondTheLimit", TemperaturesMissing{.snapshots = 3, .limit = 2},
     "temperature data unavailable — released to Auto", true},
    {"noHeartbeat", HeartbeatLost{}, "no heartbeat for >15s — released to Auto", true},
    {"overdueChecks", ChecksOverdue{}, "safety checks overdue — released to Auto", true},
    {"anUnattendedFan", FanUnattended{}, "a fan was forced unattended — released to Auto", true},
    {"aReclaimedFan", Reclaimed{{3}}, "reclaimed: fan(s) [3] reverted to mode 3", false},
    {"reclaimedFans", Reclaimed{{0, 1, 9}}, "reclaimed: fan(s) [0, 1, 9] reverted to mode 3",
     false},
    {"aRejectedPlan", PlanIncomplete{ControlResult::rejected(134)},
     "applyPlan: rejected(code: 134)", false},
    {"aPlanThatTimedOut", PlanIncomplete{ControlResult::timedOut()}, "applyPlan: timedOut", false},
    {"aFailedPlan", PlanIncomplete{ControlResult::failed("no \"F0Md\"")},
     "applyPlan: failed(\"no \\\"F0Md\\\"\")", false},
};

class EveryControlError : public testing::TestWithParam<Told> {};

TEST_P(EveryControlError, hasItsText) {
    EXPECT_EQ(description(GetParam().error), GetParam().text);
}

TEST_P(EveryControlError, isASafetyReleaseOrNot) {
    EXPECT_EQ(isSafetyRelease(GetParam().error), GetParam().isSafetyRelease);
}

INSTANTIATE_TEST_SUITE_P(Table, EveryControlError, testing::ValuesIn(all),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(ControlErrors, areAllInTheTable) {
    std::vector<bool> isThere(std::variant_size_v<ControlError>);
    for (const Told& told : all) isThere[told.error.index()] = true;
    EXPECT_EQ(std::ranges::count(isThere, false), 0);
}

TEST(ControlErrors, areEqualWhenTheirKindsAndValuesAre) {
    EXPECT_EQ(ControlError{CeilingExceeded{97}}, ControlError{CeilingExceeded{97}});
    EXPECT_NE(ControlError{CeilingExceeded{97}}, ControlError{CeilingExceeded{97.5}});
    EXPECT_NE(ControlError{HeartbeatLost{}}, ControlError{ChecksOverdue{}});
    EXPECT_EQ(ControlError{refused("F0Md", 1)}, ControlError{refused("F0Md", 1)});
    EXPECT_NE(ControlError{refused("F0Md", 1)}, ControlError{refused("F0Md", 2)});
    EXPECT_NE(ControlError{refused("F0Md", 1)}, ControlError{refused("F1Md", 1)});
    EXPECT_NE(ControlError{Reclaimed{{0}}}, ControlError{Reclaimed{{1}}});
    EXPECT_NE(ControlError{PlanIncomplete{ControlResult::timedOut()}},
              ControlError{PlanIncomplete{ControlResult::rejected(255)}});
}

}  // namespace
}  // namespace airflow::control
