#include <fmt/format.h>
#include <gmock/gmock.h>

#include "ToolRun.h"

namespace airflow::tool {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

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
            std::string(tuningWithoutSmoothing));
};

/// Ticks of the daemon's own distance, at this temperature each.
std::string ticks(const std::vector<std::string>& celsius) {
    std::string trace;
    for (std::size_t i = 0; i < celsius.size(); ++i) {
        trace += tick(fmt::format("{}", 1.5 * static_cast<double>(i)), celsius[i]);
    }
    return trace;
}

TEST_F(ReplayCommand, writesOneObjectForEachTickAndTheSummary) {
    const auto run = replay("jsonl", ticks({"61.5", "81", "60"}));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(
        run.out,
        R"({"time":0,"decisions":{"0":{"target":{"rpm":1800}},"1":{"releaseToAuto":{}},)"
        R"("2":{"target":{"rpm":1200}}},"fans":{"0":{"isForced":true,"targetRPM":1800},)"
        R"("1":{"isForced":false},"2":{"isForced":true,"targetRPM":1200}},"claimed":[0,2],)"
        R"("released":[],"latchedRules":[],"releasedRules":[],"state":{"perFanMode":)"
        R"({"0":{"manual":{}},"2":{"manual":{}}},"targets":{"0":1800,"2":1200},"isHolding":true}})"
        "\n"
        R"({"time":1.5,"decisions":{"0":{"target":{"rpm":1800}},"1":{"target":{"rpm":2798.4}},)"
        R"("2":{"target":{"rpm":1200}}},"fans":{"0":{"isForced":true,"targetRPM":1800},)"
        R"("1":{"isForced":true,"targetRPM":2798.4},"2":{"isForced":true,"targetRPM":1200}},)"
        R"("claimed":[1],"released":[],"latchedRules":["8A2F6C14-5E93-4B0D-A7C8-E1D49B3F2C55"],)"
        R"("releasedRules":[],"state":{"perFanMode":{"0":{"manual":{}},"1":{"automatic":{}},)"
        R"("2":{"manual":{}}},"targets":{"0":1800,"1":2798,"2":1200},"isHolding":true}})"
        "\n"
        R"({"time":3,"decisions":{"0":{"target":{"rpm":1800}},"1":{"releaseToAuto":{}},)"
        R"("2":{"target":{"rpm":1200}}},"fans":{"0":{"isForced":true,"targetRPM":1800},)"
        R"("1":{"isForced":false},"2":{"isForced":true,"targetRPM":1200}},"claimed":[],)"
        R"("released":[1],"latchedRules":[],)"
        R"("releasedRules":["8A2F6C14-5E93-4B0D-A7C8-E1D49B3F2C55"],"state":{"perFanMode":)"
        R"({"0":{"manual":{}},"2":{"manual":{}}},"targets":{"0":1800,"2":1200},"isHolding":true}})"
        "\n"
        R"({"summary":{"hottestCelsius":81,"seconds":3,"controlledSeconds":3,)"
        R"("releases":{"the plan itself":1},"fans":{)"
        R"("0":{"meanRPM":1800,"topRPM":1800,"loudSeconds":0,"starts":0,"stops":0,)"
        R"("changesPerMinute":0},)"
        R"("1":{"meanRPM":1399.2,"topRPM":2798.4,"loudSeconds":0,"starts":1,"stops":1,)"
        R"("changesPerMinute":0},)"
        R"("2":{"meanRPM":1200,"topRPM":1200,"loudSeconds":0,"starts":0,"stops":0,)"
        R"("changesPerMinute":0}}}})"
        "\n");
}

TEST_F(ReplayCommand, theTableShowsTargetsEventsAndTheSummary) {
    const auto run = replay("table", ticks({"61.5", "81", "60", "60", "60", "60", "60", "60"}));
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out,
                StartsWith("    time (s)  hottest (smoothed)                 fan 0       fan 1     "
                           "  fan 2       fan 9       events\n"
                           "         0.0  TCMz                     61.50 °C  1800 RPM    Auto      "
                           "  1200 RPM    absent      fan 0 claimed, fan 2 claimed\n"
                           "         1.5  TCMz                     81.00 °C  1800 RPM    2798 RPM  "
                           "  1200 RPM    absent      \"Hot\" latched, fan 1 claimed\n"
                           "         3.0  TCMz                     60.00 °C  1800 RPM    Auto      "
                           "  1200 RPM    absent      \"Hot\" let go, fan 1 back to Auto\n"));
    EXPECT_THAT(run.out, HasSubstr("10.5  TCMz                     60.00 °C  1800 RPM    Auto      "
                                   "  stopped     absent\n"));
    EXPECT_THAT(run.out, HasSubstr("\nhottest        81.0 °C\n"
                                   "under control  10.5 of 10.5 s\n"
                                   "releases       1 × the plan itself\n"));
}

