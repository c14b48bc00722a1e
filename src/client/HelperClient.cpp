#include "client/HelperClient.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace airflow::client {

namespace {

using concurrency::Duration;
using concurrency::Instant;
using control::ControlResult;
using daemon::Command;
using daemon::HelperVersionClassification;
using daemon::HelperVersionDecision;
using daemon::HelperVersionProbe;
using daemon::Method;
using daemon::ReplyKind;
namespace commands = daemon::commands;
using namespace std::chrono_literals;

/// The build is answered at once, however busy the daemon is.
constexpr Duration probeTimeout = 5s;
/// A daemon that was told to leave lingers 200 ms, and gives the fans back for up to 3 s more.
constexpr Duration gracePeriod = 5s;
/// For the next daemon to start, which recovers the fans before it listens.
constexpr Duration startTimeout = 15s;
constexpr Duration betweenAttempts = 100ms;

Answer failure(std::string reason) {
    return {.result = ControlResult::failed(reason), .reason = std::move(reason)};
}

Answer unreachable(std::string reason) {
    return {.result = ControlResult::noHelper(), .reason = std::move(reason)};
}

bool needsRightBuild(Method method) {
    return method != Method::helperVersion && method != Method::shutdownForUpgrade;
}

/// The answer to `method`, which has to carry what that method is answered with.
Answer understood(Method method, wire::AnswerBody body) {
    const auto without = [method](std::string_view what) {
        return failure(fmt::format("the answer to {} has no {}", nameOf(method), what));
    };
    if (body.error) return failure(std::move(*body.error));
    Answer answer{.result = ControlResult::applied()};
    switch (daemon::descriptionOf(method).reply) {
        case ReplyKind::none:
        case ReplyKind::acknowledgement: break;
        case ReplyKind::version:
            if (!body.version) return without("version");
            answer.version = std::move(body.version);
            break;
        case ReplyKind::state:
            if (!body.state) return without("state");
            answer.state = std::move(body.state);
            break;
        case ReplyKind::code:
            if (!body.code) return without("code");
            answer.result = ControlResult::fromXPCCode(*body.code);
            break;
    }
    return answer;
}

}  // namespace

HelperClient::HelperClient(Transport& helperTransport, Time& clock, HelperClientOptions wishes)
    : transport(helperTransport), time(clock), options(std::move(wishes)) {
    reconciler.maxUpgradeAttempts = options.maxUpgradeAttempts;
}

Answer HelperClient::connect() {
    attend();
    auto ready = channel ? Ready() : open(time.now());
    if (ready) ready = reconcile();
    if (!ready) return unreachable(std::move(ready.error()));
    return {.result = ControlResult::applied()};
}

Answer HelperClient::call(const Command& command) {
    if (needsRightBuild(daemon::methodOf(command))) {
        auto connected = connect();
        if (!connected.result.isApplied()) return connected;
    } else {
        attend();
        auto ready = channel ? Ready() : open(time.now());
        if (!ready) return unreachable(std::move(ready.error()));
    }
    return exchange(command, options.replyTimeout);
}

Instant HelperClient::attend() {
    if (!channel) return Instant::max();
    receive(time.now());
    while (takeLine()) {
    }  // nobody waits for an answer: these came too late
    if (received.size() > wire::lineLimit) disconnect();
    sendHeartbeatIfDue();
    return keepsAlive() ? heartbeatDue : Instant::max();
}

void HelperClient::disconnect() {
    channel.reset();
    received.clear();
}

HelperClient::Ready HelperClient::open(Instant deadline) {
    reconciler.connectionChanged();
    received.clear();
    for (;;) {
        auto opened = transport.connect();
        if (opened) {
            channel = std::move(*opened);
            heartbeatDue = time.now() + heartbeatInterval;
            return {};
        }
        if (time.now() >= deadline) return std::unexpected(std::move(opened.error()));
        time.sleepUntil(std::min(time.now() + betweenAttempts, deadline));
    }
}

HelperClient::Ready HelperClient::reconcile() {
    while (reconciler.needsProbe()) {
        Probe probe = askBuild();
        switch (reconciler.next(probe.outcome, swaps)) {
            case HelperVersionDecision::proceed: break;
            case HelperVersionDecision::triggerUpgradeSwap:
                if (auto swapped = swap(); !swapped) return swapped;
                break;
            case HelperVersionDecision::stale:
                staleReason = std::move(probe.reason);
                // Another connection may find one that answers; a wrong build stays wrong.
                if (probe.outcome == HelperVersionProbe::noReply) disconnect();
                break;
        }
    }
    if (reconciler.classification == HelperVersionClassification::stale) {
        return std::unexpected(staleReason);
    }
    return {};
}

