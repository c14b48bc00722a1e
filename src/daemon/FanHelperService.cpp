#include "daemon/FanHelperService.h"

#include <chrono>
#include <utility>

#include "daemon/BuildIdentity.h"
#include "json/Decoder.h"
#include "json/Document.h"
#include "json/Writer.h"
#include "plan/FanControlPlan.h"

namespace airflow::daemon {

namespace {

using control::ControlResult;
using namespace std::chrono_literals;

/// Between the acknowledgement of an upgrade and the end, so that it can leave the process.
constexpr auto gracePeriod = 200ms;

/// What a command is answered that nobody waits for any more.
ControlResult clientIsGone() {
    constexpr std::uint8_t superseded = 255;
    return ControlResult::rejected(superseded);
}

std::string stateDocument(const control::ControlState& state) {
    json::Writer writer;
    writer.write(state);
    return writer.take().value_or(std::string());
}

}  // namespace

FanHelperService::FanHelperService(concurrency::Runtime& taskRuntime, DaemonProcess& ownProcess,
                                   std::shared_ptr<control::LocalFanController> fanController,
                                   Attendance* clientsThere)
    : runtime(taskRuntime),
      process(ownProcess),
      controller(std::move(fanController)),
      attendance(clientsThere) {}

void FanHelperService::helperVersion(const TextReply& reply) const {
    reply(BuildIdentity::text);
}

void FanHelperService::shutdownForUpgrade(Acknowledgement reply) {
    runtime.detach("shutdownForUpgrade", restoreAndExit(*this, std::move(reply)));
}

void FanHelperService::setManualRPM(numbers::FanIndex fan, numbers::WholeRPM rpm, CodeReply reply) {
    runtime.detach("setManualRPM",
                   answer(*this, arrival(), controller->setManual(fan, rpm), std::move(reply)));
}

void FanHelperService::setPercent(numbers::FanIndex fan, numbers::Percent percent,
                                  CodeReply reply) {
    runtime.detach("setPercent", answer(*this, arrival(), controller->setPercent(fan, percent),
                                        std::move(reply)));
}

void FanHelperService::fullBlast(CodeReply reply) {
    runtime.detach("fullBlast",
                   answer(*this, arrival(), controller->fullBlast(), std::move(reply)));
}

void FanHelperService::automatic(CodeReply reply) {
    runtime.detach("automatic",
                   answer(*this, arrival(), controller->automatic(), std::move(reply)));
}

void FanHelperService::applyConfig(std::string plan, CodeReply reply) {
    runtime.detach("applyConfig",
                   decodeAndApply(*this, arrival(), std::move(plan), std::move(reply)));
}

void FanHelperService::restoreAuto(Acknowledgement reply) {
    runtime.detach("restoreAuto", restoreAndAcknowledge(*this, arrival(), std::move(reply)));
}

void FanHelperService::heartbeat() {
    runtime.detach("heartbeat", beat(*this, arrival()));
}

void FanHelperService::readState(DataReply reply) {
    runtime.detach("readState", replyState(*this, std::move(reply)));
}

concurrency::Task<void> FanHelperService::answer(const FanHelperService& service, Arrival arrived,
                                                 Result command, CodeReply reply) {
    if (service.isOver(arrived)) {
        reply(clientIsGone().xpcCode());
        co_return;
    }
    service.noteHeard();
    const ControlResult result = co_await std::move(command);
    service.noteHeard();
    reply(result.xpcCode());
}

concurrency::Task<void> FanHelperService::decodeAndApply(const FanHelperService& service,
                                                         Arrival arrived, std::string text,
                                                         CodeReply reply) {
    if (service.isOver(arrived)) {
        reply(clientIsGone().xpcCode());
        co_return;
    }
    const auto plan = json::decode<plan::FanControlPlan>(text);
    if (!plan) {
        reply(ControlResult::failed("applyConfig: could not decode FanControlPlan").xpcCode());
        co_return;
    }
    service.noteHeard();
    const ControlResult result = co_await service.controller->applyPlan(*plan);
    service.noteHeard();
    reply(result.xpcCode());
}

concurrency::Task<void> FanHelperService::restoreAndAcknowledge(const FanHelperService& service,
                                                                Arrival arrived,
                                                                Acknowledgement reply) {
    if (!service.isOver(arrived)) {
        (void)co_await service.controller->restoreAuto();  // acknowledged whatever came of it
    }
    reply();
}

concurrency::Task<void> FanHelperService::beat(const FanHelperService& service, Arrival arrived) {
    if (service.isOver(arrived)) co_return;
    service.noteHeard();
    co_await service.controller->heartbeat();
}

concurrency::Task<void> FanHelperService::restoreAndExit(const FanHelperService& service,
                                                         Acknowledgement reply) {
    (void)co_await service.controller->restoreAuto();  // the process ends whatever came of it
    reply();
    (void)co_await service.runtime.sleepFor(gracePeriod);  // nobody cancels it
    co_await service.process.exit(0);
}

concurrency::Task<void> FanHelperService::replyState(const FanHelperService& service,
                                                     DataReply reply) {
    const control::ControlState state = co_await service.controller->currentState();
    reply(stateDocument(state));
}

}  // namespace airflow::daemon
