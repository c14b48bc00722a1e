// Stream: values sent by anyone, received one at a time by a single reader.
#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "concurrency/Task.h"

namespace airflow::concurrency {

/// An unbounded queue whose reader waits without blocking. Copies are ends of the same stream, so
/// the reader may outlive every sender. No value is dropped, however slow or absent the reader;
/// what nobody reads is kept until the last copy goes. Any thread may use it.
template <typename T>
class Stream {
public:
    /// After close() nothing is taken any more.
    void send(T value) const {
        const std::lock_guard lock(state->mutex);
        if (state->closed) return;
        state->values.push_back(std::move(value));
        state->wakeReader();
    }

    /// Ends the stream. What was sent before is still received.
    void close() const {
        const std::lock_guard lock(state->mutex);
        state->closed = true;
        state->wakeReader();
    }

    /// The next value; nothing once the stream is closed and empty. One task waits at a time.
    Task<std::optional<T>> next() const { return receive(state); }

private:
    struct State {
        std::mutex mutex;
        std::deque<T> values;
        bool closed = false;
        Suspended reader;

        void wakeReader() {
            if (reader) std::exchange(reader, {}).resume();
        }
    };

    /// Forgets the reader when its frame goes: a stream may outlive a runtime that was abandoned,
    /// and must not resume then what is no longer there.
    struct Forgetting {
        State& state;

        ~Forgetting() {
            const std::lock_guard lock(state.mutex);
            state.reader = {};
        }
    };

    // Static, with the state by value: as a method it would refer to a Stream that may be gone.
    static Task<std::optional<T>> receive(std::shared_ptr<State> state) {
        const Forgetting forgetting{*state};
        co_await Suspend([&](Suspended caller) {
            const std::lock_guard lock(state->mutex);
            require(!state->reader, "a stream has one reader");
            const bool isWaiting = state->values.empty() && !state->closed;
            if (isWaiting) state->reader = caller;
            return isWaiting;
        });
        std::optional<T> value;
        const std::lock_guard lock(state->mutex);
        if (state->values.empty()) co_return value;
        value.emplace(std::move(state->values.front()));
        state->values.pop_front();
        co_return value;
    }

    std::shared_ptr<State> state = std::make_shared<State>();
};

}  // namespace airflow::concurrency
