#include <gmock/gmock.h>

#include "ToolRun.h"

namespace airflow::tool {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class SimulateCommand : public testing::Test {
protected:
    ToolRun simulate(const std::string& scenario, std::vector<std::string> more = {}) {
        std::vector<std::string> arguments{"simulate", folder.write("s.json", scenario)};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runTool(arguments);
    }
    std::string place() const { return (folder.path / "s.json").string(); }

    ScratchFolder folder;
};

constexpr const char* oneFan =
    R"("machine":{"fans":[{"modeKey":"F0Md"}],"hid":{"CPU":50},"smc":{}})";

TEST_F(SimulateCommand, listsWritesStatesAndAnswersAsJSON) {
    const auto run = simulate(std::string("{") + oneFan + R"(,"duration":2,"events":[
        {"at":1,"call":"setManualRPM","fan":0,"rpm":2500},
        {"at":1.5,"call":"helperVersion"},{"at":1.6,"call":"restoreAuto"},
        {"at":1.9,"call":"readState"}]})",
                              {"--format", "jsonl"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out,
              R"({"time":0,"daemon":"started"})"
              "\n"
              R"({"time":0,"smc":"write","key":"Ftst","value":1,"result":0})"
              "\n"
              R"({"time":0,"smc":"write","key":"F0Md","value":0,"result":0})"
              "\n"
              R"({"time":0,"smc":"write","key":"Ftst","value":0,"result":0})"
              "\n"
              R"({"time":0,"state":{"perFanMode":{},"targets":{},"isHolding":false}})"
              "\n"
              R"x({"time":0,"log":"[com.brisquell.helper] listening on com.brisquell.helper )x"
              R"x((build 1.0.3+6)"})x"
              "\n"
              R"({"time":1,"client":"app","connection":"open"})"
              "\n"
              R"({"time":1,"smc":"write","key":"Ftst","value":1,"result":0})"
              "\n"
              R"({"time":1,"smc":"write","key":"F0Md","value":1,"result":0})"
              "\n"
              R"({"time":1.08,"smc":"write","key":"Ftst","value":1,"result":0})"
              "\n"
              R"({"time":1.08,"smc":"write","key":"F0Md","value":1,"result":0})"
              "\n"
              R"({"time":1.08,"smc":"write","key":"F0Tg","value":2500,"result":0})"
              "\n"
              R"({"time":1.08,"state":{"perFanMode":{"0":{"manual":{}}},"targets":{"0":2500},)"
              R"("isHolding":true}})"
              "\n"
              R"({"time":1.08,"client":"app","reply":"setManualRPM","code":0})"
              "\n"
              R"({"time":1.5,"client":"app","reply":"helperVersion","version":"1.0.3+6"})"
              "\n"
              R"({"time":1.6,"smc":"write","key":"Ftst","value":1,"result":0})"
              "\n"
              R"({"time":1.6,"smc":"write","key":"F0Md","value":0,"result":0})"
              "\n"
              R"({"time":1.6,"smc":"write","key":"Ftst","value":0,"result":0})"
              "\n"
              R"({"time":1.6,"state":{"perFanMode":{},"targets":{},"isHolding":false}})"
              "\n"
              R"({"time":1.6,"client":"app","reply":"restoreAuto"})"
              "\n"
              R"({"time":1.9,"client":"app","reply":"readState","state":{"perFanMode":{},)"
              R"("targets":{},"isHolding":false}})"
              "\n");
}

TEST_F(SimulateCommand, aFailedWriteHasItsErrorAndARefusedOneItsResult) {
    const auto run = simulate(std::string("{") + oneFan + R"(,"duration":1,
        "faults":[{"until":1,"key":"F0Md","value":0,"kernelReturn":3758097084},
                  {"until":1,"key":"Ftst","value":1,"result":134}]})",
                              {"--format", "jsonl"});
    EXPECT_THAT(run.out, HasSubstr(R"("key":"Ftst","value":1,"result":134})"));
    EXPECT_THAT(run.out, HasSubstr(R"("key":"F0Md","value":0,"error":"IOConnectCallStructMethod )"
                                   R"(failed: kern_return_t=0xe00002bc"})"));
}

TEST_F(SimulateCommand, readsAreListedOnDemand) {
    const std::string scenario = std::string("{") + oneFan + R"(,"duration":1})";
    EXPECT_THAT(simulate(scenario, {"--format", "jsonl"}).out, Not(HasSubstr("\"read\"")));
    EXPECT_THAT(simulate(scenario, {"--format", "jsonl", "--reads"}).out,
                StartsWith(R"({"time":0,"daemon":"started"})"
                           "\n"
                           R"({"time":0,"smc":"read","key":"FNum","value":1,"result":0})"
                           "\n"
                           R"({"time":0,"smc":"read","key":"F0Md","value":0,"result":0})"));
}

