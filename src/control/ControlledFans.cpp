#include "control/ControlledFans.h"

#include <algorithm>

namespace airflow::control {

ControlledFans::Request ControlledFans::begin(Fan fan) {
    latestRequests[fan] = ++lastRequest;
    return lastRequest;
}

ControlledFans::Request ControlledFans::beginForcing(Fan fan) {
    const Request request = begin(fan);
    latestForcings[fan] = request;
    return request;
}

bool ControlledFans::isLatest(Fan fan, Request request) const {
    const auto latest = latestRequests.find(fan);
    return latest != latestRequests.end() && latest->second == request;
}

void ControlledFans::forced(Fan fan, Request request) {
    if (isLatest(fan, request)) claimedFans.insert(fan);
}

void ControlledFans::givenBack(Fan fan, Request request) {
    const auto forcing = latestForcings.find(fan);
    if (forcing != latestForcings.end() && forcing->second > request) return;
    claimedFans.erase(fan);
    targets.erase(fan);
    perFanMode.erase(fan);
}

void ControlledFans::released(Fan fan, Request request) {
    givenBack(fan, request);
    if (isLatest(fan, request)) pendingAutoReleaseFans.erase(fan);
}

void ControlledFans::refusedToGoBack(Fan fan, Request request) {
    if (isLatest(fan, request)) pendingAutoReleaseFans.insert(fan);
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
