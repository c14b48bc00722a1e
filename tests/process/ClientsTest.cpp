// Clients that vanish, fall silent or let the daemon be replaced. Real time: the kernel tells the
// daemon that a peer is gone, and the daemon measures silence by its own clock.
#include <thread>

#include "ProcessHarness.h"

namespace airflow::process {
namespace {

using Clock = std::chrono::steady_clock;

class ClientsTest : public ProcessHarness {
protected:
    void SetUp() override {
        startMachine();
        startHelper();
    }
    std::unique_ptr<Child> startSession() const {
        return std::make_unique<Child>(
            std::vector<std::string>{"session", "--helper-socket", helperSocket()});
    }
};

TEST_F(ClientsTest, aKilledClientHoldsNothing) {
    const auto session = startSession();
    session->type("setPercent 0 55\n");
    EXPECT_EQ(session->out.readLine(), "applied");
    EXPECT_EQ(modes(), firstForced);
    session->signal(SIGKILL);
    EXPECT_EQ(session->wait(), 128 + SIGKILL);
    EXPECT_TRUE(eventually([&] { return modes() == bothAutomatic; }));
    EXPECT_FALSE(helper->hasEnded());
}

TEST_F(ClientsTest, aClientThatLeavesHoldsNothing) {
    {
        auto client = connect();
        EXPECT_EQ(client.ask(holdBoth), R"({"id":2,"code":0})");
        EXPECT_EQ(modes(), bothForced);
    }
    EXPECT_TRUE(eventually([&] { return modes() == bothAutomatic; }));
}

TEST_F(ClientsTest, theEndOfEitherOfTwoReleasesWhatTheOtherSet) {
    auto holding = std::make_unique<RawClient>(helperSocket());
    auto watching = std::make_unique<RawClient>(helperSocket());
    EXPECT_EQ(holding->ask(holdBoth), R"({"id":2,"code":0})");
    EXPECT_EQ(watching->ask(R"({"id":1,"method":"helperVersion"})"),
              R"({"id":1,"version":"1.0.3+6"})");
    EXPECT_EQ(modes(), bothForced);
    watching.reset();
    EXPECT_TRUE(eventually([&] { return modes() == bothAutomatic; }));

    watching = std::make_unique<RawClient>(helperSocket());
    EXPECT_EQ(watching->ask(holdFirst), R"({"id":1,"code":0})");
    EXPECT_EQ(modes(), firstForced);
    holding.reset();
    EXPECT_TRUE(eventually([&] { return modes() == bothAutomatic; }));
    EXPECT_EQ(watching->ask(R"({"id":4,"method":"helperVersion"})"),
              R"({"id":4,"version":"1.0.3+6"})");
}

// The one long test: the limit of 15 s is a constant of the daemon, and its clock the system's.
TEST_F(ClientsTest, aSilentClientLosesTheFansAfterFifteenSeconds) {
    auto client = connect();
    const auto before = Clock::now();
    EXPECT_EQ(client.ask(holdFirstByPlan()), R"({"id":1,"code":0})");
    std::this_thread::sleep_until(before + 14s);
    EXPECT_EQ(modes(), firstForced);
    EXPECT_TRUE(eventually([&] { return modes() == bothAutomatic; }));
    const Seconds taken = Clock::now() - before;
    EXPECT_GT(taken, 15s);
    EXPECT_LT(taken, 17500ms);  // and a tick of 1.5 s
    EXPECT_EQ(client.ask(R"({"id":4,"method":"helperVersion"})"),
              R"({"id":4,"version":"1.0.3+6"})");
}

TEST_F(ClientsTest, anUpgradeAnswersFirstAndThenEndsWithASecondRestoration) {
    auto client = connect();
    EXPECT_EQ(client.ask(holdBoth), R"({"id":2,"code":0})");
    const auto before = writesOf("F0Md");
    EXPECT_EQ(client.ask(R"({"id":3,"method":"shutdownForUpgrade"})"), R"({"id":3})");
    const auto answered = Clock::now();
    EXPECT_FALSE(helper->hasEnded());
    EXPECT_EQ(modes(), bothAutomatic);
    EXPECT_EQ(writesOf("F0Md"), before + 1);
    EXPECT_EQ(helper->wait(), 0);
    const Seconds taken = Clock::now() - answered;
    EXPECT_GT(taken, 150ms);
    EXPECT_LT(taken, 2s);
    EXPECT_EQ(helper->err.readToEnd(), exiting);
    EXPECT_EQ(writesOf("F0Md"), before + 2);
    EXPECT_EQ(modes(), bothAutomatic);
}

}  // namespace
}  // namespace airflow::process
