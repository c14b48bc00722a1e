#include <gmock/gmock.h>

#include <chrono>

#include "support/Doubles.h"
#include "support/ScenarioText.h"

namespace airflow::simulation {
namespace {

using tests::infinity;
using namespace std::chrono_literals;

tests::ParsedScenario parseEvent(const std::string& event) {
    return Scenario::parse(
        R"({"machine":"laptop","events":[)" + event + "]}",
        [](const std::string&) -> std::expected<std::string, std::string> { return "no plan"; });
}

/// The one event; a heartbeat that never comes where there is an error.
template <typename T>
T eventOf(const std::string& text) {
    const auto scenario = parseEvent(text);
    EXPECT_TRUE(scenario) << scenario.error().describe(text);
    if (!scenario || !std::holds_alternative<T>(scenario->events.at(0))) {
        ADD_FAILURE() << text << " is another event";
        return {};
    }
    return std::get<T>(scenario->events.at(0));
}

std::string errorIn(const std::string& event) {
    return tests::errorOf(parseEvent(event));
}

TEST(ScenarioEvents, aCallHasAClient) {
    EXPECT_EQ(eventOf<Call>(R"({"at":1,"call":"automatic"})").client, "app");
    EXPECT_EQ(eventOf<Call>(R"({"at":1,"call":"automatic","client":"b"})").client, "b");
    EXPECT_EQ(
        eventOf<Call>(R"({"at":1,"call":"setManualRPM","fan":0,"rpm":1,"client":"b"})").client,
        "b");
    EXPECT_EQ(
        eventOf<Call>(R"({"at":1,"call":"setPercent","fan":0,"percent":1,"client":"b"})").client,
        "b");
    EXPECT_EQ(eventOf<Call>(R"({"at":1,"call":"applyConfig","document":"","client":"b"})").client,
              "b");
    EXPECT_EQ(errorIn(R"({"at":1,"call":"automatic","client":7})"),
              "events[0].client: Expected a string but found a number.");
}

TEST(ScenarioEvents, heartbeatsHaveAClient) {
    const auto beats = eventOf<Heartbeats>(R"({"at":1,"client":"b","heartbeatEvery":2,"until":9})");
    EXPECT_EQ(beats.client, "b");
    EXPECT_EQ(beats.every, 2s);
    EXPECT_EQ(eventOf<Heartbeats>(R"({"at":1,"heartbeatEvery":2,"until":9})").client, "app");
}

TEST(ScenarioEvents, aDocumentIsSentAsItIs) {
    const auto call = eventOf<Call>(R"({"at":1,"call":"applyConfig","document":"no {plan"})");
    EXPECT_EQ(call.document, "no {plan");
    EXPECT_EQ(planDocument(call), "no {plan");
    EXPECT_EQ(planDocument(eventOf<Call>(R"({"at":1,"call":"applyConfig","document":""})")), "");
}

TEST(ScenarioEvents, aPlanIsSentAsItsDocument) {
    const std::string plan =
        R"({"fans":[],"rules":[],"tuning":{"emaAlpha":0.3,"hysteresisCelsius":2,)"
        R"("maxDeltaRPMPerTick":400,"minDwellSeconds":3}})";
    const auto call = eventOf<Call>(R"({"at":1,"call":"applyConfig","plan":)" + plan + "}");
    EXPECT_EQ(call.document, std::nullopt);
    const auto sent = json::decode<plan::FanControlPlan>(planDocument(call));
    ASSERT_TRUE(sent);
    EXPECT_EQ(*sent, call.plan);
}

TEST(ScenarioEvents, aPlanThatHasNoJSONFormIsNoDocument) {
    Call call{.method = Call::Method::applyConfig};
    call.plan.tuning.emaAlpha = infinity;
    EXPECT_EQ(planDocument(call), "");
}

TEST(ScenarioEvents, aClientConnectsAndDisconnects) {
    const auto opened = eventOf<ConnectionChange>(R"({"at":1.5,"connect":"b"})");
    EXPECT_EQ(opened.at, 1500ms);
    EXPECT_EQ(opened.kind, ConnectionChange::Kind::connect);
    EXPECT_EQ(opened.client, "b");
    EXPECT_FALSE(opened.isUntrusted);
    EXPECT_TRUE(eventOf<ConnectionChange>(R"({"at":1,"connect":"b","stranger":true})").isUntrusted);
    EXPECT_FALSE(
        eventOf<ConnectionChange>(R"({"at":1,"connect":"b","stranger":false})").isUntrusted);
    const auto ended = eventOf<ConnectionChange>(R"({"at":2,"disconnect":"b"})");
    EXPECT_EQ(ended.kind, ConnectionChange::Kind::disconnect);
    EXPECT_EQ(ended.client, "b");
}

TEST(ScenarioEvents, whatIsWrongWithAConnectionHasItsPlace) {
    EXPECT_EQ(errorIn(R"({"connect":"b"})"), "events[0]: The required key \"at\" is missing.");
    EXPECT_EQ(errorIn(R"({"at":1,"connect":true})"),
              "events[0].connect: Expected a string but found a boolean.");
    EXPECT_EQ(errorIn(R"({"at":1,"connect":"b","stranger":1})"),
              "events[0].stranger: Expected a boolean but found a number.");
    EXPECT_EQ(errorIn(R"({"at":1,"disconnect":"b","stranger":true})"),
              "events[0].stranger: Unknown key.");
    EXPECT_EQ(errorIn(R"({"at":1,"connect":"b","disconnect":"b"})"),
              "events[0].disconnect: Unknown key.");
    EXPECT_EQ(errorIn(R"({"at":1,"connect":"b","client":"b"})"), "events[0].client: Unknown key.");
}

TEST(ScenarioEvents, theProcessIsSignalledKilledStoppedAndStarted) {
    using Kind = ProcessEvent::Kind;
    EXPECT_EQ(eventOf<ProcessEvent>(R"({"at":1,"signal":"SIGTERM"})").kind, Kind::terminate);
    EXPECT_EQ(eventOf<ProcessEvent>(R"({"at":1,"signal":"SIGINT"})").kind, Kind::interrupt);
    EXPECT_EQ(eventOf<ProcessEvent>(R"({"at":1,"kill":true})").kind, Kind::kill);
    EXPECT_EQ(eventOf<ProcessEvent>(R"({"at":1,"stop":true})").kind, Kind::stop);
    const auto started = eventOf<ProcessEvent>(R"({"at":1,"start":true})");
    EXPECT_EQ(started.kind, Kind::start);
    EXPECT_EQ(started.at, 1s);
    EXPECT_EQ(started.afterSteps, 0U);
}

TEST(ScenarioEvents, signalsKillsAndStopsMayComeSomeStepsLater) {
    EXPECT_EQ(eventOf<ProcessEvent>(R"({"at":1,"signal":"SIGTERM","afterSteps":7})").afterSteps,
              7U);
    EXPECT_EQ(eventOf<ProcessEvent>(R"({"at":1,"kill":true,"afterSteps":0})").afterSteps, 0U);
    EXPECT_EQ(eventOf<ProcessEvent>(R"({"at":1,"kill":true,"afterSteps":1000000000})").afterSteps,
              1'000'000'000U);
    EXPECT_EQ(eventOf<ProcessEvent>(R"({"at":1,"stop":true,"afterSteps":3})").afterSteps, 3U);
    const std::string range = "events[0].afterSteps: Expected a whole number from 0 to 1000000000.";
    EXPECT_EQ(errorIn(R"({"at":1,"kill":true,"afterSteps":-1})"), range);
    EXPECT_EQ(errorIn(R"({"at":1,"kill":true,"afterSteps":1000000001})"), range);
    EXPECT_EQ(errorIn(R"({"at":1,"start":true,"afterSteps":1})"),
              "events[0].afterSteps: Unknown key.");
}

TEST(ScenarioEvents, whatIsWrongWithAProcessEventHasItsPlace) {
    EXPECT_EQ(errorIn(R"({"at":1,"signal":"SIGHUP"})"),
              "events[0].signal: Expected \"SIGTERM\" or \"SIGINT\".");
    EXPECT_EQ(errorIn(R"({"at":1,"kill":false})"), "events[0].kill: Expected true.");
    EXPECT_EQ(errorIn(R"({"at":1,"start":false})"), "events[0].start: Expected true.");
    EXPECT_EQ(errorIn(R"({"at":1,"stop":false})"), "events[0].stop: Expected true.");
    EXPECT_EQ(errorIn(R"({"at":1,"stop":"SIGABRT"})"),
              "events[0].stop: Expected a boolean but found a string.");
    EXPECT_EQ(errorIn(R"({"at":1,"kill":true,"stop":true})"), "events[0].stop: Unknown key.");
    EXPECT_EQ(errorIn(R"({"at":1,"kill":true,"signal":"SIGTERM"})"),
              "events[0].kill: Unknown key.");
    EXPECT_EQ(errorIn(R"({"at":1,"start":true,"kill":true})"), "events[0].start: Unknown key.");
    EXPECT_EQ(errorIn(R"({"kill":true})"), "events[0]: The required key \"at\" is missing.");
}

TEST(ScenarioEvents, lengthenTheScenario) {
    for (const char* event : {R"({"at":7,"connect":"b"})", R"({"at":7,"disconnect":"b"})",
                              R"({"at":7,"signal":"SIGTERM"})", R"({"at":7,"kill":true})",
                              R"({"at":7,"stop":true})", R"({"at":7,"start":true})"}) {
        EXPECT_EQ(parseEvent(event)->length(), 37s) << event;
    }
}

}  // namespace
}  // namespace airflow::simulation
