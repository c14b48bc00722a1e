// Documents for a foreign validator, one a line: those that our encoders write, and our decoders'
// judgement of any.
#include <rapidcheck.h>

#include <charconv>
#include <cstdint>
#include <expected>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "control/ControlState.h"
#include "json/Decoder.h"
#include "json/Writer.h"
#include "plan/FanControlPlan.h"
#include "simulation/scenario/ScenarioRun.h"
#include "simulation/verification/SwarmScenario.h"
#include "support/PlanGenerators.h"
#include "tool/replay/Trace.h"

namespace airflow::tests {
namespace {

/// Where documents of a kind go, until it has had enough of them.
class Documents {
public:
    explicit Documents(std::uint64_t limit) : left(limit) {}

    [[nodiscard]] bool isEnough() const { return left == 0; }
    template <typename Record>
    void add(const Record& record) {
        if (isEnough()) return;
        const auto text = json::encode(record);
        if (!text) {
            std::cerr << text.error().codingPath << ": " << text.error().description << '\n';
            isWhole = false;
            return;
        }
        std::cout << *text << '\n';
        --left;
    }
    [[nodiscard]] bool areWhole() const { return isWhole; }

private:
    std::uint64_t left;
    bool isWhole = true;
};

/// Half of them from properties' generators, half from clients of random scenarios.
void generatePlans(Documents& documents) {
    const auto anyPlan = rc::gen::arbitrary<plan::FanControlPlan>();
    for (std::uint64_t seed = 1; !documents.isEnough(); ++seed) {
        documents.add(anyPlan(rc::Random(seed), rc::kNominalSize).value());
        const auto scenario = simulation::swarmScenario(seed);
        for (const simulation::Event& event : scenario.events) {
            const auto* call = std::get_if<simulation::Call>(&event);
            if (!call || call->method != simulation::Call::Method::applyConfig || call->document)
                continue;
            documents.add(call->plan);
            break;
        }
    }
}

void generateScenarios(Documents& documents) {
    for (std::uint64_t seed = 1; !documents.isEnough(); ++seed)
        documents.add(simulation::swarmScenario(seed));
}

/// Of every run, the first states and looks: there are thousands in some.
class Run final : public simulation::ScenarioObserver {
public:
    static constexpr int most = 20;

    Run(Documents& states, Documents& looks) : states(states), looks(looks) {}

    void published(concurrency::Duration, const control::ControlState& state) override {
        if (stateCount++ < most) states.add(state);
    }
    void looked(concurrency::Duration time, const sensors::SensorSnapshot& snapshot) override {
        if (lookCount++ < most)
            looks.add(tool::TraceTick{.time = concurrency::inSeconds(time), .snapshot = snapshot});
    }
    void metBug(concurrency::Duration, std::string_view) override {}

private:
    Documents& states;
    Documents& looks;
    int stateCount = 0;
    int lookCount = 0;
};

void generateFromRuns(Documents& wanted, bool areStates) {
    Documents none(0);
    for (std::uint64_t seed = 1; !wanted.isEnough(); ++seed) {
        const auto scenario = simulation::swarmScenario(seed);
        Run run(areStates ? wanted : none, areStates ? none : wanted);
        // The first of what happens is enough.
        simulation::ScenarioRun(scenario, run, seed).play(simulation::troubleEnds);
    }
}

int generate(const std::string& kind, std::uint64_t count) {
    Documents documents(count);
    if (kind == "plan") generatePlans(documents);
    if (kind == "scenario") generateScenarios(documents);
    if (kind == "state") generateFromRuns(documents, true);
    if (kind == "trace-line") generateFromRuns(documents, false);
    return documents.areWhole() ? 0 : 1;
}

template <typename Record>
std::string judgement(const std::string& text) {
    const auto record = json::decode<Record>(text);
    return record ? "valid" : record.error().describe("invalid");
}

/// For each line of standard input, "valid" or what is wrong.
int judge(const std::string& kind) {
    const std::map<std::string, std::function<std::string(const std::string&)>> judges{
        {"plan", judgement<plan::FanControlPlan>},
        {"scenario", judgement<simulation::Scenario>},
        {"state", judgement<control::ControlState>},
        {"trace-line", judgement<tool::TraceTick>}};
    for (std::string line; std::getline(std::cin, line);)
        std::cout << judges.at(kind)(line) << '\n';
    return 0;
}

}  // namespace
}  // namespace airflow::tests

/// `generate KIND COUNT`, or `judge KIND`.
int main(int count, char** arguments) {
    const std::vector<std::string> words(arguments + 1, arguments + count);
    if (words.size() == 3 && words[0] == "generate")
        return airflow::tests::generate(words[1], std::stoull(words[2]));
    if (words.size() == 2 && words[0] == "judge") return airflow::tests::judge(words[1]);
    return 2;
}
