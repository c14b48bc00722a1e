#include "remote/MachineHost.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "json/Decoder.h"
#include "json/Writer.h"

namespace airflow::remote {

namespace {

using concurrency::Duration;
using simulation::Temperatures;

constexpr double ambientCelsius = 25;

/// Work that comes and goes: each for half a minute, and then from the beginning.
constexpr std::array<double, 10> changingWatts{10, 15, 20, 25, 30, 35, 30, 25, 20, 15};
constexpr Duration pieceLength = std::chrono::seconds(30);

double changingLoad(Duration now) {
    return changingWatts.at(static_cast<std::size_t>(now / pieceLength) % changingWatts.size());
}

/// The moment that is `later` after `now`, or the end of all time.
Duration after(Duration now, Duration later) {
    return later > Duration::max() - now ? Duration::max() : now + later;
}

std::optional<double> ifFinite(double number) {
    return std::isfinite(number) ? std::optional(number) : std::nullopt;
}

std::string problem(const std::string& description) {
    json::Writer writer;
    writer.object([&] { writer.member("error", description); });
    return writer.take().value_or(R"({"error":"the reason cannot be told"})");
}

bool isKnown(const Temperatures& temperatures, const std::string& key) {
    return std::ranges::find(temperatures, key, &Temperatures::value_type::first) !=
           temperatures.end();
}

}  // namespace

MachineHost::MachineHost(Options given, std::function<concurrency::Instant()> realTime)
    : options(std::move(given)),
      clock(std::move(realTime)),
      start(clock()),
      mac(options.machine, [this] { return elapsed(); }),
      machine{.smc = mac.smc(),
              .hid = mac.hidFunctions(),
              .objects = mac.hid(),
              .takeLatency =
                  [this] {
                      const auto latency = static_cast<double>(mac.smc().takeLatency().count());
                      return Duration(std::llround(latency / options.speed));
                  },
              .control = [this](std::string_view request) { return control(request); },
              .mutex = {}} {
    mac.smc().observer = [this](const simulation::SMCAccess& access) {
        if (access.operation == simulation::Fault::Operation::write) ++writes[access.key];
    };
    mac.follow(simulation::ThermalModel::withLoad([this](Duration now) { return watts(now); },
                                                  ambientCelsius));
}

Duration MachineHost::elapsed() const {
    const auto real = static_cast<double>((clock() - start).count());
    return Duration(std::llround(real * options.speed));
}

double MachineHost::watts(Duration now) const {
    return options.load ? *options.load : changingLoad(now);
}

std::string MachineHost::control(std::string_view text) {
    using Kind = MachineRequest::Kind;
    const auto request = json::decode<MachineRequest>(text);
    if (!request) return problem(request.error().describe("request"));
    switch (request->kind) {
        case Kind::status: {
            auto answer = json::encode(status());
            return answer ? *answer : problem(answer.error().description);
        }
        case Kind::addFaults: addFaults(request->faults); break;
        case Kind::clearFaults:
            mac.smc().removeFaults();
            faults = 0;
            break;
        case Kind::change:
            if (const auto reason = apply(request->change)) return problem(*reason);
            break;
    }
    return "{}";
}

MachineStatus MachineHost::status() {
    MachineStatus status{.machine = options.machine.name,
                         .seconds = concurrency::inSeconds(elapsed()),
                         .forceTest = mac.forceTest() ? 1 : 0};
    for (std::size_t i = 0; i < mac.fanCount(); ++i) {
        const auto fan = mac.fan(i);
        status.fans.push_back({.id = static_cast<std::int64_t>(i),
                               .mode = static_cast<std::int64_t>(fan.mode),
                               .targetRPM = ifFinite(fan.target),
                               .currentRPM = fan.speed});
    }
    status.smc = mac.smcTemperatures();
    status.hid = mac.hid().temperatures();
    status.faults = faults;
    status.smcRequests = static_cast<std::int64_t>(machine.smcRequests);
    status.hidRequests = static_cast<std::int64_t>(machine.hidRequests);
    status.writes = writes;
    status.openConnections = mac.smc().openConnections();
    status.hidObjects = static_cast<std::int64_t>(mac.hid().liveObjects());
    return status;
}

void MachineHost::addFaults(const std::vector<simulation::Fault>& added) {
    const Duration now = elapsed();
    for (simulation::Fault fault : added) {
        fault.from = after(now, fault.from);
        fault.until = after(now, fault.until);
        mac.smc().add(fault);
        ++faults;
    }
}

std::optional<std::string> MachineHost::apply(const MachineChange& change) {
    for (const auto& [key, celsius] : change.smc) {
        if (!isKnown(mac.smcTemperatures(), key)) {
            return fmt::format("{} is no temperature key of this machine", key);
        }
    }
    for (const auto& [label, celsius] : change.hid) {
        // A machine that was made without sensors may get some of any name.
        const auto& own = options.machine.hid;
        if (own && !own->empty() && !isKnown(*own, label)) {
            return fmt::format("{} is no HID sensor of this machine", label);
        }
    }
    // First what may be refused. Of several keys, those in front of the refused one are changed.
    for (const auto& [key, value] : change.keys) {
        if (key.size() != 4 || !mac.smc().poke(key, value)) {
            return fmt::format("{} cannot be set to {}", key, value);
        }
    }
    const bool setsTemperatures = change.hidesHID || !change.hid.empty() || !change.smc.empty();
    if (setsTemperatures) changeLoad({.following = MachineChange::Following::nothing});
    changeLoad(change.load);
    changeHID(change);
    for (const auto& [key, celsius] : change.smc) mac.setSMCTemperature(key, celsius);
    return std::nullopt;
}

void MachineHost::changeHID(const MachineChange& change) {
    if (change.hidesHID) mac.setHID(std::nullopt);
    for (const auto& [label, celsius] : change.hid) {
        if (celsius) {
            mac.setHIDTemperature(label, *celsius);
        } else if (auto services = mac.hid().temperatures()) {
            std::erase_if(*services, [&](const auto& service) { return service.first == label; });
            mac.setHID(std::move(services));
        }
    }
}

void MachineHost::changeLoad(const MachineChange::Load& load) {
    using Following = MachineChange::Following;
    if (load.following == Following::unchanged) return;
    if (load.following == Following::nothing) {
        mac.standStill();
        isStill = true;
        return;
    }
    (void)mac.hottest();  // up to now the old load counts
    options.load =
        load.following == Following::constantLoad ? std::optional(load.watts) : std::nullopt;
    if (!std::exchange(isStill, false)) return;
    mac.follow(simulation::ThermalModel::withLoad([this](Duration now) { return watts(now); },
                                                  ambientCelsius));
}

}  // namespace airflow::remote
