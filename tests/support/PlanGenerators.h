// Generators of plan documents for properties: doubles of every magnitude, texts of any Unicode.
//
// The values need not make sense: whatever a record can hold, it must carry unchanged.
#pragma once

#include <rapidcheck.h>

#include <array>
#include <bit>
#include <cstdint>
#include <limits>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "json/Writer.h"
#include "plan/AutoSwitchSettings.h"
#include "plan/FanControlPlan.h"
#include "plan/FanPreset.h"
#include "support/Doubles.h"

namespace airflow::tests {

inline void appendUTF8(std::string& text, char32_t point) {
    const auto append = [&text](char32_t byte) { text += static_cast<char>(byte); };
    const auto continuation = [&](int shift) { append(0x80 | ((point >> shift) & 0x3F)); };
    if (point < 0x80) {
        append(point);
    } else if (point < 0x800) {
        append(0xC0 | (point >> 6));
        continuation(0);
    } else if (point < 0x10000) {
        append(0xE0 | (point >> 12));
        continuation(6);
        continuation(0);
    } else {
        append(0xF0 | (point >> 18));
        continuation(12);
        continuation(6);
        continuation(0);
    }
}

inline rc::Gen<char32_t> codePoints() {
    return rc::gen::oneOf(
        rc::gen::inRange<char32_t>(0, 0x80), rc::gen::inRange<char32_t>(' ', 0x7F),
        rc::gen::inRange<char32_t>(0x80, 0x800), rc::gen::inRange<char32_t>(0x800, 0xD800),
        rc::gen::inRange<char32_t>(0xE000, 0x10000), rc::gen::inRange<char32_t>(0x10000, 0x110000),
        rc::gen::element(U'\0', U'"', U'\\', U'/', U'\n', U'\x7F', U'\u2028', U'\uFEFF',
                         U'\uFFFF'));
}

/// Up to `most` of them, however large the test's size, and each of full size.
template <typename T>
rc::Gen<std::vector<T>> fewOf(rc::Gen<T> elements, int most = 8) {
    const auto full = rc::gen::resize(rc::kNominalSize, std::move(elements));
    return rc::gen::scale(most / double{rc::kNominalSize},
                          rc::gen::container<std::vector<T>>(full));
}

inline rc::Gen<std::string> unicodeTexts() {
    return rc::gen::map(fewOf(codePoints()), [](const std::vector<char32_t>& points) {
        std::string text;
        for (const char32_t point : points) appendUTF8(text, point);
        return text;
    });
}

template <typename T>
rc::Gen<std::optional<T>> optionally(rc::Gen<T> present) {
    return rc::gen::map(rc::gen::maybe(std::move(present)), [](const rc::Maybe<T>& maybe) {
        return maybe ? std::optional<T>(*maybe) : std::nullopt;
    });
}

inline rc::Gen<std::int64_t> integers() {
    using Limits = std::numeric_limits<std::int64_t>;
    return rc::gen::oneOf(rc::gen::inRange<std::int64_t>(0, 10),
                          rc::gen::resize(rc::kNominalSize, rc::gen::arbitrary<std::int64_t>()),
                          rc::gen::element(Limits::min(), Limits::max(), Limits::max() - 1));
}

}  // namespace airflow::tests

