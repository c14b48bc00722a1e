#include <gtest/gtest.h>

#include "sensors/SensorNaming.h"

namespace airflow::sensors {
namespace {

using SensorNaming::friendlyName;

TEST(SensorNaming, theProcessorIsKnownByThreeExactKeys) {
    EXPECT_EQ(friendlyName("TCHP"), (FriendlyName{"CPU", SensorCategory::cpu}));
    EXPECT_EQ(friendlyName("TCMb"), (FriendlyName{"CPU (cluster)", SensorCategory::cpu}));
    EXPECT_EQ(friendlyName("TCMz"), (FriendlyName{"CPU (cluster)", SensorCategory::cpu}));
}

TEST(SensorNaming, aKeyThatOnlyResemblesAnExactOneHasNoName) {
    EXPECT_EQ(friendlyName("TC0P"), std::nullopt);
    EXPECT_EQ(friendlyName("TCH"), std::nullopt);
    EXPECT_EQ(friendlyName("TCHP "), std::nullopt);
    EXPECT_EQ(friendlyName("TCMB"), std::nullopt);
    EXPECT_EQ(friendlyName("TCMZ"), std::nullopt);
    EXPECT_EQ(friendlyName("TChp"), std::nullopt);
}

TEST(SensorNaming, everyKeyOfAPrefixHasThePrefixsName) {
    EXPECT_EQ(friendlyName("TB0T"), (FriendlyName{"Battery", SensorCategory::battery}));
    EXPECT_EQ(friendlyName("TB"), (FriendlyName{"Battery", SensorCategory::battery}));
    EXPECT_EQ(friendlyName("TG0D"), (FriendlyName{"GPU", SensorCategory::gpu}));
    EXPECT_EQ(friendlyName("TGxx"), (FriendlyName{"GPU", SensorCategory::gpu}));
    EXPECT_EQ(friendlyName("TD01"), (FriendlyName{"SSD/Board", SensorCategory::ssd}));
    EXPECT_EQ(friendlyName("TDCR"), (FriendlyName{"SSD/Board", SensorCategory::ssd}));
}

TEST(SensorNaming, aPrefixInLowerCaseOrElsewhereInTheKeyHasNoName) {
    EXPECT_EQ(friendlyName("tb0T"), std::nullopt);
    EXPECT_EQ(friendlyName("Tb0T"), std::nullopt);
    EXPECT_EQ(friendlyName("tG0D"), std::nullopt);
    EXPECT_EQ(friendlyName("Td01"), std::nullopt);
    EXPECT_EQ(friendlyName("0TB0"), std::nullopt);
    EXPECT_EQ(friendlyName("T"), std::nullopt);
    EXPECT_EQ(friendlyName(""), std::nullopt);
}

}  // namespace
}  // namespace airflow::sensors
