#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/URLSession.h"

namespace glintmark::platform {

/// A session under test, with addresses to request.
class URLSessionSubject {
public:
    virtual ~URLSessionSubject() = default;

    virtual URLSession& session() = 0;

    /// An address that answers with `status` and `body`.
    virtual std::string answering(int status, const std::string& body) = 0;

    virtual std::string unreachable() = 0;  ///< An address where nothing listens.
    virtual std::string silent() = 0;       ///< An address that never answers.

    /// Lets the session run until `condition` holds. False if it never does.
    virtual bool runUntil(const std::function<bool()>& condition) = 0;
};

/// The tests that every session passes. The parameter makes the subject.
class URLSessionContract : public testing::TestWithParam<std::unique_ptr<URLSessionSubject> (*)()> {
protected:
    struct Outcome {
        URLResult result;
        std::atomic<int> completions = 0;
    };

    URLSessionSubject& subject() { return *subject_; }

    std::shared_ptr<Outcome> start(URLRequest request) {
        auto outcome = std::make_shared<Outcome>();
        subject().session().startDataTask(std::move(request), [outcome](URLResult result) {
            outcome->result = std::move(result);
            ++outcome->completions;
        });
        return outcome;
    }

    URLResult get(const std::string& url) {
        const auto outcome = start(URLRequest(*URL::parse(url)));
        EXPECT_TRUE(subject().runUntil([&] { return outcome->completions == 1; }));
        return outcome->result;
    }

private:
    std::unique_ptr<URLSessionSubject> subject_ = GetParam()();
};

TEST_P(URLSessionContract, AnAnswerOfAnyStatusHasItsBodyAndNoError) {
    for (const int status : {200, 203, 404, 500}) {
        const URLResult result = get(subject().answering(status, "the body"));
        ASSERT_TRUE(result.response);
        EXPECT_EQ(result.response->statusCode, status);
        EXPECT_EQ(result.body, "the body");
        EXPECT_EQ(result.error, std::nullopt);
    }
}

TEST_P(URLSessionContract, AnEmptyBodyIsABody) {
    EXPECT_EQ(get(subject().answering(200, "")).body, "");
}

TEST_P(URLSessionContract, AFailedTransferHasAnErrorAndNeitherBodyNorResponse) {
    const URLResult result = get(subject().unreachable());
    EXPECT_EQ(result.body, std::nullopt);
    EXPECT_FALSE(result.response);
    EXPECT_NE(result.error, std::nullopt);
}

TEST_P(URLSessionContract, SilenceEndsWithTheTimeout) {
    URLRequest request(*URL::parse(subject().silent()));
    request.timeoutInterval = std::chrono::milliseconds(20);
    const auto outcome = start(request);
    EXPECT_TRUE(subject().runUntil([&] { return outcome->completions == 1; }));
    EXPECT_EQ(outcome->result.body, std::nullopt);
    EXPECT_NE(outcome->result.error, std::nullopt);
}

TEST_P(URLSessionContract, AnAddressThatIsNotHTTPFails) {
    for (const char* url : {"ftp://127.0.0.1/", "file:///etc/hostname", "data:text/plain,x",
                            "//127.0.0.1/", "/path", "http:///path"}) {
        const URLResult result = get(url);
        EXPECT_EQ(result.body, std::nullopt) << url;
        EXPECT_FALSE(result.response) << url;
        EXPECT_NE(result.error, std::nullopt) << url;
    }
}

TEST_P(URLSessionContract, EachRequestIsCompletedOnce) {
    const std::string url = subject().answering(200, "x");
    std::vector<std::shared_ptr<Outcome>> outcomes;
    outcomes.reserve(20);
    for (int i = 0; i < 20; ++i) {
        outcomes.push_back(start(URLRequest(*URL::parse(url))));
    }
    EXPECT_TRUE(subject().runUntil([&] {
        return std::all_of(outcomes.begin(), outcomes.end(),
                           [](const auto& outcome) { return outcome->completions > 0; });
    }));
    for (const auto& outcome : outcomes) {
        EXPECT_EQ(outcome->completions, 1);
        EXPECT_EQ(outcome->result.body, "x");
    }
}

TEST_P(URLSessionContract, ACompletionMayStartARequest) {
    const std::string url = subject().answering(200, "x");
    std::atomic<bool> ended = false;
    subject().session().startDataTask(URLRequest(*URL::parse(url)), [&](const URLResult&) {
        subject().session().startDataTask(URLRequest(*URL::parse(url)),
                                          [&](const URLResult&) { ended = true; });
    });
    EXPECT_TRUE(subject().runUntil([&] { return ended.load(); }));
}

}  // namespace glintmark::platform
