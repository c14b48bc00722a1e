// Witness: what can be seen of one run of the whole daemon, and what the oracle makes of it.
#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/OracleObserver.h"

namespace airflow::simulation {

class Witness final : public tests::OracleObserver {
public:
    using OracleObserver::OracleObserver;

    /// The machine at a second of the run: of each fan the speed that it is forced to, or "auto";
    /// after them "Ftst" if that is on. "3000 auto Ftst".
    [[nodiscard]] const std::string& machineAt(std::size_t second) const {
        return machine.at(second);
    }
    /// The same at the end of the run.
    [[nodiscard]] const std::string& machineAtEnd() const { return machine.back(); }
    /// The result of the command of this name that was answered first; "no answer" without one.
    [[nodiscard]] std::string answerTo(std::string_view method) const {
        const auto found = answers.find(std::string(method));
        return found == answers.end() ? "no answer" : found->second;
    }

    std::optional<control::ControlState> read;  ///< by the last readState
    std::vector<control::ControlState> states;  ///< as they were published
    std::vector<ProcessEnd> ends;               ///< of the daemon's lives
    std::vector<std::string> log;               ///< lines
    concurrency::Duration lastRequest{};        ///< when the SMC was last asked for something
    std::vector<std::pair<concurrency::Duration, std::string>> writes;  ///< "F0Md=1"

    void access(const SMCAccess& access) override {
        OracleObserver::access(access);
        lastRequest = access.time;
        if (access.operation != Fault::Operation::write) return;
        const bool isRefused = access.result != 0 || access.kernelReturn != 0;
        writes.emplace_back(access.time, fmt::format("{}={}{}", access.key, access.value,
                                                     isRefused ? " refused" : ""));
    }
    void published(concurrency::Duration time, const control::ControlState& state) override {
        OracleObserver::published(time, state);
        states.push_back(state);
    }
    void replied(concurrency::Duration time, const Reply& reply) override {
        OracleObserver::replied(time, reply);
        if (reply.state) read = reply.state;
        answers.emplace(nameOf(reply.method),
                        reply.result ? reply.result->description() : "answered");
    }
    void logged(concurrency::Duration time, std::string_view line) override {
        OracleObserver::logged(time, line);
        log.emplace_back(line);
    }
    void second(concurrency::Duration time, SimulatedMac& mac) override {
        OracleObserver::second(time, mac);
        std::string text;
        for (std::size_t i = 0; i < mac.fanCount(); ++i) {
            const auto fan = mac.fan(i);
            const bool isForced = fan.mode == FanMode::forced;
            text += (i > 0 ? " " : "") + (isForced ? fmt::format("{}", fan.target) : "auto");
        }
        machine.push_back(text + (mac.forceTest() ? " Ftst" : ""));
    }
    void ended(const ProcessEnd& end) override {
        OracleObserver::ended(end);
        ends.push_back(end);
    }

private:
    std::vector<std::string> machine;  ///< at each second
    std::map<std::string, std::string> answers;
};

}  // namespace airflow::simulation
