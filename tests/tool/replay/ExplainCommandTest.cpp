#include <gmock/gmock.h>

#include <tuple>

#include "ToolRun.h"
#include "simulation/runtime/Random.h"
#include "tool/replay/ExplainCommand.h"
#include "tool/replay/Explanation.h"

namespace airflow::tool {
namespace {

using testing::HasSubstr;

class ExplainCommand : public testing::Test {
protected:
    std::string planWith(const std::string& fans, const std::string& rules = {}) {
        return folder.write("plan.json", R"({"fans":[)" + fans + R"(],"rules":[)" + rules + "]," +
                                             tuningWithoutSmoothing);
    }
    ToolRun explain(const std::string& fans, const std::string& rules, const std::string& celsius) {
        return runTool({"explain", planWith(fans, rules), "--temperature", "SMC-TCMz=" + celsius});
    }
    /// Ticks of 1.5 s at these temperatures.
    std::string trace(const std::vector<std::string>& celsius) {
        std::string lines;
        for (std::size_t i = 0; i < celsius.size(); ++i) {
            lines += R"({"time":)" + std::to_string(1.5 * static_cast<double>(i)) +
                     R"(,"fans":[{"id":0,"minRPM":1200,"maxRPM":6000}],"temps":[{"key":"TCMz",)"
                     R"("source":"SMC","celsius":)" +
                     celsius[i] + R"(,"name":"CPU"}]})" + "\n";
        }
        return folder.write("trace.jsonl", lines);
    }
    ToolRun explainAt(const std::string& fans, const std::vector<std::string>& celsius,
                      const std::string& seconds, const std::string& rules = {}) {
        return runTool(
            {"explain", planWith(fans, rules), "--trace", trace(celsius), "--at", seconds});
    }

    ScratchFolder folder;
};

std::string curve(const std::string& points) {
    return R"({"fanID":0,"mode":{"curve":{"_0":{"points":[)" + points +
           R"(],"interpolation":"linear"}}}})";
}

const std::string twoPoints =
    curve(R"({"id":"8A2F6C14-5E93-4B0D-A7C8-E1D49B3F2C51","celsius":50,"percent":0},)"
          R"({"id":"8A2F6C14-5E93-4B0D-A7C8-E1D49B3F2C52","celsius":90,"percent":100})");

std::string rule(const std::string& name, const std::string& threshold, const std::string& percent,
                 const std::string& dwell, char id) {
    return R"({"id":"8A2F6C14-5E93-4B0D-A7C8-E1D49B3F2C6)" + std::string(1, id) + R"(","name":")" +
           name + R"(","thresholdCelsius":)" + threshold + R"(,"releaseBelowCelsius":60,)" +
           R"("targetPercent":)" + percent + R"(,"fanTarget":{"all":{}},"dwellSeconds":)" + dwell +
           R"(,"enabled":true})";
}

TEST_F(ExplainCommand, followsACurveFromTheSensorToTheSpeed) {
    const auto run = explain(twoPoints, "", "70");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out,
              "fan 0: 3600 RPM\n"
              "  sensor      TCMz (SMC-TCMz) 70.00 °C, smoothed 70.00 °C, the hottest\n"
              "  curve       between 50 °C → 0 % and 90 °C → 100 %: 50.0 %\n"
              "  range       50.0 % of 1200 to 6000 RPM: 3600 RPM\n");
}

TEST_F(ExplainCommand, tellsTheEndsOfACurve) {
    EXPECT_THAT(explain(twoPoints, "", "40").out,
                HasSubstr("curve       before its first point, 50 °C → 0 %: 0.0 %\n"));
    EXPECT_THAT(explain(twoPoints, "", "90").out,
                HasSubstr("curve       at its point, 90 °C → 100 %: 100.0 %\n"));
    EXPECT_THAT(explain(twoPoints, "", "91").out,
                HasSubstr("curve       after its last point, 90 °C → 100 %: 100.0 %\n"));
    EXPECT_THAT(explain(curve(""), "", "90").out, HasSubstr("curve       without points: 0.0 %\n"));
}

