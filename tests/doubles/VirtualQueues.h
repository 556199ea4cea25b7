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

/// Queues and timers on one virtual clock. Everything runs on the test's own thread, in due order
/// and in order of submission where due times are equal, and only while the test lets it.
class VirtualQueues final : public platform::DispatchQueues, public platform::Timers {
public:
    VirtualQueues();
    ~VirtualQueues() override;

    DispatchQueue& main() override;
    DispatchQueue& global(platform::QualityOfService quality) override;
    std::unique_ptr<DispatchQueue> makeSerial(const std::string& label) override;
    std::shared_ptr<platform::Timer> scheduleRepeating(std::chrono::nanoseconds interval,
                                                       std::function<void()> block) override;

    /// Where fakes deliver answers that come "on any thread".
    DispatchQueue& background();

    /// Runs what is due now, and what that submits for now. The clock stands still.
    void runPending();

    /// Lets `duration` pass, running everything that falls due, at its time.
    void advance(std::chrono::nanoseconds duration);

    /// Lets time pass until no queue has work left. Timers that fall due meanwhile fire.
    void runUntilIdle();

    /// Since the queues were made.
    std::chrono::nanoseconds now() const { return now_; }

    /// The queue whose work is running: "main", "global", "background" or a serial queue's label.
    /// Empty in the test's own body.
    const std::string& current() const { return current_; }

    std::size_t pendingWork() const;       ///< Not begun yet, delayed or not; without timers.
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
