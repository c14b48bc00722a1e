#include "MachineStream.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "concurrency/Require.h"
#include "remote/MachineSession.h"
#include "simulation/machine/SimulatedMac.h"

namespace airflow::fuzz {

namespace {

using concurrency::require;
using remote::MachineOperation;
using remote::MessageReader;
using remote::MessageWriter;
using sensors::HIDObject;
using Operation = MachineOperation;

/// What follows the length.
std::string_view contentOf(MessageWriter& message) {
    return message.framed().substr(sizeof(std::uint32_t));
}

class Session {
public:
    Session() = default;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// The input's text is taken for texts and for whole requests.
    void ask(Input& input) {
        static constexpr std::array<Operation, 18> operations{
            Operation::findService,    Operation::openService,  Operation::releaseService,
            Operation::call,           Operation::closeService, Operation::hidFunctions,
            Operation::makeDictionary, Operation::makeText,     Operation::elements,
            Operation::text,           Operation::retain,       Operation::release,
            Operation::clientCreate,   Operation::copyProperty, Operation::clientSetMatching,
            Operation::copyEvent,      Operation::eventLevel,   Operation::clientCopyServices};
        if (input.below(8) == 7) {
            (void)session->perform(input.text());
            return;
        }
        const Operation operation = input.oneOf(operations);
        MessageWriter message;
        message.put(operation);
        putFields(operation, message, input);
        auto answer = session->perform(contentOf(message));
        if (answer) keep(operation, answer->message);
    }

    void end() {
        session.reset();
        require(mac.smc().openServices() == 0, "a session's end gives back its services");
        require(mac.smc().openConnections() == 0, "a session's end gives back its connections");
        require(mac.hid().liveObjects() == 0, "a session's end gives back its objects");
    }

private:
    void putFields(Operation operation, MessageWriter& message, Input& input) {
        switch (operation) {
            case Operation::findService: message.put(std::string_view("AppleSMC")); break;
            case Operation::openService:
                message.put(handle(input));
                message.put(std::uint32_t{0});
                break;
            case Operation::releaseService:
            case Operation::closeService: message.put(handle(input)); break;
            case Operation::call: {
                smc::SMCParamStruct record;
                record.key = static_cast<std::uint32_t>(input.below(UINT32_MAX));
                record.data8 = input.byte();
                message.put(handle(input));
                message.put(std::uint32_t{2});
                message.put(record);
                break;
            }
            case Operation::makeDictionary:
                message.put(std::vector<sensors::HIDObjects::Entry>{
                    {.name = "PrimaryUsagePage", .value = 0xFF00},
                    {.name = "PrimaryUsage", .value = input.byte()}});
                break;
            case Operation::makeText:
                message.put(input.byte() < 128 ? std::string_view("Product") : input.text());
                break;
            case Operation::hidFunctions:
            case Operation::clientCreate: break;
            case Operation::clientSetMatching:
            case Operation::copyProperty:
                message.put(object(input));
                message.put(object(input));
                break;
            case Operation::copyEvent:
                message.put(object(input));
                message.put(std::int64_t{15});
                message.put(std::int32_t{0});
                message.put(std::int64_t{0});
                break;
            case Operation::eventLevel:
                message.put(object(input));
                message.put(std::int32_t{15 << 16});
                break;
            default: message.put(object(input));
        }
    }

    /// What comes back can be asked for again.
    void keep(Operation operation, MessageWriter& answer) {
        if (answer.isEmpty()) return;
        MessageReader reader(contentOf(answer));
        switch (operation) {
            case Operation::findService: handles.push_back(reader.take<std::uint32_t>()); break;
            case Operation::openService:
                handles.push_back(reader.take<remote::OpeningAnswer>().connection);
                break;
            case Operation::call: (void)reader.take<remote::CallAnswer>(); break;
            case Operation::hidFunctions: (void)reader.take<bool>(); break;
            case Operation::text: (void)reader.take<std::optional<std::string>>(); break;
            case Operation::eventLevel: (void)reader.take<double>(); break;
            case Operation::elements:
                std::ranges::copy(reader.take<std::vector<HIDObject>>(),
                                  std::back_inserter(objects));
                break;
            default: objects.push_back(reader.take<HIDObject>());
        }
        require(reader.isComplete(), "an answer is what its operation promises");
    }

    std::uint32_t handle(Input& input) {
        return handles.empty() ? 0 : handles[input.below(handles.size())];
    }
    HIDObject object(Input& input) {
        return objects.empty() ? nullptr : objects[input.below(objects.size())];
    }

    simulation::SimulatedMac mac{*simulation::machinePreset("laptop"),
                                 [] { return concurrency::Duration::zero(); }};
    remote::ServedMachine machine{
        .smc = mac.smc(),
        .hid = mac.hidFunctions(),
        .objects = mac.hid(),
        .takeLatency = [this] { return mac.smc().takeLatency(); },
        .control = [](std::string_view text) { return std::string(text); },
        .mutex = {}};
    std::optional<remote::MachineSession> session{std::in_place, machine};
    std::vector<std::uint32_t> handles;
    std::vector<HIDObject> objects;
};

template <typename Answer>
void readAnswer(std::string_view bytes) {
    MessageReader reader(bytes);
    const auto answer = reader.take<Answer>();
    if (!reader.isComplete()) return;
    MessageWriter writer;
    writer.put(answer);
    require(contentOf(writer) == bytes, "an answer has one form");
}

}  // namespace

void playMachineStream(Input input) {
    Session session;
    for (int requests = 0; requests < 64 && !input.isEmpty(); ++requests) session.ask(input);
    session.end();
}

void readMachineAnswers(std::string_view bytes) {
    readAnswer<std::uint32_t>(bytes);
    readAnswer<remote::OpeningAnswer>(bytes);
    readAnswer<remote::CallAnswer>(bytes);
    readAnswer<HIDObject>(bytes);
    readAnswer<std::vector<HIDObject>>(bytes);
    readAnswer<std::string>(bytes);
    readAnswer<double>(bytes);
    MessageReader reader(bytes);
    (void)reader.take<std::optional<std::string>>();
    (void)MessageReader(bytes).take<std::vector<sensors::HIDObjects::Entry>>();
}

}  // namespace airflow::fuzz
