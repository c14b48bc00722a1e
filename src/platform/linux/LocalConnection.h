// LocalConnection: one client of the local socket, on the daemon's side.
//
// Everything here runs on the listener's thread, which it never blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "daemon/Connection.h"
#include "platform/linux/AnswerBox.h"
#include "platform/linux/LocalSocket.h"
#include "wire/LineBuffer.h"
#include "wire/Request.h"

namespace airflow::platform {

/// Whether a peer is one that commands are taken from.
using PeerCheck = std::function<bool(const Peer& peer)>;

/// Messages are delivered one after the other, in the order in which they came. The connection ends
/// in two steps: first nothing arrives any more, which the invalidation handler is told once; then,
/// when the answers that the client still waits for are written, or the client is gone, the socket
/// is closed. So `printf ... | nc -N` gets its answers.
class LocalConnection final : public daemon::Connection {
public:
    /// While so many calls wait for their answer, no further message is read.
    static constexpr std::size_t unansweredLimit = 256;
    /// While so many bytes of answers are not sent, neither.
    static constexpr std::size_t unsentLimit = 256UL * 1024;
    /// Bytes of answers that a client may leave unread before its connection ends.
    static constexpr std::size_t unreadLimit = 8 * 1024 * 1024;

    LocalConnection(std::uint64_t id, FileDescriptor socket, std::shared_ptr<AnswerBox> answers,
                    const PeerCheck& isWelcome);
    /// Tells the invalidation handler, if nobody has.
    ~LocalConnection() override;

    void exportService(daemon::FanHelperService& exported) override { service = &exported; }
    /// Sockets know no signatures: who the peer has to be is what the peer check says.
    void setCodeSigningRequirement(std::string_view requirement) override;
    void setInvalidationHandler(std::function<void()> handler) override;
    /// Never called: a socket whose client is gone cannot be taken up again.
    void setInterruptionHandler(std::function<void()>) override {}
    void resume() override;

    [[nodiscard]] int descriptor() const { return socket.get(); }
    /// The events that it has to be told of, as epoll names them.
    [[nodiscard]] std::uint32_t interest() const;
    void handle(std::uint32_t events);
    /// An answer to one of its calls has come.
    void take(const AnswerBox::Answer& answer);
    /// Whether the socket can be closed.
    [[nodiscard]] bool hasEnded() const;

private:
    /// Whether the client has so much under way that no further line of it is looked at.
    [[nodiscard]] bool isBusy() const {
        return unanswered + unheard >= unansweredLimit || outgoing.size() - sent >= unsentLimit;
    }
    [[nodiscard]] bool hasUnsent() const { return sent < outgoing.size(); }
    void receive();
    void proceed();
    void deliver();
    void deliver(std::string_view line);
    void carryOut(wire::Request request);
    void carryOutHeartbeat();
    void askWhenHeard();
    void refuse(const wire::Refusal& refusal);
    void write(std::string_view line);
    void flush();
    void stopReceiving();
    void breakOff();

    const std::uint64_t number;
    const FileDescriptor socket;
    const std::shared_ptr<AnswerBox> box;
    const PeerCheck& welcome;

    daemon::FanHelperService* service = nullptr;
    std::function<void()> invalidationHandler;
    bool isUntrusted = false;
    bool isReceiving = false;  ///< between resume() and the end
    bool isBroken = false;     ///< nobody reads what would be written

    wire::LineBuffer lines{wire::lineLimit};
    std::size_t unanswered = 0;  ///< calls
    std::size_t unheard = 0;     ///< heartbeats that the controller may not have heard yet
    bool isAsking = false;       ///< whether it has heard them
    std::string outgoing;
    std::size_t sent = 0;  ///< of `outgoing`
};

}  // namespace airflow::platform
