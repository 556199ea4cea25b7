#include <unistd.h>

#include <array>
#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "base/system/FileDescriptor.h"
#include "linux/network/CurlURLSession.h"
#include "tests/linux/ProcessState.h"
#include "tests/linux/Waiting.h"
#include "tests/linux/network/CurlURLSessionFixture.h"

namespace glintmark::platform {

namespace {

using namespace std::chrono_literals;

/// Reads bytes from a pipe and counts its turns, until it shall end.
class PipeSource : public LoopSource {
public:
    PipeSource() {
        std::array<int, 2> ends{-1, -1};
        EXPECT_EQ(pipe(ends.data()), 0);
        reading_ = FileDescriptor(ends[0]);
        writing_ = FileDescriptor(ends[1]);
    }

    void send(char byte) const { EXPECT_EQ(write(writing_.get(), &byte, 1), 1); }
    void closeWriting() { writing_ = {}; }

    std::atomic<int> turns = 0;
    std::atomic<int> bytes = 0;
    std::atomic<bool> hasSeenEnd = false;
    std::atomic<bool> readsNothing = false;
    std::atomic<bool> shallEnd = false;
    std::atomic<Time> deadline = Time::max();

private:
    bool dispatch() override {
        ++turns;
        if (isReadable_ && !readsNothing) {
            char byte = 0;
            (read(reading_.get(), &byte, 1) == 1 ? bytes : ends_) += 1;
            hasSeenEnd = ends_ > 0;
        }
        if (deadline.load() <= std::chrono::steady_clock::now()) {
            deadline = Time::max();
        }
        return !shallEnd;
    }
    Time prepare(std::vector<pollfd>& watched) override {
        if (ends_ == 0) {
            watched.push_back({reading_.get(), POLLIN, 0});
        }
        return deadline;
    }
    void check(std::span<const pollfd> watched) override {
        isReadable_ = !watched.empty() && watched[0].revents != 0;
    }

    FileDescriptor reading_;
    FileDescriptor writing_;
    std::atomic<int> ends_ = 0;
    bool isReadable_ = false;
};

/// Other work on the session's thread.
class CurlURLSessionSourceTest : public CurlURLSessionTest {
protected:
    std::shared_ptr<PipeSource> attached() {
        auto source = std::make_shared<PipeSource>();
        EXPECT_TRUE(session().attach(source));
        return source;
    }
    static bool sessionHasThread() { return threadsNamed("http") > 0; }
};

TEST_F(CurlURLSessionSourceTest, StartsTheThreadAndKeepsItUntilTheSourceHasEnded) {
    options_.idleTimeout = 0ns;
    const auto source = attached();
    EXPECT_TRUE(waitFor([&] { return source->turns == 1; }));
    session().wake();
    EXPECT_TRUE(waitFor([&] { return source->turns == 2; }));
    EXPECT_TRUE(sessionHasThread());
    source->shallEnd = true;
    session().wake();
    EXPECT_TRUE(waitFor([] { return !sessionHasThread(); }));
    EXPECT_EQ(source.use_count(), 1);
}

TEST_F(CurlURLSessionSourceTest, TellsTheSourceWhatIsReadable) {
    const auto source = attached();
    source->send('a');
    EXPECT_TRUE(waitFor([&] { return source->bytes == 1; }));
    const auto another = attached();
    another->send('b');
    EXPECT_TRUE(waitFor([&] { return another->bytes == 1; }));
    EXPECT_EQ(source->bytes, 1);
}

TEST_F(CurlURLSessionSourceTest, AClosedDescriptorIsReadable) {
    const auto source = attached();
    source->closeWriting();
    EXPECT_TRUE(waitFor([&] { return source->hasSeenEnd.load(); }));
}

TEST_F(CurlURLSessionSourceTest, WaitsNoLongerThanTheSourceMay) {
    const auto source = std::make_shared<PipeSource>();
    source->deadline = std::chrono::steady_clock::now() + 20ms;
    EXPECT_TRUE(session().attach(source));
    EXPECT_TRUE(waitFor([&] { return source->deadline.load() == LoopSource::Time::max(); }));
}

TEST_F(CurlURLSessionSourceTest, WhatACompletionGivesTheSourceGetsATurnBeforeTheNextWait) {
    server_.on("/", answering(200, "x"));
    const auto source = attached();
    std::atomic<int> turnsBefore = 0;
    Event completed;
    session().startDataTask(request(server_.url("/")), [&](const URLResult& /*result*/) {
        turnsBefore = source->turns.load();
        session().wake();
        completed.set();
    });
    ASSERT_TRUE(completed.wait());
    EXPECT_TRUE(waitFor([&] { return source->turns > turnsBefore; }));
}

TEST_F(CurlURLSessionSourceTest, TransfersGoOnWhileASourceIsAlwaysReadable) {
    server_.on("/", answering(200, "x"));
    const auto source = attached();
    source->readsNothing = true;
    source->send('a');
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(get(server_.url("/")).body, "x");
    }
}

TEST_F(CurlURLSessionSourceTest, ConnectionsCloseWhileASourceKeepsTheThread) {
    options_.idleTimeout = 1ms;
    server_.on("/", answering(200, "x"));
    const auto source = attached();
    EXPECT_EQ(get(server_.url("/")).body, "x");
    EXPECT_TRUE(server_.waitForOpenConnections(0));
    EXPECT_EQ(get(server_.url("/")).body, "x");
}

TEST_F(CurlURLSessionSourceTest, TheThreadEndsWithTheSourceIfTheIdleTimeoutIsOver) {
    ManualClock clock;
    options_.now = [&] { return clock.now(); };
    server_.on("/", answering(200, "x"));
    const auto source = attached();
    EXPECT_EQ(get(server_.url("/")).body, "x");
    const int turns = source->turns;
    session().wake();
    EXPECT_TRUE(waitFor([&] { return source->turns > turns; }));  // the request is finished
    clock.advance(options_.idleTimeout);
    session().wake();
    EXPECT_TRUE(server_.waitForOpenConnections(0));
    EXPECT_TRUE(sessionHasThread());
    source->shallEnd = true;
    session().wake();
    EXPECT_TRUE(waitFor([] { return !sessionHasThread(); }));
    endSession();
}

TEST_F(CurlURLSessionSourceTest, TheEndOfTheSessionDropsItsSources) {
    const auto source = attached();
    EXPECT_TRUE(waitFor([&] { return source->turns > 0; }));
    endSession();
    EXPECT_EQ(source.use_count(), 1);
}

}  // namespace

}  // namespace glintmark::platform
