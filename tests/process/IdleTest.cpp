// What the daemon costs while nobody wants anything. Real time: the kernel counts how often the
// threads of a process went to sleep, and each time they woke before.
#include <filesystem>
#include <fstream>
#include <thread>

#include "ProcessHarness.h"

namespace airflow::process {
namespace {

class IdleTest : public ProcessHarness {
protected:
    void SetUp() override {
#if __has_feature(thread_sanitizer)
        GTEST_SKIP() << "the sanitizer has a thread of its own, which wakes ten times a second";
#endif
    }
    /// Over all threads.
    long long timesAsleep() const {
        long long sum = 0;
        const auto tasks = "/proc/" + std::to_string(helper->id()) + "/task";
        for (const auto& thread : std::filesystem::directory_iterator(tasks)) {
            std::ifstream lines(thread.path() / "status");
            for (std::string word; lines >> word;) {
                long long count = 0;
                if (word == "voluntary_ctxt_switches:" && lines >> count) sum += count;
            }
        }
        return sum;
    }
    /// The guard looks at the fans 2 s after the start and after a release, once a second until
    /// then.
    void untilQuiet() const {
        std::this_thread::sleep_for(3500ms);
        EXPECT_TRUE(eventually([this] {
            const long long before = timesAsleep();
            std::this_thread::sleep_for(100ms);
            return timesAsleep() == before;
        }));
    }
};

TEST_F(IdleTest, noThreadWakesWhileThereIsNoPlan) {
    startMachine();
    startHelper();
    untilQuiet();
    const long long before = timesAsleep();
    EXPECT_GT(before, 0);
    std::this_thread::sleep_for(2s);
    EXPECT_EQ(timesAsleep(), before);
}

TEST_F(IdleTest, noThreadWakesAfterAPlanHasEndedOrWhileAClientIsConnected) {
    startMachine();
    startHelper();
    auto client = connect();
    EXPECT_EQ(client.ask(holdFirstByPlan()), R"({"id":1,"code":0})");
    EXPECT_EQ(client.ask(R"({"id":2,"method":"restoreAuto"})"), R"({"id":2})");
    untilQuiet();
    // The alarm of a tick that was under way may still come.
    std::this_thread::sleep_for(1600ms);
    const long long before = timesAsleep();
    std::this_thread::sleep_for(2s);
    EXPECT_EQ(timesAsleep(), before);
}

}  // namespace
}  // namespace airflow::process
