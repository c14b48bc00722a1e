// Clients and the process end while something is under way.
#include "Situation.h"

namespace airflow::simulation {
namespace {

std::string soonAndAtTheEnd(const Witness& seen) {
    return seen.machineAt(3) + ", then " + seen.machineAtEnd();
}

TEST(Ends, aClientThatGoesDuringItsClaimsLeavesNothing) {
    Situation()
        .add(Fault{.key = "F0Md", .value = 1, .latency = 10ms})
        .apply(1s, {3000, 3000}, "app")
        .disconnect(1010ms, "app")
        .between(1010ms, 1020ms, 5s)
        .comesTo({"auto auto, then auto auto"}, soonAndAtTheEnd);
}

/// The end of any client gives all fans back, whoever set them: only what comes after it stays.
TEST(Ends, aClientThatGoesAndThePlanOfAnother) {
    Situation()
        .apply(1s, {3000, 3000}, "app")
        .disconnect(2s, "app")
        .apply(2s, {4000, 4000}, "other")
        .between(2s, 2100ms, 6s)
        .comesTo({"4000 4000 Ftst, then 4000 4000 Ftst", "auto auto, then auto auto"},
                 soonAndAtTheEnd);
}

TEST(Ends, twoClientsThatGoDuringAStepLeaveNothing) {
    Situation()
        .apply(1s, {3000, 3000}, "app")
        .disconnect(2580ms, "app")
        .disconnect(2580ms, "other")
        .between(2580ms, 2590ms, 5s)
        .comesTo({"auto auto, then auto auto"}, soonAndAtTheEnd, 1);
}

/// A command that is sent in the moment of its client's end may reach the controller after the
/// release. While another client is there it counts as newer, and the watchdog ends what it
/// began: 15 s and a tick.
TEST(Ends, aCommandSentAtItsClientsEndMayComeAfterTheRelease) {
    Situation()
        .call(1s, Method::fullBlast, "app")
        .disconnect(1s, "app")
        .between(1s, 1100ms, 18s)
        .comesTo({"6000 6000 Ftst, then auto auto", "auto auto, then auto auto"}, soonAndAtTheEnd);
}

/// With the last client the gate closes: whatever came before its end forces nothing after it.
TEST(Ends, aCommandSentAtTheLastClientsEndLeavesNothing) {
    Situation()
        .disconnect(700ms, "other")
        .call(1s, Method::fullBlast, "app")
        .disconnect(1s, "app")
        .between(1s, 1100ms, 5s)
        .comesTo({"auto auto, then auto auto"}, soonAndAtTheEnd);
}

/// The claims are in their first steps when the restoration begins. Nothing starts the process
/// again that could give back what it left.
TEST(Ends, aSignalDuringAPlanLeavesNothing) {
    Situation()
        .apply(1s, {3000, 3000}, "app")
        .signal(1s)
        .between(1s, 1100ms, 6s)
        .comesTo({"auto auto, then auto auto"}, soonAndAtTheEnd);
}

/// What is held when the signal comes is never left, whatever else a step is about to write.
TEST(Ends, aSignalDuringAStepLeavesNothing) {
    Situation()
        .apply(1s, {3000, 3000}, "app")
        .signal(2580ms)
        .between(2580ms, 2590ms, 4s)
        .comesTo({"auto auto, then auto auto"}, soonAndAtTheEnd);
}

/// The first signal is handled, the other never.
TEST(Ends, ofTwoSignalsOneIsHandled) {
    const auto outcome = [](const Witness& seen) {
        std::string text = seen.machineAtEnd() + fmt::format(", {}:", seen.ends.at(0).status);
        for (const std::string& line : seen.log) {
            const std::size_t end = line.find(": restoring Auto...");
            if (end != std::string::npos) text += line.substr(line.find(' '), end - line.find(' '));
        }
        return text;
    };
    Situation()
        .apply(1s, {3000, 3000}, "app")
        .signal(2580ms)
        .signal(2580ms, ProcessEvent::Kind::interrupt)
        .between(2580ms, 2590ms, 4s)
        .comesTo({"auto auto, 143: SIGTERM", "auto auto, 130: SIGINT"}, outcome);
}

}  // namespace
}  // namespace airflow::simulation
