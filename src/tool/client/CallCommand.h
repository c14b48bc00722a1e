// airflow call: one call of the daemon.
#pragma once

#include <cstdint>
#include <iosfwd>

#include "client/Transport.h"
#include "concurrency/Clock.h"
#include "tool/Tool.h"
#include "tool/client/TypedCommand.h"

namespace CLI {
class App;
}

namespace airflow::tool {

enum class AnswerFormat : std::uint8_t { text, json };

/// Carries out one call over a connection of its own, and then reads the state, for the reason of a
/// failure and to tell whether the end of the connection gives back what is held. The answer goes
/// to `out`, the note about a hold to `err`. Returns the exit status: 0 for `applied`, else 1.
/// The plan of a command that has one has been read.
[[nodiscard]] int callHelper(const TypedCommand& typed, concurrency::Duration timeout,
                             AnswerFormat format, client::Transport& transport, client::Time& time,
                             std::ostream& out, std::ostream& err);

void addCall(CLI::App& app, Streams streams, int& status);

}  // namespace airflow::tool
