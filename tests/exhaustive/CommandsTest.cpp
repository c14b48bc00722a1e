// Commands that arrive together, or in the middle of each other.
#include <algorithm>

#include "Situation.h"

namespace airflow::simulation {
namespace {

std::string soonAndAtTheEnd(const Witness& seen) {
    return seen.machineAt(2) + ", then " + seen.machineAtEnd();
}

/// One is the last, and that one is in force: never a mixture of both.
TEST(Commands, ofTwoPlansAtOnceOneIsInForce) {
    Situation()
        .apply(1s, {3000, 0}, "app")
        .apply(1s, {0, 4000}, "other")
        .between(1s, 1100ms, 5s)
        .comesTo({"3000 auto Ftst, then 3000 auto Ftst", "auto 4000 Ftst, then auto 4000 Ftst"},
                 soonAndAtTheEnd, 1);
}

/// A plan that comes last is held until its client has been silent for too long.
TEST(Commands, ofAPlanAndARestoreAtOnceOneIsInForce) {
    Situation()
        .apply(1s, {3000, 3000}, "app")
        .call(1s, Method::restoreAuto, "other")
        .between(1s, 1100ms, 18s)
        .comesTo({"3000 3000 Ftst, then auto auto", "auto auto, then auto auto"}, soonAndAtTheEnd);
}

TEST(Commands, aRestoreDuringThePlansClaimsIsTheLastWord) {
    Situation()
        .add(Fault{.key = "F0Md", .value = 1, .latency = 10ms})
        .apply(1s, {3000, 3000}, "app")
        .call(1010ms, Method::restoreAuto, "other")
        .between(1010ms, 1020ms, 5s)
        .comesTo({"auto auto, then auto auto"}, soonAndAtTheEnd);
}

TEST(Commands, aRestoreDuringThePlansStepIsTheLastWord) {
    Situation()
        .apply(1s, {3000, 3000}, "app")
        .call(1080ms, Method::restoreAuto, "other")
        .between(1080ms, 1090ms, 5s)
        .comesTo({"auto auto, then auto auto"}, soonAndAtTheEnd);
}

TEST(Commands, automaticDuringThePlansStepIsTheLastWord) {
    const auto outcome = [](const Witness& seen) {
        return soonAndAtTheEnd(seen) + "; " + seen.answerTo("automatic");
    };
    Situation()
        .apply(1s, {3000, 3000}, "app")
        .call(1080ms, Method::automatic, "other")
        .between(1080ms, 1090ms, 5s)
        .comesTo({"auto auto, then auto auto; applied"}, outcome);
}

/// The restoration waits for the driver when the plan comes.
TEST(Commands, aPlanDuringARestoreIsTheLastWord) {
    const auto outcome = [](const Witness& seen) {
        return seen.machineAt(4) + ", then " + seen.machineAtEnd();
    };
    Situation()
        .apply(1s, {3000, 3000}, "app")
        .add(Fault{.key = "F0Md", .value = 0, .latency = 10ms})
        .call(3s, Method::restoreAuto, "other")
        .apply(3010ms, {4000, 4000}, "app")
        .between(3010ms, 3100ms, 7s)
        .comesTo({"4000 4000 Ftst, then 4000 4000 Ftst"}, outcome);
}

/// Two releases, by the command and by the exit, whatever the plan does. What comes into force
/// after the first is given back by the second.
TEST(Commands, aPlanDuringAnUpgradeDoesNotOutliveTheProcess) {
    const auto outcome = [](const Witness& seen) {
        const auto isRelease = [](const auto& write) {
            return write.first >= 3s && write.second == "F0Md=0";
        };
        return fmt::format("{}, status {}, {} releases", seen.machineAtEnd(),
                           seen.ends.at(0).status, std::ranges::count_if(seen.writes, isRelease));
    };
    Situation()
        .apply(1s, {3000, 3000}, "app")
        .call(3s, Method::shutdownForUpgrade, "other")
        .apply(3s, {4000, 4000}, "app")
        .between(3s, 3250ms, 5s)
        .comesTo({"auto auto, status 0, 2 releases"}, outcome);
}

/// The state is told as it was before or as it is afterwards, never half of each.
TEST(Commands, theStateDuringARestoreIsWhole) {
    const auto outcome = [](const Witness& seen) {
        const auto& state = seen.read.value();
        return fmt::format("{}, {} modes, {} targets", state.isHolding ? "holding" : "not holding",
                           state.perFanMode.size(), state.targets.size());
    };
    Situation()
        .apply(1s, {3000, 3000}, "app")
        .call(3s, Method::restoreAuto, "other")
        .call(3s, Method::readState, "app")
        .between(3s, 3010ms, 4s)
        .comesTo({"holding, 2 modes, 2 targets", "not holding, 0 modes, 0 targets"}, outcome);
}

/// The last of the three is in force. A claim that succeeds while the restoration is under way is
/// not forgotten by it, and a plan holds no fan that it does not name.
TEST(Commands, ofTwoPlansAndARestoreAtOnceOneIsInForce) {
    Situation()
        .apply(1s, {3000, 0}, "app")
        .apply(1s, {0, 4000}, "other")
        .call(1s, Method::restoreAuto, "other")
        .between(1s, 1010ms, 18s)
        .comesTo({"3000 auto Ftst, then auto auto", "auto 4000 Ftst, then auto auto",
                  "auto auto, then auto auto"},
                 soonAndAtTheEnd, 1);
}

}  // namespace
}  // namespace airflow::simulation
