#include "simulation/daemon/SimulatedListener.h"

#include <utility>

#include "daemon/HelperListenerDelegate.h"

namespace airflow::simulation {

using concurrency::Task;

SimulatedConnection::SimulatedConnection(SimulatedRuntime& ownRuntime, bool isWhoIsAskedFor)
    : Actor(ownRuntime.makeExecutor("connection")),
      runtime(ownRuntime),
      meetsRequirement(isWhoIsAskedFor) {}

void SimulatedConnection::send(Message message) {
    if (!open) return;
    messages.push_back(std::move(message));
    deliverSoon();
}

void SimulatedConnection::end() {
    if (!std::exchange(open, false)) return;
    deliverSoon();
}

void SimulatedConnection::setInvalidationHandler(std::function<void()> handler) {
    invalidationHandler = std::move(handler);
}

void SimulatedConnection::setInterruptionHandler(std::function<void()> handler) {
    interruptionHandler = std::move(handler);
}

void SimulatedConnection::resume() {
    isResumed = true;
    deliverSoon();
}

void SimulatedConnection::deliverSoon() {
    if (!isResumed || isInvalid || std::exchange(isDelivering, true)) return;
    runtime.detach("connection", deliver(*this, shared_from_this()));
}

Task<void> SimulatedConnection::deliver(SimulatedConnection& connection,
                                        std::shared_ptr<SimulatedConnection>) {
    const bool isUntrusted = !connection.requirement.empty() && !connection.meetsRequirement;
    if (isUntrusted && !connection.messages.empty()) {
        connection.messages.clear();
        connection.open = false;
        if (connection.refused) connection.refused();
    }
    while (!connection.messages.empty()) {
        const Message message = std::move(connection.messages.front());
        connection.messages.pop_front();
        message(*connection.service);
    }
    connection.isDelivering = false;
    if (!connection.open) connection.invalidate();
    co_return;
}

void SimulatedConnection::invalidate() {
    if (std::exchange(isInvalid, true)) return;
    if (invalidationHandler) invalidationHandler();
}

SimulatedListener::SimulatedListener(SimulatedRuntime& ownRuntime)
    : runtime(ownRuntime), queue(runtime.makeExecutor("listener")) {}

void SimulatedListener::resume(daemon::HelperListenerDelegate& accepting) {
    delegate = &accepting;
    if (resumed) resumed();
    for (auto& connection : std::exchange(waiting, {})) {
        runtime.detach("accept", accept(queue, accepting, std::move(connection)));
    }
}

std::shared_ptr<SimulatedConnection> SimulatedListener::connect(bool meetsRequirement) {
    auto connection = std::make_shared<SimulatedConnection>(runtime, meetsRequirement);
    if (delegate)
        runtime.detach("accept", accept(queue, *delegate, connection));
    else
        waiting.push_back(connection);
    return connection;
}

Task<void> SimulatedListener::accept(Queue&, daemon::HelperListenerDelegate& accepting,
                                     std::shared_ptr<SimulatedConnection> connection) {
    (void)accepting.shouldAccept(*connection);  // always true
    co_return;
}

}  // namespace airflow::simulation
