#include "tool/simulation/ScenarioJSONLines.h"

#include <cmath>

#include "smc/SMCError.h"
#include "smc/SMCUserClient.h"

namespace airflow::tool {

namespace {

using simulation::Call;
using Operation = simulation::Fault::Operation;

std::string errorText(smc::KernelReturn kernelReturn) {
    if (kernelReturn == smc::kernelNotPrivileged)
        return smc::SMCError::notPrivileged().description();
    return smc::SMCError::ioReturn("IOConnectCallStructMethod",
                                   static_cast<std::uint32_t>(kernelReturn))
        .description();
}

}  // namespace

template <typename Members>
void ScenarioJSONLines::line(concurrency::Duration time, Members members) {
    writer.clear();
    writer.object([&] {
        writer.member("time", concurrency::inSeconds(time));
        members();
    });
    if (const auto text = writer.view())
        out << *text << '\n';
    else
        out << R"({"unwritable":")" << text.error().codingPath << "\"}\n";
}

void ScenarioJSONLines::access(const simulation::SMCAccess& access) {
    const bool isWrite = access.operation == Operation::write;
    if (!isWrite && !(showsReads && access.operation == Operation::read)) return;
    line(access.time, [&] {
        writer.member("smc", isWrite ? "write" : "read");
        writer.member("key", access.key);
        if (std::isfinite(access.value)) writer.member("value", access.value);
        if (access.kernelReturn == smc::kernelSuccess) {
            writer.member("result", std::int64_t{access.result});
        } else {
            writer.member("error", errorText(access.kernelReturn));
        }
    });
}

void ScenarioJSONLines::published(concurrency::Duration time, const control::ControlState& state) {
    line(time, [&] { writer.member("state", state); });
}

void ScenarioJSONLines::replied(concurrency::Duration time, const simulation::Reply& reply) {
    if (!reply.isDelivered) return;
    line(time, [&] {
        writer.member("client", reply.client);
        writer.member("reply", daemon::nameOf(reply.method));
        if (reply.result) writer.member("code", reply.result->xpcCode());
        if (reply.state) writer.member("state", *reply.state);
        if (reply.method == Call::Method::helperVersion) writer.member("version", reply.version);
    });
}

void ScenarioJSONLines::logged(concurrency::Duration time, std::string_view text) {
    if (text.ends_with('\n')) text.remove_suffix(1);
    line(time, [&] { writer.member("log", text); });
}

void ScenarioJSONLines::started(concurrency::Duration time) {
    line(time, [&] { writer.member("daemon", "started"); });
}

void ScenarioJSONLines::signalled(concurrency::Duration time, daemon::Signal signal) {
    line(time, [&] {
        writer.member("signal", signal == daemon::Signal::terminate ? "SIGTERM" : "SIGINT");
    });
}

void ScenarioJSONLines::ended(const simulation::ProcessEnd& end) {
    std::string_view how = "exited";
    if (end.bySignal) how = end.isStop() ? "stopped" : "killed";
    line(end.time, [&] {
        writer.member("daemon", how);
        writer.member("status", std::int64_t{end.status});
    });
}

void ScenarioJSONLines::connected(concurrency::Duration time, std::string_view client, bool) {
    line(time, [&] {
        writer.member("client", client);
        writer.member("connection", "open");
    });
}

void ScenarioJSONLines::disconnected(concurrency::Duration time, std::string_view client) {
    line(time, [&] {
        writer.member("client", client);
        writer.member("connection", "ended");
    });
}

}  // namespace airflow::tool
