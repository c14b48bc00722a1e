#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <memory>

#include "platform/linux/LocalSocket.h"
#include "platform/linux/Waiting.h"

namespace airflow::platform {
namespace {

using concurrency::Instant;

class WaitForAny : public testing::Test {
protected:
    WaitForAny() {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe(ends.data()), 0);
        readEnd = FileDescriptor(ends[0]);
        writeEnd = FileDescriptor(ends[1]);
    }

    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

TEST_F(WaitForAny, tellsTheFirstThatIsReadable) {
    EXPECT_EQ(write(writeEnd.get(), "!", 1), 1);
    EXPECT_EQ(waitForAny({-1, readEnd.get(), readEnd.get()}, Instant::max()), 1U);
}

TEST_F(WaitForAny, tellsOfAnEnd) {
    writeEnd = {};
    EXPECT_EQ(waitForAny({readEnd.get()}, Instant::max()), 0U);
}

TEST_F(WaitForAny, takesARegularFileForReadable) {
    const std::unique_ptr<FILE, decltype(&fclose)> file(tmpfile(), &fclose);
    EXPECT_EQ(waitForAny({readEnd.get(), fileno(file.get())}, Instant::max()), 1U);
}

TEST_F(WaitForAny, endsWhenTheGivenClockSaysSo) {
    int looks = 0;
    const auto clock = [&looks] { return Instant() + std::chrono::milliseconds(++looks); };
    EXPECT_EQ(waitForAny({readEnd.get()}, Instant() + std::chrono::milliseconds(4), clock),
              std::nullopt);
    EXPECT_GE(looks, 4);
}

}  // namespace
}  // namespace airflow::platform
