// Scenarios as JSON, so that a random one can be kept, shrunk, read and played again.
#include <cmath>
#include <string>
#include <vector>

#include "json/Writer.h"
#include "simulation/scenario/Scenario.h"

namespace airflow::simulation {

namespace {

using concurrency::Duration;
using json::Writer;

/// A number, or the name of one that JSON has none for.
struct AnyNumber {
    double value;

    void encode(Writer& writer) const {
        if (std::isfinite(value))
            writer.write(value);
        else if (std::isnan(value))
            writer.write("nan");
        else
            writer.write(value > 0 ? "inf" : "-inf");
    }
};

/// Gives the records of a list the form that `write` writes.
template <typename T>
void list(Writer& writer, std::string_view key, const std::vector<T>& elements,
          void (*write)(Writer&, const T&)) {
    if (elements.empty()) return;
    struct Element {
        const T& value;
        void (*write)(Writer&, const T&);

        void encode(Writer& into) const { write(into, value); }
    };
    std::vector<Element> encoded;
    for (const T& element : elements) encoded.push_back({element, write});
    writer.member(key, encoded);
}

void writeTemperatures(Writer& writer, std::string_view key, const Temperatures& values) {
    writer.objectMember(key, [&] {
        for (const auto& [name, celsius] : values) writer.member(name, celsius);
    });
}

void writeFan(Writer& writer, const FanDescription& fan) {
    writer.object([&] {
        writer.member("minRPM", fan.minRPM);
        writer.member("maxRPM", fan.maxRPM);
        writer.member("currentRPM", fan.currentRPM);
        if (fan.modeKey)
            writer.member("modeKey", *fan.modeKey);
        else
            writer.null("modeKey");
        writer.member("mode", std::int64_t{fan.mode});
    });
}

void writeMachine(Writer& writer, const MachineDescription& machine) {
    writer.objectMember("machine", [&] {
        writer.member("preset", machine.name);
        list(writer, "fans", machine.fans, writeFan);
        if (machine.hid)
            writeTemperatures(writer, "hid", *machine.hid);
        else
            writer.null("hid");
        writeTemperatures(writer, "smc", machine.smc);
    });
}

void writeChange(Writer& writer, const TemperatureChange& change) {
    writer.object([&] {
        writer.member("at", concurrency::inSeconds(change.at));
        if (change.hidesHID) writer.null("hid");
        if (!change.hid.empty()) {
            writer.objectMember("hid", [&] {
                for (const auto& [name, celsius] : change.hid) {
                    if (celsius)
                        writer.member(name, AnyNumber{*celsius});
                    else
                        writer.null(name);
                }
            });
        }
        if (!change.smc.empty()) writeTemperatures(writer, "smc", change.smc);
    });
}

std::string_view nameOf(Fault::Operation operation) {
    switch (operation) {
        case Fault::Operation::read: return "read";
        case Fault::Operation::information: return "information";
        case Fault::Operation::enumeration: return "enumeration";
        case Fault::Operation::write: break;
    }
    return "write";
}

void writeFault(Writer& writer, const Fault& fault) {
    writer.object([&] {
        writer.member("from", concurrency::inSeconds(fault.from));
        if (fault.until != Duration::max())
            writer.member("until", concurrency::inSeconds(fault.until));
        writer.member("key", fault.key);
        writer.member("operation", nameOf(fault.operation));
        writer.member("value", fault.value);
        if (fault.access) writer.member("access", static_cast<std::int64_t>(*fault.access));
        if (fault.result) writer.member("result", std::int64_t{*fault.result});
        if (fault.kernelReturn) writer.member("kernelReturn", std::int64_t{*fault.kernelReturn});
        if (fault.latency > Duration::zero())
            writer.member("latency", concurrency::inSeconds(fault.latency));
        if (fault.reading) writer.member("reading", AnyNumber{*fault.reading});
        if (fault.size) writer.member("size", std::int64_t{*fault.size});
        writer.member("type", fault.type);
        if (fault.effect == Fault::Effect::ignored) writer.member("effect", "ignored");
        if (fault.effect == Fault::Effect::applied) writer.member("effect", "applied");
    });
}

void writeHang(Writer& writer, const HIDHang& hang) {
    writer.object([&] {
        writer.member("from", concurrency::inSeconds(hang.from));
        if (hang.until != Duration::max())
            writer.member("until", concurrency::inSeconds(hang.until));
    });
}

void writeFirmware(Writer& writer, const FirmwareChange& change) {
    writer.object([&] {
        writer.member("at", concurrency::inSeconds(change.at));
        writer.member("key", change.key);
        writer.member("value", change.value);
    });
}

struct EventMembers {
    Writer& writer;

