// AccessLog: when each write reached the simulated SMC.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "ControllerBench.h"

namespace airflow::control {

/// Notes the writes from its making on, beside the bench that must outlive it.
class AccessLog {
public:
    explicit AccessLog(ControllerBench& watched) : bench(watched), start(watched.system.elapsed()) {
        auto& observer = bench.mac().smc().observer;
        observer = [this, inner = std::move(observer)](const simulation::SMCAccess& access) {
            inner(access);
            if (access.operation != simulation::Fault::Operation::write) return;
            entries.emplace_back(milliseconds(access.time - start), bench.writes.back());
        };
    }
    AccessLog(const AccessLog&) = delete;
    AccessLog& operator=(const AccessLog&) = delete;

    /// When `write`, in the bench's notation, happened: milliseconds since this log was made.
    [[nodiscard]] std::vector<std::int64_t> timesOf(const std::string& write) const {
        std::vector<std::int64_t> times;
        for (const auto& [time, text] : entries) {
            if (text == write) times.push_back(time);
        }
        return times;
    }
    [[nodiscard]] std::int64_t now() const { return milliseconds(bench.system.elapsed() - start); }

private:
    static std::int64_t milliseconds(concurrency::Duration duration) {
        return std::chrono::duration_cast<std::chrono::milliseconds>(duration).count();
    }

    ControllerBench& bench;
    concurrency::Duration start;
    std::vector<std::pair<std::int64_t, std::string>> entries;
};

/// The SMC answers writes of `value` to `key` with `result`, until a time of the machine.
inline void refuse(ControllerBench& bench, const std::string& key, double value,
                   std::uint8_t result, concurrency::Duration until = concurrency::Duration::max(),
                   concurrency::Duration from = {}) {
    bench.mac().smc().add(simulation::Fault{
        .from = from, .until = until, .key = key, .value = value, .result = result});
}

/// The kernel refuses writes of `value` to `key`, until a time of the machine.
inline void breakCalls(ControllerBench& bench, const std::string& key, double value,
                       std::uint32_t kernelReturn,
                       concurrency::Duration until = concurrency::Duration::max()) {
    bench.mac().smc().add(
        simulation::Fault{.until = until,
                          .key = key,
                          .value = value,
                          .kernelReturn = static_cast<std::int32_t>(kernelReturn)});
}

}  // namespace airflow::control
