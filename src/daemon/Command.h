// Command: what clients can ask of the daemon. Everybody who names, reads, writes or carries out
// commands does so by way of this file.
//
// A new command is a struct here, with its place in `Command` and in `Method`, and an operation of
// FanHelperService, which its carryOut() calls. Scenarios, the oracle and the protocol of a Mac
// list commands separately: see CONTRIBUTING.md.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "json/Decoder.h"
#include "json/Writer.h"

namespace airflow::daemon {

class FanHelperService;

/// In the order in which the daemon declares its operations, and of the alternatives of `Command`.
enum class Method : std::uint8_t {
    helperVersion,
    shutdownForUpgrade,
    setManualRPM,
    setPercent,
    fullBlast,
    automatic,
    applyConfig,
    restoreAuto,
    heartbeat,
    readState,
};

/// What a command is answered with.
enum class ReplyKind : std::uint8_t { none, acknowledgement, code, version, state };

/// ControlResult::xpcCode().
struct CodeReply {
    std::int64_t code = 0;
};
struct Acknowledgement {};
struct VersionReply {
    std::string version;
};
/// The state as JSON; empty when it has no JSON form.
struct StateReply {
    std::string document;
};
using Reply = std::variant<CodeReply, Acknowledgement, VersionReply, StateReply>;
/// Called exactly once, from any thread; never for a command without reply. Must not block.
using ReplyHandler = std::function<void(Reply reply)>;

namespace commands {

/// A command without arguments.
struct NoArguments {
    template <typename Self, typename Visit>
    static void forEachArgument(Self&, Visit) {}

    bool operator==(const NoArguments&) const = default;
};

struct HelperVersion : NoArguments {
    static constexpr std::string_view name = "helperVersion";
    static constexpr std::string_view summary = "Say which build the daemon is";
    static constexpr ReplyKind reply = ReplyKind::version;
    void carryOut(FanHelperService& service, ReplyHandler handler);
};

struct ShutdownForUpgrade : NoArguments {
    static constexpr std::string_view name = "shutdownForUpgrade";
    static constexpr std::string_view summary = "Give every fan back and end the daemon";
    static constexpr ReplyKind reply = ReplyKind::acknowledgement;
    void carryOut(FanHelperService& service, ReplyHandler handler);
};

struct SetManualRPM {
    static constexpr std::string_view name = "setManualRPM";
    static constexpr std::string_view summary = "Hold a fan at a speed";
    static constexpr ReplyKind reply = ReplyKind::code;
    std::int64_t fan = 0;
    std::int64_t rpm = 0;

    template <typename Self, typename Visit>
    static void forEachArgument(Self& self, Visit visit) {
        visit("fan", self.fan);
        visit("rpm", self.rpm);
    }
    void carryOut(FanHelperService& service, ReplyHandler handler);
    bool operator==(const SetManualRPM&) const = default;
};

struct SetPercent {
    static constexpr std::string_view name = "setPercent";
    static constexpr std::string_view summary = "Hold a fan at a share of its range, 0 to 100";
    static constexpr ReplyKind reply = ReplyKind::code;
    std::int64_t fan = 0;
    double percent = 0;

    template <typename Self, typename Visit>
    static void forEachArgument(Self& self, Visit visit) {
        visit("fan", self.fan);
        visit("percent", self.percent);
    }
    void carryOut(FanHelperService& service, ReplyHandler handler);
    bool operator==(const SetPercent&) const = default;
};

struct FullBlast : NoArguments {
    static constexpr std::string_view name = "fullBlast";
    static constexpr std::string_view summary = "Hold every fan at its maximum";
    static constexpr ReplyKind reply = ReplyKind::code;
    void carryOut(FanHelperService& service, ReplyHandler handler);
};

struct Automatic : NoArguments {
    static constexpr std::string_view name = "automatic";
    static constexpr std::string_view summary = "Give every fan back to the firmware";
    static constexpr ReplyKind reply = ReplyKind::code;
    void carryOut(FanHelperService& service, ReplyHandler handler);
};

struct ApplyConfig {
    static constexpr std::string_view name = "applyConfig";
    static constexpr std::string_view summary = "Follow a plan document (JSON)";
    static constexpr ReplyKind reply = ReplyKind::code;
    std::string plan;  ///< the document's bytes, which the service decodes

