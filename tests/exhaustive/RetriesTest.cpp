// What arrives when a fan that refused to go back is tried again.
#include <algorithm>

#include "Situation.h"

namespace airflow::simulation {
namespace {

std::string soonAndAtTheEnd(const Witness& seen) {
    return seen.machineAt(6) + ", then " + seen.machineAtEnd();
}

/// `key` refuses 0 when the release comes, at 3 s, and takes it when it is tried again, at 5 s.
Situation refusedOnce(const std::string& key) {
    Situation situation;
    situation.apply(1s, {3000, 3000}, "app")
        .refuse(key, 0, 2s, 4s)
        .call(3s, Method::automatic, "app");
    return situation;
}

TEST(Retries, aPlanDuringTheRetryOfAFanIsTheLastWord) {
    refusedOnce("F0Md")
        .apply(5s, {4000, 4000}, "other")
        .between(5s, 5100ms, 9s)
        .comesTo({"4000 4000 Ftst, then 4000 4000 Ftst"}, soonAndAtTheEnd);
}

/// The refusal of force-test makes the retry a release of everything.
TEST(Retries, aPlanDuringTheRetryOfAllIsTheLastWord) {
    refusedOnce("Ftst")
        .apply(5s, {4000, 4000}, "other")
        .between(5s, 5100ms, 9s)
        .comesTo({"4000 4000 Ftst, then 4000 4000 Ftst"}, soonAndAtTheEnd);
}

/// The state after the plans, and how many zeros were written to mode keys since 5.005 s.
std::string afterThePlans(const Witness& seen) {
    const auto isZero = [](const auto& write) {
        return write.first >= 5005ms && (write.second == "F0Md=0" || write.second == "F1Md=0");
    };
    return fmt::format("{}, {} zeros", soonAndAtTheEnd(seen),
                       std::ranges::count_if(seen.writes, isZero));
}

/// The retry waits up to 5.01 s for the driver to give fan 0 back; fan 1 is next. Two plans come,
/// one before that and one just then.
TEST(Retries, ofTwoFansThatAPlanSupersededWriteNothingMore) {
    refusedOnce("F0Md")
        .refuse("F1Md", 0, 2s, 4s)
        .add(Fault{.from = 4s, .until = 5005ms, .key = "F0Md", .value = 0, .latency = 10ms})
        .apply(5005ms, {4000, 4000}, "other")
        .apply(5010ms, {5000, 5000}, "app")
        .between(5005ms, 5020ms, 7s)
        .comesTo({"5000 5000 Ftst, then 5000 5000 Ftst, 0 zeros"}, afterThePlans, 1);
}

TEST(Retries, ofAllThatAPlanSupersededWriteNothingMore) {
    refusedOnce("Ftst")
        .add(Fault{.from = 4s, .until = 5005ms, .key = "F0Md", .value = 0, .latency = 10ms})
        .apply(5005ms, {4000, 4000}, "other")
        .apply(5010ms, {5000, 5000}, "app")
        .between(5005ms, 5020ms, 7s)
        .comesTo({"5000 5000 Ftst, then 5000 5000 Ftst, 0 zeros"}, afterThePlans, 1);
}

/// The retry raises force-test, too: it is lowered after both.
TEST(Retries, aRestoreDuringARetryLeavesNothing) {
    refusedOnce("F0Md")
        .call(5s, Method::restoreAuto, "other")
        .between(5s, 5100ms, 9s)
        .comesTo({"auto auto, then auto auto"}, soonAndAtTheEnd);
}

/// The same, and the process ends for good.
/// The process may end when the retry, which finds nothing left to give back, has raised "Ftst" and
/// not yet lowered it. No fan is forced by that.
TEST(Retries, aSignalDuringARetryLeavesNothing) {
    refusedOnce("F0Md")
        .signal(5s)
        .between(5s, 5100ms, 9s)
        .comesTo({"auto auto, then auto auto"}, soonAndAtTheEnd, 2,
                 {"auto auto Ftst, then auto auto Ftst"});
}

/// The plan at 3.74 s drops fan 0, which refuses to go. It is tried again when a control step is at
/// fan 1, and everything is to be given back.
TEST(Retries, aRestoreDuringARetryAndAStepLeavesNothing) {
    Situation()
        .apply(1s, {3000, 3000}, "app")
        .refuse("F0Md", 0, 2s, 5s)
        .apply(3740ms, {0, 3000}, "app")
        .call(5740ms, Method::restoreAuto, "other")
        .between(5740ms, 5750ms, 9s)
        .comesTo({"auto auto, then auto auto"}, soonAndAtTheEnd, 1);
}

/// The partial retry leaves the fan that the plan holds alone.
TEST(Retries, aRetryDuringAStepGivesBackItsFanAlone) {
    Situation()
        .apply(1s, {3000, 3000}, "app")
        .refuse("F0Md", 0, 2s, 5s)
        .apply(3740ms, {0, 3000}, "app")
        .between(5740ms, 5750ms, 9s)
        .comesTo({"auto 3000 Ftst, then auto 3000 Ftst"}, soonAndAtTheEnd);
}

}  // namespace
}  // namespace airflow::simulation
