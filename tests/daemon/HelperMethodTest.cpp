#include <gmock/gmock.h>

#include <cstdint>
#include <optional>

#include "daemon/HelperMethod.h"

namespace airflow::daemon {
namespace {

TEST(HelperMethod, hasItsNameAndIsFoundByIt) {
    EXPECT_THAT(helperMethodNames,
                testing::ElementsAre("helperVersion", "shutdownForUpgrade", "setManualRPM",
                                     "setPercent", "fullBlast", "automatic", "applyConfig",
                                     "restoreAuto", "heartbeat", "readState"));
    for (std::uint8_t number = 0; number < 10; ++number) {
        const auto method = static_cast<HelperMethod>(number);
        EXPECT_EQ(nameOf(method), helperMethodNames.at(number));
        EXPECT_EQ(helperMethodNamed(helperMethodNames.at(number)), method);
    }
    EXPECT_EQ(nameOf(HelperMethod::setManualRPM), "setManualRPM");
    EXPECT_EQ(nameOf(HelperMethod::readState), "readState");
}

TEST(HelperMethod, isNotFoundByAnotherSpelling) {
    EXPECT_EQ(helperMethodNamed("setmanualrpm"), std::nullopt);
    EXPECT_EQ(helperMethodNamed("heartbeats"), std::nullopt);
    EXPECT_EQ(helperMethodNamed(""), std::nullopt);
}

}  // namespace
}  // namespace airflow::daemon
