#include "remote/MachineConnection.h"

#include <utility>

namespace airflow::remote {

using concurrency::Duration;
using Event = platform::WatchedSocket::Event;

MachineConnection::MachineConnection(std::shared_ptr<asio::io_context> loop,
                                     platform::FileDescriptor connected, ServedMachine& machine,
                                     EndHandler endHandler)
    : socket(std::move(loop), std::move(connected)),
      session(machine),
      ended(std::move(endHandler)),
      late(*socket.context()) {}

void MachineConnection::start() {
    hasEnded = !socket.watch();
    settle();
}

void MachineConnection::handle(Event event) {
    if (event == Event::readable && isHeard()) receive();
    // One who is heard is read to the end: what was sent before it still counts.
    if (event == Event::end && !isHeard() && socket.isPeerGone()) hasEnded = true;
    proceed();
    settle();
}

void MachineConnection::receive() {
    using Received = platform::WatchedSocket::Received;
    const Received received = socket.receiveInto(incoming);
    if (received == Received::end || received == Received::failure) hasEnded = true;
}

/// As far as it goes.
void MachineConnection::proceed() {
    if (!isHoldingBack && !hasEnded) flush();
    while (isHeard()) {
        const auto request = incoming.next();
        if (!request) break;
        perform(*request);
    }
    if (incoming.isTooLong()) hasEnded = true;
}

void MachineConnection::perform(std::string_view request) {
    auto answer = session.perform(request);
    const auto bytes = answer ? answer->message.framed() : std::string_view();
    hasEnded = !answer || isTooLong(bytes);
    if (hasEnded) return;
    if (!answer->message.isEmpty()) socket.write(bytes);
    if (answer->latency > Duration::zero())
        holdBack(answer->latency);
    else
        flush();
}

void MachineConnection::holdBack(Duration latency) {
    isHoldingBack = true;
    late.expires_after(latency);
    late.async_wait([asker = weak_from_this()](const asio::error_code& error) {
        const auto self = asker.lock();
        if (error || !self) return;
        self->isHoldingBack = false;
        self->proceed();
        self->settle();
    });
}

void MachineConnection::flush() {
    if (!socket.flush()) hasEnded = true;
}

/// After anything that happened: waits for what comes next, or lets go of the socket.
void MachineConnection::settle() {
    if (hasEnded) {
        if (const auto handler = std::exchange(ended, {})) handler(*this);
        return;
    }
    if (!isHoldingBack && socket.unsent() > 0) socket.waitFor(Event::writable, weak_from_this());
    socket.waitFor(isHeard() ? Event::readable : Event::end, weak_from_this());
}

}  // namespace airflow::remote
