#include "tool/replay/ExplainCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <ostream>

#include "json/Decoder.h"
#include "simulation/machine/MachineDescription.h"
#include "smc/FanNumbers.h"
#include "text/Text.h"
#include "tool/common/JSONLine.h"
#include "tool/plans/PlanFile.h"
#include "tool/replay/Explanation.h"
#include "tool/replay/ReplayRun.h"

namespace airflow::tool {

namespace {

template <typename T>
using Result = std::expected<T, std::string>;

/// A finite number, as JSON has it.
template <typename Number>
std::optional<Number> parsed(std::string_view text) {
    const auto number = json::decode<Number>(text);
    return number ? std::optional(*number) : std::nullopt;
}

Result<sensors::TempSensor> parseTemperature(const std::string& text) {
    const auto fail = [&text](std::string_view reason) {
        return std::unexpected(fmt::format("{}: {}", text::printable(text), reason));
    };
    const auto equals = text.rfind('=');
    const auto hyphen = text.find('-');
    if (equals == std::string::npos || hyphen == std::string::npos || hyphen > equals)
        return fail("expected SMC-KEY=°C or HID-LABEL=°C");
    const auto source = sensors::sourceFromRawValue(text.substr(0, hyphen));
    const auto celsius = parsed<double>(std::string_view(text).substr(equals + 1));
    if (!source) return fail("a sensor's name begins with SMC- or HID-");
    if (!celsius) return fail("expected a temperature in °C after =");
    const auto key = text.substr(hyphen + 1, equals - hyphen - 1);
    if (key.empty()) return fail("the sensor has no name");
    return sensors::TempSensor{.key = key, .name = key, .celsius = *celsius, .source = *source};
}

Result<Situation> situationAt(const plan::FanControlPlan& plan, const ExplainOptions& options) {
    const auto machine = simulation::machinePreset(options.machine);
    if (!machine) return std::unexpected("There is no machine " + options.machine + ".");
    Situation situation{.memory = {}, .plan = plan, .snapshot = {}, .now = concurrency::Date()};
    for (std::size_t i = 0; i < machine->fans.size(); ++i) {
        situation.snapshot.fans.push_back(
            {.id = static_cast<std::int64_t>(i),
             .name = fmt::format("Fan {}", i),
             .minRPM = static_cast<std::int64_t>(machine->fans[i].minRPM),
             .maxRPM = static_cast<std::int64_t>(machine->fans[i].maxRPM),
             .mode = {}});
    }
    for (const std::string& text : options.temperatures) {
        auto sensor = parseTemperature(text);
        if (!sensor) return std::unexpected(sensor.error());
        const auto& temps = situation.snapshot.temps;
        if (std::ranges::find(temps, sensor->id(), &sensors::TempSensor::id) != temps.end())
            return std::unexpected("There are two sensors " + text::printable(sensor->id()) + ".");
        situation.snapshot.temps.push_back(std::move(*sensor));
    }
    return situation;
}

/// That of the last line that is not after the moment.
Result<Situation> situationInTrace(const plan::FanControlPlan& plan, const ExplainOptions& options,
                                   std::istream& in, std::ostream& err) {
    const std::string& path = *options.trace;
    std::ifstream file;
    if (path != "-") {
        if (const auto reason = openFile(path, file))
            return std::unexpected(
                fmt::format("{}: cannot be read: {}", text::printable(path), *reason));
    }
    TraceReader trace(path == "-" ? in : file, inputName(path));
    ReplayRun run(plan, trace);
    std::optional<ReplayTick> last;
    bool isPast = false;
    run.shown = [&](const TraceTick& tick, const ReplayTick& result) -> Result<void> {
        isPast = tick.time > options.seconds;
        if (isPast) return std::unexpected(std::string());
        last = result;
        return {};
    };
    if (options.isLenient)
        run.tolerated = [&err](const std::string& problem) { err << problem << '\n'; };
    const auto played = run.play();
    if (!played && !isPast) return std::unexpected(played.error());
    if (!last)
        return std::unexpected(fmt::format("{}: begins after {} s",
                                           text::printable(inputName(path)),
                                           text::plain(options.seconds)));
    if (last->situation) return std::move(*last->situation);
    return std::unexpected(fmt::format(
        "{}: nothing is decided at {} s: {}", text::printable(inputName(path)),
        text::plain(options.seconds),
        last->state.lastError.value_or("the plan manages no fan, so the daemon controls none")));
}

}  // namespace

Result<FanAtTime> FanAtTime::parse(std::string_view text) {
    const auto at = text.find('@');
    const bool isWhole = at != std::string_view::npos;
    const auto fan = isWhole ? parsed<std::int64_t>(text.substr(0, at)) : std::nullopt;
    const auto seconds = isWhole ? parsed<double>(text.substr(at + 1)) : std::nullopt;
    if (!fan || !seconds) return std::unexpected("expected a fan and seconds, such as 0@37.5");
    if (!smc::isNameable(*fan)) return std::unexpected("fans are numbered from 0 to 9");
    return FanAtTime{.fan = *fan, .seconds = *seconds};
}

int explainSituation(const Situation& situation, std::optional<std::int64_t> fan,
                     ExplainFormat format, std::ostream& out, std::ostream& err) {
    std::vector<Explanation> explanations;
    for (const auto& [index, record] : situation.record().fans) {
        if (fan && *fan != index) continue;
        if (auto explanation = Explanation::of(situation, index))
            explanations.push_back(std::move(*explanation));
    }
    if (explanations.empty()) {
        err << (fan ? fmt::format("Nothing is decided for fan {}: the plan does not plan it, or "
                                  "the machine lacks it.\n",
                                  *fan)
                    : std::string("Nothing is decided: the plan plans no fan of the machine.\n"));
        return 1;
    }
    if (format == ExplainFormat::text) {
        for (const Explanation& explanation : explanations) explanation.write(out);
        return 0;
    }
    return writeJSONLine([&](json::Writer& writer) { writer.member("fans", explanations); }, out,
                         err);
}

int explain(const ExplainOptions& options, std::istream& in, std::ostream& out, std::ostream& err) {
    const auto plan = readPlanBeside(options.plan, options.trace.value_or(""), in);
    if (!plan) {
        err << plan.error() << '\n';
        return 1;
    }
    const auto situation =
        options.trace ? situationInTrace(*plan, options, in, err) : situationAt(*plan, options);
    if (!situation) {
        err << situation.error() << '\n';
        return 1;
    }
    return explainSituation(*situation, options.fan, options.format, out, err);
}

}  // namespace airflow::tool
