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

TEST(CheckCommand, everyPlanOfTheExamplesIsGood) {
    for (const char* name : {"quiet", "balanced", "cool", "curve-and-rules"}) {
        EXPECT_EQ(runTool({"check", example("plans/" + std::string(name) + ".json")}).status, 0)
            << name;
    }
}

TEST(CheckCommand, describesFixedModesDisabledRulesAndOddities) {
    const ScratchFolder folder;
    const auto path = folder.write("odd.json", R"({"fans":[
        {"fanID":0,"mode":{"fixedRPM":{"_0":2400}}},
        {"fanID":0,"mode":{"fixedPercent":{"_0":12.5}}},
        {"fanID":0,"mode":{"curve":{"_0":{"points":[],"interpolation":"linear"}}}}],
        "rules":[{"id":"8A2F6C14-5E93-4B0D-A7C8-E1D49B3F2C55","name":"A\u001bB",
        "thresholdCelsius":90,"releaseBelowCelsius":95,"targetPercent":100,
        "fanTarget":{"fan":{"_0":7}},"dwellSeconds":0,"enabled":false}],
        "tuning":{"emaAlpha":0,"hysteresisCelsius":2,"maxDeltaRPMPerTick":400,"minDwellSeconds":3}})");
    const auto run = runTool({"check", path});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(
        run.out,
        path +
            ": 3 fans, 1 rule\n"
            "  fan 0: 2400 RPM\n"
            "  fan 0: 12.5 % of its range\n"
            "  fan 0: a curve without points: 0 % at any temperature\n"
            "  rule 1: \"A\xEF\xBF\xBD"
            "B\" (disabled): fan 7 to 100 % once the hottest "
            "sensor has been above 90 °C for 0 s, until below 89.5 °C\n"
            "  tuning: newest reading weighs 0, curves move at most 400 RPM a tick\n"
            "  note: fan 0 is planned more than once; the last entry counts\n"
            "  note: rule \"A\xEF\xBF\xBD"
            "B\" targets fan 7, which the plan does not list: "
            "it does nothing\n"
            "  note: emaAlpha 0 is outside (0, 1]: temperatures will not follow the sensors\n");
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
                           ": fans[0].mode: Invalid number of keys found, expected one.\n");
}

TEST(CheckCommand, aFileThatCannotBeReadIsAnError) {
    const ScratchFolder folder;
    const auto run = runTool({"check", "/no/such/plan.json", folder.path.string()});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "/no/such/plan.json: cannot be read: No such file or directory\n" +
                           folder.path.string() + ": cannot be read: Is a directory\n");
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
    Broken{"bad-uuid", ": rules[0].id: Expected a UUID of 36 characters."},
    Broken{"byte-order-mark", ":1:1: a byte-order mark is not allowed"},
    Broken{"empty", ":1:1: the document is empty"},
    Broken{"integer-too-large",
           ": fans[0].fanID: The number 9223372036854775808 does not fit a signed 64-bit integer."},
    Broken{"missing-tuning", ": The required key \"tuning\" is missing."},
    Broken{"nested-too-deep", ":1:513: nested more than 512 levels deep"},
    Broken{"no-mode", ": fans[0].mode: Invalid number of keys found, expected one."},
    Broken{"not-an-object", ": Expected an object but found an array."},
    Broken{"not-utf-8", ":1:66: "},
    Broken{"not-whole", ": fans[0].fanID: The number 1.5 is not whole."},
    Broken{"nul-byte", ":2:1: a NUL byte is not allowed"},
    Broken{"null-required", ": fans[0].mode.fixedRPM._0: Expected a number but found null."},
    Broken{"number-too-large", ":1:52: number out of range of a 64-bit float"},
    Broken{"payload-missing", ": fans[0].mode.fixedPercent: The required key \"_0\" is missing."},
    Broken{"too-large", ": the document has more than 1048576 bytes"},
    Broken{"trailing-bytes", ":2:1: "},
    Broken{"trailing-comma", ":3:1: "},
    Broken{"truncated", ":2:35: "},
    Broken{"two-modes", ": fans[0].mode: Invalid number of keys found, expected one."},
    Broken{"two-targets", ": rules[0].fanTarget: Invalid number of keys found, expected one."},
    Broken{"unknown-interpolation",
           ": fans[0].mode.curve._0.interpolation: Expected \"linear\" or \"monotone\"."},
    Broken{"unknown-mode", ": fans[0].mode: Invalid number of keys found, expected one."},
    Broken{"wrong-type", ": fans[0].mode.fixedRPM._0: Expected a number but found a string."},
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
