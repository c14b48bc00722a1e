#include "platform/linux/Acceptor.h"

#include <cerrno>
#include <chrono>
#include <utility>

#include "concurrency/Require.h"

namespace airflow::platform {

Acceptor::Acceptor(asio::io_context& loop, FileDescriptor bound, Accepted accepted)
    : listening(std::move(bound)), handler(std::move(accepted)), watched(loop), pauseEnd(loop) {
    makeNonBlocking(listening);  // who was to be accepted may be gone by then
    asio::error_code error;
    watched.assign(listening.get(), error);
    concurrency::require(!error, "the first descriptors can be watched");
}

Acceptor::~Acceptor() {
    watched.release();
}

void Acceptor::start() {
    watched.async_wait(asio::posix::descriptor_base::wait_read,
                       [this](const asio::error_code&) { accept(); });
}

/// One at a time: the loop tells of the next one.
void Acceptor::accept() {
    if (FileDescriptor connection = acceptFrom(listening))
        handler(std::move(connection));
    else if (errno != EAGAIN)
        return pause();  // the descriptors have run out; the loop would tell of it without end
    start();
}

void Acceptor::pause() {
    pauseEnd.expires_after(std::chrono::milliseconds(200));
    pauseEnd.async_wait([this](const asio::error_code&) { start(); });  // or retry() has ended it
}

void Acceptor::retry() {
    pauseEnd.cancel();
}

}  // namespace airflow::platform
