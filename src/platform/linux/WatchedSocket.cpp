#include "platform/linux/WatchedSocket.h"

#include <poll.h>

namespace airflow::platform {

WatchedSocket::WatchedSocket(std::shared_ptr<asio::io_context> loop, FileDescriptor connected)
    : io(std::move(loop)), socket(std::move(connected)), watched(*io) {}

WatchedSocket::~WatchedSocket() {
    if (watched.is_open()) watched.release();  // who closes it is the owner of the descriptor
}

bool WatchedSocket::watch() {
    asio::error_code error;
    watched.assign(socket.get(), error);
    return !error;
}

bool WatchedSocket::isPeerGone() const {
    pollfd asked{.fd = socket.get(), .events = POLLPRI, .revents = 0};
    return poll(&asked, 1, 0) > 0;
}

bool WatchedSocket::flush() {
    std::size_t sent = 0;
    bool isHeard = true;
    while (isHeard && sent < outgoing.size()) {
        const ssize_t count = send(socket.get(), outgoing.data() + sent, outgoing.size() - sent,
                                   MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count >= 0)
            sent += static_cast<std::size_t>(count);
        else if (errno == EAGAIN)
            break;
        else
            isHeard = errno == EINTR;
    }
    outgoing.erase(0, sent);
    if (outgoing.empty()) outgoing.shrink_to_fit();  // after a peer that was slow for a while
    return isHeard;
}

WatchedSocket::Descriptor::wait_type WatchedSocket::typeOf(Event event) {
    switch (event) {
        case Event::readable: return Descriptor::wait_read;
        case Event::writable: return Descriptor::wait_write;
        case Event::end: break;
    }
    return Descriptor::wait_error;
}

}  // namespace airflow::platform
