// DaemonHarness: a machine with a daemon on it, and a journal of what becomes of both.
#pragma once

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "simulation/daemon/SimulatedDaemon.h"
#include "simulation/machine/RecordedLines.h"
#include "simulation/machine/SimulatedMac.h"
#include "support/UnitLiterals.h"

namespace airflow::daemon {

using concurrency::Duration;
using simulation::FanMode;
using simulation::Fault;
using simulation::ProcessEnd;
using namespace std::chrono_literals;
using namespace tests::literals;

inline constexpr const char* listening =
    "[com.brisquell.helper] listening on com.brisquell.helper (build 1.0.3+6)\n";
inline constexpr const char* processExit =
    "[com.brisquell.helper] process exit: restoring Auto...\n";
inline constexpr const char* sigtermLine = "[com.brisquell.helper] SIGTERM: restoring Auto...\n";
inline constexpr const char* sigintLine = "[com.brisquell.helper] SIGINT: restoring Auto...\n";

class DaemonHarness {
public:
    using Connection = std::shared_ptr<simulation::SimulatedConnection>;

    explicit DaemonHarness(std::uint64_t seed = 0, const std::string& machine = "laptop",
                           std::uint32_t userID = 0)
        : mac(*simulation::machinePreset(machine), [this] { return now(); }, {.jitter = 0}) {
        mac.smc().observer = [this](const simulation::SMCAccess& access) { note(access); };
        standardError.listener = [this](std::string_view line) {
            journal.push_back("log " + std::string(line));
        };
        newProcess(seed, userID);
    }
    DaemonHarness(const DaemonHarness&) = delete;
    DaemonHarness& operator=(const DaemonHarness&) = delete;

    [[nodiscard]] Duration now() const {
        return daemon ? daemon->runtime.now().time_since_epoch() : machineTime;
    }
    [[nodiscard]] const std::vector<std::string>& lines() const { return standardError.lines; }
    [[nodiscard]] const std::optional<ProcessEnd>& end() const { return daemon->process.end(); }
    [[nodiscard]] std::vector<FanMode> modes() {
        std::vector<FanMode> result;
        for (std::size_t fan = 0; fan < mac.fanCount(); ++fan) result.push_back(mac.fan(fan).mode);
        return result;
    }
    [[nodiscard]] long timesWritten(const std::string& write) const {
        return std::ranges::count(journal, "write " + write);
    }

    /// The process begins; nothing of it has run.
    void begin() { daemon->start(); }
    void start() {
        begin();
        daemon->runtime.settle();
    }
    void advance(Duration duration) { daemon->runtime.advance(duration); }
    /// A new process on the same machine.
    void newProcess(std::uint64_t seed = 0, std::uint32_t userID = 0) {
        machineTime = now();
        daemon.reset();
        daemon = std::make_unique<simulation::SimulatedDaemon>(
            mac, standardError,
            simulation::SimulatedDaemon::Options{
                .seed = seed, .time = machineTime, .effectiveUserID = userID});
    }
    /// Starts, and has a client hold all fans at full speed for a second.
    Connection startAndHold() {
        start();
        Connection client = daemon->listener.connect();
        std::int64_t code = -1;
        client->send([&code](FanHelperService& service) {
            service.fullBlast([&code](std::int64_t result) { code = result; });
        });
        advance(1s);
        EXPECT_EQ(code, 0);
        EXPECT_THAT(modes(), testing::Each(FanMode::forced));
        return client;
    }
    /// What readState answers a client right now.
    std::string stateOf(const Connection& client) {
        std::string document = "no answer";
        client->send([&document](FanHelperService& service) {
            service.readState([&document](std::string_view text) { document = text; });
        });
        daemon->runtime.settle();
        return document;
    }

    std::vector<std::string> journal;  ///< reads and writes of the SMC, and lines of the log
    simulation::RecordedLines standardError;
    simulation::SimulatedMac mac;
    std::unique_ptr<simulation::SimulatedDaemon> daemon;

private:
    void note(const simulation::SMCAccess& access) {
        if (access.operation == Fault::Operation::read) journal.push_back("read " + access.key);
        if (access.operation != Fault::Operation::write) return;
        journal.push_back(fmt::format("write {}={}", access.key, access.value));
    }

    Duration machineTime{};
};

/// Tests that run under several schedules; seed 0 runs executors in turns.
class DaemonSchedule : public testing::TestWithParam<std::uint64_t> {};

}  // namespace airflow::daemon
