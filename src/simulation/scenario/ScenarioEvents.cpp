#include "simulation/scenario/ScenarioEvents.h"

#include <string>
#include <string_view>
#include <utility>

#include "simulation/machine/Decoding.h"

namespace airflow::simulation {

using namespace decoding;

namespace {

Call::Method decodeMethod(const Decoder& decoder) {
    const auto command = daemon::commandNamed(decoder.text());
    if (command) return daemon::methodOf(*command);
    decoder.fail("There is no command of this name.");
    return {};
}

std::string clientOf(const Decoder& decoder) {
    return decoder.optional<std::string>("client").value_or(onlyClient);
}

/// Returns the name of the file that the plan is in, if it is in one.
std::string decodePlan(const Decoder& decoder, plan::FanControlPlan& plan) {
    std::string file;
    decoder.member("plan", [&](const Decoder& member) {
        const bool isFile = member.kind() == json::Document::Kind::text;
        if (isFile)
            file = member.text();
        else
            plan = member.value<plan::FanControlPlan>();
    });
    return file;
}

ProcessEvent::Kind decodeSignal(const Decoder& decoder) {
    const std::string name = decoder.text();
    if (name == "SIGTERM") return ProcessEvent::Kind::terminate;
    if (name != "SIGINT") decoder.fail("Expected \"SIGTERM\" or \"SIGINT\".");
    return ProcessEvent::Kind::interrupt;
}

void requireTrue(const Decoder& decoder) {
    if (!decoder.boolean()) decoder.fail("Expected true.");
}

/// A call, and the name of the file that its plan is in, if it is in one.
std::pair<Call, std::string> decodeCall(const Decoder& decoder) {
    std::pair<Call, std::string> result{{.at = requiredSeconds(decoder, "at")}, {}};
    Call& call = result.first;
    decoder.member("call", [&](const Decoder& name) { call.method = decodeMethod(name); });
    call.client = clientOf(decoder);
    switch (call.method) {
        case Call::Method::setManualRPM:
            decoder.onlyKeys({"at", "client", "call", "fan", "rpm"});
            call.fan = decoder.required<std::int64_t>("fan");
            call.rpm = decoder.required<std::int64_t>("rpm");
            break;
        case Call::Method::setPercent:
            decoder.onlyKeys({"at", "client", "call", "fan", "percent"});
            call.fan = decoder.required<std::int64_t>("fan");
            call.percent = decoder.required<double>("percent");
            break;
        case Call::Method::applyConfig:
            decoder.onlyKeys({"at", "client", "call", "plan", "document"});
            call.document = decoder.optional<std::string>("document");
            if (!call.document) result.second = decodePlan(decoder, call.plan);
            break;
        default: decoder.onlyKeys({"at", "client", "call"});
    }
    return result;
}

ConnectionChange decodeConnectionChange(const Decoder& decoder, ConnectionChange::Kind kind) {
    const bool isOpened = kind == ConnectionChange::Kind::connect;
    if (isOpened)
        decoder.onlyKeys({"at", "connect", "stranger"});
    else
        decoder.onlyKeys({"at", "disconnect"});
    ConnectionChange change{.at = requiredSeconds(decoder, "at"), .kind = kind};
    change.client = decoder.required<std::string>(isOpened ? "connect" : "disconnect");
    if (isOpened) change.isUntrusted = decoder.optional<bool>("stranger").value_or(false);
    return change;
}

ProcessEvent decodeProcessEvent(const Decoder& decoder, std::string_view key) {
    ProcessEvent event{.at = requiredSeconds(decoder, "at"), .kind = ProcessEvent::Kind::start};
    if (key == "start") {
        decoder.onlyKeys({"at", "start"});
        decoder.member(key, [](const Decoder& start) { requireTrue(start); });
        return event;
    }
    decoder.onlyKeys({"at", key, "afterSteps"});
    decoder.member(key, [&](const Decoder& member) {
        if (key == "signal") {
            event.kind = decodeSignal(member);
        } else {
            event.kind = key == "kill" ? ProcessEvent::Kind::kill : ProcessEvent::Kind::stop;
            requireTrue(member);
        }
    });
    ifPresent(decoder, "afterSteps", [&](const Decoder& steps) {
        event.afterSteps = bounded<std::uint64_t>(steps, 0, 1'000'000'000);
    });
    return event;
}

bool has(const Decoder& decoder, std::string_view key) {
    bool isThere = false;
    ifPresent(decoder, key, [&isThere](const Decoder&) { isThere = true; });
    return isThere;
}

Event decodeOtherEvent(const Decoder& decoder) {
    using Kind = ConnectionChange::Kind;
    if (has(decoder, "connect")) return decodeConnectionChange(decoder, Kind::connect);
    if (has(decoder, "disconnect")) return decodeConnectionChange(decoder, Kind::disconnect);
    for (const std::string_view key : {"signal", "kill", "stop", "start"}) {
        if (has(decoder, key)) return decodeProcessEvent(decoder, key);
    }
    const Duration at = requiredSeconds(decoder, "at");
    if (has(decoder, "wallClockJump")) {
        decoder.onlyKeys({"at", "wallClockJump"});
        return WallClockJump{.at = at, .seconds = decoder.required<double>("wallClockJump")};
    }
    decoder.onlyKeys({"at", "client", "heartbeatEvery", "until"});
    Heartbeats beats{.at = at, .client = clientOf(decoder)};
    decoder.member("heartbeatEvery", [&beats](const Decoder& every) {
        beats.every = seconds(every);
        if (beats.every == Duration::zero()) every.fail("Expected more than 0 seconds.");
    });
    beats.until = requiredSeconds(decoder, "until");
    return beats;
}

}  // namespace

void decodeEvent(const Decoder& decoder, Scenario& scenario) {
    if (!has(decoder, "call")) {
        scenario.events.push_back(decodeOtherEvent(decoder));
        return;
    }
    auto [call, file] = decodeCall(decoder);
    if (!file.empty()) scenario.planFiles.emplace_back(scenario.events.size(), std::move(file));
    scenario.events.emplace_back(std::move(call));
}

}  // namespace airflow::simulation
