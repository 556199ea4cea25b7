#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

namespace glintmark {

/// Limits how many runs are active at once. The others wait in a queue, first in, first out. Any
/// thread.
class AdmissionGate {
public:
    struct Limits {
        std::size_t places;

        /// When no run has begun for a while although some wait, the first of them gets one of
        /// these places, too. So runs that take long do not hold up a run that comes after them.
        std::size_t placesToLend = 0;
    };

    /// A run's place, which is free again when its last copy is destroyed.
    using Place = std::shared_ptr<void>;
    using Run = std::function<void(Place)>;

    /// The longest wait of the first run in the queue while there are places to lend.
    static constexpr std::chrono::milliseconds maximumWait{800};

    /// A run may hold its place for this long. After at most twice this time it loses the place.
    static constexpr std::chrono::minutes minimumHold{10};

    explicit AdmissionGate(Limits limits);

    /// Calls `run` with a place: at once if one is free, else later on the global queue. `size`
    /// is the number of places that the run counts for. A run of size 0 begins at once and gets no
    /// place; one of more than there are begins when nothing else runs. If the run holds its place
    /// for too long, the place is free again and `expired`, if any, is called once on the global
    /// queue.
    void enter(Run run, std::size_t size = 1, std::function<void()> expired = {});

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace glintmark
