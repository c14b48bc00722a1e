// HelperSocket: the daemon's Unix-domain socket behind the client's seams.
#pragma once

#include <expected>
#include <memory>
#include <string>
#include <utility>

#include "client/Transport.h"

namespace airflow::tool {

/// The daemon's socket: `given`, or the one in the user's runtime folder if that is empty; or why
/// there is no such folder.
[[nodiscard]] std::expected<std::string, std::string> helperSocket(const std::string& given);

class SystemTime final : public client::Time {
public:
    concurrency::Instant now() override;
    void sleepUntil(concurrency::Instant until) override;
};

/// Connections to the daemon that listens at a path.
class HelperSocket final : public client::Transport {
public:
    /// When `interruption` becomes readable, waiting ends as if the connection had; -1 for none.
    HelperSocket(std::string socketPath, client::Time& clock, int interruption = -1)
        : path(std::move(socketPath)), time(clock), interruption(interruption) {}

    std::expected<std::unique_ptr<client::Channel>, std::string> connect() override;
    /// Of the open connection, to wait for what arrives; -1 when there is none.
    [[nodiscard]] int descriptor() const { return open; }

private:
    class Connection;

    const std::string path;
    client::Time& time;
    const int interruption;
    int open = -1;
};

}  // namespace airflow::tool
