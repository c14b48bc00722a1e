#include <gmock/gmock.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <string>

#include "remote/MachineHost.h"
#include "smc/SMCRequests.h"

namespace airflow::remote {
namespace {

using namespace std::chrono_literals;
using concurrency::Duration;

/// One fan and two sensors.
simulation::MachineDescription smallMachine() {
    simulation::MachineDescription machine{.name = "small"};
    machine.fans = {{.minRPM = 1000, .maxRPM = 5000, .currentRPM = 1000, .modeKey = "F0Md"}};
    machine.hid = simulation::Temperatures{{"PMU tdie1", 40}};
    machine.smc = {{"TB0T", 30}};
    return machine;
}

class MachineHostTest : public testing::Test {
protected:
    void start(MachineHost::Options options) {
        host = std::make_unique<MachineHost>(std::move(options),
                                             [this] { return concurrency::Instant(now); });
        smc = std::make_unique<smc::SMCRequests>(host->served().smc);
        ASSERT_TRUE(smc->open());
    }
    void SetUp() override { start({.machine = smallMachine()}); }

    std::string ask(const std::string& request) { return host->served().control(request); }
    MachineStatus status() {
        const auto decoded = json::decode<MachineStatus>(ask(R"({"status":{}})"));
        EXPECT_TRUE(decoded);
        return decoded.value_or(MachineStatus{});
    }
    double celsius(const std::string& label) {
        const auto hid = status().hid.value_or(simulation::Temperatures{});
        for (const auto& [name, value] : hid) {
            if (name == label) return value;
        }
        return -1;
    }

