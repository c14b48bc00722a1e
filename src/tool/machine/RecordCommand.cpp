#include "tool/machine/RecordCommand.h"

#include <fmt/format.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <utility>

#include "concurrency/Runtime.h"
#include "daemon/Hardware.h"
#include "platform/linux/BootTime.h"
#include "platform/linux/LocalSocket.h"
#include "platform/linux/SignalDescriptor.h"
#include "platform/linux/ThreadRuntime.h"
#include "platform/linux/Waiting.h"
#include "platform/posix/StandardError.h"
#include "remote/RemoteMachine.h"
#include "text/Text.h"
#include "tool/machine/MachineCommand.h"
#include "tool/machine/TraceFile.h"
#include "tool/replay/Trace.h"

namespace airflow::tool {

namespace {

using concurrency::Instant;
template <typename T>
using Result = std::expected<T, std::string>;

struct RecordOptions {
    std::string socket;
    double every = 1.5;  ///< seconds
    TraceFile::Options file;
};

/// The SMC and the sampling of temperatures may each block one, and a look waits for both.
constexpr std::size_t lookingThreads = 3;

/// A connection to the machine, and another name of it, by which it can be ended while another
/// thread waits for an answer.
struct Line {
    platform::FileDescriptor connection;
    platform::FileDescriptor handle;
};

Result<Line> lineTo(const std::string& path) {
    auto connection = platform::connectTo(path);
    if (!connection)
        return std::unexpected(connection.error() + "; `airflow machine` starts a machine");
    platform::FileDescriptor handle(dup(connection->get()));
    if (!handle) return std::unexpected(path + ": no descriptor is left");
    return Line{.connection = std::move(*connection), .handle = std::move(handle)};
}

/// Reads the machine as a daemon does, over connections of its own.
class Watched {
public:
    Watched(Line smcLine, Line hidLine, Line pulseLine)
        : handles{std::move(smcLine.handle), std::move(hidLine.handle),
                  std::move(pulseLine.handle)},
          machine(std::move(smcLine.connection), std::move(hidLine.connection)),
          pulse(std::move(pulseLine.connection)) {}
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;
    ~Watched() { runtime->abandon(); }

    /// One snapshot, unless `stop` becomes readable first, or the machine is gone: then nothing.
    std::optional<sensors::SensorSnapshot> look(int stop) {
        found.reset();
        runtime->detach("look", [this](concurrency::CancelToken) { return take(); });
        if (platform::waitForAny({done.get(), stop}, Instant::max()) != 0) hangUp();
        std::uint64_t times = 0;
        // Waits for the look's end, which comes soon after that of the connections, too.
        while (read(done.get(), &times, sizeof times) < 0 && errno == EINTR) {
        }
        return std::move(found);
    }

private:
    struct Reading {
        Reading(concurrency::Runtime& runtime, remote::RemoteMachine& machine,
                sensors::LogSink& standardError)
            : functions(machine.hidFunctions()),
              hardware(runtime, machine.smc(), functions, machine.hidObjects(), standardError) {}

        sensors::HIDFunctions functions;
        daemon::MachineHardware hardware;
    };

    concurrency::Task<void> take() {
        if (!reading) reading.emplace(*runtime, machine, standardError);  // asks the machine
        if (!isOpen) isOpen = (co_await reading->hardware.open()).has_value();
        auto snapshot = co_await reading->hardware.sensors().snapshot();
        // Without a machine a snapshot is empty, and so may one be with a machine.
        const auto answer = pulse.ask<std::string>({}, remote::MachineOperation::control,
                                                   std::string_view(R"({"status":{}})"));
        if (!answer.empty()) found = std::move(snapshot);
        const std::uint64_t once = 1;
        (void)!write(done.get(), &once, sizeof once);
    }
    void hangUp() {
        for (const platform::FileDescriptor& handle : handles)
            (void)shutdown(handle.get(), SHUT_RDWR);
    }

