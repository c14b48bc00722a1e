#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>

#include "ToolRun.h"
#include "platform/linux/LocalSocket.h"
#include "tool/client/HelperSocket.h"
#include "tool/client/SessionInputs.h"

namespace airflow::tool {
namespace {

using client::Received;
using concurrency::Instant;
using Kind = client::Received::Kind;

class HelperSocketTest : public testing::Test {
protected:
    void SetUp() override {
        listening = platform::listenOn(path).value();
        channel = socket.connect().value();
        daemon = platform::acceptFrom(listening);
        std::array<int, 2> ends{};
        ASSERT_EQ(pipe(ends.data()), 0);
        readEnd = platform::FileDescriptor(ends[0]);
        writeEnd = platform::FileDescriptor(ends[1]);
    }
    void type(std::string_view text) {
        ASSERT_EQ(write(writeEnd.get(), text.data(), text.size()),
                  static_cast<ssize_t>(text.size()));
    }
    SessionWaits waits(int interruption = -1) {
        return {
            .input = readEnd.get(), .interruption = interruption, .helper = socket, .time = time};
    }

    const ScratchFolder folder;
    const std::string path = (folder.path / "helper.sock").string();
    SystemTime time;
    HelperSocket socket{path, time};
    platform::FileDescriptor listening;
    platform::FileDescriptor daemon;
    platform::FileDescriptor readEnd;
    platform::FileDescriptor writeEnd;
    std::unique_ptr<client::Channel> channel;
    const Attend idle = [] { return Instant::max(); };
};

TEST_F(HelperSocketTest, carriesBytesBothWays) {
    EXPECT_TRUE(channel->send("{}\n"));
    std::array<char, 3> heard{};
    EXPECT_EQ(recv(daemon.get(), heard.data(), heard.size(), 0), 3);
    EXPECT_EQ(std::string(heard.data(), heard.size()), "{}\n");
    EXPECT_TRUE(platform::sendAll(daemon, "{\"id\":1}\n"));
    const Received received = channel->receive(Instant::max());
    EXPECT_EQ(received.kind, Kind::bytes);
    EXPECT_EQ(received.bytes, "{\"id\":1}\n");
}

TEST_F(HelperSocketTest, doesNotWaitWhenTheTimeIsUp) {
    EXPECT_EQ(channel->receive(time.now()).kind, Kind::nothing);
    EXPECT_EQ(channel->receive(Instant()).kind, Kind::nothing);
}

TEST_F(HelperSocketTest, noticesTheEnd) {
    daemon = platform::FileDescriptor();
    EXPECT_EQ(channel->receive(Instant::max()).kind, Kind::ended);
    EXPECT_FALSE(channel->send("{}\n"));
}

TEST_F(HelperSocketTest, hasADescriptorWhileThereIsAConnection) {
    EXPECT_GE(socket.descriptor(), 0);
    channel.reset();
    EXPECT_EQ(socket.descriptor(), -1);
}

TEST_F(HelperSocketTest, anInterruptionEndsTheWaiting) {
    HelperSocket interruptible(path, time, readEnd.get());
    const auto other = interruptible.connect().value();
    type("!");
    EXPECT_EQ(other->receive(Instant::max()).kind, Kind::ended);
}

TEST_F(HelperSocketTest, nobodyListensAtAnotherPath) {
    HelperSocket nowhere(path + "2", time);
    EXPECT_EQ(nowhere.connect().error(), path + "2: nobody listens there");
}

TEST_F(HelperSocketTest, plainLinesAreGivenOneByOneAndTheLastNeedsNoNewline) {
    PlainLines lines(waits());
    type("one\n\ntwo");
    writeEnd = platform::FileDescriptor();
    EXPECT_EQ(lines.nextLine(idle), "one");
    EXPECT_EQ(lines.nextLine(idle), "");
    EXPECT_EQ(lines.nextLine(idle), "two");
    EXPECT_EQ(lines.nextLine(idle), std::nullopt);
    EXPECT_EQ(lines.nextLine(idle), std::nullopt);
    EXPECT_FALSE(lines.isInterrupted());
}

TEST_F(HelperSocketTest, waitingForALineAttendsWhenItIsDueAndWhenTheDaemonSpeaks) {
    PlainLines lines(waits());
    int attended = 0;
    const Attend attend = [&] {
        ++attended;
        if (attended == 1) return time.now();  // due at once again
        if (attended == 2) EXPECT_TRUE(platform::sendAll(daemon, "x"));
        if (attended == 3) {
            EXPECT_EQ(channel->receive(Instant::max()).bytes, "x");
            type("late\n");
        }
        return Instant::max();
    };
    EXPECT_EQ(lines.nextLine(attend), "late");
    EXPECT_EQ(attended, 3);
}

TEST_F(HelperSocketTest, anInterruptionEndsTheInput) {
    type("!");
    PlainLines lines({.input = -1, .interruption = readEnd.get(), .helper = socket, .time = time});
    EXPECT_EQ(lines.nextLine(idle), std::nullopt);
    EXPECT_TRUE(lines.isInterrupted());
    lines.pause(Instant::max(), idle);
    EXPECT_TRUE(lines.isInterrupted());
}

TEST_F(HelperSocketTest, pausingLeavesTheInputAlone) {
    PlainLines lines(waits());
    type("next\n");
    lines.pause(time.now(), idle);
    EXPECT_EQ(lines.nextLine(idle), "next");
}

}  // namespace
}  // namespace airflow::tool
