// What a connection may do to a machine, without the connection.
#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include "MachineHarness.h"
#include "remote/MachineSession.h"
#include "smc/FourCharCode.h"

namespace airflow::remote {
namespace {

using namespace std::chrono_literals;
using sensors::HIDObject;
using Operation = MachineOperation;
using Entries = std::vector<sensors::HIDObjects::Entry>;

constexpr std::uint32_t structureMethod = 2;

template <typename... Fields>
std::string request(Operation operation, const Fields&... fields) {
    MessageWriter writer;
    writer.put(operation);
    (writer.put(fields), ...);
    return std::string(writer.framed().substr(4));
}

smc::SMCParamStruct forceFan0() {
    smc::SMCParamStruct record = recordOf(smc::fourCharCode("F0Md"), 6);  // write
    record.keyInfo.dataSize = 1;
    record.bytes[0] = 1;
    return record;
}

class MachineSessionTest : public testing::Test {
protected:
    /// The answer's first field; nothing when the request was refused.
    template <typename Result>
    static std::optional<Result> answer(MachineSession& session, const std::string& asked) {
        auto answered = session.perform(asked);
        if (!answered) return std::nullopt;
        const std::string body(answered->message.framed().substr(4));
        MessageReader reader(body);
        auto result = reader.take<Result>();
        EXPECT_TRUE(reader.isComplete());
        return result;
    }
    static bool isDone(MachineSession& session, const std::string& asked) {
        const auto answered = session.perform(asked);
        return answered && answered->message.isEmpty();
    }

    static std::uint32_t service(MachineSession& session) {
        return answer<std::uint32_t>(session, request(Operation::findService, "AppleSMC")).value();
    }
    static std::uint32_t connection(MachineSession& session) {
        const auto opened =
            answer<OpeningAnswer>(session, request(Operation::openService, service(session), 0U));
        EXPECT_EQ(opened->code, 0);
        return opened->connection;
    }
    static HIDObject text(MachineSession& session, std::string_view content) {
        return answer<HIDObject>(session, request(Operation::makeText, content)).value();
    }

