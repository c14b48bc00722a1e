#include "tool/client/WatchView.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <set>
#include <string_view>

#include "text/Text.h"
#include "tool/client/HelperAnswer.h"

namespace airflow::tool {

namespace {

constexpr std::size_t longestSparkline = 30;

/// One fan, as daemon and machine together tell.
struct FanSight {
    std::int64_t id = 0;
    std::string mode = "—";
    std::string target{};  ///< "3000 RPM", "stopped"; empty when there is none
    std::optional<double> rpm{};
    std::optional<double> maxRPM{};
};

FanSight fanSight(const Sight& sight, std::int64_t id) {
    FanSight fan{.id = id};
    if (sight.machine) {
        const auto found = std::ranges::find(sight.machine->fans, id, &MachineSight::Fan::id);
        if (found != sight.machine->fans.end()) {
            fan.mode = found->mode;
            fan.rpm = found->rpm;
            fan.maxRPM = found->maxRPM;
        }
    }
    if (!sight.state) return fan;
    const auto mode = sight.state->perFanMode.find(id);
    if (mode != sight.state->perFanMode.end()) fan.mode = nameOf(mode->second);
    fan.target = targetText(*sight.state, id);
    return fan;
}

std::vector<FanSight> fanSights(const Sight& sight) {
    std::set<std::int64_t> ids;
    if (sight.state) {
        for (const auto& [id, mode] : sight.state->perFanMode) ids.insert(id);
        for (const auto& [id, target] : sight.state->targets) ids.insert(id);
    }
    if (sight.machine) {
        for (const MachineSight::Fan& fan : sight.machine->fans) ids.insert(fan.id);
    }
    std::vector<FanSight> fans;
    for (const std::int64_t id : ids) fans.push_back(fanSight(sight, id));
    return fans;
}

std::string holdText(const Sight& sight) {
    if (!sight.state) return sight.trouble.empty() ? "" : text::printable(sight.trouble);
    return sight.state->isHolding ? "held" : "not held";
}

std::string fanText(const FanSight& fan) {
    std::string text = fmt::format("fan {}  {}", fan.id, text::padded(fan.mode, 10));
    if (fan.rpm && fan.maxRPM && *fan.maxRPM > 0) text += "  " + barText(*fan.rpm / *fan.maxRPM);
    if (fan.rpm) text += fmt::format("  {:>5.0f} RPM", *fan.rpm);
    if (!fan.target.empty()) text += "  → " + fan.target;
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

std::string clipped(const std::string& text, std::size_t columns) {
    return text::columnsOf(text) > columns ? text::padded(text, columns) : text;
}

}  // namespace

void WatchView::add(Sight sight) {
    last = std::move(sight);
    if (!last.machine) return;
    for (const auto& [name, celsius] : last.machine->temperatures) {
        std::vector<double>& history = readings[name];
        history.push_back(celsius);
        if (history.size() > longestSparkline) history.erase(history.begin());
    }
}

std::vector<std::string> WatchView::frame(std::size_t columns, std::size_t rows) const {
    std::vector<std::string> lines{fmt::format("{:.1f} s  {}", last.seconds, holdText(last))};
    for (const FanSight& fan : fanSights(last)) lines.push_back(fanText(fan));
    std::vector<std::string> end;
    if (last.state && last.state->lastError) {
        end.push_back("last error: " + text::printable(*last.state->lastError));
    }
    if (last.state && last.state->isHolding) {
        end.emplace_back("The end of this view gives the fans back to Auto.");
    }
    if (last.machine) {
        const auto& temperatures = last.machine->temperatures;
        const std::size_t taken = lines.size() + end.size();
        const std::size_t room = rows > taken ? rows - taken : 0;
        const bool allFit = temperatures.size() <= room;
        const std::size_t shown = allFit ? temperatures.size() : std::max<std::size_t>(room, 1) - 1;
        for (std::size_t index = 0; index < shown; ++index) {
            const auto& [name, celsius] = temperatures[index];
            lines.push_back(fmt::format("{}  {:>5.1f} °C  {}",
                                        text::padded(text::printable(name), 20), celsius,
                                        sparkline(readings.at(name))));
        }
        if (!allFit) lines.push_back(fmt::format("and {} more", temperatures.size() - shown));
    }
    lines.insert(lines.end(), end.begin(), end.end());
    lines.resize(std::min(lines.size(), rows));
    for (std::string& line : lines) line = clipped(line, columns);
    return lines;
}

std::string WatchView::line() const {
    std::string text = fmt::format("{:.1f} s  {}", last.seconds, holdText(last));
    for (const FanSight& fan : fanSights(last)) {
        text += fmt::format("  fan {} {}", fan.id, fan.mode);
        if (!fan.target.empty()) text += " → " + fan.target;
        if (fan.rpm) text += fmt::format(" ({:.0f} RPM)", *fan.rpm);
    }
    if (last.machine && !last.machine->temperatures.empty()) {
        const auto hottest = std::ranges::max_element(last.machine->temperatures, {},
                                                      &std::pair<std::string, double>::second);
        text += fmt::format("  {} {:.1f} °C", text::printable(hottest->first), hottest->second);
    }
    if (last.state && last.state->lastError) {
        text += "  last error: " + text::printable(*last.state->lastError);
    }
    return text;
}

std::string barText(double share) {
    constexpr int width = 20;
    const int filled = static_cast<int>(std::lround(std::clamp(share, 0.0, 1.0) * width));
    std::string text;
    for (int cell = 0; cell < width; ++cell) text += cell < filled ? "█" : "░";
    return text;
}

std::string sparkline(const std::vector<double>& celsius) {
    constexpr std::array<std::string_view, 8> steps{"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    std::string text;
    for (const double each : celsius) {
        const double step = std::clamp(std::floor((each - 30) / 10), 0.0, 7.0);
        text += steps.at(static_cast<std::size_t>(step));
    }
    return text;
}

}  // namespace airflow::tool
