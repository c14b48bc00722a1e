// A small SMC with three keys, and requests to it.
#pragma once

#include <gmock/gmock.h>

#include <expected>
#include <string>

#include "smc/SMCError.h"
#include "smc/SMCRequests.h"
#include "smc/ScriptedUserClient.h"

namespace airflow::smc::test {

inline constexpr auto internalError = static_cast<KernelReturn>(0xE00002BC);
inline constexpr auto notPrivileged = static_cast<KernelReturn>(0xE00002C1);

template <typename T>
std::string failure(const std::expected<T, SMCError>& outcome) {
    return outcome ? "no failure" : outcome.error().description();
}

class ClosedSMC : public testing::Test {
protected:
    ClosedSMC() {
        client.keys = {
            {.name = "FNum", .type = "ui8 ", .bytes = {2}},
            {.name = "F0Md", .type = "ui8 ", .bytes = {0}},
            {.name = "F0Tg", .type = "flt ", .bytes = {0x00, 0x00, 0xC8, 0x42}},
        };
    }
    void TearDown() override { EXPECT_THAT(client.misuse, testing::IsEmpty()); }

    ScriptedUserClient client;
    SMCRequests requests{client};
};

class OpenSMC : public ClosedSMC {
protected:
    void SetUp() override { ASSERT_TRUE(requests.open()); }
};

}  // namespace airflow::smc::test
