#include "control/PreviewController.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace airflow::control {

namespace {

using concurrency::Task;

/// 55 as "55.0": a percentage is told from a count.
std::string decimal(double number) {
    const std::string text = fmt::format("{}", number);
    const bool isDigits = text.find_first_not_of("-0123456789") == std::string::npos;
    return isDigits ? text + ".0" : text;
}

ControlMode previewMode(const plan::FanControlModePlan& mode) {
    if (mode.isAutomatic()) return ControlMode::automatic;
    const auto* const fixed = std::get_if<plan::FixedPercent>(&mode.mode);
    return fixed && fixed->percent >= 100.0 ? ControlMode::fullBlast : ControlMode::manual;
}

bool isControlled(const plan::FanPlan& fan) {
    return !fan.mode.isAutomatic();
}

}  // namespace

PreviewController::PreviewController(concurrency::Runtime& previewRuntime,
                                     sensors::LogSink& logOutput,
                                     concurrency::Duration acquireDelay)
    : Actor(previewRuntime.makeExecutor("preview")),
      runtime(previewRuntime),
      output(logOutput),
      simulatedAcquireDelay(acquireDelay) {}

void PreviewController::record(std::string command) {
    output.write(fmt::format("[PreviewController] {}\n", command));
    commands.push_back(std::move(command));
}

void PreviewController::publish(ControlState next) {
    state = std::move(next);
    states.send(state);
}

Task<void> PreviewController::acquire() {
    ControlState acquiring = state;
    acquiring.isHolding = false;
    publish(std::move(acquiring));
    (void)co_await runtime.sleepFor(simulatedAcquireDelay);  // nobody cancels it
}

void PreviewController::hold(ControlState next, bool isHolding) {
    next.isHolding = isHolding;
    next.lastError.reset();
    publish(std::move(next));
}

void PreviewController::release() {
    overallMode = ControlMode::automatic;
    publish(ControlState::idle());
}

Task<ControlResult> PreviewController::setManual(numbers::FanIndex fan, numbers::WholeRPM rpm) {
    record(fmt::format("setManual(fan: {}, rpm: {})", fan.value(), rpm.value()));
    co_await acquire();
    overallMode = ControlMode::manual;
    ControlState next = state;
    next.perFanMode.insert_or_assign(fan.value(), ControlMode::manual);
    next.targets[fan.value()] = rpm.value();
    hold(std::move(next), true);
    co_return ControlResult::applied();
}

Task<ControlResult> PreviewController::setPercent(numbers::FanIndex fan, numbers::Percent percent) {
    record(fmt::format("setPercent(fan: {}, percent: {})", fan.value(), decimal(percent.value())));
    co_await acquire();
    overallMode = ControlMode::manual;
    ControlState next = state;
    next.perFanMode.insert_or_assign(fan.value(), ControlMode::manual);
    hold(std::move(next), true);
    co_return ControlResult::applied();
}

Task<ControlResult> PreviewController::fullBlast() {
    record("fullBlast()");
    co_await acquire();
    overallMode = ControlMode::fullBlast;
    hold(state, true);
    co_return ControlResult::applied();
}

Task<ControlResult> PreviewController::applyPlan(plan::FanControlPlan plan) {
    const auto controlled = std::ranges::count_if(plan.fans, isControlled);
    record(fmt::format("applyPlan(fans: {}, controlled: {}, rules: {})", plan.fans.size(),
                       controlled, plan.rules.size()));
    co_await acquire();
    ControlState next = state;
    for (const plan::FanPlan& fan : plan.fans) {
        next.perFanMode.insert_or_assign(fan.fanID, previewMode(fan.mode));
    }
    hold(std::move(next), controlled > 0);
    co_return ControlResult::applied();
}

Task<ControlResult> PreviewController::automatic() {
    record("automatic()");
    release();
    co_return ControlResult::applied();
}

Task<std::optional<std::string>> PreviewController::restoreAuto() {
    record("restoreAuto()");
    release();
    co_return std::nullopt;
}

Task<void> PreviewController::heartbeat() {
    record("heartbeat()");
    co_return;
}

}  // namespace airflow::control
