#include <gmock/gmock.h>

#include <sstream>

#include "remote/MachineStatus.h"

namespace airflow::remote {
namespace {

MachineStatus busyMachine() {
    MachineStatus status{.machine = "laptop", .seconds = 12.34, .forceTest = 1};
    status.fans = {{.id = 0, .mode = 1, .targetRPM = 3000, .currentRPM = 2987.6},
                   {.id = 1, .mode = 3, .targetRPM = std::nullopt, .currentRPM = 1200}};
    status.hid = simulation::Temperatures{{"PMU tdie1", 44.5}};
    status.smc = {{"TCHP", 45.126}};
    status.faults = 2;
    status.smcRequests = 120;
    status.hidRequests = 300;
    status.writes = {{"F0Md", 1}, {"F0Tg", 2}};
    status.openConnections = 1;
    status.hidObjects = 12;
    return status;
}

std::string tableOf(const MachineStatus& status) {
    std::ostringstream out;
    status.writeTable(out);
    return out.str();
}

TEST(MachineStatus, isATableForPeople) {
    EXPECT_EQ(tableOf(busyMachine()),
              "machine laptop, on for 12.3 s, Ftst 1, 2 faults\n"
              "\n"
              "fan  mode            target (RPM)  speed (RPM)\n"
              "  0  forced (1)              3000         2988\n"
              "  1  taken back (3)             —         1200\n"
              "\n"
              "temperature  source     °C\n"
              "PMU tdie1    HID     44.50\n"
              "TCHP         SMC     45.13\n"
              "\n"
              "120 requests to the SMC, 300 to the HID system; 3 writes: F0Md 1, F0Tg 2\n"
              "open: 1 connection to the SMC, 12 HID objects\n");
}

TEST(MachineStatus, aMachineWithoutAnythingSaysSo) {
    MachineStatus status{.machine = "evil\x1b[2J"};
    EXPECT_EQ(tableOf(status),
              "machine evil\xEF\xBF\xBD[2J, on for 0.0 s, Ftst 0, 0 faults\n"
              "\n"
              "no fans\n"
              "\n"
              "no temperatures\n"
              "\n"
              "0 requests to the SMC, 0 to the HID system; 0 writes\n"
              "open: 0 connections to the SMC, 0 HID objects\n");
}

TEST(MachineStatus, itsJSONReadsBackAsTheSame) {
    const auto text = json::encode(busyMachine());
    ASSERT_TRUE(text);
    const auto read = json::decode<MachineStatus>(*text);
    ASSERT_TRUE(read);
    EXPECT_EQ(json::encode(*read), text);
    EXPECT_EQ(tableOf(*read), tableOf(busyMachine()));
}

TEST(MachineStatus, aHubWithoutServicesIsLeftOut) {
    MachineStatus status = busyMachine();
    status.hid.reset();
    const auto text = json::encode(status).value();
    EXPECT_THAT(text, testing::Not(testing::HasSubstr(R"("hid":{)")));
    EXPECT_EQ(json::decode<MachineStatus>(text)->hid, std::nullopt);
}

TEST(MachineStatus, whatIsNoStatusIsRefused) {
    EXPECT_FALSE(json::decode<MachineStatus>("{}"));
    EXPECT_FALSE(json::decode<MachineStatus>(R"({"machine":"laptop","seconds":0})"));
}

}  // namespace
}  // namespace airflow::remote
