// The command as a process beside a machine that is one, too. Each test waits for lines as they
// come.
#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <sstream>
#include <thread>

#include "ToolProcess.h"
#include "ToolRun.h"
#include "tool/replay/Trace.h"

namespace airflow::tool {
namespace {

class RecordCommandTest : public testing::Test {
protected:
    std::string socket() const { return (folder.path / "machine.sock").string(); }
    std::string file() const { return (folder.path / "t.jsonl").string(); }

    ToolProcess startMachine(const std::string& machine = "laptop") const {
        return ToolProcess({"machine", "--machine-socket", socket(), "--machine", machine});
    }
    ToolProcess startRecord(std::vector<std::string> options = {}) const {
        options.insert(options.begin(), {"record", "--machine-socket", socket(), "--every", "0.1"});
        return ToolProcess(std::move(options));
    }
    /// Waits until that file has something in it, as long as the recorder runs.
    static void waitFor(const std::string& path) {
        for (int i = 0; i < 1000 && contentOf(path).empty(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_NE(contentOf(path), "");
    }

    ScratchFolder folder;
};

std::vector<TraceTick> ticksOf(const std::string& text) {
    std::istringstream in(text);
    TraceReader reader(in, "trace");
    std::vector<TraceTick> ticks;
    for (;;) {
        auto tick = reader.next();
        EXPECT_TRUE(tick) << tick.error();
        if (!tick || !*tick) return ticks;
        ticks.push_back(std::move(**tick));
    }
}

TEST_F(RecordCommandTest, writesALineForEachLookAndEndsCleanlyWhenItIsTold) {
    ToolProcess machine = startMachine();
    ASSERT_TRUE(machine.readLine());
    for (const int signal : {SIGTERM, SIGINT}) {
        ToolProcess record = startRecord();
        std::string text;
        for (int i = 0; i < 3; ++i) text += record.readLine().value_or("") + "\n";
        record.signal(signal);
        while (const auto line = record.readLine()) text += *line + "\n";
        EXPECT_EQ(record.wait(), 0);
        const auto ticks = ticksOf(text);
        ASSERT_GE(ticks.size(), 3U);
        EXPECT_EQ(ticks.front().time, 0);
        for (std::size_t i = 1; i < ticks.size(); ++i) {
            EXPECT_GT(ticks[i].time, ticks[i - 1].time);
            EXPECT_EQ(ticks[i].snapshot.fans.size(), 2U);
            EXPECT_FALSE(ticks[i].snapshot.temps.empty());
        }
    }
}

TEST_F(RecordCommandTest, whatItRecordedCanBeReplayed) {
    ToolProcess machine = startMachine("no-hid");
    ASSERT_TRUE(machine.readLine());
    ToolProcess record = startRecord({"--output", file()});
    waitFor(file());
    record.signal(SIGINT);
    EXPECT_EQ(record.wait(), 0);
    const auto run = runTool({"replay", example("plans/balanced.json"), "--trace", file()});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
}

TEST_F(RecordCommandTest, fullFilesAreWholeTraces) {
    ToolProcess machine = startMachine();
    ASSERT_TRUE(machine.readLine());
    ToolProcess record = startRecord({"--output", file(), "--rotate-bytes", "1", "--keep", "1"});
    waitFor(file() + ".1");
    record.signal(SIGTERM);
    EXPECT_EQ(record.wait(), 0);
    EXPECT_EQ(ticksOf(contentOf(file())).size(), 1U);
    EXPECT_EQ(ticksOf(contentOf(file() + ".1")).size(), 1U);
    EXPECT_FALSE(std::filesystem::exists(file() + ".2"));
}

TEST_F(RecordCommandTest, aMachineThatGoesAwayEndsTheRecordingWithAnError) {
    ToolProcess machine = startMachine();
    ASSERT_TRUE(machine.readLine());
    ToolProcess record = startRecord({"--output", file()});
    waitFor(file());
    machine.signal(SIGKILL);
    (void)machine.wait();
    std::string last;
    while (const auto line = record.readLine()) last = *line;
    EXPECT_EQ(last, socket() + ": the machine has gone");
    EXPECT_EQ(record.wait(), 1);
    EXPECT_FALSE(ticksOf(contentOf(file())).empty());
}

TEST_F(RecordCommandTest, aMachineThatHangsDoesNotKeepTheRecordingFromItsEnd) {
    ToolProcess machine = startMachine();
    ASSERT_TRUE(machine.readLine());
    ToolProcess record = startRecord();
    EXPECT_TRUE(record.readLine());
    machine.signal(SIGSTOP);
    record.signal(SIGTERM);
    EXPECT_EQ(record.wait(), 0);
    machine.signal(SIGCONT);
}

TEST_F(RecordCommandTest, norDoesOneThatNeverAnswered) {
    ToolProcess machine = startMachine();
    ASSERT_TRUE(machine.readLine());
    machine.signal(SIGSTOP);
    ToolProcess record = startRecord({"--output", file()});
    while (!std::filesystem::exists(file())) std::this_thread::yield();
    record.signal(SIGTERM);
    EXPECT_EQ(record.wait(), 0);
    EXPECT_EQ(contentOf(file()), "");
}

TEST_F(RecordCommandTest, withoutAMachineThereIsNothingToRecord) {
    const auto run = runTool({"record", "--machine-socket", socket(), "--output", file()});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, socket() + ": nobody listens there; `airflow machine` starts a machine\n");
    EXPECT_FALSE(std::filesystem::exists(file()));
}

TEST_F(RecordCommandTest, aFileThatIsThereIsLeftAlone) {
    ToolProcess machine = startMachine();
    ASSERT_TRUE(machine.readLine());
    (void)folder.write("t.jsonl", "mine");
    const auto run = runTool({"record", "--machine-socket", socket(), "--output", file()});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, file() + ": cannot be created: File exists\n");
    EXPECT_EQ(contentOf(file()), "mine");
}

TEST_F(RecordCommandTest, wrongUsageIsRefused) {
    EXPECT_EQ(runTool({"record", "--every", "0.09"}).status, 2);
    EXPECT_EQ(runTool({"record", "--every", "often"}).status, 2);
    EXPECT_EQ(runTool({"record", "--rotate-bytes", "1000"}).status, 2);
    EXPECT_EQ(runTool({"record", "--output", file(), "--keep", "3"}).status, 2);
    EXPECT_EQ(runTool({"record", "--output", file(), "--rotate-bytes", "0"}).status, 2);
}

}  // namespace
}  // namespace airflow::tool
