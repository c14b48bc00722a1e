// Plan and hold: putting a plan in force and holding it, under the checks that end it.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iterator>
#include <utility>

#include "control/LocalFanController.h"
#include "evaluation/FanHoldPlanner.h"

namespace airflow::control {

namespace {

using concurrency::Task;
using namespace std::chrono_literals;

constexpr auto holdPeriod = 1500ms;
constexpr double thermalCeiling = 95.0;              // °C
constexpr std::int64_t missingTemperatureLimit = 2;  // snapshots in a row
constexpr concurrency::Seconds heartbeatLimit{15.0};
constexpr double revertedMode = 3;  // the firmware's own control, when it took a fan back

struct PublishedMode {
    ControlMode operator()(const plan::FixedRPM&) const { return ControlMode::manual; }
    ControlMode operator()(const plan::FixedPercent& fixed) const {
        return fixed.percent >= 100 ? ControlMode::fullBlast : ControlMode::manual;
    }
    ControlMode operator()(const plan::FanCurve&) const { return ControlMode::curve; }
    ControlMode operator()(const plan::Automatic&) const { return ControlMode::automatic; }
};

ControlMode publishedMode(const plan::FanPlan& fan) {
    return std::visit(PublishedMode{}, fan.mode.mode);
}

std::set<std::int64_t> managedFans(const plan::FanControlPlan& plan) {
    std::set<std::int64_t> managed;
    for (const plan::FanPlan& fan : plan.fans) {
        if (!fan.mode.isAutomatic()) managed.insert(fan.fanID);
    }
    return managed;
}

}  // namespace

Task<ControlResult> LocalFanController::applyPlan(plan::FanControlPlan plan) {
    if (effectiveUserID() != 0) co_return ControlResult::notPrivileged();
    ++releaseRetryGeneration;
    if (releaseRetryTask) releaseRetryTask->cancel();
    releaseRetryTask.reset();
    activePlan = plan;
    monitoredFans = managedFans(plan);
    for (const Fan fan : monitoredFans) pendingAutoReleaseFans.erase(fan);
    std::ranges::set_difference(
        claimedFans, monitoredFans,
        std::inserter(pendingAutoReleaseFans, pendingAutoReleaseFans.end()));
    const Failure notReleased = co_await releasePendingAutoFans(std::nullopt);
    if (notReleased) publishState(true, notReleased);

    ControlResult result = co_await claimPlannedFans(std::move(plan));
    if (claimedFans.empty() && monitoredFans.empty()) {
        const Failure failure = co_await releaseAllToAuto(std::nullopt);
        if (failure) co_return ControlResult::failed(*failure);
        co_return result;
    }
    const concurrency::Date now = runtime.date();
    lastHeartbeat = now;
    ensureHoldLoopRunning();
    auto snapshot = co_await sensors.snapshot();
    (void)co_await assertPlanOnce(activePlan, std::move(snapshot), now);  // the loop will tell
    publishState(!claimedFans.empty(),
                 result.isApplied() ? std::nullopt : Failure("applyPlan: " + result.description()));
    co_return result;
}

Task<ControlResult> LocalFanController::claimPlannedFans(plan::FanControlPlan plan) {
    ControlResult result = ControlResult::applied();
    for (const plan::FanPlan& entry : plan.fans) {
        if (entry.mode.isAutomatic() || claimedFans.contains(entry.fanID)) continue;
        const auto key = co_await resolveModeKey(entry.fanID);
        if (!key) {
            result = ControlResult::failed(
                fmt::format("neither F{0}Md nor F{0}md exists on this machine", entry.fanID));
            continue;
        }
        ControlResult claim = co_await claimManualMode(entry.fanID, *key);
        if (claim.isApplied()) {
            claimedFans.insert(entry.fanID);
            perFanMode.insert_or_assign(entry.fanID, publishedMode(entry));
        } else {
            result = std::move(claim);
        }
    }
    co_return result;
}

void LocalFanController::ensureHoldLoopRunning() {
    if (holdTask) return;
    holdTask = runtime.detach(
        "hold loop", [&clock = runtime, weak = weak_from_this()](concurrency::CancelToken token) {
            return holdLoop(clock, weak, std::move(token));
        });
}

Task<void> LocalFanController::holdLoop(concurrency::Runtime& clock,
                                        std::weak_ptr<LocalFanController> controller,
                                        concurrency::CancelToken token) {
    bool goesOn = true;
    while (goesOn) {
        (void)co_await clock.sleepFor(holdPeriod, token);  // when cut short, the tick decides
        const auto self = controller.lock();
        if (!self) break;
        goesOn = co_await self->holdTick(token);
    }
}

void LocalFanController::cancelHoldTask() {
    if (holdTask) holdTask->cancel();
    holdTask.reset();
}

/// One turn of the hold loop. False when it was the last.
Task<bool> LocalFanController::holdTick(concurrency::CancelToken token) {
    const bool isOver = token.isRequested() || (claimedFans.empty() && monitoredFans.empty());
    bool goesOn = !isOver;
    if (goesOn) goesOn = co_await checkAndAssert();
    if (!goesOn) holdTask.reset();
    co_return goesOn;
}

/// The safety checks, in their order, and then the control step. False when the hold has ended.
Task<bool> LocalFanController::checkAndAssert() {
    auto snapshot = co_await sensors.snapshot();
    if (!snapshot.temps.empty()) {
        consecutiveMissingTemperatureSnapshots = 0;
    } else if (++consecutiveMissingTemperatureSnapshots < missingTemperatureLimit) {
        publishState(true,
                     fmt::format("temperature data unavailable ({}/{})",
                                 consecutiveMissingTemperatureSnapshots, missingTemperatureLimit));
        co_return true;
    }
    if (const auto message = brokenSafetyCheck(snapshot)) {
        co_await releaseForSafety(*message);
        co_return false;
    }
    auto reverted = co_await assertPlanOnce(activePlan, std::move(snapshot), runtime.date());
    if (claimedFans.empty()) {
        publishState(false, std::nullopt);
        co_return !monitoredFans.empty();
    }
    if (reverted.empty()) {
        publishState(true, std::nullopt);
    } else {
        std::ranges::sort(reverted);
        publishState(false, fmt::format("reclaimed: fan(s) [{}] reverted to mode 3",
                                        fmt::join(reverted, ", ")));
    }
    co_return true;
}

std::optional<std::string> LocalFanController::brokenSafetyCheck(
    const sensors::SensorSnapshot& snapshot) {
    const auto hottest = snapshot.hottest();
    if (!hottest) return "temperature data unavailable — released to Auto";
    if (hottest->celsius >= thermalCeiling) {
        return fmt::format("thermal ceiling {:.0f}°C exceeded — released to Auto",
                           std::trunc(hottest->celsius));
    }
    if (lastHeartbeat != concurrency::distantPast &&
        runtime.date() - lastHeartbeat > heartbeatLimit) {
        return "no heartbeat for >15s — released to Auto";
    }
    return std::nullopt;
}

Task<void> LocalFanController::releaseForSafety(std::string message) {
    activePlan = plan::FanControlPlan::allAutomatic();
    evaluator.reset();
    const Failure failure = co_await releaseAllToAuto(std::nullopt);
    if (failure)
        publishState(!claimedFans.empty(), failure);
    else
        publishState(false, std::move(message));
}

Task<std::vector<std::int64_t>> LocalFanController::assertPlanOnce(plan::FanControlPlan plan,
                                                                   sensors::SensorSnapshot snapshot,
                                                                   concurrency::Date now) {
    const std::int64_t generation = releaseGeneration;
    const auto decisions = evaluator.evaluate(plan, snapshot, now);
    auto actions = evaluation::FanHoldPlanner::actions(decisions, claimedFans);
    stoppedFans = {actions.stoppedFans.begin(), actions.stoppedFans.end()};
    if (actions.forceTestEnabled) co_await raiseForceTest();
    const bool released = co_await releaseUnwanted(std::move(actions.toRelease), generation);
    if (!released) co_return std::vector<Fan>{};
    const bool claimed =
        co_await claimWanted(std::move(actions.toClaim), std::move(plan), generation);
    if (!claimed) co_return std::vector<Fan>{};
    std::vector<Fan> reverted;
    const auto held = withModeKeys(claimedFans);
    for (const auto& [fan, key] : held) {
        if (releaseGeneration != generation) co_return std::vector<Fan>{};
        if (!claimedFans.contains(fan)) continue;  // a plan has given it back meanwhile
        const auto target = actions.targets.find(fan);
        if (target == actions.targets.end()) continue;
        const bool isReverted = co_await writeTarget(fan, key, target->second);
        if (isReverted) reverted.push_back(fan);
    }
    if (claimedFans.empty() && !actions.forceTestEnabled) {
        (void)co_await smc.writeUInt8("Ftst", 0);  // the next tick tries again
    }
    co_return reverted;
}

/// Gives the fans back; one that refuses stays claimed and is tried again on the next tick. False
/// when a release came meanwhile.
Task<bool> LocalFanController::releaseUnwanted(std::vector<Fan> fans, std::int64_t generation) {
    const auto unwanted = withModeKeys({fans.begin(), fans.end()});
    for (const auto& [fan, key] : unwanted) {
        if (releaseGeneration != generation) co_return false;
        const WriteResult written = co_await smc.writeUInt8(key, 0);
        if (!written || *written != 0) continue;
        claimedFans.erase(fan);
        targets.erase(fan);
        perFanMode.erase(fan);
    }
    co_return true;
}

/// Claims the fans; one that cannot be claimed is tried again on the next tick. False when a
/// release came meanwhile.
Task<bool> LocalFanController::claimWanted(std::vector<Fan> fans, plan::FanControlPlan plan,
                                           std::int64_t generation) {
    for (const Fan fan : fans) {
        if (releaseGeneration != generation) co_return false;
        const auto key = co_await resolveModeKey(fan);
        if (!key) continue;
        const ControlResult claim = co_await claimManualMode(fan, *key);
        if (!claim.isApplied()) continue;
        claimedFans.insert(fan);
        const auto entry = std::ranges::find(plan.fans, fan, &plan::FanPlan::fanID);
        if (entry != plan.fans.end()) perFanMode.insert_or_assign(fan, publishedMode(*entry));
    }
    co_return true;
}

/// Asserts forced mode and writes the target. True when the firmware has taken the fan back.
Task<bool> LocalFanController::writeTarget(Fan fan, std::string modeKey, double rpm) {
    (void)co_await smc.writeUInt8(modeKey, 1);                      // read back below
    (void)co_await smc.writeFloat(fmt::format("F{}Tg", fan), rpm);  // written again every tick
    targets[fan] = rpm;
    const auto mode = co_await smc.tryReadValue(modeKey);
    const auto number = mode ? mode->numeric() : std::nullopt;
    const bool isReverted = number && std::trunc(*number) == revertedMode;
    co_return isReverted;
}

}  // namespace airflow::control
