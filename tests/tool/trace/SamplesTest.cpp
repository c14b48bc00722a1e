// What a simulated daemon read, as a trace; and a scenario whose temperatures come from a trace.
#include <gmock/gmock.h>

#include <map>
#include <sstream>

#include "ToolRun.h"
#include "tool/replay/Trace.h"

namespace airflow::tool {
namespace {

using testing::HasSubstr;
using testing::Not;

std::vector<std::string> linesOf(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

double timeOf(const std::string& line) {
    return std::stod(line.substr(std::string(R"({"time":)").size()));
}

/// The rest of a line from its member "state" on; nothing where it has none.
std::string stateOf(const std::string& line) {
    const auto found = line.find(R"(,"state":)");
    return found == std::string::npos ? std::string() : line.substr(found);
}

class Samples : public testing::Test {
protected:
    ToolRun simulate(const std::string& scenario, std::vector<std::string> more) {
        std::vector<std::string> arguments{"simulate", folder.write("s.json", scenario)};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runTool(std::move(arguments));
    }
    ToolRun followed(const std::string& scenario, const std::string& trace) {
        return simulate(scenario, {"--samples", "--trace", folder.write("t.jsonl", trace)});
    }
    std::string tracePlace() const { return (folder.path / "t.jsonl").string(); }

    ScratchFolder folder;
};

TEST_F(Samples, aReplayOfAWorkingDaysSamplesComesToTheStatesThatItsDaemonPublished) {
    const auto scenario = example("scenarios/working-day.json");
    const auto trace = runTool({"simulate", scenario, "--samples"});
    ASSERT_EQ(trace.status, 0) << trace.err;
    const auto samples = linesOf(trace.out);
    ASSERT_GT(samples.size(), 2000U);

    std::map<double, std::string> published;
    const auto told = runTool({"simulate", scenario, "--format", "jsonl"});
    for (const std::string& line : linesOf(told.out)) {
        if (const auto state = stateOf(line); !state.empty()) published[timeOf(line)] = state;
    }
    const auto replayed = linesOf(runTool({"replay", example("plans/curve-and-rules.json"),
                                           "--trace", "-", "--format", "jsonl"},
                                          trace.out)
                                      .out);
    ASSERT_EQ(replayed.size(), samples.size() + 1) << "a line each, and the summary";
    std::string before;
    std::size_t changes = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        // Looks are 1.5 s apart, and the client's last command is not sooner after one of them.
        auto state = published.upper_bound(timeOf(samples[i]) + 0.5);
        ASSERT_NE(state, published.begin());
        --state;
        ASSERT_EQ(stateOf(replayed[i]), state->second) << samples[i].substr(0, 30);
        if (state->second != before) ++changes;
        before = state->second;
    }
    EXPECT_GT(changes, 100U);
}

constexpr const char* heldPlan = R"(,"events":[{"at":0,"call":"setManualRPM","fan":0,"rpm":3000},
    {"at":1,"heartbeatEvery":5,"until":60}]})";

TEST_F(Samples, fansAreAsTheDaemonReadThem) {
    const auto run =
        simulate(std::string(R"({"machine":"laptop","duration":20)") + heldPlan, {"--samples"});
    EXPECT_EQ(run.status, 0) << run.err;
    const auto lines = linesOf(run.out);
    ASSERT_GT(lines.size(), 5U);
    EXPECT_THAT(lines.back(),
                HasSubstr(R"({"id":0,"minRPM":1200,"maxRPM":6000,"currentRPM":2999,"mode":1,)"));
    EXPECT_THAT(lines.back(), HasSubstr(R"({"id":1,"minRPM":1200,"maxRPM":6200,)"));
    EXPECT_THAT(lines.back(), HasSubstr(R"("mode":0,"name":"Fan 1")"));
}

