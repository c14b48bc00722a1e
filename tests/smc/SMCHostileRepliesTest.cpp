// Replies that no honest SMC gives, byte for byte.
//
// Each is written in the order of its fields: key | version, gap | power limits | size, type and
// attributes of the key, gap, padding | result, status, selector, gap | index | value.
#include <gmock/gmock.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "smc/SMCRequests.h"
#include "smc/ScriptedUserClient.h"

namespace airflow::smc {
namespace {

using test::Answer;
using test::Record;
using test::record;
using test::ScriptedUserClient;
using testing::ElementsAre;
using testing::IsEmpty;

class SMCHostileReplies : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(requests.open()); }
    void TearDown() override {
        EXPECT_THAT(client.misuse, IsEmpty());
        EXPECT_THAT(client.script, IsEmpty());
    }

    void answer(std::string_view hexadecimal) {
        client.script.push_back(Answer{.reply = record(hexadecimal)});
    }
    void answerThatThereAreThreeKeys() {
        answer(R"(
            00000000 000000000000 0000 00000000000000000000000000000000
            04000000 32336975 84 00 0000 00 00 00 00 00000000
            0000000000000000000000000000000000000000000000000000000000000000)");
        answer(R"(
            00000000 000000000000 0000 00000000000000000000000000000000
            00000000 00000000 00 00 0000 00 00 00 00 00000000
            0000000300000000000000000000000000000000000000000000000000000000)");
    }
    /// The selector and the key of each request; for an enumeration its index, below 256.
    std::vector<std::string> asked() const {
        std::vector<std::string> list;
        for (const Record& request : client.requests) {
            std::string key;
            for (std::size_t i = 4; i-- > 0;) key += static_cast<char>(request[i]);
            list.push_back(request[42] == 8 ? "index " + std::to_string(request[44])
                                            : std::to_string(request[42]) + " " + key);
        }
        return list;
    }

    ScriptedUserClient client;
    SMCRequests requests{client};
};

constexpr std::string_view fullValue = R"(
    67543046 000000000000 0000 00000000000000000000000000000000
    00000000 00000000 00 00 0000 00 00 00 00 00000000
    00401C45FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF)";

constexpr std::string_view notFound = R"(
    00000000 000000000000 0000 00000000000000000000000000000000
    00000000 00000000 00 00 0000 84 00 00 00 00000000
    0000000000000000000000000000000000000000000000000000000000000000)";

