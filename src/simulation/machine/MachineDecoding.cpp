#include "simulation/machine/Decoding.h"
#include "simulation/machine/MachineDescription.h"

namespace airflow::simulation {

using namespace decoding;

namespace {

MachineDescription namedMachine(const Decoder& decoder) {
    const auto machine = machinePreset(decoder.text());
    if (!machine) decoder.fail("There is no machine of this name.");
    return machine.value_or(MachineDescription{});
}

FanDescription decodeFan(const Decoder& decoder, std::size_t index) {
    decoder.onlyKeys({"minRPM", "maxRPM", "currentRPM", "modeKey", "mode"});
    FanDescription fan;
    fan.minRPM = decoder.optional<double>("minRPM").value_or(fan.minRPM);
    fan.maxRPM = decoder.optional<double>("maxRPM").value_or(fan.maxRPM);
    fan.currentRPM = decoder.optional<double>("currentRPM").value_or(fan.minRPM);
    fan.modeKey = upperModeKey(index);
    decoder.forEachMember([&](std::string_view name, const Decoder& member) {
        if (name == "modeKey") {
            fan.modeKey = member.isNull() ? std::nullopt : std::optional(member.text());
            const bool fits = !fan.modeKey || *fan.modeKey == upperModeKey(index) ||
                              *fan.modeKey == lowerModeKey(index);
            if (!fits) {
                member.fail(fmt::format("Expected \"{}\", \"{}\" or null.", upperModeKey(index),
                                        lowerModeKey(index)));
            }
        }
        if (name == "mode") fan.mode = bounded<std::uint8_t>(member, 0, 3);
    });
    return fan;
}

}  // namespace

MachineDescription MachineDescription::decode(const Decoder& decoder) {
    if (decoder.kind() == json::Document::Kind::text) return namedMachine(decoder);
    decoder.onlyKeys({"preset", "fans", "hid", "smc"});
    MachineDescription machine = *machinePreset("laptop");
    ifPresent(decoder, "preset", [&](const Decoder& member) { machine = namedMachine(member); });
    ifPresent(decoder, "fans", [&](const Decoder& fans) {
        machine.fans.clear();
        fans.forEachElement([&](const Decoder& fan) {
            if (machine.fans.size() == 10)
                fan.fail("A machine has ten fans at most.");
            else
                machine.fans.push_back(decodeFan(fan, machine.fans.size()));
        });
    });
    decoder.forEachMember([&](std::string_view name, const Decoder& member) {
        if (name != "hid") return;
        machine.hid.reset();
        if (!member.isNull()) machine.hid = decodeTemperatures(member);
    });
    ifPresent(decoder, "smc", [&](const Decoder& member) {
        member.forEachMember([](std::string_view name, const Decoder& key) {
            if (name.size() != 4) key.fail("A key has four characters.");
        });
        machine.smc = decodeTemperatures(member);
    });
    return machine;
}

}  // namespace airflow::simulation
