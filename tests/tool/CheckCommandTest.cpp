#include <gmock/gmock.h>

#include <array>

#include "ToolRun.h"

namespace airflow::tool {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* goodPlan =
    R"({"fans":[{"fanID":0,"mode":{"fixedRPM":{"_0":2400}}}],"rules":[],"tuning":)"
    R"({"emaAlpha":0.3,"hysteresisCelsius":2,"maxDeltaRPMPerTick":400,"minDwellSeconds":3}})";

TEST(CheckCommand, tellsWhatAGoodPlanWouldDo) {
    const auto run = runTool({"check", example("plans/curve-and-rules.json")});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(
        run.out,
        example("plans/curve-and-rules.json") +
            ": 2 fans, 2 rules\n"
            "  fan 0: curve on the hottest sensor: 52 °C → 0 %, 72 °C → 35 %, 92 °C → 80 %\n"
            "  fan 1: left to the firmware\n"
            "  rule 1: \"Long build\": all fans to 100 % once the hottest sensor has been above "
            "85 °C for 6 s, until below 70 °C\n"
            "  rule 2: \"Warm GPU\": fan 1 to 45 % once sensor SMC-TG0D has been above 66 °C "
            "for 3 s, until below 60 °C\n"
            "  tuning: newest reading weighs 0.3, curves move at most 400 RPM a tick\n");
}

TEST(CheckCommand, describesFixedModesDisabledRulesAndWhatItFound) {
    const ScratchFolder folder;
    const auto path = folder.write("odd.json", R"({"fans":[
        {"fanID":0,"mode":{"fixedRPM":{"_0":2400}}},
        {"fanID":1,"mode":{"fixedPercent":{"_0":12.5}}},
        {"fanID":2,"mode":{"curve":{"_0":{"points":[],"interpolation":"linear"}}}}],
        "rules":[{"id":"8A2F6C14-5E93-4B0D-A7C8-E1D49B3F2C55","name":"A\u001bB",
        "thresholdCelsius":90,"releaseBelowCelsius":95,"targetPercent":100,
        "fanTarget":{"fan":{"_0":7}},"dwellSeconds":0,"enabled":false}],
        "tuning":{"emaAlpha":0,"hysteresisCelsius":2,"maxDeltaRPMPerTick":400,"minDwellSeconds":3}})");
    const auto run = runTool({"check", path});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(
        run.out,
        path +
            ":4:52: warning: A curve without points asks for 0 % at any temperature: the fan is "
            "stopped. [curve-without-points]\n"
            "  Give the curve points, or leave the fan to the firmware: {\"automatic\": {}}.\n" +
            path +
            ":6:53: warning: 95 °C is not half a degree below the threshold: the rule lets go "
            "below 89.5 °C instead. [rule-release-too-high]\n"
            "  Write 89.5 or less; some degrees less keep the rule from switching often.\n" +
            path +
            ":7:34: warning: The rule does nothing: the plan does not list fan 7. "
            "[rule-for-unlisted-fan]\n"
            "  Add {\"fanID\": 7, \"mode\": {\"automatic\": {}}} to \"fans\": the rule then "
            "overrides the firmware.\n" +
            path +
            ":7:65: note: The rule is disabled and does nothing. [rule-disabled]\n"
            "  Write true to let it fire, or remove it.\n" +
            path +
            ":8:30: warning: With a weight of 0 for the newest reading, temperatures stay at their "
            "first reading. [smoothing-not-positive]\n"
            "  Write a number above 0 and up to 1, such as 0.3; 1 does not smooth at all.\n" +
            path +
            ": 3 fans, 1 rule\n"
            "  fan 0: 2400 RPM\n"
            "  fan 1: 12.5 % of its range\n"
            "  fan 2: a curve without points: 0 % at any temperature\n"
            "  rule 1: \"A\xEF\xBF\xBD"
            "B\" (disabled): fan 7 to 100 % once the hottest "
            "sensor has been above 90 °C for 0 s, until below 89.5 °C\n"
            "  tuning: newest reading weighs 0, curves move at most 400 RPM a tick\n");
}

TEST(CheckCommand, aPlanWithoutFansLeavesEverythingToTheFirmware) {
    const ScratchFolder folder;
    const auto path = folder.write("none.json", R"({"fans":[],"rules":[],"tuning":{"emaAlpha":1,)"
                                                R"("hysteresisCelsius":2,"maxDeltaRPMPerTick":400,)"
                                                R"("minDwellSeconds":3}})");
    EXPECT_EQ(runTool({"check", path}).out,
              path +
                  ": 0 fans, 0 rules\n"
                  "  no fans: everything is left to the firmware\n"
                  "  tuning: newest reading weighs 1, curves move at most 400 RPM a tick\n");
}

