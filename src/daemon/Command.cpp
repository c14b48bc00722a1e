#include "daemon/Command.h"

#include <algorithm>
#include <type_traits>

#include "daemon/FanHelperService.h"
#include "numbers/Units.h"

namespace airflow::daemon {

namespace {

FanHelperService::CodeReply coded(ReplyHandler handler) {
    return [handler = std::move(handler)](std::int64_t code) { handler(CodeReply{code}); };
}

FanHelperService::Acknowledgement acknowledged(ReplyHandler handler) {
    return [handler = std::move(handler)] { handler(Acknowledgement{}); };
}

using MakeCommand = Command (*)();

constexpr auto makers = []<std::size_t... index>(std::index_sequence<index...>) {
    return std::array<MakeCommand, sizeof...(index)>{
        [] { return Command(std::in_place_index<index>); }...};
}(std::make_index_sequence<std::variant_size_v<Command>>());

}  // namespace

namespace commands {

void HelperVersion::carryOut(FanHelperService& service, ReplyHandler handler) {
    service.helperVersion(
        [&handler](std::string_view text) { handler(VersionReply{std::string(text)}); });
}

void ShutdownForUpgrade::carryOut(FanHelperService& service, ReplyHandler handler) {
    service.shutdownForUpgrade(acknowledged(std::move(handler)));
}

void SetManualRPM::carryOut(FanHelperService& service, ReplyHandler handler) {
    service.setManualRPM(numbers::FanIndex(fan), numbers::WholeRPM(rpm), coded(std::move(handler)));
}

void SetPercent::carryOut(FanHelperService& service, ReplyHandler handler) {
    service.setPercent(numbers::FanIndex(fan), numbers::Percent(percent),
                       coded(std::move(handler)));
}

void FullBlast::carryOut(FanHelperService& service, ReplyHandler handler) {
    service.fullBlast(coded(std::move(handler)));
}

void Automatic::carryOut(FanHelperService& service, ReplyHandler handler) {
    service.automatic(coded(std::move(handler)));
}

void ApplyConfig::carryOut(FanHelperService& service, ReplyHandler handler) {
    service.applyConfig(std::move(plan), coded(std::move(handler)));
}

void RestoreAuto::carryOut(FanHelperService& service, ReplyHandler handler) {
    service.restoreAuto(acknowledged(std::move(handler)));
}

void Heartbeat::carryOut(FanHelperService& service, ReplyHandler) {
    service.heartbeat();
}

void ReadState::carryOut(FanHelperService& service, ReplyHandler handler) {
    service.readState([handler = std::move(handler)](std::string_view bytes) {
        handler(StateReply{std::string(bytes)});
    });
}

}  // namespace commands

Command commandOf(Method method) {
    return makers.at(static_cast<std::size_t>(method))();
}

std::optional<Command> commandNamed(std::string_view name) {
    const auto* const found =
        std::ranges::find(commandDescriptions, name, &CommandDescription::name);
    if (found == commandDescriptions.end()) return std::nullopt;
    return commandOf(static_cast<Method>(found - commandDescriptions.begin()));
}

void writeArguments(json::Writer& writer, const Command& command) {
    forEachArgument(command, [&writer](std::string_view name, const auto& value) {
        writer.member(name, value);
    });
}

void readArguments(const json::Decoder& decoder, Command& command) {
    forEachArgument(command, [&decoder](std::string_view name, auto& value) {
        value = decoder.required<std::remove_cvref_t<decltype(value)>>(name);
    });
}

void dispatch(FanHelperService& service, Command command, ReplyHandler handler) {
    std::visit([&](auto& each) { each.carryOut(service, std::move(handler)); }, command);
}

}  // namespace airflow::daemon
