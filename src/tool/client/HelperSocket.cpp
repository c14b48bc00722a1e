#include "tool/client/HelperSocket.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <cerrno>
#include <chrono>

#include "platform/linux/LocalSocket.h"
#include "platform/linux/Waiting.h"

namespace airflow::tool {

namespace {

using client::Received;
using concurrency::Instant;

/// A daemon that reads nothing must not hold its client for ever.
void limitSending(const platform::FileDescriptor& connection) {
    const timeval timeout{.tv_sec = 5, .tv_usec = 0};
    (void)setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
}

}  // namespace

class HelperSocket::Connection final : public client::Channel {
public:
    Connection(HelperSocket& owner, platform::FileDescriptor descriptor)
        : helper(owner), socket(std::move(descriptor)) {
        helper.open = socket.get();
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() override { helper.open = -1; }

    bool send(std::string_view bytes) override { return platform::sendAll(socket, bytes); }

    Received receive(Instant until) override {
        const auto woken = platform::waitForAny({helper.interruption, socket.get()}, until,
                                                [this] { return helper.time.now(); });
        if (!woken) return {};
        const bool isInterrupted = *woken == 0;
        if (isInterrupted) return {.kind = Received::Kind::ended, .bytes = {}};
        std::array<char, 64 * 1024> buffer{};
        const ssize_t count = recv(socket.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) return {};
        if (count <= 0) return {.kind = Received::Kind::ended, .bytes = {}};
        return {.kind = Received::Kind::bytes,
                .bytes = std::string(buffer.data(), static_cast<std::size_t>(count))};
    }

private:
    HelperSocket& helper;
    const platform::FileDescriptor socket;
};

std::expected<std::string, std::string> helperSocket(const std::string& given) {
    if (!given.empty()) return given;
    auto folder = platform::runtimeFolder();
    if (!folder) return folder;
    return *folder + "/helper.sock";
}

Instant SystemTime::now() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return Instant(std::chrono::duration_cast<concurrency::Duration>(now));
}

void SystemTime::sleepUntil(Instant until) {
    (void)platform::waitForAny({}, until, [this] { return now(); });
}

std::expected<std::unique_ptr<client::Channel>, std::string> HelperSocket::connect() {
    auto connection = platform::connectTo(path);
    if (!connection) return std::unexpected(std::move(connection.error()));
    limitSending(*connection);
    return std::make_unique<Connection>(*this, std::move(*connection));
}

}  // namespace airflow::tool