TEST_F(Samples, aDaemonThatControlsNothingReadsNothing) {
    const auto run = simulate(R"({"machine":"laptop","duration":20})", {"--samples"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "");
}

TEST_F(Samples, takeTheFormatsPlace) {
    const std::string scenario = R"({"machine":"laptop","duration":1})";
    EXPECT_EQ(simulate(scenario, {"--samples", "--format", "jsonl"}).status, 2);
    EXPECT_EQ(simulate(scenario, {"--samples", "--plot"}).status, 2);
    EXPECT_EQ(simulate(scenario, {"--samples", "--why", "0@1"}).status, 2);
    EXPECT_EQ(simulate(scenario, {"--samples", "--reads"}).status, 2);
}

std::string line(const std::string& time, const std::string& temps) {
    return R"({"time":)" + time + R"(,"fans":[],"temps":[)" + temps + "]}\n";
}

std::string temp(const std::string& id, const std::string& celsius) {
    return R"({"source":")" + id.substr(0, 3) + R"(","key":")" + id.substr(4) + R"(","celsius":)" +
           celsius + "}";
}

/// What the daemon read of a sensor at its last look before a time; nothing when it was not there.
std::optional<double> readBefore(const std::string& samples, double time, const std::string& id) {
    std::optional<double> celsius;
    std::istringstream in(samples);
    TraceReader reader(in, "samples");
    for (auto tick = reader.next(); tick && *tick && (*tick)->time < time; tick = reader.next()) {
        celsius.reset();
        for (const auto& sensor : (*tick)->snapshot.temps) {
            if (sensor.id() == id) celsius = sensor.celsius;
        }
    }
    return celsius;
}

TEST_F(Samples, temperaturesFollowATraceFromItsFirstLineOn) {
    const auto run = followed(
        std::string(R"({"machine":{"preset":"no-hid"},"thermal":{"load":[{"at":0,"watts":50}]})") +
            heldPlan,
        line("1000", temp("SMC-TCMz", "50")) + line("1010", temp("SMC-TCMz", "60")) +
            line("1020", "") + line("1030", temp("SMC-TCMz", "70")));
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(readBefore(run.out, 10, "SMC-TCMz"), 50);
    EXPECT_EQ(readBefore(run.out, 20, "SMC-TCMz"), 60);
    EXPECT_EQ(readBefore(run.out, 30, "SMC-TCMz"), std::nullopt) << "vanished";
    EXPECT_EQ(readBefore(run.out, 60, "SMC-TCMz"), 70) << "until 30 s after the end";
    EXPECT_EQ(readBefore(run.out, 60, "SMC-TCHP"), 45.5) << "as the machine describes it";
}

TEST_F(Samples, aReadingOfSeveralServicesIsSetForEachOfThem) {
    const auto run =
        followed(std::string(R"({"machine":"laptop")") + heldPlan,
                 line("0", temp("HID-SoC", "60") + "," + temp("HID-NAND CH0 temp", "50")) +
                     line("10", temp("HID-SoC", "80")));
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NEAR(readBefore(run.out, 10, "HID-SoC").value_or(0), 60, 0.1);
    EXPECT_NEAR(readBefore(run.out, 10, "HID-NAND CH0 temp").value_or(0), 50, 0.1);
    EXPECT_NEAR(readBefore(run.out, 20, "HID-SoC").value_or(0), 80, 0.1);
    EXPECT_NEAR(readBefore(run.out, 20, "HID-GPU MTR Temp Sensor1").value_or(0), 42.5, 0.1);
}

TEST_F(Samples, canBeFollowedInTurn) {
    const auto scenario = example("scenarios/thermal-ceiling.json");
    const auto samples = runTool({"simulate", scenario, "--samples"});
    const auto path = folder.write("t.jsonl", samples.out);
    const auto run = runTool({"simulate", scenario, "--trace", path});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.out, HasSubstr("thermal ceiling"));
}

TEST_F(Samples, aSensorThatTheMachineDoesNotHaveIsNamed) {
    const std::string scenario = R"({"machine":"laptop"})";
    for (const char* id : {"SMC-TXXX", "HID-PMU tdie99", "HID-PMU", "SMC-SoC"}) {
        const auto run =
            followed(scenario, line("0", temp("HID-SoC", "60")) +
                                   line("1", temp("HID-SoC", "60") + "," + temp(id, "60")));
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err, tracePlace() + ":2: temps[1]: this machine has no sensor " + id + ".\n");
    }
    EXPECT_THAT(followed(R"({"machine":"no-hid"})", line("0", temp("HID-SoC", "60"))).err,
                HasSubstr("this machine has no sensor HID-SoC."));
    EXPECT_THAT(followed(R"({"machine":"no-hid-symbols"})", line("0", temp("HID-SoC", "60"))).err,
                HasSubstr("this machine has no sensor HID-SoC."));
}

TEST_F(Samples, aTraceThatCannotBeFollowedIsAnErrorWithItsPlace) {
    const std::string scenario = R"({"machine":"laptop"})";
    EXPECT_EQ(followed(scenario, "").err, tracePlace() + ": the trace is empty\n");
    EXPECT_EQ(followed(scenario, line("3", "") + line("3", "")).err,
              tracePlace() + ":2: time: 3 s is not after the line before (3 s).\n");
    EXPECT_THAT(followed(scenario, line("0", "") + line("2e8", "")).err,
                HasSubstr(":2: time: more than 100000000 s after the first line.\n"));
    EXPECT_THAT(followed(scenario, "{}\n").err, HasSubstr(":1: "));
    const auto missing = simulate(scenario, {"--trace", folder.path.string() + "/no"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err,
              folder.path.string() + "/no: cannot be read: No such file or directory\n");
    EXPECT_THAT(missing.out, Not(HasSubstr("0.0")));
}

}  // namespace
}  // namespace airflow::tool
