// TimerQueue: the sleeping coroutines of a runtime.
#pragma once

#include <cstdint>
#include <map>
#include <utility>

#include "concurrency/Clock.h"
#include "concurrency/Executor.h"

namespace airflow::concurrency {

/// Sleepers by deadline, equal deadlines in order of arrival. Not synchronised.
///
/// Being in the queue is the only claim to be woken, so of expiry and cancellation exactly one
/// wins.
class TimerQueue {
public:
    using Key = std::pair<Instant, std::uint64_t>;

    Key add(Instant deadline, Suspended sleeper) {
        return sleepers.emplace(Key(deadline, ++arrivals), sleeper).first->first;
    }
    /// The sleeper, if it was still waiting; it is the caller's to resume.
    [[nodiscard]] Suspended remove(Key key) {
        auto node = sleepers.extract(key);
        return node ? node.mapped() : Suspended{};
    }
    /// A sleeper whose deadline is not after `now`, if there is one; the caller's to resume.
    [[nodiscard]] Suspended popDue(Instant now) {
        if (empty() || next() > now) return {};
        return sleepers.extract(sleepers.begin()).mapped();
    }
    [[nodiscard]] bool empty() const { return sleepers.empty(); }
    /// The earliest deadline; Instant::max() when nobody sleeps.
    [[nodiscard]] Instant next() const {
        return empty() ? Instant::max() : sleepers.begin()->first.first;
    }
    void clear() { sleepers.clear(); }

private:
    std::map<Key, Suspended> sleepers;
    std::uint64_t arrivals = 0;
};

}  // namespace airflow::concurrency
