#pragma once

#include <glib.h>

#include <memory>

#include "base/work/DispatchQueue.h"

namespace glintmark::platform {

/// The queue of a GLib main context. The work runs wherever that context is iterated, also in
/// nested loops. One iteration runs one piece of work, so that other sources get their turn.
class GLibMainQueue : public DispatchQueue {
public:
    /// `context` is null for the default one, the main thread's.
    explicit GLibMainQueue(GMainContext* context = nullptr);

    /// Call it on the thread that iterates the context.
    ~GLibMainQueue() override;

    GLibMainQueue(const GLibMainQueue&) = delete;
    GLibMainQueue& operator=(const GLibMainQueue&) = delete;

    void async(Work work) override;
    void asyncAfter(std::chrono::nanoseconds delay, Work work) override;
    using DispatchQueue::asyncAfter;

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace glintmark::platform
