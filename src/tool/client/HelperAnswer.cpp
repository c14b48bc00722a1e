#include "tool/client/HelperAnswer.h"

#include <fmt/format.h>

#include <algorithm>
#include <sstream>

#include "json/Writer.h"
#include "text/Table.h"
#include "text/Text.h"

namespace airflow::tool {

namespace {

using control::ControlMode;
using control::ControlResult;
using control::ControlState;
using daemon::Method;

/// Why the call was not carried out, in the order of who knows it best.
std::string reasonOf(const CallOutcome& outcome) {
    if (!outcome.answer.reason.empty()) return outcome.answer.reason;
    if (!outcome.ownReason.empty()) return outcome.ownReason;
    if (!outcome.after || !outcome.after->lastError) return {};
    const std::string& error = *outcome.after->lastError;
    // "applyPlan: timedOut" says no more than the result does.
    const bool isResultOnly = error.ends_with(": " + outcome.answer.result.description());
    return isResultOnly ? std::string() : error;
}

bool isStopped(const ControlState& state, std::int64_t fan) {
    return state.stoppedFans &&
           std::ranges::find(*state.stoppedFans, fan) != state.stoppedFans->end();
}

}  // namespace

std::string nameOf(const ControlResult& result) {
    const std::string text = result.description();
    return text.substr(0, text.find('('));
}

std::string nameOf(ControlMode mode) {
    switch (mode) {
        case ControlMode::automatic: return "automatic";
        case ControlMode::fullBlast: return "fullBlast";
        case ControlMode::manual: return "manual";
        case ControlMode::curve: break;
    }
    return "curve";
}

std::string targetText(const ControlState& state, std::int64_t fan) {
    if (isStopped(state, fan)) return "stopped";
    const auto target = state.targets.find(fan);
    return target == state.targets.end() ? "" : fmt::format("{} RPM", target->second);
}

std::string stateText(const ControlState& state) {
    std::ostringstream out;
    out << (state.isHolding ? "held\n" : "not held\n");
    text::Table table(
        {{"fan", text::Table::Align::right}, {"mode"}, {"target", text::Table::Align::right}});
    for (const auto& [fan, mode] : state.perFanMode) {
        table.add({fmt::format("{}", fan), nameOf(mode), targetText(state, fan)});
    }
    if (!state.perFanMode.empty()) table.write(out);
    if (state.lastError) out << "last error: " << text::printable(*state.lastError) << '\n';
    return out.str();
}

std::string answerText(const CallOutcome& outcome) {
    const client::Answer& answer = outcome.answer;
    if (!answer.result.isApplied()) {
        const std::string reason = reasonOf(outcome);
        return reason.empty() ? nameOf(answer.result) + "\n"
                              : nameOf(answer.result) + ": " + text::printable(reason) + "\n";
    }
    if (answer.state) return stateText(*answer.state);
    if (answer.version) return text::printable(*answer.version) + "\n";
    switch (outcome.method) {
        case Method::heartbeat: return "sent\n";
        case Method::restoreAuto:
        case Method::shutdownForUpgrade: return "acknowledged\n";
        default: return "applied\n";
    }
}

std::string answerJSON(const CallOutcome& outcome) {
    const client::Answer& answer = outcome.answer;
    const std::string reason = answer.result.isApplied() ? "" : reasonOf(outcome);
    json::Writer writer;
    writer.object([&] {
        writer.member("method", daemon::nameOf(outcome.method));
        writer.member("result", nameOf(answer.result));
        writer.member("version", answer.version);
        writer.member("state", answer.state);
        if (!reason.empty()) writer.member("reason", reason);
        if (outcome.after) {
            writer.member("lastError", outcome.after->lastError);
            writer.member("endsHold", outcome.after->isHolding);
        }
    });
    const auto text = writer.take();
    // What came over the wire was JSON; a file's name in a reason need not be.
    return text ? *text + "\n" : "{\"result\":\"" + nameOf(answer.result) + "\"}\n";
}

}  // namespace airflow::tool
