#include "platform/linux/LocalProcess.h"

#include <array>
#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <utility>

#include "concurrency/Require.h"
#include "concurrency/ThisThread.h"
#include "platform/linux/EventLoop.h"
#include "platform/posix/ProcessExit.h"

namespace airflow::platform {

namespace {

using concurrency::Task;
using daemon::Signal;

class LocalProcess final : public daemon::DaemonProcess {
public:
    explicit LocalProcess(EventLoop signalSafety)
        : loop(std::move(signalSafety)),
          signals{asio::signal_set(*loop.context()), asio::signal_set(*loop.context())} {}

    void atExit(Handler handler) override { runAtExit(std::move(handler)); }
    void handle(Signal signal, Handler handler) override;
    void announceExit(int status) override { platform::announceExit(status); }
    Task<void> exit(int status) override { return exitOnce(status); }

private:
    /// Its own loop, because a handler keeps the thread.
    EventLoop loop;
    /// One set each: a set may not be used by two threads, and from handle() on the loop's uses it.
    std::array<asio::signal_set, 2> signals;
};

void serve(asio::signal_set& arrivals, daemon::DaemonProcess::Handler handler) {
    arrivals.async_wait([&arrivals, handler = std::move(handler)](const asio::error_code&, int) {
        concurrency::runOnThisThread(handler());
        serve(arrivals, handler);
    });
}

void LocalProcess::handle(Signal signal, Handler handler) {
    asio::signal_set& own = signals.at(static_cast<std::size_t>(signal));
    asio::error_code error;
    own.add(numberOf(signal), error);
    concurrency::require(!error, "the signal can be handled");
    serve(own, std::move(handler));
}

}  // namespace

std::expected<std::unique_ptr<daemon::DaemonProcess>, std::string> makeLocalProcess() {
    auto loop = EventLoop::start();
    if (!loop) return std::unexpected(std::move(loop.error()));
    return valueOrReason([&loop]() -> std::unique_ptr<daemon::DaemonProcess> {
        return std::make_unique<LocalProcess>(std::move(*loop));
    });
}

}  // namespace airflow::platform
