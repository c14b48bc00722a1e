#include <gmock/gmock.h>

#include <string>

#include "daemon/BuildIdentity.h"

namespace airflow::daemon {
namespace {

TEST(BuildIdentity, isTheVersionThatClientsExpect) {
    EXPECT_EQ(BuildIdentity::text, "1.0.3+6");
    EXPECT_EQ(BuildIdentity::version, "1.0.3");
    EXPECT_EQ(BuildIdentity::build, 6);
}

TEST(BuildIdentity, textIsMadeOfVersionAndBuild) {
    EXPECT_EQ(std::string(BuildIdentity::version) + "+" + std::to_string(BuildIdentity::build),
              BuildIdentity::text);
}

}  // namespace
}  // namespace airflow::daemon
