#include <gmock/gmock.h>

#include <memory>
#include <optional>
#include <vector>

#include "concurrency/Ledger.h"
#include "concurrency/Stream.h"
#include "simulation/runtime/SimulatedRuntime.h"

namespace airflow::concurrency {
namespace {

using namespace std::chrono_literals;
using simulation::SimulatedRuntime;
using testing::ElementsAre;
using testing::IsEmpty;

/// Reads a stream to its end, with a pause after each value.
class Reader : public Actor {
public:
    Reader(Runtime& clock, Stream<int> source)
        : Actor(clock.makeExecutor("reader")), runtime(clock), stream(std::move(source)) {}

    Task<void> read(Duration pause) {
        for (;;) {
            const std::optional<int> value = co_await stream.next();
            EXPECT_TRUE(executor().isCurrent());
            if (!value) break;
            values.push_back(*value);
            if (pause > 0s) co_await runtime.sleepFor(pause);
        }
        isAtTheEnd = true;
    }

    std::vector<int> values;
    bool isAtTheEnd = false;

private:
    Runtime& runtime;
    Stream<int> stream;
};

class StreamTest : public testing::Test {
protected:
    ~StreamTest() override { runtime.abandon(); }

    SimulatedRuntime runtime;
    Stream<int> stream;
    Reader reader{runtime, stream};
};

TEST_F(StreamTest, deliversEachValueToAReaderThatWaits) {
    runtime.detach("read", reader.read(0s));
    runtime.settle();
    stream.send(1);
    EXPECT_THAT(reader.values, IsEmpty());  // the reader is posted, never resumed inside send()
    runtime.settle();
    EXPECT_THAT(reader.values, ElementsAre(1));
    stream.send(2);
    stream.send(3);
    runtime.settle();
    EXPECT_THAT(reader.values, ElementsAre(1, 2, 3));
    EXPECT_FALSE(reader.isAtTheEnd);
}

TEST_F(StreamTest, dropsNothingForASlowReader) {
    runtime.detach("read", reader.read(1s));
    for (int i = 0; i < 5; ++i) {
        stream.send(2 * i);
        stream.send(2 * i + 1);
        runtime.advance(100ms);
    }
    EXPECT_THAT(reader.values, ElementsAre(0));
    runtime.advance(9s);
    EXPECT_THAT(reader.values, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9));
}

TEST_F(StreamTest, keepsEverythingForAReaderThatIsAbsent) {
    for (int i = 0; i < 100'000; ++i) stream.send(i);
    runtime.detach("read", reader.read(0s));
    runtime.settle();
    ASSERT_EQ(reader.values.size(), 100'000u);
    EXPECT_EQ(reader.values.front(), 0);
    EXPECT_EQ(reader.values.back(), 99'999);
}

TEST_F(StreamTest, endsAfterTheLastValueWhenItIsClosed) {
    stream.send(1);
    stream.close();
    stream.send(2);
    runtime.run(reader.read(0s));
    EXPECT_THAT(reader.values, ElementsAre(1));
    EXPECT_TRUE(reader.isAtTheEnd);
}

TEST_F(StreamTest, wakesAReaderThatWaitsWhenItIsClosed) {
    runtime.detach("read", reader.read(0s));
    runtime.settle();
    stream.close();
    runtime.settle();
    EXPECT_TRUE(reader.isAtTheEnd);
}

TEST_F(StreamTest, outlivesItsSenders) {
    auto other = std::make_unique<Stream<int>>();
    Reader late(runtime, *other);
    other->send(7);
    other.reset();
    runtime.detach("read", late.read(0s));
    runtime.settle();
    EXPECT_THAT(late.values, ElementsAre(7));
}

TEST_F(StreamTest, carriesWhatCanOnlyBeMoved) {
    const Stream<std::unique_ptr<int>> boxes;
    boxes.send(std::make_unique<int>(5));
    const auto box = runtime.run(boxes.next());
    ASSERT_TRUE(box.has_value());
    EXPECT_EQ(**box, 5);
}

TEST_F(StreamTest, hasOneReader) {
    Reader second(runtime, stream);
    EXPECT_DEATH(
        {
            runtime.detach("first", reader.read(0s));
            runtime.detach("second", second.read(0s));
            runtime.settle();
        },
        "a stream has one reader");
}

}  // namespace
}  // namespace airflow::concurrency
