#pragma once

#include <cstddef>
#include <functional>
#include <memory>

namespace glintmark {

/// Limits how many runs are active at once. The others wait in a queue, first in, first out. Any
/// thread.
class AdmissionGate {
public:
    /// A run's place, which is free again when its last copy is destroyed.
    using Place = std::shared_ptr<void>;
    using Run = std::function<void(Place)>;

    explicit AdmissionGate(std::size_t places);

    /// Calls `run` with a place: at once if one is free, else later on the global queue.
    void enter(Run run);

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace glintmark
