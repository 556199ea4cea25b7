#include <gtest/gtest.h>

#include "linux/network/HTTPCache.h"

namespace glintmark::platform {

namespace {

using namespace std::chrono_literals;

constexpr HTTPCache::Time start{};

HTTPCache::Answer answer(std::string body) { return {.status = 200, .body = std::move(body)}; }

/// A cache that keeps answers for a minute.
class HTTPCacheTest : public testing::Test {
protected:
    void keep(const std::string& request, std::string body) {
        cache_.keep(request, answer(std::move(body)), start + 60s);
    }
    std::string kept(const std::string& request, HTTPCache::Time now = start) {
        const auto* const found = cache_.find(request, now);
        return found != nullptr ? found->body : "none";
    }

    HTTPCache cache_;
};

TEST_F(HTTPCacheTest, AnAnswerIsFoundUntilItIsNoLongerFresh) {
    EXPECT_EQ(kept("a"), "none");
    keep("a", "x");
    EXPECT_EQ(kept("a"), "x");
    EXPECT_EQ(kept("b"), "none");
    EXPECT_EQ(kept("a", start + 59s), "x");
    EXPECT_EQ(kept("a", start + 60s), "none");
    EXPECT_EQ(cache_.bytes(), 0U);
}

TEST_F(HTTPCacheTest, ALaterAnswerReplacesAnEarlierOne) {
    keep("a", "x");
    const std::size_t bytes = cache_.bytes();
    keep("a", "y");
    EXPECT_EQ(kept("a"), "y");
    EXPECT_EQ(cache_.bytes(), bytes);
}

TEST_F(HTTPCacheTest, AnAnswerMayHaveHalfAMebibyteWithItsRequest) {
    keep("a", "");
    const std::size_t others = cache_.bytes() - 1;  // those of the request
    const std::string largest(HTTPCache::maximumBytesOfOne - others - 1, 'x');
    keep("a", largest);
    EXPECT_EQ(kept("a"), largest);
    keep("bb", largest);
    EXPECT_EQ(kept("bb"), "none");
    cache_.keep("c", {.status = 301, .location = std::string(HTTPCache::maximumBytesOfOne, 'x')},
                start + 60s);
    EXPECT_EQ(kept("c"), "none");
    keep("a", largest + "x");
    EXPECT_EQ(kept("a"), "none");  // the earlier answer is no longer the server's
}

TEST_F(HTTPCacheTest, TheLeastRecentlyUsedMakeRoom) {
    const std::string body(HTTPCache::maximumBytesOfOne - 1024, 'x');
    for (int i = 0; i < 16; ++i) {
        keep(std::to_string(i), body);
    }
    EXPECT_EQ(kept("0"), body);  // used again
    EXPECT_LE(cache_.bytes(), HTTPCache::maximumBytes);
    keep("more", std::string(100'000, 'x'));
    EXPECT_EQ(kept("1"), "none");
    EXPECT_EQ(kept("0"), body);
    EXPECT_EQ(kept("2"), body);
    EXPECT_LE(cache_.bytes(), HTTPCache::maximumBytes);
}

TEST_F(HTTPCacheTest, EmptyAnswersCountToo) {
    for (int i = 0; i < 40'000; ++i) {
        keep(std::to_string(i), "");
    }
    EXPECT_LE(cache_.bytes(), HTTPCache::maximumBytes);
    EXPECT_EQ(kept("0"), "none");
    EXPECT_EQ(kept("39999"), "");
}

}  // namespace

}  // namespace glintmark::platform
