#include "linux/images/RestartPause.h"

#include <algorithm>

namespace glintmark::platform {

namespace {

constexpr std::chrono::seconds minimumPause{1};
constexpr std::chrono::seconds maximumPause = std::chrono::minutes(5);
constexpr std::chrono::seconds forgottenAfter = std::chrono::minutes(10);

}  // namespace

void RestartPause::died(Clock::time_point now) {
    if (lastDeath_ != Clock::time_point::min() && now - lastDeath_ >= forgottenAfter) {
        next_ = std::chrono::seconds(0);
    }
    lastDeath_ = now;
    notBefore_ = now + next_;
    next_ = std::clamp(next_ * 2, minimumPause, maximumPause);
}

}  // namespace glintmark::platform
