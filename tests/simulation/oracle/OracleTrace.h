// OracleTrace: an oracle that a test tells by hand what happens, so that it can be shown the
// smallest run that breaks a property.
#pragma once

#include <gmock/gmock.h>

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "simulation/oracle/Oracle.h"

namespace airflow::simulation {

using namespace std::chrono_literals;

/// The machine is calm, at 50 °C, with one fan from 1200 to 6000 RPM, unless a test changes
/// `scenario` before its first happening. Moments are told in their order.
class OracleTrace : public testing::Test {
protected:
    using Duration = concurrency::Duration;
    using Method = Call::Method;

    static constexpr Duration instant = 1ns;  ///< the shortest time there is
    static constexpr std::uint8_t refusal = 0x86;

    OracleTrace() {
        scenario.machine.hid = Temperatures{{"CPU", 50.0}};
        addFan();
    }
    void addFan() {
        scenario.machine.fans.push_back({.modeKey = upperModeKey(scenario.machine.fans.size())});
    }

    Oracle& oracle() {
        if (!judge) {
            judge.emplace(scenario);
            mac.emplace(
                scenario.machine, [this] { return now; }, SimulatedMac::Options{.jitter = 0});
        }
        return *judge;
    }
    SimulatedMac& machine() {
        (void)oracle();
        return *mac;
    }

    // The process
    /// A start that finds every mode key, and does not listen yet.
    void start(Duration at = 0s) {
        oracle().started(at);
        for (std::size_t fan = 0; fan < scenario.machine.fans.size(); ++fan) findKey(at, fan);
    }
    void findKey(Duration at, std::size_t fan) { read(at, upperModeKey(fan), 1); }
    void listen(Duration at = 0s) { oracle().listening(at); }
    void serve(Duration at = 0s) {
        start(at);
        listen(at);
    }
    void terminate(Duration at) {
        oracle().signalled(at, daemon::Signal::terminate);
        oracle().exitBegan(at);
        write(at, "Ftst", 1);
    }
    void end(Duration at, int status = 143, bool bySignal = false) {
        oracle().ended({.time = at, .status = status, .bySignal = bySignal});
        connected.clear();
    }

    // The SMC
    void access(Duration at, Fault::Operation operation, const std::string& key, double value,
                std::uint8_t result = 0, Duration latency = {}) {
        oracle().access({.time = at,
                         .operation = operation,
                         .key = key,
                         .value = value,
                         .result = result,
                         .latency = latency});
    }
    void write(Duration at, const std::string& key, double value, std::uint8_t result = 0) {
        access(at, Fault::Operation::write, key, value, result);
    }
    void read(Duration at, const std::string& key, double value) {
        access(at, Fault::Operation::read, key, value);
    }
    void ask(Duration at, const std::string& key, std::uint8_t result = 0) {
        access(at, Fault::Operation::information, key, 0, result);
    }
    /// A read of no meaning, whose answer takes this long.
    void keepBusy(Duration at, Duration latency) {
        access(at, Fault::Operation::read, "TC0P", 50, 0, latency);
    }
    void force(Duration at, std::size_t fan = 0) {
        oracle().modeChanged(at, fan, FanMode::forced);
        write(at, upperModeKey(fan), 1);
    }
    void giveBack(Duration at, std::size_t fan = 0) {
        oracle().modeChanged(at, fan, FanMode::automatic);
        write(at, upperModeKey(fan), 0);
    }
    /// The fan is asked to go back, and refuses.
    void refuse(Duration at, std::size_t fan = 0) { write(at, upperModeKey(fan), 0, refusal); }
    /// A claim asks, and is refused.
    void poll(Duration at, std::size_t fan = 0) { write(at, upperModeKey(fan), 1, refusal); }
    /// The SMC says that the fan went back, and it did not.
    void lie(Duration at, std::size_t fan = 0) { write(at, upperModeKey(fan), 0); }

