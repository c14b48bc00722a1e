// airflow watch: a live view of the daemon and its machine.
#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>

#include "client/HelperClient.h"
#include "tool/Tool.h"
#include "tool/client/WatchView.h"

namespace CLI {
class App;
}

namespace airflow::tool {

struct WatchPlan {
    /// Nothing: the daemon is not connected to, so that the end of the watch releases nothing.
    client::HelperClient* helper = nullptr;
    std::function<std::optional<MachineSight>()> lookAtMachine;
    std::optional<std::int64_t> count{};  ///< of looks; nothing: until the user interrupts
    concurrency::Duration interval = std::chrono::seconds(1);
    enum class Pause : std::uint8_t { isOver, isInterrupted, screenChanged };
    /// Waits until then, or until the user interrupts or changes the size of the terminal.
    std::function<Pause(concurrency::Instant until)> pause;
    /// Of the terminal on which the view is redrawn in place.
    struct Screen {
        std::size_t columns = 80;
        std::size_t rows = 24;
    };
    /// The screen as it is now; empty: a line for each look.
    std::function<Screen()> screen{};
};

/// Looks again and again over one connection, without heartbeats. A daemon that is not there, or
/// goes away, is waited for. Says on `err` when its end gives back what is held. Returns the exit
/// status: 0, or 1 when the last look found nobody.
[[nodiscard]] int watchHelper(const WatchPlan& plan, client::Time& time, std::ostream& out,
                              std::ostream& err);

void addWatch(CLI::App& app, Streams streams, int& status);

}  // namespace airflow::tool
