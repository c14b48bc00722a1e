// Daemons that are killed at random moments under load. Real processes, because only the kernel can
// end one between any two of its instructions. The pauses are random, but few milliseconds each.
#include <iostream>

#include "RandomLoad.h"

namespace airflow::process {
namespace {

class KillCyclesTest : public RandomLoad {
protected:
    /// Three clients that command, and now and then one that leaves.
    void load() {
        std::vector<std::unique_ptr<RawClient>> clients(3);
        for (unsigned left = upTo(30); left > 0; --left) {
            auto& client = clients.at(upTo(2));
            if (!client) client = std::make_unique<RawClient>(helperSocket());
            client->send(anyCommand());
            if (upTo(15) == 0) client.reset();
        }
        pause(15);
        kill();
    }
    void kill() {
        helper->signal(SIGKILL);
        EXPECT_EQ(helper->wait(), 128 + SIGKILL);
    }
};

TEST_F(KillCyclesTest, noFanIsForcedOnceTheNextDaemonListens) {
    const unsigned cycles = fromEnvironment("AIRFLOW_KILL_CYCLES", 20);
    SCOPED_TRACE("AIRFLOW_LOAD_SEED=" + std::to_string(seed));
    unsigned forced = 0;
    unsigned early = 0;
    startMachine();
    for (unsigned cycle = 0; cycle < cycles; ++cycle) {
        SCOPED_TRACE("cycle " + std::to_string(cycle));
        if (upTo(3) == 0) {  // some die before they listen
            spawnHelper();
            pause(25);
            kill();
            ++early;
        }
        startHelper();
        if (HasFatalFailure()) return;
        ASSERT_FALSE(isAnyForced());
        load();
        forced += isAnyForced() ? 1 : 0;
    }
    std::cout << "seed " << seed << ": " << cycles << " cycles, " << forced
              << " of them left a fan forced for the next start; " << early
              << " more daemons died while they started\n";
    EXPECT_GT(forced, 0U) << "nothing was tried";
    startHelper();
    EXPECT_FALSE(isAnyForced());
}

}  // namespace
}  // namespace airflow::process