    // Clients
    void connect(Duration at, const std::string& client = onlyClient, bool isUntrusted = false) {
        if (connected.insert(client).second) oracle().connected(at, client, isUntrusted);
    }
    /// A client that is not connected connects first.
    std::uint64_t call(Duration at, Call call) {
        connect(at, call.client);
        call.at = at;
        call.id = ++calls;
        oracle().called(at, call.client, call);
        return call.id;
    }
    std::uint64_t call(Duration at, Method method) { return call(at, Call{.method = method}); }
    void reply(Duration at, std::uint64_t id, Method method,
               control::ControlResult result = control::ControlResult::applied()) {
        oracle().replied(
            at, {.client = onlyClient, .method = method, .result = std::move(result), .call = id});
    }
    static Call manual(std::int64_t fan = 0, std::int64_t rpm = 3000) {
        return {.method = Method::setManualRPM, .fan = fan, .rpm = rpm};
    }
    /// The client wants the fan at 3000 RPM, and gets that at once.
    void hold(Duration at, std::size_t fan = 0) {
        const auto id = call(at, manual(static_cast<std::int64_t>(fan)));
        force(at, fan);
        reply(at, id, Method::setManualRPM);
    }
    /// The client wants the fan, too, and does not get it.
    void want(Duration at, std::size_t fan) {
        const auto id = call(at, manual(static_cast<std::int64_t>(fan)));
        reply(at, id, Method::setManualRPM, control::ControlResult::rejected(refusal));
    }
    /// Asks for the state, and is told this.
    void tellState(Duration at, control::ControlState state) {
        const auto id = call(at, Method::readState);
        oracle().replied(at, {.client = onlyClient,
                              .method = Method::readState,
                              .state = std::move(state),
                              .call = id});
    }
    /// A check of the hold loop is over, or a release that nobody asked for.
    void publish(Duration at, const std::optional<control::ControlError>& cause = {}) {
        control::ControlState state;
        if (cause) state.lastError = description(*cause);
        state.cause = cause;
        oracle().published(at, state);
    }
    /// The hold loop checks every second, and the client is heard as often.
    void watch(Duration from, Duration until) {
        for (Duration at = from; at <= until; at += 1s) {
            (void)call(at, Method::heartbeat);
            publish(at);
        }
    }
    /// The hold loop checks every second.
    void check(Duration from, Duration until) {
        for (Duration at = from; at <= until; at += 1s) publish(at);
    }
    void vanish(Duration at, const std::string& client = onlyClient) {
        connected.erase(client);
        oracle().disconnected(at, client);
    }
    /// The client goes, and the release begins that this is a reason for.
    void leave(Duration at, const std::string& client = onlyClient) {
        vanish(at, client);
        write(at, "Ftst", 1);
    }

    // Verdicts
    void look(Duration at) {
        now = at;
        oracle().second(at, machine());
    }
    void expectNoViolation() {
        const auto& violation = oracle().violation();
        EXPECT_FALSE(violation) << textOf(violation->property).name << ": " << violation->what;
    }
    void expectViolation(Property property, Duration at) {
        const auto& violation = oracle().violation();
        ASSERT_TRUE(violation) << "nothing violates " << textOf(property).name;
        EXPECT_EQ(textOf(violation->property).name, textOf(property).name) << violation->what;
        EXPECT_EQ(violation->time, at);
    }
    /// Whoever looks at the bound sees nothing wrong, and who looks an instant later does.
    void expectViolationJustAfter(Duration bound, Property property) {
        look(bound);
        expectNoViolation();
        look(bound + instant);
        expectViolation(property, bound + instant);
    }

    Scenario scenario;
    Duration now{};

private:
    std::optional<Oracle> judge;
    std::optional<SimulatedMac> mac;
    std::set<std::string> connected;
    std::uint64_t calls = 0;
};

}  // namespace airflow::simulation
