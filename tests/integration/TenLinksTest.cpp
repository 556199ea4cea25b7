#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>

#include "favicon/FaviconFetcher.h"
#include "linux/network/CurlURLSession.h"
#include "linux/queues/LinuxDispatchQueues.h"
#include "tests/doubles/TestPlatform.h"
#include "tests/linux/Waiting.h"
#include "tests/support/LoopbackServer.h"

// Fetches for ten links to one site, through the real HTTP client. The site is behind a proxy.

namespace glintmark {
namespace {

using testing::Each;
using testing::Pair;

constexpr int links = 10;

class TenLinksTest : public testing::Test {
protected:
    TenLinksTest() {
        ::setenv("http_proxy", server_.url("").c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    }
    ~TenLinksTest() override {
        session_.reset();
        ::unsetenv("http_proxy");  // NOLINT(concurrency-mt-unsafe): no thread runs
    }

    /// The site's answers: each link has its page, all have one icon and one manifest.
    void answer(const std::vector<std::pair<std::string, std::string>>& fields) {
        const auto at = [&](const std::string& path, const std::string& body) {
            server_.on("http://site.example" + path, test::answering(200, body, fields));
        };
        for (int i = 0; i < links; ++i) {
            at("/page" + std::to_string(i), R"(<link rel="icon" href="/icon.png">)");
        }
        at("/icon.png", "image 96x96 opaque");
        at("/manifest.json", R"({"icons": [{"src": "/large.png"}]})");
        at("/large.png", "image 192x192 opaque");
        at("/favicon.ico", "image 16x16 opaque");
        // Two that are not there.
        server_.onAnythingElse(test::answering(404, "", fields));
    }

    void startLink(int number) {
        FaviconFetcher::fetch("http://site.example/page" + std::to_string(number),
                              [this](const std::shared_ptr<const Image>& image) {
                                  icons_ += image && image->size().width == 192 ? 1 : 0;
                                  ++ended_;
                              });
    }
    bool waitForLinks(int count) {
        return platform::waitFor([&] { return ended_ == count; });
    }

    /// The number of requests for each address but the pages.
    std::map<std::string, int> requests() const {
        std::map<std::string, int> counts;
        for (const auto& request : server_.requests()) {
            if (!request.target.starts_with("http://site.example/page")) {
                ++counts[request.target];
            }
        }
        return counts;
    }

    test::LoopbackServer server_;
    std::atomic<int> icons_ = 0;
    std::atomic<int> ended_ = 0;

private:
    doubles::Fakes fakes_;
    platform::LinuxDispatchQueues queues_;
    std::unique_ptr<platform::CurlURLSession> session_ = std::make_unique<platform::CurlURLSession>(
        queues_.global(platform::QualityOfService::userInitiated),
        platform::CurlURLSessionOptions{.version = "1"});
    platform::Configuration configuration_{"http://service.example", "https://product.example/"};
    platform::Services services_{
        .application = fakes_.application,
        .bundle = fakes_.bundle,
        .configuration = configuration_,
        .dispatchQueues = queues_,
        .eventStreams = fakes_.eventStreams,
        .fileManager = fakes_.files,
        .imageDecoder = fakes_.imageDecoder,
        .log = fakes_.log,
        .openPanel = fakes_.openPanel,
        .statusBar = fakes_.statusBar,
        .timers = fakes_.queues,
        .urlSession = *session_,
        .userDefaults = fakes_.userDefaults,
        .userNotificationCenter = fakes_.notifications,
        .workspace = fakes_.workspace,
    };
    platform::ServicesScope scope_{services_};
};

TEST_F(TenLinksTest, OneAfterTheOtherAskTheFixedPlacesOnce) {
    answer({{"Cache-Control", "max-age=60"}});
    for (int i = 0; i < links; ++i) {
        startLink(i);
        ASSERT_TRUE(waitForLinks(i + 1));
    }
    EXPECT_EQ(icons_, links);
    EXPECT_EQ(requests().size(), 7U);  // also the service
    EXPECT_THAT(requests(), Each(Pair(testing::_, 1)));
}

TEST_F(TenLinksTest, AtOnceAskTheFixedPlacesOnce) {
    answer({{"Cache-Control", "max-age=60"}});
    for (int i = 0; i < links; ++i) {
        startLink(i);
    }
    ASSERT_TRUE(waitForLinks(links));
    EXPECT_EQ(icons_, links);
    const auto found = requests();
    EXPECT_EQ(found.size(), 7U);
    for (const char* place : {"/apple-touch-icon.png", "/apple-touch-icon-precomposed.png",
                              "/manifest.json", "/favicon.ico", "/icon.png", "/large.png"}) {
        EXPECT_EQ(found.at("http://site.example" + std::string(place)), 1) << place;
    }
    EXPECT_EQ(found.at("http://service.example/s2/favicons?domain=site.example&sz=256"), 1);
}

TEST_F(TenLinksTest, EachAsksForItselfIfTheSiteAllowsNothingElse) {
    answer({});
    for (int i = 0; i < links; ++i) {
        startLink(i);
    }
    ASSERT_TRUE(waitForLinks(links));
    EXPECT_EQ(icons_, links);
    EXPECT_THAT(requests(), Each(Pair(testing::_, links)));
}

}  // namespace
}  // namespace glintmark
