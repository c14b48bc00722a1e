// Actors: objects whose asynchronous methods run one at a time.
#pragma once

#include <memory>
#include <utility>

#include "concurrency/Executor.h"

namespace airflow::concurrency {

/// Base of an object with its own serial executor.
///
/// A coroutine whose first parameter is an actor (a method, or a free function taking the actor by
/// reference) runs on that actor's executor, whoever calls it. A lambda's first parameter is the
/// lambda itself, so it runs where its caller runs. While an operation awaits, other operations of
/// the actor may run: what was checked before a co_await is checked again after it.
///
/// An actor outlives the tasks of its methods, and its runtime outlives the actor.
class Actor {
public:
    explicit Actor(std::shared_ptr<Executor> executor) : own(std::move(executor)) {}
    Actor(const Actor&) = delete;
    Actor& operator=(const Actor&) = delete;

    [[nodiscard]] Executor& executor() const noexcept { return *own; }

protected:
    ~Actor() = default;

private:
    std::shared_ptr<Executor> own;
};

}  // namespace airflow::concurrency
