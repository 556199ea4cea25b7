#pragma once

#include <pthread.h>

#include <chrono>
#include <memory>

namespace glintmark::platform {

class ThreadPool;

/// Marks calls that may take long or never return, such as those of a network file system that does
/// not answer. If the thread runs the work of a `ThreadPoolQueue`, the thread counts as lost once
/// the section lasts longer than the queue's patience while other work waits. Another thread then
/// takes its place, in a serial queue too. The end of the section waits for a place. So work sees
/// other work of its serial queue only at its sections, and never at the same time.
///
/// Keep inside the section only what belongs to the calls. Sections do not nest. On any other
/// thread a section does nothing.
class BlockingSection {
public:
    using Clock = std::chrono::steady_clock;

    BlockingSection();
    ~BlockingSection();

    BlockingSection(const BlockingSection&) = delete;
    BlockingSection& operator=(const BlockingSection&) = delete;

private:
    friend class ThreadPool;

    const std::shared_ptr<ThreadPool> pool_;  // null on other threads
    const pthread_t thread_ = pthread_self();
    Clock::time_point begin_;
    bool isLost_ = false;  // guarded by the pool's lock
};

}  // namespace glintmark::platform
