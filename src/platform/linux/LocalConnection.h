// LocalConnection: one client of the local socket, on the daemon's side.
//
// Everything here runs on the thread of the event loop, which it never blocks. Includes Asio: not
// for headers that other modules read.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "daemon/Connection.h"
#include "platform/linux/LocalSocket.h"
#include "platform/linux/WatchedSocket.h"
#include "wire/LineBuffer.h"
#include "wire/Request.h"

namespace airflow::platform {

/// Messages are delivered one after the other, in the order in which they came. The connection ends
/// in two steps: first nothing arrives any more, which the invalidation handler is told once; then,
/// when the answers that the client still waits for are written, or the client is gone, the socket
/// is closed. So `printf ... | nc -N` gets its answers.
class LocalConnection final : public daemon::Connection,
                              public std::enable_shared_from_this<LocalConnection> {
public:
    /// While so many calls wait for their answer, no further message is read.
    static constexpr std::size_t unansweredLimit = 256;
    /// While so many bytes of answers are not sent, neither.
    static constexpr std::size_t unsentLimit = 256UL * 1024;
    /// Bytes of answers that a client may leave unread before its connection ends.
    static constexpr std::size_t unreadLimit = 8 * 1024 * 1024;

    /// Told once, when the socket can be closed.
    using EndHandler = std::function<void(const LocalConnection& ended)>;

    /// Owned by shared pointers; answers find it as long as one is left.
    LocalConnection(std::shared_ptr<asio::io_context> loop, FileDescriptor connected,
                    const PeerCheck& isWelcome, EndHandler endHandler = {});
    /// Tells the invalidation handler, if nobody has.
    ~LocalConnection() override;

    void exportService(daemon::FanHelperService& exported) override { service = &exported; }
    /// Sockets know no signatures: who the peer has to be is what the peer check says.
    void setCodeSigningRequirement(std::string_view requirement) override;
    void setInvalidationHandler(std::function<void()> handler) override;
    /// Never called: a socket whose client is gone cannot be taken up again.
    void setInterruptionHandler(std::function<void()>) override {}
    void resume() override;

    void handle(WatchedSocket::Event event);
    /// The answer to one of its calls has come.
    void answer(std::string_view line);
    /// Whether the socket can be closed.
    [[nodiscard]] bool hasEnded() const;

private:
    /// Whether the client has so much under way that no further line of it is looked at.
    [[nodiscard]] bool isBusy() const {
        return unanswered + unheard >= unansweredLimit || socket.unsent() >= unsentLimit;
    }
    [[nodiscard]] bool isHeard() const { return isReceiving && !isBusy(); }
    void noteHeard(std::size_t heartbeats);
    void receive();
    void proceed();
    void settle();
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

    WatchedSocket socket;
    const PeerCheck& welcome;
    EndHandler ended;

    daemon::FanHelperService* service = nullptr;
    std::function<void()> invalidationHandler;
    bool isUntrusted = false;
    bool isReceiving = false;  ///< between resume() and the end
    bool isBroken = false;     ///< nobody reads what would be written

    wire::LineBuffer lines{wire::lineLimit};
    std::size_t unanswered = 0;  ///< calls
    std::size_t unheard = 0;     ///< heartbeats that the controller may not have heard yet
    bool isAsking = false;       ///< whether it has heard them
};

}  // namespace airflow::platform
