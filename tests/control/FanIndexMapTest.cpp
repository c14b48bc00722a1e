// Objects whose keys are fan indices, the form of every map in a published state.
#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <cstdint>
#include <limits>
#include <map>
#include <string>

#include "json/Decoder.h"
#include "json/Writer.h"

namespace airflow::json {
namespace {

using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

using Map = std::map<std::int64_t, std::int64_t>;

Map decoded(const std::string& text) {
    const auto map = decode<Map>(text);
    EXPECT_TRUE(map) << text << ": " << (map ? "" : map.error().description);
    return map.value_or(Map());
}

std::string refusal(const std::string& text) {
    const auto map = decode<Map>(text);
    EXPECT_FALSE(map) << text;
    return map ? "accepted" : map.error().describe("file");
}

TEST(FanIndexMap, keysAreReadAsNumbers) {
    EXPECT_THAT(decoded("{}"), IsEmpty());
    EXPECT_THAT(decoded(R"({"0":2400,"10":1200,"-1":7})"),
                UnorderedElementsAre(Pair(0, 2400), Pair(10, 1200), Pair(-1, 7)));
}

TEST(FanIndexMap, keysReachToBothEndsOf64Bits) {
    EXPECT_THAT(decoded(R"({"9223372036854775807":1,"-9223372036854775808":2})"),
                UnorderedElementsAre(Pair(std::numeric_limits<std::int64_t>::max(), 1),
                                     Pair(std::numeric_limits<std::int64_t>::min(), 2)));
}

TEST(FanIndexMap, keysBeyond64BitsAreRefused) {
    EXPECT_EQ(refusal(R"({"9223372036854775808":1})"),
              "file: 9223372036854775808: "
              "The key 9223372036854775808 does not fit a signed 64-bit integer.");
    EXPECT_EQ(refusal(R"({"-9223372036854775809":1})"),
              "file: -9223372036854775809: "
              "The key -9223372036854775809 does not fit a signed 64-bit integer.");
}

TEST(FanIndexMap, keysThatAreNoDecimalNumbersAreRefused) {
    EXPECT_EQ(refusal(R"({"left":1})"),
              R"(file: left: Expected a whole number as the key but found "left".)");
    EXPECT_EQ(refusal(R"({"1.0":1})"),
              R"(file: 1.0: Expected a whole number as the key but found "1.0".)");
    EXPECT_EQ(refusal(R"({"1e2":1})"),
              R"(file: 1e2: Expected a whole number as the key but found "1e2".)");
    EXPECT_EQ(refusal(R"({"0x1":1})"),
              R"(file: 0x1: Expected a whole number as the key but found "0x1".)");
    EXPECT_EQ(refusal(R"({"+1":1})"),
              R"(file: +1: Expected a whole number as the key but found "+1".)");
    EXPECT_EQ(refusal(R"({" 1":1})"),
              R"(file:  1: Expected a whole number as the key but found " 1".)");
    EXPECT_EQ(refusal(R"({"1 ":1})"),
              R"(file: 1 : Expected a whole number as the key but found "1 ".)");
    EXPECT_EQ(refusal(R"({"-":1})"),
              R"(file: -: Expected a whole number as the key but found "-".)");
    EXPECT_EQ(refusal(R"({"--1":1})"),
              R"(file: --1: Expected a whole number as the key but found "--1".)");
    EXPECT_EQ(refusal(R"({"1\u0000":1})"),
              std::string("file: 1\0: Expected a whole number as the key but found \"1\0\".", 60));
    EXPECT_EQ(refusal(R"({"99999999999999999999x":1})"),
              "file: 99999999999999999999x: "
              R"(Expected a whole number as the key but found "99999999999999999999x".)");
}

TEST(FanIndexMap, anEmptyKeyIsRefused) {
    EXPECT_EQ(refusal(R"({"":1})"), R"(file: Expected a whole number as the key but found "".)");
}

TEST(FanIndexMap, theFirstWrongKeyIsTheOneNamed) {
    EXPECT_EQ(refusal(R"({"0":1,"a":1,"b":1})"),
              R"(file: a: Expected a whole number as the key but found "a".)");
}

TEST(FanIndexMap, aWrongKeyIsNamedBeforeItsWrongValue) {
    EXPECT_EQ(refusal(R"({"a":"b"})"),
              R"(file: a: Expected a whole number as the key but found "a".)");
}

TEST(FanIndexMap, aWrongValueIsRefusedAtItsKey) {
    EXPECT_EQ(refusal(R"({"0":1,"1":null})"), "file: 1: Expected a whole number but found null.");
}

TEST(FanIndexMap, theLastOfTwoKeysForOneNumberCounts) {
    EXPECT_THAT(decoded(R"({"0":1,"00":2})"), UnorderedElementsAre(Pair(0, 2)));
    EXPECT_THAT(decoded(R"({"00":2,"0":1})"), UnorderedElementsAre(Pair(0, 1)));
    EXPECT_THAT(decoded(R"({"0":1,"-0":3})"), UnorderedElementsAre(Pair(0, 3)));
    EXPECT_THAT(decoded(R"({"7":1,"7":2})"), UnorderedElementsAre(Pair(7, 2)));
}

TEST(FanIndexMap, anythingButAnObjectIsRefused) {
    EXPECT_EQ(refusal("[1]"), "file: Expected an object but found an array.");
    EXPECT_EQ(refusal("null"), "file: Expected an object but found null.");
}

TEST(FanIndexMap, mapsMayHoldMaps) {
    const auto nested = decode<std::map<std::int64_t, Map>>(R"({"1":{"2":3}})");
    ASSERT_TRUE(nested);
    EXPECT_THAT(*nested, UnorderedElementsAre(Pair(1, UnorderedElementsAre(Pair(2, 3)))));
    const auto refused = decode<std::map<std::int64_t, Map>>(R"({"1":{"x":3}})");
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().codingPath, "1.x");
}

TEST(FanIndexMap, keysAreWrittenInDecimalAndAscending) {
    EXPECT_EQ(encode(Map{{10, 1}, {2, 2}, {-1, 3}}), R"({"-1":3,"2":2,"10":1})");
}

RC_GTEST_PROP(FanIndexMap, everyMapIsReadBackAsItWasWritten, (const Map& map)) {
    const auto text = encode(map);
    RC_ASSERT(text.has_value());
    const auto read = decode<Map>(*text);
    RC_ASSERT(read.has_value());
    RC_ASSERT(*read == map);
}

}  // namespace
}  // namespace airflow::json
