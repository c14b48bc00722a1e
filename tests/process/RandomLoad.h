// RandomLoad: processes under commands and pauses that a seed draws. The seed is random unless the
// environment says otherwise, and tests print it.
#pragma once

#include <chrono>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ProcessHarness.h"
#include "support/ApplyConfig.h"

namespace airflow::process {

class RandomLoad : public ProcessHarness {
protected:
    /// A number from the environment, or `otherwise`.
    static unsigned fromEnvironment(const char* name, unsigned otherwise) {
        const char* const text = std::getenv(name);
        return text ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : otherwise;
    }
    unsigned upTo(unsigned most) {
        return std::uniform_int_distribution<unsigned>(0, most)(generator);
    }
    void pause(unsigned mostMilliseconds) {
        std::this_thread::sleep_for(std::chrono::microseconds(upTo(mostMilliseconds * 1000)));
    }
    std::string anyCommand() {
        static const std::vector<std::string> commands{
            holdFirst,
            holdBoth,
            R"({"id":3,"method":"setManualRPM","fan":1,"rpm":3000})",
            tests::applyConfig(4, R"({"fans":[)"
                                  R"({"fanID":0,"mode":{"fixedPercent":{"_0":70}}},)"
                                  R"({"fanID":1,"mode":{"fixedRPM":{"_0":4200}}}],"rules":[],)"
                                  R"("tuning":{"emaAlpha":0.3,"hysteresisCelsius":2,)"
                                  R"("maxDeltaRPMPerTick":400,"minDwellSeconds":3}})"),
            R"({"id":5,"method":"automatic"})",
            R"({"id":6,"method":"readState"})",
            R"({"method":"heartbeat"})",
        };
        return commands.at(upTo(static_cast<unsigned>(commands.size()) - 1));
    }
    [[nodiscard]] bool isAnyForced() const { return modes() != bothAutomatic; }

    const unsigned seed = fromEnvironment("AIRFLOW_LOAD_SEED", std::random_device()());
    std::mt19937 generator{seed};
};

}  // namespace airflow::process
