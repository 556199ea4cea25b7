#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "linux/process/GLibApplication.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAre;

class RecordingDelegate : public ApplicationDelegate {
public:
    explicit RecordingDelegate(Application& application) : application_(application) {}

    void applicationDidFinishLaunching() override {
        calls.emplace_back("launched");
        if (atLaunch) {
            atLaunch();
        }
    }
    void addFolder() override { calls.emplace_back("addFolder"); }
    void quit() override {
        calls.emplace_back("quit");
        application_.terminate();
    }

    std::vector<std::string> calls;
    std::function<void()> atLaunch;

private:
    Application& application_;
};

class GLibApplicationTest : public testing::Test {
protected:
    GLibApplicationTest() {
        application_.setActivationPolicy(ActivationPolicy::accessory);
        application_.setDelegate(delegate_);
    }

    MainLoops loops_;
    GLibApplication application_{loops_, std::chrono::minutes(5)};
    RecordingDelegate delegate_{application_};
};

TEST_F(GLibApplicationTest, LaunchIsReportedOnceFromTheRunningLoop) {
    delegate_.atLaunch = [this] { application_.terminate(); };
    application_.run();
    EXPECT_THAT(delegate_.calls, ElementsAre("launched"));
}

TEST_F(GLibApplicationTest, ATerminationSignalAsksTheDelegateToQuit) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        delegate_.calls.clear();
        delegate_.atLaunch = [signal] { kill(getpid(), signal); };
        application_.run();
        EXPECT_THAT(delegate_.calls, ElementsAre("launched", "quit")) << signal;
    }
}

TEST_F(GLibApplicationTest, TerminatingBeforeTheLoopRunsIsHarmless) {
    application_.terminate();
    delegate_.atLaunch = [this] { application_.terminate(); };
    application_.run();
    EXPECT_THAT(delegate_.calls, ElementsAre("launched"));
}

TEST_F(GLibApplicationTest, ATerminationSignalAlsoEndsTheLoopOfAModalDialog) {
    bool dialogReturned = false;
    delegate_.atLaunch = [&] {
        kill(getpid(), SIGTERM);
        const GMainLoopHandle dialog(g_main_loop_new(nullptr, FALSE));
        loops_.run(dialog.get());
        dialogReturned = true;
        loops_.run(dialog.get());  // a dialog that opens while the program quits
    };
    application_.run();
    EXPECT_TRUE(dialogReturned);
    EXPECT_THAT(delegate_.calls, ElementsAre("launched", "quit"));
}

void waitForever() {
    while (true) {
        pause();
    }
}

TEST(GLibApplicationDeathTest, ASignalBeforeTheLoopRunsExitsWithStatusZero) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        const auto wait = [signal] {
            MainLoops loops;
            const GLibApplication application(loops);
            kill(getpid(), signal);
            waitForever();
        };
        EXPECT_EXIT(wait(), testing::ExitedWithCode(0), "") << signal;
    }
}

TEST(GLibApplicationDeathTest, ABlockedMainThreadExitsAtTheTimeout) {
    const auto wait = [] {
        MainLoops loops;
        GLibApplication application(loops, std::chrono::milliseconds(20));
        RecordingDelegate delegate(application);
        delegate.atLaunch = [] {
            kill(getpid(), SIGTERM);
            waitForever();
        };
        application.setDelegate(delegate);
        application.run();
    };
    EXPECT_EXIT(wait(), testing::ExitedWithCode(0), "");
}

TEST(GLibApplicationDeathTest, AQuitThatTakesTooLongExitsAtTheTimeout) {
    const auto end = [] {
        MainLoops loops;
        GLibApplication application(loops, std::chrono::milliseconds(20));
        RecordingDelegate delegate(application);
        delegate.atLaunch = [] { kill(getpid(), SIGTERM); };
        application.setDelegate(delegate);
        application.run();
        EXPECT_THAT(delegate.calls, ElementsAre("launched", "quit"));
        waitForever();
    };
    EXPECT_EXIT(end(), testing::ExitedWithCode(0), "");
}

TEST_F(GLibApplicationTest, APeerThatHangsUpDoesNotEndTheProcess) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    close(ends[0]);
    EXPECT_EQ(write(ends[1], "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    close(ends[1]);
}

}  // namespace
}  // namespace glintmark::platform
