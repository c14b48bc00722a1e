#include <gmock/gmock.h>

#include <cstdint>
#include <string>
#include <vector>

#include "smc/SMCRequests.h"
#include "smc/ScriptedUserClient.h"

namespace airflow::smc {
namespace {

using test::Answer;
using test::Key;
using test::ScriptedUserClient;
using testing::ElementsAre;
using testing::IsEmpty;

using namespace std::string_literals;

class DiscoverTempKeys : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(requests.open()); }
    void TearDown() override { EXPECT_THAT(client.misuse, IsEmpty()); }

    // The keys besides "#KEY", which counts itself and stands first.
    void have(const std::vector<Key>& keys) {
        client.keys = {
            {.name = "#KEY", .type = "ui32", .bytes = {0, 0, 0, 1}},
        };
        for (const Key& key : keys) client.keys.push_back(key);
        client.key("#KEY").bytes[3] = static_cast<std::uint8_t>(client.keys.size());
    }
    void claim(const std::string& type, const std::vector<std::uint8_t>& bytes) {
        client.key("#KEY").type = type;
        client.key("#KEY").bytes = bytes;
    }

    // A temperature of 42.5 °C.
    static Key temperature(const std::string& name) {
        return {.name = name, .type = "sp78", .bytes = {0x2A, 0x80}};
    }

    ScriptedUserClient client;
    SMCRequests requests{client};
};

TEST_F(DiscoverTempKeys, areThoseThatBeginWithACapitalTInTheOrderOfTheSMC) {
    have({temperature("Tz9Z"), temperature("FNum"), temperature("TC0P"), temperature("tC1P"),
          temperature("aTbc"), temperature("TA0P")});
    EXPECT_THAT(requests.discoverTempKeys(), ElementsAre("Tz9Z", "TC0P", "TA0P"));
}

TEST_F(DiscoverTempKeys, holdAValueOfAnyTypeButRaw) {
    have({{.name = "Tflt", .type = "flt ", .bytes = {0, 0, 0xC8, 0x42}},
          {.name = "Tui8", .type = "ui8 ", .bytes = {40}},
          {.name = "Tfpe", .type = "fpe2", .bytes = {0, 160}},
          {.name = "Tflg", .type = "flag", .bytes = {1}},
          {.name = "Tsho", .type = "flt ", .bytes = {0, 0}}});
    EXPECT_THAT(requests.discoverTempKeys(), ElementsAre("Tflt", "Tui8", "Tfpe"));
}

TEST_F(DiscoverTempKeys, leaveOutWhatCannotBeRead) {
    Key nameless = temperature("T1ab");
    nameless.infoResult = 0x82;
    Key locked = temperature("T2ab");
    locked.readResult = 0x85;
    have({temperature("T0ab"), nameless, locked, temperature("T3ab")});
    EXPECT_THAT(requests.discoverTempKeys(), ElementsAre("T0ab", "T3ab"));
}

TEST_F(DiscoverTempKeys, goOnAfterAnIndexThatFails) {
    have({temperature("T1ab"), temperature("T2ab"), temperature("T3ab"), temperature("T4ab")});
    test::Record refused{};
    refused[40] = 0xB8;
    client.atIndex[0] = Answer{.code = static_cast<KernelReturn>(0xE00002BC)};
    client.atIndex[1] = Answer{.code = static_cast<KernelReturn>(0xE00002C1)};
    client.atIndex[3] = Answer{.reply = refused};
    EXPECT_THAT(requests.discoverTempKeys(), ElementsAre("T2ab", "T4ab"));
}