TEST_F(ExplainCommand, aRuleThatWonIsToldWithWhatItOverrides) {
    const auto run = explain(twoPoints, rule("Hot", "65", "100", "0", '1'), "70");
    EXPECT_EQ(run.out,
              "fan 0: 6000 RPM\n"
              "  rule        \"Hot\" forces 100 %; it watches TCMz (SMC-TCMz) 70.00 °C, smoothed "
              "70.00 °C; rose above 65 °C 0.0 s ago\n"
              "  instead of  3600 RPM\n"
              "  range       100.0 % of 1200 to 6000 RPM: 6000 RPM\n"
              "  change      10.0 °C less on TCMz ends rule \"Hot\" (100 %)\n");
}

TEST_F(ExplainCommand, aLatchedRuleBelowItsThresholdIsNotSaidToBeAboveIt) {
    const auto run = explainAt(twoPoints, {"75", "65"}, "1.5", rule("Hot", "70", "100", "0", '1'));
    EXPECT_THAT(run.out, HasSubstr("CPU (SMC-TCMz) 65.00 °C, smoothed 65.00 °C; rose above 70 °C "
                                   "1.5 s ago\n"));
    // The curve asks for 3000 RPM, and may fall by 400 from the rule's speed.
    EXPECT_THAT(run.out, HasSubstr("instead of  5600 RPM\n"));
}

TEST_F(ExplainCommand, ofTwoLatchedRulesTheSecondIsTheRunnerUp) {
    const auto run = explain(
        twoPoints,
        rule("First", "65", "100", "0", '1') + "," + rule("Second", "60", "20", "0", '2'), "70");
    EXPECT_THAT(run.out, HasSubstr("rule        \"First\" forces 100 %"));
    EXPECT_THAT(run.out, HasSubstr("instead of  2160 RPM\n"));
    EXPECT_THAT(run.out, Not(HasSubstr("rule \"Second\"")));  // it could change nothing
}

TEST_F(ExplainCommand, aRuleThatHasNotStartedSaysWhatItTakes) {
    EXPECT_THAT(
        explain(twoPoints, rule("Long build", "72", "100", "6", '1'), "70.2").out,
        HasSubstr("change      1.8 °C more on TCMz start rule \"Long build\" (100 %) in 6 s\n"));
    EXPECT_THAT(
        explainAt(twoPoints, {"75", "75"}, "1.5", rule("Build", "72", "100", "6", '1')).out,
        HasSubstr("change      4.5 s more above 72 °C on CPU start rule \"Build\" (100 %)\n"));
}

TEST_F(ExplainCommand, theRateLimitTellsWhenTheSpeedIsReached) {
    const auto run = explainAt(twoPoints, {"50.8", "90", "90"}, "1.5");
    EXPECT_THAT(run.out, HasSubstr("fan 0: 1696 RPM\n"));
    EXPECT_THAT(run.out, HasSubstr("limit       at most 400 RPM from the last target, 1296 RPM: "
                                   "1696 RPM; 6000 RPM reached in 16.5 s\n"));
}

TEST_F(ExplainCommand, theStopPolicyCountsItsSeconds) {
    EXPECT_THAT(explainAt(twoPoints, {"40", "40", "40", "40"}, "4.5").out,
                HasSubstr("stop        0 % for 4.5 s; the fan stops after 10 s\n"));
    const std::vector<std::string> stopped(8, "40");
    EXPECT_THAT(explainAt(twoPoints, stopped, "10.5").out, HasSubstr("fan 0: stopped\n"));
    EXPECT_THAT(explainAt(twoPoints, stopped, "10.5").out,
                HasSubstr("stop        stopped; 3 % for 3 s would start the fan\n"));
    auto resumed = stopped;
    resumed.insert(resumed.end(), {"60", "60"});
    EXPECT_THAT(
        explainAt(twoPoints, resumed, "13.5").out,
        HasSubstr("stop        stopped; 3 % or more for 1.5 s; the fan starts after 3 s\n"));
}

TEST_F(ExplainCommand, otherModesAreTold) {
    const auto fixedRPM = explain(R"({"fanID":0,"mode":{"fixedRPM":{"_0":9000}}})", "", "50");
    EXPECT_THAT(fixedRPM.out, HasSubstr("fixed       9000 RPM\n"
                                        "  clamp       9000 RPM is outside 1200 to 6000 RPM: "
                                        "6000 RPM\n"));
    EXPECT_THAT(explain(R"({"fanID":0,"mode":{"fixedPercent":{"_0":40}}})", "", "50").out,
                HasSubstr("fixed       40 %\n"
                          "  range       40.0 % of 1200 to 6000 RPM: 3120 RPM\n"));
    EXPECT_THAT(explain(R"({"fanID":0,"mode":{"automatic":{}}})", "", "50").out,
                HasSubstr("fan 0: left to the firmware\n"));
}

