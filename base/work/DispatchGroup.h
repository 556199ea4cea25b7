#pragma once

#include <functional>
#include <memory>

namespace glintmark {

class DispatchQueue;

/// Counts work that is still running and notifies when none is left. Any thread; copies share the
/// count.
class DispatchGroup {
public:
    DispatchGroup();

    void enter() const;

    /// Leaving more often than entering is a programming error and ends the process.
    void leave() const;

    /// Submits `work` to `queue` once, when the count returns to zero, or at once if it is zero.
    /// `queue` must outlive the group.
    void notify(DispatchQueue& queue, std::function<void()> work) const;

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace glintmark
