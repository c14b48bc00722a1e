// Trace: recorded snapshots, one JSON object a line.
#pragma once

#include <cstddef>
#include <expected>
#include <istream>
#include <optional>
#include <string>
#include <vector>

#include "json/Decoder.h"
#include "json/Document.h"
#include "json/Writer.h"
#include "sensors/SensorSnapshot.h"

namespace airflow::tool {

/// One line of a trace.
struct TraceTick {
    double time = 0;  ///< seconds from the recording's own origin
    sensors::SensorSnapshot snapshot;

    static TraceTick decode(const json::Decoder& decoder);
    /// With every member, but for a mode that is absent.
    void encode(json::Writer& writer) const;
};

/// The line without its end, or why it has none: a number that is not finite, a text that is not
/// UTF-8.
[[nodiscard]] std::expected<std::string, std::string> traceLine(const TraceTick& tick);

/// Reads a trace line by line, in memory that does not grow with the trace.
class TraceReader {
public:
    /// `name` is what error messages call the trace.
    TraceReader(std::istream& input, std::string name);

    /// The next line; nothing at the end. After an error there is nothing more to read.
    [[nodiscard]] std::expected<std::optional<TraceTick>, std::string> next();
    /// The trace and the number of the line that was read last: "trace.jsonl:17".
    [[nodiscard]] std::string place() const;
    /// Whether the input has bytes that can be read without waiting.
    [[nodiscard]] bool hasMoreAtHand() const { return input.rdbuf()->in_avail() > 0; }

private:
    [[nodiscard]] std::string describe(const json::DecodingError& error) const;

    std::istream& input;
    std::string name;
    std::size_t line = 0;
    json::Limits limits;
    std::vector<char> buffer;
    json::Document document;
};

}  // namespace airflow::tool
