// Simple models of the zero-speed policy and of a rule, each run beside the evaluator.
#include <limits>

#include "evaluation/Ticks.h"

namespace airflow::evaluation {
namespace {

/// What is asked of the fan in one step.
enum class Ask { percentage, curve, rule, automatic, fixedSpeed, missingSensor, fanAbsent };

struct FanStep {
    double elapsed = 1;
    Ask ask = Ask::percentage;
    double percent = 0;
};

std::ostream& operator<<(std::ostream& out, const FanStep& step) {
    static constexpr std::array names{"percentage", "curve",         "rule",     "automatic",
                                      "fixedSpeed", "missingSensor", "fanAbsent"};
    return out << "\n  after " << step.elapsed
               << " s: " << names.at(static_cast<std::size_t>(step.ask)) << ' ' << step.percent;
}

/// A fan that runs, waits to stop, is stopped, or waits to resume; written as the states are told,
/// where the evaluator keeps three containers.
struct FanModel {
    enum class State { running, zeroPending, stopped, resumePending };

    State state = State::running;
    double since = 0;

    void request(double percent, double now) {
        switch (state) {
            case State::running:
                if (percent <= 0) become(State::zeroPending, now);
                break;
            case State::zeroPending:
                if (percent > 0)
                    state = State::running;
                else if (now - since >= 10)
                    state = State::stopped;
                break;
            case State::stopped:
                if (percent >= 3) become(State::resumePending, now);
                break;
            case State::resumePending:
                if (percent < 3)
                    state = State::stopped;
                else if (now - since >= 3)
                    state = State::running;
                break;
        }
    }
    void force(double percent, double now) {
        if (percent > 0)
            state = State::running;
        else
            request(percent, now);
    }
    [[nodiscard]] bool isStopped() const {
        return state == State::stopped || state == State::resumePending;
    }
    void become(State next, double now) {
        state = next;
        since = now;
    }
};

/// The evaluator's side of it: fan 0, of 1000 to 5000 RPM, is asked through a plan.
struct FanUnderTest {
    PlanEvaluator evaluator;

    std::optional<FanDecision> decide(const FanStep& step, double now) {
        plan::FanControlPlan plan{.fans = {{.fanID = 0, .mode = modeFor(step)}},
                                  .rules = {},
                                  .tuning = {.emaAlpha = 1, .maxDeltaRPMPerTick = 1e9}};
        sensors::SensorSnapshot snapshot{.fans = {fan(0)}, .temps = {sensor("A", step.percent)}};
        if (step.ask == Ask::rule) plan.rules = {rule({.above = -1000, .percent = step.percent})};
        if (step.ask == Ask::fanAbsent) snapshot.fans = {};
        const Decisions decisions = evaluator.evaluate(plan, snapshot, at(now));
        if (decisions.empty()) return std::nullopt;
        return decisions.at(0);
    }

    static Mode modeFor(const FanStep& step) {
        switch (step.ask) {
            case Ask::curve: return degreesAsPercent();
            case Ask::automatic: return Mode::automatic();
            case Ask::fixedSpeed: return Mode::fixedRPM(2000);
            case Ask::missingSensor: return degreesAsPercent("SMC-X");
            default: return Mode::fixedPercent(step.percent);
        }
    }
};

/// What the model makes of a step.
std::optional<FanDecision> decide(FanModel& model, const FanStep& step, double now) {
    switch (step.ask) {
        case Ask::fanAbsent: return std::nullopt;
        case Ask::automatic:
        case Ask::missingSensor: model.state = FanModel::State::running; return released;
        case Ask::fixedSpeed: model.state = FanModel::State::running; return rpm(2000);
        case Ask::rule: model.force(step.percent, now); break;
        default: model.request(step.percent, now); break;
    }
    if (model.isStopped()) return stopped;
    return rpm(1000 + 40 * std::clamp(step.percent, 0.0, 100.0));
}

rc::Gen<FanStep> fanStep() {
    const auto ask = rc::gen::weightedElement<Ask>({{20, Ask::percentage},
                                                    {6, Ask::curve},
                                                    {2, Ask::rule},
                                                    {1, Ask::automatic},
                                                    {1, Ask::fixedSpeed},
                                                    {1, Ask::missingSensor},
                                                    {1, Ask::fanAbsent}});
    return rc::gen::build<FanStep>(rc::gen::set(&FanStep::elapsed, generators::elapsed()),
                                   rc::gen::set(&FanStep::ask, ask),
                                   rc::gen::set(&FanStep::percent, generators::percent()));
}

TEST(PlanEvaluatorModel, theZeroSpeedPolicyIsAMachineOfFourStates) {
    using State = FanModel::State;
    std::map<std::pair<State, State>, int> transitions;
    EXPECT_TRUE(rc::check([&] {
        FanUnderTest fan;
        FanModel model;
        double now = 0;
        for (const FanStep& step : *rc::gen::container<std::vector<FanStep>>(fanStep())) {
            now += step.elapsed;
            const State before = model.state;
            const auto expected = decide(model, step, now);
            RC_ASSERT(fan.decide(step, now) == expected);
            ++transitions[{before, model.state}];
        }
    }));
    const std::vector<std::pair<State, State>> ways = {
        {State::running, State::zeroPending},   {State::zeroPending, State::running},
        {State::zeroPending, State::stopped},   {State::stopped, State::stopped},
        {State::stopped, State::resumePending}, {State::stopped, State::running},
        {State::resumePending, State::running}, {State::resumePending, State::stopped}};
    for (const auto& way : ways) EXPECT_GT(transitions[way], 50);
}

/// A rule that is idle, fires or is latched.
struct RuleModel {
    enum class State { idle, firing, latched };