TEST_F(SimulateCommand, readsAreForJSONLinesOnly) {
    const std::string scenario = std::string("{") + oneFan + R"(,"duration":1})";
    for (const std::vector<std::string>& more :
         {std::vector<std::string>{"--reads"}, {"--reads", "--format", "table"}}) {
        const auto run = simulate(scenario, more);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_THAT(run.err, HasSubstr("--reads: needs --format jsonl"));
    }
}

TEST_F(SimulateCommand, durationOfTheCommandLineWins) {
    const std::string scenario = std::string("{") + oneFan + R"(,"duration":1000})";
    EXPECT_THAT(simulate(scenario, {"--duration", "3"}).out, HasSubstr("0.0 of 3.0 s"));
    EXPECT_THAT(simulate(scenario).out, HasSubstr("0.0 of 1000.0 s"));
    EXPECT_EQ(simulate(scenario, {"--duration", "-1"}).status, 2);
}

/// The lines of the summary that count releases.
std::string releasesIn(const std::string& out) {
    std::string lines;
    std::istringstream text(out);
    for (std::string line; std::getline(text, line);) {
        if (line.starts_with("releases")) lines += line.substr(17) + '\n';
    }
    return lines;
}

TEST_F(SimulateCommand, withoutTemperaturesThereIsADash) {
    const auto run = simulate(R"({"machine":{"fans":[{}],"hid":null,"smc":{}},"duration":1})");
    EXPECT_THAT(run.out, HasSubstr("0.0  |      —     fan 0  1200 RPM Auto\n"));
    EXPECT_THAT(run.out, HasSubstr("\nhottest          —\n"));
    EXPECT_THAT(run.out, Not(HasSubstr("°C")));
}

TEST_F(SimulateCommand, theHottestIsOfTheTimeThatHadTemperatures) {
    const auto run = simulate(R"({"machine":{"fans":[],"hid":{"CPU":-5},"smc":{}},"duration":3,
        "temperatures":[{"at":1.5,"hid":null}]})");
    EXPECT_THAT(run.out, HasSubstr("|   -5.0 °C\n"));
    EXPECT_THAT(run.out, HasSubstr("\nhottest          -5.0 °C\n"));
}

TEST_F(SimulateCommand, commandsThatTouchNothingReleaseNothing) {
    const auto run = simulate(R"({"machine":"laptop","duration":9,"events":[
        {"at":1,"call":"automatic"},{"at":2,"call":"restoreAuto"},
        {"at":3,"call":"shutdownForUpgrade"}]})");
    EXPECT_EQ(releasesIn(run.out), "none\n");
}

TEST_F(SimulateCommand, everyFanThatACommandGivesBackCounts) {
    const auto run = simulate(R"({"machine":"laptop","duration":9,"events":[
        {"at":1,"call":"fullBlast"},{"at":2,"call":"automatic"},
        {"at":3,"call":"setManualRPM","fan":1,"rpm":2000},{"at":4,"call":"restoreAuto"},
        {"at":5,"call":"fullBlast"},{"at":6,"call":"shutdownForUpgrade"}]})");
    EXPECT_EQ(releasesIn(run.out), "2 × automatic\n1 × restoreAuto\n2 × shutdownForUpgrade\n");
}

constexpr const char* fullBlastAndAPlanForFan1 = R"("events":[
    {"at":1,"call":"fullBlast"},{"at":4,"call":"applyConfig","plan":
        {"fans":[{"fanID":1,"mode":{"fixedRPM":{"_0":2000}}}],"rules":[],"tuning":{"emaAlpha":0.3,
         "hysteresisCelsius":2,"maxDeltaRPMPerTick":400,"minDwellSeconds":3}}}])";

TEST_F(SimulateCommand, aFanThatANewerPlanDropsIsReleasedByIt) {
    const auto run = simulate(std::string(R"({"machine":"laptop","duration":9,)") +
                              fullBlastAndAPlanForFan1 + "}");
    EXPECT_EQ(releasesIn(run.out), "1 × a newer plan\n");
}

TEST_F(SimulateCommand, aFanThatRefusedANewerPlanIsReleasedByARetry) {
    const auto run = simulate(std::string(R"({"machine":"laptop","duration":9,"faults":[
        {"from":3,"until":5,"key":"F0Md","operation":"write","value":0,"result":134}],)") +
                              fullBlastAndAPlanForFan1 + "}");
    EXPECT_EQ(releasesIn(run.out), "1 × retry\n");
}

