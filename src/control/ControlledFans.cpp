#include "control/ControlledFans.h"

#include <algorithm>

namespace airflow::control {

namespace {

bool isAnyLater(const std::map<ControlledFans::Fan, std::uint64_t>& latest,
                const ControlledFans::Request& request) {
    const auto found = latest.find(request.fan);
    return found != latest.end() && found->second > request.number;
}

}  // namespace

ControlledFans::Request ControlledFans::beginRelease(Fan fan) {
    const std::uint64_t number = ++lastNumber;
    latestReleases[fan] = number;
    return {.fan = fan, .number = number};
}

ControlledFans::Request ControlledFans::beginForcing(Fan fan) {
    const std::uint64_t number = ++lastNumber;
    latestForcings[fan] = number;
    return {.fan = fan, .number = number};
}

bool ControlledFans::isLatest(const Request& request) const {
    return !isAnyLater(latestForcings, request) && !isAnyLater(latestReleases, request);
}

void ControlledFans::forced(const Request& request) {
    std::uint64_t& taken = takenForcings[request.fan];
    taken = std::max(taken, request.number);
    if (!isAnyLater(takenReleases, request)) claimedFans.insert(request.fan);
}

void ControlledFans::refusedToForce(const Request& request) {
    if (isAnyLater(latestForcings, request)) return;
    // A 0 that has the number of a 1 is somebody else's, and came after it.
    if (takenReleases[request.fan] >= takenForcings[request.fan]) forget(request.fan);
}

void ControlledFans::forget(Fan fan) {
    claimedFans.erase(fan);
    targets.erase(fan);
    perFanMode.erase(fan);
}

void ControlledFans::givenBack(const Request& request) {
    std::uint64_t& taken = takenReleases[request.fan];
    taken = std::max(taken, request.number);
    if (!isAnyLater(latestForcings, request)) forget(request.fan);
}

void ControlledFans::released(const Request& request) {
    givenBack(request);
    if (isLatest(request)) pendingAutoReleaseFans.erase(request.fan);
}

void ControlledFans::refusedToGoBack(const Request& request) {
    if (isLatest(request)) pendingAutoReleaseFans.insert(request.fan);
}

void ControlledFans::setMode(Fan fan, ControlMode mode) {
    if (claimedFans.contains(fan)) perFanMode.insert_or_assign(fan, mode);
}

void ControlledFans::setTarget(Fan fan, double rpm) {
    if (claimedFans.contains(fan)) targets[fan] = rpm;
}

bool ControlledFans::isAnyHeld() const {
    return !std::ranges::includes(pendingAutoReleaseFans, claimedFans);
}

}  // namespace airflow::control
