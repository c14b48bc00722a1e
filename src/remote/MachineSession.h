// MachineSession: what one connection asks of a machine, and what it holds of it.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "concurrency/Clock.h"
#include "remote/MachineProtocol.h"
#include "sensors/hid/HIDFunctions.h"
#include "sensors/hid/HIDObjects.h"
#include "smc/SMCUserClient.h"

namespace airflow::remote {

/// A machine for many connections. Each takes `mutex` for a request, and whoever else uses the
/// machine meanwhile takes it too.
struct ServedMachine {
    smc::SMCUserClient& smc;
    sensors::HIDFunctions::Table hid;  ///< all six functions, or none
    sensors::HIDObjects& objects;
    /// How long, in real time, the answers of the SMC since the last call have to be held back.
    std::function<concurrency::Duration()> takeLatency;
    /// Answers a request of the operation `control`.
    std::function<std::string(std::string_view)> control;

    std::mutex mutex;  ///< guards what follows
    std::uint64_t smcRequests = 0;
    std::uint64_t hidRequests = 0;
};

/// Its end gives back every service, connection and object that it was given and did not give back
/// itself, as a kernel does for a process that ended. Used by one thread; takes the machine's lock
/// by itself.
class MachineSession {
public:
    explicit MachineSession(ServedMachine& served) : machine(served) {}
    MachineSession(const MachineSession&) = delete;
    MachineSession& operator=(const MachineSession&) = delete;
    ~MachineSession();

    struct Answer {
        MessageWriter message;            ///< empty: there is no answer
        concurrency::Duration latency{};  ///< before it is sent
    };

    /// Carries out a request, given without its length. Nothing, and nothing is changed, for one
    /// that cannot be understood, that needs a function which the machine does not have, or that
    /// gives back what this session does not hold: its end is then the only answer that cannot be
    /// mistaken for another.
    [[nodiscard]] std::optional<Answer> perform(std::string_view request);

private:
    [[nodiscard]] bool performSMC(MachineOperation operation, MessageReader& request,
                                  Answer& answer);
    [[nodiscard]] bool performOnObjects(MachineOperation operation, MessageReader& request,
                                        MessageWriter& answer);
    [[nodiscard]] bool performOnHID(MachineOperation operation, MessageReader& request,
                                    MessageWriter& answer);
    [[nodiscard]] bool performControl(MessageReader& request, MessageWriter& answer);
    [[nodiscard]] OpeningAnswer open(std::uint32_t service, std::uint32_t type);
    /// The object, which this session owns a reference to from now on if it is one.
    sensors::HIDObject owned(sensors::HIDObject object);
    [[nodiscard]] bool release(sensors::HIDObject object);

    ServedMachine& machine;
    std::vector<std::uint32_t> services;
    std::vector<std::uint32_t> connections;
    std::map<sensors::HIDObject, std::uint64_t> references;
};

}  // namespace airflow::remote
