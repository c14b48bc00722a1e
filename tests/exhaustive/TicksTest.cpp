// What arrives in the middle of a tick of the hold loop: its control step, its claim, its checks.
//
// A plan that is put in force at 1 s is asserted by the first tick at 2.58 s.
#include <algorithm>

#include "Situation.h"

namespace airflow::simulation {
namespace {

std::string soonAndAtTheEnd(const Witness& seen) {
    return seen.machineAt(3) + ", then " + seen.machineAtEnd();
}

TEST(Ticks, automaticDuringAStepIsTheLastWord) {
    const auto outcome = [](const Witness& seen) {
        return soonAndAtTheEnd(seen) + "; " + seen.answerTo("automatic");
    };
    Situation()
        .apply(1s, {3000, 3000}, "app")
        .call(2580ms, Method::automatic, "other")
        .between(2580ms, 2590ms, 5s)
        .comesTo({"auto auto, then auto auto; applied"}, outcome);
}

/// The hold loop has ended: nothing is written any more, and nothing is asked of the SMC once the
/// guard has looked, 2 s after the release, whether the fans went back.
TEST(Ticks, aRestoreDuringAStepIsTheLastWord) {
    const auto outcome = [](const Witness& seen) {
        const bool isAtRest = seen.writes.back().first < 3s && seen.lastRequest < 7s;
        return soonAndAtTheEnd(seen) + (isAtRest ? ", at rest" : ", busy");
    };
    Situation()
        .apply(1s, {3000, 3000}, "app")
        .call(2580ms, Method::restoreAuto, "other")
        .between(2580ms, 2590ms, 12s)
        .comesTo({"auto auto, then auto auto, at rest"}, outcome);
}

TEST(Ticks, aPlanDuringAStepIsTheLastWord) {
    Situation()
        .apply(1s, {3000, 3500}, "app")
        .apply(2580ms, {0, 4000}, "other")
        .between(2580ms, 2600ms, 6s)
        .comesTo({"auto 4000 Ftst, then auto 4000 Ftst"}, soonAndAtTheEnd);
}

/// The old plan's step does not force a fan again in the moment in which the new plan gives it
/// back.
TEST(Ticks, aPlanDuringAStepGivesBackWhatItLeavesOut) {
    Situation(3)
        .apply(1s, {3000, 3500, 3600}, "app")
        .apply(2580ms, {0, 4000, 0}, "other")
        .between(2580ms, 2600ms, 6s)
        .comesTo({"auto 4000 auto Ftst, then auto 4000 auto Ftst"}, soonAndAtTheEnd);
}

/// The tick at 16.8 s is the first for which the plan was more than 15 s ago. A heartbeat comes
/// before its look at the clock, or too late.
TEST(Ticks, aHeartbeatAtTheTickOfTheWatchdogComesInTimeOrNot) {
    const auto outcome = [](const Witness& seen) {
        const auto error = seen.states.back().lastError;
        return fmt::format("{}, then {}; {}", seen.machineAt(17), seen.machineAtEnd(),
                           error.value_or("no error"));
    };
    Situation()
        .apply(1s, {3000, 3000}, "app")
        .call(16800ms, Method::heartbeat, "app")
        .between(16800ms, 16810ms, 20s)
        .comesTo({"3000 3000 Ftst, then 3000 3000 Ftst; no error",
                  "auto auto, then auto auto; no heartbeat for >15s — released to Auto"},
                 outcome);
}

/// A plan that comes after the release is in force, one that comes before it is released as well.
TEST(Ticks, aPlanDuringTheReleaseOfTheCeiling) {
    Situation situation;
    situation.scenario.temperatures = {{.at = 2s, .hid = {{"CPU", 97.0}}},
                                       {.at = 2600ms, .hid = {{"CPU", 50.0}}}};
    situation.apply(1s, {3000, 3000}, "app")
        .apply(2580ms, {4000, 4000}, "app")
        .between(2580ms, 2600ms, 6s)
        .comesTo({"4000 4000 Ftst, then 4000 4000 Ftst", "auto auto, then auto auto"},
                 soonAndAtTheEnd);
}

/// Fan 0 is refused to the plan, at 1 s, and to its step, and busy up to `grant` for the claim of
/// the first tick, which asks every 0.1 s: at 2.98 s, 3.98 s, 4.08 s and so on.
Situation claimingStep(Duration grant) {
    Situation situation;
    situation.refuse("F0Md", 1, 900ms, 2200ms)
        .add(Fault{.from = 2200ms, .until = grant, .key = "F0Md", .value = 1, .result = 0x82})
        .apply(1s, {3000, 3500}, "app");
    return situation;
}

std::string afterTheClaim(const Witness& seen) {
    return seen.machineAt(5) + ", then " + seen.machineAtEnd();
}

TEST(Ticks, aRestoreWhenTheClaimOfAStepSucceedsIsTheLastWord) {
    claimingStep(4s)
        .call(4080ms, Method::restoreAuto, "other")
        .between(4080ms, 4090ms, 8s)
        .comesTo({"auto auto, then auto auto"}, afterTheClaim);
}

TEST(Ticks, theEndOfAClientWhenTheClaimOfAStepSucceedsIsTheLastWord) {
    claimingStep(4s)
        .disconnect(4080ms, "app")
        .between(4080ms, 4090ms, 8s)
        .comesTo({"auto auto, then auto auto"}, afterTheClaim);
}

TEST(Ticks, aSignalWhenTheClaimOfAStepSucceedsIsTheLastWord) {
    claimingStep(4s)
        .signal(4080ms)
        .between(4080ms, 4090ms, 6s)
        .comesTo({"auto auto, then auto auto"}, afterTheClaim);
}

/// With how often the SMC was asked for this since 4 s, when it would take it from fan 0.
std::string afterTheEndOfTheClaim(const Witness& seen, std::string_view force) {
    const auto isForce = [force](const auto& write) {
        return write.first >= 4s && write.second.starts_with(force);
    };
    return fmt::format("{}, {} times {}", afterTheClaim(seen),
                       std::ranges::count_if(seen.writes, isForce), force);
}

/// Refused at 3.98 s for the last time, the claim would succeed at 4.08 s.
TEST(Ticks, aClaimThatTwoReleasesSupersedeEnds) {
    const auto outcome = [](const Witness& seen) { return afterTheEndOfTheClaim(seen, "F0Md=1"); };
    claimingStep(4s)
        .call(3980ms, Method::restoreAuto, "other")
        .disconnect(3980ms, "app")
        .between(3980ms, 3990ms, 30s)
        .comesTo({"auto auto, then auto auto, 0 times F0Md=1"}, outcome, 1);
}

/// The step has two fans to claim: the second is not claimed any more.
TEST(Ticks, aReleaseDuringTheFirstClaimOfAStepIsTheLastWord) {
    const auto outcome = [](const Witness& seen) { return afterTheEndOfTheClaim(seen, "F1Md=1"); };
    claimingStep(4s)
        .refuse("F1Md", 1, 900ms, 2400ms)
        .add(Fault{.from = 2400ms, .until = 3s, .key = "F1Md", .value = 1, .result = 0x82})
        .call(3980ms, Method::restoreAuto, "other")
        .disconnect(3980ms, "app")
        .between(3980ms, 4100ms, 11s)
        .comesTo({"auto auto, then auto auto, 0 times F1Md=1"}, outcome, 1);
}

TEST(Ticks, ofTwoPlansDuringAStepOneIsInForce) {
    Situation()
        .apply(1s, {3000, 3500}, "app")
        .apply(2580ms, {3000, 0}, "other")
        .apply(2580ms, {0, 4000}, "app")
        .call(3500ms, Method::restoreAuto, "other")
        .between(2580ms, 2600ms, 4s)
        .comesTo({"3000 auto Ftst, then auto auto", "auto 4000 Ftst, then auto auto"},
                 soonAndAtTheEnd, 1);
}

}  // namespace
}  // namespace airflow::simulation
