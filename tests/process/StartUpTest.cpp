// How the daemon starts, and fails to, as a process. Real time: the end of a process and the order
// of its log lines and of what the machine saw are facts of the operating system.
#include "ProcessHarness.h"
#include "support/ApplyConfig.h"

namespace airflow::process {
namespace {

class StartUpTest : public ProcessHarness {};

TEST_F(StartUpTest, withoutAMachineThereIsOneLineAndStatusOne) {
    spawnHelper();
    EXPECT_EQ(helper->wait(), 1);
    EXPECT_EQ(helper->err.readToEnd(),
              "[com.brisquell.helper] failed to open AppleSMC: AppleSMC IOKit service not found\n");
    EXPECT_EQ(helper->out.readToEnd(), "");
}

TEST_F(StartUpTest, anUnreadableNumberOfFansEndsItAfterOneMoreRestoration) {
    startMachine();
    inject(R"({"key":"FNum","operation":"read","result":132})");
    spawnHelper();
    EXPECT_EQ(helper->wait(), 1);
    EXPECT_EQ(helper->err.readToEnd(),
              "[com.brisquell.helper] startup Auto recovery failed: could not read FNum during "
              "startup recovery\n" +
                  std::string(exiting));
}

TEST_F(StartUpTest, fansThatAreRefusedKeepItFromServing) {
    startMachine("left-forced");
    inject(R"({"key":"F1Md","operation":"write","value":0,"result":134})");
    spawnHelper();
    EXPECT_EQ(helper->wait(), 1);
    const auto first = helper->err.readLine().value_or("");
    EXPECT_THAT(first, testing::HasSubstr("startup Auto recovery failed: "));
    EXPECT_THAT(first, testing::HasSubstr("F1Md=0 rejected (SMC 0x86)"));
    EXPECT_EQ(helper->err.readToEnd(), exiting);
    EXPECT_EQ(modes(), (std::vector<std::int64_t>{0, 1})) << "the other fan is given back";
}

TEST_F(StartUpTest, whatAKilledDaemonHeldIsGivenBackBeforeTheNextOneListens) {
    startMachine();
    startHelper();
    auto client = connect();
    EXPECT_EQ(client.ask(holdBoth), R"({"id":2,"code":0})");
    helper->signal(SIGKILL);
    EXPECT_EQ(helper->wait(), 128 + SIGKILL);
    EXPECT_EQ(helper->err.readToEnd(), "");
    EXPECT_EQ(client.receive(), std::nullopt);
    EXPECT_EQ(modes(), bothForced) << "nobody is there to give them back";
    // Slow enough to see a line that would come too early.
    inject(R"({"key":"F1Md","operation":"write","value":0,"latency":0.3})");
    const auto before = std::chrono::steady_clock::now();
    startHelper();
    EXPECT_GE(std::chrono::steady_clock::now() - before, 300ms);
    EXPECT_EQ(modes(), bothAutomatic);
}

TEST_F(StartUpTest, aSecondDaemonLeavesTheFirstOneAndTheMachineAlone) {
    startMachine();
    startHelper();
    auto client = connect();
    EXPECT_EQ(client.ask(R"({"id":1,"method":"setManualRPM","fan":0,"rpm":3000})"),
              R"({"id":1,"code":0})");
    const auto before = status();
    Child second(
        {"helper", "--machine-socket", machineSocket(), "--helper-socket", helperSocket()});
    EXPECT_EQ(second.wait(), 1);
    EXPECT_EQ(second.err.readToEnd(), helperSocket() + ": another process listens there\n");
    const auto after = status();
    EXPECT_EQ(after.writes.at("F0Md"), before.writes.at("F0Md"))
        << "not even to ask whether somebody listens may it connect: the end of that would release";
    EXPECT_EQ(after.openConnections, 1);
    EXPECT_EQ(modes(), firstForced);
    EXPECT_EQ(client.ask(R"({"id":2,"method":"helperVersion"})"),
              R"({"id":2,"version":"1.0.3+6"})");
}

TEST_F(StartUpTest, aSecondDaemonOverTheSameMachineIsRefusedWhateverItsSocketIsCalled) {
    startMachine();
    startHelper();
    const auto before = status();
    Child second(
        {"helper", "--machine-socket", machineSocket(), "--helper-socket", helperSocket() + "2"});
    EXPECT_EQ(second.wait(), 1);
    EXPECT_EQ(second.err.readToEnd(), machineSocket() + ": another process uses it\n");
    EXPECT_EQ(status().writes, before.writes);
}

TEST_F(StartUpTest, withoutPrivilegesNothingIsForced) {
    startMachine();
    startHelper({"--euid", "501"});
    auto client = connect();
    const auto before = status().writes;
    EXPECT_EQ(client.ask(holdFirst), R"({"id":1,"code":5})");
    EXPECT_EQ(client.ask(holdBoth), R"({"id":2,"code":5})");
    EXPECT_EQ(client.ask(R"({"id":3,"method":"setManualRPM","fan":0,"rpm":3000})"),
              R"({"id":3,"code":5})");
    EXPECT_EQ(
        client.ask(tests::applyConfig(4, R"({"fans":[],"rules":[],)"
                                         R"("tuning":{"emaAlpha":0.3,"hysteresisCelsius":2,)"
                                         R"("maxDeltaRPMPerTick":400,"minDwellSeconds":3}})")),
        R"({"id":4,"code":5})");
    EXPECT_EQ(status().writes, before);
    EXPECT_EQ(modes(), bothAutomatic);
}

TEST_F(StartUpTest, theSocketIsForItsUserOnly) {
    startMachine();
    startHelper();
    const auto permissions = std::filesystem::status(helperSocket()).permissions();
    EXPECT_EQ(static_cast<unsigned>(permissions), 0600U);
}

}  // namespace
}  // namespace airflow::process
