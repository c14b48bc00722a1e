// LocalFanController: the one object that changes fan hardware.
//
// Lock order: none, since nothing is locked. Authority: what a fan really is, the SMC alone knows;
// `claimedFans` is what was written last with success. A fan that refuses to go back stays claimed
// and pending, and is tried again every two seconds until it goes back or a newer plan takes over.
//
// Every await is a place where other operations run. Two counters let suspended work notice that it
// was overtaken: `releaseGeneration` (a release ends a control step) and `releaseRetryGeneration`
// (a plan ends retries).
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "concurrency/Actor.h"
#include "concurrency/Runtime.h"
#include "control/FanControlling.h"
#include "evaluation/PlanEvaluator.h"
#include "sensors/SensorReader.h"
#include "smc/SMCWriting.h"

namespace airflow::control {

/// What it is given outlives it. Made by std::make_shared: its background tasks hold it weakly.
class LocalFanController : public concurrency::Actor,
                           public FanControlling,
                           public std::enable_shared_from_this<LocalFanController> {
public:
    /// Effective user id of the process; 0 is root, who alone may control fans.
    using UserID = std::function<std::uint32_t()>;

    LocalFanController(concurrency::Runtime& runtime, smc::SMCWriting& smc,
                       sensors::SensorReader& sensors, UserID effectiveUserID);

    /// The state last published. Runs on the controller's executor.
    [[nodiscard]] concurrency::Task<ControlState> currentState();
    [[nodiscard]] concurrency::Stream<ControlState>& stateStream() override { return states; }

    /// Fails as applyPlan() does.
    concurrency::Task<ControlResult> setManual(std::int64_t fan, std::int64_t rpm) override;
    concurrency::Task<ControlResult> setPercent(std::int64_t fan, double percent) override;
    /// Fails when "FNum" cannot be read, and as applyPlan() does.
    concurrency::Task<ControlResult> fullBlast() override;
    /// Puts a plan in force: gives back what it no longer manages, claims what it newly manages,
    /// and holds it until a command, a safety release or the plan's own end. One fan that fails
    /// does not keep the others from being held; the last failure is the result.
    concurrency::Task<ControlResult> applyPlan(plan::FanControlPlan plan) override;
    concurrency::Task<ControlResult> automatic() override;
    concurrency::Task<std::optional<std::string>> restoreAuto() override;
    concurrency::Task<void> heartbeat() override;

    /// Start-up recovery: finds every fan and gives it back, whoever forced it. Returns why that
    /// did not succeed, or nothing.
    [[nodiscard]] concurrency::Task<std::optional<std::string>> restoreAllFansToAutomatic();

    /// One control step: decides, claims, releases and writes. Returns the fans, ascending, that
    /// the firmware was found to have taken back. A release that comes meanwhile ends it.
    [[nodiscard]] virtual concurrency::Task<std::vector<std::int64_t>> assertPlanOnce(
        plan::FanControlPlan plan, sensors::SensorSnapshot snapshot, concurrency::Date now);

private:
    using Fan = std::int64_t;
    using Failure = std::optional<std::string>;
    using WriteResult = smc::SMCWriting::WriteResult;

    void publishState(bool holding, std::optional<std::string> error);
    concurrency::Task<std::optional<std::string>> resolveModeKey(Fan fan);
    concurrency::Task<std::optional<std::int64_t>> fanCount();
    /// Those of the fans whose mode key is known, ascending, with it.
    [[nodiscard]] std::map<Fan, std::string> withModeKeys(const std::set<Fan>& fans) const;
    [[nodiscard]] plan::FanControlPlan activePlanWith(plan::FanPlan entry) const;

    // Claim
    /// Polls until the SMC takes the fan, refuses it firmly or 10 s are over; nothing else ends it.
    concurrency::Task<ControlResult> claimManualMode(Fan fan, std::string modeKey);
    /// "Ftst" = 1 unlocks forced mode where the firmware guards it. Whether it was taken does not
    /// matter: the mode key's own answer tells.
    concurrency::Task<void> raiseForceTest();

    // Plan and hold loop
    concurrency::Task<ControlResult> claimPlannedFans(plan::FanControlPlan plan);
    void ensureHoldLoopRunning();
    /// Sleeps outside the controller, which it does not keep alive, and ticks inside.
    static concurrency::Task<void> holdLoop(concurrency::Runtime& clock,
                                            std::weak_ptr<LocalFanController> controller,
                                            concurrency::CancelToken token);
    concurrency::Task<bool> holdTick(concurrency::CancelToken token);
    concurrency::Task<bool> checkAndAssert();
    /// The message of the safety check that this snapshot fails; nothing when the plan may go on.
    [[nodiscard]] std::optional<std::string> brokenSafetyCheck(
        const sensors::SensorSnapshot& snapshot);
    concurrency::Task<void> releaseForSafety(std::string message);
    concurrency::Task<bool> releaseUnwanted(std::vector<Fan> fans, std::int64_t generation);
    concurrency::Task<bool> claimWanted(std::vector<Fan> fans, plan::FanControlPlan plan,
                                        std::int64_t generation);
    concurrency::Task<bool> writeTarget(Fan fan, std::string modeKey, double rpm);
    void cancelHoldTask();

    // Release and retry
    concurrency::Task<Failure> releaseAllToAuto(
        std::optional<std::int64_t> expectedRetryGeneration);
    concurrency::Task<Failure> releasePendingAutoFans(
        std::optional<std::int64_t> expectedRetryGeneration);
    concurrency::Task<Failure> writeZero(std::string key);
    void forgetReleasedFans(const std::set<Fan>& failed);
    void ensureReleaseRetryLoopRunning();
    static concurrency::Task<void> releaseRetryLoop(std::weak_ptr<LocalFanController> controller,
                                                    concurrency::Runtime& runtime,
                                                    std::int64_t generation,
                                                    concurrency::CancelToken token);
    /// Whether that was the last attempt.
    concurrency::Task<bool> retryRelease(std::int64_t generation);
    void tellThatNoFanIsPending();
    [[nodiscard]] bool isSuperseded(std::optional<std::int64_t> expectedRetryGeneration) const;

    concurrency::Runtime& runtime;
    UserID effectiveUserID;

    smc::SMCWriting& smc;
    sensors::SensorReader& sensors;
    std::map<Fan, std::string> modeKeyCache;  ///< found keys only: others are probed again
    std::map<Fan, double> targets;            ///< RPM last written for each held fan
    std::map<Fan, ControlMode> perFanMode;    ///< of each claimed fan, as published
    plan::FanControlPlan activePlan = plan::FanControlPlan::allAutomatic();
    evaluation::PlanEvaluator evaluator;
    std::set<Fan> claimedFans;             ///< switched to forced mode with success
    std::set<Fan> pendingAutoReleaseFans;  ///< still to be given back
    std::set<Fan> monitoredFans;           ///< those that the plan does not leave on Auto
    std::set<Fan> stoppedFans;             ///< those that the plan holds stopped
    std::optional<concurrency::BackgroundTask> holdTask;
    std::optional<concurrency::BackgroundTask> releaseRetryTask;
    std::int64_t releaseRetryGeneration = 0;
    concurrency::Date lastHeartbeat = concurrency::distantPast;
    std::int64_t consecutiveMissingTemperatureSnapshots = 0;
    std::int64_t releaseGeneration = 0;
    concurrency::Stream<ControlState> states;
    ControlState state = ControlState::idle();
};

}  // namespace airflow::control
