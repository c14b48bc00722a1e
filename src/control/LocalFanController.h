// LocalFanController: the one object that changes fan hardware.
//
// What it guarantees: a fan that may be forced is watched, by the hold loop, by the retry loop, or
// by the operation that is at work on it now. Every end of an operation, a loop and a release
// passes startDueWatching(), which starts what is due; ControlledFans alone knows which fans these
// are.
//
//   a fan          automatic --claim--> claiming --taken--> held --release--> to be released
//                      ^                    |                                  |   ^  |
//                      +----- refused, or superseded and given back -----------+   +--+ refused
//   the controller idle --plan--> holding --release refused--> retrying --plan--> holding
//                   ^  <--released-- holding     <--went back-- retrying
//                   any --exit--> ending: the SMC takes no forcing write any more
//
// Every await is a place where other operations run. Two generations let suspended work find out
// that it was superseded: a release supersedes claims, steps and plans; a plan supersedes retries.
// Lock order: none, since nothing is locked. What a fan really is, the SMC alone knows.
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
#include "control/ControlledFans.h"
#include "control/FanControlling.h"
#include "control/Generation.h"
#include "evaluation/PlanEvaluator.h"
#include "numbers/Units.h"
#include "sensors/SnapshotSource.h"
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
                       sensors::SnapshotSource& sensors, UserID effectiveUserID);

    /// Called, on the controller's executor, whenever the hold loop has made its checks and goes
    /// on. Set before the first operation.
    std::function<void()> checked;

    /// What a plan is evaluated with. Who evaluates it again comes to the same decisions.
    struct Evaluation {
        const evaluation::PlanEvaluator& memory;
        const plan::FanControlPlan& plan;
        const sensors::SensorSnapshot& snapshot;
        concurrency::Date now;
    };
    using Evaluating = std::function<void(const Evaluation& evaluation)>;
    /// Called, on the controller's executor, whenever a plan is about to be evaluated. Set before
    /// the first operation.
    Evaluating evaluating;

    /// The state last published. Runs on the controller's executor.
    [[nodiscard]] concurrency::Task<ControlState> currentState();
    [[nodiscard]] concurrency::Stream<ControlState>& stateStream() override { return states; }

    /// Fails as applyPlan() does.
    concurrency::Task<ControlResult> setManual(numbers::FanIndex fan,
                                               numbers::WholeRPM rpm) override;
    concurrency::Task<ControlResult> setPercent(numbers::FanIndex fan,
                                                numbers::Percent percent) override;
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

    /// restoreAuto() for a process that ends. Finds the fans first that start-up recovery has not
    /// found yet, and afterwards those that the SMC's count leaves out. With `triesAgain` it is
    /// over only when every fan has gone back.
    concurrency::Task<void> restoreAutoAtExit(bool triesAgain);

    /// The number of the controller's latest request for a fan. Any thread may call this.
    [[nodiscard]] std::uint64_t lastRequest() const { return fans.lastRequest(); }
    /// Somebody else has given a fan back, after the request of this number: it is not held any
    /// more, unless a later request forces it. A plan that wants it claims it again.
    concurrency::Task<void> noteGivenBack(ControlledFans::Request after);

    /// Gives every fan back and forgets the plan, because of `cause`, which is published. Of the
    /// fans in `givenBack` somebody else has done so, as for noteGivenBack().
    concurrency::Task<void> releaseForSafety(ControlError cause,
                                             std::vector<ControlledFans::Request> givenBack = {});

    /// One control step: decides, claims, releases and writes. Returns the fans, ascending, that
    /// the firmware was found to have taken back. A release that comes meanwhile ends it.
    [[nodiscard]] virtual concurrency::Task<std::vector<std::int64_t>> assertPlanOnce(
        plan::FanControlPlan plan, sensors::SensorSnapshot snapshot, concurrency::Date now);