    const std::array<platform::FileDescriptor, 3> handles;
    const platform::FileDescriptor done{eventfd(0, EFD_CLOEXEC)};
    const std::unique_ptr<concurrency::Runtime> runtime =
        platform::makeThreadRuntime(lookingThreads);
    platform::StandardError standardError;
    remote::RemoteMachine machine;
    remote::MachineLink pulse;
    std::optional<Reading> reading;
    bool isOpen = false;
    std::optional<sensors::SensorSnapshot> found;
};

using Sink = std::function<Result<void>(std::string_view line)>;

Result<Sink> sinkOf(const RecordOptions& options, Streams streams) {
    if (options.file.path.empty()) {
        return [&out = streams.out](std::string_view line) -> Result<void> {
            out << line << '\n' << std::flush;
            if (!out) return std::unexpected("the trace cannot be written");
            return {};
        };
    }
    auto file = TraceFile::create(options.file);
    if (!file) return std::unexpected(file.error());
    return [kept = std::make_shared<TraceFile>(std::move(*file))](std::string_view line) {
        return kept->write(line);
    };
}

/// Until a signal comes. Looks are `every` apart; those that would begin before the one in front
/// has ended are left out.
Result<void> watch(Watched& machine, const RecordOptions& options, const std::string& path,
                   int stop, const Sink& write) {
    const concurrency::Duration every(std::llround(options.every * 1e9));
    Instant next = platform::bootTime();
    std::optional<Instant> first;
    for (;;) {
        const auto snapshot = machine.look(stop);
        const Instant now = platform::bootTime();
        if (!snapshot) {
            if (platform::waitForAny({stop}, now)) return {};
            return std::unexpected(path + ": the machine has gone");
        }
        if (!first) first = now;
        const auto line =
            traceLine({.time = concurrency::inSeconds(now - *first), .snapshot = *snapshot});
        if (!line) return std::unexpected(line.error());
        if (auto written = write(*line); !written) return written;
        while (next <= platform::bootTime()) next += every;
        if (platform::waitForAny({stop}, next)) return {};
    }
}

Result<void> record(const RecordOptions& options, Streams streams) {
    const auto path = machineSocket(options.socket);
    if (!path) return std::unexpected(path.error());
    const platform::SignalDescriptor stop(platform::stopSignals);  // before there is another thread
    auto smc = lineTo(*path);
    if (!smc) return std::unexpected(smc.error());
    auto hid = lineTo(*path);
    if (!hid) return std::unexpected(hid.error());
    auto pulse = lineTo(*path);
    if (!pulse) return std::unexpected(pulse.error());
    const auto sink = sinkOf(options, streams);
    if (!sink) return std::unexpected(sink.error());
    Watched machine(std::move(*smc), std::move(*hid), std::move(*pulse));
    return watch(machine, options, *path, stop.descriptor().get(), *sink);
}

}  // namespace

void addRecord(CLI::App& app, Streams streams, int& status) {
    CLI::App* const command = app.add_subcommand(
        "record", "Write what the sensors of a running machine show as a trace, until SIGINT");
    auto options = std::make_shared<RecordOptions>();
    command->add_option("--machine-socket", options->socket,
                        "The machine's socket (the default: in the user's runtime folder)");
    command
        ->add_option("--every", options->every,
                     "Seconds from line to line (1.5, as the daemon looks); a replay takes 3 at "
                     "most")
        ->check(CLI::Range(0.1, 3600.0));
    CLI::Option* const output = command->add_option("--output", options->file.path,
                                                    "A new file (the default: standard output)");
    CLI::Option* const rotate =
        command
            ->add_option("--rotate-bytes", options->file.rotateBytes,
                         "Begin a new file before one is longer; full ones become FILE.1 and so on")
            ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1} << 40))
            ->needs(output);
    command
        ->add_option("--keep", options->file.keep, "So many full files are kept (the default: 5)")
        ->check(CLI::Range(std::uint64_t{0}, std::uint64_t{1000}))
        ->needs(rotate);
    command->callback([=, &status] {
        const auto recorded = record(*options, streams);
        if (!recorded) streams.err << text::printable(recorded.error()) << '\n';
        status = recorded ? 0 : 1;
    });
}

}  // namespace airflow::tool
