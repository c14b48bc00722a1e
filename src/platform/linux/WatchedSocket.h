// WatchedSocket: one end of a connection, read and written by an event loop without ever waiting.
//
// Includes Asio: not for headers that other modules read.
#pragma once

#include <sys/socket.h>

#include <array>
#include <asio/io_context.hpp>
#include <asio/posix/basic_stream_descriptor.hpp>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "platform/linux/LocalSocket.h"

namespace airflow::platform {

/// Used by the loop's thread alone.
class WatchedSocket {
public:
    WatchedSocket(std::shared_ptr<asio::io_context> loop, FileDescriptor connected);
    WatchedSocket(const WatchedSocket&) = delete;
    WatchedSocket& operator=(const WatchedSocket&) = delete;
    ~WatchedSocket();

    [[nodiscard]] const std::shared_ptr<asio::io_context>& context() const { return io; }
    [[nodiscard]] const FileDescriptor& descriptor() const { return socket; }
    /// Comes before anything is waited for. False when the system cannot watch one more.
    [[nodiscard]] bool watch();

    enum class Event : std::uint8_t { readable, writable, end };
    /// Calls `handle(event)` of the owner of this socket, once, unless the owner is gone by then.
    /// Does nothing while that is waited for. An event may turn out to be none: the loop reuses
    /// what it keeps for a socket while it may still have events of the one before.
    template <typename Owner>
    void waitFor(Event event, const std::weak_ptr<Owner>& owner);

    enum class Received : std::uint8_t { bytes, nothing, end, failure };
    /// Appends what has arrived, 64 KiB at most. Only one call's worth of memory is needed for all
    /// sockets, and none for one that is idle.
    template <typename Buffer>
    [[nodiscard]] Received receiveInto(Buffer& buffer);
    /// Whether the peer has closed its end, rather than only finished sending; or has sent urgent
    /// data, which nobody here reads and which would be reported without end.
    [[nodiscard]] bool isPeerGone() const;

    /// Adds to what flush() sends.
    void write(std::string_view bytes) { outgoing += bytes; }
    /// Sends as much as the peer takes now; false when nobody will.
    [[nodiscard]] bool flush();
    /// Bytes that were written and not sent.
    [[nodiscard]] std::size_t unsent() const { return outgoing.size(); }

private:
    using Descriptor = asio::posix::basic_stream_descriptor<asio::io_context::executor_type>;

    static Descriptor::wait_type typeOf(Event event);

    const std::shared_ptr<asio::io_context> io;
    const FileDescriptor socket;
    Descriptor watched;
    std::array<bool, 3> isWaiting{};  ///< by event
    std::string outgoing;
};

template <typename Owner>
void WatchedSocket::waitFor(Event event, const std::weak_ptr<Owner>& owner) {
    bool& isUnderWay = isWaiting.at(static_cast<std::size_t>(event));
    if (std::exchange(isUnderWay, true)) return;
    watched.async_wait(typeOf(event), [&isUnderWay, event, owner](const asio::error_code&) {
        const std::shared_ptr<Owner> self = owner.lock();
        if (!self) return;  // nor is there this socket
        isUnderWay = false;
        self->handle(event);
    });
}

template <typename Buffer>
WatchedSocket::Received WatchedSocket::receiveInto(Buffer& buffer) {
    std::array<char, 65536> chunk;  // NOLINT(*-member-init): recv() fills it
    const ssize_t count = recv(socket.get(), chunk.data(), chunk.size(), MSG_DONTWAIT);
    if (count == 0) return Received::end;
    if (count < 0) {
        return errno == EAGAIN || errno == EINTR ? Received::nothing : Received::failure;
    }
    buffer.append(std::string_view(chunk.data(), static_cast<std::size_t>(count)));
    return Received::bytes;
}

}  // namespace airflow::platform
