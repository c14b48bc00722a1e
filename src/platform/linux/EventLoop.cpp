#include "platform/linux/EventLoop.h"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/steady_timer.hpp>
#include <utility>

namespace airflow::platform {

EventLoop::EventLoop(std::shared_ptr<asio::io_context> context, std::thread running)
    : io(std::move(context)), thread(std::move(running)) {}

std::expected<EventLoop, std::string> EventLoop::start() {
    return valueOrReason([] {
        auto context = std::make_shared<asio::io_context>(1);
        // What waits for descriptors and timers is made with the first of them; so it fails here.
        const asio::posix::stream_descriptor descriptor(*context);
        const asio::steady_timer timer(*context);
        std::thread running([context] {
            const auto work = asio::make_work_guard(*context);
            context->run();
        });
        return EventLoop(std::move(context), std::move(running));
    });
}

EventLoop::~EventLoop() {
    stop();
}

void EventLoop::stop() {
    if (!thread.joinable()) return;
    io->stop();
    thread.join();
}

}  // namespace airflow::platform
