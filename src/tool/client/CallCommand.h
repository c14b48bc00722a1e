// airflow call: one call of the daemon.
#pragma once

#include <cstdint>
#include <iosfwd>

#include "client/Transport.h"
#include "concurrency/Clock.h"
#include "tool/Tool.h"
#include "tool/client/TypedCall.h"

namespace CLI {
class App;
}

namespace airflow::tool {

enum class AnswerFormat : std::uint8_t { text, json };

/// Carries out one call over a connection of its own, and then reads the state, for the reason of a
/// failure and to tell whether the end of the connection gives back what is held. The answer goes
/// to `out`, the note about a hold to `err`. Returns the exit status: 0 for `applied`, else 1.
/// `call` carries a plan as `request` does.
[[nodiscard]] int callHelper(const TypedCall& call, const client::Request& request,
                             concurrency::Duration timeout, AnswerFormat format,
                             client::Transport& transport, client::Time& time, std::ostream& out,
                             std::ostream& err);

void addCall(CLI::App& app, Streams streams, int& status);

}  // namespace airflow::tool
