#pragma once

#include <cstddef>
#include <functional>
#include <memory>

namespace glintmark {

/// Lets a bounded number of runs go on at once; the others wait, in the order they came. Any
/// thread.
class AdmissionGate {
public:
    /// A run's place. It is free again with the last copy.
    using Place = std::shared_ptr<void>;
    using Run = std::function<void(Place)>;

    explicit AdmissionGate(std::size_t places);

    /// Calls `run` with its place: at once when one is free, else on the global queue as soon as
    /// one is.
    void enter(Run run);

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace glintmark
