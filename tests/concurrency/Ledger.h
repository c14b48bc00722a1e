// Ledger: an actor for tests, which writes down what happens to it.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "concurrency/Runtime.h"

namespace airflow::concurrency {

class Ledger : public Actor {
public:
    Ledger(Runtime& clock, std::string_view name = "ledger")
        : Actor(clock.makeExecutor(name)), runtime(clock) {}

    Task<void> write(std::string line) {
        EXPECT_TRUE(executor().isCurrent());
        lines.push_back(std::move(line));
        co_return;
    }

    /// Writes before and after a sleep.
    Task<void> writeAround(std::string line, Duration pause) {
        lines.push_back(line + " begins");
        co_await runtime.sleepFor(pause);
        EXPECT_TRUE(executor().isCurrent());
        lines.push_back(line + " ends");
    }

    /// The same with a sleep that blocks.
    Task<void> writeAroundBlocking(std::string line, Duration pause) {
        lines.push_back(line + " begins");
        co_await runtime.blockingSleep(pause);
        EXPECT_TRUE(executor().isCurrent());
        lines.push_back(line + " ends");
    }

    std::vector<std::string> lines;

private:
    Runtime& runtime;
};

}  // namespace airflow::concurrency
