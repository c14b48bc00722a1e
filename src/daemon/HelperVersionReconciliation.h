// HelperVersionReconciliation: what a client does about a daemon of another build. Pure: the client
// itself asks the daemon for its build, swaps it, and counts the swaps.
#pragma once

#include <cstdint>

namespace airflow::daemon {

/// What became of asking the daemon for its build identity.
enum class HelperVersionProbe : std::uint8_t { matched, mismatched, noReply };

enum class HelperVersionDecision : std::uint8_t {
    proceed,             ///< use the daemon as it is
    triggerUpgradeSwap,  ///< replace the installed daemon, then probe again
    stale,               ///< stop trying: out of date, or out of reach
};

/// What is believed of the daemon at the other end of the current connection.
enum class HelperVersionClassification : std::uint8_t {
    unknown,  ///< not probed, or being swapped
    matched,
    stale,
};

namespace HelperVersionReconciliation {

/// Enough for a swap that fails once or twice, few enough not to go on for ever.
inline constexpr std::int64_t defaultMaxUpgradeAttempts = 3;

/// A mismatch is worth a swap while fewer than the allowed number were tried; no reply never is.
[[nodiscard]] HelperVersionDecision decide(HelperVersionProbe probe,
                                           std::int64_t upgradeAttemptsSoFar,
                                           std::int64_t maxUpgradeAttempts);

}  // namespace HelperVersionReconciliation

/// decide() for one client, with a memory of the answer for the current connection.
struct HelperVersionReconciler {
    HelperVersionClassification classification = HelperVersionClassification::unknown;
    /// Swaps allowed in total, across connections; at 0 or less, no first one either.
    std::int64_t maxUpgradeAttempts = HelperVersionReconciliation::defaultMaxUpgradeAttempts;

    bool operator==(const HelperVersionReconciler&) const = default;

    [[nodiscard]] bool needsProbe() const {
        return classification == HelperVersionClassification::unknown;
    }
    /// Another daemon may answer now, so it is probed again.
    void connectionChanged() { classification = HelperVersionClassification::unknown; }
    /// What to do after a probe. A swap leaves the belief as it is: the new daemon is not known
    /// yet.
    [[nodiscard]] HelperVersionDecision next(HelperVersionProbe probe,
                                             std::int64_t totalUpgradeAttemptsSoFar);
};

}  // namespace airflow::daemon
