// Signals to a daemon that runs. Real time everywhere: a signal is delivered by the kernel, to
// whichever thread it likes, and the end of a process can only be waited for.
#include <sys/resource.h>

#include <thread>

#include "ProcessHarness.h"
#include "support/ApplyConfig.h"

namespace airflow::process {
namespace {

class SignalsTest : public ProcessHarness {
protected:
    void SetUp() override { startMachine(); }
    /// Seconds that the process takes to end from now on, with this status.
    Seconds timeToEnd(int expectedStatus) {
        const auto before = std::chrono::steady_clock::now();
        EXPECT_EQ(helper->wait(), expectedStatus);
        return std::chrono::steady_clock::now() - before;
    }
};

TEST_F(SignalsTest, aTerminationGivesTheFansBackAndSaysSoInOneLine) {
    startHelper();
    auto client = connect();
    EXPECT_EQ(client.ask(holdBoth), R"({"id":2,"code":0})");
    EXPECT_EQ(modes(), bothForced);
    helper->signal(SIGTERM);
    EXPECT_EQ(helper->wait(), 143);
    EXPECT_EQ(helper->err.readToEnd(), terminating);
    EXPECT_EQ(helper->out.readToEnd(), "");
    EXPECT_EQ(modes(), bothAutomatic);
    EXPECT_EQ(status().forceTest, 0);
}

TEST_F(SignalsTest, anInterruptionDoesTheSameWithAnotherStatus) {
    startHelper();
    auto client = connect();
    EXPECT_EQ(client.ask(holdFirst), R"({"id":1,"code":0})");
    EXPECT_EQ(modes(), firstForced);
    helper->signal(SIGINT);
    EXPECT_EQ(helper->wait(), 130);
    EXPECT_EQ(helper->err.readToEnd(), interrupting);
    EXPECT_EQ(modes(), bothAutomatic);
}

TEST_F(SignalsTest, aSecondSignalWhileTheFirstRestoresSlowlyChangesNothing) {
    startHelper();
    auto client = connect();
    EXPECT_EQ(client.ask(holdBoth), R"({"id":2,"code":0})");
    inject(R"({"key":"F0Md","operation":"write","value":0,"latency":0.6})");
    const auto before = writesOf("F0Md");
    helper->signal(SIGTERM);
    ASSERT_TRUE(eventually([&] { return writesOf("F0Md") == before + 1; }));
    ASSERT_FALSE(helper->hasEnded());
    helper->signal(SIGTERM);
    helper->signal(SIGINT);
    EXPECT_EQ(helper->wait(), 143);
    EXPECT_EQ(helper->err.readToEnd(), terminating);
    EXPECT_EQ(modes(), bothAutomatic);
    EXPECT_EQ(writesOf("F0Md"), before + 1);
}

TEST_F(SignalsTest, aTerminationWhileAPlanHoldsGivesTheFansBack) {
    startHelper();
    auto client = connect();
    EXPECT_EQ(client.ask(tests::applyConfig(
                  3, R"({"fans":[)"
                     R"({"fanID":0,"mode":{"fixedPercent":{"_0":70}}},)"
                     R"({"fanID":1,"mode":{"fixedRPM":{"_0":4200}}}],"rules":[],)"
                     R"("tuning":{"emaAlpha":0.3,"hysteresisCelsius":2,)"
                     R"("maxDeltaRPMPerTick":400,"minDwellSeconds":3}})")),
              R"({"id":3,"code":0})");
    EXPECT_TRUE(eventually([&] { return modes() == bothForced; }));
    helper->signal(SIGTERM);
    EXPECT_EQ(helper->wait(), 143);
    EXPECT_EQ(modes(), bothAutomatic);
}

TEST_F(SignalsTest, aMachineThatRefusesDoesNotKeepTheProcess) {
    startHelper();
    auto client = connect();
    EXPECT_EQ(client.ask(holdFirst), R"({"id":1,"code":0})");
    inject(R"({"operation":"write","result":134})");
    helper->signal(SIGTERM);
    EXPECT_LT(timeToEnd(143), 4s);  // it tries for 3 s
    EXPECT_EQ(helper->err.readToEnd(), terminating);
    EXPECT_EQ(modes(), firstForced) << "the machine refused";
    clearFaults();
    startHelper();
    EXPECT_EQ(modes(), bothAutomatic) << "the next start makes up for it";
}

TEST_F(SignalsTest, aMachineThatHangsKeepsTheProcessForThreeSecondsOnly) {
    startHelper();
    auto client = connect();
    EXPECT_EQ(client.ask(holdFirst), R"({"id":1,"code":0})");
    inject(R"({"operation":"write","latency":30})");
    inject(R"({"operation":"read","latency":30})");
    helper->signal(SIGTERM);
    const Seconds taken = timeToEnd(143);
    EXPECT_GE(taken, 2900ms);
    EXPECT_LT(taken, 4500ms);
    EXPECT_EQ(helper->err.readToEnd(), terminating);
}

/// Signals that mean nothing to the daemon, and so do what they do to any process.
class UnhandledSignal : public ProcessHarness, public testing::WithParamInterface<int> {};

TEST_P(UnhandledSignal, endsTheProcessAtOnceWithoutAWordAndLeavesTheFansToTheNextStart) {
    startMachine();
    // Whoever runs the tests in the background may have them, and their children, ignore it.
    const auto inherited = ::signal(GetParam(), SIG_DFL);
    startHelper();
    ::signal(GetParam(), inherited);
    const rlimit noCoreFile{.rlim_cur = 0, .rlim_max = 0};
    ASSERT_EQ(prlimit(helper->id(), RLIMIT_CORE, &noCoreFile, nullptr), 0);
    auto client = connect();
    EXPECT_EQ(client.ask(holdBoth), R"({"id":2,"code":0})");
    const auto before = writesOf("F0Md");
    helper->signal(GetParam());
    EXPECT_EQ(helper->wait(), 128 + GetParam());
    EXPECT_EQ(helper->err.readToEnd(), "");
    EXPECT_EQ(client.receive(), std::nullopt);
    EXPECT_EQ(modes(), bothForced);
    EXPECT_EQ(writesOf("F0Md"), before);
    startHelper();
    EXPECT_EQ(modes(), bothAutomatic);
}

INSTANTIATE_TEST_SUITE_P(, UnhandledSignal, testing::Values(SIGHUP, SIGQUIT),
                         [](const auto& each) { return each.param == SIGHUP ? "hangup" : "quit"; });

// The moment within a claim is the point; the claim itself takes up to ten seconds on a real Mac.
class SignalDuringClaimTest : public ProcessHarness {};

TEST_F(SignalDuringClaimTest, aTerminationDuringAClaimLeavesNoFanForced) {
    startMachine("busy");
    startHelper();
    auto client = connect();
    const auto before = writesOf("F0Md");
    client.send(holdFirst);
    ASSERT_TRUE(eventually([&] { return writesOf("F0Md") > before; }));
    helper->signal(SIGTERM);
    EXPECT_EQ(helper->wait(), 143);
    EXPECT_EQ(helper->err.readToEnd(), terminating);
    EXPECT_EQ(client.receive(), std::nullopt) << "the claim had not succeeded";
    EXPECT_EQ(modes(), bothAutomatic);
}

// The start-up has to be caught while the driver keeps its thread blocked, as a real one would.
class SignalDuringStartUpTest : public ProcessHarness {
protected:
    /// A machine that a crashed daemon left forced, and a daemon that is in the middle of the
    /// requests that the fault makes slow.
    void startSlowly(const std::string& fault) {
        startMachine("left-forced");
        EXPECT_EQ(modes(), bothForced);
        inject(fault);
        spawnHelper();
        std::int64_t seen = -1;
        ASSERT_TRUE(eventually([&] {
            const auto now = status();
            const bool isStuck = now.openConnections == 1 && now.smcRequests == seen;
            seen = now.smcRequests;
            if (!isStuck) std::this_thread::sleep_for(100ms);
            return isStuck;
        }));
        ASSERT_FALSE(helper->hasEnded());
    }
};

TEST_F(SignalDuringStartUpTest, aTerminationBeforeTheFansAreCountedEndsTheProcess) {
    startSlowly(R"({"key":"FNum","operation":"read","latency":1})");
    helper->signal(SIGTERM);
    EXPECT_EQ(helper->wait(), 143);
    EXPECT_EQ(helper->err.readLine().value_or("") + '\n', terminating);
    // Which fans there are was not known yet, so none could be given back for certain.
    clearFaults();
    startHelper();
    EXPECT_EQ(modes(), bothAutomatic);
}

TEST_F(SignalDuringStartUpTest, aTerminationBetweenTheModeKeysEndsWithTheFansBack) {
    startSlowly(R"({"key":"F0Md","operation":"write","latency":0.7})");
    helper->signal(SIGTERM);
    EXPECT_EQ(helper->wait(), 143);
    // The start-up goes on meanwhile, and may come as far as its own line.
    EXPECT_EQ(helper->err.readLine().value_or("") + '\n', terminating);
    EXPECT_EQ(modes(), bothAutomatic);
}

}  // namespace
}  // namespace airflow::process
