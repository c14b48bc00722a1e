#include <gmock/gmock.h>

#include "ToolRun.h"
#include "tool/replay/CompareCommand.h"

namespace airflow::tool {
namespace {

using testing::HasSubstr;

std::string plan(const std::string& name) {
    return example("plans/" + name + ".json");
}

const std::string burst = example("traces/build-burst.jsonl");
const std::string day = example("scenarios/working-day.json");

TEST(CompareCommand, theFiguresOfATraceAreThoseOfItsReplay) {
    const auto run =
        runTool({"compare", plan("quiet"), plan("cool"), "--trace", burst, "--format", "json"});
    EXPECT_EQ(run.status, 0);
    for (const char* name : {"quiet", "cool"}) {
        const auto replay = runTool({"replay", plan(name), "--trace", burst, "--format", "jsonl"});
        const auto begin = replay.out.rfind("{\"summary\":") + std::string("{\"summary\":").size();
        const auto figures = replay.out.substr(begin, replay.out.size() - begin - 2);
        EXPECT_THAT(run.out, HasSubstr("{\"plan\":\"" + plan(name) + "\",\"figures\":" + figures));
    }
}

TEST(CompareCommand, inAScenarioAPlanThatCoolsMoreIsHotterForNobody) {
    const auto run = runTool({"compare", plan("quiet"), plan("cool"), "--scenario", day});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, testing::ContainsRegex("hottest, °C +82\\.9 +81\\.4 \\*\n"));
    EXPECT_THAT(run.out, testing::ContainsRegex("fan 0 mean RPM +[0-9]+ \\* +[0-9]+\n"));
    EXPECT_THAT(run.out, HasSubstr("* the best; lower is better in each line\n"));
}

TEST(CompareCommand, equalFiguresHaveNoBest) {
    const auto run = runTool({"compare", plan("quiet"), plan("quiet"), "--trace", burst});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, testing::ContainsRegex("hottest, °C +[0-9.]+ +[0-9.]+\n"));
}

TEST(CompareCommand, onePlanIsComparedWithItself) {
    EXPECT_EQ(runTool({"compare", plan("quiet"), "--trace", burst}).status, 0);
}

TEST(CompareCommand, aPlotIsDrawnForEachPlan) {
    const auto run = runTool({"compare", plan("quiet"), plan("cool"), "--trace", burst, "--plot"});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, HasSubstr(plan("quiet") + "\nhottest, °C\n"));
    EXPECT_THAT(run.out, HasSubstr(plan("cool") + "\nhottest, °C\n"));
}

TEST(CompareCommand, aFileThatCannotBePlayedIsNamedAndNothingIsWritten) {
    const ScratchFolder folder;
    const auto bad = folder.write("bad.jsonl", "{}\n");
    for (const auto& arguments :
         {std::vector<std::string>{"compare", plan("quiet"), "/no/such", "--trace", burst},
          {"compare", plan("quiet"), "--trace", bad},
          {"compare", plan("quiet"), "--scenario", example("scenarios/start-up-recovery.json")},
          {"compare", "-", "--trace", burst}}) {
        const auto run = runTool(arguments);
        EXPECT_EQ(run.status, 1);
        EXPECT_NE(run.err, "");
        EXPECT_EQ(run.out, "");
    }
}

TEST(CompareCommand, eitherATraceOrAScenarioIsNeeded) {
    EXPECT_NE(runTool({"compare", plan("quiet")}).status, 0);
    EXPECT_NE(runTool({"compare", plan("quiet"), "--trace", burst, "--scenario", day}).status, 0);
}

}  // namespace
}  // namespace airflow::tool