TEST_F(DiscoverTempKeys, aNameInARefusedReplyIsNotTaken) {
    have({temperature("T1ab")});
    client.atIndex[0] = Answer{.reply = test::record(R"(
        62613154 000000000000 0000 00000000000000000000000000000000
        00000000 00000000 00 00 0000 84 00 00 00 00000000
        0000000000000000000000000000000000000000000000000000000000000000)")};
    EXPECT_THAT(requests.discoverTempKeys(), ElementsAre("T1ab"));
}

TEST_F(DiscoverTempKeys, takeKeysOfUnprintableBytesButNotUnreadableOnes) {
    have({temperature("T\x01\x7F\0"s), temperature("T\x80zz"), temperature("T\xFFzz")});
    EXPECT_THAT(requests.discoverTempKeys(), ElementsAre("T\x01\x7F\0"s));
}

TEST_F(DiscoverTempKeys, areNoneWhenTheCountCannotBeRead) {
    have({temperature("TC0P")});
    client.keys.erase(client.keys.begin());
    EXPECT_THAT(requests.discoverTempKeys(), IsEmpty());

    have({temperature("TC0P")});
    client.key("#KEY").readResult = 0x85;
    EXPECT_THAT(requests.discoverTempKeys(), IsEmpty());

    client.key("#KEY").readResult = 0;
    client.callReturn = static_cast<KernelReturn>(0xE00002C1);
    EXPECT_THAT(requests.discoverTempKeys(), IsEmpty());
}

TEST_F(DiscoverTempKeys, areNoneWhenTheCountIsRaw) {
    have({temperature("TC0P")});
    claim("flag", {1});
    EXPECT_THAT(requests.discoverTempKeys(), IsEmpty());
}

TEST_F(DiscoverTempKeys, areNoneWhenTheCountIsNotPositive) {
    have({temperature("TC0P")});
    claim("ui32", {0, 0, 0, 0});
    EXPECT_THAT(requests.discoverTempKeys(), IsEmpty());
    claim("sp78", {0xFF, 0x00});  // -1
    EXPECT_THAT(requests.discoverTempKeys(), IsEmpty());
    claim("flt ", {0x00, 0x00, 0x00, 0xDF});  // -2^63
    EXPECT_THAT(requests.discoverTempKeys(), IsEmpty());
}

TEST_F(DiscoverTempKeys, aCountMayHaveAnyTypeAndIsTruncated) {
    have({temperature("T1ab"), temperature("T2ab")});
    claim("flt ", {0x00, 0x00, 0x00, 0x40});  // 2.0
    EXPECT_THAT(requests.discoverTempKeys(), ElementsAre("T1ab"));
    claim("fpe2", {0x00, 0x0B});  // 2.75
    EXPECT_THAT(requests.discoverTempKeys(), ElementsAre("T1ab"));
    claim("flt ", {0xFF, 0xFF, 0x7F, 0x3F});  // just below 1
    EXPECT_THAT(requests.discoverTempKeys(), IsEmpty());
    claim("sp78", {0xFF, 0x80});  // -0.5
    EXPECT_THAT(requests.discoverTempKeys(), IsEmpty());
}

TEST_F(DiscoverTempKeys, aCountBelowTheNumberOfKeysEndsTheSearch) {
    have({temperature("T1ab"), temperature("T2ab"), temperature("T3ab")});
    claim("ui8 ", {3});
    EXPECT_THAT(requests.discoverTempKeys(), ElementsAre("T1ab", "T2ab"));
}

TEST_F(DiscoverTempKeys, aCountAboveTheNumberOfKeysFindsThemAll) {
    have({temperature("T1ab"), temperature("T2ab")});
    claim("ui16", {0x0F, 0xA0});  // 4000
    EXPECT_THAT(requests.discoverTempKeys(), ElementsAre("T1ab", "T2ab"));
}

TEST_F(DiscoverTempKeys, theSameKeyAtTwoIndicesIsListedTwice) {
    have({temperature("T1ab"), temperature("T1ab")});
    EXPECT_THAT(requests.discoverTempKeys(), ElementsAre("T1ab", "T1ab"));
}

TEST_F(DiscoverTempKeys, aCountThatCannotBeTrueEndsSoonAndStillFindsTheKeys) {
    have({temperature("T1ab")});
    claim("ui32", {0xFF, 0xFF, 0xFF, 0xFF});
    EXPECT_THAT(requests.discoverTempKeys(), ElementsAre("T1ab"));
    EXPECT_EQ(client.calls, 2u + 65536u + 2u);  // the count, every index, the one value
}

TEST_F(DiscoverTempKeys, everyIndexUpToTheLimitIsAskedFor) {
    have({temperature("T1ab")});
    claim("ui32", {0x00, 0x00, 0xFF, 0xFF});
    (void)requests.discoverTempKeys();  // only the number of calls matters here
    EXPECT_EQ(client.calls, 2u + 65535u + 2u);

    client.calls = 0;
    claim("ui32", {0x00, 0x01, 0x00, 0x01});
    (void)requests.discoverTempKeys();
    EXPECT_EQ(client.calls, 2u + 65536u + 2u);
}

TEST_F(DiscoverTempKeys, theLargestCountOfSixtyFourBitsEndsSoonToo) {
    have({temperature("T1ab")});
    claim("flt ", {0xFF, 0xFF, 0xFF, 0x5E});  // the float before 2^63
    EXPECT_THAT(requests.discoverTempKeys(), ElementsAre("T1ab"));
}

TEST_F(DiscoverTempKeys, aCountThatFitsNoIntegerEndsSoonAndStillFindsTheKeys) {
    have({temperature("T1ab")});
    const std::vector<std::vector<std::uint8_t>> counts = {
        {0x00, 0x00, 0x00, 0x5F},  // 2^63
        {0x00, 0x00, 0x80, 0x7F},  // infinity
    };
    for (const auto& count : counts) {
        client.calls = 0;
        claim("flt ", count);
        EXPECT_THAT(requests.discoverTempKeys(), ElementsAre("T1ab"));
        EXPECT_EQ(client.calls, 2u + 65536u + 2u);
    }
}

TEST_F(DiscoverTempKeys, areNoneWhenTheCountIsNotANumberOrFarBelowZero) {
    have({temperature("T1ab")});
    const std::vector<std::vector<std::uint8_t>> counts = {
        {0x00, 0x00, 0xC0, 0x7F},  // not a number
        {0x00, 0x00, 0xC0, 0xFF},  // the same with a sign
        {0x01, 0x00, 0x00, 0xDF},  // the float below -2^63
        {0x00, 0x00, 0x80, 0xFF},  // minus infinity
    };
    for (const auto& count : counts) {
        client.calls = 0;
        claim("flt ", count);
        EXPECT_THAT(requests.discoverTempKeys(), IsEmpty());
        EXPECT_EQ(client.calls, 2u);
    }
}

}  // namespace
}  // namespace airflow::smc
