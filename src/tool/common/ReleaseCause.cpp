#include "tool/common/ReleaseCause.h"

#include <fmt/format.h>

#include <cmath>
#include <variant>

namespace airflow::tool {

namespace {

struct SafetyCause {
    using Cause = std::optional<std::string>;

    Cause operator()(const control::CeilingExceeded& error) const {
        return fmt::format("thermal ceiling {:.0f}°C exceeded", std::trunc(error.celsius));
    }
    Cause operator()(const control::TemperaturesMissing& error) const {
        return error.isReleased() ? Cause("temperature data unavailable") : std::nullopt;
    }
    Cause operator()(const control::HeartbeatLost&) const { return "no heartbeat for >15s"; }
    Cause operator()(const control::ChecksOverdue&) const { return "safety checks overdue"; }
    Cause operator()(const control::FanUnattended&) const { return "a fan was forced unattended"; }
    Cause operator()(const control::NotRestored&) const { return std::nullopt; }
    Cause operator()(const control::Reclaimed&) const { return std::nullopt; }
    Cause operator()(const control::PlanIncomplete&) const { return std::nullopt; }
};

}  // namespace

std::optional<std::string> releaseCause(const control::ControlError& error) {
    return std::visit(SafetyCause{}, error);
}

}  // namespace airflow::tool
