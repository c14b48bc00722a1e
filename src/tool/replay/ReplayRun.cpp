#include "tool/replay/ReplayRun.h"

#include "tool/common/ReleaseCause.h"

namespace airflow::tool {

RunFigures::Sample ReplayRun::sampleOf(const TraceTick& tick, const ReplayTick& result) {
    RunFigures::Sample sample{.time = tick.time};
    if (const auto hottest = tick.snapshot.hottest()) sample.celsius = hottest->celsius;
    for (const sensors::Fan& fan : tick.snapshot.fans) {
        const auto found = result.fans.find(fan.id);
        const bool isForced = found != result.fans.end() && found->second.isForced;
        const double target = isForced ? found->second.targetRPM : 0;
        sample.fans[fan.id] = {.rpm = isForced ? target : static_cast<double>(fan.currentRPM),
                               .minRPM = static_cast<double>(fan.minRPM),
                               .maxRPM = static_cast<double>(fan.maxRPM),
                               .isForced = isForced,
                               .targetRPM = target};
    }
    return sample;
}

ReplayRun::Done ReplayRun::play() {
    for (;; ++count) {
        const auto tick = trace.next();
        if (!tick) return std::unexpected(tick.error());
        if (!*tick) break;
        if (auto sound = judge(**tick); !sound) return sound;
        const ReplayTick result = replay.step((*tick)->snapshot);
        made.add(sampleOf(**tick, result));
        if (!result.released.empty()) {
            const auto cause =
                result.state.cause ? releaseCause(*result.state.cause) : std::nullopt;
            made.released(cause.value_or("the plan itself"),
                          static_cast<std::int64_t>(result.released.size()));
        }
        if (!shown) continue;
        if (auto done = shown(**tick, result); !done) return done;
    }
    if (count == 0) return std::unexpected(trace.place() + ": the trace is empty");
    return {};
}

ReplayRun::Done ReplayRun::judge(const TraceTick& tick) {
    for (const std::string& problem : problems.find(tick)) {
        const auto told = trace.place() + ": " + problem;
        if (!tolerated) return std::unexpected(told);
        tolerated(told);
    }
    return {};
}

}  // namespace airflow::tool
