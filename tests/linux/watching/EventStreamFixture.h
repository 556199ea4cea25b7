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

/// What a stream's handler has been told.
class Reports {
public:
    using Batch = std::vector<DirectoryEvent>;

    EventStream::Handler handler();
    std::vector<Batch> batches();
    std::multiset<std::string> paths();
    bool has(const std::string& path) { return paths().contains(path); }
    void forget();

private:
    std::mutex mutex_;
    std::vector<Batch> batches_;
};

/// Holds back whoever submits work while it is closed.
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

/// Streams of real inotify over a temporary directory. Names are relative to that.
class EventStreamFixture : public testing::Test {
protected:
    ~EventStreamFixture() override;
    void TearDown() override;

    std::unique_ptr<EventStream> make(const std::vector<std::string>& folders,
                                      std::chrono::nanoseconds latency);

    /// Watches the folders until the test's end.
    void watch(const std::vector<std::string>& names,
               std::chrono::nanoseconds latency = std::chrono::milliseconds(5));

    /// The same, and waits until all that is there is watched, so that nothing counts as a change
    /// but what the test does from here on.
    void watchSettled(const std::vector<std::string>& names,
                      std::chrono::nanoseconds latency = std::chrono::milliseconds(5));

    /// Waits until the stream has gone through everything that has happened so far, and forgets
    /// its reports. `name` is a watched folder.
    void settle(const std::string& name);

    bool isReported(const std::string& name);

    /// Waits until what was submitted to the stream's queue has run.
    void drainQueue();

    /// `hook` runs before a directory is watched, on the stream's thread; it returns the error
    /// number with which that is to fail, or 0.
    static void beforeWatching(std::function<int(const std::string& path)> hook);

    test::TemporaryDirectory directory_;
    DebugLog log_;
    Reports reports_;
    ThreadPoolQueue queue_{"stream-queue", 1};
    GateQueue gate_{queue_};  ///< Here, since a stream's thread may be in it until it has ended.
    std::unique_ptr<EventStream> stream_;
};

}  // namespace glintmark::platform
