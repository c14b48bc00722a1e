// LogSink: the seam to standard error.
#pragma once

#include <string_view>

namespace airflow::sensors {

/// Where the lines of the log go. Any thread may write.
class LogSink {
public:
    LogSink() = default;
    LogSink(const LogSink&) = delete;
    LogSink& operator=(const LogSink&) = delete;
    virtual ~LogSink() = default;

    /// Writes one line, UTF-8, that ends with its newline. What cannot be written is dropped: the
    /// fans matter more than the log.
    virtual void write(std::string_view line) = 0;
};

}  // namespace airflow::sensors
