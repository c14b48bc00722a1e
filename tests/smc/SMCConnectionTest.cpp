#include <gmock/gmock.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "simulation/runtime/SimulatedRuntime.h"
#include "smc/SMCConnection.h"
#include "smc/ScriptedUserClient.h"

namespace airflow::smc {
namespace {

using concurrency::Executor;
using concurrency::Task;
using test::ScriptedUserClient;
using testing::ElementsAre;
using testing::IsEmpty;

/// Notes every driver call that is made elsewhere than on the connection's executor.
class WatchedUserClient final : public SMCUserClient {
public:
    ScriptedUserClient inner;
    const Executor* expected = nullptr;
    std::uint32_t strayCalls = 0;

    std::uint32_t findService(const std::string& className) override {
        return inner.findService(watched(className));
    }
    KernelReturn open(std::uint32_t service, std::uint32_t type,
                      std::uint32_t& connection) override {
        return inner.open(watched(service), type, connection);
    }
    void release(std::uint32_t service) override { inner.release(watched(service)); }
    KernelReturn call(std::uint32_t connection, std::uint32_t method, const SMCParamStruct& request,
                      SMCParamStruct& reply) override {
        return inner.call(watched(connection), method, request, reply);
    }
    void close(std::uint32_t connection) override { inner.close(watched(connection)); }

private:
    template <typename T>
    T watched(T argument) {
        if (!expected->isCurrent()) ++strayCalls;
        return argument;
    }
};

class SMCConnectionTest : public testing::TestWithParam<std::uint64_t> {
protected:
    SMCConnectionTest() {
        client.expected = &connection.executor();
        client.inner.keys = {
            {.name = "#KEY", .type = "ui32", .bytes = {0, 0, 0, 4}},
            {.name = "F0Md", .type = "ui8 ", .bytes = {0}},
            {.name = "F0Tg", .type = "flt ", .bytes = {0, 0, 0, 0}},
            {.name = "TC0P", .type = "sp78", .bytes = {0x2A, 0x80}},
        };
    }
    void TearDown() override {
        EXPECT_EQ(client.strayCalls, 0u);
        EXPECT_THAT(client.inner.misuse, IsEmpty());
    }
    void open() { ASSERT_TRUE(runtime.run(connection.open())); }

