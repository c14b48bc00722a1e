#include <gtest/gtest.h>

#include <limits>

#include "smc/SMCError.h"

namespace airflow::smc {
namespace {

TEST(SMCError, aDriverThatDoesNotOpenIsDescribedWithItsCodeInSignedDecimal) {
    EXPECT_EQ(SMCError::openFailed(-536870174).description(), "IOServiceOpen failed: -536870174");
    EXPECT_EQ(SMCError::openFailed(5).description(), "IOServiceOpen failed: 5");
    EXPECT_EQ(SMCError::openFailed(std::numeric_limits<std::int32_t>::min()).description(),
              "IOServiceOpen failed: -2147483648");
}

TEST(SMCError, aMissingKeyIsDescribedByName) {
    EXPECT_EQ(SMCError::keyNotFound("F9Md").description(), "SMC key not found: F9Md");
}

TEST(SMCError, aRefusalIsDescribedByKeyAndLowerCaseHexadecimalResult) {
    EXPECT_EQ(SMCError::smcError("F0Md", 0x84).description(), "SMC error on key F0Md: result=0x84");
    EXPECT_EQ(SMCError::smcError("Ftst", 0xBE).description(), "SMC error on key Ftst: result=0xbe");
    EXPECT_EQ(SMCError::smcError("Ftst", 0x05).description(), "SMC error on key Ftst: result=0x5");
}

TEST(SMCError, aFailedCallIsDescribedByOperationAndLowerCaseHexadecimalCode) {
    EXPECT_EQ(SMCError::ioReturn("IOConnectCallStructMethod", 0xE00002BC).description(),
              "IOConnectCallStructMethod failed: kern_return_t=0xe00002bc");
    EXPECT_EQ(SMCError::ioReturn("IOConnectCallStructMethod", 0x0A).description(),
              "IOConnectCallStructMethod failed: kern_return_t=0xa");
}

TEST(SMCError, aMissingDriverIsDescribed) {
    EXPECT_EQ(SMCError::driverNotFound().description(), "AppleSMC IOKit service not found");
}

TEST(SMCError, missingPrivilegeIsDescribed) {
    EXPECT_EQ(SMCError::notPrivileged().description(),
              "not privileged (root required) for this SMC call");
}

TEST(SMCError, errorsAreEqualWhenCaseAndPayloadAre) {
    EXPECT_EQ(SMCError::keyNotFound("F0Md"), SMCError::keyNotFound("F0Md"));
    EXPECT_NE(SMCError::keyNotFound("F0Md"), SMCError::keyNotFound("F1Md"));
    EXPECT_NE(SMCError::smcError("F0Md", 1), SMCError::smcError("F0Md", 2));
    EXPECT_EQ(SMCError::openFailed(-1), SMCError::openFailed(-1));
    EXPECT_NE(SMCError::openFailed(-1), SMCError::openFailed(1));
    EXPECT_EQ(SMCError::ioReturn("call", 1), SMCError::ioReturn("call", 1));
    EXPECT_NE(SMCError::ioReturn("call", 1), SMCError::ioReturn("call", 2));
    EXPECT_NE(SMCError::ioReturn("call", 1), SMCError::ioReturn("open", 1));
    EXPECT_EQ(SMCError::driverNotFound(), SMCError::driverNotFound());
    EXPECT_NE(SMCError::driverNotFound(), SMCError::notPrivileged());
}

}  // namespace
}  // namespace airflow::smc
