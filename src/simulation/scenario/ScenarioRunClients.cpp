// The clients of a run: their connections, calls and answers.
#include <utility>

#include "json/Decoder.h"
#include "simulation/scenario/ScenarioRun.h"

namespace airflow::simulation {

SimulatedConnection& ScenarioRun::connect(const std::string& name, bool isStranger) {
    Client& client = clients[name];
    if (!client.connection || !client.connection->isOpen()) {
        observer.connected(now(), name, isStranger);
        client.isStranger = isStranger;
        client.connection = daemon->listener.connect(!isStranger);
        client.connection->refused = [this, name] { observer.disconnected(now(), name); };
        ++client.openings;
    }
    return *client.connection;
}

void ScenarioRun::disconnect(const std::string& name) {
    const auto client = clients.find(name);
    if (client == clients.end() || !client->second.connection) return;
    const auto connection = std::exchange(client->second.connection, nullptr);
    if (!connection->isOpen()) return;  // was refused
    observer.disconnected(now(), name);
    connection->end();
}

/// A call while no process runs goes nowhere.
void ScenarioRun::send(const Call& call) {
    if (!daemon) return;
    SimulatedConnection& connection = connect(call.client, clients[call.client].isStranger);
    Call numbered = call;
    numbered.id = ++calls;
    observer.called(now(), call.client, numbered);
    connection.send(message(numbered));
}

void ScenarioRun::tell(const Call& call, std::int64_t opening, Reply reply) {
    const Client& client = clients[call.client];
    reply.client = call.client;
    reply.method = call.method;
    reply.call = call.id;
    reply.isDelivered = client.connection && client.openings == opening;
    observer.replied(now(), reply);
}

SimulatedConnection::Message ScenarioRun::message(const Call& call) {
    using Service = airflow::daemon::FanHelperService;
    using Method = Call::Method;
    // The call is copied: those of heartbeats do not stand in the scenario.
    const auto told = [this, call, opening = clients[call.client].openings](Reply reply) {
        tell(call, opening, std::move(reply));
    };
    const auto code = [told](std::int64_t number) {
        told({.result = control::ControlResult::fromXPCCode(number)});
    };
    const auto done = [told] { told({}); };
    return [call, told, code, done](Service& service) {
        switch (call.method) {
            case Method::setManualRPM: return service.setManualRPM(call.fan, call.rpm, code);
            case Method::setPercent: return service.setPercent(call.fan, call.percent, code);
            case Method::fullBlast: return service.fullBlast(code);
            case Method::automatic: return service.automatic(code);
            case Method::applyConfig: return service.applyConfig(planDocument(call), code);
            case Method::restoreAuto: return service.restoreAuto(done);
            case Method::shutdownForUpgrade: return service.shutdownForUpgrade(done);
            case Method::heartbeat: return service.heartbeat();
            case Method::helperVersion:
                return service.helperVersion(
                    [&](std::string_view text) { told({.version = std::string(text)}); });
            case Method::readState:
                return service.readState([told](std::string_view document) {
                    auto state = json::decode<control::ControlState>(document);
                    told({.state = state ? std::optional(std::move(*state)) : std::nullopt});
                });
        }
    };
}

}  // namespace airflow::simulation
