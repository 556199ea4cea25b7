#include "app/AdmissionGate.h"

#include <deque>
#include <mutex>
#include <utility>

#include "platform/DispatchQueues.h"
#include "platform/Platform.h"

namespace glintmark {

/// Every place holds a reference, so the state can outlive the gate.
struct AdmissionGate::State : std::enable_shared_from_this<AdmissionGate::State> {
    explicit State(std::size_t places) : free(places) {}

    Place makePlace() {
        return {static_cast<void*>(this),
                [self = shared_from_this()](void*) { self->releasePlace(); }};
    }

    /// Gives a place that became free to the run that has waited longest.
    void releasePlace() {
        Run next;
        {
            const std::lock_guard lock(mutex);
            if (waiting.empty()) {
                ++free;
                return;
            }
            next = std::move(waiting.front());
            waiting.pop_front();
        }
        platform::services()
            .dispatchQueues.global(platform::QualityOfService::userInitiated)
            .async([next = std::move(next), place = makePlace()] { next(place); });
    }

    std::mutex mutex;  // guards all below
    std::size_t free;
    std::deque<Run> waiting;
};

AdmissionGate::AdmissionGate(std::size_t places) : state_(std::make_shared<State>(places)) {}

void AdmissionGate::enter(Run run) {
    {
        const std::lock_guard lock(state_->mutex);
        if (state_->free == 0) {
            state_->waiting.push_back(std::move(run));
            return;
        }
        --state_->free;
    }
    run(state_->makePlace());
}

}  // namespace glintmark