HelperClient::Ready HelperClient::swap() {
    ++swaps;
    // Whether or not it acknowledges: if it stays, the next probe says so.
    (void)exchange(commands::ShutdownForUpgrade{}, options.replyTimeout);
    awaitEnd(time.now() + gracePeriod);
    disconnect();
    options.startHelper();
    auto opened = open(time.now() + startTimeout);
    if (opened) return opened;
    return std::unexpected("the daemon of another build has left, and no other came: " +
                           opened.error());
}

HelperClient::Probe HelperClient::askBuild() {
    const Answer answer = exchange(commands::HelperVersion{}, probeTimeout);
    if (!answer.version) {
        return {.outcome = HelperVersionProbe::noReply,
                .reason = "the daemon does not say which build it is: " + answer.reason};
    }
    if (*answer.version == options.expectedBuild) {
        return {.outcome = HelperVersionProbe::matched, .reason = {}};
    }
    return {.outcome = HelperVersionProbe::mismatched,
            .reason = fmt::format("the daemon is build {}; this client is made for {}",
                                  *answer.version, options.expectedBuild)};
}

void HelperClient::awaitEnd(Instant until) {
    while (channel && time.now() < until) {
        receive(until);
        received.clear();
    }
}

Answer HelperClient::exchange(const Command& command, Duration timeout) {
    const auto line = wire::requestLine(lastID + 1, command);
    if (!line) return failure(line.error());
    ++lastID;
    if (!send(*line)) return failure("the connection ended before the call was sent");
    const Method method = daemon::methodOf(command);
    if (method == Method::heartbeat) return {.result = ControlResult::applied()};
    return awaitAnswer(lastID, method, time.now() + timeout);
}

Answer HelperClient::awaitAnswer(std::int64_t id, Method method, Instant until) {
    const Instant start = time.now();
    for (;;) {
        auto answer = nextAnswer(until);
        if (!answer) {
            switch (answer.error()) {
                case Absence::late:
                    return failure(fmt::format("no answer within {:.7g} s",
                                               concurrency::inSeconds(until - start)));
                case Absence::ended: return failure("the connection ended before an answer came");
                case Absence::notUnderstood: break;
            }
            disconnect();
            return failure("what answers does not speak the daemon's protocol");
        }
        // Without an id it is about a line that the daemon could not read: this one, since nothing
        // else waits for an answer. Another id is of a call that was given up.
        if (answer->id.value_or(id) != id) continue;
        if (!answer->body) return failure(std::move(answer->body.error()));
        return understood(method, std::move(*answer->body));
    }
}

std::expected<wire::Answer, HelperClient::Absence> HelperClient::nextAnswer(Instant until) {
    for (;;) {
        if (const auto line = takeLine()) {
            auto answer = wire::parseAnswer(*line);
            if (!answer) return std::unexpected(Absence::notUnderstood);
            const bool isForSomebody = answer->id || !answer->body || answer->body->error;
            if (!isForSomebody) return std::unexpected(Absence::notUnderstood);
            return std::move(*answer);
        }
        if (received.size() > wire::lineLimit) return std::unexpected(Absence::notUnderstood);
        if (channel && time.now() >= until) return std::unexpected(Absence::late);
        sendHeartbeatIfDue();
        if (!channel) return std::unexpected(Absence::ended);
        receive(keepsAlive() ? std::min(until, heartbeatDue) : until);
    }
}

std::optional<std::string> HelperClient::takeLine() {
    const auto end = received.find('\n');
    if (end == std::string::npos) return std::nullopt;
    std::string line = received.substr(0, end);
    received.erase(0, end + 1);
    return line;
}

bool HelperClient::send(std::string_view line) {
    if (channel->send(line)) return true;
    disconnect();
    return false;
}

bool HelperClient::keepsAlive() const {
    return channel && options.sendsHeartbeats &&
           reconciler.classification == HelperVersionClassification::matched;
}

void HelperClient::sendHeartbeatIfDue() {
    if (!keepsAlive() || time.now() < heartbeatDue) return;
    heartbeatDue = time.now() + heartbeatInterval;
    const auto line = wire::requestLine(++lastID, commands::Heartbeat{});
    (void)send(*line);  // a connection that ended shows as such
}

void HelperClient::receive(Instant until) {
    const Received arrived = channel->receive(until);
    if (arrived.kind == Received::Kind::bytes) received += arrived.bytes;
    if (arrived.kind == Received::Kind::ended) channel.reset();
}

}  // namespace airflow::client
