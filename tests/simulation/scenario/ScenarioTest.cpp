#include <gmock/gmock.h>

#include <chrono>

#include "support/ScenarioText.h"

namespace airflow::simulation {
namespace {

using namespace std::chrono_literals;
using tests::parsedScenario;

/// "place: reason" of the error in a scenario that is otherwise good.
std::string errorIn(const std::string& members) {
    return tests::errorOf(parsedScenario(R"({"machine":"laptop",)" + members + "}"));
}

TEST(Scenario, readsEveryPart) {
    const auto scenario = parsedScenario(R"({
        "machine": {"preset": "busy", "fans": [{"minRPM": 1000, "maxRPM": 5000, "currentRPM": 1500,
            "modeKey": "F0md", "mode": 3}, {"modeKey": null}, {}], "hid": null,
            "smc": {"TCMz": 45.5}},
        "temperatures": [{"at": 10, "hid": {"PMU tdie1": 96.5, "gone": null}},
            {"at": 12, "hid": null}, {"at": 14, "smc": {"TCMz": 60}}],
        "faults": [{"from": 5, "until": 9, "key": "F0Md", "operation": "write", "value": 0,
            "result": 134}, {"operation": "read", "kernelReturn": -5, "latency": 0.25},
            {"operation": "information", "size": 33, "type": "ui8 "},
            {"operation": "enumeration"}, {"reading": 7.5, "effect": "applied"}],
        "firmware": [{"at": 20, "key": "F0md", "value": 3}],
        "events": [{"at": 1, "call": "setPercent", "fan": 1, "percent": 55},
            {"at": 0.5, "heartbeatEvery": 5, "until": 60}, {"at": 30, "wallClockJump": -3600}],
        "jitter": 0, "euid": 501, "duration": 90.5})");
    ASSERT_TRUE(scenario) << scenario.error().describe("scenario");
    EXPECT_EQ(scenario->machine.name, "busy");
    EXPECT_EQ(scenario->machine.busy, 3s);
    const std::vector<FanDescription> fans{
        {.minRPM = 1000, .maxRPM = 5000, .currentRPM = 1500, .modeKey = "F0md", .mode = 3},
        {.modeKey = std::nullopt},
        {.modeKey = "F2Md"}};
    EXPECT_EQ(scenario->machine.fans, fans);
    EXPECT_EQ(scenario->machine.hid, std::nullopt);
    EXPECT_EQ(scenario->machine.smc, (Temperatures{{"TCMz", 45.5}}));
    ASSERT_EQ(scenario->temperatures.size(), 3U);
    EXPECT_EQ(scenario->temperatures[0].at, 10s);
    EXPECT_EQ(scenario->temperatures[0].hid,
              (TemperatureChange::Values{{"PMU tdie1", 96.5}, {"gone", std::nullopt}}));
    EXPECT_FALSE(scenario->temperatures[0].hidesHID);
    EXPECT_TRUE(scenario->temperatures[1].hidesHID);
    EXPECT_EQ(scenario->temperatures[2].smc, (Temperatures{{"TCMz", 60.0}}));
    EXPECT_FALSE(scenario->thermal);
    const std::vector<Fault> faults{
        {.from = 5s, .until = 9s, .key = "F0Md", .value = 0, .result = 134},
        {.operation = Fault::Operation::read, .kernelReturn = -5, .latency = 250ms},
        {.operation = Fault::Operation::information, .size = 33, .type = "ui8 "},
        {.operation = Fault::Operation::enumeration},
        {.reading = 7.5, .effect = Fault::Effect::applied}};
    EXPECT_EQ(scenario->faults, faults);
    EXPECT_EQ(scenario->firmware.at(0).key, "F0md");
    EXPECT_EQ(scenario->firmware.at(0).value, 3);
    ASSERT_EQ(scenario->events.size(), 3U);
    EXPECT_EQ(std::get<Call>(scenario->events[0]).method, Call::Method::setPercent);
    EXPECT_EQ(std::get<Call>(scenario->events[0]).fan, 1);
    EXPECT_EQ(std::get<Call>(scenario->events[0]).percent, 55);
    EXPECT_EQ(std::get<Heartbeats>(scenario->events[1]).at, 500ms);
    EXPECT_EQ(std::get<Heartbeats>(scenario->events[1]).every, 5s);
    EXPECT_EQ(std::get<Heartbeats>(scenario->events[1]).until, 60s);
    EXPECT_EQ(std::get<WallClockJump>(scenario->events[2]).seconds, -3600);
    EXPECT_EQ(scenario->jitter, 0);
    EXPECT_EQ(scenario->effectiveUserID, 501U);
    EXPECT_EQ(scenario->length(), 90500ms);
}

TEST(Scenario, aFaultOfOneRequestIsWrittenAndReadAgain) {
    Scenario scenario;
    scenario.machine = machinePreset("laptop").value();
    scenario.faults = {{.key = "F0Md", .access = 12, .result = 0x86}, {.access = 1}};
    json::Writer writer;
    writer.write(scenario);
    const auto again = Scenario::parse(writer.take().value(), {});
    ASSERT_TRUE(again) << again.error().describe("scenario");
    EXPECT_EQ(again->faults, scenario.faults);
}

TEST(Scenario, aHubThatHangsIsWrittenAndReadAgain) {
    const auto scenario =
        parsedScenario(R"({"machine": "laptop", "hidHangs": [{"from": 5, "until": 40}, {}]})");
    ASSERT_TRUE(scenario) << scenario.error().describe("scenario");
    EXPECT_EQ(scenario->hidHangs, (std::vector<HIDHang>{{.from = 5s, .until = 40s}, {.from = 0s}}));
    EXPECT_EQ(scenario->length(), 70s);
    json::Writer writer;
    writer.write(*scenario);
    const auto again = Scenario::parse(writer.take().value(), {});
    ASSERT_TRUE(again) << again.error().describe("scenario");
    EXPECT_EQ(again->hidHangs, scenario->hidHangs);
}

TEST(Scenario, aHangThatWouldDoNothingIsAnErrorAtItsPlace) {
    EXPECT_EQ(errorIn(R"("hidHangs":[{},{"from":1,"to":2}])"), "hidHangs[1].to: Unknown key.");
    EXPECT_EQ(errorIn(R"("hidHangs":[{"from":5,"until":5}])"),
              "hidHangs[0]: A hang ends after it has begun.");
    EXPECT_EQ(errorIn(R"("hidHangs":{})").substr(0, 9), "hidHangs:");
    const auto blind = parsedScenario(R"({"machine":"no-hid-symbols","hidHangs":[{}]})");
    ASSERT_FALSE(blind);
    EXPECT_EQ(blind.error().codingPath, "hidHangs[0]");
    EXPECT_EQ(blind.error().description, "This machine has no HID functions.");
}

TEST(Scenario, readsALoadInsteadOfTemperatures) {
    const auto scenario = parsedScenario(R"({"machine": "laptop", "temperatures": null,
        "thermal": {"load": [{"at": 0, "watts": 8}, {"at": 60, "watts": 45}], "ambient": 20}})");
    ASSERT_TRUE(scenario) << scenario.error().describe("scenario");
    EXPECT_EQ(scenario->thermal->load, (ThermalModel::Load{{0s, 8.0}, {60s, 45.0}}));
    EXPECT_EQ(scenario->thermal->ambient, 20);
}

