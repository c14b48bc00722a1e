#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <array>
#include <thread>

#include "MachineHarness.h"
#include "remote/MachineProtocol.h"

namespace airflow::remote {
namespace {

using sensors::HIDObject;
using Entries = std::vector<sensors::HIDObjects::Entry>;

/// The message without its length.
std::string bodyOf(MessageWriter& writer) {
    return std::string(writer.framed().substr(4));
}

std::string hexadecimal(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        text += digits[static_cast<unsigned char>(byte) >> 4U];
        text += digits[static_cast<unsigned char>(byte) & 15U];
    }
    return text;
}

HIDObject object(std::uintptr_t number) {
    return reinterpret_cast<HIDObject>(number);
}

TEST(MachineProtocol, aMessageIsItsLengthAndItsFieldsInOrder) {
    MessageWriter writer;
    EXPECT_TRUE(writer.isEmpty());
    writer.put(MachineOperation::copyProperty);
    writer.put(object(0x0102030405060708));
    writer.put("ab");
    EXPECT_FALSE(writer.isEmpty());
    EXPECT_EQ(hexadecimal(writer.framed()), "0f0000001a0807060504030201020000006162");
}

TEST(MachineProtocol, everyKindOfFieldComesOutAsItWentIn) {
    MessageWriter writer;
    writer.put(std::int64_t{-2});
    writer.put(0.1);
    writer.put(true);
    writer.put(std::string("text\0with a zero", 16));
    writer.put(std::optional<std::string>());
    writer.put(std::optional<std::string>("there"));
    writer.put(std::vector<HIDObject>{object(1), nullptr});
    writer.put(Entries{{"PrimaryUsage", 5}});
    writer.put(CallAnswer{.code = -3, .record = recordOf(7)});
    const std::string body = bodyOf(writer);
    MessageReader reader(body);
    EXPECT_EQ(reader.take<std::int64_t>(), -2);
    EXPECT_EQ(reader.take<double>(), 0.1);
    EXPECT_EQ(reader.take<bool>(), true);
    EXPECT_EQ(reader.take<std::string_view>(), std::string_view("text\0with a zero", 16));
    EXPECT_EQ(reader.take<std::optional<std::string>>(), std::nullopt);
    EXPECT_EQ(reader.take<std::optional<std::string>>(), "there");
    EXPECT_THAT(reader.take<std::vector<HIDObject>>(), testing::ElementsAre(object(1), object(0)));
    const auto entries = reader.take<Entries>();
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].name, "PrimaryUsage");
    EXPECT_EQ(entries[0].value, 5);
    const auto answer = reader.take<CallAnswer>();
    EXPECT_EQ(answer.code, -3);
    EXPECT_EQ(answer.record.key, 7U);
    EXPECT_TRUE(reader.isComplete());
}

RC_GTEST_PROP(MachineProtocol, anyTextsComeOutAsTheyWentIn, (std::vector<std::string> texts)) {
    MessageWriter writer;
    writer.put(texts);
    const std::string body = bodyOf(writer);
    MessageReader reader(body);
    RC_ASSERT(reader.take<std::vector<std::string>>() == texts);
    RC_ASSERT(reader.isComplete());
}

TEST(MachineProtocol, aMessageThatEndsTooEarlyIsBrokenAndGivesZeros) {
    MessageWriter writer;
    writer.put(std::uint32_t{0xFFFFFFFF});
    writer.put("abc");
    const std::string body = bodyOf(writer);
    for (std::size_t length = 0; length < body.size(); ++length) {
        MessageReader reader(std::string_view(body).substr(0, length));
        EXPECT_EQ(reader.take<std::uint32_t>(), length < 4 ? 0 : 0xFFFFFFFF) << length;
        EXPECT_EQ(reader.take<std::string>(), "") << length;
        EXPECT_FALSE(reader.isComplete()) << length;
    }
}

