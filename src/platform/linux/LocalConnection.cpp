#include "platform/linux/LocalConnection.h"

#include <fmt/format.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>

#include "daemon/Command.h"
#include "daemon/FanHelperService.h"
#include "wire/Answer.h"

namespace airflow::platform {

LocalConnection::LocalConnection(std::uint64_t id, FileDescriptor connected,
                                 std::shared_ptr<AnswerBox> answers, const PeerCheck& isWelcome)
    : number(id), socket(std::move(connected)), box(std::move(answers)), welcome(isWelcome) {}

LocalConnection::~LocalConnection() {
    stopReceiving();
}

void LocalConnection::setCodeSigningRequirement(std::string_view) {
    const auto peer = peerOf(socket);
    isUntrusted = !peer || !welcome(*peer);
}

void LocalConnection::setInvalidationHandler(std::function<void()> handler) {
    invalidationHandler = std::move(handler);
}

void LocalConnection::resume() {
    isReceiving = true;
    if (!isUntrusted) return;
    refuse({.id = {}, .reason = "The daemon takes commands from its own user and from root only."});
    stopReceiving();
    flush();
}

std::uint32_t LocalConnection::interest() const {
    std::uint32_t events = 0;
    if (isReceiving && !isBusy()) events |= EPOLLIN;
    if (hasUnsent()) events |= EPOLLOUT;
    return events;
}

bool LocalConnection::hasEnded() const {
    const bool isWaitedFor = unanswered > 0 || hasUnsent();
    return isBroken || (!isReceiving && !isWaitedFor);
}

void LocalConnection::handle(std::uint32_t events) {
    if ((events & EPOLLIN) != 0 && (interest() & EPOLLIN) != 0)
        receive();
    else if ((events & (EPOLLHUP | EPOLLERR)) != 0)
        breakOff();
    proceed();
}

void LocalConnection::take(const AnswerBox::Answer& answer) {
    if (answer.heartbeats > 0) {
        isAsking = false;
        unheard -= answer.heartbeats;
    } else {
        --unanswered;
        write(answer.line);
    }
    proceed();
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

void LocalConnection::receive() {
    std::array<char, 65536> chunk;  // NOLINT(*-member-init): recv() fills it
    const ssize_t count = recv(socket.get(), chunk.data(), chunk.size(), MSG_DONTWAIT);
    if (count > 0) {
        lines.append({chunk.data(), static_cast<std::size_t>(count)});
    } else if (count == 0) {
        if (lines.hasRest()) refuse({.id = {}, .reason = "The last line has no newline."});
        stopReceiving();
    } else if (errno != EAGAIN && errno != EINTR) {
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
    daemon::dispatch(
        *service, std::move(request.command),
        [answers = box, connection = number, id = *request.id](const daemon::Reply& reply) {
            answers->put({.connection = connection, .line = wire::answerLine(id, reply)});
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
    service->readState([answers = box, connection = number, count = unheard](std::string_view) {
        answers->put({.connection = connection, .line = {}, .heartbeats = count});
    });
}

void LocalConnection::refuse(const wire::Refusal& refusal) {
    write(wire::errorLine(refusal));
}

void LocalConnection::write(std::string_view line) {
    if (!isBroken) outgoing += line;
}

void LocalConnection::flush() {
    while (hasUnsent() && !isBroken) {
        const ssize_t count = send(socket.get(), outgoing.data() + sent, outgoing.size() - sent,
                                   MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count >= 0)
            sent += static_cast<std::size_t>(count);
        else if (errno == EAGAIN)
            break;
        else if (errno != EINTR)
            breakOff();
    }
    outgoing.erase(0, std::exchange(sent, 0));
    if (outgoing.empty()) outgoing.shrink_to_fit();  // after a client that was slow for a while
    if (outgoing.size() > unreadLimit) breakOff();
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
