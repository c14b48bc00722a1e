// The promise, tried: whatever commands, faults, latencies and silences came, once the faults have
// stopped and no client beats any more, every fan is soon back with the firmware.
#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <optional>
#include <set>
#include <vector>

#include "RandomScenario.h"
#include "simulation/scenario/ScenarioRun.h"

namespace airflow::control {
namespace {

using concurrency::Duration;
using simulation::Call;
using simulation::FanMode;
using simulation::Fault;
using simulation::Scenario;
using namespace std::chrono_literals;

/// How long a fan may stay forced after that, and why:
/// the heartbeat's limit of 15 s, counted from the end of the last command at the latest;
/// a claim under way takes up to 10 s for each of three fans before that command ends;
/// a tick of 1.5 s until the check, which may itself be late by a claim of 3 s on a busy machine
/// and by a snapshot of 0.4 s;
/// a retry of 2 s for a release that was refused before the faults stopped;
/// 2 s for each of a few requests that the driver was still busy with.
constexpr Duration bound = 15s + 3 * 10s + 1500ms + 3 * 3s + 400ms + 2s + 8s;

/// Knows whether a fan is forced, counts what forced one after a release had ended the
/// plan, and that anything happened at all.
class Watcher final : public simulation::ScenarioObserver {
public:
    void access(const simulation::SMCAccess& access) override {
        ++now;
        if (access.operation == Fault::Operation::read && access.key == "FNum") lastSnapshot = now;
        if (access.operation != Fault::Operation::write) return;
        if (access.result != 0 || access.kernelReturn != 0) {
            ++refused;
            return;
        }
        if (access.key == "Ftst" && access.value == 0) {
            lastFullRelease = now;
            snapshotBeforeRelease = lastSnapshot;
        }
        const bool isModeKey = access.key.ends_with("Md") || access.key.ends_with("md");
        if (!isModeKey || access.value != 1) return;
        forcings.push_back(now);
        countForcings();
    }
    void modeChanged(Duration, std::size_t, FanMode) override {}
    void published(Duration, const ControlState& state) override {
        if (!state.lastError) return;
        reasons.insert(state.lastError->substr(0, 12));
        // Only of a tick that began after the last command is it known that it ended that plan.
        const bool isSafetyRelease = state.lastError->ends_with("released to Auto");
        if (isSafetyRelease && lastCommand < snapshotBeforeRelease && !isFullBlastUnderWay()) {
            endPlan(lastFullRelease);
        }
    }
    void called(Duration, std::string_view, const Call& call) override {
        if (call.method == Call::Method::heartbeat) return;
        lastCommand = ++now;
        isReleaseLast = isRelease(call.method);
        underWay.insert(call.method);
        planEnded.reset();
    }
    void replied(Duration time, const simulation::Reply& reply) override {
        ++now;
        lastReply = time;
        underWay.erase(underWay.find(reply.method));
        if (isReleaseLast && isRelease(reply.method) && !isFullBlastUnderWay()) {
            endPlan(lastFullRelease > lastCommand ? lastFullRelease : now);
        }
    }
    void logged(Duration, std::string_view) override {}
    void second(Duration, simulation::SimulatedMac& mac) override {
        isForced = false;
        for (std::size_t fan = 0; fan < mac.fanCount(); ++fan) {
            isForced = isForced || mac.fan(fan).mode == FanMode::forced;
        }
        forcedSeconds += isForced;
    }

    bool isForced = false;
    Duration lastReply{};
    int forcedSeconds = 0;
    int refused = 0;
    int plansEnded = 0;
    /// The most writes that forced a fan after one release, without a newer command.
    std::ptrdiff_t forcingsSinceRelease = 0;
    std::set<std::string> reasons;

private:
    static bool isRelease(Call::Method method) {
        return method == Call::Method::automatic || method == Call::Method::restoreAuto;
    }
    /// It counts the fans before it puts its plan in force, perhaps after a release.
    [[nodiscard]] bool isFullBlastUnderWay() const {
        return underWay.contains(Call::Method::fullBlast);
    }
    void endPlan(int when) {
        planEnded = when;
        ++plansEnded;
        countForcings();
    }
    void countForcings() {
        if (!planEnded) return;
        const auto since = std::ranges::upper_bound(forcings, *planEnded);
        forcingsSinceRelease = std::max(forcingsSinceRelease, forcings.end() - since);
    }

    int now = 0;  ///< counts what happened, to order it
    int lastCommand = 0;
    int lastSnapshot = 0;  ///< its beginning
    int lastFullRelease = 0;
    int snapshotBeforeRelease = 0;  ///< the last one's beginning
    std::vector<int> forcings;      ///< ascending
    std::multiset<Call::Method> underWay;
    bool isReleaseLast = false;
    std::optional<int> planEnded;  ///< by a release since which nothing was commanded
};

TEST(Safety, everyFanIsSoonBackWithTheFirmwareWhenNobodyIsWatching) {
    int withControl = 0;
    int withRefusals = 0;
    int plansEnded = 0;
    std::set<std::string> reasons;
    for (std::uint64_t seed = 1; seed <= 2000; ++seed) {
        Scenario scenario = RandomScenario(seed).make();
        scenario.duration = troubleEnds + bound;
        Watcher watcher;
        simulation::ScenarioRun(scenario, watcher, seed).play(*scenario.duration);
        EXPECT_EQ(watcher.forcingsSinceRelease, 0) << "seed " << seed;
        plansEnded += watcher.plansEnded;
        EXPECT_FALSE(watcher.isForced)
            << "seed " << seed << ": still forced, " << (troubleEnds + bound) / 1s
            << " s after the start; the last answer came at "
            << concurrency::inSeconds(watcher.lastReply) << " s";
        withControl += watcher.forcedSeconds > 0;
        withRefusals += watcher.refused > 0;
        reasons.insert(watcher.reasons.begin(), watcher.reasons.end());
    }
    // A run in which nothing dangerous happened would prove nothing.
    EXPECT_GT(withControl, 1500);
    EXPECT_GT(withRefusals, 800);
    EXPECT_GT(plansEnded, 4000);
    EXPECT_TRUE(reasons.contains("no heartbeat"));
    EXPECT_TRUE(reasons.contains("thermal ceil"));
    EXPECT_TRUE(reasons.contains("temperature "));
    EXPECT_TRUE(reasons.contains("failed to re"));
    EXPECT_TRUE(reasons.contains("reclaimed: f"));
    EXPECT_TRUE(reasons.contains("applyPlan: r") || reasons.contains("applyPlan: t"));
}

}  // namespace
}  // namespace airflow::control
