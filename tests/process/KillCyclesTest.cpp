// Daemons that are killed at random moments under load. Real processes, because only the kernel can
// end one between any two of its instructions. The pauses are random, but few milliseconds each.
#include <cstdlib>
#include <iostream>
#include <random>
#include <thread>

#include "ProcessBench.h"

namespace airflow::process {
namespace {

/// A number from the environment, or `otherwise`.
unsigned fromEnvironment(const char* name, unsigned otherwise) {
    const char* const text = std::getenv(name);
    return text ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : otherwise;
}

class KillCyclesTest : public ProcessBench {
protected:
    unsigned upTo(unsigned most) {
        return std::uniform_int_distribution<unsigned>(0, most)(generator);
    }
    void pause(unsigned mostMilliseconds) {
        std::this_thread::sleep_for(std::chrono::microseconds(upTo(mostMilliseconds * 1000)));
    }
    std::string anyCommand() {
        static const std::vector<std::string> commands{
            holdFirst,
            holdBoth,
            R"({"id":3,"method":"setManualRPM","fan":1,"rpm":3000})",
            R"({"id":4,"method":"applyConfig","plan":{"fans":[)"
            R"({"fanID":0,"mode":{"fixedPercent":{"_0":70}}},)"
            R"({"fanID":1,"mode":{"fixedRPM":{"_0":4200}}}],"rules":[],)"
            R"("tuning":{"emaAlpha":0.3,"hysteresisCelsius":2,)"
            R"("maxDeltaRPMPerTick":400,"minDwellSeconds":3}}})",
            R"({"id":5,"method":"automatic"})",
            R"({"id":6,"method":"readState"})",
            R"({"method":"heartbeat"})",
        };
        return commands.at(upTo(static_cast<unsigned>(commands.size()) - 1));
    }
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
    bool isAnyForced() const { return modes() != bothAutomatic; }

    const unsigned seed = fromEnvironment("AIRFLOW_KILL_SEED", std::random_device()());
    std::mt19937 generator{seed};
};

TEST_F(KillCyclesTest, noFanIsForcedOnceTheNextDaemonListens) {
    const unsigned cycles = fromEnvironment("AIRFLOW_KILL_CYCLES", 20);
    SCOPED_TRACE("AIRFLOW_KILL_SEED=" + std::to_string(seed));
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
