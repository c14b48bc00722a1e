#include "remote/MachineStatus.h"

#include <fmt/format.h>

#include <ostream>

#include "simulation/machine/Decoding.h"
#include "text/Table.h"
#include "text/Text.h"

namespace airflow::remote {

namespace {

using simulation::Temperatures;
using simulation::decoding::decodeTemperatures;

void encodeTemperatures(json::Writer& writer, std::string_view name, const Temperatures& temps) {
    writer.objectMember(name, [&] {
        for (const auto& [label, celsius] : temps) writer.member(label, celsius);
    });
}

std::string counted(std::int64_t count, std::string_view noun) {
    return text::counted(static_cast<std::uint64_t>(count), noun);
}

void writeFans(std::ostream& out, const std::vector<MachineStatus::Fan>& fans) {
    constexpr auto right = text::Table::Align::right;
    text::Table table({{"fan", right}, {"mode"}, {"target (RPM)", right}, {"speed (RPM)", right}});
    for (const MachineStatus::Fan& fan : fans) {
        table.add({fmt::format("{}", fan.id), text::fanModeText(fan.mode),
                   fan.targetRPM ? fmt::format("{:.0f}", *fan.targetRPM) : "—",
                   fmt::format("{:.0f}", fan.currentRPM)});
    }
    if (fans.empty())
        out << "no fans\n";
    else
        table.write(out);
}

void writeTemperatures(std::ostream& out, const MachineStatus& status) {
    if (status.smc.empty() && (!status.hid || status.hid->empty())) {
        out << "no temperatures\n";
        return;
    }
    text::Table table({{"temperature"}, {"source"}, {"°C", text::Table::Align::right}});
    for (const auto& [label, celsius] : status.hid.value_or(Temperatures{})) {
        table.add({text::printable(label), "HID", fmt::format("{:.2f}", celsius)});
    }
    for (const auto& [key, celsius] : status.smc) {
        table.add({text::printable(key), "SMC", fmt::format("{:.2f}", celsius)});
    }
    table.write(out);
}

}  // namespace

void MachineStatus::Fan::encode(json::Writer& writer) const {
    writer.object([&] {
        writer.member("id", id);
        writer.member("mode", mode);
        writer.member("targetRPM", targetRPM);
        writer.member("currentRPM", currentRPM);
    });
}

MachineStatus::Fan MachineStatus::Fan::decode(const json::Decoder& decoder) {
    return {.id = decoder.required<std::int64_t>("id"),
            .mode = decoder.required<std::int64_t>("mode"),
            .targetRPM = decoder.optional<double>("targetRPM"),
            .currentRPM = decoder.required<double>("currentRPM")};
}

void MachineStatus::encode(json::Writer& writer) const {
    writer.object([&] {
        writer.member("machine", machine);
        writer.member("seconds", seconds);
        writer.member("Ftst", forceTest);
        writer.member("fans", fans);
        if (hid) encodeTemperatures(writer, "hid", *hid);
        encodeTemperatures(writer, "smc", smc);
        writer.member("faults", faults);
        writer.objectMember("requests", [&] {
            writer.member("smc", smcRequests);
            writer.member("hid", hidRequests);
        });
        writer.objectMember("writes", [&] {
            for (const auto& [key, count] : writes) writer.member(key, count);
        });
        writer.member("openConnections", openConnections);
        writer.member("hidObjects", hidObjects);
    });
}

MachineStatus MachineStatus::decode(const json::Decoder& decoder) {
    MachineStatus status;
    status.machine = decoder.required<std::string>("machine");
    status.seconds = decoder.required<double>("seconds");
    status.forceTest = decoder.required<std::int64_t>("Ftst");
    status.fans = decoder.required<std::vector<Fan>>("fans");
    decoder.forEachMember([&status](std::string_view name, const json::Decoder& member) {
        if (name == "hid") status.hid = decodeTemperatures(member);
    });
    decoder.member(
        "smc", [&status](const json::Decoder& member) { status.smc = decodeTemperatures(member); });
    status.faults = decoder.required<std::int64_t>("faults");
    decoder.member("requests", [&status](const json::Decoder& member) {
        status.smcRequests = member.required<std::int64_t>("smc");
        status.hidRequests = member.required<std::int64_t>("hid");
    });
    decoder.member("writes", [&status](const json::Decoder& member) {
        member.forEachMember([&status](std::string_view key, const json::Decoder& count) {
            status.writes[std::string(key)] = count.integer();
        });
    });
    status.openConnections = decoder.required<std::int64_t>("openConnections");
    status.hidObjects = decoder.required<std::int64_t>("hidObjects");
    return status;
}

void MachineStatus::writeTable(std::ostream& out) const {
    out << fmt::format("machine {}, on for {:.1f} s, Ftst {}, {}\n\n", text::printable(machine),
                       seconds, forceTest, counted(faults, "fault"));
    writeFans(out, fans);
    out << '\n';
    writeTemperatures(out, *this);
    std::string byKey;
    for (const auto& [key, count] : writes) {
        byKey += fmt::format("{}{} {}", byKey.empty() ? ": " : ", ", text::printable(key), count);
    }
    std::int64_t written = 0;
    for (const auto& [key, count] : writes) written += count;
    out << fmt::format("\n{} to the SMC, {} to the HID system; {}{}\n",
                       counted(smcRequests, "request"), hidRequests, counted(written, "write"),
                       byKey);
    out << fmt::format("open: {} to the SMC, {}\n", counted(openConnections, "connection"),
                       counted(hidObjects, "HID object"));
}

}  // namespace airflow::remote
