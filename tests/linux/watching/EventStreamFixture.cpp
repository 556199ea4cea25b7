#include "tests/linux/watching/EventStreamFixture.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <future>
#include <tuple>
#include <utility>

#include "linux/watching/InotifyEventStream.h"
#include "tests/linux/ProcessState.h"

namespace {

struct WatchHook {
    std::mutex mutex;
    std::function<int(const std::string& path)> beforeAdding;
};

WatchHook watchHook;

}  // namespace

// Replaces the C library's function, so that a test can act just before a directory is watched.
extern "C" int inotify_add_watch(int descriptor, const char* path, std::uint32_t mask) noexcept {
    std::function<int(const std::string&)> hook;
    {
        const std::lock_guard lock(watchHook.mutex);
        hook = watchHook.beforeAdding;
    }
    if (const int error = hook ? hook(path) : 0; error != 0) {
        errno = error;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_inotify_add_watch, descriptor, path, mask));
}

namespace glintmark::platform {

void DebugLog::write(std::string_view message) {
    ADD_FAILURE() << "not one of the stream's lines: " << message;
}

void DebugLog::debug(std::string_view message) {
    const std::lock_guard lock(mutex_);
    lines_.emplace_back(message);
}

std::vector<std::string> DebugLog::lines() {
    const std::lock_guard lock(mutex_);
    return lines_;
}

EventStream::Handler Reports::handler() {
    return [this](std::span<const DirectoryEvent> events) {
        const std::lock_guard lock(mutex_);
        batches_.emplace_back(events.begin(), events.end());
    };
}

std::vector<Reports::Batch> Reports::batches() {
    const std::lock_guard lock(mutex_);
    return batches_;
}

std::set<std::string> Reports::paths() {
    std::set<std::string> paths;
    for (const auto& batch : batches()) {
        for (const auto& event : batch) {
            paths.insert(event.path);
        }
    }
    return paths;
}

void Reports::forget() {
    const std::lock_guard lock(mutex_);
    batches_.clear();
}

void GateQueue::async(Work work) {
    wasUsed_ = true;
    const std::lock_guard lock(gate_);
    target_.async(std::move(work));
}

void GateQueue::asyncAfter(std::chrono::nanoseconds delay, Work work) {
    target_.asyncAfter(delay, std::move(work));
}

EventStreamFixture::~EventStreamFixture() {
    stream_.reset();
    beforeWatching(nullptr);
}

void EventStreamFixture::TearDown() {
    stream_.reset();
    EXPECT_TRUE(waitFor([] { return threadsNamed(streamThread) == 0; }));
}

std::unique_ptr<EventStream> EventStreamFixture::make(const std::vector<std::string>& folders,
                                                      std::chrono::nanoseconds latency) {
    return InotifyEventStreamFactory(log_).create(folders, latency, reports_.handler());
}

void EventStreamFixture::watch(const std::vector<std::string>& names,
                               std::chrono::nanoseconds latency) {
    std::vector<std::string> folders;
    for (const auto& name : names) {
        folders.push_back(directory_.path(name));
    }
    stream_ = make(folders, latency);
    ASSERT_NE(stream_, nullptr);
    stream_->setDispatchQueue(queue_);
    EXPECT_TRUE(stream_->start());
}

void EventStreamFixture::watchSettled(const std::vector<std::string>& names,
                                      std::chrono::nanoseconds latency) {
    watch(names, latency);
    settle(names.front());
}

void EventStreamFixture::settle(const std::string& name) {
    static int count = 0;
    const auto probe = name + "/settle-" + std::to_string(++count);
    // Directories are walked in order, so the new one is reported after all earlier ones.
    directory_.createDirectories(probe);
    EXPECT_TRUE(isReported(probe));
    reports_.forget();
    directory_.remove(probe);
    EXPECT_TRUE(isReported(name));
    reports_.forget();
}

bool EventStreamFixture::isReported(const std::string& name) {
    return waitFor([&] { return reports_.has(directory_.path(name)); });
}

void EventStreamFixture::ageTimeStamps() {
    const auto read = [](clockid_t clock) {
        timespec now{};
        ::clock_gettime(clock, &now);
        return std::tuple(now.tv_sec, now.tv_nsec);
    };
    // Since Linux 6.13 a stamp may be of the exact clock, ahead of the coarse one.
    const auto latestStamp = read(CLOCK_REALTIME);
    EXPECT_TRUE(waitFor([&] { return read(CLOCK_REALTIME_COARSE) > latestStamp; }));
}

void EventStreamFixture::overflow(const std::string& name) {
    constexpr int events = 20'000;  // fs.inotify.max_queued_events is 16384 by default
    directory_.write(name + "/0");
    for (int i = 0; i < events; ++i) {
        directory_.move(name + "/" + std::to_string(i), name + "/" + std::to_string(i + 1));
    }
}

void EventStreamFixture::drainQueue() {
    std::promise<void> drained;
    queue_.async([&] { drained.set_value(); });
    drained.get_future().wait();
}

void EventStreamFixture::beforeWatching(std::function<int(const std::string&)> hook) {
    const std::lock_guard lock(watchHook.mutex);
    watchHook.beforeAdding = std::move(hook);
}

}  // namespace glintmark::platform
