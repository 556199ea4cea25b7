#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "linux/queues/ThreadPoolQueue.h"
#include "platform/EventStream.h"
#include "platform/Log.h"
#include "tests/linux/Waiting.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::platform {

inline constexpr const char* streamThread = "event-stream";

/// Keeps the debug lines; any other line fails the test.
class DebugLog : public Log {
public:
    void write(std::string_view message) override;
    void debug(std::string_view message) override;
    std::vector<std::string> lines();

private:
    std::mutex mutex_;
    std::vector<std::string> lines_;
};

/// The events that a stream's handler received.
class Reports {
public:
    using Batch = std::vector<DirectoryEvent>;

    EventStream::Handler handler();
    std::vector<Batch> batches();
    std::set<std::string> paths();
    bool has(const std::string& path) { return paths().contains(path); }
    void forget();

private:
    std::mutex mutex_;
    std::vector<Batch> batches_;
};

/// Passes work on to another queue. While the gate is closed, it blocks each thread that submits
/// work.
class GateQueue : public DispatchQueue {
public:
    explicit GateQueue(DispatchQueue& target) : target_(target) {}

    void async(Work work) override;
    void asyncAfter(std::chrono::nanoseconds delay, Work work) override;

    std::unique_lock<std::mutex> close() { return std::unique_lock(gate_); }
    bool wasUsed() const { return wasUsed_; }

private:
    DispatchQueue& target_;
    std::mutex gate_;
    std::atomic<bool> wasUsed_ = false;
};

/// Real inotify streams over a temporary directory. Names are relative to that directory.
class EventStreamFixture : public testing::Test {
protected:
    ~EventStreamFixture() override;
    void TearDown() override;

    std::unique_ptr<EventStream> make(const std::vector<std::string>& folders,
                                      std::chrono::nanoseconds latency);

    /// Watches the folders until the end of the test.
    void watch(const std::vector<std::string>& names,
               std::chrono::nanoseconds latency = std::chrono::milliseconds(5));

    /// Like `watch()`, but then waits until everything that exists is watched, so that only what
    /// the test does from here on counts as a change.
    void watchSettled(const std::vector<std::string>& names,
                      std::chrono::nanoseconds latency = std::chrono::milliseconds(5));

    /// Waits until the stream has handled everything that happened so far, then forgets its
    /// reports. `name` is a watched folder. It counts as changed meanwhile.
    void settle(const std::string& name);

    bool isReported(const std::string& name);

    /// Waits until changes get later time stamps than all those so far. A stream that is made then
    /// does not count the earlier ones.
    static void ageTimeStamps();

    /// Makes more events in a directory than the system queues. No thread may read events during
    /// this call.
    void overflow(const std::string& name);

    /// Waits until all work submitted to the stream's queue has run.
    void drainQueue();

    /// `hook` runs on the stream's thread before a directory is watched. It returns 0, or the error
    /// number with which the watch fails.
    static void beforeWatching(std::function<int(const std::string& path)> hook);

    test::TemporaryDirectory directory_;
    DebugLog log_;
    Reports reports_;
    ThreadPoolQueue queue_{"stream-queue", 1};
    GateQueue gate_{queue_};  ///< Lives as long as a stream's thread, which may call it.
    std::unique_ptr<EventStream> stream_;
};

}  // namespace glintmark::platform
