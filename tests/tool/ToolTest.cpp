#include <gmock/gmock.h>

#include "ToolRun.h"

namespace airflow::tool {
namespace {

using testing::HasSubstr;

TEST(Tool, printsTheBuildIdentity) {
    const auto run = runTool({"--version"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "1.0.3+6\n");
}

TEST(Tool, helpNamesEveryCommand) {
    const auto run = runTool({"--help"});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, HasSubstr("check"));
    EXPECT_THAT(run.out, HasSubstr("replay"));
    EXPECT_THAT(run.out, HasSubstr("sensors"));
    EXPECT_THAT(run.out, HasSubstr("machines"));
}

TEST(Tool, everyCommandHasHelp) {
    const auto check = runTool({"check", "--help"});
    EXPECT_EQ(check.status, 0);
    EXPECT_THAT(check.out, HasSubstr("PLAN"));
    const auto replay = runTool({"replay", "--help"});
    EXPECT_EQ(replay.status, 0);
    EXPECT_THAT(replay.out, HasSubstr("--trace"));
    EXPECT_THAT(replay.out, HasSubstr("--format"));
    const auto sensors = runTool({"sensors", "--help"});
    EXPECT_EQ(sensors.status, 0);
    EXPECT_THAT(sensors.out, HasSubstr("--machine"));
    EXPECT_THAT(sensors.out, HasSubstr("--format"));
    EXPECT_EQ(runTool({"machines", "--help"}).status, 0);
}

TEST(Tool, aWrongFormatIsRefusedWithTheListOfFormats) {
    const auto run = runTool({"replay", "a.json", "--trace", "t.jsonl", "--format", "xml"});
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr("xml"));
    EXPECT_THAT(run.err, HasSubstr("table"));
    EXPECT_THAT(run.err, HasSubstr("jsonl"));
    EXPECT_EQ(runTool({"replay", "a.json", "--trace", "t.jsonl", "--format", "1"}).status, 2);
}

TEST(Tool, outputThatCannotBeWrittenIsAnError) {
    std::istringstream in;
    std::ostringstream out;
    std::ostringstream err;
    out.setstate(std::ios::badbit);
    EXPECT_EQ(runTool({"--version"}, {in, out, err}), 1);
    EXPECT_EQ(err.str(), "the output cannot be written\n");
}

TEST(Tool, aCommandThatDoesNotExistIsNamedWithTheOneThatMayHaveBeenMeant) {
    const auto errorOf = [](std::vector<std::string> arguments) {
        const auto run = runTool(std::move(arguments));
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "");
        return run.err;
    };
    const std::string hint = "\nRun with --help for more information.\n";
    EXPECT_EQ(errorOf({"chek"}), "airflow has no command \"chek\"; did you mean \"check\"?" + hint);
    EXPECT_EQ(errorOf({"chek", "a.json", "--strict"}),
              "airflow has no command \"chek\"; did you mean \"check\"?" + hint);
    EXPECT_EQ(errorOf({"melt\x1b[m"}), "airflow has no command \"melt\uFFFD[m\"" + hint);
    EXPECT_EQ(errorOf({"machine", "stauts"}),
              "airflow machine has no command \"stauts\"; did you mean \"status\"?" + hint);
    EXPECT_EQ(errorOf({"call", "setPercnt", "0", "50"}),
              "METHOD: there is no method \"setPercnt\"; did you mean \"setPercent\"?" + hint);
}

TEST(Tool, anOptionThatDoesNotExistIsNamedWithTheOneThatMayHaveBeenMeant) {
    const auto errorOf = [](std::vector<std::string> arguments) {
        const auto run = runTool(std::move(arguments));
        EXPECT_EQ(run.status, 2);
        return run.err.substr(0, run.err.find('\n'));
    };
    EXPECT_EQ(errorOf({"check", "--strcit"}),
              "airflow check has no option \"--strcit\"; did you mean \"--strict\"?");
    EXPECT_EQ(errorOf({"check", "--strcit", "a.json"}),
              "airflow check has no option \"--strcit\"; did you mean \"--strict\"?");
    EXPECT_EQ(errorOf({"soak", "--seed=5"}),
              "airflow soak has no option \"--seed\"; did you mean \"--seeds\"?");
    EXPECT_EQ(errorOf({"machine", "status", "--fromat", "json"}),
              "airflow machine status has no option \"--fromat\"; did you mean \"--format\"?");
    EXPECT_EQ(errorOf({"--verison"}),
              "airflow has no option \"--verison\"; did you mean \"--version\"?");
    EXPECT_EQ(errorOf({"sensors", "--frobnicate"}),
              "airflow sensors has no option \"--frobnicate\"");
}

TEST(Tool, anArgumentThatNobodyTakesIsNamed) {
    const auto run = runTool({"replay", "a.json", "b.json", "--trace", "t.jsonl"});
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, testing::StartsWith("airflow replay takes no further argument, such as "
                                             "\"b.json\"\n"));
    EXPECT_THAT(runTool({"sensors", "laptop"}).err, HasSubstr("\"laptop\""));
}

TEST(Tool, wrongUsageIsStatusTwoAndExplained) {
    const std::vector<std::vector<std::string>> wrong{
        {},
        {"melt"},
        {"--melt"},
        {"check"},
        {"check", "--melt", "a.json"},
        {"replay"},
        {"replay", "a.json"},
        {"replay", "--trace", "t.jsonl"},
        {"replay", "a.json", "--trace"},
        {"replay", "a.json", "--trace", "t.jsonl", "--format", "xml"},
        {"replay", "a.json", "b.json", "--trace", "t.jsonl"},
        {"sensors", "laptop"},
        {"sensors", "--machine"},
        {"sensors", "--format", "jsonl"},
        {"sensors", "--format", "1"},
    };
    for (const auto& arguments : wrong) {
        const auto run = runTool(arguments);
        EXPECT_EQ(run.status, 2) << testing::PrintToString(arguments);
        EXPECT_EQ(run.out, "") << testing::PrintToString(arguments);
        EXPECT_NE(run.err, "") << testing::PrintToString(arguments);
    }
}

}  // namespace
}  // namespace airflow::tool