TEST_F(ExplainCommand, aMissingSensorLeavesTheFanToTheFirmware) {
    const auto plan =
        planWith(R"({"fanID":0,"mode":{"curve":{"_0":{"sourceSensorID":"HID-gone","points":[],)"
                 R"("interpolation":"linear"}}}})");
    const auto run = runTool({"explain", plan, "--temperature", "SMC-TCMz=50"});
    EXPECT_EQ(run.out, "fan 0: left to the firmware\n  sensor      HID-gone is missing\n");
}

TEST_F(ExplainCommand, aTraceIsExplainedAtItsLastLineThatIsNotLater) {
    EXPECT_THAT(explainAt(twoPoints, {"50", "60", "70"}, "2.9").out,
                HasSubstr("CPU (SMC-TCMz) 60"));
    EXPECT_THAT(explainAt(twoPoints, {"50", "60", "70"}, "3").out, HasSubstr("CPU (SMC-TCMz) 70"));
    const auto early = explainAt(twoPoints, {"50"}, "-1");
    EXPECT_EQ(early.status, 1);
    EXPECT_THAT(early.err, HasSubstr("begins after -1 s"));
}

TEST_F(ExplainCommand, whereControlHasEndedItSaysWhy) {
    const auto run = explainAt(twoPoints, {"50", "96", "50"}, "3");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, HasSubstr("nothing is decided at 3 s: thermal ceiling 96°C exceeded"));
}

TEST_F(ExplainCommand, aRateLimitTellsNoTimeWhenTheFanStopsBefore) {
    const auto run = explainAt(twoPoints, {"90", "40", "40"}, "3");
    EXPECT_THAT(run.out, HasSubstr("limit       at most 400 RPM"));
    EXPECT_THAT(run.out, Not(HasSubstr("reached in")));
}

TEST_F(ExplainCommand, aTraceThatCannotHaveHappenedIsRefused) {
    std::string line = R"({"time":0,"fans":[{"id":0,"minRPM":1200,"maxRPM":6000},)"
                       R"({"id":0,"minRPM":1200,"maxRPM":6000}],"temps":[]})";
    const auto run = runTool(
        {"explain", planWith(twoPoints), "--trace", folder.write("two.jsonl", line), "--at", "0"});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, HasSubstr("fans[1].id: there are two fans 0."));
}

TEST_F(ExplainCommand, aMomentHasToBeANumber) {
    for (const char* wrong : {"nan", "inf", "1e400", "0x10", "soon"}) {
        const auto run =
            runTool({"explain", planWith(twoPoints), "--trace", trace({"50"}), "--at", wrong});
        EXPECT_EQ(run.status, 2) << wrong;
    }
}

