#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "ToolRun.h"

namespace airflow::tool {
namespace {

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

INSTANTIATE_TEST_SUITE_P(Simulated, ExampleScenario, testing::ValuesIn(scenarioNames()),
                         [](const auto& scenario) {
                             std::string name = scenario.param;
                             std::erase(name, '-');
                             return name;
                         });

}  // namespace
}  // namespace airflow::tool
