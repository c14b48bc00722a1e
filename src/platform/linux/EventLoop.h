// EventLoop: one thread that waits for many descriptors, timers and posted functions.
#pragma once

#include <expected>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>

namespace asio {
class io_context;
}

namespace airflow::platform {

/// Asio's io_context and the only thread that runs it. Whoever may still post something shares the
/// context; what comes too late stays in it and never runs.
class EventLoop {
public:
    /// Fails with the system's reason, such as that no descriptors are left.
    [[nodiscard]] static std::expected<EventLoop, std::string> start();
    EventLoop(EventLoop&&) noexcept = default;
    EventLoop& operator=(EventLoop&&) = delete;
    /// As stop().
    ~EventLoop();

    /// Waits for what runs at this moment; nothing does from then on. Not from the loop's thread.
    /// May be called again.
    void stop();

    /// Descriptors and timers that are made for it later need no more descriptors.
    [[nodiscard]] const std::shared_ptr<asio::io_context>& context() const { return io; }

private:
    EventLoop(std::shared_ptr<asio::io_context> context, std::thread running);

    std::shared_ptr<asio::io_context> io;
    std::thread thread;
};

/// What `make` returns, or the reason of the system error that it throws. The constructors of Asio
/// know no other way to fail.
template <typename Make>
[[nodiscard]] std::expected<std::invoke_result_t<Make>, std::string> valueOrReason(Make make) {
    try {
        return make();
    } catch (const std::system_error& error) {
        return std::unexpected(error.code().message());
    }
}

}  // namespace airflow::platform