    Duration now = 1000s;
    std::unique_ptr<MachineHost> host;
    std::unique_ptr<smc::SMCRequests> smc;
};

TEST_F(MachineHostTest, statusTellsTheTruth) {
    EXPECT_EQ(smc->writeUInt8("F0Md", 1), 0);
    EXPECT_EQ(smc->writeFloat("F0Tg", 2500), 0);
    EXPECT_EQ(smc->writeFloat("F0Tg", 3000), 0);
    EXPECT_EQ(smc->writeUInt8("Ftst", 1), 0);
    EXPECT_EQ(ask(R"({"status":{}})"),
              R"({"machine":"small","seconds":0,"Ftst":1,)"
              R"("fans":[{"id":0,"mode":1,"targetRPM":3000,"currentRPM":1000}],)"
              R"("hid":{"PMU tdie1":42.1},"smc":{"TB0T":37.9},"faults":0,)"
              R"("requests":{"smc":0,"hid":0},"writes":{"F0Md":1,"F0Tg":2,"Ftst":1},)"
              R"("openConnections":1,"hidObjects":0})");
}

TEST_F(MachineHostTest, statusCountsWhatCameOverConnections) {
    host->served().smcRequests = 3;
    host->served().hidRequests = 4;
    const auto held = host->served().objects.makeText("held");
    EXPECT_EQ(status().smcRequests, 3);
    EXPECT_EQ(status().hidRequests, 4);
    EXPECT_EQ(status().hidObjects, 1);
    host->served().objects.release(held);
    EXPECT_EQ(status().hidObjects, 0);
}

TEST_F(MachineHostTest, aTargetThatIsNoNumberIsLeftOut) {
    EXPECT_EQ(smc->writeFloat("F0Tg", std::numeric_limits<double>::quiet_NaN()), 0);
    EXPECT_EQ(status().fans.at(0).targetRPM, std::nullopt);
    EXPECT_EQ(smc->writeFloat("F0Tg", std::numeric_limits<double>::infinity()), 0);
    EXPECT_EQ(status().fans.at(0).targetRPM, std::nullopt);
}

TEST_F(MachineHostTest, itsTimeBeginsWithItAndRunsAsFastAsToldTo) {
    start({.machine = smallMachine(), .speed = 10});
    EXPECT_EQ(status().seconds, 0);
    now += 1500ms;
    EXPECT_EQ(status().seconds, 15);
}

TEST_F(MachineHostTest, slowAnswersAreSoManyTimesFasterToo) {
    start({.machine = smallMachine(), .speed = 10});
    EXPECT_EQ(ask(R"({"faults":[{"key":"F0Md","latency":5}]})"), "{}");
    EXPECT_EQ(smc->writeUInt8("F0Md", 1), 0);
    EXPECT_EQ(host->served().takeLatency(), 500ms);
    EXPECT_EQ(host->served().takeLatency(), 0s);
}

TEST_F(MachineHostTest, theTimesOfFaultsCountFromNow) {
    now += 100s;
    EXPECT_EQ(ask(R"({"faults":[{"key":"F0Md","result":134,"from":1,"until":5}]})"), "{}");
    EXPECT_EQ(status().faults, 1);
    const auto write = [this] { return smc->writeUInt8("F0Md", 0).value(); };
    now += 999ms;
    EXPECT_EQ(write(), 0);
    now += 1ms;
    EXPECT_EQ(write(), 134);
    now += 3999ms;
    EXPECT_EQ(write(), 134);
    now += 1ms;
    EXPECT_EQ(write(), 0);
}

TEST_F(MachineHostTest, aFaultWithoutAnEndLastsUntilFaultsAreCleared) {
    now += 100s;
    EXPECT_EQ(ask(R"({"faults":[{"key":"FNum","operation":"read","result":132},)"
                  R"({"operation":"write","result":134}]})"),
              "{}");
    EXPECT_EQ(status().faults, 2);
    now += 10'000s;
    EXPECT_EQ(smc->tryReadValue("FNum"), std::nullopt);
    EXPECT_EQ(smc->writeUInt8("F0Md", 0), 134);
    EXPECT_EQ(ask(R"({"clear":{}})"), "{}");
    EXPECT_EQ(status().faults, 0);
    EXPECT_EQ(smc->tryReadValue("FNum")->numeric(), 1);
    EXPECT_EQ(smc->writeUInt8("F0Md", 0), 0);
}

TEST_F(MachineHostTest, temperaturesFollowALoadThatComesAndGoes) {
    double coolest = 200;
    double hottest = 0;
    for (int i = 0; i < 600; ++i) {
        now += 1s;
        coolest = std::min(coolest, celsius("PMU tdie1"));
        hottest = std::max(hottest, celsius("PMU tdie1"));
    }
    EXPECT_LT(coolest, 50);
    EXPECT_GT(hottest, 60);
    EXPECT_LT(hottest, 90) << "gently";
}

TEST_F(MachineHostTest, aConstantLoadSettles) {
    start({.machine = smallMachine(), .speed = 1, .load = 8});
    now += 3600s;
    const double early = celsius("PMU tdie1");
    now += 300s;
    EXPECT_NEAR(celsius("PMU tdie1"), early, 0.01);
    EXPECT_NEAR(early, 42.1, 0.2);
    now += 300s;
    EXPECT_EQ(ask(R"({"set":{"load":45}})"), "{}");
    EXPECT_NEAR(celsius("PMU tdie1"), early, 0.01) << "nothing jumps";
    now += 3600s;
    EXPECT_GT(celsius("PMU tdie1"), 75);
}

TEST_F(MachineHostTest, temperaturesThatWereSetStay) {
    EXPECT_EQ(ask(R"({"set":{"hid":{"PMU tdie1":97.5},"smc":{"TB0T":96}}})"), "{}");
    now += 600s;
    EXPECT_EQ(celsius("PMU tdie1"), 97.5);
    EXPECT_EQ(status().smc, (simulation::Temperatures{{"TB0T", 96}}));
    EXPECT_GT(status().fans.at(0).currentRPM, 4900) << "the firmware follows what it sees";
}

TEST_F(MachineHostTest, aLoadThatIsSetMovesTemperaturesAgain) {
    EXPECT_EQ(ask(R"({"set":{"hid":{"PMU tdie1":97}}})"), "{}");
    EXPECT_EQ(ask(R"({"set":{"load":"changing"}})"), "{}");
    now += 600s;
    EXPECT_LT(celsius("PMU tdie1"), 80);
}

TEST_F(MachineHostTest, temperaturesStandStillWithoutALoad) {
    now += 100s;
    const double before = celsius("PMU tdie1");
    EXPECT_EQ(ask(R"({"set":{"load":null}})"), "{}");
    now += 1000s;
    EXPECT_EQ(celsius("PMU tdie1"), before);
}

TEST_F(MachineHostTest, sensorsVanishOneByOneOrAllAtOnceAndComeBack) {
    auto machine = smallMachine();
    machine.hid->emplace_back("second", 50);
    start({.machine = machine});
    EXPECT_EQ(ask(R"({"set":{"hid":{"PMU tdie1":null,"second":50}}})"), "{}");
    EXPECT_EQ(status().hid, (simulation::Temperatures{{"second", 50}}));
    EXPECT_EQ(ask(R"({"set":{"hid":null}})"), "{}");
    EXPECT_EQ(status().hid, std::nullopt);
    EXPECT_EQ(ask(R"({"set":{"hid":{"second":null}}})"), "{}");
    EXPECT_EQ(status().hid, std::nullopt);
    EXPECT_EQ(ask(R"({"set":{"hid":{"PMU tdie1":51}}})"), "{}");
    EXPECT_EQ(status().hid, (simulation::Temperatures{{"PMU tdie1", 51}}));
}

TEST_F(MachineHostTest, aSensorThatTheMachineDoesNotHaveIsNamedAndNothingChanges) {
    EXPECT_EQ(ask(R"({"set":{"hid":{"PMU tdie1":97,"PMU tdei1":97},"keys":{"F0Md":1}}})"),
              R"({"error":"PMU tdei1 is no HID sensor of this machine"})");
    EXPECT_EQ(ask(R"({"set":{"hid":{"PMU tdei1":null}}})"),
              R"({"error":"PMU tdei1 is no HID sensor of this machine"})");
    EXPECT_EQ(celsius("PMU tdie1"), 42.1);
    EXPECT_EQ(status().fans.at(0).mode, 0);
}

TEST_F(MachineHostTest, aMachineWithoutSensorsMayGetSome) {
    auto machine = smallMachine();
    machine.hid.reset();
    start({.machine = machine});
    EXPECT_EQ(ask(R"({"set":{"hid":{"new one":20}}})"), "{}");
    EXPECT_EQ(status().hid, (simulation::Temperatures{{"new one", 20}}));
}

TEST_F(MachineHostTest, keysAreChangedAsIfByTheMachineItself) {
    EXPECT_EQ(ask(R"({"set":{"keys":{"F0Md":3,"F0Tg":2000,"Ftst":1}}})"), "{}");
    EXPECT_EQ(status().fans.at(0).mode, 3);
    EXPECT_EQ(status().fans.at(0).targetRPM, 2000);
    EXPECT_EQ(status().forceTest, 1);
    EXPECT_TRUE(status().writes.empty()) << "nobody wrote anything";
}

TEST_F(MachineHostTest, aChangeThatIsRefusedChangesNoTemperature) {
    EXPECT_EQ(ask(R"({"set":{"hid":{"PMU tdie1":97},"keys":{"F0Mx":1}}})"),
              R"({"error":"F0Mx cannot be set to 1"})");
    EXPECT_EQ(ask(R"({"set":{"hid":{"PMU tdie1":97},"keys":{"F0Md":2}}})"),
              R"({"error":"F0Md cannot be set to 2"})");
    EXPECT_EQ(ask(R"({"set":{"hid":{"PMU tdie1":97},"keys":{"long one":2}}})"),
              R"({"error":"long one cannot be set to 2"})");
    EXPECT_EQ(ask(R"({"set":{"smc":{"TXXX":97},"keys":{"F0Md":1}}})"),
              R"({"error":"TXXX is no temperature key of this machine"})");
    EXPECT_EQ(celsius("PMU tdie1"), 42.1);
    EXPECT_EQ(status().fans.at(0).mode, 0);
}

TEST_F(MachineHostTest, aRequestThatIsNoneIsAnsweredWithTheReason) {
    const auto reasonOf = [this](const std::string& request) {
        const std::string answer = ask(request);
        EXPECT_TRUE(answer.starts_with(R"({"error":"request)")) << request << answer;
        return answer;
    };
    EXPECT_THAT(reasonOf(""), testing::HasSubstr("request:1:1"));
    EXPECT_THAT(reasonOf("[]"), testing::HasSubstr("object"));
    EXPECT_THAT(reasonOf("{}"), testing::HasSubstr("request: "));
    EXPECT_THAT(reasonOf(R"({"status":{},"clear":{}})"), testing::HasSubstr("request: "));
    EXPECT_THAT(reasonOf(R"({"faults":{}})"), testing::HasSubstr("faults"));
    EXPECT_THAT(reasonOf(R"({"faults":[{"key":"F0"}]})"), testing::HasSubstr("faults[0].key"));
    EXPECT_THAT(reasonOf(R"({"set":{"hot":1}})"), testing::HasSubstr("set.hot"));
    EXPECT_THAT(reasonOf(R"({"set":{"hid":3}})"), testing::HasSubstr("set.hid"));
    EXPECT_THAT(reasonOf(R"({"set":{"load":"none"}})"),
                testing::HasSubstr(R"(Expected watts, \"changing\" or null.)"));
}

TEST_F(MachineHostTest, aLoadIsUpToAThousandWatts) {
    EXPECT_EQ(ask(R"({"set":{"load":0}})"), "{}");
    EXPECT_EQ(ask(R"({"set":{"load":1000}})"), "{}");
    for (const char* wrong : {"-0.1", "1000.1"}) {
        EXPECT_EQ(ask(std::string(R"({"set":{"load":)") + wrong + "}}"),
                  R"({"error":"request: set.load: Expected watts from 0 to 1000."})");
    }
}

}  // namespace
}  // namespace airflow::remote
