#include "tool/simulation/ScenarioReleases.h"

#include <fmt/format.h>

#include <algorithm>
#include <ranges>
#include <utility>

#include "control/ControlError.h"
#include "tool/common/ReleaseCause.h"

namespace airflow::tool {

namespace {

using concurrency::Duration;
using simulation::Call;
using simulation::FanMode;

constexpr const char* planItself = "the plan itself";

bool givesAllBack(Call::Method method) {
    return method == Call::Method::automatic || method == Call::Method::restoreAuto ||
           method == Call::Method::shutdownForUpgrade;
}

bool isPlan(Call::Method method) {
    return method == Call::Method::setManualRPM || method == Call::Method::setPercent ||
           method == Call::Method::fullBlast || method == Call::Method::applyConfig;
}

/// The fan that this is the mode key of, if it is one.
std::optional<std::size_t> fanOfModeKey(const std::string& key) {
    const bool isModeKey = key.starts_with('F') && (key.ends_with("Md") || key.ends_with("md"));
    if (!isModeKey) return std::nullopt;
    return static_cast<std::size_t>(key[1] - '0');
}

}  // namespace

void ScenarioReleases::modeChanged(Duration time, std::size_t fan, FanMode mode) {
    settle(time);
    Fan& record = fans[fan];
    const bool wasForced = std::exchange(record.isForced, mode == FanMode::forced);
    if (record.isForced && !wasForced) {
        record.hasRefused = false;
        record.forcedAfter = commands;
    }
    if (wasForced && mode == FanMode::automatic) changed = fan;
}

void ScenarioReleases::access(const simulation::SMCAccess& access) {
    const bool isWrite = access.operation == simulation::Fault::Operation::write;
    const auto fan = isWrite ? fanOfModeKey(access.key) : std::nullopt;
    if (fan && changed == fan) {
        changed.reset();
        open.push_back(explain(fans[*fan]));
        publishedAt.reset();
    }
    settle(access.time);
    const bool isRefusal = access.kernelReturn != 0 || access.result != 0;
    if (fan && access.value == 0 && isRefusal) fans[*fan].hasRefused = true;
}

ScenarioReleases::Release ScenarioReleases::explain(const Fan& fan) const {
    const auto latestFirst = inFlight | std::views::reverse;
    const auto release = std::ranges::find_if(latestFirst, givesAllBack, &Command::method);
    if (release != latestFirst.end()) return {std::string(daemon::nameOf(release->method))};
    if (underWay) return {*underWay};
    // A fan that this very command took over was given back by the plan's own first step.
    const auto drops = [&fan](const Command& command) { return command.number > fan.forcedAfter; };
    if (std::ranges::any_of(inFlight, drops)) return {"a newer plan", true};
    if (fan.hasRefused) return {"retry", true};
    if (commands == 0) return {"start-up recovery"};
    return {planItself, true};
}

void ScenarioReleases::published(Duration time, const control::ControlState& state) {
    settle(time);
    publishedAt = time;
    underWay.reset();
    if (!state.cause) return;
    const auto safetyCause = releaseCause(*state.cause);
    // A fan that refuses is published instead of the check that released the others.
    const bool isHidden = std::holds_alternative<control::NotRestored>(*state.cause);
    for (Release& release : open) {
        if (!release.mayBeSafety) continue;
        if (safetyCause)
            release.cause = *safetyCause;
        else if (isHidden && release.cause == planItself)
            release.cause = "a safety check";
    }
}

void ScenarioReleases::called(Duration time, Call::Method method) {
    settle(time);
    if (!givesAllBack(method) && !isPlan(method)) return;
    inFlight.push_back({.method = method, .number = ++commands});
}

void ScenarioReleases::replied(Duration time, Call::Method method) {
    settle(time);
    const auto found = std::ranges::find(inFlight, method, &Command::method);
    if (found != inFlight.end()) inFlight.erase(found);
}

void ScenarioReleases::ending(Duration time, std::string cause) {
    settle(time);
    underWay = std::move(cause);
}

void ScenarioReleases::started(Duration time) {
    settle(time);
    inFlight.clear();
    underWay.reset();
    commands = 0;
    for (auto& [index, fan] : fans) {
        fan.hasRefused = false;  // retries end with their process
        fan.forcedAfter = 0;
    }
}

/// What happened is over: whoever changed a fan without a write was the machine itself, and a
/// safety check that has not been published by now was none.
void ScenarioReleases::settle(Duration now) {
    if (std::exchange(changed, std::nullopt)) ++counts["the firmware itself"];
    if (publishedAt && now > *publishedAt) countAll();
}

void ScenarioReleases::countAll() {
    for (const Release& release : open) ++counts[release.cause];
    open.clear();
    publishedAt.reset();
}

std::map<std::string, int> ScenarioReleases::finish() {
    settle(Duration::max());
    countAll();
    return counts;
}

}  // namespace airflow::tool