TEST(MachineProtocol, whatFollowsSomethingMissingIsMissingToo) {
    MessageReader reader(std::string_view("\x05\x00\x00\x00z", 5));
    EXPECT_EQ(reader.take<std::string>(), "");
    EXPECT_EQ(reader.take<char>(), '\0') << "the text's beginning is no field of its own";
    EXPECT_FALSE(reader.isComplete());
}

TEST(MachineProtocol, aByteTooManyBreaksAMessage) {
    MessageReader reader("ab");
    EXPECT_EQ(reader.take<char>(), 'a');
    EXPECT_FALSE(reader.isComplete());
    EXPECT_EQ(reader.take<char>(), 'b');
    EXPECT_TRUE(reader.isComplete());
}

TEST(MachineProtocol, aBooleanIsZeroOrOne) {
    MessageReader zero(std::string_view("\0", 1));
    EXPECT_FALSE(zero.take<bool>());
    EXPECT_TRUE(zero.isComplete());
    MessageReader one("\1");
    EXPECT_TRUE(one.take<bool>());
    EXPECT_TRUE(one.isComplete());
    MessageReader two("\2");
    EXPECT_FALSE(two.take<bool>());
    EXPECT_FALSE(two.isComplete());
}

TEST(MachineProtocol, aCountThatTheMessageDoesNotHoldCostsNothing) {
    MessageReader reader(std::string_view("\xFF\xFF\xFF\xFF\x01\x00\x00\x00\x00\x00\x00\x00", 12));
    EXPECT_LE(reader.take<std::vector<HIDObject>>().size(), 2U);
    EXPECT_FALSE(reader.isComplete());
}

TEST(MachineProtocol, aMessageThatComesByteByByteIsReadWhole) {
    auto [near, far] = socketPair();
    MessageWriter writer;
    writer.put("slow");
    std::thread sender([&writer, &end = far] {
        for (const char byte : writer.framed()) EXPECT_TRUE(platform::sendAll(end, {&byte, 1}));
    });
    EXPECT_EQ(receiveMessage(near), std::string("\x04\x00\x00\x00slow", 8));
    sender.join();
}

TEST(MachineProtocol, aConnectionThatEndsWithinAMessageGivesNothing) {
    MessageWriter writer;
    writer.put("slow");
    const std::string bytes(writer.framed());
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        auto [near, far] = socketPair();
        EXPECT_TRUE(platform::sendAll(far, std::string_view(bytes).substr(0, length)));
        shutdown(far.get(), SHUT_WR);
        EXPECT_EQ(receiveMessage(near), std::nullopt) << length;
    }
}

TEST(MachineProtocol, anEmptyMessageIsOne) {
    auto [near, far] = socketPair();
    MessageWriter writer;
    EXPECT_TRUE(sendMessage(far, writer));
    EXPECT_EQ(receiveMessage(near), "");
}

TEST(MachineProtocol, aMessageMayBeOneMebibyteLong) {
    auto [near, far] = socketPair();
    const std::string text(longestMessage - 4, 'x');
    std::thread sender([&text, &end = far] {
        MessageWriter writer;
        writer.put(text);
        EXPECT_TRUE(sendMessage(end, writer));
    });
    const auto received = receiveMessage(near);
    sender.join();
    EXPECT_EQ(received ? received->size() : 0, 1'048'576U);
}

TEST(MachineProtocol, aLongerMessageIsNeitherSentNorRead) {
    auto [near, far] = socketPair();
    MessageWriter writer;
    writer.put(std::string(longestMessage - 3, 'x'));
    EXPECT_FALSE(sendMessage(far, writer));
    EXPECT_TRUE(platform::sendAll(far, std::string_view("\x01\x00\x10\x00", 4)));
    EXPECT_EQ(receiveMessage(near), std::nullopt);
}

TEST(MachineProtocol, sendingToAPeerThatIsGoneFails) {
    auto ends = socketPair();
    ends.first = {};
    MessageWriter writer;
    EXPECT_FALSE(sendMessage(ends.second, writer));
}

}  // namespace
}  // namespace airflow::remote
