#include "platform/linux/LocalConnection.h"

#include <fmt/format.h>

#include <asio/post.hpp>
#include <utility>

#include "daemon/Command.h"
#include "daemon/FanHelperService.h"
#include "wire/Answer.h"

namespace airflow::platform {

using Event = WatchedSocket::Event;

LocalConnection::LocalConnection(std::shared_ptr<asio::io_context> loop, FileDescriptor connected,
                                 const PeerCheck& isWelcome, EndHandler endHandler)
    : socket(std::move(loop), std::move(connected)),
      welcome(isWelcome),
      ended(std::move(endHandler)) {}

LocalConnection::~LocalConnection() {
    stopReceiving();
}

void LocalConnection::setCodeSigningRequirement(std::string_view) {
    const auto peer = peerOf(socket.descriptor());
    isUntrusted = !peer || !welcome(*peer);
}

void LocalConnection::setInvalidationHandler(std::function<void()> handler) {
    invalidationHandler = std::move(handler);
}

void LocalConnection::resume() {
    isReceiving = true;
    if (!socket.watch()) {
        breakOff();
    } else if (isUntrusted) {
        refuse({.id = {},
                .reason = "The daemon takes commands from its own user and from root only."});
        stopReceiving();
        flush();
    }
    settle();
}

bool LocalConnection::hasEnded() const {
    const bool isWaitedFor = unanswered > 0 || socket.unsent() > 0;
    return isBroken || (!isReceiving && !isWaitedFor);
}

void LocalConnection::handle(Event event) {
    if (event == Event::readable && isHeard()) receive();
    // One who is heard is read to the end: what was sent before it still counts.
    if (event == Event::end && !isHeard() && socket.isPeerGone()) breakOff();
    proceed();
    settle();
}

void LocalConnection::answer(std::string_view line) {
    --unanswered;
    write(line);
    proceed();
    settle();
}

void LocalConnection::noteHeard(std::size_t heartbeats) {
    isAsking = false;
    unheard -= heartbeats;
    proceed();
    settle();
}

/// As far as it goes: what is written makes room for the answers to further lines.
void LocalConnection::proceed() {
    bool wasBusy = false;
    do {
        deliver();
        wasBusy = isBusy();
        flush();
    } while (wasBusy && !isBusy() && isReceiving);
}

/// After anything that happened: waits for what comes next, or lets go of the socket.
void LocalConnection::settle() {
    if (hasEnded()) {
        if (const auto handler = std::exchange(ended, {})) handler(*this);
        return;
    }
    if (socket.unsent() > 0) socket.waitFor(Event::writable, weak_from_this());
    socket.waitFor(isHeard() ? Event::readable : Event::end, weak_from_this());
}

void LocalConnection::receive() {
    using Received = WatchedSocket::Received;
    const Received received = socket.receiveInto(lines);
    if (received == Received::end) {
        if (lines.hasRest()) refuse({.id = {}, .reason = "The last line has no newline."});
        stopReceiving();
    } else if (received == Received::failure) {
        breakOff();
    }
}

/// All that has arrived, as far as the client may have so much under way.
void LocalConnection::deliver() {
    while (isReceiving && !isBusy()) {
        const auto line = lines.next();
        if (!line) break;
        deliver(*line);
    }
    if (isReceiving && lines.isTooLong()) {
        refuse(
            {.id = {}, .reason = fmt::format("The line has more than {} bytes.", wire::lineLimit)});
        stopReceiving();
    }
    if (isReceiving && isBusy() && unheard > 0 && !isAsking) askWhenHeard();
}

void LocalConnection::deliver(std::string_view line) {
    auto request = wire::parseRequest(line);
    if (!request)
        refuse(request.error());
    else if (daemon::methodOf(request->command) == daemon::Method::heartbeat)
        carryOutHeartbeat();
    else
        carryOut(std::move(*request));
}

void LocalConnection::carryOut(wire::Request request) {
    ++unanswered;
    daemon::dispatch(*service, std::move(request.command),
                     [loop = socket.context(), asker = weak_from_this(),
                      id = *request.id](const daemon::Reply& reply) {
                         asio::post(*loop, [asker, line = wire::answerLine(id, reply)] {
                             if (const auto self = asker.lock()) self->answer(line);
                         });
                     });
}

void LocalConnection::carryOutHeartbeat() {
    ++unheard;
    service->heartbeat();
}

/// Nobody says when a heartbeat was heard. A question that comes after it is answered after it (but
/// for a few that other threads were about to hear), so a flood of heartbeats is bounded, too.
void LocalConnection::askWhenHeard() {
    isAsking = true;
    service->readState([loop = socket.context(), asker = weak_from_this(),
                        heartbeats = unheard](std::string_view) {
        asio::post(*loop, [asker, heartbeats] {
            if (const auto self = asker.lock()) self->noteHeard(heartbeats);
        });
    });
}

void LocalConnection::refuse(const wire::Refusal& refusal) {
    write(wire::errorLine(refusal));
}

void LocalConnection::write(std::string_view line) {
    if (!isBroken) socket.write(line);
}

void LocalConnection::flush() {
    if (isBroken) return;
    if (!socket.flush() || socket.unsent() > unreadLimit) breakOff();
}

void LocalConnection::stopReceiving() {
    isReceiving = false;
    if (const auto handler = std::exchange(invalidationHandler, {})) handler();
}

void LocalConnection::breakOff() {
    isBroken = true;
    stopReceiving();
}

}  // namespace airflow::platform
