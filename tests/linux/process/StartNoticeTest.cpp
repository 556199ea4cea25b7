#include <gtest/gtest.h>

#include <optional>

#include "linux/process/StartNotice.h"
#include "tests/linux/MainLoop.h"

namespace glintmark::platform {
namespace {

using std::chrono::milliseconds;
using Start = DesktopApplication::Start;

constexpr milliseconds none{0};
constexpr milliseconds noticeable{50};
constexpr milliseconds tooLong = std::chrono::minutes(10);

class StartNoticeTest : public testing::Test {
protected:
    void make(StartNotice::Patience patience) {
        begin_ = std::chrono::steady_clock::now();
        notice_.emplace(
            [this](std::function<void(bool)> answer) {
                ++asked_;
                answer(isShown_);
            },
            [this] { ++shown_; }, patience);
    }

    std::optional<StartNotice> notice_;
    std::chrono::steady_clock::time_point begin_;
    bool isShown_ = false;
    int asked_ = 0;
    int shown_ = 0;
};

TEST_F(StartNoticeTest, ShowsTheProgramOnlyIfNothingElseDoes) {
    make({none, none});
    notice_->started(Start::byASecond);
    EXPECT_EQ(shown_, 1);
    isShown_ = true;
    notice_->started(Start::byASecond);
    EXPECT_EQ(asked_, 2);
    EXPECT_EQ(shown_, 1);
}

TEST_F(StartNoticeTest, APanelHasTimeToShowTheItemFirst) {
    make({noticeable, tooLong});
    notice_->started(Start::byDesktop);
    ASSERT_TRUE(waitUntil([&] { return shown_ > 0; }));
    EXPECT_GE(std::chrono::steady_clock::now() - begin_, noticeable);
    EXPECT_EQ(shown_, 1);
}

TEST_F(StartNoticeTest, ASecondStartAtLoginIsNotAnsweredBeforeTheSessionIsUp) {
    make({none, tooLong});
    notice_->started(Start::byASecond);
    runPending();
    EXPECT_EQ(asked_, 0);
}

TEST_F(StartNoticeTest, AnAnswerThatWaitsEndsWithTheNotice) {
    make({tooLong, tooLong});
    notice_->started(Start::byDesktop);
    notice_.reset();
    runPending();
    EXPECT_EQ(asked_, 0);
}

}  // namespace
}  // namespace glintmark::platform
