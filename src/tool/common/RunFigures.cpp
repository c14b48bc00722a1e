#include "tool/common/RunFigures.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <ostream>

#include "text/Table.h"
#include "text/Text.h"

namespace airflow::tool {

namespace {

bool isLoud(const RunFigures::FanSample& fan) {
    const double range = fan.maxRPM - fan.minRPM;
    return fan.rpm > fan.minRPM + range * RunFigures::loudPercent / 100;
}

/// A fan takes a while to run down, and is not heard any more when it hardly turns.
bool standsStill(const RunFigures::FanSample& fan) {
    return fan.rpm <= fan.minRPM / 10;
}

bool hasChanged(const RunFigures::FanSample& before, const RunFigures::FanSample& now) {
    if (!before.isForced || !now.isForced) return false;
    const double step = (now.maxRPM - now.minRPM) * RunFigures::changePercent / 100;
    const double change = std::abs(now.targetRPM - before.targetRPM);
    return change > 0 && change >= step;
}

}  // namespace

void RunFigures::add(const Sample& sample) {
    const double since = lastTime ? std::max(0.0, sample.time - *lastTime) : 0;
    lastTime = sample.time;
    length += since;
    const auto isForced = [](const auto& entry) {
        return entry.second.last && entry.second.last->isForced;
    };
    if (std::ranges::any_of(fanRecords, isForced)) controlled += since;
    const bool isNumber = sample.celsius && !std::isnan(*sample.celsius);
    if (isNumber) hottestCelsius = std::max(hottestCelsius, sample.celsius);
    for (auto& [index, fan] : fanRecords) {
        if (!fan.last) continue;
        fan.seconds += since;
        fan.turns += fan.last->rpm * since;
        if (isLoud(*fan.last)) fan.loudSeconds += since;
        if (fan.last->isForced) fan.forcedSeconds += since;
        if (!sample.fans.contains(index)) fan.last.reset();
    }
    for (const auto& [index, shown] : sample.fans) take(fanRecords[index], shown);
}

void RunFigures::take(Fan& fan, const FanSample& sample) {
    fan.topRPM = std::max(fan.topRPM, sample.rpm);
    if (fan.last) {
        if (standsStill(*fan.last) && !standsStill(sample)) ++fan.starts;
        if (!standsStill(*fan.last) && standsStill(sample)) ++fan.stops;
        if (hasChanged(*fan.last, sample)) ++fan.changes;
    }
    fan.last = sample;
}

std::map<std::int64_t, RunFigures::FanFigures> RunFigures::fans() const {
    constexpr double minute = 60;
    std::map<std::int64_t, FanFigures> figures;
    for (const auto& [index, fan] : fanRecords) {
        const double only = fan.last ? fan.last->rpm : 0;  // of a single sample
        const auto changes = static_cast<double>(fan.changes);
        figures[index] = {
            .meanRPM = fan.seconds > 0 ? fan.turns / fan.seconds : only,
            .topRPM = fan.topRPM,
            .loudSeconds = fan.loudSeconds,
            .starts = fan.starts,
            .stops = fan.stops,
            .changesPerMinute = fan.forcedSeconds > 0 ? changes * minute / fan.forcedSeconds : 0};
    }
    return figures;
}

void RunFigures::write(std::ostream& out) const {
    using Align = text::Table::Align;
    out << fmt::format("hottest        {}\n",
                       hottestCelsius ? fmt::format("{:.1f} °C", *hottestCelsius) : "—");
    out << fmt::format("under control  {:.1f} of {:.1f} s\n", controlled, length);
    if (releaseCounts.empty()) out << "releases       none\n";
    for (const auto& [cause, count] : releaseCounts) {
        out << fmt::format("releases       {} × {}\n", count, text::printable(cause));
    }
    text::Table table({{"", Align::left},
                       {"mean RPM", Align::right},
                       {"top RPM", Align::right},
                       {fmt::format("min above {:.0f} %", loudPercent), Align::right},
                       {"starts", Align::right},
                       {"stops", Align::right},
                       {"changes a minute", Align::right}});
    for (const auto& [index, fan] : fans()) {
        table.add({fmt::format("fan {}", index), fmt::format("{:.0f}", fan.meanRPM),
                   fmt::format("{:.0f}", fan.topRPM), fmt::format("{:.1f}", fan.loudSeconds / 60),
                   std::to_string(fan.starts), std::to_string(fan.stops),
                   fmt::format("{:.1f}", fan.changesPerMinute)});
    }
    table.write(out);
}

void RunFigures::encode(json::Writer& writer) const {
    writer.object([&] {
        if (hottestCelsius && std::isfinite(*hottestCelsius))
            writer.member("hottestCelsius", *hottestCelsius);
        writer.member("seconds", length);
        writer.member("controlledSeconds", controlled);
        writer.objectMember("releases", [&] {
            for (const auto& [cause, count] : releaseCounts) writer.member(cause, count);
        });
        writer.objectMember("fans", [&] {
            for (const auto& [index, fan] : fans()) {
                writer.objectMember(std::to_string(index), [&] {
                    writer.member("meanRPM", fan.meanRPM);
                    writer.member("topRPM", fan.topRPM);
                    writer.member("loudSeconds", fan.loudSeconds);
                    writer.member("starts", fan.starts);
                    writer.member("stops", fan.stops);
                    writer.member("changesPerMinute", fan.changesPerMinute);
                });
            }
        });
    });
}

}  // namespace airflow::tool
