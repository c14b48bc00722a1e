#include <gmock/gmock.h>

#include "text/BraillePlot.h"

namespace airflow::text {
namespace {

using testing::ElementsAre;

TEST(BraillePlot, eachDotHasItsPlaceInACharacter) {
    const std::vector<std::string> characters{"⡀", "⠄", "⠂", "⠁", "⢀", "⠠", "⠐", "⠈"};
    for (std::size_t i = 0; i < characters.size(); ++i) {
        BraillePlot plot(1, 1);
        plot.fill(i / 4, i % 4, i % 4);
        EXPECT_THAT(plot.lines(), ElementsAre(characters[i])) << i;
    }
}

TEST(BraillePlot, aColumnIsFilledFromBelowAcrossLines) {
    BraillePlot plot(2, 2);
    plot.fill(3, 2, 5);
    EXPECT_THAT(plot.lines(), ElementsAre(" ⢠", " ⠘"));
}

TEST(BraillePlot, whatLiesOutsideIsLeftOut) {
    BraillePlot plot(1, 1);
    plot.fill(2, 0, 3);
    plot.fill(0, 3, 100);
    plot.fill(0, 4, 100);
    EXPECT_THAT(plot.lines(), ElementsAre("⠁"));
}

}  // namespace
}  // namespace airflow::text
