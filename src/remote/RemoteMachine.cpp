#include "remote/RemoteMachine.h"

#include <limits>

namespace airflow::remote {

using sensors::HIDObject;

namespace {

platform::FileDescriptor connectionTo(const std::string& path) {
    auto connection = platform::connectTo(path);
    return connection ? std::move(*connection) : platform::FileDescriptor();
}

}  // namespace

std::uint32_t RemoteSMC::findService(const std::string& className) {
    return link.ask<std::uint32_t>(0, MachineOperation::findService, className);
}

smc::KernelReturn RemoteSMC::open(std::uint32_t service, std::uint32_t type,
                                  std::uint32_t& connection) {
    const auto answer =
        link.ask<OpeningAnswer>({.code = noDevice}, MachineOperation::openService, service, type);
    if (answer.code == smc::kernelSuccess) connection = answer.connection;
    return answer.code;
}

void RemoteSMC::release(std::uint32_t service) {
    link.tell(MachineOperation::releaseService, service);
}

smc::KernelReturn RemoteSMC::call(std::uint32_t connection, std::uint32_t method,
                                  const smc::SMCParamStruct& request, smc::SMCParamStruct& reply) {
    const auto answer = link.ask<CallAnswer>({.code = noDevice, .record = {}},
                                             MachineOperation::call, connection, method, request);
    if (answer.code == smc::kernelSuccess) reply = answer.record;
    return answer.code;
}

void RemoteSMC::close(std::uint32_t connection) {
    link.tell(MachineOperation::closeService, connection);
}

sensors::HIDFunctions::Table RemoteHID::functions() {
    if (!link.ask<bool>(false, MachineOperation::hidFunctions)) return {};
    sensors::HIDFunctions::Table table;
    table.clientCreate = [this](HIDObject) {
        return link.ask<HIDObject>(nullptr, MachineOperation::clientCreate);
    };
    table.clientSetMatching = [this](HIDObject client, HIDObject matching) {
        link.tell(MachineOperation::clientSetMatching, client, matching);
    };
    table.clientCopyServices = [this](HIDObject client) {
        return link.ask<HIDObject>(nullptr, MachineOperation::clientCopyServices, client);
    };
    table.serviceCopyProperty = [this](HIDObject service, HIDObject name) {
        return link.ask<HIDObject>(nullptr, MachineOperation::copyProperty, service, name);
    };
    table.serviceCopyEvent = [this](HIDObject service, std::int64_t type, std::int32_t options,
                                    std::int64_t timeStamp) {
        return link.ask<HIDObject>(nullptr, MachineOperation::copyEvent, service, type, options,
                                   timeStamp);
    };
    table.eventGetFloatValue = [this](HIDObject event, std::int32_t field) {
        constexpr double unknown = std::numeric_limits<double>::quiet_NaN();
        return link.ask<double>(unknown, MachineOperation::eventLevel, event, field);
    };
    return table;
}

HIDObject RemoteHID::makeDictionary(const std::vector<Entry>& entries) {
    return link.ask<HIDObject>(nullptr, MachineOperation::makeDictionary, entries);
}

HIDObject RemoteHID::makeText(std::string_view utf8) {
    return link.ask<HIDObject>(nullptr, MachineOperation::makeText, utf8);
}

std::vector<HIDObject> RemoteHID::elements(HIDObject array) {
    return link.ask<std::vector<HIDObject>>({}, MachineOperation::elements, array);
}

std::optional<std::string> RemoteHID::text(HIDObject object) {
    return link.ask<std::optional<std::string>>({}, MachineOperation::text, object);
}

void RemoteHID::retain(HIDObject object) {
    link.tell(MachineOperation::retain, object);
}

void RemoteHID::release(HIDObject object) {
    link.tell(MachineOperation::release, object);
}

RemoteMachine::RemoteMachine(const std::string& path)
    : RemoteMachine(connectionTo(path), connectionTo(path)) {}

}  // namespace airflow::remote
