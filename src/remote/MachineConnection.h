// MachineConnection: one peer of a served machine: its requests, one at a time, and their answers.
//
// Everything here runs on the thread of the event loop, which it never blocks. Includes Asio: not
// for headers that other modules read.
#pragma once

#include <asio/steady_timer.hpp>
#include <functional>
#include <memory>
#include <string>

#include "platform/linux/WatchedSocket.h"
#include "remote/MachineProtocol.h"
#include "remote/MachineSession.h"

namespace airflow::remote {

/// A request is carried out when the answer before it is sent, so a peer that does not read, or
/// that waits for a slow answer, is not read from either.
class MachineConnection final : public std::enable_shared_from_this<MachineConnection> {
public:
    /// Told once, when the connection has ended by itself.
    using EndHandler = std::function<void(const MachineConnection& ended)>;

    /// Owned by shared pointers. The machine outlives the connection.
    MachineConnection(std::shared_ptr<asio::io_context> loop, platform::FileDescriptor connected,
                      ServedMachine& machine, EndHandler endHandler);

    void start();
    void handle(platform::WatchedSocket::Event event);

private:
    [[nodiscard]] bool isHeard() const {
        return !hasEnded && !isHoldingBack && socket.unsent() == 0;
    }
    void receive();
    void proceed();
    void perform(std::string_view request);
    void holdBack(concurrency::Duration latency);
    void flush();
    void settle();

    platform::WatchedSocket socket;
    MachineSession session;
    EndHandler ended;
    MessageBuffer incoming;
    asio::steady_timer late;     ///< the end of what is held back
    bool isHoldingBack = false;  ///< what was written must not be sent yet
    bool hasEnded = false;
};

}  // namespace airflow::remote
