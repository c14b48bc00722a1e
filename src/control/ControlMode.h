// ControlMode: who drives a fan, and by what.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "json/Decoder.h"
#include "json/Writer.h"
#include "plan/FanControlPlan.h"

namespace airflow::control {

/// One of its cases, written `ControlMode::manual`; a class only to take part in JSON.
class ControlMode {
public:
    enum class Case : std::uint8_t {
        automatic,  ///< the firmware
        fullBlast,  ///< held at its maximum
        manual,     ///< held where a command put it, as RPM or percentage
        curve,      ///< driven by a plan
    };
    using enum Case;

    constexpr ControlMode(Case mode = Case::automatic) : mode(mode) {}
    /// Lets modes be compared and switched over.
    constexpr operator Case() const { return mode; }

    /// An object whose sole known key is the case's name, over an object whose members are ignored.
    static ControlMode decode(const json::Decoder& decoder);
    void encode(json::Writer& writer) const;

private:
    Case mode;
};

/// What a fan is shown as that is held by this entry of a plan.
[[nodiscard]] ControlMode publishedMode(const plan::FanPlan& fan);

}  // namespace airflow::control

template <>
struct std::hash<airflow::control::ControlMode> {
    std::size_t operator()(airflow::control::ControlMode mode) const noexcept {
        return std::hash<airflow::control::ControlMode::Case>{}(mode);
    }
};
