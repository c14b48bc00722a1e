// Transport, Channel and Time: the seams between a client and the world outside it. All are used
// by one thread at a time.
#pragma once

#include <cstdint>
#include <expected>
#include <memory>
#include <string>
#include <string_view>

#include "concurrency/Clock.h"

namespace airflow::client {

/// What waiting for bytes came to.
struct Received {
    enum class Kind : std::uint8_t {
        bytes,
        nothing,  ///< in time
        ended,    ///< nothing will arrive any more
    };

    Kind kind = Kind::nothing;
    std::string bytes;  ///< at least one, for `bytes` only
};

/// One open connection; destroying it ends it.
class Channel {
public:
    Channel() = default;
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;
    virtual ~Channel() = default;

    /// False when not all of it could be sent; the connection is of no further use then.
    [[nodiscard]] virtual bool send(std::string_view bytes) = 0;
    /// Waits until something arrives, until `until` at the latest. With an `until` that has passed,
    /// takes what is there and does not wait.
    [[nodiscard]] virtual Received receive(concurrency::Instant until) = 0;
};

/// Opens connections to the daemon.
class Transport {
public:
    Transport() = default;
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;
    virtual ~Transport() = default;

    /// The connection, or a reason that people can read.
    [[nodiscard]] virtual std::expected<std::unique_ptr<Channel>, std::string> connect() = 0;
};

/// Monotonic time.
class Time {
public:
    Time() = default;
    Time(const Time&) = delete;
    Time& operator=(const Time&) = delete;
    virtual ~Time() = default;

    [[nodiscard]] virtual concurrency::Instant now() = 0;
    virtual void sleepUntil(concurrency::Instant until) = 0;
};

}  // namespace airflow::client
