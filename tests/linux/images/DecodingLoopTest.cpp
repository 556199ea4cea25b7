#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

#include "base/graphics/Image.h"
#include "linux/images/DecoderHelper.h"
#include "linux/images/DecodingLoop.h"
#include "tests/support/WholeFile.h"

namespace glintmark::platform {
namespace {

using namespace std::chrono_literals;

class DecodingLoopTest : public testing::Test {
protected:
    using Clock = DecodingLoop::Clock;

    /// Null if the image does not decode.
    std::shared_ptr<const Image> decode(const std::shared_ptr<DecodeLink>& link) {
        const auto file = test::wholeFile(GLINTMARK_TEST_DATA "/images/rgba8.png");
        loop_.add({.data = file, .link = link, .completion = {}});
        std::vector<DecodingLoop::Finished> finished = loop_.runOnce();
        while (finished.empty()) {
            waitAndCheck();
            finished = loop_.runOnce();
        }
        return finished.front().image;
    }

    void waitAndCheck() {
        std::vector<pollfd> watched;
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(loop_.prepare(watched) - Clock::now());
        poll(watched.data(), watched.size(),
             static_cast<int>(std::clamp<std::chrono::milliseconds>(left, 0ms, 60s).count()));
        loop_.check(watched);
    }

    DecoderHelper helper_{GLINTMARK_IMAGE_DECODER};
    const DecodingOptions options_{};
    RestartPause pause_;
    DecodingLoop loop_{helper_, options_, pause_};
};

TEST_F(DecodingLoopTest, WhileThereIsNoImageTheHelperWakesNobody) {
    const auto first = std::make_shared<DecodeLink>();
    EXPECT_TRUE(decode(first));
    loop_.endLink(first);
    EXPECT_TRUE(loop_.runOnce().empty());

    std::vector<pollfd> watched;
    const auto latest = loop_.prepare(watched);  // the helper ends a child and forks another
    EXPECT_TRUE(std::ranges::all_of(watched, [](const pollfd& one) { return one.fd < 0; }));
    EXPECT_LE(latest, Clock::now() + options_.helperTimeout);
    loop_.check(watched);

    EXPECT_TRUE(decode(std::make_shared<DecodeLink>()));
}

}  // namespace
}  // namespace glintmark::platform
