#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <mutex>
#include <thread>

#include "linux/network/CurlURLSession.h"
#include "tests/linux/ProcessState.h"
#include "tests/linux/Waiting.h"
#include "tests/linux/network/CurlURLSessionFixture.h"
#include "tests/support/HostNames.h"

namespace glintmark::platform {

namespace {

using namespace std::chrono_literals;

/// The session's start, its end and its thread.
class CurlURLSessionLifeTest : public CurlURLSessionTest {
protected:
    static std::size_t threadsOfSessions() { return threadsNamed("http"); }
};

TEST_F(CurlURLSessionLifeTest, HasNoThreadBeforeTheFirstRequest) {
    session();
    EXPECT_EQ(threadsOfSessions(), 0U);
    letSessionRunOnce();
    EXPECT_EQ(threadsOfSessions(), 1U);
    endSession();
    EXPECT_TRUE(waitFor([] { return threadsOfSessions() == 0; }));
}

TEST_F(CurlURLSessionLifeTest, PreparingStartsTheThreadUntilTheIdleTimeout) {
    options_.idleTimeout = 0ns;
    session().prepare();
    EXPECT_TRUE(waitFor([] { return threadsOfSessions() == 0; }));
    endSession();
    options_.idleTimeout = 10s;
    session().prepare();
    EXPECT_TRUE(waitFor([] { return threadsOfSessions() == 1; }));
    server_.on("/", answering(200, "x"));
    EXPECT_EQ(get(server_.url("/")).body, "x");
    session().prepare();
    EXPECT_EQ(threadsOfSessions(), 1U);
}

TEST_F(CurlURLSessionLifeTest, AnIdleSessionEndsItsThreadAndConnections) {
    options_.idleTimeout = 1ms;
    server_.on("/", answering(200, "x", {{"Set-Cookie", "still=there"}}));
    URLRequest asked = request(server_.url("/"));
    asked.group = session().makeTaskGroup("h");
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(start(asked)->wait().body, "x");
        EXPECT_TRUE(server_.waitForOpenConnections(0));
        EXPECT_TRUE(waitFor([] { return threadsOfSessions() == 0; }));
    }
    EXPECT_EQ(server_.requests().at(2).header("Cookie"), "still=there");
}

TEST_F(CurlURLSessionLifeTest, RequestsDuringTheEndOfTheThreadAreAnswered) {
    options_.idleTimeout = 0ns;
    server_.on("/", answering(200, "x"));
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(get(server_.url("/")).body, "x");
    }
}

