#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "concurrency/Ledger.h"
#include "concurrency/Task.h"
#include "simulation/runtime/SimulatedRuntime.h"

namespace airflow::concurrency {
namespace {

using namespace std::chrono_literals;
using simulation::SimulatedRuntime;
using testing::ElementsAre;

struct Settings {
    std::string name;
    int level = 0;
};

class Calculator : public Actor {
public:
    explicit Calculator(Runtime& runtime) : Actor(runtime.makeExecutor("calculator")) {}

    Task<int> add(int amount) {
        EXPECT_TRUE(executor().isCurrent());
        const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
        lowest = std::min(lowest, here);
        highest = std::max(highest, here);
        value += amount;
        co_return value;
    }
    Task<void> addOften(int times) {
        for (int i = 0; i < times; ++i) co_await add(1);
    }
    Task<std::string> describe(Settings settings) {
        co_return settings.name + std::to_string(settings.level);
    }
    Task<std::unique_ptr<int>> box(std::unique_ptr<int> content) {
        ++*content;
        co_return content;
    }
    Task<void> fail() {
        co_await add(0);
        throw std::runtime_error("no such number");
    }

    [[nodiscard]] std::uintptr_t stackUsed() const { return highest - lowest; }

    int value = 0;

private:
    std::uintptr_t lowest = UINTPTR_MAX;
    std::uintptr_t highest = 0;
};

/// Calls back and forth, and looks at both ends on which executor it is.
class Caller : public Actor {
public:
    Caller(Runtime& clock, Calculator& other)
        : Actor(clock.makeExecutor("caller")), calculator(other) {}

    Task<bool> isBackAfterACall() {
        const int sum = co_await calculator.add(2);
        co_return sum == 2 && executor().isCurrent() && !calculator.executor().isCurrent();
    }
    Task<bool> isBackAfterAFailure() {
        try {
            co_await calculator.fail();
        } catch (const std::runtime_error&) {
            co_return executor().isCurrent();
        }
        co_return false;
    }
    Task<void> hopOften(int times) {
        for (int i = 0; i < times; ++i) co_await calculator.add(1);
    }

private:
    Calculator& calculator;
};

class TaskTest : public testing::Test {
protected:
    SimulatedRuntime runtime;
    Calculator calculator{runtime};
    Caller caller{runtime, calculator};
};

TEST_F(TaskTest, aCallerContinuesOnItsOwnExecutor) {
    EXPECT_TRUE(runtime.run(caller.isBackAfterACall()));
    EXPECT_TRUE(runtime.run(caller.isBackAfterAFailure()));
}

TEST_F(TaskTest, anExceptionReachesTheCaller) {
    EXPECT_THROW(runtime.run(calculator.fail()), std::runtime_error);
}

TEST_F(TaskTest, argumentsAndResultsMayBeAnything) {
    EXPECT_EQ(runtime.run(
                  calculator.describe({.name = "a name too long for a small buffer ", .level = 3})),
              "a name too long for a small buffer 3");
    EXPECT_EQ(*runtime.run(calculator.box(std::make_unique<int>(4))), 5);
}

TEST_F(TaskTest, aTaskThatNobodyAwaitsNeverRuns) {
    {
        const Task<int> unused = calculator.add(100);
    }
    runtime.settle();
    EXPECT_EQ(calculator.value, 0);
}

TEST_F(TaskTest, aMillionHopsKeepTheStackFlat) {
    runtime.run(caller.hopOften(1'000'000));
    EXPECT_EQ(calculator.value, 1'000'000);
    EXPECT_EQ(calculator.stackUsed(), 0u);
}

TEST_F(TaskTest, aMillionCallsWithinAnActorKeepTheStackFlat) {
    runtime.run(calculator.addOften(1'000'000));
    EXPECT_EQ(calculator.value, 1'000'000);
    EXPECT_EQ(calculator.stackUsed(), 0u);
}

Task<void> writeThroughAHelper(Ledger* ledger, std::string line) {
    co_await ledger->write(line + " 1");
    co_await ledger->write(line + " 2");
}

Task<void> writeTwice(Ledger& ledger, std::string line) {
    EXPECT_TRUE(ledger.executor().isCurrent());
    co_await ledger.write(line + " 1");
    co_await ledger.write(line + " 2");
}

TEST(ActorTest, runsItsOperationsInTheOrderInWhichTheyWereAsked) {
    SimulatedRuntime runtime;
    Ledger ledger(runtime);
    runtime.detach("a", ledger.write("first"));
    runtime.detach("b", ledger.write("second"));
    runtime.detach("c", ledger.write("third"));
    runtime.settle();
    EXPECT_THAT(ledger.lines, ElementsAre("first", "second", "third"));
}

TEST(ActorTest, letsOthersInWhileAnOperationAwaits) {
    SimulatedRuntime runtime;
    Ledger ledger(runtime);
    runtime.detach("slow", ledger.writeAround("slow", 1s));
    runtime.detach("quick", ledger.write("quick"));
    runtime.advance(1s);
    EXPECT_THAT(ledger.lines, ElementsAre("slow begins", "quick", "slow ends"));
}

TEST(ActorTest, letsNobodyInWhileAnOperationCallsAnotherOfItsOwn) {
    SimulatedRuntime runtime;
    Ledger ledger(runtime);
    runtime.detach("a", writeTwice(ledger, "a"));
    runtime.detach("b", writeTwice(ledger, "b"));
    runtime.settle();
    EXPECT_THAT(ledger.lines, ElementsAre("a 1", "a 2", "b 1", "b 2"));
}

TEST(ActorTest, letsOthersInBetweenTwoCallsFromOutside) {
    SimulatedRuntime runtime;
    Ledger ledger(runtime);
    runtime.detach("a", writeThroughAHelper(&ledger, "a"));
    runtime.detach("b", writeThroughAHelper(&ledger, "b"));
    runtime.settle();
    EXPECT_THAT(ledger.lines, ElementsAre("a 1", "b 1", "a 2", "b 2"));
}

}  // namespace
}  // namespace airflow::concurrency
