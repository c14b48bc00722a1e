#include "simulation/runtime/Schedules.h"

#include <algorithm>
#include <utility>

#include "concurrency/Require.h"

namespace airflow::simulation {

namespace {

using Usual = ScheduleBounds::Usual;

/// A place where a run chose. Choices are counted from the usual one, which is 0.
struct Fork {
    std::size_t candidates = 0;
    std::size_t chosen = 0;

    [[nodiscard]] bool hasMore() const { return chosen + 1 < candidates; }
};

/// The choices of one run, and those of the next.
class Path {
public:
    explicit Path(ScheduleBounds given) : bounds(given) {}

    void begin() {
        position = 0;
        isRepeated = true;
    }
    std::size_t choose(std::size_t candidates) {
        if (position == forks.size()) forks.push_back({.candidates = candidates});
        const Fork& fork = forks[position++];
        if (fork.candidates != candidates) isRepeated = false;
        return isRepeated ? indexOf(fork) : 0;
    }
    /// Whether the run came by every choice that was made for it.
    [[nodiscard]] bool wasRepeated() const { return isRepeated && position == forks.size(); }
    [[nodiscard]] std::size_t length() const { return forks.size(); }

    /// Changes the last choice that can be changed; false when none is left.
    bool advance(bool& wasCut) {
        std::size_t before = 0;  // deviations up to the last fork
        for (const Fork& fork : forks) before += fork.chosen > 0 ? 1U : 0U;
        for (; !forks.empty(); forks.pop_back()) {
            Fork& last = forks.back();
            before -= last.chosen > 0 ? 1U : 0U;
            if (!last.hasMore()) continue;
            if (before < bounds.deviations) {
                ++last.chosen;
                return true;
            }
            wasCut = true;
        }
        return false;
    }

    [[nodiscard]] std::vector<std::size_t> choices() const {
        std::vector<std::size_t> result;
        for (const Fork& fork : forks) result.push_back(indexOf(fork));
        return result;
    }

private:
    [[nodiscard]] std::size_t indexOf(const Fork& fork) const {
        return bounds.usual == Usual::oldest ? fork.chosen : fork.candidates - 1 - fork.chosen;
    }

    ScheduleBounds bounds;
    std::vector<Fork> forks;
    std::size_t position = 0;
    bool isRepeated = true;
};

}  // namespace

Exploration explore(const ScheduledRun& run, ScheduleBounds bounds) {
    Exploration result;
    Path path(bounds);
    for (bool goesOn = true; goesOn; goesOn = path.advance(result.wasCut)) {
        if (result.schedules == bounds.schedules) {
            result.wasStopped = true;
            break;
        }
        path.begin();
        auto failure = run([&path](std::size_t candidates) { return path.choose(candidates); });
        ++result.schedules;
        result.longest = std::max(result.longest, path.length());
        if (!path.wasRepeated()) failure = "the same choices did not give the same run";
        if (!failure) continue;
        result.failure = {.choices = path.choices(), .what = std::move(*failure)};
        break;
    }
    return result;
}

SimulatedRuntime::Chooser replaying(std::vector<std::size_t> choices) {
    return [choices = std::move(choices),
            position = std::size_t{0}](std::size_t candidates) mutable {
        const std::size_t chosen = position < choices.size() ? choices[position++] : 0;
        concurrency::require(chosen < candidates, "a replayed run has the candidates that it had");
        return chosen;
    };
}

}  // namespace airflow::simulation
