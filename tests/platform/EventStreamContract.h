#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "base/work/DispatchQueue.h"
#include "platform/EventStream.h"

namespace glintmark::platform {

/// Event streams under test, with a folder to watch and a serial queue.
class EventStreamSubject {
public:
    virtual ~EventStreamSubject() = default;

    virtual EventStreamFactory& factory() = 0;
    virtual DispatchQueue& queue() = 0;
    virtual std::string folder() = 0;

    /// Makes something change directly in `folder()`.
    virtual void change() = 0;

    /// Lets everything run until `condition` holds. False if it never does.
    virtual bool runUntil(const std::function<bool()>& condition) = 0;
};

/// The tests that every event stream passes. The parameter makes the subject.
class EventStreamContract
    : public testing::TestWithParam<std::unique_ptr<EventStreamSubject> (*)()> {
protected:
    EventStreamSubject& subject() { return *subject_; }

    std::unique_ptr<EventStream> started(EventStream::Handler handler) {
        auto stream = subject().factory().create(std::vector{subject().folder()},
                                                 std::chrono::milliseconds(1), std::move(handler));
        stream->setDispatchQueue(subject().queue());
        EXPECT_TRUE(stream->start());
        return stream;
    }

    EventStream::Handler note() {
        return [this](std::span<const DirectoryEvent> events) {
            const std::lock_guard lock(mutex_);
            events_.insert(events_.end(), events.begin(), events.end());
        };
    }

    std::vector<DirectoryEvent> events() {
        const std::lock_guard lock(mutex_);
        return events_;
    }

    /// Waits until the work on the stream's queue has run.
    void drain() {
        std::atomic<bool> ran = false;
        subject().queue().async([&] { ran = true; });
        EXPECT_TRUE(subject().runUntil([&] { return ran.load(); }));
    }

private:
    std::unique_ptr<EventStreamSubject> subject_ = GetParam()();
    std::mutex mutex_;
    std::vector<DirectoryEvent> events_;
};

TEST_P(EventStreamContract, AChangeIsReportedWithItsDirectory) {
    const auto stream = started(note());
    subject().change();
    EXPECT_TRUE(subject().runUntil([&] { return !events().empty(); }));
    EXPECT_EQ(events().front(), (DirectoryEvent{subject().folder(), 0}));
    stream->stop();
    stream->invalidate();
}

TEST_P(EventStreamContract, NothingIsReportedAfterInvalidate) {
    const auto stream = started(note());
    subject().change();
    stream->stop();
    stream->invalidate();
    const auto before = events().size();
    subject().change();
    drain();
    EXPECT_EQ(events().size(), before);
}

TEST_P(EventStreamContract, TheHandlerMayStopAndInvalidateItsStream) {
    std::promise<EventStream*> made;  // the handler may run before the assignment below
    std::atomic<int> calls = 0;
    const auto stream = started([&calls, made = made.get_future().share()](auto) {
        made.get()->stop();
        made.get()->invalidate();
        ++calls;
    });
    made.set_value(stream.get());
    subject().change();
    EXPECT_TRUE(subject().runUntil([&] { return calls > 0; }));
    drain();
    EXPECT_EQ(calls, 1);
}

TEST_P(EventStreamContract, TheHandlerIsReleasedWithTheStream) {
    auto owned = std::make_shared<int>(0);
    auto stream = started([owned](auto) {});
    stream->stop();
    stream->invalidate();
    stream.reset();
    EXPECT_TRUE(subject().runUntil([&] { return owned.use_count() == 1; }));
}

}  // namespace glintmark::platform
