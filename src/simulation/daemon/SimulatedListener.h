// SimulatedListener: connections of simulated clients to a simulated daemon.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "concurrency/Actor.h"
#include "daemon/Connection.h"
#include "daemon/FanHelperService.h"
#include "simulation/runtime/SimulatedRuntime.h"

namespace airflow::simulation {

/// One connection. Its messages are delivered one after the other on its own executor, in the order
/// in which they were sent; then its end is.
class SimulatedConnection final : public concurrency::Actor,
                                  public daemon::Connection,
                                  public std::enable_shared_from_this<SimulatedConnection> {
public:
    using Message = std::function<void(daemon::FanHelperService&)>;

    /// `meetsRequirement`: whether the client is who a code-signing requirement asks for.
    SimulatedConnection(SimulatedRuntime& runtime, bool meetsRequirement);

    /// The client's side. After end() nothing is sent, and no answer arrives.
    void send(Message message);
    void end();
    [[nodiscard]] bool isOpen() const { return open; }
    /// Tells the client, once, that it was refused: its connection has ended from the other side.
    std::function<void()> refused;

    void exportService(daemon::FanHelperService& exported) override { service = &exported; }
    void setCodeSigningRequirement(std::string_view text) override { requirement = text; }
    void setInvalidationHandler(std::function<void()> handler) override;
    void setInterruptionHandler(std::function<void()> handler) override;
    void resume() override;

    [[nodiscard]] const std::string& codeSigningRequirement() const { return requirement; }

private:
    void deliverSoon();
    static concurrency::Task<void> deliver(SimulatedConnection& connection,
                                           std::shared_ptr<SimulatedConnection> keptAlive);
    void invalidate();

    SimulatedRuntime& runtime;
    bool meetsRequirement;
    bool open = true;
    bool isResumed = false;
    bool isDelivering = false;
    bool isInvalid = false;
    std::deque<Message> messages;
    daemon::FanHelperService* service = nullptr;
    std::string requirement;
    std::function<void()> invalidationHandler;
    std::function<void()> interruptionHandler;
};

class SimulatedListener final : public daemon::Listener {
public:
    explicit SimulatedListener(SimulatedRuntime& runtime);

    void resume(daemon::HelperListenerDelegate& accepting) override;
    [[nodiscard]] bool isListening() const { return delegate != nullptr; }
    /// Called when the daemon begins to listen.
    std::function<void()> resumed;

    /// A client knocks. Until the daemon listens the connection waits, with what is sent on it.
    std::shared_ptr<SimulatedConnection> connect(bool meetsRequirement = true);

private:
    class Queue final : public concurrency::Actor {
    public:
        using Actor::Actor;
    };

    static concurrency::Task<void> accept(Queue& queue, daemon::HelperListenerDelegate& delegate,
                                          std::shared_ptr<SimulatedConnection> connection);

    SimulatedRuntime& runtime;
    Queue queue;
    daemon::HelperListenerDelegate* delegate = nullptr;
    std::vector<std::shared_ptr<SimulatedConnection>> waiting;
};

}  // namespace airflow::simulation
