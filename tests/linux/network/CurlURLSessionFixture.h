#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

#include "linux/network/CurlURLSession.h"
#include "tests/support/Event.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/TestQueues.h"

namespace glintmark::platform {

using test::answering;
using test::Event;
using test::LoopbackConnection;
using test::LoopbackRequest;
using test::LoopbackServer;
using test::redirectingTo;

/// The result of a started request, once it has arrived.
struct PendingAnswer {
    Event arrived;
    URLResult result;
    std::atomic<int> completions = 0;

    URLResult wait() {
        EXPECT_TRUE(arrived.wait()) << "no completion";
        return result;
    }
};

/// A session and servers on loopback, without the environment's proxies.
class CurlURLSessionTest : public testing::Test {
protected:
    CurlURLSessionTest() {
        for (const char* name : {"http_proxy", "HTTP_PROXY", "https_proxy", "HTTPS_PROXY",
                                 "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"}) {
            ::unsetenv(name);  // NOLINT(concurrency-mt-unsafe): no thread runs
        }
        options_.version = "1.2.3";
    }

    /// Created with `options_` and `completionQueue()` on first use.
    CurlURLSession& session() {
        if (!session_) {
            session_ = std::make_unique<CurlURLSession>(completionQueue(), options_);
        }
        return *session_;
    }
    void endSession() { session_.reset(); }

    virtual DispatchQueue& completionQueue() { return inlineQueue_; }

    static URLRequest request(const std::string& url) {
        URLRequest request(*URL::parse(url));
        request.timeoutInterval = std::chrono::seconds(20);
        return request;
    }

    std::shared_ptr<PendingAnswer> start(URLRequest what) {
        auto pending = std::make_shared<PendingAnswer>();
        session().startDataTask(std::move(what), [pending](URLResult result) {
            pending->result = std::move(result);
            ++pending->completions;
            pending->arrived.set();
        });
        return pending;
    }
    std::shared_ptr<PendingAnswer> start(const std::string& url) { return start(request(url)); }

    URLResult get(const std::string& url) { return start(url)->wait(); }

    /// Returns when the session's thread has run its loop at least once since the call.
    void letSessionRunOnce() { EXPECT_EQ(get(other_.url("/ping")).error, std::nullopt); }

    CurlURLSessionOptions options_;
    LoopbackServer server_;
    LoopbackServer other_{{.address = "127.0.0.2"}};  ///< On another host.

private:
    test::InlineQueue inlineQueue_;
    std::unique_ptr<CurlURLSession> session_;
};

/// A clock that moves only in `advance`.
class ManualClock {
public:
    using Time = std::chrono::steady_clock::time_point;

    Time now() const { return Time(std::chrono::nanoseconds(time_.load())); }
    void advance(std::chrono::nanoseconds by) { time_ += by.count(); }

private:
    std::atomic<std::chrono::nanoseconds::rep> time_ =
        std::chrono::steady_clock::now().time_since_epoch().count();
};

}  // namespace glintmark::platform
