#include "tool/machine/MachineCommand.h"

#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <ostream>
#include <utility>

#include "json/Decoder.h"
#include "platform/linux/BootTime.h"
#include "platform/linux/EventLoop.h"
#include "platform/linux/SignalDescriptor.h"
#include "platform/linux/Waiting.h"
#include "remote/MachineHost.h"
#include "remote/MachineServer.h"
#include "remote/MachineStatus.h"
#include "simulation/machine/MachineDescription.h"
#include "text/Text.h"
#include "tool/common/SystemLimit.h"
#include "tool/machine/MachineQuestion.h"
#include "tool/machine/MachinesCommand.h"

namespace airflow::tool {

namespace {

struct MachineOptions {
    std::string socket;
    std::string machine = "laptop";
    double speed = 1;
    std::optional<double> load;
    std::string format = "table";
    std::vector<std::string> faults;
    std::string change;
};

std::string fanCount(std::size_t fans) {
    if (fans == 0) return "no fans";
    return text::counted(fans, "fan");
}

int fail(Streams streams, const std::string& reason) {
    streams.err << text::printable(reason) << '\n';
    return 1;
}

/// Runs until SIGTERM or SIGINT.
int runMachine(const MachineOptions& options, Streams streams) {
    const auto path = machineSocket(options.socket);
    if (!path) return fail(streams, path.error());
    const platform::SignalDescriptor stop(platform::stopSignals);
    if (!stop.descriptor()) return fail(streams, noDescriptorLeft);
    auto listening = platform::listenOn(*path);
    if (!listening) return fail(streams, listening.error());
    auto loop = platform::EventLoop::start();
    if (!loop) return fail(streams, "no daemon can be served: " + loop.error());

    const auto description = simulation::machinePreset(options.machine).value();
    remote::MachineHost host({.machine = description, .speed = options.speed, .load = options.load},
                             platform::bootTime);
    remote::MachineServer server(host.served(), std::move(*loop));
    server.accept(std::move(*listening));
    streams.out << fmt::format("machine {} ({}) on {}\n", description.name,
                               fanCount(description.fans.size()), text::printable(*path))
                << std::flush;
    (void)platform::waitForAny({stop.descriptor().get()}, concurrency::Instant::max());
    unlink(path->c_str());
    return 0;
}

struct Empty {
    static Empty decode(const json::Decoder& decoder) {
        decoder.anyObject();
        return {};
    }
};

/// The answer to a MachineRequest, or one line that says why there is none.
template <typename Answer>
std::expected<Answer, std::string> ask(const MachineOptions& options, const std::string& request) {
    const auto path = machineSocket(options.socket);
    if (!path) return std::unexpected(path.error());
    const auto text = askMachine(*path, request);
    if (!text) {
        const bool isThere = platform::connectTo(*path).has_value();
        return std::unexpected(text.error() +
                               (isThere ? "" : "; `airflow machine` starts a machine"));
    }
    struct Problem {
        std::optional<std::string> reason;
        static Problem decode(const json::Decoder& decoder) {
            return {.reason = decoder.optional<std::string>("error")};
        }
    };
    const auto unread = [&] { return std::unexpected(*path + ": no machine answers there"); };
    const auto problem = json::decode<Problem>(*text);
    if (!problem) return unread();
    if (problem->reason) return std::unexpected(*problem->reason);
    auto answer = json::decode<Answer>(*text);
    if (!answer) return unread();
    return *answer;
}

int showStatus(const MachineOptions& options, Streams streams) {
    const auto status = ask<remote::MachineStatus>(options, R"({"status":{}})");
    if (!status) return fail(streams, status.error());
    if (options.format == "table") {
        status->writeTable(streams.out);
        return 0;
    }
    const auto text = json::encode(*status);
    if (!text) return fail(streams, text.error().description);
    streams.out << *text << '\n';
    return 0;
}

int change(const MachineOptions& options, const std::string& request, Streams streams) {
    const auto done = ask<Empty>(options, request);
    return done ? 0 : fail(streams, done.error());
}

/// A text that is one JSON value, so that it can stand within another.
std::string whyNotJSON(const std::string& text) {
    json::Document document;
    const auto parsed = document.parse(text);
    return parsed ? std::string() : parsed.error().describe("JSON");
}

CLI::Validator validJSON() {
    return CLI::Validator([](std::string& text) { return whyNotJSON(text); }, "", "json");
}

CLI::App* addPart(CLI::App& machine, const std::string& name, const std::string& help,
                  MachineOptions& options) {
    CLI::App* const part = machine.add_subcommand(name, help);
    part->add_option("--machine-socket", options.socket, "The machine's socket");
    for (const char* own : {"--machine", "--speed", "--load"}) {
        part->excludes(machine.get_option(own));
    }
    return part;
}

void addStatus(CLI::App& machine, MachineOptions& options, Streams streams, int& status) {
    CLI::App* const part =
        addPart(machine, "status", "The truth about each fan, the temperatures, and who asked what",
                options);
    part->add_option("--format", options.format,
                     "table (for people, the default) or json (one object)")
        ->check(CLI::IsMember({"table", "json"}));
    part->callback([&options, streams, &status] { status = showStatus(options, streams); });
}

void addChanges(CLI::App& machine, MachineOptions& options, Streams streams, int& status) {
    CLI::App* const fault = addPart(
        machine, "fault",
        "Inject faults into the SMC, as a scenario lists them, with times in seconds from now",
        options);
    fault
        ->add_option("FAULT", options.faults,
                     R"(Such as {"key":"F0Md","operation":"write","result":134,"until":5})")
        ->required()
        ->check(validJSON());
    fault->callback([&options, streams, &status] {
        std::string list;
        for (const std::string& each : options.faults) list += (list.empty() ? "" : ",") + each;
        status = change(options, R"({"faults":[)" + list + "]}", streams);
    });
    CLI::App* const clear = addPart(machine, "clear", "Remove all faults", options);
    clear->callback(
        [&options, streams, &status] { status = change(options, R"({"clear":{}})", streams); });
    CLI::App* const set =
        addPart(machine, "set",
                "Change temperatures, the load, or what keys hold, as the machine itself", options);
    set->add_option("CHANGE", options.change,
                    R"(Such as {"hid":{"PMU tdie1":97}}, {"keys":{"F0Md":3}}, {"load":45})")
        ->required()
        ->check(validJSON());
    set->callback([&options, streams, &status] {
        status = change(options, R"({"set":)" + options.change + "}", streams);
    });
}

}  // namespace

void addMachine(CLI::App& app, Streams streams, int& status) {
    CLI::App* const command = app.add_subcommand(
        "machine", "Run a simulated Mac in real time for daemons in other processes; or ask one");
    auto options = std::make_shared<MachineOptions>();
    command->add_option("--machine-socket", options->socket,
                        "Where it is reached (the default: in the user's runtime folder)");
    command
        ->add_option("--machine", options->machine,
                     "One of those that the command machines lists (the default: laptop)")
        ->check(CLI::Validator(whyNoMachine, "", "machine"));
    command->add_option("--speed", options->speed, "So many times as fast as real time")
        ->check(CLI::Range(0.01, 100.0));
    command
        ->add_option("--load", options->load,
                     "A constant load in watts (the default: one that gently changes)")
        ->check(CLI::Range(0.0, 1000.0));
    addStatus(*command, *options, streams, status);
    addChanges(*command, *options, streams, status);
    command->require_subcommand(0, 1);
    command->callback([=, &status] {
        if (command->get_subcommands().empty()) status = runMachine(*options, streams);
    });
}

std::expected<std::string, std::string> machineSocket(const std::string& given) {
    if (!given.empty()) return given;
    auto folder = platform::runtimeFolder();
    if (!folder) return folder;
    return *folder + "/machine.sock";
}

}  // namespace airflow::tool
