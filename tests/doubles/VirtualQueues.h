#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/DispatchQueues.h"
#include "platform/Timer.h"

namespace glintmark::doubles {

/// Queues and timers on one virtual clock. All work runs on the test's thread, in due order, in
/// order of submission if due times are equal, and only inside the calls below that let it run.
class VirtualQueues final : public platform::DispatchQueues, public platform::Timers {
public:
    VirtualQueues();
    ~VirtualQueues() override;

    DispatchQueue& main() override;
    DispatchQueue& global(platform::QualityOfService quality) override;
    std::unique_ptr<DispatchQueue> makeSerial(const std::string& label) override;
    std::shared_ptr<platform::Timer> scheduleRepeating(std::chrono::nanoseconds interval,
                                                       std::function<void()> block) override;

    /// The queue on which fakes deliver answers that may arrive on any thread.
    DispatchQueue& background();

    /// Runs work that is due now, and work that this submits for now. The clock does not move.
    void runPending();

    /// Lets `duration` pass. All work that becomes due runs, each at its time.
    void advance(std::chrono::nanoseconds duration);

    /// Lets time pass until no queue has work left. Timers that become due fire.
    void runUntilIdle();

    /// The time since the queues were made.
    std::chrono::nanoseconds now() const { return now_; }

    /// The queue whose work is running: "main", "global", "background" or a serial queue's label.
    /// Empty in the test's body.
    const std::string& current() const { return current_; }

    std::size_t pendingWork() const;       ///< Work that has not begun, delayed or not. No timers.
    std::size_t activeTimers() const;      ///< Not invalidated.
    std::size_t liveSerialQueues() const;  ///< Not destroyed.

private:
    class Queue;
    class RepeatingTimer;
    struct Entry;

    std::uint64_t submit(const Queue& queue, std::chrono::nanoseconds delay,
                         std::function<void()> work, bool isTimer);
    void drop(std::uint64_t queue);
    void withdraw(std::uint64_t sequence);
    bool runNext(std::chrono::nanoseconds until);

    std::chrono::nanoseconds now_{0};
    std::uint64_t nextSequence_ = 0;
    std::uint64_t nextQueue_ = 0;
    std::string current_;
    std::vector<Entry> entries_;  // in due order
    std::size_t activeTimers_ = 0;
    std::size_t liveSerialQueues_ = 0;
    std::unique_ptr<Queue> main_;
    std::unique_ptr<Queue> global_;
    std::unique_ptr<Queue> background_;
};

}  // namespace glintmark::doubles
