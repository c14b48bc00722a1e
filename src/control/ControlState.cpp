#include "control/ControlState.h"

#include <tuple>

namespace airflow::control {

const ControlState& ControlState::idle() {
    // Never destroyed: tasks use it until the process is gone.
    static const auto& state = *new const ControlState;
    return state;
}

bool ControlState::operator==(const ControlState& other) const {
    const auto published = [](const ControlState& state) {
        return std::tie(state.perFanMode, state.targets, state.isHolding, state.lastError,
                        state.stoppedFans);
    };
    return published(*this) == published(other);
}

ControlState ControlState::decode(const json::Decoder& decoder) {
    return {.perFanMode = decoder.required<std::map<std::int64_t, ControlMode>>("perFanMode"),
            .targets = decoder.required<std::map<std::int64_t, std::int64_t>>("targets"),
            .isHolding = decoder.required<bool>("isHolding"),
            .lastError = decoder.optional<std::string>("lastError"),
            .stoppedFans = decoder.optional<std::vector<std::int64_t>>("stoppedFans"),
            .cause = {}};
}

void ControlState::encode(json::Writer& writer) const {
    writer.object([&] {
        writer.member("perFanMode", perFanMode);
        writer.member("targets", targets);
        writer.member("isHolding", isHolding);
        writer.member("lastError", lastError);
        writer.member("stoppedFans", stoppedFans);
    });
}

}  // namespace airflow::control
