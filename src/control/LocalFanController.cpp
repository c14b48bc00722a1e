// What the controller knows and publishes, and the commands that are edits of the active plan.
#include "control/LocalFanController.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "numbers/Int64.h"
#include "smc/FanNumbers.h"

namespace airflow::control {

namespace {

using concurrency::Task;

/// To the nearest, halves away from zero; the ends of the range for what does not fit.
std::int64_t wholeRPM(double rpm) {
    using Limits = std::numeric_limits<std::int64_t>;
    const double rounded = std::round(rpm);
    if (numbers::fitsInt64(rounded)) return static_cast<std::int64_t>(rounded);
    return rounded > 0 ? Limits::max() : Limits::min();
}

}  // namespace

LocalFanController::LocalFanController(concurrency::Runtime& controllerRuntime,
                                       smc::SMCWriting& writing, sensors::SnapshotSource& reader,
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

void LocalFanController::publishState(bool holding, std::optional<ControlError> error) {
    std::map<Fan, std::int64_t> wholeTargets;
    for (const auto& [fan, rpm] : fans.targetsRPM()) wholeTargets[fan] = wholeRPM(rpm);
    std::optional<std::vector<Fan>> stopped;
    if (!fans.stopped().empty()) stopped.emplace(fans.stopped().begin(), fans.stopped().end());
    state = {.perFanMode = fans.modes(),
             .targets = std::move(wholeTargets),
             .isHolding = holding,
             .lastError = error ? std::optional(description(*error)) : std::nullopt,
             .stoppedFans = std::move(stopped),
             .cause = std::move(error)};
    states.send(state);
}

bool LocalFanController::isMonitoring() const {
    return std::ranges::any_of(activePlan.fans,
                               [](const plan::FanPlan& fan) { return !fan.mode.isAutomatic(); });
}

bool LocalFanController::isManaged(Fan fan) const {
    return std::ranges::any_of(activePlan.fans, [fan](const plan::FanPlan& entry) {
        return entry.fanID == fan && !entry.mode.isAutomatic();
    });
}

void LocalFanController::forgetPlan() {
    activePlan = plan::FanControlPlan::allAutomatic();
    evaluator.reset();
}

bool LocalFanController::isSuperseded(ReleaseGeneration generation) const {
    return generation != releaseGeneration || !smc.takesForcing();
}

bool LocalFanController::isSuperseded(Fan fan, const Generations& begun) const {
    const bool isLeftOut = begun.plan != releaseRetryGeneration && !isManaged(fan);
    return isLeftOut || isSuperseded(begun.release);
}

bool LocalFanController::isSuperseded(std::optional<PlanGeneration> generation) const {
    return generation && *generation != releaseRetryGeneration;
}

void LocalFanController::startDueWatching() {
    const bool isRetryDue = !fans.pending().empty() || isForceTestRefused;
    if (isRetryDue && releasesAtWork == 0) ensureReleaseRetryLoopRunning();
    const bool isHoldDue = isMonitoring() || fans.isAnyHeld();
    if (isHoldDue && operationsAtWork == 0) ensureHoldLoopRunning();
}

Task<std::optional<std::string>> LocalFanController::resolveModeKey(Fan fan) {
    if (const auto cached = modeKeyCache.find(fan); cached != modeKeyCache.end()) {
        co_return cached->second;
    }
    if (!smc::isNameable(fan)) co_return std::nullopt;
    for (const char* suffix : {"Md", "md"}) {
        const std::string key = smc::fanKey(fan, suffix);
        const auto value = co_await smc.tryReadValue(key);
        if (!value) continue;
        modeKeyCache[fan] = key;
        co_return key;
    }
    co_return std::nullopt;
}

std::map<std::int64_t, std::string> LocalFanController::withModeKeys(
    const std::set<Fan>& wanted) const {
    auto keys = modeKeyCache;
    std::erase_if(keys, [&](const auto& entry) { return !wanted.contains(entry.first); });
    return keys;
}

Task<std::optional<std::int64_t>> LocalFanController::fanCount() {
    const auto value = co_await smc.tryReadValue("FNum");
    const auto number = value ? value->numeric() : std::nullopt;
    if (!number) co_return std::nullopt;
    co_return smc::believableFanCount(*number);
}

plan::FanControlPlan LocalFanController::activePlanWith(plan::FanPlan entry) const {
    plan::FanControlPlan edited = activePlan;
    std::erase_if(edited.fans,
                  [&entry](const plan::FanPlan& fan) { return fan.fanID == entry.fanID; });
    edited.fans.push_back(std::move(entry));
    return edited;
}

Task<ControlResult> LocalFanController::setManual(numbers::FanIndex fan, numbers::WholeRPM rpm) {
    const auto mode = plan::FanControlModePlan::fixedRPM(static_cast<double>(rpm.value()));
    co_return co_await applyPlan(activePlanWith({.fanID = fan.value(), .mode = mode}));
}

Task<ControlResult> LocalFanController::setPercent(numbers::FanIndex fan,
                                                   numbers::Percent percent) {
    const auto mode = plan::FanControlModePlan::fixedPercent(percent.value());
    co_return co_await applyPlan(activePlanWith({.fanID = fan.value(), .mode = mode}));
}

Task<ControlResult> LocalFanController::fullBlast() {
    const ReleaseGeneration generation = releaseGeneration;
    const auto count = co_await fanCount();
    if (!count) co_return ControlResult::failed("could not read FNum");
    if (isSuperseded(generation)) co_return ControlResult::rejected(superseded);
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
    forgetPlan();
    const Failure failure = co_await releaseAllToAuto(std::nullopt);
    if (failure) co_return ControlResult::failed(description(*failure));
    co_return ControlResult::applied();
}

}  // namespace airflow::control
