// StandardError: the daemon's log, which must never hold up or end the daemon.
#pragma once

#include "sensors/LogSink.h"

namespace airflow::platform {

/// Writes to descriptor 2. A line that cannot be written at once is dropped: the descriptor may be
/// closed, or a pipe that nobody reads or that is full.
class StandardError final : public sensors::LogSink {
public:
    void write(std::string_view line) override;
};

/// Lets the line of a bug that stops this process begin as the lines of the daemon's log do. Comes
/// before there is a second thread.
void beginLastLineAsTheLog();

}  // namespace airflow::platform
