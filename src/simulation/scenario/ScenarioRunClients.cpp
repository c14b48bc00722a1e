// The clients of a run: their connections, calls and answers.
#include <utility>
#include <variant>

#include "daemon/Command.h"
#include "json/Decoder.h"
#include "simulation/scenario/ScenarioRun.h"

namespace airflow::simulation {

namespace {

namespace commands = daemon::commands;

/// What the run's observer is told of an answer.
struct ReplyOf {
    Reply operator()(const daemon::CodeReply& reply) const {
        return {.result = control::ControlResult::fromXPCCode(reply.code)};
    }
    Reply operator()(const daemon::Acknowledgement&) const { return {}; }
    Reply operator()(const daemon::VersionReply& reply) const { return {.version = reply.version}; }
    Reply operator()(const daemon::StateReply& reply) const {
        auto state = json::decode<control::ControlState>(reply.document);
        return {.state = state ? std::optional(std::move(*state)) : std::nullopt};
    }
};

/// Takes a command's arguments from a call.
struct ArgumentsOf {
    const Call& call;

    void operator()(commands::SetManualRPM& command) const {
        command.fan = call.fan;
        command.rpm = call.rpm;
    }
    void operator()(commands::SetPercent& command) const {
        command.fan = call.fan;
        command.percent = call.percent;
    }
    void operator()(commands::ApplyConfig& command) const { command.plan = planDocument(call); }
    void operator()(commands::NoArguments&) const {}
};

daemon::Command commandOf(const Call& call) {
    auto command = daemon::commandOf(call.method);
    std::visit(ArgumentsOf{call}, command);
    return command;
}

}  // namespace

SimulatedConnection& ScenarioRun::connect(const std::string& name, bool isUntrusted) {
    Client& client = clients[name];
    if (!client.connection || !client.connection->isOpen()) {
        observer.connected(now(), name, isUntrusted);
        client.isUntrusted = isUntrusted;
        client.connection = daemon->listener.connect(!isUntrusted);
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
    SimulatedConnection& connection = connect(call.client, clients[call.client].isUntrusted);
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
    // The call is copied: those of heartbeats do not stand in the scenario.
    const auto told =
        [this, call, opening = clients[call.client].openings](const airflow::daemon::Reply& reply) {
            tell(call, opening, std::visit(ReplyOf(), reply));
        };
    return [command = commandOf(call), told](airflow::daemon::FanHelperService& service) {
        dispatch(service, command, told);
    };
}

}  // namespace airflow::simulation
