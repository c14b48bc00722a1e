#include "control/ControlError.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cmath>

namespace airflow::control {

namespace {

std::string text(const Refusal& refusal) {
    const auto& answer = refusal.answer;
    if (!answer) return fmt::format("{}=0 failed ({})", refusal.key, answer.error().description());
    return fmt::format("{}=0 rejected (SMC 0x{:x})", refusal.key, *answer);
}

struct Description {
    std::string operator()(const NotRestored& error) const {
        std::vector<std::string> messages;
        for (const Refusal& refusal : error.refusals) messages.push_back(text(refusal));
        return fmt::format("failed to restore Auto: {}", fmt::join(messages, "; "));
    }
    std::string operator()(const CeilingExceeded& error) const {
        return fmt::format("thermal ceiling {:.0f}°C exceeded — released to Auto",
                           std::trunc(error.celsius));
    }
    std::string operator()(const TemperaturesMissing& error) const {
        if (error.isReleased()) return "temperature data unavailable — released to Auto";
        return fmt::format("temperature data unavailable ({}/{})", error.snapshots, error.limit);
    }
    std::string operator()(const HeartbeatLost&) const {
        return "no heartbeat for >15s — released to Auto";
    }
    std::string operator()(const ChecksOverdue&) const {
        return "safety checks overdue — released to Auto";
    }
    std::string operator()(const FanUnattended&) const {
        return "a fan was forced unattended — released to Auto";
    }
    std::string operator()(const Reclaimed& error) const {
        return fmt::format("reclaimed: fan(s) [{}] reverted to mode 3",
                           fmt::join(error.fans, ", "));
    }
    std::string operator()(const PlanIncomplete& error) const {
        return "applyPlan: " + error.result.description();
    }
};

struct IsSafetyRelease {
    bool operator()(const CeilingExceeded&) const { return true; }
    bool operator()(const TemperaturesMissing& error) const { return error.isReleased(); }
    bool operator()(const HeartbeatLost&) const { return true; }
    bool operator()(const ChecksOverdue&) const { return true; }
    bool operator()(const FanUnattended&) const { return true; }
    bool operator()(const NotRestored&) const { return false; }
    bool operator()(const Reclaimed&) const { return false; }
    bool operator()(const PlanIncomplete&) const { return false; }
};

}  // namespace

std::string description(const ControlError& error) {
    return std::visit(Description{}, error);
}

bool isSafetyRelease(const ControlError& error) {
    return std::visit(IsSafetyRelease{}, error);
}

}  // namespace airflow::control
