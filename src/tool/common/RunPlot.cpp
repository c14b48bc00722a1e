#include "tool/common/RunPlot.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <ostream>

#include "text/Text.h"

namespace airflow::tool {

namespace {

constexpr std::size_t panelRows = 5;
constexpr std::size_t labelColumns = 7;
constexpr std::size_t fewestColumns = 40;

/// Of all series; never empty, so that a line that does not change lies in the middle.
RunPlot::Range rangeOf(const std::vector<const TimeSeries*>& series) {
    RunPlot::Range range;
    for (const TimeSeries* const each : series) {
        for (const TimeSeries::Span& span : each->all()) {
            range.low = std::min(range.low, span.low);
            range.high = std::max(range.high, span.high);
        }
    }
    if (!(range.low < range.high)) return {.low = range.low - 1, .high = range.high + 1};
    return range;
}

double dotRowOf(double value, const RunPlot::Range& range, std::size_t dots) {
    return (value - range.low) / (range.high - range.low) * static_cast<double>(dots - 1);
}

/// What no sensor and no fan shows is left out.
void addTo(TimeSeries& series, double time, std::optional<double> value) {
    constexpr double mostThatIsDrawn = 99'999;
    const bool isDrawn = value && std::abs(*value) <= mostThatIsDrawn;
    if (isDrawn)
        series.add(time, *value);
    else
        series.interrupt();
}

std::string shortened(const std::string& line, std::size_t columns) {
    return text::columnsOf(line) > columns ? text::padded(line, columns) : line;
}

/// As an axis shows it, in twelve characters at most.
std::string secondsText(double seconds) {
    constexpr double longest = 1e8;
    return std::abs(seconds) < longest ? fmt::format("{:.1f} s", seconds)
                                       : fmt::format("{:.1e} s", seconds);
}

std::string rowLabel(std::size_t row, const RunPlot::Range& range) {
    const double steps = static_cast<double>(panelRows - 1);
    const double value = range.high - (range.high - range.low) * static_cast<double>(row) / steps;
    const bool isLabelled = row == 0 || row == panelRows - 1 || row == panelRows / 2;
    return isLabelled ? fmt::format("{:>{}.0f}", value, labelColumns - 1)
                      : std::string(labelColumns - 1, ' ');
}

}  // namespace

void RunPlot::add(const RunFigures::Sample& sample) {
    if (isEmpty) begin = end = sample.time;
    isEmpty = false;
    end = std::max(end, sample.time);
    addTo(celsius, sample.time, sample.celsius);
    for (auto& [index, series] : fans) {
        if (sample.fans.contains(index)) continue;
        series.speed.interrupt();
        series.target.interrupt();
    }
    for (const auto& [index, fan] : sample.fans) {
        FanSeries& series = fans[index];
        addTo(series.speed, sample.time, fan.rpm);
        addTo(series.target, sample.time,
              fan.isForced ? std::optional(fan.targetRPM) : std::nullopt);
    }
}

void RunPlot::event(double time, const std::string& text) {
    eventTimes.add(time, 0);
    if (eventCount++ < listedEvents) events.push_back({.time = time, .text = text});
}

std::size_t RunPlot::dotColumnAt(double time, std::size_t dots) const {
    const double length = end - begin;
    const double share = length > 0 ? std::clamp((time - begin) / length, 0.0, 1.0) : 0;
    return static_cast<std::size_t>(share * static_cast<double>(dots - 1));
}

/// A line through the spans; a jump within a column is drawn as a vertical line.
void RunPlot::draw(const TimeSeries& series, const Range& range, text::BraillePlot& plot) const {
    struct Dot {
        std::size_t column = 0;
        double row = 0;
    };
    std::optional<Dot> last;
    const auto lineTo = [&](double time, double value) {
        const Dot dot{.column = dotColumnAt(time, plot.dotColumns()),
                      .row = dotRowOf(value, range, plot.dotRows())};
        const bool isBackwards = last && dot.column < last->column;  // in a trace that is lenient
        const Dot from = isBackwards ? dot : last.value_or(dot);
        const double columns = std::max(1.0, static_cast<double>(dot.column - from.column));
        double before = from.row;
        for (std::size_t column = from.column; column <= dot.column; ++column) {
            const double share = static_cast<double>(column - from.column) / columns;
            const double row =
                column == dot.column ? dot.row : from.row + share * (dot.row - from.row);
            plot.fill(column, static_cast<std::size_t>(std::lround(std::min(before, row))),
                      static_cast<std::size_t>(std::lround(std::max(before, row))));
            before = row;
        }
        last = dot;
    };
    for (const TimeSeries::Span& span : series.all()) {
        if (span.isApart) last.reset();
        lineTo(span.from, span.low);
        if (span.high != span.low) lineTo(span.to, span.high);
    }
}

void RunPlot::writePanel(std::ostream& out, const std::string& title,
                         const std::vector<const TimeSeries*>& series, std::size_t columns) const {
    const Range range = rangeOf(series);
    text::BraillePlot plot(columns, panelRows);
    for (const TimeSeries* const each : series) draw(*each, range, plot);
    out << title << '\n';
    const auto lines = plot.lines();
    for (std::size_t row = 0; row < lines.size(); ++row) {
        out << rowLabel(row, range) << "│" << lines[row] << '\n';
    }
}

void RunPlot::writeEvents(std::ostream& out, std::size_t columns) const {
    std::string axis;
    std::vector<bool> isMarked(columns);
    for (const TimeSeries::Span& span : eventTimes.all()) {
        isMarked[dotColumnAt(span.from, columns)] = true;
    }
    for (const bool mark : isMarked) axis += mark ? "▲" : "─";
    out << std::string(labelColumns - 1, ' ') << "└" << axis << '\n';
    const auto last = secondsText(end);
    const auto first = secondsText(begin);
    out << std::string(labelColumns, ' ')
        << fmt::format("{}{:>{}}", first, last,
                       columns > first.size() ? columns - first.size() : last.size())
        << '\n';
    for (const Event& event : events) {
        const auto line =
            fmt::format("  {:>12}  {}", secondsText(event.time), text::printable(event.text));
        out << shortened(line, columns + labelColumns) << '\n';
    }
    if (eventCount > events.size())
        out << fmt::format("              and {} more\n", eventCount - events.size());
}

void RunPlot::write(std::ostream& out, std::size_t columns) const {
    if (isEmpty) return;
    const std::size_t wide = std::max(columns, fewestColumns) - labelColumns;
    if (!celsius.isEmpty()) writePanel(out, "hottest, °C", {&celsius}, wide);
    for (const auto& [index, fan] : fans) {
        const bool showsBoth = !fan.target.isEmpty();
        writePanel(out, fmt::format("fan {}, RPM", index),
                   showsBoth ? std::vector{&fan.speed, &fan.target} : std::vector{&fan.speed},
                   wide);
    }
    writeEvents(out, wide);
}

std::size_t plotColumns() {
    constexpr std::size_t usual = 80;
    winsize size{};
    const bool isTerminal = isatty(STDOUT_FILENO) == 1;
    if (!isTerminal || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return usual;
    return size.ws_col;
}

}  // namespace airflow::tool