TEST(CheckCommand, aBadDocumentDoesNotHideTheGoodOnes) {
    const ScratchFolder folder;
    const auto good = folder.write("good.json", goodPlan);
    const auto run = runTool({"check", example("plans/broken/no-mode.json"), good});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.out, StartsWith(good + ": 1 fan, 0 rules\n"));
    EXPECT_EQ(run.err, example("plans/broken/no-mode.json") +
                           ":1:32: error: fans[0].mode: Invalid number of keys found, expected "
                           "one. [not-a-plan]\n"
                           "  Write what the format asks for: docs/formats.md shows every key.\n");
}

TEST(CheckCommand, aFileThatCannotBeReadIsAnError) {
    const ScratchFolder folder;
    const auto run = runTool({"check", "/no/such/plan.json", folder.path.string()});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              "/no/such/plan.json: error: It cannot be read: No such file or directory. "
              "[unreadable-file]\n"
              "  Name a file that you may read.\n" +
                  folder.path.string() +
                  ": error: It cannot be read: it is a folder. [unreadable-file]\n"
                  "  Name a file that you may read.\n");
}

TEST(CheckCommand, aFileOverOneMebibyteIsRefused) {
    const ScratchFolder folder;
    const std::string blanks(1024 * 1024 - std::string(goodPlan).size(), ' ');
    EXPECT_EQ(runTool({"check", folder.write("largest.json", goodPlan + blanks)}).status, 0);
    const auto run = runTool({"check", folder.write("larger.json", goodPlan + blanks + " ")});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, HasSubstr("1048576"));
}

struct Broken {
    const char* name;
    const char* error;  ///< after the path
};

void PrintTo(const Broken& broken, std::ostream* out) {
    *out << broken.name;
}

class BrokenExample : public testing::TestWithParam<Broken> {};

TEST_P(BrokenExample, isRefusedWithPlaceAndReason) {
    const auto path = example("plans/broken/" + std::string(GetParam().name) + ".json");
    const auto run = runTool({"check", path});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.err, StartsWith(path + GetParam().error));
}

constexpr std::array brokenExamples{
    Broken{"bad-uuid", ":1:31: error: rules[0].id: Expected a UUID of 36 characters."},
    Broken{"byte-order-mark", ":1:1: error: a byte-order mark is not allowed"},
    Broken{"empty", ":1:1: error: the document is empty"},
    Broken{"integer-too-large",
           ":1:21: error: fans[0].fanID: The number 9223372036854775808 does not fit a signed "
           "64-bit integer."},
    Broken{"missing-tuning", ":1:1: error: The required key \"tuning\" is missing."},
    Broken{"nested-too-deep", ":1:513: error: nested more than 512 levels deep"},
    Broken{"no-mode", ":1:32: error: fans[0].mode: Invalid number of keys found, expected one."},
    Broken{"not-an-object", ":1:1: error: Expected an object but found an array."},
    Broken{"not-utf-8", ":1:66: error: "},
    Broken{"not-whole", ":1:21: error: fans[0].fanID: The number 1.5 is not whole."},
    Broken{"nul-byte", ":2:1: error: a NUL byte is not allowed"},
    Broken{"null-required",
           ":1:52: error: fans[0].mode.fixedRPM._0: Expected a number but found null."},
    Broken{"number-too-large", ":1:52: error: number out of range of a 64-bit float"},
    Broken{"payload-missing",
           ":1:49: error: fans[0].mode.fixedPercent: The required key \"_0\" is missing."},
    Broken{"too-large", ": error: the document has more than 1048576 bytes"},
    Broken{"trailing-bytes", ":2:1: error: "},
    Broken{"trailing-comma", ":3:1: error: "},
    Broken{"truncated", ":2:35: error: "},
    Broken{"two-modes", ":1:32: error: fans[0].mode: Invalid number of keys found, expected one."},
    Broken{"two-targets",
           ":1:172: error: rules[0].fanTarget: Invalid number of keys found, expected one."},
    Broken{
        "unknown-interpolation",
        ":1:81: error: fans[0].mode.curve._0.interpolation: Expected \"linear\" or \"monotone\"."},
    Broken{"unknown-mode",
           ":1:32: error: fans[0].mode: Invalid number of keys found, expected one."},
    Broken{"wrong-type",
           ":1:52: error: fans[0].mode.fixedRPM._0: Expected a number but found a string."},
};

INSTANTIATE_TEST_SUITE_P(CheckCommand, BrokenExample, testing::ValuesIn(brokenExamples),
                         [](const auto& example) {
                             std::string name = example.param.name;
                             std::erase(name, '-');
                             return name;
                         });

TEST(CheckCommand, everyBrokenExampleIsTested) {
    std::size_t files = 0;
    for (const auto& file : std::filesystem::directory_iterator(example("plans/broken"))) {
        files += file.is_regular_file() ? 1 : 0;
    }
    EXPECT_EQ(files, brokenExamples.size());
}

}  // namespace
}  // namespace airflow::tool
