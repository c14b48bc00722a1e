// What it costs to call an actor from another executor and to come back.
#include <benchmark/benchmark.h>

#include "concurrency/TaskScope.h"
#include "platform/linux/ThreadRuntime.h"
#include "simulation/runtime/SimulatedRuntime.h"

namespace {

using namespace airflow::concurrency;

class Counter : public Actor {
public:
    explicit Counter(Runtime& runtime) : Actor(runtime.makeExecutor("counter")) {}

    Task<int> add(int amount) {
        value += amount;
        co_return value;
    }
    /// Awaits itself: a call that stays on its executor.
    Task<void> addOften(int amount, std::int64_t times) {
        for (std::int64_t i = 0; i < times; ++i) co_await add(amount);
    }

private:
    int value = 0;
};

Task<void> hop(Counter* counter, std::int64_t times) {
    for (std::int64_t i = 0; i < times; ++i) co_await counter->add(1);
}

constexpr std::int64_t batch = 1000;

void callOnTheSameExecutor(benchmark::State& state) {
    airflow::simulation::SimulatedRuntime runtime;
    Counter counter(runtime);
    for (auto _ : state) runtime.run(counter.addOften(1, batch));
    state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(callOnTheSameExecutor);

void hopInSimulation(benchmark::State& state) {
    const auto seed = static_cast<std::uint64_t>(state.range(0));
    airflow::simulation::SimulatedRuntime runtime(seed);
    Counter counter(runtime);
    for (auto _ : state) runtime.run(hop(&counter, batch));
    state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(hopInSimulation)->ArgName("seed")->Arg(0)->Arg(1);

/// Eight tasks hop at once, so that there is always an executor to choose.
void manyHopInSimulation(benchmark::State& state) {
    const auto seed = static_cast<std::uint64_t>(state.range(0));
    airflow::simulation::SimulatedRuntime runtime(seed);
    Counter counter(runtime);
    for (auto _ : state) {
        for (int i = 0; i < 8; ++i) runtime.detach("hopping", hop(&counter, batch));
        runtime.settle();
    }
    state.SetItemsProcessed(state.iterations() * batch * 8);
}
BENCHMARK(manyHopInSimulation)->ArgName("seed")->Arg(0)->Arg(1);

void hopOnThePool(benchmark::State& state) {
    const auto runtime =
        airflow::platform::makeThreadRuntime(static_cast<std::size_t>(state.range(0)));
    Counter counter(*runtime);
    TaskScope scope(*runtime);
    for (auto _ : state) {
        scope.spawn("hopping", hop(&counter, batch));
        scope.joinBlocking();
    }
    state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(hopOnThePool)->ArgName("threads")->Arg(1)->Arg(4)->UseRealTime();

}  // namespace
