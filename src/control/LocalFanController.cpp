// What the controller knows and publishes, and the commands that are edits of the active plan.
#include "control/LocalFanController.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "concurrency/Require.h"

namespace airflow::control {

namespace {

using concurrency::Task;

/// To the nearest, halves away from zero; the ends of the range for what does not fit.
std::int64_t wholeRPM(double rpm) {
    constexpr double limit = 9223372036854775808.0;  // 2^63
    const double rounded = std::round(rpm);
    if (rounded >= limit) return std::numeric_limits<std::int64_t>::max();
    if (!(rounded > -limit)) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(rounded);
}

}  // namespace

LocalFanController::LocalFanController(concurrency::Runtime& controllerRuntime,
                                       smc::SMCWriting& writing, sensors::SensorReader& reader,
                                       UserID userID)
    : Actor(controllerRuntime.makeExecutor("controller")),
      runtime(controllerRuntime),
      effectiveUserID(std::move(userID)),
      smc(writing),
      sensors(reader) {}

Task<ControlState> LocalFanController::currentState() {
    co_return state;
}

Task<void> LocalFanController::heartbeat() {
    lastHeartbeat = runtime.date();
    co_return;
}

void LocalFanController::publishState(bool holding, std::optional<std::string> error) {
    std::map<Fan, std::int64_t> wholeTargets;
    for (const auto& [fan, rpm] : targets) wholeTargets[fan] = wholeRPM(rpm);
    std::optional<std::vector<Fan>> stopped;
    if (!stoppedFans.empty()) stopped.emplace(stoppedFans.begin(), stoppedFans.end());
    state = {.perFanMode = perFanMode,
             .targets = std::move(wholeTargets),
             .isHolding = holding,
             .lastError = std::move(error),
             .stoppedFans = std::move(stopped),
             .cause = {}};
    states.send(state);
}

Task<std::optional<std::string>> LocalFanController::resolveModeKey(Fan fan) {
    if (const auto cached = modeKeyCache.find(fan); cached != modeKeyCache.end()) {
        co_return cached->second;
    }
    for (const char* suffix : {"Md", "md"}) {
        const std::string key = fmt::format("F{}{}", fan, suffix);
        const auto value = co_await smc.tryReadValue(key);
        if (!value) continue;
        modeKeyCache[fan] = key;
        co_return key;
    }
    co_return std::nullopt;
}

std::map<std::int64_t, std::string> LocalFanController::withModeKeys(
    const std::set<Fan>& fans) const {
    auto keys = modeKeyCache;
    std::erase_if(keys, [&fans](const auto& entry) { return !fans.contains(entry.first); });
    return keys;
}

Task<std::optional<std::int64_t>> LocalFanController::fanCount() {
    const auto value = co_await smc.tryReadValue("FNum");
    const auto number = value ? value->numeric() : std::nullopt;
    if (!number) co_return std::nullopt;
    constexpr double limit = 9223372036854775808.0;  // 2^63
    concurrency::require(*number >= -limit && *number < limit,
                         "FNum is a number of fans that fits 64 bits");
    co_return static_cast<std::int64_t>(*number);
}

plan::FanControlPlan LocalFanController::activePlanWith(plan::FanPlan entry) const {
    plan::FanControlPlan edited = activePlan;
    std::erase_if(edited.fans,
                  [&entry](const plan::FanPlan& fan) { return fan.fanID == entry.fanID; });
    edited.fans.push_back(std::move(entry));
    return edited;
}

Task<ControlResult> LocalFanController::setManual(Fan fan, std::int64_t rpm) {
    const auto mode = plan::FanControlModePlan::fixedRPM(static_cast<double>(rpm));
    co_return co_await applyPlan(activePlanWith({.fanID = fan, .mode = mode}));
}

Task<ControlResult> LocalFanController::setPercent(Fan fan, double percent) {
    const auto mode = plan::FanControlModePlan::fixedPercent(percent);
    co_return co_await applyPlan(activePlanWith({.fanID = fan, .mode = mode}));
}

Task<ControlResult> LocalFanController::fullBlast() {
    const auto count = co_await fanCount();
    if (!count) co_return ControlResult::failed("could not read FNum");
    plan::FanControlPlan full = activePlan;
    full.fans.clear();
    for (Fan fan = 0; fan < *count; ++fan) {
        full.fans.push_back({.fanID = fan, .mode = plan::FanControlModePlan::fixedPercent(100.0)});
    }
    co_return co_await applyPlan(std::move(full));
}

Task<ControlResult> LocalFanController::automatic() {
    if (effectiveUserID() != 0) co_return ControlResult::notPrivileged();
    cancelHoldTask();
    activePlan = plan::FanControlPlan::allAutomatic();
    evaluator.reset();
    const Failure failure = co_await releaseAllToAuto(std::nullopt);
    if (failure) co_return ControlResult::failed(*failure);
    co_return ControlResult::applied();
}

}  // namespace airflow::control
