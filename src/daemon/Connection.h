// Connection and Listener: the seams to how clients reach the daemon.
#pragma once

#include <functional>
#include <string_view>

namespace airflow::daemon {

class FanHelperService;
class HelperListenerDelegate;

/// A connection that a client has opened. Nothing arrives on it before resume(). It may be gone
/// once the function that was given it has returned.
class Connection {
public:
    Connection() = default;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    virtual ~Connection() = default;

    /// Lets the client call the service's operations, all ten and no others. The service outlives
    /// the connection.
    virtual void exportService(FanHelperService& service) = 0;
    /// Who the client has to be. Of any other, no message is carried out and the connection ends.
    virtual void setCodeSigningRequirement(std::string_view requirement) = 0;
    /// Called once, when nothing will arrive any more, for whatever reason. Must not block.
    virtual void setInvalidationHandler(std::function<void()> handler) = 0;
    /// Called when the client is gone and the connection could be taken up again. Must not block.
    virtual void setInterruptionHandler(std::function<void()> handler) = 0;
    virtual void resume() = 0;
};

/// Where clients knock.
class Listener {
public:
    Listener() = default;
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    virtual ~Listener() = default;

    /// Asks `delegate`, which outlives the listener, about every connection from now on; those that
    /// it declines are ended. Connections that clients opened before wait until then.
    virtual void resume(HelperListenerDelegate& delegate) = 0;
};

}  // namespace airflow::daemon
