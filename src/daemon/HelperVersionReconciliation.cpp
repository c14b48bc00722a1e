#include "daemon/HelperVersionReconciliation.h"

namespace airflow::daemon {

HelperVersionDecision HelperVersionReconciliation::decide(HelperVersionProbe probe,
                                                          std::int64_t upgradeAttemptsSoFar,
                                                          std::int64_t maxUpgradeAttempts) {
    switch (probe) {
        case HelperVersionProbe::matched: return HelperVersionDecision::proceed;
        case HelperVersionProbe::mismatched:
            return upgradeAttemptsSoFar < maxUpgradeAttempts
                       ? HelperVersionDecision::triggerUpgradeSwap
                       : HelperVersionDecision::stale;
        case HelperVersionProbe::noReply: break;
    }
    return HelperVersionDecision::stale;
}

HelperVersionDecision HelperVersionReconciler::next(HelperVersionProbe probe,
                                                    std::int64_t totalUpgradeAttemptsSoFar) {
    const auto decision =
        HelperVersionReconciliation::decide(probe, totalUpgradeAttemptsSoFar, maxUpgradeAttempts);
    switch (decision) {
        case HelperVersionDecision::proceed:
            classification = HelperVersionClassification::matched;
            break;
        case HelperVersionDecision::triggerUpgradeSwap: break;
        case HelperVersionDecision::stale:
            classification = HelperVersionClassification::stale;
            break;
    }
    return decision;
}

}  // namespace airflow::daemon
