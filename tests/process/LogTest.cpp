// A log that nobody reads. Real processes: what a write to such a descriptor does is up to the
// kernel.
#include "ProcessHarness.h"

namespace airflow::process {
namespace {

class LogTest : public ProcessHarness, public testing::WithParamInterface<StandardError> {};

TEST_P(LogTest, theDaemonServesAndGivesTheFansBackWhenNobodyTakesItsLines) {
    startMachine();
    spawnHelper({}, GetParam());
    ASSERT_TRUE(eventually([&] { return static_cast<bool>(platform::connectTo(helperSocket())); }));
    if (GetParam() == StandardError::closed) {
        // Else the first thing that is opened has the number, and the lines go into that.
        const auto descriptor = "/proc/" + std::to_string(helper->id()) + "/fd/2";
        EXPECT_EQ(std::filesystem::read_symlink(descriptor), "/dev/null");
    }
    auto client = connect();
    // The socket is there before the daemon serves it; the answer comes when it does.
    EXPECT_EQ(client.ask(R"({"id":4,"method":"helperVersion"})"),
              R"({"id":4,"version":"1.0.3+6"})");
    EXPECT_EQ(client.ask(holdBoth), R"({"id":2,"code":0})");
    EXPECT_EQ(modes(), bothForced);
    EXPECT_EQ(status().openConnections, 1);
    helper->signal(SIGTERM);
    EXPECT_EQ(helper->wait(), 143);
    EXPECT_EQ(modes(), bothAutomatic);
}

INSTANTIATE_TEST_SUITE_P(, LogTest, testing::Values(StandardError::closed, StandardError::full),
                         [](const auto& each) {
                             return each.param == StandardError::closed ? "closed" : "full";
                         });

}  // namespace
}  // namespace airflow::process
