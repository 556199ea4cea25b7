#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <mutex>
#include <thread>

#include "linux/workspace/IconMetadata.h"
#include "tests/linux/MainLoop.h"

namespace glintmark::platform {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

/// A daemon that answers when the test releases it. Any thread.
class Daemon {
public:
    IconMetadata::Writer writer() {
        return [state = state_](const std::string& path, const std::string& iconURI) {
            std::unique_lock lock(state->mutex);
            state->asked.push_back(path + " " + iconURI);
            state->changed.notify_all();
            state->changed.wait(lock, [&] { return state->released; });
            return state->answer;
        };
    }
    void release(bool answer) {
        const std::scoped_lock lock(state_->mutex);
        state_->released = true;
        state_->answer = answer;
        state_->changed.notify_all();
    }
    std::vector<std::string> asked() const {
        const std::scoped_lock lock(state_->mutex);
        return state_->asked;
    }

private:
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        std::vector<std::string> asked;
        bool released = false;
        bool answer = false;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

TEST(IconMetadataTest, APromptAnswerComesWithinTheCall) {
    Daemon daemon;
    daemon.release(true);
    IconMetadata metadata(daemon.writer());
    std::vector<bool> answers;
    metadata.set("/a", "file:///icon", 20s, [&](bool written) { answers.push_back(written); });
    EXPECT_THAT(answers, ElementsAre(true));
    EXPECT_THAT(daemon.asked(), ElementsAre("/a file:///icon"));
}

TEST(IconMetadataTest, ARefusalIsReported) {
    Daemon daemon;
    daemon.release(false);
    IconMetadata metadata(daemon.writer());
    std::vector<bool> answers;
    metadata.set("/a", "file:///icon", 20s, [&](bool written) { answers.push_back(written); });
    EXPECT_THAT(answers, ElementsAre(false));
}

TEST(IconMetadataTest, ALateAnswerComesThroughTheMainLoop) {
    Daemon daemon;
    IconMetadata metadata(daemon.writer(), 60s);
    std::vector<bool> answers;
    metadata.set("/a", "file:///icon", 1ms, [&](bool written) { answers.push_back(written); });
    EXPECT_TRUE(answers.empty());
    daemon.release(true);
    ASSERT_TRUE(waitUntil([&] { return !answers.empty(); }));
    EXPECT_THAT(answers, ElementsAre(true));
}

TEST(IconMetadataTest, AfterATimeoutTheNextCallDoesNotBlock) {
    Daemon daemon;
    IconMetadata metadata(daemon.writer(), 5ms);
    std::vector<bool> answers;
    const auto note = [&](bool written) { answers.push_back(written); };
    metadata.set("/a", "file:///icon", 1ms, note);
    ASSERT_TRUE(waitUntil([&] { return answers.size() == 1; }));
    // One hour: if this call blocked, the test would time out.
    metadata.set("/b", "file:///icon", 1h, note);
    ASSERT_TRUE(waitUntil([&] { return answers.size() == 2; }));
    EXPECT_THAT(answers, ElementsAre(false, false));

    daemon.release(true);  // both are stored in the end, after their timeouts
    ASSERT_TRUE(waitUntil([&] { return daemon.asked().size() == 2; }));
    EXPECT_EQ(answers.size(), 2U);
}

TEST(IconMetadataTest, TheDaemonIsCalledForOneFileAfterTheOther) {
    Daemon daemon;
    IconMetadata metadata(daemon.writer(), 60s);
    int answers = 0;
    for (const char* path : {"/a", "/b", "/c"}) {
        metadata.set(path, "file:///i", 0ms, [&](bool) { ++answers; });
    }
    ASSERT_TRUE(waitUntil([&] { return !daemon.asked().empty(); }));
    EXPECT_THAT(daemon.asked(), ElementsAre("/a file:///i"));
    daemon.release(true);
    ASSERT_TRUE(waitUntil([&] { return answers == 3; }));
    EXPECT_THAT(daemon.asked(), ElementsAre("/a file:///i", "/b file:///i", "/c file:///i"));
}

TEST(IconMetadataTest, AnAnswerAfterTheServiceIsGoneIsDropped) {
    Daemon daemon;
    bool answered = false;
    {
        IconMetadata metadata(daemon.writer());
        metadata.set("/a", "file:///icon", 0ms, [&](bool) { answered = true; });
        ASSERT_TRUE(waitUntil([&] { return !daemon.asked().empty(); }));
    }
    daemon.release(true);
    runPending();
    EXPECT_FALSE(answered);
}

TEST(IconMetadataTest, WithoutTheFileThereIsNoAttribute) {
    EXPECT_EQ(IconMetadata::readThroughGIO("/nowhere/a.webloc"), std::nullopt);
}

}  // namespace
}  // namespace glintmark::platform
