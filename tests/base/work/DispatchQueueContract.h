#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "base/work/DispatchQueue.h"
#include "base/work/DispatchWorkItem.h"

namespace glintmark {

/// A serial queue under test.
class DispatchQueueSubject {
public:
    virtual ~DispatchQueueSubject() = default;

    virtual DispatchQueue& queue() = 0;
    virtual void destroyQueue() = 0;

    /// The time on the clock that measures delays.
    virtual std::chrono::nanoseconds now() = 0;

    /// Lets the queue run until `condition` holds. False if it never does.
    virtual bool runUntil(const std::function<bool()>& condition) = 0;
};

/// The tests that every serial queue passes, the main queue included. The parameter makes the
/// subject.
class DispatchQueueContract
    : public testing::TestWithParam<std::unique_ptr<DispatchQueueSubject> (*)()> {
protected:
    DispatchQueue& queue() { return subject_->queue(); }
    DispatchQueueSubject& subject() { return *subject_; }

    DispatchQueue::Work note(std::string text) {
        return [this, text = std::move(text)] {
            const std::lock_guard lock(mutex_);
            notes_.push_back(text);
        };
    }

    std::vector<std::string> notes(std::size_t count) {
        EXPECT_TRUE(subject().runUntil([&] {
            const std::lock_guard lock(mutex_);
            return notes_.size() >= count;
        }));
        const std::lock_guard lock(mutex_);
        return notes_;
    }

private:
    std::mutex mutex_;
    std::vector<std::string> notes_;
    // Declared last: its destruction ends its work, which uses the members above.
    std::unique_ptr<DispatchQueueSubject> subject_ = GetParam()();
};

TEST_P(DispatchQueueContract, WorkRunsInOrderOfSubmission) {
    std::vector<std::string> expected;
    for (int i = 0; i < 100; ++i) {
        expected.push_back(std::to_string(i));
        queue().async(note(expected.back()));
    }
    EXPECT_EQ(notes(100), expected);
}

TEST_P(DispatchQueueContract, DelayedWorkRunsInDueOrder) {
    using std::chrono::milliseconds;
    queue().asyncAfter(milliseconds(500), note("third"));  // far enough for any machine
    queue().asyncAfter(milliseconds(10), note("second"));
    queue().async(note("first"));
    EXPECT_THAT(notes(3), testing::ElementsAre("first", "second", "third"));
}

TEST_P(DispatchQueueContract, DelayedWorkDoesNotRunTooEarly) {
    const auto delay = std::chrono::milliseconds(20);
    const auto submitted = subject().now();
    std::atomic<bool> ran = false;
    std::chrono::nanoseconds began{0};
    queue().asyncAfter(delay, [&] {
        began = subject().now();
        ran = true;
    });
    EXPECT_TRUE(subject().runUntil([&] { return ran.load(); }));
    EXPECT_GE(began - submitted, delay);
}

TEST_P(DispatchQueueContract, WorkMaySubmitMoreWork) {
    queue().async([this, inner = note("inner")] {
        queue().async(inner);
        note("outer")();
    });
    EXPECT_THAT(notes(2), testing::ElementsAre("outer", "inner"));
}

TEST_P(DispatchQueueContract, ACancelledItemNeverRuns) {
    queue().async([this] {  // from the queue's own work, so that the item cannot begin before
        const auto item = std::make_shared<DispatchWorkItem>(note("cancelled"));
        queue().asyncAfter(std::chrono::milliseconds(1), item);
        queue().asyncAfter(std::chrono::milliseconds(2), note("kept"));
        item->cancel();
    });
    EXPECT_THAT(notes(1), testing::ElementsAre("kept"));
}

TEST_P(DispatchQueueContract, WorkIsReleasedOnceItHasRun) {
    auto owned = std::make_shared<int>(1);
    queue().async([owned] {});
    EXPECT_TRUE(subject().runUntil([&] { return owned.use_count() == 1; }));
}

TEST_P(DispatchQueueContract, WorkThatHasNotBegunIsDroppedWithTheQueue) {
    auto owned = std::make_shared<int>(1);
    queue().asyncAfter(std::chrono::hours(1), [owned] {});
    queue().asyncAfter(std::chrono::nanoseconds::max(), [owned] {});
    EXPECT_EQ(owned.use_count(), 3);
    subject().destroyQueue();
    EXPECT_EQ(owned.use_count(), 1);
}

}  // namespace glintmark
