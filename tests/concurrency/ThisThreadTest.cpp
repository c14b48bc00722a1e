#include <gtest/gtest.h>

#include <thread>

#include "concurrency/Stream.h"
#include "concurrency/ThisThread.h"
#include "simulation/runtime/SimulatedRuntime.h"

namespace airflow::concurrency {
namespace {

using namespace std::chrono_literals;

Task<void> note(std::thread::id& where, bool& isExecutor) {
    where = std::this_thread::get_id();
    isExecutor = Executor::isAnyCurrent();
    co_return;
}

TEST(ThisThread, runsATaskToItsEndOnTheCallingThread) {
    std::thread::id where;
    bool isExecutor = false;
    runOnThisThread(note(where, isExecutor));
    EXPECT_EQ(where, std::this_thread::get_id());
    EXPECT_TRUE(isExecutor);
    EXPECT_FALSE(Executor::isAnyCurrent());
}

Task<void> receive(Stream<int> stream, int& sum) {
    for (;;) {
        const auto value = co_await stream.next();
        if (!value) co_return;
        sum += *value;
    }
}

TEST(ThisThread, waitsWhereTheTaskWaits) {
    const Stream<int> stream;
    std::thread sender([&stream] {
        for (int i = 1; i <= 100; ++i) stream.send(i);
        stream.close();
    });
    int sum = 0;
    runOnThisThread(receive(stream, sum));
    sender.join();
    EXPECT_EQ(sum, 5050);
}

Task<void> nest(simulation::SimulatedRuntime& runtime, bool& isStillCurrent) {
    const auto own = runtime.makeExecutor("other");
    std::thread::id where;
    bool isExecutor = false;
    runOnThisThread(note(where, isExecutor));
    isStillCurrent = Executor::isAnyCurrent();
    co_return;
}

TEST(ThisThread, mayBeAskedFromAJob) {
    simulation::SimulatedRuntime runtime;
    bool isStillCurrent = false;
    runtime.run(nest(runtime, isStillCurrent));
    EXPECT_TRUE(isStillCurrent);
}

}  // namespace
}  // namespace airflow::concurrency
