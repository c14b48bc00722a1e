#include "platform/linux/Waiting.h"

#include <poll.h>

#include <algorithm>
#include <limits>
#include <vector>

namespace airflow::platform {

namespace {

using concurrency::Instant;

/// What is left until `until`, for poll(): rounded up, so that it does not wake too early.
int millisecondsUntil(Instant until, Instant now) {
    if (until <= now) return 0;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - now).count();
    constexpr int longest = std::numeric_limits<int>::max();
    return static_cast<int>(std::min<decltype(left)>(left, longest));
}

}  // namespace

std::optional<std::size_t> waitForAny(std::initializer_list<int> descriptors, Instant until,
                                      const std::function<Instant()>& now) {
    std::vector<pollfd> waited;
    for (const int descriptor : descriptors) {
        waited.push_back({.fd = descriptor, .events = POLLIN, .revents = 0});
    }
    for (;;) {
        const int timeout = millisecondsUntil(until, now());
        if (poll(waited.data(), waited.size(), timeout) > 0) {
            const auto ready =
                std::ranges::find_if(waited, [](const pollfd& each) { return each.revents != 0; });
            return static_cast<std::size_t>(ready - waited.begin());
        }
        if (now() >= until) return std::nullopt;
    }
}

void pauseFor(std::chrono::milliseconds duration) {
    (void)waitForAny({}, bootTime() + duration);
}

}  // namespace airflow::platform
