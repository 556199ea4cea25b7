#include "linux/images/RestartPause.h"

#include <algorithm>

namespace glintmark::platform {

namespace {

constexpr std::chrono::seconds minimumPause{1};
constexpr std::chrono::seconds maximumPause = std::chrono::minutes(5);

}  // namespace

void RestartPause::died(Clock::time_point now) {
    notBefore_ = now + next_;
    next_ = std::clamp(next_ * 2, minimumPause, maximumPause);
}

void RestartPause::worked() {
    next_ = std::chrono::seconds(0);
    notBefore_ = Clock::time_point::min();
}

}  // namespace glintmark::platform
