// Release and retry: giving fans back to the firmware, however often it takes.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <chrono>
#include <string_view>
#include <utility>

#include "control/LocalFanController.h"

namespace airflow::control {

namespace {

using concurrency::Task;
using namespace std::chrono_literals;

constexpr auto retryPeriod = 2s;
constexpr std::string_view notRestored = "failed to restore Auto: {}";

std::string joined(const std::vector<std::string>& messages) {
    return fmt::format(notRestored, fmt::join(messages, "; "));
}

/// Whether this is over once no fan is pending. A force-test that was not lowered is not: then no
/// fan is pending in the first place.
bool tellsOfPendingFans(const std::optional<std::string>& error) {
    constexpr auto prefix = notRestored.substr(0, notRestored.size() - 2);
    return error && error->starts_with(prefix) && !error->substr(prefix.size()).starts_with("Ftst");
}

}  // namespace

bool LocalFanController::isSuperseded(std::optional<std::int64_t> expectedRetryGeneration) const {
    return expectedRetryGeneration && *expectedRetryGeneration != releaseRetryGeneration;
}

/// Writes 0 to a mode key or to "Ftst". Returns why it was not taken, or nothing.
Task<std::optional<std::string>> LocalFanController::writeZero(std::string key) {
    const WriteResult written = co_await smc.writeUInt8(key, 0);
    if (!written) co_return fmt::format("{}=0 failed ({})", key, written.error().description());
    if (*written != 0) co_return fmt::format("{}=0 rejected (SMC 0x{:x})", key, *written);
    co_return std::nullopt;
}

/// Returns every fan whose mode key is known to the firmware's own control.
///
/// Force-test stays raised while any fan refuses, because lowering it would strand that fan in
/// forced mode. Refused fans stay claimed and pending, and the retry loop is started for them. Does
/// nothing when a newer plan has superseded the retry that asks for it.
Task<std::optional<std::string>> LocalFanController::releaseAllToAuto(
    std::optional<std::int64_t> expectedRetryGeneration) {
    if (isSuperseded(expectedRetryGeneration)) co_return std::nullopt;
    cancelHoldTask();
    ++releaseGeneration;
    co_await raiseForceTest();
    const auto keys = modeKeyCache;
    std::set<Fan> failed;
    std::vector<std::string> messages;
    for (const auto& [fan, key] : keys) {
        if (isSuperseded(expectedRetryGeneration)) co_return std::nullopt;
        const Failure refusal = co_await writeZero(key);
        if (!refusal) continue;
        failed.insert(fan);
        messages.push_back(*refusal);
    }
    if (failed.empty()) {
        const Failure refusal = co_await writeZero("Ftst");
        if (refusal) messages.push_back(*refusal);
    }
    forgetReleasedFans(failed);
    if (messages.empty()) {
        publishState(false, std::nullopt);
        co_return std::nullopt;
    }
    const std::string text = joined(messages);
    publishState(!claimedFans.empty(), text);
    ensureReleaseRetryLoopRunning();
    co_return text;
}

void LocalFanController::forgetReleasedFans(const std::set<Fan>& failed) {
    const auto isReleased = [&failed](Fan fan) { return !failed.contains(fan); };
    const auto entryIsReleased = [&](const auto& entry) { return isReleased(entry.first); };
    std::erase_if(claimedFans, isReleased);
    pendingAutoReleaseFans = failed;
    std::erase_if(targets, entryIsReleased);
    std::erase_if(perFanMode, entryIsReleased);
}

/// Returns only the pending fans. "Ftst" stays as it is: the plan may hold other fans.
Task<std::optional<std::string>> LocalFanController::releasePendingAutoFans(
    std::optional<std::int64_t> expectedRetryGeneration) {
    if (isSuperseded(expectedRetryGeneration)) co_return std::nullopt;
    co_await raiseForceTest();
    const auto pending = withModeKeys(pendingAutoReleaseFans);
    std::vector<std::string> messages;
    for (const auto& [fan, key] : pending) {
        if (isSuperseded(expectedRetryGeneration)) co_return std::nullopt;
        const Failure refusal = co_await writeZero(key);
        if (refusal) {
            messages.push_back(*refusal);
        } else {
            pendingAutoReleaseFans.erase(fan);
            claimedFans.erase(fan);
        }
    }
    if (messages.empty()) co_return std::nullopt;
    ensureReleaseRetryLoopRunning();
    co_return joined(messages);
}

void LocalFanController::ensureReleaseRetryLoopRunning() {
    if (releaseRetryTask) return;
    releaseRetryTask = runtime.detach(
        "release retry", [weak = weak_from_this(), &loopRuntime = runtime,
                          generation = releaseRetryGeneration](concurrency::CancelToken token) {
            return releaseRetryLoop(weak, loopRuntime, generation, std::move(token));
        });
}

Task<void> LocalFanController::releaseRetryLoop(std::weak_ptr<LocalFanController> controller,
                                                concurrency::Runtime& runtime,
                                                std::int64_t generation,
                                                concurrency::CancelToken token) {
    bool isOver = false;
    while (!isOver) {
        (void)co_await runtime.sleepFor(retryPeriod, token);  // cut short by a newer plan
        const auto self = controller.lock();
        if (!self) co_return;
        isOver = co_await self->retryRelease(generation);
    }
}

Task<bool> LocalFanController::retryRelease(std::int64_t generation) {
    const bool isPartial = !pendingAutoReleaseFans.empty();
    Failure failure;
    if (isPartial)
        failure = co_await releasePendingAutoFans(generation);
    else
        failure = co_await releaseAllToAuto(generation);
    if (releaseRetryGeneration != generation) co_return true;  // the handle is a newer loop's
    if (failure || !pendingAutoReleaseFans.empty()) co_return false;
    if (isPartial) tellThatNoFanIsPending();  // releaseAllToAuto has published
    releaseRetryTask.reset();
    co_return true;
}

/// Takes back what is over: that fans refuse, and perhaps that any is held. Whatever else is shown
/// is another's, who may have come in the middle of the retry.
void LocalFanController::tellThatNoFanIsPending() {
    Failure stillTrue = state.lastError;
    if (tellsOfPendingFans(stillTrue)) stillTrue.reset();
    publishState(state.isHolding && !claimedFans.empty(), std::move(stillTrue));
}

Task<std::optional<std::string>> LocalFanController::restoreAuto() {
    cancelHoldTask();
    activePlan = plan::FanControlPlan::allAutomatic();
    evaluator.reset();
    co_return co_await releaseAllToAuto(std::nullopt);
}

Task<std::optional<std::string>> LocalFanController::restoreAllFansToAutomatic() {
    const auto count = co_await fanCount();
    if (!count) co_return "could not read FNum during startup recovery";
    for (Fan fan = 0; fan < *count; ++fan) {
        (void)co_await resolveModeKey(fan);  // fans without a key are the firmware's anyway
    }
    co_return co_await releaseAllToAuto(std::nullopt);
}

}  // namespace airflow::control
