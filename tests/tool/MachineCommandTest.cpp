// The command as a process, asked by the test and by other processes.
#include <gmock/gmock.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "ToolProcess.h"
#include "ToolRun.h"
#include "remote/MachineStatus.h"
#include "remote/RemoteMachine.h"
#include "smc/SMCRequests.h"
#include "tool/machine/MachineCommand.h"
#include "tool/machine/MachineQuestion.h"

namespace airflow::tool {
namespace {

class MachineCommandTest : public testing::Test {
protected:
    std::string socket() const { return (folder.path / "machine.sock").string(); }

    /// A machine that is ready.
    ToolProcess start(std::vector<std::string> options = {}) {
        options.insert(options.begin(), {"machine", "--machine-socket", socket()});
        return ToolProcess(std::move(options));
    }
    ToolRun ask(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "machine");
        arguments.insert(arguments.end(), {"--machine-socket", socket()});
        return runTool(std::move(arguments));
    }
    remote::MachineStatus status() {
        const auto run = ask({"status", "--format", "json"});
        EXPECT_EQ(run.status, 0) << run.err;
        return json::decode<remote::MachineStatus>(run.out.substr(0, run.out.size() - 1))
            .value_or(remote::MachineStatus{});
    }

    ScratchFolder folder;
};

TEST_F(MachineCommandTest, saysWhenItIsReadyAndRemovesItsSocketAtTheEnd) {
    for (const int signal : {SIGTERM, SIGINT}) {
        ToolProcess machine = start();
        EXPECT_EQ(machine.readLine(), "machine laptop (2 fans) on " + socket());
        EXPECT_EQ(status().machine, "laptop");
        machine.signal(signal);
        EXPECT_EQ(machine.wait(), 0);
        EXPECT_FALSE(std::filesystem::exists(socket()));
    }
}

TEST_F(MachineCommandTest, theMachineIsTheOneThatWasAskedFor) {
    ToolProcess machine = start({"--machine", "fanless"});
    EXPECT_EQ(machine.readLine(), "machine fanless (no fans) on " + socket());
    EXPECT_TRUE(status().fans.empty());
}

TEST_F(MachineCommandTest, aSecondMachineDoesNotTakeTheSocket) {
    ToolProcess first = start();
    EXPECT_TRUE(first.readLine());
    ToolProcess second = start();
    EXPECT_EQ(second.readLine(), socket() + ": another process listens there");
    EXPECT_EQ(second.wait(), 1);
    EXPECT_EQ(status().machine, "laptop") << "the first one goes on";
}

TEST_F(MachineCommandTest, theSocketOfAMachineThatWasKilledIsTakenOver) {
    ToolProcess first = start();
    EXPECT_TRUE(first.readLine());
    first.signal(SIGKILL);
    EXPECT_EQ(first.wait(), 128 + SIGKILL);
    EXPECT_TRUE(std::filesystem::exists(socket()));
    EXPECT_EQ(ask({"status"}).status, 1);
    ToolProcess second = start();
    EXPECT_EQ(second.readLine(), "machine laptop (2 fans) on " + socket());
}

TEST_F(MachineCommandTest, fansStayAsTheyAreWhenWhoForcedThemIsGone) {
    ToolProcess machine = start();
    EXPECT_TRUE(machine.readLine());
    {
        remote::RemoteMachine remote(socket());
        smc::SMCRequests requests(remote.smc());
        ASSERT_TRUE(requests.open());
        EXPECT_EQ(requests.writeUInt8("F0Md", 1), 0);
        EXPECT_EQ(requests.writeFloat("F0Tg", 4000), 0);
        EXPECT_EQ(status().openConnections, 1);
    }
    const auto left = status();
    EXPECT_EQ(left.fans.at(0).mode, 1);
    EXPECT_EQ(left.fans.at(0).targetRPM, 4000);
    EXPECT_EQ(left.writes, (std::map<std::string, std::int64_t>{{"F0Md", 1}, {"F0Tg", 1}}));
    EXPECT_GE(left.smcRequests, 6);
}

TEST_F(MachineCommandTest, endsWhileSomebodyIsConnectedAndAnAnswerIsHeldBack) {
    ToolProcess machine = start();
    EXPECT_TRUE(machine.readLine());
    EXPECT_EQ(ask({"fault", R"({"operation":"information","latency":3600})"}).status, 0);
    remote::RemoteMachine remote(socket());
    smc::SMCRequests requests(remote.smc());
    ASSERT_TRUE(requests.open());
    std::thread stuck([&requests] { EXPECT_EQ(requests.tryReadValue("FNum"), std::nullopt); });
    while (status().smcRequests < 4) std::this_thread::yield();
    machine.signal(SIGTERM);
    EXPECT_EQ(machine.wait(), 0);
    stuck.join();
    EXPECT_EQ(requests.writeUInt8("F0Md", 0).error(),
              smc::SMCError::ioReturn("IOConnectCallStructMethod", 0xE00002C0));
}

TEST_F(MachineCommandTest, aMachineThatHangsIsNotWaitedForForEver) {
    ToolProcess machine = start();
    EXPECT_TRUE(machine.readLine());
    machine.signal(SIGSTOP);
    const auto answerNow = [this] {
        return askMachine(socket(), R"({"status":{}})", std::chrono::milliseconds(10));
    };
    auto answer = answerNow();
    while (answer) answer = answerNow();  // until the signal has stopped its last thread
    EXPECT_EQ(answer.error(), socket() + ": the machine did not answer within 0.01 s");
    machine.signal(SIGCONT);
    EXPECT_EQ(status().machine, "laptop");
}

TEST_F(MachineCommandTest, timeRunsAsFastAsToldTo) {
    ToolProcess machine = start({"--speed", "100"});
    EXPECT_TRUE(machine.readLine());
    const auto before = std::chrono::steady_clock::now();
    while (status().seconds < 20) std::this_thread::yield();
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(10));
}

