#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "linux/network/CurlURLSession.h"
#include "tests/linux/network/CurlURLSessionFixture.h"
#include "tests/support/HostNames.h"

namespace glintmark::platform {

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

constexpr std::size_t mebibyte = std::size_t{1} << 20;

/// The limits on time, on transfers at a time and on memory.
class CurlURLSessionLimitsTest : public CurlURLSessionTest {
protected:
    void useManualClock() {
        options_.now = [this] { return clock_.now(); };
    }

    static URLRequest withTimeout(const std::string& url, std::chrono::nanoseconds timeout) {
        URLRequest asked = request(url);
        asked.timeoutInterval = timeout;
        return asked;
    }

    ManualClock clock_;
    const test::HostNames names_;
};

TEST_F(CurlURLSessionLimitsTest, ASilentServerTimesOut) {
    server_.on("/", [](const LoopbackRequest&, LoopbackConnection& connection) {
        connection.holdUntilClosed();
    });
    const URLResult result = start(withTimeout(server_.url("/"), 30ms))->wait();
    EXPECT_EQ(result.error, "The request timed out.");
    EXPECT_EQ(result.body, std::nullopt);
    EXPECT_FALSE(result.response);
}

TEST_F(CurlURLSessionLimitsTest, AServerThatStopsSendingInTheBodyTimesOut) {
    server_.on("/", [](const LoopbackRequest&, LoopbackConnection& connection) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf");
        connection.holdUntilClosed();
    });
    const URLResult result = start(withTimeout(server_.url("/"), 100ms))->wait();
    EXPECT_EQ(result.error, "The request timed out.");
    EXPECT_EQ(result.body, std::nullopt);
}

TEST_F(CurlURLSessionLimitsTest, ARedirectWhoseBodyTimesOutIsStillFollowed) {
    server_.on("/", [](const LoopbackRequest&, LoopbackConnection& connection) {
        connection.send("HTTP/1.1 302 Found\r\nLocation: /end\r\nContent-Length: 10\r\n\r\nhalf");
        connection.holdUntilClosed();
    });
    server_.on("/end", answering(200, "there"));
    EXPECT_EQ(start(withTimeout(server_.url("/"), 100ms))->wait().body, "there");
}

TEST_F(CurlURLSessionLimitsTest, ASlowNameLookupTimesOutWithoutDelayingOtherRequests) {
    const auto stuck = start(withTimeout(server_.urlOf("stuck.test", "/"), 30ms));
    EXPECT_EQ(stuck->wait().error, "The request timed out.");
    letSessionRunOnce();
    test::HostNames::release();
}

/// A server's handler that sends each part of an answer when the test calls `send`. Its state may
/// outlive this object: the server's thread shares it.
class Dribble {
public:
    explicit Dribble(std::vector<std::string> parts) { state_->parts = std::move(parts); }
    ~Dribble() {
        for (Event& event : state_->allowed) {
            event.set();
        }
    }
    Dribble(const Dribble&) = delete;
    Dribble& operator=(const Dribble&) = delete;

    LoopbackServer::Handler handler() {
        return [state = state_](const LoopbackRequest&, LoopbackConnection& connection) {
            for (std::size_t i = 0; i < state->parts.size(); ++i) {
                state->allowed.at(i).wait();
                connection.send(state->parts[i]);
                state->sent.at(i).set();
            }
        };
    }
    std::size_t size() const { return state_->parts.size(); }
    void send(std::size_t part) {
        state_->allowed.at(part).set();
        EXPECT_TRUE(state_->sent.at(part).wait());
    }

private:
    static constexpr std::size_t maximumParts = 16;

