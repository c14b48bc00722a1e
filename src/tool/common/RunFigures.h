// RunFigures: what a run came to, in the figures by which plans are compared.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <map>
#include <optional>
#include <string>

#include "concurrency/Date.h"
#include "json/Writer.h"

namespace airflow::tool {

/// Fed with samples in the order of time. Each counts until the next one; of the last one only what
/// it shows counts. Uses as much memory as one sample.
class RunFigures {
public:
    struct FanSample {
        double rpm = 0;  ///< RPM
        double minRPM = 0;
        double maxRPM = 0;
        bool isForced = false;
        double targetRPM = 0;  ///< RPM; of a forced fan
    };
    struct Sample {
        double time = 0;                  ///< seconds from any origin
        std::optional<double> celsius{};  ///< the hottest reading
        std::map<std::int64_t, FanSample> fans{};
    };
    /// Of one fan.
    struct FanFigures {
        double meanRPM = 0;  ///< over the time in which the fan was there
        double topRPM = 0;
        double loudSeconds = 0;  ///< above `loudPercent` of its range
        std::int64_t starts = 0;
        std::int64_t stops = 0;
        double changesPerMinute = 0;  ///< of its target, under control, by `changePercent` or more
    };

    /// A fan is heard over other things from about here on.
    static constexpr double loudPercent = 60;
    /// Smaller steps are not heard.
    static constexpr double changePercent = 1;

    void add(const Sample& sample);
    /// A fan was given back to the firmware.
    void released(const std::string& cause, std::int64_t times = 1) {
        releaseCounts[cause] += times;
    }

    [[nodiscard]] std::optional<double> hottest() const { return hottestCelsius; }
    [[nodiscard]] double seconds() const { return length; }
    [[nodiscard]] double controlledSeconds() const { return controlled; }
    [[nodiscard]] std::map<std::int64_t, FanFigures> fans() const;
    [[nodiscard]] const std::map<std::string, std::int64_t>& releases() const {
        return releaseCounts;
    }

    /// Some lines for people.
    void write(std::ostream& out) const;
    void encode(json::Writer& writer) const;

private:
    struct Fan {
        std::optional<FanSample> last{};
        double seconds = 0;
        double turns = 0;  ///< RPM times seconds
        double topRPM = 0;
        double loudSeconds = 0;
        double forcedSeconds = 0;
        std::int64_t starts = 0;
        std::int64_t stops = 0;
        std::int64_t changes = 0;
    };

    static void take(Fan& fan, const FanSample& sample);

    std::optional<double> lastTime;
    double length = 0;
    double controlled = 0;
    std::optional<double> hottestCelsius;
    std::map<std::int64_t, Fan> fanRecords;
    std::map<std::string, std::int64_t> releaseCounts;
};

}  // namespace airflow::tool