    simulation::SimulatedRuntime runtime{GetParam()};
    WatchedUserClient client;
    SMCConnection connection{runtime, client};
};

INSTANTIATE_TEST_SUITE_P(Seeds, SMCConnectionTest, testing::Range<std::uint64_t>(0, 20));

TEST_P(SMCConnectionTest, creationDoesNothing) {
    EXPECT_EQ(client.inner.calls, 0u);
    EXPECT_THAT(client.inner.services, IsEmpty());
    EXPECT_THAT(client.inner.connections, IsEmpty());
}

TEST_P(SMCConnectionTest, nothingStartsBeforeItIsAwaited) {
    (void)connection.open();  // dropped unawaited
    runtime.settle();
    EXPECT_THAT(client.inner.connections, IsEmpty());
}

TEST_P(SMCConnectionTest, opensAndCloses) {
    open();
    EXPECT_EQ(client.inner.connections.size(), 1u);
    runtime.run(connection.close());
    EXPECT_THAT(client.inner.connections, IsEmpty());
    runtime.run(connection.close());
    EXPECT_EQ(client.inner.closes, 1u);
}

TEST_P(SMCConnectionTest, failuresToOpenArrive) {
    client.inner.classes.clear();
    EXPECT_EQ(runtime.run(connection.open()).error(), SMCError::driverNotFound());
}

TEST_P(SMCConnectionTest, readsAndWritesArrive) {
    open();
    EXPECT_EQ(runtime.run(connection.writeUInt8("F0Md", 1)), 0);
    EXPECT_EQ(runtime.run(connection.readValue("F0Md")), SMCValue::uint(1));
    EXPECT_EQ(runtime.run(connection.writeFloat("F0Tg", 2500.0)), 0);
    EXPECT_EQ(runtime.run(connection.tryReadValue("F0Tg")), SMCValue::floating(2500.0));
    EXPECT_THAT(runtime.run(connection.discoverTempKeys()), ElementsAre("TC0P"));
}

TEST_P(SMCConnectionTest, servesAsSMCWriting) {
    open();
    client.inner.key("F0Tg").writeResult = 0x86;
    SMCWriting& writing = connection;
    EXPECT_EQ(runtime.run(writing.writeUInt8("F0Md", 3)), 0);
    EXPECT_EQ(runtime.run(writing.writeFloat("F0Tg", 2500.0)), 0x86);
    EXPECT_EQ(runtime.run(writing.tryReadValue("F0Md")), SMCValue::uint(3));
}

TEST_P(SMCConnectionTest, failuresArriveWithTheirReason) {
    open();
    EXPECT_EQ(runtime.run(connection.readValue("F9Md")).error(), SMCError::keyNotFound("F9Md"));
    EXPECT_EQ(runtime.run(connection.tryReadValue("F9Md")), std::nullopt);
    client.inner.callReturn = static_cast<KernelReturn>(0xE00002C1);
    EXPECT_EQ(runtime.run(connection.writeUInt8("F0Md", 1)).error(), SMCError::notPrivileged());
    EXPECT_EQ(runtime.run(connection.writeFloat("F0Tg", 1)).error(), SMCError::notPrivileged());
    client.inner.callReturn = 0;
    EXPECT_EQ(runtime.run(connection.writeUInt8("F0Md", 1)), 0);
}

// The connection is not their first parameter: that would make them operations of its own.
Task<void> readOften(std::string key, SMCConnection& connection) {
    for (int round = 0; round < 10; ++round) (void)co_await connection.tryReadValue(key);
}

Task<void> writeOften(std::string key, SMCConnection& connection) {
    for (int round = 0; round < 10; ++round) (void)co_await connection.writeUInt8(key, 1);
}

Task<void> discoverOften(int rounds, SMCConnection& connection) {
    for (int round = 0; round < rounds; ++round) (void)co_await connection.discoverTempKeys();
}

/// What a request asks for, and of which key or index (below 256).
std::string described(const test::Record& request) {
    if (request[42] == 8) return "index " + std::to_string(request[44]);
    const std::map<std::uint8_t, std::string> names{
        {std::uint8_t{5}, "read "}, {std::uint8_t{6}, "write "}, {std::uint8_t{9}, "information "}};
    const auto name = names.find(request[42]);
    if (name == names.end()) return "unknown";
    return name->second + std::string(request.rend() - 4, request.rend());
}

TEST_P(SMCConnectionTest, theCallsOfOneOperationAreNeverSeparated) {
    open();
    runtime.detach("reading", readOften("F0Tg", connection));
    runtime.detach("writing", writeOften("F0Md", connection));
    runtime.detach("discovering", discoverOften(3, connection));
    runtime.settle();

    // Two calls for each read and write, and for each enumeration the count, four indices and one
    // temperature.
    const auto& requests = client.inner.requests;
    ASSERT_EQ(requests.size(), 10u * 2 + 10u * 2 + 3u * (2 + 4 + 2));
    for (std::size_t call = 0; call < requests.size(); ++call) {
        if (requests[call][42] != 9) continue;  // key information comes first, then the value
        ASSERT_LT(call + 1, requests.size());
        EXPECT_TRUE(std::equal(requests[call].begin(), requests[call].begin() + 4,
                               requests[call + 1].begin()));
        EXPECT_THAT(requests[call + 1][42], testing::AnyOf(5, 6));
    }

    int enumerations = 0;
    for (std::size_t call = 0; call < requests.size(); ++call) {
        if (described(requests[call]) != "information #KEY") continue;
        ++enumerations;
        ASSERT_LE(call + 8, requests.size());
        std::vector<std::string> own;
        for (std::size_t i = 1; i < 8; ++i) own.push_back(described(requests[call + i]));
        EXPECT_THAT(own, ElementsAre("read #KEY", "index 0", "index 1", "index 2", "index 3",
                                     "information TC0P", "read TC0P"));
    }
    EXPECT_EQ(enumerations, 3);
}

}  // namespace
}  // namespace airflow::smc
