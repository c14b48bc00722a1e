// FanControlModePlan: what a plan asks of one fan.
#pragma once

#include <utility>
#include <variant>

#include "json/Decoder.h"
#include "json/Writer.h"
#include "plan/FanCurve.h"

namespace airflow::plan {

struct FixedRPM {
    double rpm = 0;  ///< RPM; kept within the fan's own limits when it is evaluated

    bool operator==(const FixedRPM&) const = default;
};

struct FixedPercent {
    double percent = 0;  ///< of the fan's range; counts as 0 below 0 and as 100 above 100

    bool operator==(const FixedPercent&) const = default;
};

/// The fan stays with the firmware.
struct Automatic {
    bool operator==(const Automatic&) const = default;
};

struct FanControlModePlan {
    std::variant<FixedRPM, FixedPercent, FanCurve, Automatic> mode = Automatic{};

    bool operator==(const FanControlModePlan&) const = default;

    [[nodiscard]] static FanControlModePlan fixedRPM(double rpm) { return {FixedRPM{rpm}}; }
    [[nodiscard]] static FanControlModePlan fixedPercent(double percent) {
        return {FixedPercent{percent}};
    }
    [[nodiscard]] static FanControlModePlan curve(FanCurve curve) { return {std::move(curve)}; }
    [[nodiscard]] static FanControlModePlan automatic() { return {}; }

    [[nodiscard]] bool isAutomatic() const { return std::holds_alternative<Automatic>(mode); }

    static FanControlModePlan decode(const json::Decoder& decoder);
    void encode(json::Writer& writer) const;
};

}  // namespace airflow::plan