TEST(Scenario, everyCommandHasItsName) {
    const std::vector<std::pair<std::string, Call::Method>> commands{
        {R"("setManualRPM","fan":0,"rpm":2000)", Call::Method::setManualRPM},
        {R"("setPercent","fan":0,"percent":5)", Call::Method::setPercent},
        {R"("fullBlast")", Call::Method::fullBlast},
        {R"("automatic")", Call::Method::automatic},
        {R"("restoreAuto")", Call::Method::restoreAuto},
        {R"("heartbeat")", Call::Method::heartbeat},
        {R"("readState")", Call::Method::readState},
        {R"("helperVersion")", Call::Method::helperVersion},
        {R"("shutdownForUpgrade")", Call::Method::shutdownForUpgrade},
    };
    for (const auto& [text, method] : commands) {
        const auto scenario =
            parsedScenario(R"({"machine":"laptop","events":[{"at":1,"call":)" + text + "}]}");
        ASSERT_TRUE(scenario) << text << scenario.error().describe("scenario");
        EXPECT_EQ(std::get<Call>(scenario->events.at(0)).method, method);
        EXPECT_TRUE(text.starts_with('"' + std::string(nameOf(method)) + '"'));
    }
}

TEST(Scenario, lastsUntilHalfAMinuteAfterTheLastThingThatHappens) {
    const auto length = [](const std::string& members) {
        return parsedScenario(R"({"machine":"laptop")" + members + "}")->length();
    };
    EXPECT_EQ(length(""), 30s);
    EXPECT_EQ(length(R"(,"events":[{"at":7,"call":"automatic"}])"), 37s);
    EXPECT_EQ(length(R"(,"events":[{"at":7,"heartbeatEvery":1,"until":9}])"), 39s);
    EXPECT_EQ(length(R"(,"faults":[{"from":5}])"), 35s);
    EXPECT_EQ(length(R"(,"faults":[{"until":6}])"), 36s);
    EXPECT_EQ(length(R"(,"firmware":[{"at":8,"key":"F0Md","value":3}])"), 38s);
    EXPECT_EQ(length(R"(,"temperatures":[{"at":11,"hid":null}])"), 41s);
    EXPECT_EQ(length(R"(,"thermal":{"load":[{"at":12,"watts":1}]})"), 42s);
}

