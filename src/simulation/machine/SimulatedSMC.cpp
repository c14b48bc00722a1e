#include "simulation/machine/SimulatedSMC.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "simulation/machine/SMCNumber.h"
#include "smc/FourCharCode.h"
#include "smc/SMCParamStruct.h"

namespace airflow::simulation {

namespace {

using Selector = smc::SMCParamStruct::Selector;
using Operation = Fault::Operation;

constexpr std::uint32_t serviceHandle = 0x5E11;
constexpr std::uint32_t structureMethod = 2;

std::optional<Operation> operationOf(std::uint8_t selector) {
    switch (static_cast<Selector>(selector)) {
        case Selector::readKey: return Operation::read;
        case Selector::writeKey: return Operation::write;
        case Selector::getKeyInfo: return Operation::information;
        case Selector::getKeyByIndex: return Operation::enumeration;
        case Selector::ypcEvent: break;
    }
    return std::nullopt;
}

/// The four bytes as they are, printable or not.
std::string nameOf(std::uint32_t code) {
    std::string name;
    for (int shift = 24; shift >= 0; shift -= 8) name += static_cast<char>(code >> shift & 0xFF);
    return name;
}

}  // namespace

SimulatedSMC::SimulatedSMC(std::function<concurrency::Duration()> clock) : clock(std::move(clock)) {
    addNumber("#KEY", "ui32", [this] { return static_cast<double>(keys.size()); });
}

void SimulatedSMC::add(Key key) {
    codes.push_back(smc::fourCharCode(key.name));
    keys.push_back(std::move(key));
}

void SimulatedSMC::addNumber(const std::string& name, const std::string& type,
                             std::function<double()> read,
                             std::function<std::uint8_t(double)> write) {
    Key key{.name = name, .type = type, .size = sizeOfNumber(type), .read = {}, .write = {}};
    key.read = [read = std::move(read), type] { return encodeNumber(read(), type); };
    if (write) {
        key.write = [write = std::move(write), type, size = key.size](const smc::SMCBytes& bytes) {
            return write(decodeNumber(bytes, size, type).value_or(0));
        };
    }
    add(std::move(key));
}

bool SimulatedSMC::poke(const std::string& name, double value) {
    const Key* const key = find(smc::fourCharCode(name));
    return key && key->write && key->write(encodeNumber(value, key->type)) == 0;
}

concurrency::Duration SimulatedSMC::takeLatency() {
    return std::exchange(latency, concurrency::Duration::zero());
}

std::uint32_t SimulatedSMC::findService(const std::string& className) {
    if (!isPresent || className != "AppleSMC") return 0;
    ++services;
    return serviceHandle;
}

smc::KernelReturn SimulatedSMC::open(std::uint32_t service, std::uint32_t type,
                                     std::uint32_t& connection) {
    if (service != serviceHandle || type != 0) return badArgument;
    if (openResult != smc::kernelSuccess) return openResult;
    connection = ++lastConnection;
    connections.push_back(connection);
    return smc::kernelSuccess;
}

void SimulatedSMC::release(std::uint32_t service) {
    if (service == serviceHandle) --services;
}

void SimulatedSMC::close(std::uint32_t connection) {
    if (std::erase(connections, connection) == 0) ++wrongCloses;
}

smc::KernelReturn SimulatedSMC::call(std::uint32_t connection, std::uint32_t method,
                                     const smc::SMCParamStruct& request,
                                     smc::SMCParamStruct& reply) {
    const bool isOpen = std::ranges::find(connections, connection) != connections.end();
    if (!isOpen || method != structureMethod) return badArgument;
    if (!isPrivileged) return smc::kernelNotPrivileged;
    reply = {};
    const auto operation = operationOf(request.data8);
    if (!operation) {
        reply.result = unknownRequest;
        return smc::kernelSuccess;
    }
    ++requests;
    const Key* const key = keyOf(*operation, request);
    SMCAccess access{.time = clock(), .operation = *operation};
    if (*operation != Operation::enumeration)
        access.key = nameOf(request.key);
    else if (key)
        access.key = key->name;
    std::optional<double> written;
    if (*operation == Operation::write && key) {
        written = decodeNumber(request.bytes, key->size, key->type);
    }
    const Fault* const fault = activeFault(*operation, access.key, written);
    if (fault) access.latency = fault->latency;
    latency += access.latency;
    if (key)
        answer(*key, *operation, fault, request, reply);
    else
        reply.result = keyNotFound;
    if (fault && fault->result) reply.result = *fault->result;
    if (fault && fault->kernelReturn) access.kernelReturn = *fault->kernelReturn;
    if (const std::uint8_t result = reply.result; result != 0) {
        reply = {};
        reply.result = result;
    }
    const auto read =
        *operation == Operation::read && key ? numberRead(*key, reply.bytes) : std::nullopt;
    access.value = read.value_or(written.value_or(0));
    access.isNumber = *operation != Operation::read || (read && !std::isnan(*read));
    access.result = reply.result;
    if (access.kernelReturn != smc::kernelSuccess) reply = {};
    if (observer) observer(access);
    return access.kernelReturn;
}

const SimulatedSMC::Key* SimulatedSMC::keyOf(Operation operation,
                                             const smc::SMCParamStruct& request) const {
    if (operation != Operation::enumeration) return find(request.key);
    return request.data32 < keys.size() ? &keys[request.data32] : nullptr;
}

const SimulatedSMC::Key* SimulatedSMC::find(std::uint32_t code) const {
    const auto found = std::ranges::find(codes, code);
    return found == codes.end() ? nullptr : &keys[static_cast<std::size_t>(found - codes.begin())];
}

const Fault* SimulatedSMC::activeFault(Operation operation, const std::string& key,
                                       std::optional<double> written) const {
    if (faults.empty()) return nullptr;
    const auto now = clock();
    const auto fits = [&](const Fault& fault) {
        return fault.operation == operation && now >= fault.from && now < fault.until &&
               (fault.key == "*" || fault.key == key) && (!fault.value || fault.value == written) &&
               (!fault.access || fault.access == requests);
    };
    const auto found = std::ranges::find_if(faults, fits);
    return found == faults.end() ? nullptr : &*found;
}

std::uint32_t SimulatedSMC::claimedSize(const Key& key) const {
    const Fault* const fault = activeFault(Operation::information, key.name, std::nullopt);
    return fault && fault->size ? *fault->size : key.size;
}

std::string SimulatedSMC::claimedType(const Key& key) const {
    const Fault* const fault = activeFault(Operation::information, key.name, std::nullopt);
    return fault && fault->type ? *fault->type : key.type;
}

std::optional<double> SimulatedSMC::numberRead(const Key& key, const smc::SMCBytes& bytes) const {
    return decodeNumber(bytes, claimedSize(key), claimedType(key));
}

void SimulatedSMC::answer(const Key& key, Operation operation, const Fault* fault,
                          const smc::SMCParamStruct& request, smc::SMCParamStruct& reply) const {
    switch (operation) {
        case Operation::information: answerInformation(key, fault, reply); break;
        case Operation::read: answerRead(key, fault, request, reply); break;
        case Operation::write: answerWrite(key, fault, request, reply); break;
        case Operation::enumeration: reply.key = smc::fourCharCode(key.name); break;
    }
}

void SimulatedSMC::answerInformation(const Key& key, const Fault* fault,
                                     smc::SMCParamStruct& reply) const {
    reply.keyInfo.dataSize = fault && fault->size ? *fault->size : key.size;
    reply.keyInfo.dataType = smc::fourCharCode(fault && fault->type ? *fault->type : key.type);
}

void SimulatedSMC::answerRead(const Key& key, const Fault* fault,
                              const smc::SMCParamStruct& request,
                              smc::SMCParamStruct& reply) const {
    // Who was told a wrong size is answered with it: what a wrong size does to the reader is for
    // the reader to show.
    if (request.keyInfo.dataSize != claimedSize(key)) {
        reply.result = wrongSize;
        return;
    }
    reply.key = request.key;
    reply.bytes =
        fault && fault->reading ? encodeNumber(*fault->reading, claimedType(key)) : key.read();
}

void SimulatedSMC::answerWrite(const Key& key, const Fault* fault,
                               const smc::SMCParamStruct& request,
                               smc::SMCParamStruct& reply) const {
    if (!key.write || request.keyInfo.dataSize != key.size) {
        reply.result = key.write ? wrongSize : notWritable;
        return;
    }
    const bool isRefused = fault && (fault->kernelReturn.value_or(smc::kernelSuccess) != 0 ||
                                     fault->result.value_or(0) != 0);
    const auto effect = fault ? fault->effect : Fault::Effect::natural;
    const bool takesEffect =
        effect == Fault::Effect::natural ? !isRefused : effect == Fault::Effect::applied;
    if (takesEffect) reply.result = key.write(request.bytes);
}

}  // namespace airflow::simulation
