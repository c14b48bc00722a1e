#include "control/ControlMode.h"

#include <string_view>
#include <variant>

namespace airflow::control {

namespace {

std::string_view nameOf(ControlMode mode) {
    switch (mode) {
        case ControlMode::automatic: return "automatic";
        case ControlMode::fullBlast: return "fullBlast";
        case ControlMode::manual: return "manual";
        case ControlMode::curve: break;
    }
    return "curve";
}

ControlMode modeNamed(std::string_view name) {
    if (name == "fullBlast") return ControlMode::fullBlast;
    if (name == "manual") return ControlMode::manual;
    if (name == "curve") return ControlMode::curve;
    return ControlMode::automatic;
}

struct PublishedMode {
    ControlMode operator()(const plan::FixedRPM&) const { return ControlMode::manual; }
    ControlMode operator()(const plan::FixedPercent& fixed) const {
        return fixed.percent >= 100 ? ControlMode::fullBlast : ControlMode::manual;
    }
    ControlMode operator()(const plan::FanCurve&) const { return ControlMode::curve; }
    ControlMode operator()(const plan::Automatic&) const { return ControlMode::automatic; }
};

}  // namespace

ControlMode ControlMode::decode(const json::Decoder& decoder) {
    const auto name = decoder.soleCase({"automatic", "fullBlast", "manual", "curve"});
    if (!name) return {};
    decoder.member(*name, [](const json::Decoder& payload) { payload.anyObject(); });
    return modeNamed(*name);
}

void ControlMode::encode(json::Writer& writer) const {
    writer.emptyCase(nameOf(mode));
}

ControlMode publishedMode(const plan::FanPlan& fan) {
    return std::visit(PublishedMode{}, fan.mode.mode);
}

}  // namespace airflow::control
