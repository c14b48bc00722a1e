#include "guard/FanWatch.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "smc/FanNumbers.h"

namespace airflow::guard {

namespace {

using namespace std::chrono_literals;

// A tick comes 1.5 s after the last has ended, and its snapshot takes up to 2.5 s where the SMC
// gives the temperatures. Tick and snapshot are overdue after 5 s, even of a machine with much else
// to do; beyond 8 s nobody need be silent besides.
constexpr auto checkLimit = 8s;
constexpr auto checkLimitInSilence = 5s;
constexpr auto heartbeatLimit = 15s;
/// The hold loop's own release in silence, which a wall clock that was set back puts off.
constexpr auto silenceLimit = heartbeatLimit + 6s;
/// Two ticks, since one may do without writing, on a machine with much else to do.
constexpr auto attendanceLimit = 10s;
constexpr auto pauseOfClaim = 100ms;
constexpr auto limitOfClaim = 10s;
constexpr auto pauseOfSample = 20ms;
constexpr auto limitOfSampling = 20s;
constexpr auto lookDelay = 2s;
/// A refusal is answered by another request, of the next tick or of a retry; after that somebody
/// has to look what the fan really is.
constexpr auto lookDelayAfterRefusedClaim = 5s;
constexpr auto lookDelayAfterRefusedRelease = 10s;

}  // namespace

void FanWatch::wrote(const ModeWrite& write) {
    if (write.isForcing && write.isTaken && !isAnyForced()) {
        unchecked = claiming = sampling = Duration::zero();
    }
    Record& fan = fans[write.fan];
    fan.key = write.key;
    fan.unattended = Duration::zero();
    fan.untilLook.reset();
    ++fan.writes;
    if (!write.isForcing) {
        fan.last = write.isTaken ? Last::givenBack : Last::refusedToGoBack;
        fan.untilLook = write.isTaken ? lookDelay : lookDelayAfterRefusedRelease;
        fan.waitsForBusyDriver = !write.isTaken;
        lookAtUnknown();
        return;
    }
    if (write.isTaken) fan.last = Last::forced;
    if (!write.isTaken) ++refusals;
    if (fan.last == Last::forced) return;
    fan.untilLook = lookDelayAfterRefusedClaim;
    fan.waitsForBusyDriver = true;
}

void FanWatch::sawForced(Fan index, const std::string& key) {
    Record& fan = fans[index];
    const bool isExpected = fan.last == Last::forced || fan.last == Last::refusedToGoBack;
    if (isExpected || fan.untilLook) return;
    fan.key = key;
    fan.untilLook = lookDelay;
}

void FanWatch::checked() {
    unchecked = claiming = sampling = Duration::zero();
}

void FanWatch::acted() {
    unchecked = silent = claiming = sampling = Duration::zero();
    for (auto& [index, fan] : fans) fan.unattended = Duration::zero();
}

FanWatch::Duration FanWatch::explainedByClaims(Duration time) {
    const auto asked =
        std::ranges::count_if(fans, [](const auto& entry) { return !entry.second.key.empty(); });
    const Duration limit = Duration(limitOfClaim) * asked;
    const Duration explained = std::min(
        {time, Duration(pauseOfClaim * refusals), std::max(limit - claiming, Duration::zero())});
    refusals = 0;
    claiming += explained;
    return explained;
}

/// A snapshot reads each of the SMC's temperatures twice, 40 ms apart.
FanWatch::Duration FanWatch::explainedBySamples(Duration time) {
    const Duration explained =
        std::min({time, Duration(pauseOfSample * std::exchange(temperatures, 0)),
                  std::max(Duration(limitOfSampling) - sampling, Duration::zero())});
    sampling += explained;
    return explained;
}

void FanWatch::elapsed(Duration time, Duration driverBusy) {
    const Duration counted = std::min(time, Duration(2 * period));
    const Duration undriven = std::max(counted - driverBusy, Duration::zero());
    const Duration unexplained = undriven - explainedByClaims(undriven);
    const Duration unaccounted = unexplained - explainedBySamples(unexplained);
    unchecked += unaccounted;
    silent += unexplained;
    for (auto& [index, fan] : fans) {
        fan.unattended += unaccounted;
        if (fan.untilLook) *fan.untilLook -= fan.waitsForBusyDriver ? unexplained : counted;
    }
}

bool FanWatch::isAnyForced() const {
    return std::ranges::any_of(fans,
                               [](const auto& entry) { return entry.second.last == Last::forced; });
}

std::optional<control::ControlError> FanWatch::overdue() const {
    if (isAnyForced()) {
        const bool isSilent = silent > heartbeatLimit;
        if (silent > silenceLimit) return control::HeartbeatLost{};
        if (isSilent && unchecked > checkLimitInSilence) return control::HeartbeatLost{};
        if (unchecked > checkLimit) return control::ChecksOverdue{};
    }
    const bool isUnattended = std::ranges::any_of(fans, [](const auto& entry) {
        const Record& fan = entry.second;
        return fan.last == Last::forced && fan.unattended > attendanceLimit;
    });
    if (isUnattended) return control::FanUnattended{};
    return std::nullopt;
}

void FanWatch::lookAtUnknown() {
    for (Fan index = 0; index < smc::mostFans; ++index) {
        Record& fan = fans[index];
        if (fan.key.empty() && !fan.untilLook) fan.untilLook = lookDelay;
    }
}

std::vector<FanWatch::Look> FanWatch::dueLooks() const {
    std::vector<Look> looks;
    for (const auto& [index, fan] : fans) {
        if (!fan.untilLook || *fan.untilLook > Duration::zero()) continue;
        Look look{.fan = index, .writes = fan.writes};
        if (fan.key.empty())
            look.keys = {smc::fanKey(index, "Md"), smc::fanKey(index, "md")};
        else
            look.keys = {fan.key};
        looks.push_back(std::move(look));
    }
    return looks;
}

bool FanWatch::note(const Look& look, Finding finding) {
    Record& fan = fans[look.fan];
    if (fan.writes != look.writes) return false;
    fan.untilLook.reset();
    fan.waitsForBusyDriver = false;
    const bool wasKnown = !fan.key.empty();
    const bool isUncertain =
        finding == Finding::unreadable || (finding == Finding::absent && wasKnown);
    if (isUncertain) fan.untilLook = lookDelay;
    if (finding == Finding::notForced) fan.last = Last::givenBack;
    return finding == Finding::forced;
}

void FanWatch::noteOwn(Fan fan) {
    fans[fan].untilLook = lookDelay;
    fans[fan].waitsForBusyDriver = false;
}

std::map<FanWatch::Fan, std::string> FanWatch::mayBeForced() const {
    std::map<Fan, std::string> result;
    for (const auto& [index, fan] : fans) {
        if (fan.last == Last::forced || fan.last == Last::refusedToGoBack) {
            result.emplace(index, fan.key);
        }
    }
    return result;
}

bool FanWatch::isNeeded() const {
    return std::ranges::any_of(fans, [](const auto& entry) {
        const Last last = entry.second.last;
        return last == Last::forced || last == Last::refusedToGoBack || entry.second.untilLook;
    });
}

}  // namespace airflow::guard
