// AccessLog: when each write reached the simulated SMC.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "ControllerHarness.h"

namespace airflow::control {

/// Notes the writes from its making on, beside the harness that must outlive it.
class AccessLog {
public:
    explicit AccessLog(ControllerHarness& watched)
        : harness(watched), start(watched.system.elapsed()) {
        auto& observer = harness.mac().smc().observer;
        observer = [this, inner = std::move(observer)](const simulation::SMCAccess& access) {
            inner(access);
            if (access.operation != simulation::Fault::Operation::write) return;
            entries.emplace_back(milliseconds(access.time - start), harness.writes.back());
        };
    }
    AccessLog(const AccessLog&) = delete;
    AccessLog& operator=(const AccessLog&) = delete;

    /// When `write`, in the harness's notation, happened: milliseconds since this log was made.
    [[nodiscard]] std::vector<std::int64_t> timesOf(const std::string& write) const {
        std::vector<std::int64_t> times;
        for (const auto& [time, text] : entries) {
            if (text == write) times.push_back(time);
        }
        return times;
    }
    [[nodiscard]] std::int64_t now() const {
        return milliseconds(harness.system.elapsed() - start);
    }

private:
    static std::int64_t milliseconds(concurrency::Duration duration) {
        return std::chrono::duration_cast<std::chrono::milliseconds>(duration).count();
    }

    ControllerHarness& harness;
    concurrency::Duration start;
    std::vector<std::pair<std::int64_t, std::string>> entries;
};

/// The SMC answers writes of `value` to `key` with `result`, until a time of the machine.
inline void refuse(ControllerHarness& harness, const std::string& key, double value,
                   std::uint8_t result, concurrency::Duration until = concurrency::Duration::max(),
                   concurrency::Duration from = {}) {
    harness.mac().smc().add(simulation::Fault{
        .from = from, .until = until, .key = key, .value = value, .result = result});
}

/// The kernel refuses writes of `value` to `key`, until a time of the machine.
inline void breakCalls(ControllerHarness& harness, const std::string& key, double value,
                       std::uint32_t kernelReturn,
                       concurrency::Duration until = concurrency::Duration::max()) {
    harness.mac().smc().add(
        simulation::Fault{.until = until,
                          .key = key,
                          .value = value,
                          .kernelReturn = static_cast<std::int32_t>(kernelReturn)});
}

/// Holds both fans, and forgets what was written and published until then.
inline void holdBothFans(ControllerHarness& harness) {
    (void)harness.run(harness.controller().setManual(0_fan, 3000_rpm));
    (void)harness.run(harness.controller().setManual(1_fan, 4000_rpm));
    harness.writes.clear();
    harness.published.clear();
}

}  // namespace airflow::control
