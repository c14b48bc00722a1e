#include "remote/MachineRequest.h"

#include "simulation/machine/Decoding.h"

namespace airflow::remote {

namespace {

using json::Decoder;
using Following = MachineChange::Following;

/// More would boil the machine away.
constexpr double mostWatts = 1000;

MachineChange::Load decodeLoad(const Decoder& decoder) {
    if (decoder.isNull()) return {.following = Following::nothing};
    if (decoder.kind() == json::Document::Kind::text) {
        if (decoder.text() != "changing") decoder.fail("Expected watts, \"changing\" or null.");
        return {.following = Following::changingLoad};
    }
    const double watts = decoder.number();
    if (!(watts >= 0 && watts <= mostWatts)) decoder.fail("Expected watts from 0 to 1000.");
    return {.following = Following::constantLoad, .watts = watts};
}

void decodeHID(const Decoder& decoder, MachineChange& change) {
    change.hidesHID = decoder.isNull();
    if (change.hidesHID) return;
    decoder.forEachMember([&change](std::string_view label, const Decoder& celsius) {
        change.hid.emplace_back(label,
                                celsius.isNull() ? std::nullopt : std::optional(celsius.number()));
    });
}

}  // namespace

MachineChange MachineChange::decode(const Decoder& decoder) {
    decoder.onlyKeys({"hid", "smc", "keys", "load"});
    MachineChange change;
    decoder.forEachMember([&change](std::string_view name, const Decoder& member) {
        if (name == "hid") decodeHID(member, change);
        if (name == "smc") change.smc = simulation::decoding::decodeTemperatures(member);
        if (name == "keys") change.keys = simulation::decoding::decodeTemperatures(member);
        if (name == "load") change.load = decodeLoad(member);
    });
    return change;
}

MachineRequest MachineRequest::decode(const Decoder& decoder) {
    const auto what = decoder.soleCase({"status", "clear", "faults", "set"});
    MachineRequest request;
    if (what == "clear") request.kind = Kind::clearFaults;
    if (what == "faults") {
        request.kind = Kind::addFaults;
        request.faults = decoder.required<std::vector<simulation::Fault>>("faults");
    }
    if (what == "set") {
        request.kind = Kind::change;
        request.change = decoder.required<MachineChange>("set");
    }
    return request;
}

}  // namespace airflow::remote
