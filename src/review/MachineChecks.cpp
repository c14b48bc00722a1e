#include "review/MachineChecks.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cstddef>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "json/Places.h"
#include "review/Nearest.h"
#include "review/SensorChecks.h"
#include "smc/FanNumbers.h"
#include "text/Text.h"

namespace airflow::review {

namespace {

using text::plain;

class MachineCheck {
public:
    MachineCheck(const Machine& ownMachine, Report& ownReport)
        : machine(ownMachine), report(ownReport) {}

    void checkFan(const plan::FanPlan& fan, const std::string& pointer) const {
        const auto known = machine.fans.find(fan.fanID);
        if (!smc::isNameable(fan.fanID)) return;  // no machine has it
        if (known == machine.fans.end()) {
            report.add(Subject::fanNotOnMachine, pointer + "/fanID",
                       fmt::format("There is no fan {} on {}.", fan.fanID, machine.name),
                       fansThere());
        } else if (const auto* fixed = std::get_if<plan::FixedRPM>(&fan.mode.mode)) {
            checkSpeed(fixed->rpm, known->second, pointer + "/mode/fixedRPM/_0");
        }
        if (const auto* curve = std::get_if<plan::FanCurve>(&fan.mode.mode)) {
            checkSensor(curve->sourceSensorID, "the fan goes back to the firmware",
                        pointer + "/mode/curve/_0/sourceSensorID");
        }
    }

    void checkSensor(const std::optional<std::string>& sensorID, const char* effect,
                     const std::string& pointer) const {
        if (!sensorID || !hasSource(*sensorID) || machine.sensorIDs.contains(*sensorID)) return;
        const auto meant = nearest(*sensorID, machine.sensorIDs);
        report.add(
            Subject::sensorNotOnMachine, pointer,
            fmt::format("There is no sensor \"{}\" on {}: {}.", *sensorID, machine.name, effect),
            meant ? fmt::format("Did you mean \"{}\"?", *meant)
                  : "Write the id of one of its sensors, or leave the key out to follow "
                    "the hottest.");
    }

private:
    void checkSpeed(double rpm, const SpeedRange& range, std::string pointer) const {
        const auto min = static_cast<double>(range.minRPM);
        const auto max = static_cast<double>(range.maxRPM);
        if (rpm <= 0 || (rpm >= min && rpm <= max)) return;  // 0 is wrong on every machine
        const double counted = rpm > max || min > max ? max : min;
        report.add(
            Subject::fixedRPMOutOfRange, std::move(pointer),
            fmt::format("{} RPM is outside the fan's range on {}, {} to {} RPM, and counts "
                        "as {} RPM.",
                        plain(rpm), machine.name, range.minRPM, range.maxRPM, plain(counted)),
            fmt::format("Write {}.", plain(counted)));
    }

    std::string fansThere() const {
        if (machine.fans.empty()) return "Remove the entry: there are no fans.";
        std::vector<std::int64_t> numbers;
        for (const auto& [number, range] : machine.fans) numbers.push_back(number);
        return fmt::format("Remove the entry; the fans there are {}.", fmt::join(numbers, ", "));
    }

    const Machine& machine;
    Report& report;
};

}  // namespace

void checkMachine(const plan::FanControlPlan& plan, const Machine& machine, Report& report) {
    const MachineCheck check(machine, report);
    for (std::size_t i = 0; i < plan.fans.size(); ++i) {
        check.checkFan(plan.fans[i], json::pointerTo("/fans", i));
    }
    for (std::size_t i = 0; i < plan.rules.size(); ++i) {
        check.checkSensor(plan.rules[i].sensorID, "the rule never fires",
                          json::pointerTo("/rules", i) + "/sensorID");
    }
}

}  // namespace airflow::review