    MachineHarness harness;
};

TEST_F(MachineSessionTest, aRecordReachesTheDriverAndItsAnswerComesBack) {
    MachineSession session(harness.served);
    const auto handle = connection(session);
    const auto written =
        answer<CallAnswer>(session, request(Operation::call, handle, structureMethod, forceFan0()));
    EXPECT_EQ(written->code, 0);
    EXPECT_EQ(written->record.result, 0);
    EXPECT_EQ(harness.fan(0).mode, simulation::FanMode::forced);
}

TEST_F(MachineSessionTest, theEndGivesBackWhatIsHeld) {
    {
        MachineSession session(harness.served);
        (void)service(session);
        (void)connection(session);
        (void)connection(session);
        const auto held = text(session, "held twice");
        EXPECT_TRUE(isDone(session, request(Operation::retain, held)));
        const auto client = answer<HIDObject>(session, request(Operation::clientCreate));
        const Entries matching{{"PrimaryUsagePage", 0xFF00}, {"PrimaryUsage", 5}};
        const auto dictionary =
            answer<HIDObject>(session, request(Operation::makeDictionary, matching));
        EXPECT_TRUE(isDone(session, request(Operation::clientSetMatching, *client, *dictionary)));
        const auto services =
            answer<HIDObject>(session, request(Operation::clientCopyServices, *client));
        const auto elements =
            answer<std::vector<HIDObject>>(session, request(Operation::elements, *services));
        ASSERT_EQ(elements->size(), 10U);
        EXPECT_TRUE(isDone(session, request(Operation::retain, elements->front())));
        EXPECT_EQ(harness.openServices(), 3);
        EXPECT_EQ(harness.openConnections(), 2);
        EXPECT_EQ(harness.liveObjects(), 14U);  // text, client, dictionary, array, 10 services
    }
    EXPECT_TRUE(harness.holdsNothing());
    EXPECT_EQ(harness.mac.hid().overReleases(), 0);
    EXPECT_EQ(harness.mac.hid().wrongUses(), 0);
}

TEST_F(MachineSessionTest, theEndDoesNotGiveBackWhatWasGivenBack) {
    {
        MachineSession session(harness.served);
        const auto found = service(session);
        EXPECT_TRUE(isDone(session, request(Operation::releaseService, found)));
        const auto opened = connection(session);
        EXPECT_TRUE(isDone(session, request(Operation::closeService, opened)));
        const auto made = text(session, "held twice");
        EXPECT_TRUE(isDone(session, request(Operation::retain, made)));
        EXPECT_TRUE(isDone(session, request(Operation::release, made)));
        EXPECT_EQ(harness.liveObjects(), 1U);
        EXPECT_TRUE(isDone(session, request(Operation::release, made)));
        EXPECT_EQ(harness.liveObjects(), 0U);
    }
    EXPECT_TRUE(harness.holdsNothing());
    EXPECT_EQ(harness.mac.hid().overReleases(), 0);
}

TEST_F(MachineSessionTest, theEndLeavesFansAsTheyAre) {
    {
        MachineSession session(harness.served);
        const auto asked =
            request(Operation::call, connection(session), structureMethod, forceFan0());
        EXPECT_EQ(answer<CallAnswer>(session, asked)->code, 0);
    }
    EXPECT_EQ(harness.fan(0).mode, simulation::FanMode::forced);
}

TEST_F(MachineSessionTest, nobodyGivesBackWhatAnotherHolds) {
    MachineSession owner(harness.served);
    MachineSession other(harness.served);
    const auto found = service(owner);
    const auto opened = connection(owner);
    const auto made = text(owner, "held");
    EXPECT_EQ(other.perform(request(Operation::releaseService, found)), std::nullopt);
    EXPECT_EQ(other.perform(request(Operation::closeService, opened)), std::nullopt);
    EXPECT_EQ(other.perform(request(Operation::release, made)), std::nullopt);
    EXPECT_EQ(harness.openServices(), 2);
    EXPECT_EQ(harness.openConnections(), 1);
    EXPECT_EQ(harness.liveObjects(), 1U);
}

TEST_F(MachineSessionTest, nothingIsGivenBackTwice) {
    MachineSession session(harness.served);
    const auto found = service(session);
    const auto made = text(session, "held");
    EXPECT_TRUE(isDone(session, request(Operation::releaseService, found)));
    EXPECT_FALSE(isDone(session, request(Operation::releaseService, found)));
    EXPECT_TRUE(isDone(session, request(Operation::release, made)));
    EXPECT_FALSE(isDone(session, request(Operation::release, made)));
    EXPECT_EQ(harness.openServices(), 0);
    EXPECT_EQ(harness.mac.hid().overReleases(), 0);
}

TEST_F(MachineSessionTest, theKernelRefusesTheHandlesOfAnother) {
    MachineSession owner(harness.served);
    MachineSession other(harness.served);
    const auto found = service(owner);
    const auto handle = connection(owner);
    const auto opened = answer<OpeningAnswer>(other, request(Operation::openService, found, 0U));
    EXPECT_EQ(opened->code, simulation::SimulatedSMC::badArgument);
    EXPECT_EQ(opened->connection, 0U);
    const auto called =
        answer<CallAnswer>(other, request(Operation::call, handle, structureMethod, forceFan0()));
    EXPECT_EQ(called->code, simulation::SimulatedSMC::badArgument);
    EXPECT_EQ(harness.fan(0).mode, simulation::FanMode::automatic);
}

/// One request of every kind, each of which a session that holds nothing may make.
std::vector<std::string> everyRequest() {
    const HIDObject none = nullptr;
    return {request(Operation::findService, "AppleSMC"),
            request(Operation::openService, 1U, 0U),
            request(Operation::call, 1U, structureMethod, forceFan0()),
            request(Operation::hidFunctions),
            request(Operation::makeDictionary, Entries{{"PrimaryUsage", 5}}),
            request(Operation::makeText, "Product"),
            request(Operation::elements, none),
            request(Operation::text, none),
            request(Operation::retain, none),
            request(Operation::clientCreate),
            request(Operation::clientSetMatching, none, none),
            request(Operation::clientCopyServices, none),
            request(Operation::copyProperty, none, none),
            request(Operation::copyEvent, none, std::int64_t{15}, std::int32_t{0}, std::int64_t{0}),
            request(Operation::eventLevel, none, std::int32_t{0xF0000}),
            request(Operation::control, "{}")};
}

TEST_F(MachineSessionTest, everyRequestIsUnderstoodWhole) {
    for (const std::string& asked : everyRequest()) {
        MachineSession session(harness.served);
        EXPECT_TRUE(session.perform(asked)) << int{asked[0]};
    }
}

TEST_F(MachineSessionTest, aRequestThatLacksOrHasAByteTooManyIsRefusedAndDoesNothing) {
    MachineSession session(harness.served);
    for (const std::string& asked : everyRequest()) {
        for (std::size_t length = 0; length < asked.size(); ++length) {
            EXPECT_EQ(session.perform(asked.substr(0, length)), std::nullopt)
                << int{asked[0]} << " of length " << length;
        }
        EXPECT_EQ(session.perform(asked + '\0'), std::nullopt) << int{asked[0]};
    }
    EXPECT_TRUE(harness.holdsNothing());
    EXPECT_EQ(harness.mac.hid().wrongUses(), 0);
    EXPECT_EQ(harness.served.smcRequests, 0U);
    EXPECT_EQ(harness.served.hidRequests, 0U);
}

TEST_F(MachineSessionTest, anUnknownOperationIsRefused) {
    MachineSession session(harness.served);
    for (const int unknown : {0, 6, 15, 29, 63, 65, 255}) {
        EXPECT_EQ(session.perform(std::string(1, static_cast<char>(unknown))), std::nullopt)
            << unknown;
    }
}

RC_GTEST_FIXTURE_PROP(MachineSessionTest, noiseChangesNothing,
                      (std::vector<std::pair<std::uint8_t, std::string>> noise)) {
    {
        MachineSession session(harness.served);
        for (const auto& [number, fields] : noise) {
            const auto operation = static_cast<char>(number % 32);  // most of them exist
            (void)session.perform(operation + fields);
        }
    }
    RC_ASSERT(harness.holdsNothing());
    RC_ASSERT(harness.fan(0).mode == simulation::FanMode::automatic);
}

TEST_F(MachineSessionTest, aMachineWithoutHIDFunctionsSaysSo) {
    MachineHarness without("no-hid-symbols");
    MachineSession session(without.served);
    EXPECT_EQ(answer<bool>(session, request(Operation::hidFunctions)), false);
    EXPECT_EQ(session.perform(request(Operation::clientCreate)), std::nullopt);
    MachineSession other(harness.served);
    EXPECT_EQ(answer<bool>(other, request(Operation::hidFunctions)), true);
}

TEST_F(MachineSessionTest, aSlowAnswerIsToBeHeldBack) {
    harness.add({.key = "F0Md", .latency = 5s});
    MachineSession session(harness.served);
    const auto handle = connection(session);
    const auto slow =
        session.perform(request(Operation::call, handle, structureMethod, forceFan0()));
    EXPECT_EQ(slow->latency, 5s);
    smc::SMCParamStruct other = forceFan0();
    other.key = smc::fourCharCode("F1Md");
    const auto quick = session.perform(request(Operation::call, handle, structureMethod, other));
    EXPECT_EQ(quick->latency, 0s);
}

TEST_F(MachineSessionTest, requestsAreCountedByKind) {
    MachineSession session(harness.served);
    (void)connection(session);
    (void)text(session, "Product");
    EXPECT_EQ(answer<std::string>(session, request(Operation::control, "me")), "heard me");
    EXPECT_EQ(harness.served.smcRequests, 2U);
    EXPECT_EQ(harness.served.hidRequests, 1U);
}

}  // namespace
}  // namespace airflow::remote