    void operator()(const Call& call) const {
        writer.member("client", call.client);
        writer.member("call", daemon::nameOf(call.method));
        if (call.method == Call::Method::setManualRPM) {
            writer.member("fan", call.fan);
            writer.member("rpm", call.rpm);
        } else if (call.method == Call::Method::setPercent) {
            writer.member("fan", call.fan);
            writer.member("percent", call.percent);
        } else if (call.method == Call::Method::applyConfig) {
            if (call.document)
                writer.member("document", *call.document);
            else
                writer.member("plan", call.plan);
        }
    }
    void operator()(const Heartbeats& beats) const {
        writer.member("client", beats.client);
        writer.member("heartbeatEvery", concurrency::inSeconds(beats.every));
        writer.member("until", concurrency::inSeconds(beats.until));
    }
    void operator()(const WallClockJump& jump) const {
        writer.member("wallClockJump", jump.seconds);
    }
    void operator()(const ConnectionChange& change) const {
        const bool isOpened = change.kind == ConnectionChange::Kind::connect;
        writer.member(isOpened ? "connect" : "disconnect", change.client);
        if (isOpened && change.isUntrusted) writer.member("stranger", true);
    }
    void operator()(const ProcessEvent& event) const {
        switch (event.kind) {
            case ProcessEvent::Kind::terminate: writer.member("signal", "SIGTERM"); break;
            case ProcessEvent::Kind::interrupt: writer.member("signal", "SIGINT"); break;
            case ProcessEvent::Kind::kill: writer.member("kill", true); break;
            case ProcessEvent::Kind::start: writer.member("start", true); break;
            case ProcessEvent::Kind::stop: writer.member("stop", true); break;
        }
        if (event.afterSteps > 0) {
            writer.member("afterSteps", static_cast<std::int64_t>(event.afterSteps));
        }
    }
};

void writeEvent(Writer& writer, const Event& event) {
    writer.object([&] {
        writer.member("at", concurrency::inSeconds(
                                std::visit([](const auto& each) { return each.at; }, event)));
        std::visit(EventMembers{writer}, event);
    });
}

}  // namespace

void Scenario::encode(Writer& writer) const {
    writer.object([&] {
        writeMachine(writer, machine);
        list(writer, "temperatures", temperatures, writeChange);
        if (thermal) {
            writer.objectMember("thermal", [&] {
                writer.member("ambient", thermal->ambient);
                list<ThermalModel::Load::value_type>(
                    writer, "load", thermal->load, [](Writer& into, const auto& step) {
                        into.object([&] {
                            into.member("at", concurrency::inSeconds(step.first));
                            into.member("watts", step.second);
                        });
                    });
            });
        }
        list(writer, "faults", faults, writeFault);
        list(writer, "hidHangs", hidHangs, writeHang);
        list(writer, "firmware", firmware, writeFirmware);
        list(writer, "events", events, writeEvent);
        writer.member("jitter", jitter);
        writer.member("euid", std::int64_t{effectiveUserID});
        if (duration) writer.member("duration", concurrency::inSeconds(*duration));
        if (restartAfter) writer.member("restartAfter", concurrency::inSeconds(*restartAfter));
    });
}

}  // namespace airflow::simulation