TEST_F(SimulateCommand, aSafetyCheckReleasesByItsMessage) {
    const std::string head = R"({"machine":{"preset":"laptop","hid":{"CPU":50}},"duration":30,
        "events":[{"at":1,"call":"fullBlast"}])";
    EXPECT_EQ(releasesIn(simulate(head + "}").out), "2 × no heartbeat for >15s\n");
    const std::string hot = R"(,"temperatures":[{"at":5,"hid":{"CPU":99}}])";
    EXPECT_EQ(releasesIn(simulate(head + hot + "}").out), "2 × thermal ceiling 99°C exceeded\n");
    // However long the second fan takes to go back.
    const std::string slow = R"(,"faults":[
        {"key":"F1Md","operation":"write","value":0,"latency":0.25}])";
    EXPECT_EQ(releasesIn(simulate(head + hot + slow + "}").out),
              "2 × thermal ceiling 99°C exceeded\n");
}

TEST_F(SimulateCommand, aSafetyCheckHidesItsReasonWhenAFanRefuses) {
    const auto run = simulate(R"({"machine":"laptop","duration":30,
        "faults":[{"from":2,"until":19,"key":"F0Md","operation":"write","value":0,"result":134}],
        "events":[{"at":1,"call":"fullBlast"}]})");
    EXPECT_EQ(releasesIn(run.out), "1 × a safety check\n1 × retry\n");
}

TEST_F(SimulateCommand, startUpRecoveryReleasesWhatWasLeftForced) {
    const std::string leftForced = R"({"machine":"left-forced","duration":5)";
    for (const char* seed : {"0", "1", "2", "3", "4", "5"}) {
        EXPECT_EQ(releasesIn(simulate(leftForced + "}", {"--seed", seed}).out),
                  "2 × start-up recovery\n");
    }
}

TEST_F(SimulateCommand, theFirmwareMayGiveAFanBackItself) {
    const auto run = simulate(R"({"machine":"laptop","duration":3,
        "firmware":[{"at":2.2,"key":"F0Md","value":0}],"events":[{"at":1,"call":"fullBlast"}]})");
    EXPECT_EQ(releasesIn(run.out), "1 × the firmware itself\n");
}

TEST_F(SimulateCommand, aFanThatTheFirmwareTookIsNotReleased) {
    const auto run = simulate(R"({"machine":"laptop","duration":4,
        "firmware":[{"at":2.2,"key":"F0Md","value":3}],
        "events":[{"at":1,"call":"fullBlast"},{"at":2.3,"call":"automatic"}]})");
    EXPECT_EQ(releasesIn(run.out), "1 × automatic\n");
}

TEST_F(SimulateCommand, aFailedStartUpRecoveryEndsTheDaemon) {
    const auto run = simulate(R"({"machine":"laptop","duration":5,
        "faults":[{"key":"FNum","operation":"read","result":132}],
        "events":[{"at":1,"call":"fullBlast"},{"at":2,"call":"readState"},
                  {"at":1,"heartbeatEvery":1,"until":4}]})");
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, HasSubstr("log: [com.brisquell.helper] startup Auto recovery failed: "
                                   "could not read FNum during startup recovery\n"));
    EXPECT_THAT(run.out, Not(HasSubstr("app:")));
    EXPECT_THAT(run.out, HasSubstr("log: [com.brisquell.helper] process exit: restoring Auto...\n"
                                   "       0.0  the daemon exits with status 1\n"));
}

TEST_F(SimulateCommand, plansAreReadBesideTheScenario) {
    (void)folder.write("plan.json", R"({"fans":[],"rules":[],"tuning":{"emaAlpha":2}})");
    const std::string head = std::string("{") + oneFan;
    const auto wrong = simulate(head + R"(,"events":[{"at":0,"call":"automatic"},)"
                                       R"({"at":0,"call":"applyConfig","plan":"plan.json"}]})");
    EXPECT_EQ(wrong.status, 1);
    EXPECT_EQ(wrong.err, place() +
                             ": events[1].plan: plan.json: tuning: The required key "
                             "\"hysteresisCelsius\" is missing.\n");
    const auto missing =
        simulate(head + R"(,"events":[{"at":0,"call":"applyConfig","plan":"no.json"}]})");
    EXPECT_EQ(missing.err, place() +
                               ": events[0].plan: no.json: cannot be read: "
                               "No such file or directory\n");
}

TEST_F(SimulateCommand, aScenarioThatIsNoneIsExplained) {
    const auto run = simulate(R"({"machine":"laptop","fault":[]})");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, place() + ": fault: Unknown key.\n");
    EXPECT_EQ(runTool({"simulate", "/no/such.json"}).err,
              "/no/such.json: cannot be read: No such file or directory\n");
}

}  // namespace
}  // namespace airflow::tool
