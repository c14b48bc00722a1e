// RemoteMachine: a machine that lives in another process, behind the seams of a machine.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "remote/MachineProtocol.h"
#include "sensors/hid/HIDFunctions.h"
#include "sensors/hid/HIDObjects.h"
#include "smc/SMCUserClient.h"

namespace airflow::remote {

/// One connection to a machine, asked one thing at a time; every question waits for its answer, as
/// long as the machine takes. When the machine is gone, or answers nonsense, everything from then
/// on has the answer that is given for this case, at once. Any thread may ask.
class MachineLink {
public:
    MachineLink() = default;
    explicit MachineLink(platform::FileDescriptor open) : connection(std::move(open)) {}

    template <typename Result, typename... Fields>
    Result ask(Result otherwise, MachineOperation operation, const Fields&... fields) {
        const std::lock_guard lock(mutex);
        if (!send(operation, fields...)) return otherwise;
        if (const auto message = receiveMessage(connection)) {
            MessageReader reader(*message);
            auto result = reader.take<Result>();
            if (reader.isComplete()) return result;
        }
        connection = {};
        return otherwise;
    }

    /// Asks for an operation that has no answer.
    template <typename... Fields>
    void tell(MachineOperation operation, const Fields&... fields) {
        const std::lock_guard lock(mutex);
        (void)send(operation, fields...);
    }

private:
    template <typename... Fields>
    bool send(MachineOperation operation, const Fields&... fields) {
        if (!connection) return false;
        MessageWriter message;
        message.put(operation);
        (message.put(fields), ...);
        if (sendMessage(connection, message)) return true;
        connection = {};
        return false;
    }

    platform::FileDescriptor connection;
    std::mutex mutex;
};

/// The SMC's driver at the other end of a link. Without a machine there is no service, and the
/// kernel has lost the device of those that were open.
class RemoteSMC final : public smc::SMCUserClient {
public:
    /// What calls return when the machine is gone (kIOReturnNoDevice).
    static constexpr smc::KernelReturn noDevice = static_cast<smc::KernelReturn>(0xE00002C0);

    explicit RemoteSMC(platform::FileDescriptor connection) : link(std::move(connection)) {}

    std::uint32_t findService(const std::string& className) override;
    smc::KernelReturn open(std::uint32_t service, std::uint32_t type,
                           std::uint32_t& connection) override;
    void release(std::uint32_t service) override;
    smc::KernelReturn call(std::uint32_t connection, std::uint32_t method,
                           const smc::SMCParamStruct& request, smc::SMCParamStruct& reply) override;
    void close(std::uint32_t connection) override;

private:
    MachineLink link;
};

/// The HID functions and their objects at the other end of a link. Without a machine they give
/// nothing; an event that was there before has a level that is not a number.
class RemoteHID final : public sensors::HIDObjects {
public:
    explicit RemoteHID(platform::FileDescriptor connection) : link(std::move(connection)) {}

    /// None when the machine has none, or when there is no machine.
    [[nodiscard]] sensors::HIDFunctions::Table functions();

    sensors::HIDObject makeDictionary(const std::vector<Entry>& entries) override;
    sensors::HIDObject makeText(std::string_view utf8) override;
    std::vector<sensors::HIDObject> elements(sensors::HIDObject array) override;
    std::optional<std::string> text(sensors::HIDObject object) override;
    void retain(sensors::HIDObject object) override;
    void release(sensors::HIDObject object) override;

private:
    MachineLink link;
};

/// A daemon's side of a machine process. Links that are lost are not made again: to the machine
/// that answers then, nothing of what this process holds would mean anything.
class RemoteMachine {
public:
    /// Connects to the machine whose socket has this path. If nobody listens there, its SMC is not
    /// found and its HID system has no functions.
    explicit RemoteMachine(const std::string& path);
    /// Over two connections that are there already. A thread that reads temperatures is never kept
    /// waiting by one that waits for the SMC, as it would not be on a Mac.
    RemoteMachine(platform::FileDescriptor smcConnection, platform::FileDescriptor hidConnection)
        : controller(std::move(smcConnection)), hub(std::move(hidConnection)) {}

    [[nodiscard]] smc::SMCUserClient& smc() { return controller; }
    [[nodiscard]] sensors::HIDFunctions::Table hidFunctions() { return hub.functions(); }
    [[nodiscard]] sensors::HIDObjects& hidObjects() { return hub; }

private:
    RemoteSMC controller;
    RemoteHID hub;
};

}  // namespace airflow::remote
