#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <mutex>
#include <utility>
#include <vector>

#include "base/system/FileDescriptor.h"
#include "linux/files/PosixFileManager.h"
#include "linux/watching/InotifyEventStream.h"
#include "tests/linux/ProcessState.h"
#include "tests/linux/watching/EventStreamFixture.h"

namespace glintmark::platform {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class InotifyEventStreamTest : public EventStreamFixture {};

/// Passes work on to another queue and notes when.
class TimedQueue : public DispatchQueue {
public:
    using Clock = std::chrono::steady_clock;

    explicit TimedQueue(DispatchQueue& target) : target_(target) {}

    void async(Work work) override {
        {
            const std::lock_guard lock(mutex_);
            times_.push_back(Clock::now());
        }
        target_.async(std::move(work));
    }
    void asyncAfter(std::chrono::nanoseconds delay, Work work) override {
        target_.asyncAfter(delay, std::move(work));
    }
    std::vector<Clock::time_point> times() {
        const std::lock_guard lock(mutex_);
        return times_;
    }

private:
    DispatchQueue& target_;
    std::mutex mutex_;
    std::vector<Clock::time_point> times_;
};

TEST_F(InotifyEventStreamTest, ANewFileReportsItsDirectory) {
    directory_.createDirectories("links/deep/deeper");
    watchSettled({"links"});
    directory_.write("links/deep/deeper/a.webloc");
    EXPECT_TRUE(isReported("links/deep/deeper"));
    EXPECT_THAT(reports_.paths(), ElementsAre(directory_.path("links/deep/deeper")));
    EXPECT_EQ(reports_.batches()[0][0].flags, 0U);
}

TEST_F(InotifyEventStreamTest, EveryWayToMakeANameIsReported) {
    directory_.createDirectories("links/linked");
    directory_.createDirectories("links/hard");
    directory_.createDirectories("links/moved");
    directory_.createDirectories("links/renamed");
    directory_.write("links/renamed/before");
    directory_.write("outside");
    watchSettled({"links"});
    directory_.createLink("/nowhere", "links/linked/a");
    EXPECT_TRUE(isReported("links/linked"));
    ASSERT_EQ(::link(directory_.path("outside").c_str(), directory_.path("links/hard/a").c_str()),
              0);
    EXPECT_TRUE(isReported("links/hard"));
    directory_.move("outside", "links/moved/a");
    EXPECT_TRUE(isReported("links/moved"));
    directory_.move("links/renamed/before", "links/renamed/after");
    EXPECT_TRUE(isReported("links/renamed"));
}

TEST_F(InotifyEventStreamTest, EveryChangeOfAnEntryIsReported) {
    const auto path = directory_.path("links/a/entry");
    const std::vector<std::pair<const char*, std::function<void()>>> changes = {
        {"written", [&] { directory_.write("links/a/entry", "more"); }},
        {"permissions", [&] { ASSERT_EQ(::chmod(path.c_str(), 0600), 0); }},
        {"times", [&] { ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), nullptr, 0), 0); }},
        {"attribute", [&] { ASSERT_EQ(::setxattr(path.c_str(), "user.a", "b", 1, 0), 0); }},
        {"removed", [&] { ASSERT_EQ(::unlink(path.c_str()), 0); }},
        {"moved out", [&] { directory_.move("links/a/second", "outside"); }},
        {"directory removed", [&] { directory_.remove("links/a/empty"); }},
        {"directory moved out", [&] { directory_.move("links/a/below", "elsewhere"); }},
    };
    directory_.write("links/a/entry");
    directory_.write("links/a/second");
    directory_.createDirectories("links/a/empty");
    directory_.createDirectories("links/a/below");
    watchSettled({"links"});
    for (const auto& [what, change] : changes) {
        change();
        EXPECT_TRUE(isReported("links/a")) << what;
        settle("links");
    }
}