TEST_F(MachineCommandTest, faultsAndChangesReachTheMachine) {
    ToolProcess machine = start();
    EXPECT_TRUE(machine.readLine());
    const std::string refusal = R"({"key":"F0Md","operation":"write","value":0,"result":134})";
    const std::string unreadable = R"({"key":"FNum","operation":"read","result":132})";
    EXPECT_EQ(ask({"fault", refusal, unreadable}).out, "");
    EXPECT_EQ(status().faults, 2);
    EXPECT_EQ(ask({"set", R"({"keys":{"F0Md":1},"hid":{"PMU tdie1":97}})"}).status, 0);
    EXPECT_EQ(status().fans.at(0).mode, 1);
    EXPECT_THAT(ask({"status"}).out, testing::HasSubstr("PMU tdie1             HID     97.00\n"));
    remote::RemoteMachine remote(socket());
    smc::SMCRequests requests(remote.smc());
    ASSERT_TRUE(requests.open());
    EXPECT_EQ(requests.writeUInt8("F0Md", 0), 134);
    EXPECT_EQ(requests.tryReadValue("FNum"), std::nullopt);
    EXPECT_EQ(ask({"clear"}).status, 0);
    EXPECT_EQ(requests.writeUInt8("F0Md", 0), 0);
    EXPECT_EQ(requests.tryReadValue("FNum")->numeric(), 2);
}

TEST_F(MachineCommandTest, whatTheMachineRefusesIsTold) {
    ToolProcess machine = start();
    EXPECT_TRUE(machine.readLine());
    const auto wrongKey = ask({"fault", R"({"key":"F0"})"});
    EXPECT_EQ(wrongKey.status, 1);
    EXPECT_EQ(wrongKey.err, "request: faults[0].key: Expected four characters.\n");
    const auto wrongChange = ask({"set", R"({"keys":{"F0Mx":1}})"});
    EXPECT_EQ(wrongChange.status, 1);
    EXPECT_EQ(wrongChange.err, "F0Mx cannot be set to 1\n");
}

TEST_F(MachineCommandTest, withoutAMachineThereIsNothingToAsk) {
    for (const auto& arguments :
         {std::vector<std::string>{"status"}, {"clear"}, {"fault", "{}"}, {"set", "{}"}}) {
        const auto run = ask(arguments);
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.err,
                  socket() + ": nobody listens there; `airflow machine` starts a machine\n");
    }
}

TEST_F(MachineCommandTest, aSocketOfSomethingElseIsNotTakenForAMachine) {
    const auto listening = platform::listenOn(socket());
    ASSERT_TRUE(listening);
    std::thread other([&listening] {
        const auto connection = platform::acceptFrom(*listening);
        EXPECT_TRUE(platform::sendAll(connection, "HTTP/1.1 400 Bad Request\r\n\r\n"));
    });
    const auto run = ask({"status"});
    other.join();
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, socket() + ": no machine answers there\n");
}

TEST_F(MachineCommandTest, aSocketThatCannotBeMadeIsToldWithTheReason) {
    const auto run = runTool({"machine", "--machine-socket", folder.path.string() + "/no/where"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, folder.path.string() +
                           "/no/where: no socket can be made there: No such file or directory\n");
}

TEST_F(MachineCommandTest, wrongUsageIsRefused) {
    EXPECT_EQ(ask({"--machine", "toaster"}).status, 2);
    for (const char* speed : {"0", "0.009", "100.1", "-1", "fast"}) {
        EXPECT_EQ(ask({"--speed", speed}).status, 2) << speed;
    }
    for (const char* load : {"-1", "1000.1", "hot"}) {
        EXPECT_EQ(ask({"--load", load}).status, 2) << load;
    }
    EXPECT_EQ(ask({"fault"}).status, 2);
    EXPECT_EQ(ask({"fault", "{"}).status, 2);
    EXPECT_EQ(ask({"fault", "{}],\"clear\":[{}"}).status, 2);
    EXPECT_EQ(ask({"set"}).status, 2);
    EXPECT_EQ(ask({"set", "{}{}"}).status, 2);
    EXPECT_EQ(ask({"status", "--format", "xml"}).status, 2);
    EXPECT_EQ(ask({"status", "clear"}).status, 2);
    EXPECT_EQ(ask({"--speed", "2", "status"}).status, 2);
    EXPECT_EQ(ask({"--machine", "laptop", "status"}).status, 2);
    EXPECT_EQ(ask({"--load", "8", "clear"}).status, 2);
}

TEST_F(MachineCommandTest, theSocketIsInTheUsersFolderUnlessNamed) {
    EXPECT_EQ(machineSocket("here.sock"), "here.sock");
    const char* const before = getenv("XDG_RUNTIME_DIR");
    const std::string kept = before ? before : "";
    setenv("XDG_RUNTIME_DIR", folder.path.c_str(), 1);
    EXPECT_EQ(machineSocket(""), folder.path.string() + "/airflow/machine.sock");
    if (before)
        setenv("XDG_RUNTIME_DIR", kept.c_str(), 1);
    else
        unsetenv("XDG_RUNTIME_DIR");
}

}  // namespace
}  // namespace airflow::tool