TEST_F(SMCHostileReplies, aSizeAboveThePayloadIsPassedOnAndTheValueDecodedFromThePayload) {
    answer(R"(
        00000000 000000000000 0000 00000000000000000000000000000000
        21000000 20746C66 D4 00 0000 00 00 00 00 00000000
        0000000000000000000000000000000000000000000000000000000000000000)");
    answer(fullValue);

    EXPECT_EQ(requests.readValue("F0Tg"), SMCValue::floating(2500.0));
    EXPECT_EQ(client.requests.back(), record(R"(
        67543046 000000000000 0000 00000000000000000000000000000000
        21000000 00000000 00 00 0000 00 00 05 00 00000000
        0000000000000000000000000000000000000000000000000000000000000000)"));
}

TEST_F(SMCHostileReplies, theLargestSizeIsNoNegativeOne) {
    answer(R"(
        00000000 000000000000 0000 00000000000000000000000000000000
        FFFFFFFF 20746C66 D4 00 0000 00 00 00 00 00000000
        0000000000000000000000000000000000000000000000000000000000000000)");
    answer(fullValue);

    EXPECT_EQ(requests.readValue("F0Tg"), SMCValue::floating(2500.0));
}

TEST_F(SMCHostileReplies, aWriteOfAKeyLargerThanThePayloadCarriesThePayloadOnly) {
    answer(R"(
        00000000 000000000000 0000 00000000000000000000000000000000
        21000000 20746C66 D4 00 0000 00 00 00 00 00000000
        0000000000000000000000000000000000000000000000000000000000000000)");
    answer(notFound);

    EXPECT_EQ(requests.writeFloat("F0Tg", 2500.0), 0x84);
    EXPECT_EQ(client.requests.back(), record(R"(
        67543046 000000000000 0000 00000000000000000000000000000000
        21000000 20746C66 00 00 0000 00 00 06 00 00000000
        00401C4500000000000000000000000000000000000000000000000000000000)"));
}

TEST_F(SMCHostileReplies, aValueWithoutASizeIsRaw) {
    answer(R"(
        00000000 000000000000 0000 00000000000000000000000000000000
        00000000 20746C66 D4 00 0000 00 00 00 00 00000000
        0000000000000000000000000000000000000000000000000000000000000000)");
    answer(fullValue);

    EXPECT_EQ(requests.readValue("F0Tg"), SMCValue::raw());
    EXPECT_EQ(client.requests.back(), record(R"(
        67543046 000000000000 0000 00000000000000000000000000000000
        00000000 00000000 00 00 0000 00 00 05 00 00000000
        0000000000000000000000000000000000000000000000000000000000000000)"));
}

TEST_F(SMCHostileReplies, aValueOfAnUnknownTypeIsRaw) {
    // "flt" with a zero byte instead of the blank, and four bytes that are no characters.
    for (const std::string_view information : {R"(
            00000000 000000000000 0000 00000000000000000000000000000000
            04000000 00746C66 D4 00 0000 00 00 00 00 00000000
            0000000000000000000000000000000000000000000000000000000000000000)",
                                               R"(
            00000000 000000000000 0000 00000000000000000000000000000000
            20000000 FFFEFDFC D4 00 0000 00 00 00 00 00000000
            0000000000000000000000000000000000000000000000000000000000000000)"}) {
        answer(information);
        answer(fullValue);
        EXPECT_EQ(requests.readValue("F0Tg"), SMCValue::raw());
    }
}

TEST_F(SMCHostileReplies, aNameThatIsNoASCIIIsPassedOverAndOneOfControlCharactersIsAskedFor) {
    answerThatThereAreThreeKeys();
    answer(R"(
        FF800054 000000000000 0000 00000000000000000000000000000000
        00000000 00000000 00 00 0000 00 00 00 00 00000000
        0000000000000000000000000000000000000000000000000000000000000000)");
    answer(R"(
        7F011F54 000000000000 0000 00000000000000000000000000000000
        00000000 00000000 00 00 0000 00 00 00 00 00000000
        0000000000000000000000000000000000000000000000000000000000000000)");
    answer(R"(
        00000000 000000000000 0000 00000000000000000000000000000000
        02000000 38377073 84 00 0000 00 00 00 00 00000000
        0000000000000000000000000000000000000000000000000000000000000000)");
    answer(R"(
        00000000 000000000000 0000 00000000000000000000000000000000
        00000000 00000000 00 00 0000 00 00 00 00 00000000
        2A80000000000000000000000000000000000000000000000000000000000000)");
    answer(R"(
        FFFFFFFF 000000000000 0000 00000000000000000000000000000000
        00000000 00000000 00 00 0000 00 00 00 00 00000000
        0000000000000000000000000000000000000000000000000000000000000000)");

    EXPECT_THAT(requests.discoverTempKeys(), ElementsAre("T\x1F\x01\x7F"));
    EXPECT_THAT(asked(), ElementsAre("9 #KEY", "5 #KEY", "index 0", "index 1", "9 T\x1F\x01\x7F",
                                     "5 T\x1F\x01\x7F", "index 2"));
}

TEST_F(SMCHostileReplies, anIndexPastTheEndIsPassedOver) {
    answerThatThereAreThreeKeys();
    answer(R"(
        50304354 000000000000 0000 00000000000000000000000000000000
        00000000 00000000 00 00 0000 00 00 00 00 00000000
        0000000000000000000000000000000000000000000000000000000000000000)");
    answer(R"(
        00000000 000000000000 0000 00000000000000000000000000000000
        02000000 38377073 84 00 0000 00 00 00 00 00000000
        0000000000000000000000000000000000000000000000000000000000000000)");
    answer(R"(
        00000000 000000000000 0000 00000000000000000000000000000000
        00000000 00000000 00 00 0000 00 00 00 00 00000000
        2A80000000000000000000000000000000000000000000000000000000000000)");
    // The second says 0x84 beside a name, which then counts for nothing.
    answer(notFound);
    answer(R"(
        54304354 000000000000 0000 00000000000000000000000000000000
        00000000 00000000 00 00 0000 84 00 00 00 00000000
        0000000000000000000000000000000000000000000000000000000000000000)");

    EXPECT_THAT(requests.discoverTempKeys(), ElementsAre("TC0P"));
    EXPECT_THAT(asked(), ElementsAre("9 #KEY", "5 #KEY", "index 0", "9 TC0P", "5 TC0P", "index 1",
                                     "index 2"));
}

}  // namespace
}  // namespace airflow::smc
