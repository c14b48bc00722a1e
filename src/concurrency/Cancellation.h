// Cooperative cancellation. Written out because not every libc++ we build with has std::stop_token.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <utility>

namespace airflow::concurrency {

/// A view on a CancelSource. A default-constructed token never cancels.
///
/// Cancellation changes the result of a sleep that was given the token, and the answer of
/// isRequested(). It stops nothing and throws nothing.
class CancelToken {
    struct State {
        std::mutex mutex;
        bool requested = false;
        std::list<std::function<void()>> callbacks;
    };

public:
    CancelToken() = default;

    [[nodiscard]] bool isRequested() const {
        if (!state) return false;
        const std::lock_guard lock(state->mutex);
        return state->requested;
    }

    /// Calls `callback` when cancellation is requested, at once if it already was. The callback
    /// must not block. Once the registration is gone the callback is not, and will not be, running.
    class Registration {
    public:
        Registration(const CancelToken& token, std::function<void()> callback)
            : state(token.state) {
            if (!state) return;
            const std::lock_guard lock(state->mutex);
            if (state->requested) callback();
            position = state->callbacks.insert(state->callbacks.end(), std::move(callback));
        }
        Registration(const Registration&) = delete;
        Registration& operator=(const Registration&) = delete;
        ~Registration() {
            if (!state) return;
            const std::lock_guard lock(state->mutex);
            state->callbacks.erase(position);
        }

    private:
        std::shared_ptr<State> state;
        std::list<std::function<void()>>::iterator position;
    };

private:
    friend class CancelSource;
    std::shared_ptr<State> state;
};

/// Requests cancellation of everything that holds one of its tokens. Copies are the same source.
class CancelSource {
public:
    CancelSource() { own.state = std::make_shared<CancelToken::State>(); }

    [[nodiscard]] const CancelToken& token() const noexcept { return own; }

    /// Any thread may call, also more than once.
    void cancel() const {
        const auto state = own.state;  // a task that this wakes may destroy the source
        const std::lock_guard lock(state->mutex);
        if (std::exchange(state->requested, true)) return;
        for (const auto& callback : state->callbacks) callback();
    }

private:
    CancelToken own;
};

}  // namespace airflow::concurrency