TEST(Scenario, anUnknownKeyIsAnErrorAtItsPlace) {
    EXPECT_EQ(errorIn(R"("event":[])"), "event: Unknown key.");
    EXPECT_EQ(errorIn(R"("faults":[{"form":1}])"), "faults[0].form: Unknown key.");
    EXPECT_EQ(errorIn(R"("temperatures":[{"at":1,"HID":null}])"),
              "temperatures[0].HID: Unknown key.");
    EXPECT_EQ(errorIn(R"("thermal":{"load":[{"at":0,"watt":1}]})"),
              "thermal.load[0].watt: Unknown key.");
    EXPECT_EQ(errorIn(R"("firmware":[{"at":0,"keys":1}])"), "firmware[0].keys: Unknown key.");
    EXPECT_EQ(errorIn(R"("events":[{"at":0,"call":"automatic","fan":1}])"),
              "events[0].fan: Unknown key.");
    EXPECT_EQ(errorIn(R"("events":[{"at":0,"heartbeatEvery":1,"untill":3}])"),
              "events[0].untill: Unknown key.");
    EXPECT_EQ(parsedScenario(R"({"machine":{"fans":[{"min":1}]}})").error().codingPath,
              "machine.fans[0].min");
    EXPECT_EQ(parsedScenario(R"({"machine":{"hids":null}})").error().codingPath, "machine.hids");
}

TEST(Scenario, changesAreListedInOrderOfTime) {
    EXPECT_EQ(errorIn(R"("temperatures":[{"at":2,"hid":null},{"at":2,"hid":null}])"), "no error");
    EXPECT_EQ(errorIn(R"("temperatures":[{"at":2,"hid":null},{"at":1.9,"hid":null}])"),
              "temperatures[1]: Changes are listed in order of time.");
    EXPECT_EQ(errorIn(R"("firmware":[{"at":2,"key":"Ftst","value":1},)"
                      R"({"at":2,"key":"Ftst","value":0}])"),
              "no error");
    EXPECT_EQ(errorIn(R"("firmware":[{"at":1,"key":"Ftst","value":1},)"
                      R"({"at":3,"key":"Ftst","value":0},{"at":2,"key":"Ftst","value":1}])"),
              "firmware[2]: Changes are listed in order of time.");
}

TEST(Scenario, temperaturesAndALoadExcludeEachOther) {
    const std::string reason = "temperatures: With \"thermal\", temperatures follow the load.";
    EXPECT_EQ(errorIn(R"("temperatures":[{"at":2,"hid":null}],"thermal":{"load":[]})"), reason);
    EXPECT_EQ(errorIn(R"("thermal":{"load":[]},"temperatures":[])"), reason);
}

TEST(Scenario, theFirmwareChangesKeysThatTheMachineHasAndThatCanBeWritten) {
    for (const char* key : {"F0Md", "F1Md", "F0Tg", "F1Tg", "Ftst"}) {
        EXPECT_EQ(errorIn(R"("firmware":[{"at":0,"key":")" + std::string(key) + R"(","value":0}])"),
                  "no error");
    }
    for (const char* key : {"F2Md", "F0md", "F2Tg", "F0Ac", "F0Mx", "FNum", "TCMz"}) {
        EXPECT_EQ(errorIn(R"("firmware":[{"at":0,"key":")" + std::string(key) + R"(","value":0}])"),
                  "firmware[0].key: This machine has no such key that can be written.");
    }
    const auto keyless = parsedScenario(R"({"machine":"no-mode-key",)"
                                        R"("firmware":[{"at":0,"key":"F0Md","value":0}]})");
    EXPECT_EQ(keyless.error().codingPath, "firmware[0].key");
}