namespace rc {

template <>
struct Arbitrary<airflow::plan::UUID> {
    static Gen<airflow::plan::UUID> arbitrary() {
        const auto half = gen::resize(kNominalSize, gen::arbitrary<std::uint64_t>());
        return gen::map(gen::pair(half, half), [](const auto& halves) {
            const auto bytes = std::bit_cast<std::array<std::uint8_t, 16>>(
                std::array{halves.first, halves.second});
            return airflow::plan::UUID{bytes};
        });
    }
};

template <>
struct Arbitrary<airflow::plan::CurvePoint> {
    static Gen<airflow::plan::CurvePoint> arbitrary() {
        using airflow::plan::CurvePoint;
        return gen::build<CurvePoint>(
            gen::set(&CurvePoint::id),
            gen::set(&CurvePoint::celsius, airflow::tests::finiteDoubles()),
            gen::set(&CurvePoint::percent, airflow::tests::finiteDoubles()));
    }
};

template <>
struct Arbitrary<airflow::plan::FanCurve> {
    static Gen<airflow::plan::FanCurve> arbitrary() {
        using airflow::plan::CurveInterpolation, airflow::plan::FanCurve;
        using namespace airflow::tests;
        return gen::build<FanCurve>(
            gen::set(&FanCurve::sourceSensorID, optionally(unicodeTexts())),
            gen::set(&FanCurve::points, fewOf(gen::arbitrary<airflow::plan::CurvePoint>(), 6)),
            gen::set(&FanCurve::interpolation,
                     gen::element(CurveInterpolation::linear, CurveInterpolation::monotone)));
    }
};

template <>
struct Arbitrary<airflow::plan::FanControlModePlan> {
    static Gen<airflow::plan::FanControlModePlan> arbitrary() {
        using airflow::plan::FanControlModePlan;
        using namespace airflow::tests;
        return gen::oneOf(
            gen::map(finiteDoubles(), FanControlModePlan::fixedRPM),
            gen::map(finiteDoubles(), FanControlModePlan::fixedPercent),
            gen::map(gen::arbitrary<airflow::plan::FanCurve>(), FanControlModePlan::curve),
            gen::just(FanControlModePlan::automatic()));
    }
};

template <>
struct Arbitrary<airflow::plan::RuleFanTarget> {
    static Gen<airflow::plan::RuleFanTarget> arbitrary() {
        using airflow::plan::RuleFanTarget;
        return gen::oneOf(gen::map(airflow::tests::integers(), RuleFanTarget::fan),
                          gen::just(RuleFanTarget::all()));
    }
};

template <>
struct Arbitrary<airflow::plan::FanRule> {
    static Gen<airflow::plan::FanRule> arbitrary() {
        using airflow::plan::FanRule;
        using namespace airflow::tests;
        return gen::build<FanRule>(
            gen::set(&FanRule::id), gen::set(&FanRule::name, unicodeTexts()),
            gen::set(&FanRule::sensorID, optionally(unicodeTexts())),
            gen::set(&FanRule::thresholdCelsius, finiteDoubles()),
            gen::set(&FanRule::releaseBelowCelsius, finiteDoubles()),
            gen::set(&FanRule::targetPercent, finiteDoubles()), gen::set(&FanRule::fanTarget),
            gen::set(&FanRule::dwellSeconds, finiteDoubles()), gen::set(&FanRule::enabled));
    }
};

template <>
struct Arbitrary<airflow::plan::ControlTuning> {
    static Gen<airflow::plan::ControlTuning> arbitrary() {
        using airflow::plan::ControlTuning;
        using namespace airflow::tests;
        return gen::build<ControlTuning>(
            gen::set(&ControlTuning::emaAlpha, finiteDoubles()),
            gen::set(&ControlTuning::hysteresisCelsius, finiteDoubles()),
            gen::set(&ControlTuning::maxDeltaRPMPerTick, finiteDoubles()),
            gen::set(&ControlTuning::minDwellSeconds, finiteDoubles()));
    }
};

template <>
struct Arbitrary<airflow::plan::FanPlan> {
    static Gen<airflow::plan::FanPlan> arbitrary() {
        using airflow::plan::FanPlan;
        return gen::build<FanPlan>(gen::set(&FanPlan::fanID, airflow::tests::integers()),
                                   gen::set(&FanPlan::mode));
    }
};

template <>
struct Arbitrary<airflow::plan::FanControlPlan> {
    static Gen<airflow::plan::FanControlPlan> arbitrary() {
        using airflow::plan::FanControlPlan;
        using airflow::tests::fewOf;
        return gen::build<FanControlPlan>(
            gen::set(&FanControlPlan::fans, fewOf(gen::arbitrary<airflow::plan::FanPlan>(), 4)),
            gen::set(&FanControlPlan::rules, fewOf(gen::arbitrary<airflow::plan::FanRule>(), 4)),
            gen::set(&FanControlPlan::tuning));
    }
};

template <>
struct Arbitrary<airflow::plan::FanPreset> {
    static Gen<airflow::plan::FanPreset> arbitrary() {
        using airflow::plan::FanPreset;
        return gen::build<FanPreset>(gen::set(&FanPreset::id),
                                     gen::set(&FanPreset::name, airflow::tests::unicodeTexts()),
                                     gen::set(&FanPreset::isBuiltIn), gen::set(&FanPreset::plan));
    }
};

template <>
struct Arbitrary<airflow::plan::AutoSwitchSettings> {
    static Gen<airflow::plan::AutoSwitchSettings> arbitrary() {
        using airflow::plan::AutoSwitchSettings, airflow::plan::UUID;
        using airflow::tests::optionally;
        return gen::build<AutoSwitchSettings>(
            gen::set(&AutoSwitchSettings::enabled),
            gen::set(&AutoSwitchSettings::onBatteryPresetID, optionally(gen::arbitrary<UUID>())),
            gen::set(&AutoSwitchSettings::onACPresetID, optionally(gen::arbitrary<UUID>())));
    }
};

}  // namespace rc

namespace airflow::plan {

/// How RapidCheck shows a counterexample: as the document it is.
template <typename Record>
    requires requires(const Record& record, json::Writer& writer) { record.encode(writer); }
void showValue(const Record& record, std::ostream& stream) {
    stream << json::encode(record).value_or("(has no JSON form)");
}

}  // namespace airflow::plan
