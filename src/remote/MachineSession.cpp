#include "remote/MachineSession.h"

#include <algorithm>
#include <tuple>
#include <type_traits>

namespace airflow::remote {

namespace {

using sensors::HIDObject;

/// Takes all fields of a request and then acts on them; does not act when they are not exactly what
/// the request holds. `act` may return whether it could.
template <typename... Fields, typename Act>
bool with(MessageReader& request, Act act) {
    const std::tuple<Fields...> fields{request.take<Fields>()...};  // braces: from left to right
    if (!request.isComplete()) return false;
    if constexpr (std::is_same_v<std::invoke_result_t<Act, const Fields&...>, bool>) {
        return std::apply(act, fields);
    } else {
        std::apply(act, fields);
        return true;
    }
}

bool holds(const std::vector<std::uint32_t>& handles, std::uint32_t handle) {
    return std::ranges::find(handles, handle) != handles.end();
}

bool takeOut(std::vector<std::uint32_t>& handles, std::uint32_t handle) {
    const auto found = std::ranges::find(handles, handle);
    if (found == handles.end()) return false;
    handles.erase(found);
    return true;
}

}  // namespace

MachineSession::~MachineSession() {
    const std::lock_guard lock(machine.mutex);
    for (const std::uint32_t connection : connections) machine.smc.close(connection);
    for (const std::uint32_t service : services) machine.smc.release(service);
    for (const auto& [object, count] : references) {
        for (std::uint64_t i = 0; i < count; ++i) machine.objects.release(object);
    }
}

std::optional<MachineSession::Answer> MachineSession::perform(std::string_view request) {
    MessageReader reader(request);
    const auto operation = reader.take<MachineOperation>();
    Answer answer;
    const std::lock_guard lock(machine.mutex);
    const bool isUnderstood =
        performSMC(operation, reader, answer) ||
        performOnObjects(operation, reader, answer.message) ||
        performOnHID(operation, reader, answer.message) ||
        (operation == MachineOperation::control && performControl(reader, answer.message));
    if (!isUnderstood) return std::nullopt;
    if (operation <= MachineOperation::closeService)
        ++machine.smcRequests;
    else if (operation < MachineOperation::control)
        ++machine.hidRequests;
    return answer;
}

bool MachineSession::performSMC(MachineOperation operation, MessageReader& request,
                                Answer& answer) {
    MessageWriter& message = answer.message;
    switch (operation) {
        case MachineOperation::findService:
            return with<std::string>(request, [&](const std::string& name) {
                const std::uint32_t service = machine.smc.findService(name);
                if (service != 0) services.push_back(service);
                message.put(service);
            });
        case MachineOperation::openService:
            return with<std::uint32_t, std::uint32_t>(
                request, [&](std::uint32_t service, std::uint32_t type) {
                    message.put(open(service, type));
                });
        case MachineOperation::releaseService:
            return with<std::uint32_t>(request, [&](std::uint32_t service) {
                if (!takeOut(services, service)) return false;
                machine.smc.release(service);
                return true;
            });
        case MachineOperation::call:
            return with<std::uint32_t, std::uint32_t, smc::SMCParamStruct>(
                request, [&](std::uint32_t connection, std::uint32_t method,
                             const smc::SMCParamStruct& record) {
                    // Handles of other sessions mean nothing here.
                    const std::uint32_t own = holds(connections, connection) ? connection : 0;
                    CallAnswer reply;
                    reply.code = machine.smc.call(own, method, record, reply.record);
                    message.put(reply);
                    answer.latency = machine.takeLatency();
                });
        case MachineOperation::closeService:
            return with<std::uint32_t>(request, [&](std::uint32_t connection) {
                if (!takeOut(connections, connection)) return false;
                machine.smc.close(connection);
                return true;
            });
        default: return false;
    }
}

OpeningAnswer MachineSession::open(std::uint32_t service, std::uint32_t type) {
    const std::uint32_t own = holds(services, service) ? service : 0;
    OpeningAnswer answer;
    answer.code = machine.smc.open(own, type, answer.connection);
    if (answer.code == smc::kernelSuccess) connections.push_back(answer.connection);
    return answer;
}

bool MachineSession::performOnObjects(MachineOperation operation, MessageReader& request,
                                      MessageWriter& answer) {
    using Entries = std::vector<sensors::HIDObjects::Entry>;
    switch (operation) {
        case MachineOperation::makeDictionary:
            return with<Entries>(request, [&](const Entries& entries) {
                answer.put(owned(machine.objects.makeDictionary(entries)));
            });
        case MachineOperation::makeText:
            return with<std::string_view>(request, [&](std::string_view text) {
                answer.put(owned(machine.objects.makeText(text)));
            });
        case MachineOperation::elements:
            return with<HIDObject>(
                request, [&](HIDObject array) { answer.put(machine.objects.elements(array)); });
        case MachineOperation::text:
            return with<HIDObject>(
                request, [&](HIDObject object) { answer.put(machine.objects.text(object)); });
        case MachineOperation::retain:
            return with<HIDObject>(request, [&](HIDObject object) {
                machine.objects.retain(object);
                (void)owned(object);
            });
        case MachineOperation::release:
            return with<HIDObject>(request, [&](HIDObject object) { return release(object); });
        default: return false;
    }
}

bool MachineSession::performOnHID(MachineOperation operation, MessageReader& request,
                                  MessageWriter& answer) {
    const sensors::HIDFunctions::Table& hid = machine.hid;
    const bool isThere = static_cast<bool>(hid.clientCreate);
    if (operation == MachineOperation::hidFunctions) {
        return with<>(request, [&] { answer.put(std::uint8_t{isThere}); });
    }
    if (!isThere) return false;
    switch (operation) {
        case MachineOperation::clientCreate:
            return with<>(request, [&] { answer.put(owned(hid.clientCreate(nullptr))); });
        case MachineOperation::clientSetMatching:
            return with<HIDObject, HIDObject>(request, [&](HIDObject client, HIDObject matching) {
                hid.clientSetMatching(client, matching);
            });
        case MachineOperation::clientCopyServices:
            return with<HIDObject>(request, [&](HIDObject client) {
                answer.put(owned(hid.clientCopyServices(client)));
            });
        case MachineOperation::copyProperty:
            return with<HIDObject, HIDObject>(request, [&](HIDObject service, HIDObject name) {
                answer.put(owned(hid.serviceCopyProperty(service, name)));
            });
        case MachineOperation::copyEvent:
            return with<HIDObject, std::int64_t, std::int32_t, std::int64_t>(
                request, [&](HIDObject service, std::int64_t type, std::int32_t options,
                             std::int64_t timeStamp) {
                    answer.put(owned(hid.serviceCopyEvent(service, type, options, timeStamp)));
                });
        case MachineOperation::eventLevel:
            return with<HIDObject, std::int32_t>(request, [&](HIDObject event, std::int32_t field) {
                answer.put(hid.eventGetFloatValue(event, field));
            });
        default: return false;
    }
}

bool MachineSession::performControl(MessageReader& request, MessageWriter& answer) {
    return with<std::string_view>(
        request, [&](std::string_view text) { answer.put(machine.control(text)); });
}

HIDObject MachineSession::owned(HIDObject object) {
    if (object) ++references[object];
    return object;
}

bool MachineSession::release(HIDObject object) {
    const auto found = references.find(object);
    if (found == references.end()) return false;
    if (--found->second == 0) references.erase(found);
    machine.objects.release(object);
    return true;
}

}  // namespace airflow::remote
