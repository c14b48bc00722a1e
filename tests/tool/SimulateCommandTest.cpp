#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "ToolRun.h"

namespace airflow::tool {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string contentOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> scenarioNames() {
    std::vector<std::string> names;
    for (const auto& file : std::filesystem::directory_iterator(example("scenarios"))) {
        if (file.path().extension() == ".json") names.push_back(file.path().stem().string());
    }
    std::ranges::sort(names);
    return names;
}

class ExampleScenario : public testing::TestWithParam<std::string> {};

TEST_P(ExampleScenario, playsAsItsGoldenTimelineSays) {
    const auto run = runTool({"simulate", example("scenarios/" + GetParam() + ".json")});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, contentOf(std::string(AIRFLOW_GOLDEN) + "/" + GetParam() + ".txt"));
}

TEST_P(ExampleScenario, playsTheSameTwiceAndWithASeed) {
    for (const char* seed : {"0", "7"}) {
        const std::vector<std::string> arguments{
            "simulate",   example("scenarios/" + GetParam() + ".json"),
            "--format",   "jsonl",
            "--seed",     seed,
            "--duration", "120",
            "--reads"};
        const auto first = runTool(arguments);
        EXPECT_EQ(first.status, 0);
        EXPECT_NE(first.out, "");
        EXPECT_EQ(first.out, runTool(arguments).out);
    }
}

INSTANTIATE_TEST_SUITE_P(SimulateCommand, ExampleScenario, testing::ValuesIn(scenarioNames()),
                         [](const auto& scenario) {
                             std::string name = scenario.param;
                             std::erase(name, '-');
                             return name;
                         });

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
              R"({"time":0,"smc":"write","key":"Ftst","value":1,"result":0})"
              "\n"
              R"({"time":0,"smc":"write","key":"F0Md","value":0,"result":0})"
              "\n"
              R"({"time":0,"smc":"write","key":"Ftst","value":0,"result":0})"
              "\n"
              R"({"time":0,"state":{"perFanMode":{},"targets":{},"isHolding":false}})"
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
                StartsWith(R"({"time":0,"smc":"read","key":"FNum","value":1,"result":0})"
                           "\n"
                           R"({"time":0,"smc":"read","key":"F0Md","value":0,"result":0})"));
}

TEST_F(SimulateCommand, durationOfTheCommandLineWins) {
    const std::string scenario = std::string("{") + oneFan + R"(,"duration":1000})";
    EXPECT_THAT(simulate(scenario, {"--duration", "3"}).out, HasSubstr("0.0 of 3.0 s"));
    EXPECT_THAT(simulate(scenario).out, HasSubstr("0.0 of 1000.0 s"));
    EXPECT_EQ(simulate(scenario, {"--duration", "-1"}).status, 2);
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