TEST_F(ReplayCommand, aPlanThatManagesNoFanHoldsNoneWhateverItsRulesSay) {
    const auto onlyRules = folder.write(
        "rules.json", R"({"fans":[{"fanID":0,"mode":{"automatic":{}}}],)"
                      R"("rules":[{"id":"8A2F6C14-5E93-4B0D-A7C8-E1D49B3F2C55","name":"Hot",)"
                      R"("thresholdCelsius":50,"releaseBelowCelsius":40,"targetPercent":100,)"
                      R"("fanTarget":{"all":{}},"dwellSeconds":0,"enabled":true}],)" +
                          std::string(tuningWithoutSmoothing));
    const auto run = runTool({"replay", onlyRules, "--trace", "-"}, ticks({"60", "60", "60"}));
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, Not(HasSubstr("claimed")));
    EXPECT_THAT(run.out, HasSubstr("under control  0.0 of 3.0 s\n"));
}

TEST_F(ReplayCommand, theCeilingEndsControlForGood) {
    const auto run = replay("table", ticks({"94.9", "95", "60", "60"}));
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, HasSubstr("fan 0 back to Auto, fan 1 back to Auto, fan 2 back to Auto, "
                                   "thermal ceiling 95°C exceeded — released to Auto\n"));
    EXPECT_THAT(run.out, HasSubstr("         4.5  TCMz                     60.00 °C  Auto        "
                                   "Auto        Auto        absent\n"));
    EXPECT_THAT(run.out, HasSubstr("under control  1.5 of 4.5 s\n"
                                   "releases       3 × thermal ceiling 95°C exceeded\n"));
}

constexpr const char* noTemperatures =
    R"({"time":TIME,"fans":[{"id":0,"minRPM":1200,"maxRPM":6000},)"
    R"({"id":2,"minRPM":1200,"maxRPM":6000}],"temps":[]})";

std::string withoutTemperatures(const std::string& time) {
    std::string line = noTemperatures;
    return line.replace(line.find("TIME"), 4, time) + '\n';
}

TEST_F(ReplayCommand, twoSnapshotsInARowWithoutTemperaturesEndThePlan) {
    const auto run = replay("table", tick("0", "50") + withoutTemperatures("1.5") +
                                         tick("3", "50") + withoutTemperatures("4.5") +
                                         withoutTemperatures("6") + tick("7.5", "50"));
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, HasSubstr("under control  6.0 of 7.5 s\n"
                                   "releases       2 × temperature data unavailable\n"));
}

struct BadLine {
    const char* name;
    std::string trace;
    const char* message;
};

class ReplayOfABadTrace : public ReplayCommand, public testing::WithParamInterface<BadLine> {};

TEST_P(ReplayOfABadTrace, isRefusedWithItsPlaceAndReplayedWhenLenient) {
    const auto run = replay("table", GetParam().trace);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, GetParam().message + std::string("\n"));
    const auto lenient = runTool({"replay", plan, "--trace", "-", "--lenient"}, GetParam().trace);
    EXPECT_EQ(lenient.status, 0);
    EXPECT_EQ(lenient.err, GetParam().message + std::string("\n"));
    EXPECT_THAT(lenient.out, HasSubstr("under control"));
}

