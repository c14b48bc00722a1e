// Machine and daemon together, as somebody tries them out. Real processes: the point is which of
// them end, in which order, and with which status.
#include <fstream>

#include "ProcessHarness.h"

namespace airflow::process {
namespace {

class ServeTest : public ProcessHarness {
protected:
    Child serve() const {
        return Child(
            {"serve", "--machine-socket", machineSocket(), "--helper-socket", helperSocket()});
    }
    static std::vector<pid_t> childrenOf(pid_t process) {
        const std::string number = std::to_string(process);
        std::ifstream list("/proc/" + number + "/task/" + number + "/children");
        std::vector<pid_t> children;
        for (pid_t child = 0; list >> child;) children.push_back(child);
        return children;
    }
    static bool isGone(pid_t process) { return ::kill(process, 0) != 0; }
};

TEST_F(ServeTest, anInterruptionGivesTheFansBackAndEndsAllOfIt) {
    Child served = serve();
    EXPECT_EQ(served.err.readLine(), listening);
    const auto children = childrenOf(served.id());
    EXPECT_EQ(children.size(), 2U);
    auto client = connect();
    EXPECT_EQ(client.ask(holdBoth), R"({"id":2,"code":0})");
    EXPECT_EQ(modes(), bothForced);
    served.signal(SIGINT);
    EXPECT_EQ(served.wait(), 130);
    // The machine is gone with the rest; what the daemon said before is what is left.
    EXPECT_EQ(served.err.readToEnd(), interrupting);
    EXPECT_THAT(children, testing::Each(testing::Truly(isGone)));
    EXPECT_FALSE(platform::connectTo(helperSocket()));
    EXPECT_FALSE(std::filesystem::exists(machineSocket()));
}

TEST_F(ServeTest, theEndOfTheDaemonEndsTheMachine) {
    Child served = serve();
    EXPECT_EQ(served.err.readLine(), listening);
    const auto children = childrenOf(served.id());
    auto client = connect();
    EXPECT_EQ(client.ask(R"({"id":3,"method":"shutdownForUpgrade"})"), R"({"id":3})");
    EXPECT_EQ(served.wait(), 0);
    EXPECT_EQ(served.err.readToEnd(), exiting);
    EXPECT_THAT(children, testing::Each(testing::Truly(isGone)));
}

TEST_F(ServeTest, bothEndWhenItIsKilled) {
    Child served = serve();
    EXPECT_EQ(served.err.readLine(), listening);
    const auto children = childrenOf(served.id());
    ASSERT_EQ(children.size(), 2U);
    served.signal(SIGKILL);
    EXPECT_EQ(served.wait(), 128 + SIGKILL);
    EXPECT_EQ(served.err.readToEnd(), terminating);
    EXPECT_TRUE(eventually([&] { return !std::filesystem::exists(machineSocket()); }));
    EXPECT_FALSE(platform::connectTo(helperSocket()));
}

}  // namespace
}  // namespace airflow::process
