// RunPlot: a run as a picture for the terminal: the hottest temperature, and each fan.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "text/BraillePlot.h"
#include "tool/common/RunFigures.h"
#include "tool/common/TimeSeries.h"

namespace airflow::tool {

/// Takes the samples that RunFigures takes. Memory does not grow with the run.
class RunPlot {
public:
    /// So many events are listed; of the others only the number.
    static constexpr std::size_t listedEvents = 12;

    /// From the least value that is shown to the greatest.
    struct Range {
        double low = std::numeric_limits<double>::infinity();
        double high = -std::numeric_limits<double>::infinity();
    };

    void add(const RunFigures::Sample& sample);
    void event(double time, const std::string& text);

    /// Draws everything in lines of at most `columns` characters (40 at least).
    void write(std::ostream& out, std::size_t columns) const;

private:
    struct Event {
        double time = 0;
        std::string text;
    };
    struct FanSeries {
        TimeSeries speed{};
        TimeSeries target{};  ///< while forced
    };

    void draw(const TimeSeries& series, const Range& range, text::BraillePlot& plot) const;
    void writePanel(std::ostream& out, const std::string& title,
                    const std::vector<const TimeSeries*>& series, std::size_t columns) const;
    void writeEvents(std::ostream& out, std::size_t columns) const;
    [[nodiscard]] std::size_t dotColumnAt(double time, std::size_t dots) const;

    double begin = 0;
    double end = 0;
    bool isEmpty = true;
    TimeSeries celsius;
    std::map<std::int64_t, FanSeries> fans;
    TimeSeries eventTimes;
    std::vector<Event> events;
    std::size_t eventCount = 0;
};

/// How wide the terminal is that `out` writes to: the standard output's, when it is one, or 80.
[[nodiscard]] std::size_t plotColumns();

}  // namespace airflow::tool