TEST(Scenario, temperatureKeysAreThoseOfTheMachine) {
    EXPECT_EQ(errorIn(R"("temperatures":[{"at":0,"smc":{"TCMz":50}}])"), "no error");
    EXPECT_EQ(errorIn(R"("temperatures":[{"at":0,"smc":{"TCMz":50,"TCXX":50}}])"),
              "temperatures[0].smc.TCXX: This machine has no such temperature key.");
}

TEST(Scenario, aWrongValueIsAnErrorAtItsPlace) {
    EXPECT_EQ(parsedScenario("{}").error().description, "The required key \"machine\" is missing.");
    EXPECT_EQ(parsedScenario(R"({"machine":"toaster"})").error().description,
              "There is no machine of this name.");
    EXPECT_EQ(parsedScenario(R"({"machine":{"fans":[{"modeKey":"F1Md"}]}})").error().description,
              "Expected \"F0Md\", \"F0md\" or null.");
    EXPECT_EQ(parsedScenario(R"({"machine":{"fans":[{},{},{},{},{},{},{},{},{},{},{}]}})")
                  .error()
                  .description,
              "A machine has ten fans at most.");
    EXPECT_EQ(parsedScenario(R"({"machine":{"smc":{"TC":1}}})").error().description,
              "A key has four characters.");
    EXPECT_EQ(errorIn(R"("duration":-1)"), "duration: Expected seconds from 0 to 100000000.");
    EXPECT_EQ(errorIn(R"("duration":1e9)"), "duration: Expected seconds from 0 to 100000000.");
    EXPECT_EQ(errorIn(R"("euid":-1)"), "euid: Expected a whole number from 0 to 4294967295.");
    EXPECT_EQ(errorIn(R"("faults":[{"key":"F0M"}])"), "faults[0].key: Expected four characters.");
    EXPECT_EQ(errorIn(R"("faults":[{"access":0}])"),
              "faults[0].access: Expected a whole number from 1 to 9223372036854775807.");
    EXPECT_EQ(errorIn(R"("faults":[{"result":256}])"),
              "faults[0].result: Expected a whole number from 0 to 255.");
    EXPECT_EQ(errorIn(R"("faults":[{"operation":"erase"}])"),
              "faults[0].operation: "
              "Expected \"read\", \"write\", \"information\" or \"enumeration\".");
    EXPECT_EQ(errorIn(R"("faults":[{"effect":"odd"}])"),
              "faults[0].effect: Expected \"natural\", \"ignored\" or \"applied\".");
    EXPECT_EQ(errorIn(R"("thermal":{"load":[{"at":2,"watts":1},{"at":1,"watts":1}]})"),
              "thermal.load[1]: Loads are listed in order of time.");
    EXPECT_EQ(errorIn(R"("events":[{"at":0,"call":"melt"}])"),
              "events[0].call: There is no command of this name.");
    EXPECT_EQ(errorIn(R"("events":[{"at":0}])"),
              "events[0]: The required key \"heartbeatEvery\" is missing.");
    EXPECT_EQ(errorIn(R"("events":[{"at":0,"heartbeatEvery":0,"until":1}])"),
              "events[0].heartbeatEvery: Expected more than 0 seconds.");
    EXPECT_EQ(errorIn(R"("events":[{"at":0,"call":"applyConfig","plan":{"fans":[]}}])"),
              "events[0].plan: The required key \"rules\" is missing.");
    EXPECT_EQ(errorIn(R"("events":[{"at":0,"call":"applyConfig","plan":"p.json"}])"),
              "events[0].plan: p.json: there is no file");
}

TEST(Scenario, aSensorThatTheMachineDoesNotHaveIsNamed) {
    EXPECT_EQ(errorIn(R"("temperatures":[{"at":1,"hid":{"PMU tdei1":97}}])"),
              "temperatures[0].hid.PMU tdei1: This machine has no HID sensor of this name.");
    EXPECT_EQ(errorIn(R"("temperatures":[{"at":1,"hid":{"PMU tdei1":null}}])"),
              "temperatures[0].hid.PMU tdei1: This machine has no HID sensor of this name.");
    const auto errorOfMachine = [](const std::string& machine) {
        return tests::errorOf(parsedScenario(R"({"machine":)" + machine +
                                             R"(,"temperatures":[{"at":1,"hid":{"new":50}}]})"));
    };
    EXPECT_EQ(errorOfMachine(R"("no-hid-symbols")"),
              "temperatures[0].hid: This machine has no HID functions.");
    EXPECT_TRUE(
        parsedScenario(R"({"machine":{"hid":null},"temperatures":[{"at":1,"hid":{"new":50}}]})"));
}

}  // namespace
}  // namespace airflow::simulation
