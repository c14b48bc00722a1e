#include <gmock/gmock.h>

#include "ToolRun.h"

namespace airflow::tool {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* tuning =
    R"("tuning":{"emaAlpha":1,"hysteresisCelsius":2,"maxDeltaRPMPerTick":400,"minDwellSeconds":3}})";

std::string tick(const std::string& time, const std::string& celsius) {
    return R"({"time":)" + time +
           R"(,"fans":[{"id":0,"minRPM":1200,"maxRPM":6000},{"id":1,"minRPM":1200,"maxRPM":6000},)"
           R"({"id":2,"minRPM":1200,"maxRPM":6000}],)"
           R"("temps":[{"key":"TCMz","source":"SMC","celsius":)" +
           celsius + "}]}\n";
}

class ReplayCommand : public testing::Test {
protected:
    ToolRun replay(const std::string& format, const std::string& trace) {
        return runTool({"replay", plan, "--trace", "-", "--format", format}, trace);
    }

    ScratchFolder folder;
    std::string plan = folder.write(
        "plan.json",
        R"({"fans":[{"fanID":0,"mode":{"fixedRPM":{"_0":1800}}},{"fanID":1,"mode":{"automatic":{}}},)"
        R"({"fanID":2,"mode":{"fixedPercent":{"_0":0}}},{"fanID":9,"mode":{"automatic":{}}}],)"
        R"("rules":[{"id":"8A2F6C14-5E93-4B0D-A7C8-E1D49B3F2C55","name":"Hot",)"
        R"("thresholdCelsius":80,"releaseBelowCelsius":70,"targetPercent":33.3,)"
        R"("fanTarget":{"fan":{"_0":1}},"dwellSeconds":0,"enabled":true}],)" +
            std::string(tuning));
};

TEST_F(ReplayCommand, writesOneObjectForEachTick) {
    const auto run = replay("jsonl", tick("0.0", "61.5") + tick("10", "81") + tick("11.5", "60"));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(
        run.out,
        R"({"time":0,"decisions":{"0":{"target":{"rpm":1800}},"1":{"releaseToAuto":{}},)"
        R"("2":{"target":{"rpm":1200}}},"actions":{"toClaim":[0,2],"toRelease":[],)"
        R"("targets":{"0":1800,"2":1200},"forceTestEnabled":true,"stoppedFans":[],)"
        R"("isGlobalIdle":false}})"
        "\n"
        R"({"time":10,"decisions":{"0":{"target":{"rpm":1800}},"1":{"target":{"rpm":2798.4}},)"
        R"("2":{"idleStopped":{}}},"actions":{"toClaim":[1],"toRelease":[],)"
        R"("targets":{"0":1800,"1":2798.4,"2":0},"forceTestEnabled":true,"stoppedFans":[2],)"
        R"("isGlobalIdle":false}})"
        "\n"
        R"({"time":11.5,"decisions":{"0":{"target":{"rpm":1800}},"1":{"releaseToAuto":{}},)"
        R"("2":{"idleStopped":{}}},"actions":{"toClaim":[],"toRelease":[1],)"
        R"("targets":{"0":1800,"2":0},"forceTestEnabled":true,"stoppedFans":[2],)"
        R"("isGlobalIdle":false}})"
        "\n");
}

TEST_F(ReplayCommand, theTableShowsDecisionsAndWhatHappened) {
    const auto run = replay("table", tick("0.0", "61.5") + tick("10", "81") + tick("11.5", "60"));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(
        run.out,
        "    time (s)  hottest (smoothed)                 fan 0       fan 1       fan 2       "
        "fan 9     "
        "  events\n"
        "         0.0  TCMz                     61.50 °C  1800 RPM    Auto        1200 RPM    "
        "absent    "
        "  fan 0 claimed, fan 2 claimed\n"
        "        10.0  TCMz                     81.00 °C  1800 RPM    2798 RPM    stopped     "
        "absent    "
        "  \"Hot\" latched, fan 1 claimed\n"
        "        11.5  TCMz                     60.00 °C  1800 RPM    Auto        stopped     "
        "absent    "
        "  \"Hot\" let go, fan 1 back to Auto\n");
}

TEST_F(ReplayCommand, theTableIsTheDefault) {
    const auto run = runTool({"replay", plan, "--trace", "-"}, tick("0", "61.5"));
    EXPECT_THAT(run.out, StartsWith("    time (s)"));
}

TEST_F(ReplayCommand, aTraceWithoutTemperaturesIsReplayed) {
    const auto run =
        replay("table", R"({"time":0,"fans":[{"id":0,"minRPM":1200,"maxRPM":6000}],"temps":[]})");
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, HasSubstr("no temperatures"));
}

TEST_F(ReplayCommand, aMalformedLineStopsAfterTheOutputOfThoseBeforeIt) {
    const auto run = replay("jsonl", tick("0", "61.5") + "{\"time\":1}\n" + tick("3", "61.5"));
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(std::ranges::count(run.out, '\n'), 1);
    EXPECT_EQ(run.err, "standard input:2: The required key \"fans\" is missing.\n");
}

TEST_F(ReplayCommand, aTraceOnDiskIsNamedInItsErrors) {
    const auto trace = folder.write("trace.jsonl", tick("0", "61.5") + "{\"time\": }\n");
    const auto run = runTool({"replay", plan, "--trace", trace, "--format", "jsonl"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(std::ranges::count(run.out, '\n'), 1);
    EXPECT_THAT(run.err, StartsWith(trace + ":2: column 10: "));
}

TEST_F(ReplayCommand, aMissingTraceOrPlanIsAnError) {
    const auto noTrace = runTool({"replay", plan, "--trace", "/no/such.jsonl"});
    EXPECT_EQ(noTrace.status, 1);
    EXPECT_EQ(noTrace.err, "/no/such.jsonl: cannot be read: No such file or directory\n");
    EXPECT_EQ(noTrace.out, "");
    const auto noPlan = runTool({"replay", "/no/such.json", "--trace", "-"});
    EXPECT_EQ(noPlan.status, 1);
    EXPECT_EQ(noPlan.err, "/no/such.json: cannot be read: No such file or directory\n");
    const auto directory = runTool({"replay", plan, "--trace", folder.path.string()});
    EXPECT_EQ(directory.status, 1);
    EXPECT_EQ(directory.err, folder.path.string() + ": cannot be read\n");
}

TEST_F(ReplayCommand, everyExampleTraceIsReplayedWholeByEveryExamplePlan) {
    for (const char* trace : {"build-burst", "slow-warm-up", "vanishing-sensor"}) {
        const auto path = example("traces/" + std::string(trace) + ".jsonl");
        std::ifstream file(path);
        const auto lines = std::count(std::istreambuf_iterator<char>(file), {}, '\n');
        for (const char* name : {"quiet", "balanced", "cool", "curve-and-rules"}) {
            const auto run = runTool({"replay", example("plans/" + std::string(name) + ".json"),
                                      "--trace", path, "--format", "jsonl"});
            EXPECT_EQ(run.status, 0) << run.err;
            EXPECT_EQ(std::ranges::count(run.out, '\n'), lines) << trace << ' ' << name;
        }
    }
}

TEST_F(ReplayCommand, aSensorThatVanishesReleasesTheFanThatFollowsIt) {
    const auto run = runTool({"replay", example("plans/balanced.json"), "--trace",
                              example("traces/vanishing-sensor.jsonl")});
    EXPECT_THAT(run.out, HasSubstr("fan 1 back to Auto"));
    EXPECT_THAT(run.out, Not(HasSubstr("fan 0 back to Auto")));
}

}  // namespace
}  // namespace airflow::tool
