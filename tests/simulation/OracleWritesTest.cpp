// What may be written to the SMC, and what violates onlyAllowedWrites.
#include <limits>

#include "OracleTrace.h"

namespace airflow::simulation {
namespace {

struct WriteCase {
    const char* key;
    double value;
    bool isAllowed;
};

class OracleWriteTest : public OracleTrace, public testing::WithParamInterface<WriteCase> {};

TEST_P(OracleWriteTest, isAllowedOrNot) {
    const auto [key, value, isAllowed] = GetParam();
    serve();
    read(1s, "F0Mn", 1200);
    read(1s, "F0Mx", 6000);
    write(2s, key, value);
    if (isAllowed)
        expectNoViolation();
    else
        expectViolation(Property::onlyAllowedWrites, 2s);
}

constexpr double infinity = std::numeric_limits<double>::infinity();

// The SMC's numbers are short: a target may be off by 1 RPM and a millionth of itself.
INSTANTIATE_TEST_SUITE_P(Keys, OracleWriteTest,
                         testing::Values(WriteCase{"F0Md", 0, true}, WriteCase{"F0Md", 1, true},
                                         WriteCase{"F0Md", 2, false}, WriteCase{"F0Md", 3, false},
                                         WriteCase{"F0Md", -1, false}, WriteCase{"F0md", 0, true},
                                         WriteCase{"F0md", 1, true}, WriteCase{"F0md", 2, false},
                                         WriteCase{"F1Md", 0, false}, WriteCase{"Ftst", 0, true},
                                         WriteCase{"Ftst", 1, true}, WriteCase{"Ftst", 2, false},
                                         WriteCase{"F0Mn", 0, false},
                                         WriteCase{"F0Mx", 6000, false},
                                         WriteCase{"F0Ac", 3000, false},
                                         WriteCase{"FS! ", 1, false}, WriteCase{"TC0P", 1, false}));
INSTANTIATE_TEST_SUITE_P(
    Targets, OracleWriteTest,
    testing::Values(WriteCase{"F0Tg", 0, true}, WriteCase{"F0Tg", 1198.9988, false},
                    WriteCase{"F0Tg", 1198.999, true}, WriteCase{"F0Tg", 1200, true},
                    WriteCase{"F0Tg", 3000, true}, WriteCase{"F0Tg", 6000, true},
                    WriteCase{"F0Tg", 6001.006, true}, WriteCase{"F0Tg", 6001.0061, false},
                    WriteCase{"F0Tg", -1, false}, WriteCase{"F0Tg", infinity, false},
                    WriteCase{"F0Tg", -infinity, false},
                    WriteCase{"F0Tg", std::numeric_limits<double>::quiet_NaN(), false},
                    WriteCase{"F1Tg", 0, false}));

}  // namespace
}  // namespace airflow::simulation