TEST_F(InotifyEventStreamTest, AWriteCountsOnceTheFileIsClosed) {
    directory_.write("links/a/entry");
    watchSettled({"links"});
    FileDescriptor file(
        ::open(directory_.path("links/a/entry").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    ASSERT_EQ(::write(file.get(), "more", 4), 4);
    directory_.createDirectories("links/last");
    EXPECT_TRUE(isReported("links/last"));
    EXPECT_FALSE(reports_.has(directory_.path("links/a")));
    file = FileDescriptor();
    EXPECT_TRUE(isReported("links/a"));
}

TEST_F(InotifyEventStreamTest, ListingAndReadingIsNoChange) {
    directory_.write("links/a/entry", "text");
    watchSettled({"links"});
    std::vector<std::string> names;
    EXPECT_EQ(directory_.read("links/a/entry"), "text");
    EXPECT_TRUE(PosixFileManager().contentsOfDirectory(
        directory_.path("links/a"), [&](auto name) { names.emplace_back(name); }));
    EXPECT_THAT(names, ElementsAre("entry"));
    directory_.createDirectories("links/last");
    EXPECT_TRUE(isReported("links/last"));
    EXPECT_FALSE(reports_.has(directory_.path("links/a")));
}

TEST_F(InotifyEventStreamTest, WithAContinuousWriterDeliveriesAreALatencyApart) {
    constexpr auto latency = 50ms;
    constexpr std::size_t enough = 10;
    directory_.createDirectories("links/busy");
    TimedQueue timed(queue_);
    stream_ = make({directory_.path("links")}, latency);
    stream_->setDispatchQueue(timed);
    EXPECT_TRUE(stream_->start());
    EXPECT_TRUE(waitFor([&] {
        directory_.write("links/busy/file", "more");
        return timed.times().size() >= enough;
    }));
    stream_->stop();
    const auto times = timed.times();
    for (std::size_t i = 1; i < times.size(); ++i) {
        EXPECT_GE(times[i] - times[i - 1], latency);
    }
    EXPECT_TRUE(waitFor([] { return threadsNamed(streamThread) == 0; }));
}

TEST_F(InotifyEventStreamTest, ChangesWithinTheLatencyArriveAsOneCallWithEachDirectoryOnce) {
    directory_.createDirectories("links/one");
    directory_.createDirectories("links/two");
    watchSettled({"links"}, 300ms);
    for (int i = 0; i < 20; ++i) {
        directory_.write("links/one/" + std::to_string(i));
        directory_.write("links/two/" + std::to_string(i));
    }
    EXPECT_TRUE(isReported("links/two"));
    const auto batches = reports_.batches();
    ASSERT_THAT(batches, SizeIs(1));
    EXPECT_THAT(batches[0], ElementsAre(DirectoryEvent{directory_.path("links/one"), 0},
                                        DirectoryEvent{directory_.path("links/two"), 0}));
}

TEST_F(InotifyEventStreamTest, ABatchIsNotDeliveredBeforeItsLatencyIsOver) {
    directory_.createDirectories("links");
    watchSettled({"links"}, 100ms);
    const auto before = std::chrono::steady_clock::now();
    directory_.write("links/a");
    EXPECT_TRUE(isReported("links"));
    EXPECT_GE(std::chrono::steady_clock::now() - before, 100ms);
}

TEST_F(InotifyEventStreamTest, ChangesBetweenCreationAndStartAreDeliveredOnceStarted) {
    directory_.createDirectories("links");
    stream_ = make({directory_.path("links")}, 1ms);
    directory_.write("links/a");
    stream_->setDispatchQueue(queue_);
    EXPECT_TRUE(stream_->start());
    EXPECT_TRUE(isReported("links"));
}

TEST_F(InotifyEventStreamTest, StopAndInvalidateEndTheReports) {
    directory_.createDirectories("links");
    watchSettled({"links"});
    stream_->stop();
    stream_->invalidate();
    directory_.write("links/a");
    EXPECT_TRUE(waitFor([] { return threadsNamed(streamThread) == 0; }));
    drainQueue();
    EXPECT_THAT(reports_.paths(), IsEmpty());
}

TEST_F(InotifyEventStreamTest, InvalidateWaitsForARunningHandler) {
    directory_.createDirectories("links");
    std::promise<void> entered;
    std::atomic<bool> left = false;
    std::promise<void> release;
    auto stream = InotifyEventStreamFactory(log_).create(std::vector{directory_.path("links")}, 1ms,
                                                         [&](auto) {
                                                             entered.set_value();
                                                             release.get_future().wait();
                                                             left = true;
                                                         });
    stream->setDispatchQueue(queue_);
    stream->start();
    directory_.write("links/a");
    entered.get_future().wait();
    stream->stop();
    ThreadPoolQueue helper("helper", 1);
    helper.async([&] { release.set_value(); });
    stream->invalidate();
    EXPECT_TRUE(left);
}

TEST_F(InotifyEventStreamTest, TheHandlerMayEndItsOwnStream) {
    directory_.createDirectories("links");
    std::promise<void> ended;
    std::unique_ptr<EventStream> stream = InotifyEventStreamFactory(log_).create(
        std::vector{directory_.path("links")}, 1ms, [&](auto) {
            stream->stop();
            stream->invalidate();
            stream.reset();
            ended.set_value();
        });
    stream->setDispatchQueue(queue_);
    stream->start();
    directory_.write("links/a");
    ended.get_future().wait();
}

TEST_F(InotifyEventStreamTest, ADeliveryThatWaitsInTheQueueDoesNotBeginAfterInvalidate) {
    directory_.createDirectories("links");
    watchSettled({"links"}, 1ms);
    std::promise<void> release;
    std::promise<void> held;
    queue_.async([&] {
        held.set_value();
        release.get_future().wait();
    });
    held.get_future().wait();
    stream_ = make({directory_.path("links")}, 1ms);
    stream_->setDispatchQueue(gate_);  // which notes that the delivery has been queued
    stream_->start();
    directory_.write("links/a");
    ASSERT_TRUE(waitFor([&] { return gate_.wasUsed(); }));
    stream_->stop();
    stream_->invalidate();
    release.set_value();
    drainQueue();
    EXPECT_THAT(reports_.paths(), IsEmpty());
}

TEST_F(InotifyEventStreamTest, AStreamMayBeStartedAgain) {
    directory_.createDirectories("links");
    watchSettled({"links"});
    stream_->stop();
    directory_.createDirectories("links/while-stopped");
    EXPECT_TRUE(stream_->start());
    settle("links");
    directory_.write("links/while-stopped/x");
    EXPECT_TRUE(isReported("links/while-stopped"));
}

TEST_F(InotifyEventStreamTest, AStreamWithoutAQueueDoesNotStart) {
    const auto stream = make({directory_.path()}, 1ms);
    EXPECT_FALSE(stream->start());
}

}  // namespace
}  // namespace glintmark::platform