TEST_F(CurlURLSessionLifeTest, ManyRequestsFromManyThreadsAreEachAnsweredOnce) {
    constexpr int threads = 4;
    constexpr int requestsEach = 250;
    const test::HostNames names;
    server_.onAnythingElse([](const LoopbackRequest& request, LoopbackConnection& connection) {
        connection.answer(200, request.target);
    });
    session();
    std::mutex mutex;
    std::vector<std::pair<std::string, std::shared_ptr<PendingAnswer>>> pending;
    std::vector<std::thread> callers;
    callers.reserve(threads);
    for (int thread = 0; thread < threads; ++thread) {
        callers.emplace_back([&, thread] {
            for (int i = 0; i < requestsEach; ++i) {
                const std::string target = "/" + std::to_string(thread) + "/" + std::to_string(i);
                const std::string host = "h" + std::to_string(i % 30) + ".test";
                auto one = start(server_.urlOf(host, target));
                const std::lock_guard lock(mutex);
                pending.emplace_back(target, std::move(one));
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    for (const auto& [target, one] : pending) {
        EXPECT_EQ(one->wait().body, target);
    }
    endSession();
    for (const auto& [target, one] : pending) {
        EXPECT_EQ(one->completions, 1) << target;
    }
}

TEST_F(CurlURLSessionLifeTest, ACompletionMayStartTheNextRequest) {
    constexpr int length = 50;
    server_.on("/", answering(200, "x"));
    Event ended;
    std::atomic<int> left = length;
    std::function<void()> next = [&] {
        session().startDataTask(request(server_.url("/")), [&](const URLResult&) {
            if (--left == 0) {
                ended.set();
            } else {
                next();
            }
        });
    };
    next();
    EXPECT_TRUE(ended.wait());
    EXPECT_EQ(server_.requests().size(), length);
}

TEST_F(CurlURLSessionLifeTest, TheDestructorAbortsRunningAndQueuedRequestsWithoutCompletion) {
    const test::HostNames names;
    server_.onAnythingElse([](const LoopbackRequest&, LoopbackConnection& connection) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf");
        connection.holdUntilClosed();
    });
    std::vector<std::shared_ptr<PendingAnswer>> pending;
    pending.reserve(11);
    for (int i = 0; i < 10; ++i) {
        pending.push_back(start(server_.url("/" + std::to_string(i))));
    }
    pending.push_back(start(server_.urlOf("stuck.test", "/")));
    ASSERT_TRUE(server_.waitForRequests(6));
    endSession();
    EXPECT_TRUE(server_.waitForOpenConnections(0));
    for (const auto& one : pending) {
        EXPECT_EQ(one->completions, 0);
        EXPECT_EQ(one.use_count(), 1);  // the session destroyed the completion
    }
}

class CurlURLSessionEndTest : public CurlURLSessionLifeTest {
protected:
    static constexpr std::size_t maximumSmallBytes = std::size_t{64} << 10;

    CurlURLSessionEndTest() {
        server_.onAnythingElse(answering(200, std::string(maximumSmallBytes + 1, 'x')));
    }

    DispatchQueue& completionQueue() override { return queue_; }

    test::HeldQueue queue_;
};

TEST_F(CurlURLSessionEndTest, NoCompletionStartsAfterTheDestructor) {
    const auto pending = start(server_.url("/"));
    ASSERT_TRUE(queue_.waitFor(1));
    endSession();
    queue_.runNext();
    EXPECT_EQ(pending->completions, 0);
}

TEST_F(CurlURLSessionEndTest, TheDestructorWaitsForARunningCompletion) {
    Event entered;
    Event mayLeave;
    std::atomic<bool> left = false;
    session().startDataTask(request(server_.url("/")), [&](const URLResult&) {
        entered.set();
        mayLeave.wait();
        left = true;
    });
    ASSERT_TRUE(queue_.waitFor(1));
    std::thread completing([&] { queue_.runNext(); });
    ASSERT_TRUE(entered.wait());
    std::thread ending([&] {
        endSession();
        EXPECT_TRUE(left);
    });
    mayLeave.set();
    ending.join();
    completing.join();
}

TEST_F(CurlURLSessionEndTest, AQuickCompletionGetsALargeBodyWithoutTheQueue) {
    URLRequest quick = request(server_.url("/"));
    quick.isQuickToComplete = true;
    const URLResult result = start(quick)->wait();
    EXPECT_EQ(queue_.size(), 0U);
    ASSERT_TRUE(result.body);
    EXPECT_EQ(result.body->size(), maximumSmallBytes + 1);
}

TEST_F(CurlURLSessionEndTest, FailuresAndSmallBodiesAreCompletedWithoutTheQueue) {
    for (const int status : {200, 404}) {
        server_.on("/small", answering(status, std::string(maximumSmallBytes, 'x')));
        server_.on("/long", answering(status, std::string(maximumSmallBytes + 1, 'x')));
        EXPECT_EQ(get(server_.url("/small")).body->size(), maximumSmallBytes);
        EXPECT_NE(get("http://127.0.0.1:1/").error, std::nullopt);  // no server
        EXPECT_EQ(queue_.size(), 0U);

        const auto delayed = start(server_.url("/long"));
        ASSERT_TRUE(queue_.waitFor(1));
        EXPECT_EQ(delayed->completions, 0);
        queue_.runNext();
        EXPECT_EQ(delayed->wait().response->statusCode, status);
    }
}

TEST_F(CurlURLSessionEndTest, ARequestFromTheCompletionOfAFailureStartsAtOnce) {
    server_.on("/missing", answering(404, ""));
    std::shared_ptr<PendingAnswer> next;
    Event asked;
    session().startDataTask(request(server_.url("/missing")), [&](const URLResult&) {
        next = start(server_.url("/missing"));
        asked.set();
    });
    ASSERT_TRUE(asked.wait());
    EXPECT_EQ(next->wait().response->statusCode, 404);
    EXPECT_EQ(queue_.size(), 0U);
}

TEST_F(CurlURLSessionEndTest, CompletionsAreSubmittedOneByOne) {
    start(server_.url("/1"));
    start(server_.url("/2"));
    EXPECT_TRUE(queue_.waitFor(2));  // a queue with two threads can run both at once
}

/// Runs in a child process in which no thread can start. Prints the error of a request and exits.
[[noreturn]] void askWithoutThreads() {
    constexpr uid_t nobody = 65534;
    if (::getuid() == 0 && ::setuid(nobody) != 0) {  // the limit does not bind root
        std::_Exit(2);
    }
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_NPROC, &none);
    test::InlineQueue queue;
    CurlURLSession session(queue, {.version = "1"});
    std::string error = "not completed";
    session.startDataTask(URLRequest(*URL::parse("http://127.0.0.1/")),
                          [&](const URLResult& result) { error = result.error.value_or(""); });
    std::fputs(error.c_str(), stderr);
    std::_Exit(0);
}

TEST(CurlURLSessionDeathTest, ARequestFailsWhereNoThreadCanBeMade) {
    EXPECT_EXIT(askWithoutThreads(), testing::ExitedWithCode(0), "No thread can be started");
}

}  // namespace

}  // namespace glintmark::platform
