// Release and retry: giving fans back to the firmware, however often it takes.
#include <algorithm>
#include <chrono>
#include <utility>

#include "control/LocalFanController.h"
#include "smc/FanNumbers.h"

namespace airflow::control {

namespace {

using concurrency::Task;
using namespace std::chrono_literals;

constexpr auto retryPeriod = 2s;
constexpr auto exitRetryPeriod = 500ms;  // an exit lasts 3 s at most

/// Whether this is over once no fan is pending. A force-test that was not lowered is not: then no
/// fan is pending in the first place.
bool tellsOfPendingFans(const std::optional<ControlError>& error) {
    const auto* notRestored = error ? std::get_if<NotRestored>(&*error) : nullptr;
    return notRestored && notRestored->refusals.front().key != "Ftst";
}

std::optional<Refusal> refusalOf(std::string key, const smc::SMCWriting::WriteResult& written) {
    if (written && *written == 0) return std::nullopt;
    return Refusal{.key = std::move(key), .answer = written};
}

std::optional<std::string> textOf(const std::optional<NotRestored>& failure) {
    return failure ? std::optional(description(*failure)) : std::nullopt;
}

}  // namespace

Task<std::optional<Refusal>> LocalFanController::giveBack(Fan fan, std::string modeKey) {
    const auto request = fans.beginRelease(fan);
    const WriteResult written = co_await smc.writeUInt8(modeKey, 0);
    auto refusal = refusalOf(std::move(modeKey), written);
    if (!refusal) fans.givenBack(request);
    co_return refusal;
}

Task<std::optional<Refusal>> LocalFanController::giveBackOrRetry(Fan fan, std::string modeKey) {
    const auto request = fans.beginRelease(fan);
    const WriteResult written = co_await smc.writeUInt8(modeKey, 0);
    auto refusal = refusalOf(std::move(modeKey), written);
    if (!refusal)
        fans.released(request);
    else if (!isManaged(fan))
        fans.refusedToGoBack(request);
    co_return refusal;
}

/// Returns every fan whose mode key is known to the firmware's own control.
///
/// Force-test stays raised while any fan refuses, because lowering it would strand that fan in
/// forced mode; and while a newer plan is in force, which may need it. Refused fans stay claimed
/// and pending, and the retry loop is started for them. Does nothing when a newer plan has
/// superseded the retry that asks for it.
Task<std::optional<NotRestored>> LocalFanController::releaseAllToAuto(
    std::optional<PlanGeneration> expected) {
    if (isSuperseded(expected)) co_return std::nullopt;
    cancelHoldTask();
    releaseGeneration.advance();
    isForceTestRefused = false;
    ++operationsAtWork;
    ++releasesAtWork;
    Failure failure = co_await releaseKnownFans(expected);
    --releasesAtWork;
    --operationsAtWork;
    startDueWatching();
    co_return failure;
}

Task<std::optional<NotRestored>> LocalFanController::releaseKnownFans(
    std::optional<PlanGeneration> expected) {
    const PlanGeneration generation = releaseRetryGeneration;
    co_await raiseForceTest();
    auto refusals = co_await giveBackKnownFans(expected);
    if (isSuperseded(expected)) co_return std::nullopt;
    if (refusals.empty() && !isMonitoring()) {  // a plan that is in force came meanwhile
        const WriteResult lowered = co_await smc.writeUInt8("Ftst", 0);
        const auto refusal = refusalOf("Ftst", lowered);
        if (isSuperseded(expected)) co_return std::nullopt;
        if (refusal) refusals.push_back(*refusal);
        // A newer plan lowers it itself, when it holds nothing any more.
        isForceTestRefused = refusal && !isSuperseded(generation);
    }
    Failure failure;
    if (!refusals.empty()) failure = NotRestored{std::move(refusals)};
    std::optional<ControlError> error = failure;
    // A retry that finds everything given back by another release leaves that one's reason alone;
    // and what another one was refused meanwhile is still to be published.
    const bool isAnothersReason = expected && state.cause && isSafetyRelease(*state.cause);
    const bool isAnothersRefusal = !fans.pending().empty() && tellsOfPendingFans(state.cause);
    if (!failure && (isAnothersReason || isAnothersRefusal)) error = state.cause;
    // What a newer plan holds is for it to publish, unless there are refusals to publish.
    if (failure || !isSuperseded(generation)) {
        const bool isAnyRefused = failure || isAnothersRefusal;
        publishState(isAnyRefused && !fans.claimed().empty(), std::move(error));
    }
    co_return failure;
}

/// Asks each known fan once, also one that is found meanwhile. Returns the refusals; what it has
/// when a newer plan supersedes the retry.
Task<std::vector<Refusal>> LocalFanController::giveBackKnownFans(
    std::optional<PlanGeneration> expected) {
    std::vector<Refusal> refusals;
    std::set<Fan> done;
    while (const auto next = nextKnownFan(done)) {
        if (isSuperseded(expected)) break;
        done.insert(next->first);
        auto refusal = co_await giveBackOrRetry(next->first, next->second);
        if (isSuperseded(expected)) break;
        if (refusal) refusals.push_back(std::move(*refusal));
    }
    co_return refusals;
}

std::optional<std::pair<std::int64_t, std::string>> LocalFanController::nextKnownFan(
    const std::set<Fan>& done) const {
    const auto next = std::ranges::find_if(
        modeKeyCache, [&done](const auto& entry) { return !done.contains(entry.first); });
    if (next == modeKeyCache.end()) return std::nullopt;
    return *next;
}

/// Returns only the pending fans. "Ftst" stays as it is: the plan may hold other fans.
Task<std::optional<NotRestored>> LocalFanController::releasePendingAutoFans(
    std::optional<PlanGeneration> expected) {
    if (isSuperseded(expected)) co_return std::nullopt;
    co_await raiseForceTest();
    const auto pending = withModeKeys(fans.pending());
    std::vector<Refusal> refusals;
    for (const auto& [fan, key] : pending) {
        if (isSuperseded(expected)) co_return std::nullopt;
        if (!fans.pending().contains(fan)) continue;  // a newer plan manages it
        auto refusal = co_await giveBackOrRetry(fan, key);
        if (!fans.claimed().contains(fan)) fans.forgetStopped(fan);
        if (isSuperseded(expected)) co_return std::nullopt;
        if (refusal) refusals.push_back(std::move(*refusal));
    }
    startDueWatching();
    if (refusals.empty()) co_return std::nullopt;
    co_return NotRestored{std::move(refusals)};
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
                                                PlanGeneration generation,
                                                concurrency::CancelToken token) {
    bool isOver = false;
    while (!isOver) {
        (void)co_await runtime.sleepFor(retryPeriod, token);  // cut short by a newer plan
        const auto self = controller.lock();
        if (!self) co_return;
        isOver = co_await self->retryRelease(generation);
    }
}

Task<bool> LocalFanController::retryRelease(PlanGeneration generation) {
    if (isSuperseded(generation)) co_return true;  // the handle is a newer loop's
    if (releasesAtWork > 0) co_return false;       // which asks the same fans, and lowers "Ftst"
    const bool isPartial = !fans.pending().empty();
    const auto claimedBefore = fans.claimed();
    Failure failure;
    if (isPartial)
        failure = co_await releasePendingAutoFans(generation);
    else if (!isMonitoring() && !fans.isAnyHeld())  // a plan in force is never undone
        failure = co_await releaseAllToAuto(generation);
    if (isSuperseded(generation)) co_return true;
    if (failure || !fans.pending().empty() || isForceTestRefused) {
        const bool isProgress = fans.claimed() != claimedBefore;
        if (isPartial && isProgress) {
            publishState(state.isHolding && !fans.claimed().empty(), state.cause);
        }
        co_return false;
    }
    if (isPartial) publishThatNoFanIsPending();  // releaseAllToAuto has published
    releaseRetryTask.reset();
    startDueWatching();
    co_return true;
}

/// Takes back what is over: that fans refuse, and perhaps that any is held. Whatever else is shown
/// is another's, who may have come in the middle of the retry.
void LocalFanController::publishThatNoFanIsPending() {
    std::optional<ControlError> stillTrue = state.cause;
    if (tellsOfPendingFans(stillTrue)) stillTrue.reset();
    publishState(state.isHolding && !fans.claimed().empty(), std::move(stillTrue));
}

Task<std::optional<std::string>> LocalFanController::restoreAuto() {
    cancelHoldTask();
    forgetPlan();
    const Failure failure = co_await releaseAllToAuto(std::nullopt);
    co_return textOf(failure);
}

Task<std::optional<std::string>> LocalFanController::restoreAllFansToAutomatic() {
    const bool isCounted = co_await findFans();
    if (!isCounted) co_return "could not read FNum during startup recovery";
    const Failure failure = co_await releaseAllToAuto(std::nullopt);
    co_return textOf(failure);
}

/// What a control step does when a release has left it nothing to hold, and no fan to a retry.
Task<void> LocalFanController::lowerForceTestIfIdle() {
    const bool isAnyForced = !fans.claimed().empty() || !fans.pending().empty();
    if (releasesAtWork > 0 || isAnyForced || isMonitoring()) co_return;
    (void)co_await smc.writeUInt8("Ftst", 0);
}

Task<void> LocalFanController::noteGivenBack(ControlledFans::Request after) {
    const bool wasClaimed = fans.claimed().contains(after.fan);
    fans.givenBack(after);
    const bool isClaimed = fans.claimed().contains(after.fan);
    if (wasClaimed && !isClaimed)
        publishState(state.isHolding && !fans.claimed().empty(), state.cause);
    startDueWatching();
    co_return;
}

/// Asks for the mode key of every fan that the SMC counts. False when it does not count them.
Task<bool> LocalFanController::findFans() {
    const auto count = co_await fanCount();
    if (!count) co_return false;
    for (Fan fan = 0; fan < *count; ++fan) {
        (void)co_await resolveModeKey(fan);  // fans without a key are the firmware's anyway
    }
    hasFoundFans = smc.takesForcing();  // an exit that has begun withholds what was asked before
    co_return true;
}

Task<void> LocalFanController::restoreAutoAtExit(bool triesAgain) {
    if (!hasFoundFans) co_await raiseForceTest();
    if (!hasFoundFans) (void)co_await giveBackUncountedFans();
    auto failure = co_await restoreAuto();
    const bool isAnyFound = co_await giveBackUncountedFans();
    if (isAnyFound) failure = co_await restoreAuto();
    while (triesAgain && failure) {
        (void)co_await runtime.sleepFor(exitRetryPeriod);  // nobody cancels it
        failure = co_await restoreAuto();
    }
}

/// Whatever the count says: a fan may be forced that it leaves out. Each is given back as it is
/// found, since the SMC may be slow and the time short. True when there was any.
Task<bool> LocalFanController::giveBackUncountedFans() {
    const std::size_t known = modeKeyCache.size();
    for (Fan fan = 0; fan < smc::mostFans; ++fan) {
        if (modeKeyCache.contains(fan)) continue;
        const auto key = co_await resolveModeKey(fan);
        if (key) (void)co_await giveBackOrRetry(fan, *key);
    }
    co_return modeKeyCache.size() > known;
}

}  // namespace airflow::control
