#include <gmock/gmock.h>

#include <string>
#include <unordered_set>

#include "control/ControlMode.h"

namespace airflow::control {
namespace {

using json::DecodingError;

ControlMode decoded(const std::string& text) {
    const auto mode = json::decode<ControlMode>(text);
    EXPECT_TRUE(mode) << text << ": " << (mode ? "" : mode.error().description);
    return mode.value_or(ControlMode());
}

DecodingError decodingErrorOf(const std::string& text) {
    const auto mode = json::decode<ControlMode>(text);
    EXPECT_FALSE(mode) << text;
    return mode ? DecodingError() : mode.error();
}

DecodingError wrong(const std::string& codingPath, const std::string& description) {
    return {.codingPath = codingPath, .description = description, .position = {}};
}

TEST(ControlMode, everyCaseIsWrittenAsAnObjectNamedAfterIt) {
    EXPECT_EQ(json::encode(ControlMode(ControlMode::automatic)), R"({"automatic":{}})");
    EXPECT_EQ(json::encode(ControlMode(ControlMode::fullBlast)), R"({"fullBlast":{}})");
    EXPECT_EQ(json::encode(ControlMode(ControlMode::manual)), R"({"manual":{}})");
    EXPECT_EQ(json::encode(ControlMode(ControlMode::curve)), R"({"curve":{}})");
}

TEST(ControlMode, everyCaseIsReadBack) {
    EXPECT_EQ(decoded(R"({"automatic":{}})"), ControlMode::automatic);
    EXPECT_EQ(decoded(R"({"fullBlast":{}})"), ControlMode::fullBlast);
    EXPECT_EQ(decoded(R"({"manual":{}})"), ControlMode::manual);
    EXPECT_EQ(decoded(R"({"curve":{}})"), ControlMode::curve);
}

TEST(ControlMode, keysThatAreNoCaseAreNotCounted) {
    EXPECT_EQ(decoded(R"({"manual":{},"x":1})"), ControlMode::manual);
    EXPECT_EQ(decoded(R"({"Manual":{},"curve":{}})"), ControlMode::curve);
}

TEST(ControlMode, whatStandsInTheCasesObjectIsIgnored) {
    EXPECT_EQ(decoded(R"({"fullBlast":{"rpm":[1,2]}})"), ControlMode::fullBlast);
}

TEST(ControlMode, anObjectWithoutACaseIsRefused) {
    const auto error = wrong("", "Invalid number of keys found, expected one.");
    EXPECT_EQ(decodingErrorOf("{}"), error);
    EXPECT_EQ(decodingErrorOf(R"({"x":{}})"), error);
    EXPECT_EQ(decodingErrorOf(R"({"Automatic":{}})"), error);
}

TEST(ControlMode, anObjectWithTwoCasesIsRefused) {
    const auto error = wrong("", "Invalid number of keys found, expected one.");
    EXPECT_EQ(decodingErrorOf(R"({"manual":{},"curve":{}})"), error);
    EXPECT_EQ(decodingErrorOf(R"({"automatic":{},"fullBlast":{}})"), error);
}

TEST(ControlMode, aCaseThatIsNoObjectIsRefused) {
    EXPECT_EQ(decodingErrorOf(R"({"manual":1})"),
              wrong("manual", "Expected an object but found a number."));
    EXPECT_EQ(decodingErrorOf(R"({"automatic":null})"),
              wrong("automatic", "Expected an object but found null."));
    EXPECT_EQ(decodingErrorOf(R"({"fullBlast":[]})"),
              wrong("fullBlast", "Expected an object but found an array."));
    EXPECT_EQ(decodingErrorOf(R"({"curve":true})"),
              wrong("curve", "Expected an object but found a boolean."));
}

TEST(ControlMode, aValueThatIsNoObjectIsRefused) {
    EXPECT_EQ(decodingErrorOf(R"("manual")"), wrong("", "Expected an object but found a string."));
    EXPECT_EQ(decodingErrorOf("null"), wrong("", "Expected an object but found null."));
}

TEST(ControlMode, aModeIsAutomaticUnlessSaidOtherwise) {
    EXPECT_EQ(ControlMode(), ControlMode::automatic);
}

TEST(ControlMode, modesAreDistinguished) {
    EXPECT_NE(ControlMode(ControlMode::manual), ControlMode(ControlMode::curve));
    EXPECT_EQ(ControlMode(ControlMode::manual), ControlMode(ControlMode::manual));
}

TEST(ControlMode, modesCanBeHashed) {
    const std::unordered_set<ControlMode> modes{ControlMode::automatic, ControlMode::fullBlast,
                                                ControlMode::manual, ControlMode::curve,
                                                ControlMode::manual};
    EXPECT_EQ(modes.size(), 4u);
}

}  // namespace
}  // namespace airflow::control
