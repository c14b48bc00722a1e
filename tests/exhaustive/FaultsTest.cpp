// One fault a run: each kind of fault at each request of the example scenarios to the SMC.
//
// AIRFLOW_FAULT_STRIDE says which of these runs are made: 1, all; k, every k-th.
#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Witness.h"
#include "simulation/scenario/ScenarioRun.h"
#include "simulation/verification/Soak.h"
#include "support/Doubles.h"

namespace airflow::simulation {
namespace {

using tests::infinity;
using tests::notANumber;
using namespace std::chrono_literals;
using Operation = Fault::Operation;

/// A prime, so that over many requests every kind has its turn.
constexpr std::uint64_t usualStride = 61;
constexpr std::uint64_t firstRun = 7;
/// After the end of a scenario, so that what has to come right can.
constexpr concurrency::Duration calm = 30s;
/// Of longer scenarios only the beginning: what follows repeats it.
constexpr concurrency::Duration longest = 60s;

std::string read(const std::string& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

Scenario example(const std::string& name) {
    const std::string folder = std::string(AIRFLOW_EXAMPLES) + "/scenarios/";
    const auto readBeside = [&folder](const std::string& file) {
        return std::expected<std::string, std::string>(read(folder + file));
    };
    Scenario scenario = Scenario::parse(read(folder + name + ".json"), readBeside).value();
    scenario.duration = std::min(scenario.length(), longest) + calm;
    return scenario;
}

/// What a request of this kind can suffer.
std::vector<std::pair<std::string, Fault>> faultsOf(Operation operation) {
    constexpr std::int32_t ioError = -536870212;  // 0xE00002BC
    std::vector<std::pair<std::string, Fault>> faults;
    for (const int result : {0x82, 0x84, 0x86, 0x87, 0xFF}) {
        faults.emplace_back(fmt::format("result 0x{:x}", result),
                            Fault{.result = static_cast<std::uint8_t>(result)});
    }
    faults.emplace_back("kernel error", Fault{.kernelReturn = ioError});
    faults.emplace_back("latency 1 s", Fault{.latency = 1s});
    faults.emplace_back("latency 5 s", Fault{.latency = 5s});
    if (operation == Operation::write) {
        faults.emplace_back("ignored", Fault{.effect = Fault::Effect::ignored});
        faults.emplace_back("applied but refused",
                            Fault{.result = 0x86, .effect = Fault::Effect::applied});
    }
    if (operation == Operation::information) faults.emplace_back("wrong size", Fault{.size = 8});
    if (operation == Operation::read) {
        for (const double reading : {notANumber, -1.0, 0.0, infinity}) {
            faults.emplace_back(fmt::format("reading {}", reading), Fault{.reading = reading});
        }
    }
    for (auto& [name, fault] : faults) fault.operation = operation;
    return faults;
}

std::vector<SMCAccess> accessesOf(const Scenario& scenario) {
    class Accesses final : public ScenarioObserver {
    public:
        std::vector<SMCAccess> all;
        void access(const SMCAccess& access) override { all.push_back(access); }
        void modeChanged(concurrency::Duration, std::size_t, FanMode) override {}
        void published(concurrency::Duration, const control::ControlState&) override {}
        void called(concurrency::Duration, std::string_view, const Call&) override {}
        void replied(concurrency::Duration, const Reply&) override {}
        void logged(concurrency::Duration, std::string_view) override {}
        void second(concurrency::Duration, SimulatedMac&) override {}
    };
    Accesses accesses;
    ScenarioRun(scenario, accesses, 0).play(scenario.length());
    return accesses.all;
}

/// What is wrong with the run, or nothing.
std::optional<std::string> violationOf(const Scenario& scenario) {
    try {
        const auto violation = judge(scenario, 0).violation;
        return violation ? std::optional(describe(*violation)) : std::nullopt;
    } catch (const Stuck& stuck) {
        return stuck.what();
    }
}

class Faults : public testing::TestWithParam<std::string> {
protected:
    /// Of the n-th request.
    void suffer(std::uint64_t number, const SMCAccess& access, const std::string& name,
                Fault fault) {
        fault.access = number;
        Scenario faulty = scenario;
        faulty.faults.insert(faulty.faults.begin(), fault);
        ++runs;
        const auto violation = violationOf(faulty);
        if (!violation) return;
        ADD_FAILURE() << fmt::format("request {} at {:.3f} s, {}, {}: {}", number,
                                     concurrency::inSeconds(access.time), access.key, name,
                                     *violation);
    }

    Scenario scenario = example(GetParam());
    std::uint64_t runs = 0;
};

TEST_P(Faults, atAnyRequestBreakNoProperty) {
    const char* const given = std::getenv("AIRFLOW_FAULT_STRIDE");
    const std::uint64_t stride = given ? std::strtoull(given, nullptr, 10) : usualStride;
    ASSERT_FALSE(violationOf(scenario));
    const std::vector<SMCAccess> accesses = accessesOf(scenario);
    std::uint64_t possible = 0;
    for (std::size_t i = 0; i < accesses.size(); ++i) {
        for (auto& [name, fault] : faultsOf(accesses[i].operation)) {
            if (possible++ % stride == firstRun % stride) suffer(i + 1, accesses[i], name, fault);
        }
    }
    std::puts(
        fmt::format("{}: {} of {} runs, {} requests", GetParam(), runs, possible, accesses.size())
            .c_str());
    RecordProperty("runs", std::to_string(runs));
    EXPECT_GT(runs, 0U);
}

/// All of them, by what became of the process and of the machine, whose two fans were forced.
std::map<std::string, int> startsWithAFault() {
    const Scenario scenario = example("start-up-recovery");
    const std::vector<SMCAccess> accesses = accessesOf(scenario);
    std::map<std::string, int> counts;
    for (std::size_t i = 0; i < accesses.size(); ++i) {
        for (auto& [name, fault] : faultsOf(accesses[i].operation)) {
            Scenario faulty = scenario;
            fault.access = i + 1;
            faulty.faults.push_back(fault);
            Witness witness(faulty);
            ScenarioRun(faulty, witness, 0).play(faulty.length());
            const bool hasEnded = !witness.ends.empty();
            ++counts[fmt::format("{}, {}", hasEnded ? "ended" : "listens", witness.machineAtEnd())];
        }
    }
    return counts;
}

/// No fan stays forced. Where "FNum" could not be read (13 faults) or a write failed (14 for each
/// fan and for "Ftst") the start fails, and the exit gives the fans back. Where recovery does not
/// see a fan, because its mode key could not be read, the SMC tells of fewer fans than there are or
/// says that one went back which did not, the guard finds it. Where the SMC says that it lowered
/// force-test and did not (1), the flag stays raised and forces nothing.
TEST(FaultsAtStart, leaveNoFanForced) {
    const std::map<std::string, int> expected{
        {"ended, auto auto", 55}, {"listens, auto auto", 269}, {"listens, auto auto Ftst", 1}};
    EXPECT_EQ(startsWithAFault(), expected);
}

INSTANTIATE_TEST_SUITE_P(Examples, Faults,
                         testing::Values("busy-claim", "client-killed", "daemon-killed",
                                         "firmware-reclaim", "lost-heartbeat", "release-refused",
                                         "start-up-recovery", "temperatures-missing", "terminated",
                                         "thermal-ceiling", "upgrade", "working-day"),
                         [](const auto& info) {
                             std::string name = info.param;
                             std::ranges::replace(name, '-', '_');
                             return name;
                         });

}  // namespace
}  // namespace airflow::simulation
