#include "guard/FanGuard.h"

#include <cmath>
#include <utility>

namespace airflow::guard {

namespace {

using concurrency::Task;
using Finding = FanWatch::Finding;

constexpr double forcedMode = 1;

Finding findingOf(const std::expected<smc::SMCValue, smc::SMCError>& read) {
    if (!read) {
        const bool isAbsent = std::holds_alternative<smc::KeyNotFound>(read.error().reason);
        return isAbsent ? Finding::absent : Finding::unreadable;
    }
    const auto mode = read->numeric();
    return mode && std::trunc(*mode) == forcedMode ? Finding::forced : Finding::notForced;
}

}  // namespace

FanGuard::FanGuard(concurrency::Runtime& guardRuntime, SMCGate& guardedGate, Release guardRelease,
                   GivenBack fanGivenBack, LastRequest controllersLastRequest)
    : Actor(guardRuntime.makeExecutor("guard")),
      runtime(guardRuntime),
      gate(guardedGate),
      release(std::move(guardRelease)),
      givenBack(std::move(fanGivenBack)),
      lastRequest(std::move(controllersLastRequest)) {
    gate.observe(*this);
}

void FanGuard::checked() {
    const std::lock_guard lock(mutex);
    watch.checked();
}

void FanGuard::heard() {
    const std::lock_guard lock(mutex);
    lastHeard = runtime.now();
    watch.heard();
}

void FanGuard::begin() {
    const std::lock_guard lock(mutex);
    hasBegun = true;
    watch.lookAtUnknown();
    watchIfNeeded();
}

void FanGuard::wrote(const ModeWrite& write) {
    const std::lock_guard lock(mutex);
    watch.wrote(write);
    watchIfNeeded();
}

/// What raises "Ftst" and lowers it is a release. One that knew of no fan has written nothing else.
void FanGuard::wroteForceTest(bool isRaised) {
    const std::lock_guard lock(mutex);
    const bool wasRaised = std::exchange(isForceTestRaised, isRaised);
    if (isRaised || !wasRaised || !hasBegun) return;
    watch.lookAtUnknown();
    watchIfNeeded();
}

void FanGuard::sawForced(std::int64_t fan, const std::string& key) {
    const std::lock_guard lock(mutex);
    if (!hasBegun) return;
    watch.sawForced(fan, key);
    watchIfNeeded();
}

void FanGuard::readTemperature() {
    const std::lock_guard lock(mutex);
    watch.readTemperature();
}

void FanGuard::driverBegins() {
    const std::lock_guard lock(mutex);
    busySince = runtime.now();
}

void FanGuard::driverEnds() {
    const std::lock_guard lock(mutex);
    busy = busyUpTo(runtime.now());
    busySince.reset();
}

FanGuard::Duration FanGuard::busyUpTo(concurrency::Instant now) const {
    return busySince ? busy + (now - *busySince) : busy;
}

/// Under the lock.
void FanGuard::watchIfNeeded() {
    if (isWatching || !watch.isNeeded()) return;
    isWatching = true;
    lastLook = runtime.now();
    lastBusy = busyUpTo(lastLook);
    watch.resume(lastLook - lastHeard);
    runtime.detach("guard", watchFans(*this));
}

Task<void> FanGuard::watchFans(FanGuard& guard) {
    for (;;) {
        (void)co_await guard.runtime.sleepFor(FanWatch::period);  // nobody cancels it
        const Due due = guard.lookAtWatch();
        if (due.isOver) co_return;
        if (due.cause) {
            auto taken = co_await guard.giveBack({});
            guard.release(*due.cause, std::move(taken));
        }
        for (std::size_t i = 0; !due.cause && i < due.looks.size(); ++i) {
            co_await guard.look(due.looks[i]);
        }
    }
}

FanGuard::Due FanGuard::lookAtWatch() {
    const std::lock_guard lock(mutex);
    const concurrency::Instant now = runtime.now();
    const Duration busyNow = busyUpTo(now);
    watch.elapsed(now - std::exchange(lastLook, now), busyNow - std::exchange(lastBusy, busyNow));
    Due due{.cause = watch.overdue(), .isOver = !watch.isNeeded()};
    if (hasBegun) due.looks = watch.dueLooks();
    if (due.cause) watch.acted();
    if (due.isOver) isWatching = false;
    return due;
}

/// Gives back these fans, or all that may be forced. Returns those that the SMC took. One that
/// refuses is asked again, by the controller or by the next look; "Ftst" goes on for it, and for
/// fans that are held.
Task<FanGuard::Taken> FanGuard::giveBack(std::map<FanWatch::Fan, std::string> fans) {
    {
        const std::lock_guard lock(mutex);
        if (fans.empty()) fans = watch.mayBeForced();
    }
    if (acting) acting();
    Taken taken;
    std::vector<FanWatch::Fan> refusing;
    // The mode key's answer is what counts; but an exit that has begun meanwhile restores
    // everything. The last client that leaves has it withheld, too.
    const auto raised = co_await gate.writeUInt8("Ftst", 1);
    const bool isWithheld = !raised && raised.error() == smc::SMCError::withheld();
    if (isWithheld && gate.isEnding()) co_return taken;
    for (const auto& [fan, key] : fans) {
        const std::uint64_t before = lastRequest();
        const auto written = co_await gate.writeUInt8(key, 0);
        if (written && *written == 0)
            taken.push_back({.fan = fan, .number = before});
        else
            refusing.push_back(fan);
    }
    bool isAnyLeft = false;
    {
        const std::lock_guard lock(mutex);
        for (const FanWatch::Fan fan : refusing) watch.noteOwn(fan);
        isAnyLeft = !watch.mayBeForced().empty();
    }
    if (!isAnyLeft) (void)co_await gate.writeUInt8("Ftst", 0);  // without forced fans it harms none
    co_return taken;
}

Task<void> FanGuard::look(FanWatch::Look due) {
    const Found found = co_await find(due);
    bool isLeftForced = false;
    {
        const std::lock_guard lock(mutex);
        isLeftForced = watch.note(due, found.finding);
    }
    if (!isLeftForced) co_return;
    std::map<FanWatch::Fan, std::string> fan{{due.fan, found.key}};
    const auto taken = co_await giveBack(std::move(fan));
    for (const auto& after : taken) givenBack(after);
    const std::lock_guard lock(mutex);
    watch.noteOwn(due.fan);
}

/// What the fan's mode key says.
Task<FanGuard::Found> FanGuard::find(FanWatch::Look due) {
    Found found;
    for (std::string& candidate : due.keys) {
        const auto read = co_await gate.readValue(candidate);
        found = {.finding = findingOf(read), .key = std::move(candidate)};
        if (found.finding != Finding::absent) break;
    }
    co_return found;
}

}  // namespace airflow::guard
