// Exits of real daemons while clients command, and backlogs of clients that are gone. Real
// processes, because the moments that matter lie between threads of one. The pauses are random, but
// few milliseconds each.
#include <atomic>
#include <memory>
#include <thread>

#include "RandomLoad.h"

namespace airflow::process {
namespace {

class ExitsUnderLoad : public RandomLoad {
protected:
    /// Two clients that command as fast as they can while `end` is brought about, until the daemon
    /// is gone. Returns its status.
    template <typename End>
    int endUnderLoad(End end) {
        std::atomic<bool> isOver = false;
        std::vector<std::thread> clients;
        for (int client = 0; client < 2; ++client) {
            std::vector<std::string> commands;
            for (int i = 0; i < 50; ++i) commands.push_back(anyCommand());
            // Connected before the end is brought about, however late the thread begins.
            auto connection = std::make_unique<RawClient>(helperSocket());
            clients.emplace_back(
                [&isOver, connection = std::move(connection), commands = std::move(commands)] {
                    for (std::size_t i = 0; !isOver; i = (i + 1) % commands.size()) {
                        if (!connection->trySend(commands[i])) return;  // the daemon is gone
                        std::this_thread::sleep_for(200us);
                    }
                });
        }
        pause(10);
        end();
        const int status = helper->wait();
        isOver = true;
        for (std::thread& client : clients) client.join();
        return status;
    }
    [[nodiscard]] unsigned cycles() const { return fromEnvironment("AIRFLOW_EXIT_CYCLES", 10); }
};

TEST_F(ExitsUnderLoad, noFanIsForcedAfterASIGTERM) {
    SCOPED_TRACE("AIRFLOW_LOAD_SEED=" + std::to_string(seed));
    startMachine();
    for (unsigned cycle = 0; cycle < cycles(); ++cycle) {
        startHelper();
        if (HasFatalFailure()) return;
        EXPECT_EQ(endUnderLoad([this] { helper->signal(SIGTERM); }), 143);
        ASSERT_EQ(modes(), bothAutomatic) << "cycle " << cycle;
    }
}

TEST_F(ExitsUnderLoad, noFanIsForcedAfterAnUpgrade) {
    SCOPED_TRACE("AIRFLOW_LOAD_SEED=" + std::to_string(seed));
    startMachine();
    for (unsigned cycle = 0; cycle < cycles(); ++cycle) {
        startHelper();
        if (HasFatalFailure()) return;
        std::optional<RawClient> upgrading;
        const int status = endUnderLoad([&] {
            upgrading.emplace(helperSocket());
            upgrading->send(R"({"id":9,"method":"shutdownForUpgrade"})");
        });
        EXPECT_EQ(status, 0);
        ASSERT_EQ(modes(), bothAutomatic) << "cycle " << cycle;
    }
}

/// Each client sends as much as the daemon takes from one, and goes.
TEST_F(ExitsUnderLoad, aBacklogOfClientsThatAreGoneHoldsNoFan) {
    const unsigned clients = fromEnvironment("AIRFLOW_BACKLOG_CLIENTS", 20);
    startMachine();
    startHelper();
    if (HasFatalFailure()) return;
    {
        std::vector<RawClient> connections;
        for (unsigned i = 0; i < clients; ++i) connections.emplace_back(helperSocket());
        for (RawClient& connection : connections) {
            for (int call = 0; call < 256; ++call) connection.send(holdFirst);
        }
    }
    // The daemon reads what is left of the messages first; then no fan is forced any more, though
    // commands are still queued.
    const auto gone = std::chrono::steady_clock::now();
    auto lastForced = gone;
    while (std::chrono::steady_clock::now() - lastForced < 500ms) {
        if (isAnyForced()) lastForced = std::chrono::steady_clock::now();
        ASSERT_LT(lastForced - gone, 5s);
        std::this_thread::sleep_for(5ms);
    }
    helper->signal(SIGTERM);
    EXPECT_EQ(helper->wait(), 143);
}

/// The command counts the fans first, and its client is gone by then.
TEST_F(ExitsUnderLoad, aFullBlastOfAClientThatGoesAtOnceHoldsNoFan) {
    startMachine();
    startHelper();
    if (HasFatalFailure()) return;
    for (int cycle = 0; cycle < 20; ++cycle) {
        connect().send(holdBoth);
        std::this_thread::sleep_for(20ms);
        ASSERT_TRUE(eventually([this] { return modes() == bothAutomatic; })) << "cycle " << cycle;
    }
}

TEST_F(ExitsUnderLoad, aBacklogDoesNotKeepAnExitFromGivingFansBack) {
    const unsigned clients = fromEnvironment("AIRFLOW_BACKLOG_CLIENTS", 20);
    startMachine();
    startHelper();
    if (HasFatalFailure()) return;
    std::vector<RawClient> connections;
    for (unsigned i = 0; i < clients; ++i) connections.emplace_back(helperSocket());
    for (RawClient& connection : connections) {
        for (int call = 0; call < 256; ++call) connection.send(holdBoth);
    }
    helper->signal(SIGTERM);
    EXPECT_EQ(helper->wait(), 143);
    EXPECT_EQ(modes(), bothAutomatic);
}

}  // namespace
}  // namespace airflow::process