INSTANTIATE_TEST_SUITE_P(
    Traces, ReplayOfABadTrace,
    testing::Values(
        BadLine{"repeatedTime", tick("0", "50") + tick("1.5", "50") + tick("1.5", "50"),
                "standard input:3: time: 1.5 s is the time of the line before."},
        BadLine{"earlierTime", tick("3", "50") + tick("1.5", "50"),
                "standard input:2: time: 1.5 s is before the line before (3 s)."},
        BadLine{"gap", tick("0", "50") + tick("3.1", "50"),
                "standard input:2: time: 3.1 s after the line before. The daemon looks every 1.5 "
                "s; 3 s at most can be replayed."},
        BadLine{"twoFans",
                R"({"time":0,"fans":[{"id":0,"minRPM":1,"maxRPM":2},)"
                R"({"id":0,"minRPM":1,"maxRPM":2}],"temps":[]})",
                "standard input:1: fans[1].id: there are two fans 0."},
        BadLine{"minimumAboveMaximum",
                R"({"time":0,"fans":[{"id":0,"minRPM":3,"maxRPM":2}],"temps":[]})",
                "standard input:1: fans[0].minRPM: 3 is above maxRPM (2)."},
        BadLine{"twoSensors",
                R"({"time":0,"fans":[],"temps":[{"key":"A","source":"SMC","celsius":1},)"
                R"({"key":"A","source":"HID","celsius":1},)"
                R"({"key":"A","source":"SMC","celsius":1}]})",
                "standard input:1: temps[2].key: there are two sensors SMC-A."}),
    [](const auto& info) { return info.param.name; });

TEST_F(ReplayCommand, linesUpToTwoTicksApartAreReplayed) {
    EXPECT_EQ(replay("table", tick("0.1", "50") + tick("3.1", "50")).status, 0);
}

TEST_F(ReplayCommand, anEmptyTraceIsAnErrorEvenWhenLenient) {
    const auto run = runTool({"replay", plan, "--trace", "-", "--lenient"}, "");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "standard input: the trace is empty\n");
}

TEST_F(ReplayCommand, optionsThatContradictEachOtherAreRefused) {
    const auto trace = folder.write("trace.jsonl", tick("0", "50"));
    const auto scenario = example("scenarios/working-day.json");
    for (const auto& arguments :
         {std::vector<std::string>{"replay", plan, "--trace", trace, "--plot", "--format", "jsonl"},
          {"replay", plan, "--trace", trace, "--why", "0@0", "--plot"},
          {"replay", plan, "--trace", trace, "--why", "0@0", "--format", "jsonl"},
          {"simulate", scenario, "--plot", "--format", "jsonl"},
          {"simulate", scenario, "--plot", "--why", "0@1"},
          {"compare", plan, "--trace", trace, "--plot", "--format", "json"}}) {
        const auto run = runTool(arguments);
        EXPECT_EQ(run.status, 2);
        EXPECT_NE(run.err, "");
        EXPECT_EQ(run.out, "");
    }
}

TEST_F(ReplayCommand, anExplanationIsLenientToo) {
    const auto trace =
        folder.write("trace.jsonl", tick("0", "50") + tick("0", "60") + tick("1.5", "60"));
    EXPECT_EQ(runTool({"replay", plan, "--trace", trace, "--why", "0@1.5"}).status, 1);
    const auto run = runTool({"replay", plan, "--trace", trace, "--why", "0@1.5", "--lenient"});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.err, HasSubstr("is the time of the line before"));
}

TEST_F(ReplayCommand, thePlanMayComeFromStandardInputButNotBoth) {
    std::ifstream file(plan);
    const std::string document(std::istreambuf_iterator<char>(file), {});
    const auto run =
        runTool({"replay", "-", "--trace", folder.write("trace.jsonl", tick("0", "50"))}, document);
    EXPECT_EQ(run.status, 0);
    const auto both = runTool({"replay", "-", "--trace", "-"}, document);
    EXPECT_EQ(both.status, 1);
    EXPECT_EQ(both.err, "Only one of plan and trace can be standard input.\n");
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
    EXPECT_EQ(std::ranges::count(run.out, '\n'), 2);  // and the summary
    EXPECT_EQ(run.err, "standard input:2: The required key \"fans\" is missing.\n");
}

TEST_F(ReplayCommand, aTraceOnDiskIsNamedInItsErrors) {
    const auto trace = folder.write("trace.jsonl", tick("0", "61.5") + "{\"time\": }\n");
    const auto run = runTool({"replay", plan, "--trace", trace, "--format", "jsonl"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(std::ranges::count(run.out, '\n'), 2);  // and the summary
    EXPECT_THAT(run.err, StartsWith(trace + ":2:10: "));
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
    EXPECT_EQ(directory.err, folder.path.string() + ": cannot be read: it is a folder\n");
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
            EXPECT_EQ(std::ranges::count(run.out, '\n'), lines + 1) << trace << ' ' << name;
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
