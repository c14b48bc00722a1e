// The control step: what one turn of a hold writes.
#include <algorithm>
#include <cmath>
#include <utility>

#include "control/LocalFanController.h"
#include "evaluation/FanHoldPlanner.h"
#include "smc/FanNumbers.h"

namespace airflow::control {

namespace {

using concurrency::Task;

constexpr double revertedMode = 3;  // the firmware's own control, when it took a fan back

}  // namespace

Task<std::vector<std::int64_t>> LocalFanController::assertPlanOnce(plan::FanControlPlan plan,
                                                                   sensors::SensorSnapshot snapshot,
                                                                   concurrency::Date now) {
    const Generations begun = generations();
    const ReleaseGeneration generation = begun.release;
    if (evaluating)
        evaluating({.memory = evaluator, .plan = plan, .snapshot = snapshot, .now = now});
    const auto decisions = evaluator.evaluate(plan, snapshot, now);
    auto actions = evaluation::FanHoldPlanner::actions(decisions, fans.claimed());
    fans.setStopped({actions.stoppedFans.begin(), actions.stoppedFans.end()});
    if (actions.forceTestEnabled) co_await raiseForceTest();
    const bool released = co_await releaseUnwanted(std::move(actions.toRelease), begun);
    if (!released) co_return std::vector<Fan>{};
    const bool claimed = co_await claimWanted(std::move(actions.toClaim), std::move(plan), begun);
    if (!claimed) co_return std::vector<Fan>{};
    std::vector<Fan> reverted;
    const auto held = withModeKeys(fans.claimed());
    for (const auto& [fan, key] : held) {
        if (isSuperseded(generation)) co_return std::vector<Fan>{};
        // A newer plan may have given it back meanwhile, or may be at it.
        if (!fans.claimed().contains(fan)) continue;
        if (isSuperseded(begun.plan) && fans.pending().contains(fan)) continue;
        const auto target = actions.targets.find(fan);
        if (target == actions.targets.end()) continue;
        const bool isReverted = co_await writeTarget(fan, key, target->second);
        if (isReverted) reverted.push_back(fan);
    }
    if (isSuperseded(generation)) co_return std::vector<Fan>{};
    // A newer plan lowers it itself, when it holds nothing any more.
    if (fans.claimed().empty() && !actions.forceTestEnabled && !isSuperseded(begun.plan)) {
        (void)co_await smc.writeUInt8("Ftst", 0);  // the next tick tries again
    }
    co_return reverted;
}

/// Gives the fans back, but for those that a newer plan manages; one that refuses stays claimed and
/// is tried again on the next tick. False when a release came meanwhile.
Task<bool> LocalFanController::releaseUnwanted(std::vector<Fan> unwanted, Generations begun) {
    const auto known = withModeKeys({unwanted.begin(), unwanted.end()});
    for (const auto& [fan, key] : known) {
        if (isSuperseded(begun.release)) co_return false;
        if (isSuperseded(begun.plan) && isManaged(fan)) continue;  // by a newer plan
        (void)co_await giveBack(fan, key);
    }
    co_return !isSuperseded(begun.release);
}

/// Claims the fans; one that cannot be claimed is tried again on the next tick. False when a
/// release came meanwhile.
Task<bool> LocalFanController::claimWanted(std::vector<Fan> wanted, plan::FanControlPlan plan,
                                           Generations begun) {
    for (const Fan fan : wanted) {
        if (isSuperseded(begun.release)) co_return false;
        if (isSuperseded(fan, begun)) continue;
        const auto key = co_await resolveModeKey(fan);
        if (isSuperseded(begun.release)) co_return false;
        if (!key || isSuperseded(fan, begun)) continue;
        const ControlResult claim = co_await claimManualMode(fan, *key, begun);
        if (isSuperseded(begun.release)) co_return false;
        if (!claim.isApplied()) continue;
        const auto entry = std::ranges::find(plan.fans, fan, &plan::FanPlan::fanID);
        if (entry != plan.fans.end()) setModeInForce(*entry, begun);
    }
    co_return true;
}

/// Asserts forced mode and writes the target. True when the firmware has taken the fan back.
Task<bool> LocalFanController::writeTarget(Fan fan, std::string modeKey, double rpm) {
    (void)co_await force(fan, modeKey);  // read back below
    const WriteResult written = co_await smc.writeFloat(smc::fanKey(fan, "Tg"), rpm);
    // What fails is written again by the next tick; but nothing is after an exit.
    if (written || written.error() != smc::SMCError::withheld()) fans.setTarget(fan, rpm);
    const auto mode = co_await smc.tryReadValue(modeKey);
    const auto number = mode ? mode->numeric() : std::nullopt;
    const bool isReverted = number && std::trunc(*number) == revertedMode;
    co_return isReverted;
}

}  // namespace airflow::control
