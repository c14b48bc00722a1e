// Acceptor: takes the connections that queue at a socket, on an event loop.
//
// Includes Asio: not for headers that other modules read.
#pragma once

#include <asio/io_context.hpp>
#include <asio/posix/basic_stream_descriptor.hpp>
#include <asio/steady_timer.hpp>
#include <functional>

#include "platform/linux/LocalSocket.h"

namespace airflow::platform {

/// Connections that cannot be accepted because no descriptor is left wait until one is. Destroyed
/// after the loop has stopped.
class Acceptor {
public:
    using Accepted = std::function<void(FileDescriptor connection)>;

    /// `bound` is bound and listens. The loop's thread calls `accepted`.
    Acceptor(asio::io_context& loop, FileDescriptor bound, Accepted accepted);
    Acceptor(const Acceptor&) = delete;
    Acceptor& operator=(const Acceptor&) = delete;
    ~Acceptor();

    /// Once, from any thread.
    void start();
    /// A descriptor of ours is about to be closed, so another can be had. On the loop's thread.
    void retry();

private:
    void accept();
    void pause();

    const FileDescriptor listening;
    const Accepted handler;
    asio::posix::basic_stream_descriptor<asio::io_context::executor_type> watched;
    asio::steady_timer pauseEnd;
};

}  // namespace airflow::platform