    State state = State::idle;
    double since = 0;

    void watch(const plan::FanRule& rule, std::optional<double> celsius, double now) {
        const double release = rule.releaseBelowCelsius < rule.thresholdCelsius - 0.5
                                   ? rule.releaseBelowCelsius
                                   : rule.thresholdCelsius - 0.5;
        if (state == State::latched) {
            if (celsius && *celsius < release) state = State::idle;
            return;
        }
        if (!celsius || *celsius <= rule.thresholdCelsius) {
            state = State::idle;
            return;
        }
        if (state == State::idle) since = now;
        state = now - since >= rule.dwellSeconds ? State::latched : State::firing;
    }
};

struct RuleStep {
    double elapsed = 1;
    std::optional<double> celsius;
    bool enabled = true;
};

std::ostream& operator<<(std::ostream& out, const RuleStep& step) {
    out << "\n  after " << step.elapsed << " s: ";
    if (step.celsius)
        out << *step.celsius << " °C";
    else
        out << "no reading";
    return out << (step.enabled ? "" : ", disabled");
}

/// Temperatures around the thresholds and release levels of the rules.
rc::Gen<RuleStep> ruleStep() {
    return rc::gen::build<RuleStep>(
        rc::gen::set(&RuleStep::elapsed, generators::elapsed()),
        rc::gen::set(&RuleStep::celsius,
                     rc::gen::weightedOneOf<std::optional<double>>(
                         {{9, rc::gen::map(generators::halves(76, 84),
                                           [](double value) { return std::optional(value); })},
                          {1, rc::gen::just(std::optional<double>())}})),
        rc::gen::set(&RuleStep::enabled, rc::gen::weightedElement<bool>({{9, true}, {1, false}})));
}

TEST(PlanEvaluatorModel, aRuleIsAMachineOfThreeStates) {
    using State = RuleModel::State;
    std::map<std::pair<State, State>, int> transitions;
    EXPECT_TRUE(rc::check([&] {
        PlanEvaluator evaluator;
        RuleModel model;
        double now = 0;
        plan::FanRule theRule = rule({.above = *generators::halves(78, 82),
                                      .releaseBelow = *generators::halves(77, 83),
                                      .percent = 50,
                                      .dwell = *generators::halves(0, 6)});
        for (RuleStep& step : *rc::gen::container<std::vector<RuleStep>>(ruleStep())) {
            now += step.elapsed;
            theRule.enabled = step.enabled;
            const State before = model.state;
            if (step.enabled) model.watch(theRule, step.celsius, now);
            sensors::SensorSnapshot snapshot{.fans = {fan(0)}, .temps = {}};
            if (step.celsius) snapshot.temps = {sensor("A", *step.celsius)};
            const Decisions decisions = evaluator.evaluate(
                {.fans = {{0, Mode::automatic()}}, .rules = {theRule}, .tuning = {.emaAlpha = 1}},
                snapshot, at(now));
            const bool overrides = step.enabled && model.state == State::latched;
            RC_ASSERT(decisions.at(0) == (overrides ? rpm(3000) : released));
            RC_ASSERT(evaluator.ruleLatched.contains(ruleID(1)) == (model.state == State::latched));
            RC_ASSERT(evaluator.ruleFiringSince.contains(ruleID(1)) ==
                      (model.state != State::idle));
            ++transitions[{before, model.state}];
        }
    }));
    const std::vector<std::pair<State, State>> ways = {
        {State::idle, State::firing},     {State::idle, State::latched},
        {State::firing, State::latched},  {State::firing, State::idle},
        {State::latched, State::latched}, {State::latched, State::idle}};
    for (const auto& way : ways) EXPECT_GT(transitions[way], 50);
}

}  // namespace
}  // namespace airflow::evaluation
