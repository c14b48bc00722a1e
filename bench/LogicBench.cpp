// What the control logic costs: one decode, one tick, one replayed line.
#include <benchmark/benchmark.h>

#include <array>
#include <sstream>
#include <string>

#include "evaluation/FanHoldPlanner.h"
#include "evaluation/PlanEvaluator.h"
#include "json/Decoder.h"
#include "json/Writer.h"
#include "smc/FourCharCode.h"
#include "smc/SMCValue.h"
#include "tool/replay/Replay.h"
#include "tool/replay/ReplayOutput.h"
#include "tool/replay/Trace.h"

namespace airflow {
namespace {

plan::UUID identifier(int n) {
    plan::UUID uuid;
    uuid.bytes[0] = static_cast<std::uint8_t>(n);
    return uuid;
}

plan::FanCurve curve(int points) {
    plan::FanCurve curve;
    for (int i = 0; i < points; ++i) {
        curve.points.push_back(
            {.id = identifier(i), .celsius = 40.5 + 7 * i, .percent = 12.25 * i});
    }
    return curve;
}

plan::FanControlPlan samplePlan(int fans, int points, int rules) {
    plan::FanControlPlan plan;
    for (int fan = 0; fan < fans; ++fan) {
        plan.fans.push_back({.fanID = fan, .mode = plan::FanControlModePlan::curve(curve(points))});
    }
    for (int rule = 0; rule < rules; ++rule) {
        plan.rules.push_back({.id = identifier(100 + rule),
                              .name = "Rule " + std::to_string(rule),
                              .sensorID = "HID-sensor number " + std::to_string(rule),
                              .thresholdCelsius = 70.0 + 5 * rule,
                              .releaseBelowCelsius = 60,
                              .targetPercent = 80,
                              .fanTarget = plan::RuleFanTarget::all(),
                              .dwellSeconds = 5,
                              .enabled = true});
    }
    return plan;
}

sensors::SensorSnapshot sampleSnapshot(int fans, int temps) {
    sensors::SensorSnapshot snapshot;
    for (int fan = 0; fan < fans; ++fan) {
        snapshot.fans.push_back({.id = fan,
                                 .name = "Fan " + std::to_string(fan),
                                 .currentRPM = 2000,
                                 .minRPM = 1200,
                                 .maxRPM = 6000,
                                 .mode = 1});
    }
    for (int temp = 0; temp < temps; ++temp) {
        const std::string label = "sensor number " + std::to_string(temp);
        snapshot.temps.push_back({.key = label,
                                  .name = label,
                                  .celsius = 50.25 + temp * 0.5,
                                  .category = sensors::SensorCategory::cpu,
                                  .source = sensors::SensorSource::hid});
    }
    return snapshot;
}

void decodePlan(benchmark::State& state) {
    const std::string text = *json::encode(samplePlan(2, 4, 3));
    for ([[maybe_unused]] const auto& step : state) {
        benchmark::DoNotOptimize(json::decode<plan::FanControlPlan>(text));
    }
    state.counters["bytes"] = static_cast<double>(text.size());
}
BENCHMARK(decodePlan);

void evaluateAndPlan(benchmark::State& state) {
    const auto plan = samplePlan(2, 8, 4);
    const auto snapshot = sampleSnapshot(2, 40);
    evaluation::PlanEvaluator evaluator;
    concurrency::Date now{};
    for ([[maybe_unused]] const auto& step : state) {
        now += concurrency::Seconds(1.5);
        const auto decisions = evaluator.evaluate(plan, snapshot, now);
        benchmark::DoNotOptimize(evaluation::FanHoldPlanner::actions(decisions, {0, 1}));
    }
}
BENCHMARK(evaluateAndPlan);

void decodeSMC(benchmark::State& state) {
    smc::SMCBytes bytes{};
    bytes[1] = 0x7F;
    const std::array types{smc::fourCharCode("flt "), smc::fourCharCode("ui8 "),
                           smc::fourCharCode("ui16"), smc::fourCharCode("ui32"),
                           smc::fourCharCode("fpe2"), smc::fourCharCode("sp78")};
    for ([[maybe_unused]] const auto& step : state) {
        for (const std::uint32_t type : types) {
            benchmark::DoNotOptimize(smc::decodeSMCValue(bytes, 4, type));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(types.size()));
}
BENCHMARK(decodeSMC);

/// A trace with every field on every line.
std::string sampleTrace(int ticks) {
    std::string text;
    for (int tick = 0; tick < ticks; ++tick) {
        std::string line = R"({"time":)" + std::to_string(tick * 1.5) + R"(,"fans":[)";
        for (int fan = 0; fan < 2; ++fan) {
            line += std::string(fan ? "," : "") + R"({"id":)" + std::to_string(fan) +
                    R"(,"minRPM":1200,"maxRPM":6000,"currentRPM":1200,"mode":0,"name":"Fan 0"})";
        }
        line += R"(],"temps":[)";
        for (int temp = 0; temp < 8; ++temp) {
            line += std::string(temp ? "," : "") + R"({"key":"TC)" + std::to_string(10 + temp) +
                    R"(","source":"SMC","celsius":)" +
                    std::to_string(50 + (tick * 7 + temp * 13) % 400 * 0.1) +
                    R"(,"name":"CPU cluster","category":"CPU"})";
        }
        text += line + "]}\n";
    }
    return text;
}

void replayLines(benchmark::State& state) {
    constexpr int ticks = 2000;
    const std::string trace = sampleTrace(ticks);
    const auto plan = samplePlan(2, 8, 4);
    for ([[maybe_unused]] const auto& step : state) {
        std::istringstream in(trace);
        std::ostringstream out;
        tool::TraceReader reader(in, "trace");
        tool::ReplayJSONLines output(out, plan);
        tool::Replay replay(plan);
        for (auto tick = reader.next(); tick && *tick; tick = reader.next()) {
            const auto result = replay.step((*tick)->snapshot);
            if (!output.write(**tick, result)) state.SkipWithError("not written");
        }
        benchmark::DoNotOptimize(out);
    }
    state.SetItemsProcessed(state.iterations() * ticks);
}
BENCHMARK(replayLines)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace airflow