TEST_F(ExplainCommand, aSensorIsGivenOnce) {
    const auto run = runTool(
        {"explain", planWith(twoPoints), "--temperature", "SMC-A=50", "--temperature", "SMC-A=90"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "There are two sensors SMC-A.\n");
}

TEST_F(ExplainCommand, simulateExplainsNoDecisionThatDoesNotHoldAnyMore) {
    for (const auto& [scenario, why, reason] :
         {std::tuple{"thermal-ceiling", "0@40", "thermal ceiling"},
          std::tuple{"lost-heartbeat", "0@1000000000", "no heartbeat"},
          std::tuple{"terminated", "0@1000000000", "the daemon has ended"}}) {
        const auto run = runTool(
            {"simulate", example("scenarios/" + std::string(scenario) + ".json"), "--why", why});
        EXPECT_EQ(run.status, 1) << scenario;
        EXPECT_THAT(run.err, HasSubstr("nothing is decided at"));
        EXPECT_THAT(run.err, HasSubstr(reason));
    }
}

TEST_F(ExplainCommand, wrongArgumentsAreNamed) {
    const auto plan = planWith(twoPoints);
    for (const auto& [text, reason] :
         {std::pair{"TCMz=50", "expected SMC-KEY=°C or HID-LABEL=°C"},
          std::pair{"SMC-TCMz", "expected SMC-KEY=°C or HID-LABEL=°C"},
          std::pair{"XYZ-TCMz=50", "a sensor's name begins with SMC- or HID-"},
          std::pair{"SMC-TCMz=hot", "expected a temperature in °C after ="},
          std::pair{"SMC-TCMz=nan", "expected a temperature in °C after ="}}) {
        const auto run = runTool({"explain", plan, "--temperature", text});
        EXPECT_EQ(run.status, 1) << text;
        EXPECT_EQ(run.err, std::string(text) + ": " + reason + "\n");
    }
    EXPECT_NE(runTool({"explain", plan}).status, 0);
    const auto absent = runTool({"explain", plan, "--temperature", "SMC-TCMz=50", "--fan", "5"});
    EXPECT_EQ(absent.status, 1);
    EXPECT_THAT(absent.err, HasSubstr("Nothing is decided for fan 5"));
}

TEST_F(ExplainCommand, aFanAtATimeIsParsed) {
    EXPECT_EQ(FanAtTime::parse("3@37.5")->fan, 3);
    EXPECT_EQ(FanAtTime::parse("3@37.5")->seconds, 37.5);
    for (const char* wrong : {"", "3", "@1", "3@", "x@1", "10@1", "-1@1", "1@nan", "1@1s"}) {
        EXPECT_FALSE(FanAtTime::parse(wrong)) << wrong;
    }
}

TEST_F(ExplainCommand, replayAndSimulateAnswerWhy) {
    const auto replayed =
        runTool({"replay", planWith(twoPoints), "--trace", trace({"50", "70"}), "--why", "0@1.5"});
    EXPECT_EQ(replayed.status, 0);
    EXPECT_THAT(replayed.out, testing::StartsWith("fan 0: 1600 RPM\n"));
    const auto simulated =
        runTool({"simulate", example("scenarios/working-day.json"), "--why", "0@1200"});
    EXPECT_EQ(simulated.status, 0);
    EXPECT_THAT(simulated.out, HasSubstr("°C more on CPU start rule \"Long build\""));
}

/// The evaluator over random plans and temperatures; each explanation is asked what it explains.
TEST(Explanation, explainsTheEvaluatorsDecisionAlways) {
    for (std::uint64_t seed = 1; seed <= 300; ++seed) {
        SCOPED_TRACE(seed);
        simulation::Random random(seed);
        Situation situation{.memory = {}, .plan = {}, .snapshot = {}, .now = {}};
        situation.snapshot.fans = {
            {.id = 0, .name = "", .minRPM = 1200, .maxRPM = 6000, .mode = {}}};
        plan::FanCurve curve;
        for (int i = 0; i < 3; ++i) {
            curve.points.push_back({.id = {},
                                    .celsius = static_cast<double>(30 + random.below(70)),
                                    .percent = static_cast<double>(random.below(120) - 10)});
        }
        situation.plan.fans = {{.fanID = 0, .mode = plan::FanControlModePlan::curve(curve)}};
        for (std::uint8_t i = 0; i < 2; ++i) {
            plan::FanRule rule;
            rule.id.bytes[0] = i;
            rule.enabled = true;
            rule.thresholdCelsius = static_cast<double>(40 + random.below(50));
            rule.releaseBelowCelsius = rule.thresholdCelsius - 5;
            rule.targetPercent = static_cast<double>(random.below(101));
            rule.dwellSeconds = static_cast<double>(random.below(5));
            situation.plan.rules.push_back(rule);
        }
        situation.plan.tuning.maxDeltaRPMPerTick = static_cast<double>(random.below(1000));
        for (int tick = 0; tick < 40; ++tick) {
            situation.snapshot.temps = {{.key = "T",
                                         .name = "T",
                                         .celsius = static_cast<double>(30 + random.below(60)),
                                         .source = sensors::SensorSource::smc}};
            situation.now += concurrency::Seconds(1.5);
            const auto explanation = Explanation::of(situation, 0);
            const auto decided =
                situation.memory.evaluate(situation.plan, situation.snapshot, situation.now);
            std::ostringstream text;
            explanation->write(text);
            EXPECT_THAT(text.str(),
                        testing::StartsWith("fan 0: " + decisionText(decided.at(0)) + "\n"));
            // The last step that is told leads to what was decided.
            const auto& lines = text.str();
            const auto* const target = std::get_if<evaluation::Target>(&decided.at(0));
            if (target) {
                EXPECT_THAT(lines, HasSubstr(": " + decisionText(decided.at(0)))) << lines;
            } else {
                EXPECT_THAT(lines, HasSubstr("  stop        stopped")) << lines;
            }
        }
    }
}

}  // namespace
}  // namespace airflow::tool