    struct State {
        std::vector<std::string> parts;
        std::array<Event, maximumParts> allowed;
        std::array<Event, maximumParts> sent;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

TEST_F(CurlURLSessionLimitsTest, AnyDataRestartsTheTimeout) {
    useManualClock();
    // Every part is data: interim heads, single lines of the head, and the beginning of a
    // compressed body that yields no output yet.
    const std::string packed =
        "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03\x4b\xcf\xc9\xcc\x2b\x49\x47\x25\x00"
        "\xcc\x93\x67\xa9\x14\x00\x00\x00"s;
    Dribble dribble({"HTTP/1.1 103 Early Hints\r\n\r\n", "HTTP/1.1 200 OK\r\n",
                     "Content-Encoding: gzip\r\nContent-Length: 27\r\n\r\n", packed.substr(0, 5),
                     packed.substr(5, 5), packed.substr(10)});
    ASSERT_EQ(packed.size(), 27U);
    server_.on("/", dribble.handler());
    const auto pending = start(withTimeout(server_.url("/"), 10s));
    for (std::size_t i = 0; i < dribble.size(); ++i) {
        letSessionRunOnce();  // so that it receives what has been sent
        clock_.advance(9s);
        dribble.send(i);
    }
    EXPECT_EQ(pending->wait().body, "glintglintglintglint") << pending->result.error.value_or("");
}

TEST_F(CurlURLSessionLimitsTest, WhatHasArrivedInTimeCountsThoughTheThreadIsLate) {
    useManualClock();
    Dribble dribble({"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nglint"});
    server_.on("/", dribble.handler());
    const auto pending = start(withTimeout(server_.url("/"), 10s));
    Event hasReturned;
    session().startDataTask(request(other_.url("/ping")), [&](const URLResult&) {
        dribble.send(0);
        clock_.advance(11s);
        hasReturned.set();
    });
    EXPECT_TRUE(hasReturned.wait());
    EXPECT_EQ(pending->wait().body, "glint") << pending->result.error.value_or("");
}

TEST_F(CurlURLSessionLimitsTest, ATransferEndsAfterAMinuteEvenIfDataArrives) {
    useManualClock();
    Dribble dribble(
        {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n", "1", "2", "3", "4", "5", "6"});
    server_.on("/", dribble.handler());
    const auto pending = start(withTimeout(server_.url("/"), 10s));
    for (std::size_t i = 0; i < 6; ++i) {
        dribble.send(i);
        letSessionRunOnce();
        clock_.advance(9s);
        letSessionRunOnce();
        EXPECT_EQ(pending->completions, 0) << i;
    }
    clock_.advance(6s);  // the sixtieth second
    letSessionRunOnce();
    EXPECT_EQ(pending->wait().error, "The request timed out.");
    EXPECT_EQ(pending->result.body, std::nullopt);
}

TEST_F(CurlURLSessionLimitsTest, TheTimeoutDoesNotRunWhileARequestIsQueued) {
    useManualClock();
    options_.maximumTransfersPerHost = 1;
    Dribble first({"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"});
    server_.on("/first", first.handler());
    server_.on("/second", answering(200, "in its turn"));
    const auto blocking = start(withTimeout(server_.url("/first"), 60s));
    const auto waiting = start(withTimeout(server_.url("/second"), 10s));
    other_.on("/elsewhere", redirectingTo(server_.url("/second")));
    const auto redirected = start(withTimeout(other_.url("/elsewhere"), 10s));
    ASSERT_TRUE(server_.waitForRequests(1));
    ASSERT_TRUE(other_.waitForRequests(1));
    letSessionRunOnce();
    clock_.advance(50s);
    letSessionRunOnce();
    EXPECT_EQ(server_.requests().size(), 1U);

    first.send(0);
    EXPECT_EQ(blocking->wait().error, std::nullopt);
    EXPECT_EQ(waiting->wait().body, "in its turn");
    EXPECT_EQ(redirected->wait().body, "in its turn");
}

/// A server's handler that counts the requests that run at a time and answers them after `release`.
/// Its state may outlive this object: the server's threads share it.
class Crowd {
public:
    LoopbackServer::Handler handler() {
        return [state = state_](const LoopbackRequest&, LoopbackConnection& connection) {
            {
                std::unique_lock lock(state->mutex);
                state->maximum = std::max(state->maximum, ++state->present);
                state->changed.notify_all();
                state->changed.wait_for(lock, test::patience, [&] { return state->released; });
                --state->present;
            }
            connection.answer(200, "x");
        };
    }

    bool waitFor(int count) {
        std::unique_lock lock(state_->mutex);
        return state_->changed.wait_for(lock, test::patience,
                                        [&] { return state_->present >= count; });
    }
    void release() {
        const std::lock_guard lock(state_->mutex);
        state_->released = true;
        state_->changed.notify_all();
    }
    int maximum() {
        const std::lock_guard lock(state_->mutex);
        return state_->maximum;
    }

private:
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        int present = 0;
        int maximum = 0;
        bool released = false;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

TEST_F(CurlURLSessionLimitsTest, SixRequestsRunAtOnceOnOneHost) {
    Crowd crowd;
    server_.onAnythingElse(crowd.handler());
    std::vector<std::shared_ptr<PendingAnswer>> pending;
    pending.reserve(20);
    for (int i = 0; i < 20; ++i) {
        pending.push_back(start(server_.url("/" + std::to_string(i))));
    }
    EXPECT_TRUE(crowd.waitFor(6));
    letSessionRunOnce();
    EXPECT_EQ(server_.requests().size(), 6U);
    crowd.release();
    for (const auto& one : pending) {
        EXPECT_EQ(one->wait().body, "x");
    }
    EXPECT_EQ(crowd.maximum(), 6);
    EXPECT_LE(server_.acceptedConnections(), 6);
}

TEST_F(CurlURLSessionLimitsTest, TheLimitOfAHostHoldsForRedirectsToIt) {
    Crowd crowd;
    LoopbackServer target({.address = "127.0.0.3"});
    target.on("/", crowd.handler());
    server_.onAnythingElse(redirectingTo(target.url("/")));
    std::vector<std::shared_ptr<PendingAnswer>> pending;
    pending.reserve(12);
    for (int i = 0; i < 12; ++i) {
        pending.push_back(start(server_.urlOf("h" + std::to_string(i) + ".test", "/")));
    }
    EXPECT_TRUE(server_.waitForRequests(12));
    EXPECT_TRUE(crowd.waitFor(6));
    letSessionRunOnce();
    crowd.release();
    for (const auto& one : pending) {
        EXPECT_EQ(one->wait().body, "x");
    }
    EXPECT_EQ(crowd.maximum(), 6);
}

TEST_F(CurlURLSessionLimitsTest, TwoHundredFiftySixRequestsRunAtOnceInTotal) {
    Crowd crowd;
    server_.onAnythingElse(crowd.handler());
    std::vector<std::shared_ptr<PendingAnswer>> pending;
    pending.reserve(300);
    for (int i = 0; i < 300; ++i) {
        pending.push_back(start(server_.urlOf("h" + std::to_string(i) + ".test", "/")));
    }
    EXPECT_TRUE(crowd.waitFor(256));
    crowd.release();
    for (const auto& one : pending) {
        EXPECT_EQ(one->wait().body, "x");
    }
    EXPECT_EQ(crowd.maximum(), 256);
}

TEST_F(CurlURLSessionLimitsTest, ABodyMayHaveThirtyTwoMebibytes) {
    server_.on("/fits", answering(200, std::string(32 * mebibyte, 'x')));
    server_.on("/declared", answering(200, std::string(32 * mebibyte + 1, 'x')));
    server_.on("/endless", [](const LoopbackRequest&, LoopbackConnection& connection) {
        connection.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
        while (connection.sendChunk(std::string(mebibyte, 'x'))) {
        }
        connection.close();
    });
    const URLResult fits = get(server_.url("/fits"));
    ASSERT_TRUE(fits.body) << fits.error.value_or("");
    EXPECT_EQ(fits.body->size(), 32 * mebibyte);
    server_.on("/promised", [](const LoopbackRequest&, LoopbackConnection& connection) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 99999999999\r\n\r\n");
        connection.holdUntilClosed();
    });
    for (const char* target : {"/declared", "/endless", "/promised"}) {
        const URLResult result = get(server_.url(target));
        EXPECT_EQ(result.body, std::nullopt) << target;
        EXPECT_NE(result.error, std::nullopt) << target;
        ASSERT_TRUE(result.response) << target;
        EXPECT_EQ(result.response->statusCode, 200);
    }
}

TEST_F(CurlURLSessionLimitsTest, TheLimitHoldsForTheDecompressedBody) {
    // 5,000 times "a", compressed by gzip(1).
    const std::string packed =
        "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03\xed\xc1\x31\x01\x00\x00\x00\xc2\xa0\xac\xeb"
        "\x5f\xc2\x14\x7e\x40\x01\x00\x00\x00\x00\x6f\x03\x76\x59\xf4\x4c\x88\x13\x00\x00"s;
    server_.on("/", answering(200, packed, {{"Content-Encoding", "gzip"}}));
    options_.maximumBodyBytes = 5000;
    EXPECT_EQ(get(server_.url("/")).body, std::string(5000, 'a'));
    endSession();
    options_.maximumBodyBytes = 4999;
    EXPECT_EQ(get(server_.url("/")).body, std::nullopt);
}

TEST_F(CurlURLSessionLimitsTest, TheLargestBodyFailsIfAllTogetherAreTooLarge) {
    options_.maximumArrivingBytes = 100'000;
    Dribble large({"HTTP/1.1 200 OK\r\nContent-Length: 95000\r\n\r\n" + std::string(90'000, 'x'),
                   std::string(5'000, 'x')});
    server_.on("/large", large.handler());
    server_.on("/small", answering(200, std::string(20'000, 'x')));
    const auto pending = start(server_.url("/large"));
    large.send(0);
    letSessionRunOnce();
    EXPECT_EQ(pending->completions, 0);

    EXPECT_EQ(get(server_.url("/small")).body, std::string(20'000, 'x'));
    EXPECT_EQ(pending->wait().error, "Too much data arrived at once.");
    EXPECT_EQ(pending->result.body, std::nullopt);
    EXPECT_EQ(get(server_.url("/small")).body, std::string(20'000, 'x'));
}

TEST_F(CurlURLSessionLimitsTest, TheSizeOfAHeadIsLimited) {
    const auto endlessly = [](const std::string& beginning, const std::string& part) {
        return [=](const LoopbackRequest&, LoopbackConnection& connection) {
            connection.send(beginning);
            while (connection.send(part)) {
            }
            connection.close();
        };
    };
    server_.on("/fields",
               endlessly("HTTP/1.1 200 OK\r\n", "X-Field: " + std::string(500, 'x') + "\r\n"));
    server_.on("/field", endlessly("HTTP/1.1 200 OK\r\nX-Field: ", std::string(500, 'x')));
    server_.on("/interim", endlessly("", "HTTP/1.1 103 Early Hints\r\nLink: </a>\r\n\r\n"));
    server_.on("/trailers", endlessly("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n",
                                      "X-Trailer: x\r\n"));
    for (const char* target : {"/fields", "/field", "/interim", "/trailers"}) {
        const URLResult result = get(server_.url(target));
        EXPECT_EQ(result.body, std::nullopt) << target;
        EXPECT_NE(result.error, std::nullopt) << target;
        EXPECT_NE(result.error, "The request timed out.") << target;
    }
}

class CurlURLSessionHeldTest : public CurlURLSessionTest {
protected:
    DispatchQueue& completionQueue() override { return queue_; }

    test::HeldQueue queue_;
};

TEST_F(CurlURLSessionHeldTest, NoTransferStartsWhileTooManyBodiesWaitForTheirCompletion) {
    options_.maximumDeliveredBytes = 1000;
    const std::string large(100'000, 'x');  // too large for the session's own thread
    Dribble held({"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"});
    server_.on("/held", held.handler());
    server_.on("/body", answering(200, large));
    const auto running = start(server_.url("/held"));
    ASSERT_TRUE(server_.waitForRequests(1));
    const auto delivered = start(server_.url("/body"));
    ASSERT_TRUE(queue_.waitFor(1));

    const auto waiting = start(server_.url("/body"));
    held.send(0);
    running->wait();  // so the session's loop has run since
    EXPECT_EQ(server_.requests().size(), 2U);

    queue_.runNext();
    EXPECT_EQ(delivered->completions, 1);
    EXPECT_TRUE(server_.waitForRequests(3));
    ASSERT_TRUE(queue_.waitFor(1));
    queue_.runNext();
    EXPECT_EQ(waiting->wait().body, large);
}

}  // namespace

}  // namespace glintmark::platform
