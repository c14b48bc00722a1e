#include "tool/replay/Replay.h"

#include <chrono>
#include <utility>

#include "control/LocalFanController.h"
#include "simulation/runtime/SimulatedRuntime.h"
#include "smc/FanNumbers.h"

namespace airflow::tool {

namespace {

using concurrency::Task;
using namespace std::chrono_literals;

/// Of the controller's hold loop. Only the wall clock shows how far apart the snapshots are.
constexpr auto tickLength = 1500ms;

/// An SMC that takes what it is told. It has the fans of every snapshot so far.
class TakingSMC final : public smc::SMCWriting {
public:
    void has(const std::vector<sensors::Fan>& seen) {
        for (const sensors::Fan& fan : seen) {
            if (smc::isNameable(fan.id)) fans.try_emplace(fan.id);
        }
    }
    [[nodiscard]] const std::map<std::int64_t, ReplayTick::Fan>& state() const { return fans; }

    Task<WriteResult> writeUInt8(std::string key, std::uint8_t value) override {
        if (ReplayTick::Fan* const fan = find(key, "Md")) fan->isForced = value == 1;
        co_return 0;
    }
    Task<WriteResult> writeFloat(std::string key, double value) override {
        if (ReplayTick::Fan* const fan = find(key, "Tg")) fan->targetRPM = value;
        co_return 0;
    }
    Task<std::optional<smc::SMCValue>> tryReadValue(std::string key) override {
        co_return read(key);
    }
    Task<std::expected<smc::SMCValue, smc::SMCError>> readValue(std::string key) override {
        const auto value = read(key);
        if (!value) co_return std::unexpected(smc::SMCError::keyNotFound(key));
        co_return *value;
    }

private:
    [[nodiscard]] std::optional<smc::SMCValue> read(const std::string& key) {
        if (key == "FNum") return smc::SMCValue::uint(static_cast<std::uint32_t>(fans.size()));
        const ReplayTick::Fan* const fan = find(key, "Md");
        if (!fan) return std::nullopt;
        return smc::SMCValue::uint(fan->isForced ? 1 : 0);
    }
    [[nodiscard]] ReplayTick::Fan* find(const std::string& key, std::string_view property) {
        for (auto& [index, fan] : fans) {
            if (key == smc::fanKey(index, property)) return &fan;
        }
        return nullptr;
    }

    std::map<std::int64_t, ReplayTick::Fan> fans;
};

class PresentSnapshot final : public sensors::SnapshotSource {
public:
    Task<sensors::SensorSnapshot> snapshot() override { co_return present; }

    sensors::SensorSnapshot present;
};

}  // namespace

/// The controller, as the daemon makes it, and what it is told to be its machine.
class Replay::Daemon {
public:
    Daemon() {
        controller->evaluating = [this](const auto& evaluation) {
            tick.situation = Situation::of(evaluation);
            tick.evaluation = tick.situation->record();
        };
        runtime.detach("states", keepLast(controller->stateStream(), tick.state));
    }
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;
    ~Daemon() { runtime.abandon(); }

    /// The states are read as they come: a stream keeps what nobody reads.
    static Task<void> keepLast(concurrency::Stream<control::ControlState> states,
                               control::ControlState& last) {
        while (auto state = co_await states.next()) last = std::move(*state);
    }

    simulation::SimulatedRuntime runtime;
    TakingSMC smc;
    PresentSnapshot sensors;
    const std::shared_ptr<control::LocalFanController> controller =
        std::make_shared<control::LocalFanController>(runtime, smc, sensors, [] { return 0U; });
    ReplayTick tick;
};

Replay::Replay(plan::FanControlPlan given)
    : plan(std::move(given)), daemon(std::make_unique<Daemon>()) {}

Replay::~Replay() = default;

ReplayTick Replay::step(const sensors::SensorSnapshot& snapshot) {
    ReplayTick& tick = daemon->tick;
    tick = {.state = std::move(tick.state)};
    auto& runtime = daemon->runtime;
    auto& controller = *daemon->controller;
    daemon->smc.has(snapshot.fans);
    daemon->sensors.present = snapshot;
    const auto before = daemon->smc.state();
    runtime.setDate(snapshot.timestamp);
    if (!std::exchange(isInForce, true)) {
        (void)runtime.run(controller.applyPlan(plan));  // the state tells what became of it
    } else {
        runtime.run(controller.heartbeat());
        runtime.approach(tickLength);
        runtime.setDate(snapshot.timestamp);
    }
    runtime.settle();
    tick.fans = daemon->smc.state();
    for (const auto& [index, fan] : tick.fans) {
        const bool wasForced = before.at(index).isForced;
        if (fan.isForced && !wasForced) tick.claimed.push_back(index);
        if (!fan.isForced && wasForced) tick.released.push_back(index);
    }
    return tick;
}

}  // namespace airflow::tool