private:
    using Fan = std::int64_t;
    using Failure = std::optional<NotRestored>;
    using WriteResult = smc::SMCWriting::WriteResult;
    /// The code of a command that a release superseded, or that nobody waits for any more.
    static constexpr std::uint8_t superseded = 255;

    void publishState(bool holding, std::optional<ControlError> error);
    concurrency::Task<std::optional<std::string>> resolveModeKey(Fan fan);
    concurrency::Task<std::optional<std::int64_t>> fanCount();
    /// Those of the fans whose mode key is known, ascending, with it.
    [[nodiscard]] std::map<Fan, std::string> withModeKeys(const std::set<Fan>& fans) const;
    [[nodiscard]] plan::FanControlPlan activePlanWith(plan::FanPlan entry) const;
    /// Whether the plan in force manages any fan; this fan.
    [[nodiscard]] bool isMonitoring() const;
    [[nodiscard]] bool isManaged(Fan fan) const;
    void forgetPlan();

    /// Whether a release has come since `generation`, or nobody may force fans any more.
    [[nodiscard]] bool isSuperseded(ReleaseGeneration generation) const;
    /// Whether the same holds for the claim of this fan, or a plan has come that does not manage
    /// it.
    [[nodiscard]] bool isSuperseded(Fan fan, const Generations& generations) const;
    [[nodiscard]] Generations generations() const {
        return {.release = releaseGeneration, .plan = releaseRetryGeneration};
    }
    /// Whether a plan has come since `generation`; never for nothing.
    [[nodiscard]] bool isSuperseded(std::optional<PlanGeneration> generation) const;
    /// The invariant of this object: what may be forced and is watched by nobody gets its loop.
    /// A plan that is being applied and a release watch the fans that they are at work on.
    void startDueWatching();

    // Claim
    /// Polls until the SMC takes the fan, refuses it firmly, 10 s are over, or a release or a plan
    /// without this fan supersedes it: then a fan that the SMC may have taken is given back.
    concurrency::Task<ControlResult> claimManualMode(Fan fan, std::string modeKey,
                                                     Generations begun);
    /// Writes 1 to the mode key. Returns the SMC's answer.
    concurrency::Task<WriteResult> force(Fan fan, std::string modeKey);
    concurrency::Task<ControlResult> endSupersededClaim(Fan fan, std::string modeKey,
                                                        WriteResult last);
    /// "Ftst" = 1 unlocks forced mode where the firmware guards it. Whether it was taken does not
    /// matter: the mode key's own answer tells.
    concurrency::Task<void> raiseForceTest();

    // Plan and hold loop
    void putInForce(plan::FanControlPlan plan);
    concurrency::Task<ControlResult> claimAndHold(plan::FanControlPlan plan);
    concurrency::Task<ControlResult> claimPlannedFans(plan::FanControlPlan plan, Generations begun);
    concurrency::Task<ControlResult> holdPlan(ControlResult result, Generations begun);
    /// How the fan is published that the SMC took for this entry: as a newer plan has it, if one is
    /// in force.
    void setModeInForce(const plan::FanPlan& entry, const Generations& begun);
    void ensureHoldLoopRunning();
    /// Sleeps outside the controller, which it does not keep alive, and ticks inside.
    static concurrency::Task<void> holdLoop(concurrency::Runtime& clock,
                                            std::weak_ptr<LocalFanController> controller,
                                            std::uint64_t number, concurrency::CancelToken token);
    concurrency::Task<bool> holdTick(std::uint64_t number, concurrency::CancelToken token);
    concurrency::Task<void> lowerForceTestIfIdle();
    concurrency::Task<bool> checkAndAssert(concurrency::CancelToken token);
    /// The safety check that this snapshot fails; nothing when the plan may go on.
    [[nodiscard]] std::optional<ControlError> brokenSafetyCheck(
        const sensors::SensorSnapshot& snapshot);
    void publishTick(std::vector<Fan> reverted);
    concurrency::Task<bool> releaseUnwanted(std::vector<Fan> fans, Generations begun);
    concurrency::Task<bool> claimWanted(std::vector<Fan> fans, plan::FanControlPlan plan,
                                        Generations begun);
    concurrency::Task<bool> writeTarget(Fan fan, std::string modeKey, double rpm);
    void cancelHoldTask();

    // Release and retry
    concurrency::Task<Failure> releaseAllToAuto(std::optional<PlanGeneration> expected);
    concurrency::Task<Failure> releaseKnownFans(std::optional<PlanGeneration> expected);
    concurrency::Task<std::vector<Refusal>> giveBackKnownFans(
        std::optional<PlanGeneration> expected);
    concurrency::Task<Failure> releasePendingAutoFans(std::optional<PlanGeneration> expected);
    /// Writes 0 to the mode key. Returns the refusal, if it is one; who calls decides whether the
    /// fan is pending then.
    concurrency::Task<std::optional<Refusal>> giveBack(Fan fan, std::string modeKey);
    /// The same; a fan that refuses is pending, unless the plan in force manages it.
    concurrency::Task<std::optional<Refusal>> giveBackOrRetry(Fan fan, std::string modeKey);
    [[nodiscard]] std::optional<std::pair<Fan, std::string>> nextKnownFan(
        const std::set<Fan>& done) const;
    void ensureReleaseRetryLoopRunning();
    static concurrency::Task<void> releaseRetryLoop(std::weak_ptr<LocalFanController> controller,
                                                    concurrency::Runtime& runtime,
                                                    PlanGeneration generation,
                                                    concurrency::CancelToken token);
    /// Whether that was the last attempt.
    concurrency::Task<bool> retryRelease(PlanGeneration generation);
    void publishThatNoFanIsPending();
    concurrency::Task<bool> findFans();
    concurrency::Task<bool> giveBackUncountedFans();

    concurrency::Runtime& runtime;
    UserID effectiveUserID;

    smc::SMCWriting& smc;
    sensors::SnapshotSource& sensors;
    std::map<Fan, std::string> modeKeyCache;  ///< found keys only: others are probed again
    ControlledFans fans;
    plan::FanControlPlan activePlan = plan::FanControlPlan::allAutomatic();
    evaluation::PlanEvaluator evaluator;
    int operationsAtWork = 0;  ///< being applied
    int releasesAtWork = 0;
    bool isForceTestRefused = false;  ///< the last full release could not lower "Ftst"
    bool hasFoundFans = false;        ///< start-up recovery has asked for every mode key
    std::optional<concurrency::BackgroundTask> holdTask;
    std::uint64_t holdTaskNumber = 0;  ///< of the last that was started
    std::optional<concurrency::BackgroundTask> releaseRetryTask;
    PlanGeneration releaseRetryGeneration;
    concurrency::Date lastHeartbeat = concurrency::distantPast;
    std::int64_t consecutiveMissingTemperatureSnapshots = 0;
    ReleaseGeneration releaseGeneration;
    concurrency::Stream<ControlState> states;
    ControlState state = ControlState::idle();
};

}  // namespace airflow::control
