#include <gmock/gmock.h>

#include "smc/ClosedSMC.h"

namespace airflow::smc {
namespace {

using test::ClosedSMC;
using test::failure;
using test::internalError;
using test::notPrivileged;
using test::OpenSMC;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(ClosedSMC, startsClosedAndTouchesNothing) {
    EXPECT_EQ(requests.connection(), 0u);
    EXPECT_THAT(client.services, IsEmpty());
    EXPECT_THAT(client.connections, IsEmpty());
}

TEST_F(ClosedSMC, openingKeepsTheHandleAndReleasesTheService) {
    EXPECT_TRUE(requests.open());
    EXPECT_THAT(client.connections, ElementsAre(requests.connection()));
    EXPECT_THAT(client.services, IsEmpty());
    EXPECT_EQ(client.releases, 1u);
}

TEST_F(ClosedSMC, openingWithoutADriverFails) {
    client.classes.clear();
    EXPECT_EQ(failure(requests.open()), "AppleSMC IOKit service not found");
    EXPECT_EQ(requests.connection(), 0u);
    EXPECT_EQ(client.releases, 0u);
}

TEST_F(ClosedSMC, theDriverIsFoundByItsClassOnly) {
    client.classes = {"AppleSMCKeysEndpoint", "appleSMC", "IOService"};
    EXPECT_EQ(requests.open().error(), SMCError::driverNotFound());
}

TEST_F(ClosedSMC, aDriverThatDoesNotOpenIsReportedAndItsServiceReleased) {
    client.openReturn = static_cast<KernelReturn>(0xE00002E2);
    EXPECT_EQ(failure(requests.open()), "IOServiceOpen failed: -536870174");
    EXPECT_EQ(requests.connection(), 0u);
    EXPECT_THAT(client.services, IsEmpty());
    EXPECT_EQ(client.releases, 1u);
}

TEST_F(ClosedSMC, missingPrivilegeToOpenIsAnOrdinaryFailureToOpen) {
    client.openReturn = notPrivileged;
    EXPECT_EQ(failure(requests.open()), "IOServiceOpen failed: -536870207");
}

TEST_F(ClosedSMC, aFailedOpeningCanBeTriedAgain) {
    client.openReturn = internalError;
    EXPECT_FALSE(requests.open());
    client.openReturn = 0;
    EXPECT_TRUE(requests.open());
    EXPECT_EQ(requests.readValue("FNum"), SMCValue::uint(2));
}

TEST_F(OpenSMC, closingTwiceIsHarmless) {
    requests.close();
    EXPECT_EQ(requests.connection(), 0u);
    requests.close();
    EXPECT_EQ(requests.connection(), 0u);
    EXPECT_EQ(client.closes, 1u);
    EXPECT_THAT(client.connections, IsEmpty());
}

TEST_F(ClosedSMC, closingWhatWasNeverOpenedIsHarmless) {
    requests.close();
    EXPECT_EQ(client.closes, 0u);
}

TEST_F(OpenSMC, openingAgainLeavesOneConnection) {
    const std::uint32_t first = requests.connection();
    EXPECT_TRUE(requests.open());
    EXPECT_NE(requests.connection(), first);
    EXPECT_THAT(client.connections, ElementsAre(requests.connection()));
}

TEST_F(OpenSMC, openingAgainInVainLeavesTheConnectionAsItWas) {
    client.openReturn = internalError;
    EXPECT_FALSE(requests.open());
    EXPECT_EQ(requests.readValue("FNum"), SMCValue::uint(2));
}

TEST_F(ClosedSMC, destructionDoesNotClose) {
    {
        SMCRequests shortLived(client);
        ASSERT_TRUE(shortLived.open());
    }
    EXPECT_EQ(client.closes, 0u);
    EXPECT_EQ(client.connections.size(), 1u);
}

TEST_F(ClosedSMC, whatIsAskedOfAClosedConnectionFails) {
    EXPECT_EQ(failure(requests.readValue("FNum")),
              "IOConnectCallStructMethod failed: kern_return_t=0x10000003");
    EXPECT_EQ(requests.tryReadValue("FNum"), std::nullopt);
    EXPECT_EQ(failure(requests.writeUInt8("F0Md", 1)),
              "IOConnectCallStructMethod failed: kern_return_t=0x10000003");
    EXPECT_THAT(requests.discoverTempKeys(), IsEmpty());
}

}  // namespace
}  // namespace airflow::smc
