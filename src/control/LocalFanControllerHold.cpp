// Plan and hold: putting a plan in force and holding it, under the checks that end it.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "control/LocalFanController.h"
#include "control/ThermalCeiling.h"

namespace airflow::control {

namespace {

using concurrency::Task;
using namespace std::chrono_literals;

constexpr auto holdPeriod = 1500ms;
constexpr std::int64_t missingTemperatureLimit = 2;  // snapshots in a row
constexpr concurrency::Seconds heartbeatLimit{15.0};

/// The entries that the plan manages, with the first one for each fan.
std::map<std::int64_t, const plan::FanPlan*> managedFans(const plan::FanControlPlan& plan) {
    std::map<std::int64_t, const plan::FanPlan*> managed;
    for (const plan::FanPlan& fan : plan.fans) {
        if (!fan.mode.isAutomatic()) managed.emplace(fan.fanID, &fan);
    }
    return managed;
}

}  // namespace

Task<ControlResult> LocalFanController::applyPlan(plan::FanControlPlan plan) {
    if (effectiveUserID() != 0) co_return ControlResult::notPrivileged();
    if (!smc.takesForcing()) co_return ControlResult::rejected(superseded);
    ++operationsAtWork;
    ControlResult result = co_await claimAndHold(std::move(plan));
    --operationsAtWork;
    startDueWatching();
    co_return result;
}

Task<ControlResult> LocalFanController::claimAndHold(plan::FanControlPlan plan) {
    putInForce(plan);
    const Generations begun = generations();
    const ReleaseGeneration generation = begun.release;
    const Failure notReleased = co_await releasePendingAutoFans(std::nullopt);
    if (notReleased) publishState(true, notReleased);

    const bool managesAny = !managedFans(plan).empty();
    ControlResult result = co_await claimPlannedFans(std::move(plan), begun);
    if (isSuperseded(generation)) {
        co_return managesAny ? ControlResult::rejected(superseded) : result;
    }
    if (fans.claimed().empty() && !isMonitoring()) {
        const Failure failure = co_await releaseAllToAuto(std::nullopt);
        if (failure) co_return ControlResult::failed(description(*failure));
        co_return result;
    }
    co_return co_await holdPlan(std::move(result), begun);
}

/// The plan supersedes retries, and decides which fans have still to be given back.
void LocalFanController::putInForce(plan::FanControlPlan plan) {
    releaseRetryGeneration.advance();
    if (releaseRetryTask) releaseRetryTask->cancel();
    releaseRetryTask.reset();
    isForceTestRefused = false;
    activePlan = std::move(plan);
    const auto managed = managedFans(activePlan);
    for (const auto& [fan, entry] : managed) {
        fans.keep(fan);
        fans.setMode(fan, publishedMode(*entry));
    }
    for (const Fan fan : fans.claimed()) {
        if (!managed.contains(fan)) fans.handBack(fan);
    }
    const auto stopped = fans.stopped();
    for (const Fan fan : stopped) {
        if (!managed.contains(fan)) fans.forgetStopped(fan);
    }
}

/// The fans are claimed as far as they can be: the loop begins, and with it the first step.
Task<ControlResult> LocalFanController::holdPlan(ControlResult result, Generations begun) {
    const ReleaseGeneration generation = begun.release;
    const concurrency::Date now = runtime.date();
    lastHeartbeat = now;
    ensureHoldLoopRunning();
    auto snapshot = co_await sensors.snapshot();
    if (isSuperseded(generation)) {  // the release has published
        co_await lowerForceTestIfIdle();
        co_return result;
    }
    (void)co_await assertPlanOnce(activePlan, std::move(snapshot), now);  // the loop will tell
    if (isSuperseded(generation)) co_return result;
    std::optional<ControlError> error;
    if (!result.isApplied() && !isSuperseded(begun.plan)) error = PlanIncomplete{result};
    publishState(!fans.claimed().empty(), std::move(error));
    co_return result;
}

Task<ControlResult> LocalFanController::claimPlannedFans(plan::FanControlPlan plan,
                                                         Generations begun) {
    ControlResult result = ControlResult::applied();
    for (const plan::FanPlan& entry : plan.fans) {
        if (isSuperseded(begun.release)) co_return ControlResult::rejected(superseded);
        if (entry.mode.isAutomatic() || fans.claimed().contains(entry.fanID)) continue;
        const auto key = co_await resolveModeKey(entry.fanID);
        if (isSuperseded(begun.release)) co_return ControlResult::rejected(superseded);
        if (isSuperseded(entry.fanID, begun)) continue;  // a newer plan has left it out
        if (!key) {
            result = ControlResult::failed(
                fmt::format("neither F{0}Md nor F{0}md exists on this machine", entry.fanID));
            continue;
        }
        ControlResult claim = co_await claimManualMode(entry.fanID, *key, begun);
        if (isSuperseded(begun.release)) co_return ControlResult::rejected(superseded);
        if (isSuperseded(entry.fanID, begun)) continue;
        if (claim.isApplied())
            setModeInForce(entry, begun);
        else
            result = std::move(claim);
    }
    co_return result;
}

void LocalFanController::setModeInForce(const plan::FanPlan& entry, const Generations& begun) {
    std::map<Fan, const plan::FanPlan*> newer;
    if (isSuperseded(begun.plan)) newer = managedFans(activePlan);
    const auto found = newer.find(entry.fanID);
    fans.setMode(entry.fanID, publishedMode(found == newer.end() ? entry : *found->second));
}

void LocalFanController::ensureHoldLoopRunning() {
    if (holdTask) return;
    holdTask =
        runtime.detach("hold loop", [&clock = runtime, weak = weak_from_this(),
                                     number = ++holdTaskNumber](concurrency::CancelToken token) {
            return holdLoop(clock, weak, number, std::move(token));
        });
}

Task<void> LocalFanController::holdLoop(concurrency::Runtime& clock,
                                        std::weak_ptr<LocalFanController> controller,
                                        std::uint64_t number, concurrency::CancelToken token) {
    bool goesOn = true;
    while (goesOn) {
        (void)co_await clock.sleepFor(holdPeriod, token);  // when cut short, the tick decides
        const auto self = controller.lock();
        if (!self) break;
        goesOn = co_await self->holdTick(number, token);
    }
}

void LocalFanController::cancelHoldTask() {
    if (holdTask) holdTask->cancel();
    holdTask.reset();
}

/// One turn of the hold loop. False when it was the last.
Task<bool> LocalFanController::holdTick(std::uint64_t number, concurrency::CancelToken token) {
    bool goesOn = !token.isRequested() && (!fans.claimed().empty() || isMonitoring());
    if (goesOn) goesOn = co_await checkAndAssert(std::move(token));
    const bool isOwnHandle = holdTaskNumber == number;  // a newer loop's is left alone
    if (!goesOn && isOwnHandle) holdTask.reset();
    startDueWatching();
    co_return goesOn;
}

/// The safety checks, in their order, and then the control step. False when the hold has ended. The
/// loop is cancelled by releases alone: what comes after one is the release's to tell.
Task<bool> LocalFanController::checkAndAssert(concurrency::CancelToken token) {
    auto snapshot = co_await sensors.snapshot();
    if (token.isRequested()) {
        co_await lowerForceTestIfIdle();
        co_return false;
    }
    if (!snapshot.temps.empty()) {
        consecutiveMissingTemperatureSnapshots = 0;
    } else if (++consecutiveMissingTemperatureSnapshots < missingTemperatureLimit) {
        if (checked) checked();
        publishState(true, TemperaturesMissing{.snapshots = consecutiveMissingTemperatureSnapshots,
                                               .limit = missingTemperatureLimit});
        co_return true;
    }
    if (auto broken = brokenSafetyCheck(snapshot)) {
        co_await releaseForSafety(std::move(*broken));
        co_return false;
    }
    if (checked) checked();
    auto reverted = co_await assertPlanOnce(activePlan, std::move(snapshot), runtime.date());
    if (token.isRequested()) co_return false;
    publishTick(std::move(reverted));
    co_return !fans.claimed().empty() || isMonitoring();
}

void LocalFanController::publishTick(std::vector<Fan> reverted) {
    if (fans.claimed().empty() || reverted.empty())
        return publishState(!fans.claimed().empty(), std::nullopt);
    std::ranges::sort(reverted);
    publishState(false, Reclaimed{std::move(reverted)});
}

std::optional<ControlError> LocalFanController::brokenSafetyCheck(
    const sensors::SensorSnapshot& snapshot) {
    const auto hottest = snapshot.hottest();
    if (!hottest) {
        return TemperaturesMissing{.snapshots = consecutiveMissingTemperatureSnapshots,
                                   .limit = missingTemperatureLimit};
    }
    if (hottest->celsius >= thermalCeiling) return CeilingExceeded{hottest->celsius};
    if (lastHeartbeat != concurrency::distantPast &&
        runtime.date() - lastHeartbeat > heartbeatLimit) {
        return HeartbeatLost{};
    }
    return std::nullopt;
}

Task<void> LocalFanController::releaseForSafety(ControlError cause,
                                                std::vector<ControlledFans::Request> givenBack) {
    for (const ControlledFans::Request& after : givenBack) fans.givenBack(after);
    const PlanGeneration generation = releaseRetryGeneration;
    forgetPlan();
    const Failure failure = co_await releaseAllToAuto(std::nullopt);
    if (isSuperseded(generation)) co_return;  // what holds now is the newer plan's to tell
    if (failure)
        publishState(!fans.claimed().empty(), failure);
    else
        publishState(false, std::move(cause));
}

}  // namespace airflow::control
