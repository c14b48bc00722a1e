// SimulatedSMC: a System Management Controller that answers the driver's 80-byte records.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "concurrency/Clock.h"
#include "simulation/machine/Fault.h"
#include "smc/SMCBytes.h"
#include "smc/SMCUserClient.h"

namespace airflow::simulation {

/// One request that reached the SMC, as it was answered.
struct SMCAccess {
    concurrency::Duration time{};  ///< since the machine was switched on
    Fault::Operation operation = Fault::Operation::read;
    std::string key{};     ///< of an enumeration: the one that stands at its index, if any does
    double value = 0;      ///< what was read or written, where that is a number
    bool isNumber = true;  ///< false: what was read is none, as its reader decodes it
    std::uint8_t result = 0;
    smc::KernelReturn kernelReturn = smc::kernelSuccess;
    concurrency::Duration latency{};  ///< how long the answer takes
};

/// A key store behind the platform calls. Knows nothing of fans: who owns it gives each key its
/// reader and writer. Called by one thread at a time.
class SimulatedSMC final : public smc::SMCUserClient {
public:
    static constexpr std::uint8_t keyNotFound = 0x84;
    static constexpr std::uint8_t notWritable = 0x86;
    static constexpr std::uint8_t wrongSize = 0x87;  ///< declared by a read or a write
    static constexpr std::uint8_t unknownRequest = 0x89;
    /// What the kernel says to requests that do not go to an open user client.
    static constexpr smc::KernelReturn badArgument = static_cast<smc::KernelReturn>(0xE00002C2);

    struct Key {
        std::string name;  ///< four bytes, which need not be printable
        std::string type;  ///< four bytes too
        std::uint32_t size = 0;
        std::function<smc::SMCBytes()> read;
        /// Takes the payload and returns the result byte; empty for a key that cannot be written.
        std::function<std::uint8_t(const smc::SMCBytes&)> write;
    };

    /// `clock` gives the time since the machine was switched on.
    explicit SimulatedSMC(std::function<concurrency::Duration()> clock);

    /// Keys are enumerated in the order in which they were added, after "#KEY", which counts them
    /// all. A name that is not four bytes long stops the process.
    void add(Key key);
    /// A key of the given type ("ui8 ", "ui32", "flt ", "sp78", "fpe2") that holds a number.
    void addNumber(const std::string& name, const std::string& type, std::function<double()> read,
                   std::function<std::uint8_t(double)> write = {});
    void add(const Fault& fault) { faults.push_back(fault); }
    void removeFaults() { faults.clear(); }

    /// The machine itself changes a key that can be written; false when there is no such key, or
    /// when it does not take the value.
    bool poke(const std::string& key, double value);

    /// Told of every request for an operation that arrives, after it was answered.
    std::function<void(const SMCAccess&)> observer;
    bool isPresent = true;             ///< false: no such service in the registry
    smc::KernelReturn openResult = 0;  ///< of opening the user client
    bool isPrivileged = true;          ///< false: the kernel refuses every request

    /// How long the requests since the last call have taken in all.
    [[nodiscard]] concurrency::Duration takeLatency();
    /// Services and connections that were handed out and not given back; below zero when more were
    /// given back.
    [[nodiscard]] int openServices() const { return services; }
    [[nodiscard]] int openConnections() const {
        return static_cast<int>(connections.size()) - wrongCloses;
    }

    std::uint32_t findService(const std::string& className) override;
    smc::KernelReturn open(std::uint32_t service, std::uint32_t type,
                           std::uint32_t& connection) override;
    void release(std::uint32_t service) override;
    smc::KernelReturn call(std::uint32_t connection, std::uint32_t method,
                           const smc::SMCParamStruct& request, smc::SMCParamStruct& reply) override;
    void close(std::uint32_t connection) override;

private:
    [[nodiscard]] const Key* find(std::uint32_t code) const;
    [[nodiscard]] const Key* keyOf(Fault::Operation operation,
                                   const smc::SMCParamStruct& request) const;
    [[nodiscard]] const Fault* activeFault(Fault::Operation operation, const std::string& key,
                                           std::optional<double> written) const;
    /// The size and the type that the key's information claims at this moment.
    [[nodiscard]] std::uint32_t claimedSize(const Key& key) const;
    [[nodiscard]] std::string claimedType(const Key& key) const;
    /// The number in what a read was answered with, as its reader decodes it, if it is one.
    [[nodiscard]] std::optional<double> numberRead(const Key& key,
                                                   const smc::SMCBytes& bytes) const;
    void answer(const Key& key, Fault::Operation operation, const Fault* fault,
                const smc::SMCParamStruct& request, smc::SMCParamStruct& reply) const;
    void answerInformation(const Key& key, const Fault* fault, smc::SMCParamStruct& reply) const;
    void answerRead(const Key& key, const Fault* fault, const smc::SMCParamStruct& request,
                    smc::SMCParamStruct& reply) const;
    void answerWrite(const Key& key, const Fault* fault, const smc::SMCParamStruct& request,
                     smc::SMCParamStruct& reply) const;

    std::function<concurrency::Duration()> clock;
    std::vector<Key> keys;
    std::vector<std::uint32_t> codes;  ///< of the keys, to find them by
    std::vector<Fault> faults;
    std::uint64_t requests = 0;  ///< for an operation that arrived, the present one included
    concurrency::Duration latency{};
    int services = 0;
    std::vector<std::uint32_t> connections;  ///< that are open
    std::uint32_t lastConnection = 0xC010;
    int wrongCloses = 0;
};

}  // namespace airflow::simulation