    template <typename Self, typename Visit>
    static void forEachArgument(Self& self, Visit visit) {
        visit("plan", self.plan);
    }
    void carryOut(FanHelperService& service, ReplyHandler handler);
    bool operator==(const ApplyConfig&) const = default;
};

struct RestoreAuto : NoArguments {
    static constexpr std::string_view name = "restoreAuto";
    static constexpr std::string_view summary = "The same as automatic, only acknowledged";
    static constexpr ReplyKind reply = ReplyKind::acknowledgement;
    void carryOut(FanHelperService& service, ReplyHandler handler);
};

struct Heartbeat : NoArguments {
    static constexpr std::string_view name = "heartbeat";
    static constexpr std::string_view summary = "Keep what is held for another 15 s";
    static constexpr ReplyKind reply = ReplyKind::none;
    void carryOut(FanHelperService& service, ReplyHandler handler);
};

struct ReadState : NoArguments {
    static constexpr std::string_view name = "readState";
    static constexpr std::string_view summary = "Say who drives each fan, and what went wrong last";
    static constexpr ReplyKind reply = ReplyKind::state;
    void carryOut(FanHelperService& service, ReplyHandler handler);
};

}  // namespace commands

using Command = std::variant<commands::HelperVersion, commands::ShutdownForUpgrade,
                             commands::SetManualRPM, commands::SetPercent, commands::FullBlast,
                             commands::Automatic, commands::ApplyConfig, commands::RestoreAuto,
                             commands::Heartbeat, commands::ReadState>;

/// What is known of each command, by its method.
struct CommandDescription {
    std::string_view name;
    std::string_view summary;
    ReplyKind reply = ReplyKind::none;
};
inline constexpr auto commandDescriptions =
    []<std::size_t... index>(std::index_sequence<index...>) {
        return std::array{
            CommandDescription{.name = std::variant_alternative_t<index, Command>::name,
                               .summary = std::variant_alternative_t<index, Command>::summary,
                               .reply = std::variant_alternative_t<index, Command>::reply}...};
    }(std::make_index_sequence<std::variant_size_v<Command>>());

[[nodiscard]] constexpr const CommandDescription& descriptionOf(Method method) {
    return commandDescriptions.at(static_cast<std::size_t>(method));
}
[[nodiscard]] constexpr std::string_view nameOf(Method method) {
    return descriptionOf(method).name;
}
[[nodiscard]] inline Method methodOf(const Command& command) {
    return static_cast<Method>(command.index());
}
[[nodiscard]] inline std::string_view nameOf(const Command& command) {
    return nameOf(methodOf(command));
}

/// The command with arguments of 0, and an empty plan.
[[nodiscard]] Command commandOf(Method method);
/// The same by its name; nothing when there is none of this name.
[[nodiscard]] std::optional<Command> commandNamed(std::string_view name);

/// Calls `visit` with the name of each argument and a reference to it: an integer, a number or a
/// text.
template <typename AnyCommand, typename Visit>
void forEachArgument(AnyCommand& command, Visit visit) {
    std::visit([&visit](auto& each) { each.forEachArgument(each, visit); }, command);
}

/// The command's arguments as members of an object.
void writeArguments(json::Writer& writer, const Command& command);
/// Reads the arguments from members of an object, and fails where one is missing or of another
/// type.
void readArguments(const json::Decoder& decoder, Command& command);

/// Gives the command to the service. Returns at once.
void dispatch(FanHelperService& service, Command command, ReplyHandler handler);

}  // namespace airflow::daemon
