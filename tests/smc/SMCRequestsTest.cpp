#include <gmock/gmock.h>

#include <string>

#include "smc/ClosedSMC.h"
#include "smc/FourCharCode.h"

namespace airflow::smc {
namespace {

using test::Answer;
using test::failure;
using test::internalError;
using test::notPrivileged;
using test::OpenSMC;
using testing::ElementsAre;

using namespace std::string_literals;

// Single requests.

TEST_F(OpenSMC, anUnprivilegedCallerGetsTheErrorForMissingPrivileges) {
    client.callReturn = notPrivileged;
    const std::string text = "not privileged (root required) for this SMC call";
    EXPECT_EQ(failure(requests.call({})), text);
    EXPECT_EQ(failure(requests.readValue("FNum")), text);
    EXPECT_EQ(failure(requests.writeUInt8("F0Md", 1)), text);
    EXPECT_EQ(failure(requests.writeFloat("F0Tg", 1)), text);
    EXPECT_EQ(requests.tryReadValue("FNum"), std::nullopt);
}

TEST_F(OpenSMC, theNeighboursOfNotPrivilegedAreOrdinaryFailures) {
    client.callReturn = static_cast<KernelReturn>(0xE00002C0);
    EXPECT_EQ(failure(requests.call({})),
              "IOConnectCallStructMethod failed: kern_return_t=0xe00002c0");
    client.callReturn = static_cast<KernelReturn>(0xE00002C2);
    EXPECT_EQ(failure(requests.call({})),
              "IOConnectCallStructMethod failed: kern_return_t=0xe00002c2");
    client.callReturn = 1;
    EXPECT_EQ(failure(requests.call({})), "IOConnectCallStructMethod failed: kern_return_t=0x1");
}

TEST_F(OpenSMC, aCallDoesNotLookAtTheResult) {
    client.key("FNum").infoResult = 0x84;
    SMCParamStruct request;
    request.key = fourCharCode("FNum");
    request.data8 = 9;
    const auto reply = requests.call(request);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->result, 0x84);
}

TEST_F(OpenSMC, aDriverThatLeavesTheReplyAloneAnswersZeros) {
    client.script = {Answer{}, Answer{}};
    EXPECT_EQ(requests.readValue("FNum"), SMCValue::raw());
}

TEST_F(OpenSMC, whatAFailedCallLeftInTheReplyIsNotRead) {
    client.script = {Answer{.code = internalError, .reply = test::Record{}}};
    EXPECT_EQ(failure(requests.readValue("FNum")),
              "IOConnectCallStructMethod failed: kern_return_t=0xe00002bc");
}

TEST_F(OpenSMC, keyInfoIsSizeTypeAndAttributes) {
    const auto info = requests.getKeyInfo(fourCharCode("F0Tg"));
    ASSERT_TRUE(info);
    EXPECT_EQ(info->dataSize, 4u);
    EXPECT_EQ(info->dataType, 0x666C7420u);
    EXPECT_EQ(info->dataAttributes, 0xD4);
}

TEST_F(OpenSMC, keyInfoOfAKeyThatIsNoTextNamesItWithQuestionMarks) {
    EXPECT_EQ(failure(requests.getKeyInfo(0x46806E6D)), "SMC key not found: ????");
}

// Results other than success, at each of the two steps.

TEST_F(OpenSMC, onlyTheResultNotFoundOfKeyInfoMeansNotFound) {
    client.key("FNum").infoResult = 0x83;
    EXPECT_EQ(failure(requests.readValue("FNum")), "SMC error on key FNum: result=0x83");
    client.key("FNum").infoResult = 0x84;
    EXPECT_EQ(failure(requests.readValue("FNum")), "SMC key not found: FNum");
    client.key("FNum").infoResult = 0x85;
    EXPECT_EQ(failure(requests.readValue("FNum")), "SMC error on key FNum: result=0x85");
    client.key("FNum").infoResult = 1;
    EXPECT_EQ(failure(requests.readValue("FNum")), "SMC error on key FNum: result=0x1");
}

TEST_F(OpenSMC, readingAnUnknownKeyFails) {
    EXPECT_EQ(failure(requests.readValue("F9Md")), "SMC key not found: F9Md");
    EXPECT_EQ(requests.tryReadValue("F9Md"), std::nullopt);
}

TEST_F(OpenSMC, aKeyThatVanishesBeforeItsValueIsReadIsAnErrorOfTheSMC) {
    client.key("FNum").readResult = 0x84;
    EXPECT_EQ(failure(requests.readValue("FNum")), "SMC error on key FNum: result=0x84");
    EXPECT_EQ(requests.tryReadValue("FNum"), std::nullopt);
}

TEST_F(OpenSMC, aReadThatTheSMCRefusesFails) {
    client.key("FNum").readResult = 0xBE;
    EXPECT_EQ(failure(requests.readValue("FNum")), "SMC error on key FNum: result=0xbe");
}

TEST_F(OpenSMC, aKeyThatIsNoAsciiIsNamedByWhoeverAskedOnceItIsKnown) {
    EXPECT_EQ(failure(requests.readValue("T\u00B0C")), "SMC key not found: ????");
    client.keys.push_back({.name = "T\u00B0C", .type = "ui8 ", .bytes = {1}, .readResult = 2});
    EXPECT_EQ(failure(requests.readValue("T\u00B0C")), "SMC error on key T\u00B0C: result=0x2");
}

TEST_F(OpenSMC, aDriverThatFailsBetweenKeyInfoAndValueFailsTheRead) {
    client.script = {Answer{.reply = test::Record{}}, Answer{.code = internalError}};
    EXPECT_EQ(failure(requests.readValue("FNum")),
              "IOConnectCallStructMethod failed: kern_return_t=0xe00002bc");
}

TEST_F(OpenSMC, aFailedRequestIsNotRetriedAndLeavesTheConnectionUsable) {
    client.script = {Answer{.code = internalError}};
    EXPECT_FALSE(requests.readValue("FNum"));
    EXPECT_EQ(client.calls, 1u);
    EXPECT_EQ(requests.readValue("FNum"), SMCValue::uint(2));
    EXPECT_EQ(client.closes, 0u);
}

// Values.

TEST_F(OpenSMC, valuesAreDecodedByTheTypeOfTheirKey) {
    EXPECT_EQ(requests.readValue("FNum"), SMCValue::uint(2));
    EXPECT_EQ(requests.readValue("F0Tg"), SMCValue::floating(100.0));
    EXPECT_EQ(requests.tryReadValue("F0Tg"), SMCValue::floating(100.0));
}

TEST_F(OpenSMC, keyInfoIsAskedAnewForEveryRead) {
    EXPECT_EQ(requests.readValue("FNum"), SMCValue::uint(2));
    client.key("FNum").type = "ui16";
    client.key("FNum").bytes = {0x01, 0x02};
    EXPECT_EQ(requests.readValue("FNum"), SMCValue::uint(258));
}

TEST_F(OpenSMC, aClaimedSizeAboveThirtyTwoIsSurvived) {
    client.key("F0Tg").claimedSize = 33;
    EXPECT_EQ(requests.readValue("F0Tg"), SMCValue::floating(100.0));
    client.key("F0Tg").claimedSize = 0x7FFFFFFF;
    EXPECT_EQ(requests.readValue("F0Tg"), SMCValue::floating(100.0));
    client.key("F0Tg").claimedSize = 0xFFFFFFFF;
    EXPECT_EQ(requests.readValue("F0Tg"), SMCValue::floating(100.0));
}

TEST_F(OpenSMC, aClaimedSizeOfZeroMakesTheValueRaw) {
    client.key("FNum").claimedSize = 0;
    EXPECT_EQ(requests.readValue("FNum"), SMCValue::raw());
    EXPECT_EQ(requests.tryReadValue("FNum"), SMCValue::raw());
}

TEST_F(OpenSMC, aValueOfAnUnknownTypeIsRaw) {
    client.key("FNum").type = "{rev";
    EXPECT_EQ(requests.readValue("FNum"), SMCValue::raw());
    client.key("FNum").type = "\xFF\x00\x80\x01"s;
    EXPECT_EQ(requests.readValue("FNum"), SMCValue::raw());
}

TEST_F(OpenSMC, aKeyOfUnprintableBytesIsReadLikeAnyOther) {
    client.keys.push_back({.name = "T\x01\x00\x7F"s, .type = "ui8 ", .bytes = {7}});
    EXPECT_EQ(requests.readValue("T\x01\x00\x7F"s), SMCValue::uint(7));
}

// Writes.

TEST_F(OpenSMC, writtenValuesArrive) {
    EXPECT_EQ(requests.writeUInt8("F0Md", 1), 0);
    EXPECT_EQ(requests.writeFloat("F0Tg", 2500.0), 0);
    EXPECT_THAT(client.key("F0Md").bytes, ElementsAre(1));
    EXPECT_THAT(client.key("F0Tg").bytes, ElementsAre(0x00, 0x40, 0x1C, 0x45));
}

TEST_F(OpenSMC, aRefusedWriteIsNoFailureButItsResult) {
    client.key("F0Md").writeResult = 0x86;
    EXPECT_EQ(requests.writeUInt8("F0Md", 1), 0x86);
    EXPECT_THAT(client.key("F0Md").bytes, ElementsAre(0));
    client.key("F0Tg").writeResult = 0x84;
    EXPECT_EQ(requests.writeFloat("F0Tg", 2500.0), 0x84);
    client.key("F0Tg").writeResult = 0xFF;
    EXPECT_EQ(requests.writeFloat("F0Tg", 2500.0), 0xFF);
}

TEST_F(OpenSMC, writingAnUnknownKeyFailsAndWritesNothing) {
    EXPECT_EQ(failure(requests.writeUInt8("F9Md", 1)), "SMC key not found: F9Md");
    EXPECT_EQ(failure(requests.writeFloat("F9Tg", 1)), "SMC key not found: F9Tg");
    EXPECT_EQ(client.calls, 2u);
}

TEST_F(OpenSMC, aWriteWhoseKeyInfoFailsIsNotSent) {
    client.key("F0Md").infoResult = 0x82;
    EXPECT_EQ(failure(requests.writeUInt8("F0Md", 1)), "SMC error on key F0Md: result=0x82");
    EXPECT_EQ(client.calls, 1u);
}

TEST_F(OpenSMC, aDriverThatFailsBetweenKeyInfoAndWriteFailsTheWrite) {
    client.script = {Answer{.reply = test::Record{}}, Answer{.code = internalError}};
    EXPECT_EQ(failure(requests.writeUInt8("F0Md", 1)),
              "IOConnectCallStructMethod failed: kern_return_t=0xe00002bc");
}

// Keys that are no keys.

using OpenSMCDeathTest = OpenSMC;

TEST_F(OpenSMCDeathTest, aKeyThatIsNotFourBytesStopsTheProcess) {
    EXPECT_DEATH((void)requests.readValue("F10Md"), "must be four bytes long");
    EXPECT_DEATH((void)requests.tryReadValue("F0M"), "must be four bytes long");
    EXPECT_DEATH((void)requests.writeUInt8("", 1), "must be four bytes long");
    EXPECT_DEATH((void)requests.writeFloat("F0Tgt", 1), "must be four bytes long");
}

}  // namespace
}  // namespace airflow::smc
